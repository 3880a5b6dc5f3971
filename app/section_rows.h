// What planes carry in one frame as rows of numbers: in all and by part, beside what it is in balance with.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "analysis/frame_section.h"
#include "model/model.h"

namespace kestralum {

// A length (m) as it is told.
struct ToldLength {
    std::string unit = "m";
    double factor = 1;
};

// "x = 0.2 m, normal +x"; a plane at an angle by its distance from the origin along its normal.
std::string plane_text(const SectionPlane& plane, const ToldLength& length);

// Area; centre; force (N) and moment about the centre (N m); normal force, shear, twist, bending; imbalance.
inline constexpr std::size_t section_columns = 15;
std::array<std::string, section_columns> section_headings(const ToldLength& length);

struct SectionRow {
    std::string what;                            // "carried", a part, "loads", "held", "inertia"
    std::array<double, section_columns> values;  // not a number where the row tells nothing
};
// Of a plane that cuts the body; loads, held and imbalance where they are known, inertia in explicit runs,
// parts where more than one is cut.
std::vector<SectionRow> section_rows(const Model& model, const Run& run, const FrameSection& section,
                                     const Vec3& normal, const ToldLength& length);

// Why a frame's sections are told from averaged stresses, without loads and supports, in one line.
std::string why_from_stresses(const Run& run);

}  // namespace kestralum
