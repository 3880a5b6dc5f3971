#include "app/section_rows.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "app/section_table.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::size_t area_column = 0, centre_column = 1, force_column = 4, moment_column = 7,
                      action_column = 10, imbalance_column = 14;

SectionRow row_of(const std::string& what, const Resultant& of, const Vec3& normal) {
    SectionRow row{what, {}};
    row.values.fill(std::numeric_limits<double>::quiet_NaN());
    std::ranges::copy(of.force, row.values.begin() + force_column);
    std::ranges::copy(of.moment, row.values.begin() + moment_column);
    const SectionAction action = action_of(of, normal);
    std::ranges::copy(std::array{action.normal, action.shear, action.twist, action.bending},
                      row.values.begin() + action_column);
    return row;
}

}  // namespace

std::string plane_text(const SectionPlane& plane, const ToldLength& length) {
    const auto& [a, b, c] = plane.normal;
    const double at = length.factor * dot(plane.point, plane.normal);
    for (std::size_t k = 0; k < 3; ++k) {
        const double along = plane.normal[k];
        if (std::abs(std::abs(along) - 1) > 1e-12) continue;
        const char axis = "xyz"[k];
        return formatted("%c = %.6g %s, normal %c%c", axis, along * at + 0.0, length.unit.c_str(),
                         along > 0 ? '+' : '-', axis);
    }
    return formatted("%.6g %s along normal (%.3g %.3g %.3g)", at, length.unit.c_str(), a, b, c);
}

std::array<std::string, section_columns> section_headings(const ToldLength& length) {
    const std::string unit = " [" + length.unit + "]";
    return {"Area [" + length.unit + "^2]",
            "Centre x" + unit,
            "Centre y" + unit,
            "Centre z" + unit,
            "Fx [N]",
            "Fy [N]",
            "Fz [N]",
            "Mx [N m]",
            "My [N m]",
            "Mz [N m]",
            "Normal force [N]",
            "Shear [N]",
            "Twist [N m]",
            "Bending [N m]",
            "Imbalance"};
}

std::vector<SectionRow> section_rows(const Model& model, const Run& run, const FrameSection& section,
                                     const Vec3& normal, const ToldLength& length) {
    const SectionSum& sum = section.sum;
    const double area_factor = length.factor * length.factor;
    std::vector<SectionRow> out;
    SectionRow& all = out.emplace_back(row_of("carried", sum.carried, normal));
    all.values[area_column] = area_factor * sum.area;
    for (std::size_t c = 0; c < 3; ++c) all.values[centre_column + c] = length.factor * sum.centre[c];
    if (section.exact) all.values[imbalance_column] = imbalance(sum);
    if (sum.parts.size() > 1)
        for (const PartSection& part : sum.parts) {
            SectionRow& row = out.emplace_back(row_of(model.parts[part.part].name, part.carried, normal));
            row.values[area_column] = area_factor * part.area;
        }
    if (!section.exact) return out;
    out.push_back(row_of("loads", sum.loads, normal));
    out.push_back(row_of("held", sum.held, normal));
    if (run.ana_type == AnalysisType::explicit_dynamics)
        out.push_back(row_of("inertia", sum.inertia, normal));
    return out;
}

std::string why_from_stresses(const Run& run) {
    const std::string known = "from nodal stresses; loads, held and inertia are not known";
    if (run.ana_type == AnalysisType::linear_static)
        return known + ": the file has neither the materials nor the loads of the run";
    return known + ": the forces of its elements are told by --section during the run alone";
}

}  // namespace kestralum
