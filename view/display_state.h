// What the window's slots set and the drawing reads.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "model/run.h"
#include "view/color_scale.h"
#include "view/contour.h"
#include "view/part_look.h"
#include "view/vector.h"

namespace kestralum::view {

// The View menu, in its order.
enum class ViewFlag {
    node,
    shape,
    wire,
    fem,
    axes,
    part_axes,
    bc,
    text,
    force,
    rigid_element,
    rigid_wall,
    element_contact,
    contour_bar,
    part_name,
    dimension,
    fem_information
};
struct ViewEntry {
    const char* text;  // of the action
    bool start;        // checked at start
};
inline constexpr std::array<ViewEntry, 16> view_entries{{{"&Node", true},
                                                         {"&Shape", true},
                                                         {"&Wire", true},
                                                         {"&Fem", true},
                                                         {"&Axes", true},
                                                         {"&Part Axes", false},
                                                         {"&B.C.", true},
                                                         {"&Text", true},
                                                         {"&Force", true},
                                                         {"&Rigid Element", false},
                                                         {"&Rigid Wall", true},
                                                         {"&Element Contact", false},
                                                         {"&Contour Bar", true},
                                                         {"&Part Name", false},
                                                         {"&Dimension", false},
                                                         {"&Fem infomation", true}}};

constexpr std::array<bool, 16> start_flags() {
    std::array<bool, 16> flags{};
    for (std::size_t k = 0; k < flags.size(); ++k) flags[k] = view_entries[k].start;
    return flags;
}

enum class MouseMode { translation, rotation };
enum class EigenMethod : std::int32_t { subspace = 2, lanczos = 3 };

inline constexpr int phase_count = 20;  // pictures per oscillation of a mode

// A plane that hides what its normal points to, closed with the contour.
struct ShownSection {
    Vec3 point{}, normal{1, 0, 0};  // of the body at rest, m; of length 1
    bool on = true;
    bool operator==(const ShownSection&) const = default;
    bool hides(const Vec3& place) const { return on && dot(normal, minus(place, point)) > 0; }
};

// Values that hide what has them; in the quantity's own unit.
struct Threshold {
    std::optional<double> below, above;
    bool on() const { return below || above; }
    bool operator==(const Threshold&) const = default;
};

enum class Deformation {
    usual,      // modes a fifth of the model, static magnified where auto_scale is on, steps as they are
    automatic,  // the same magnification in the analyses with steps, by their largest displacement
    fixed,      // times deformation_factor, whatever mode_scale is
};

enum class Shading {
    flat,     // faces without a contour lit, with one normal each; a contour in its own colours
    smooth,   // lit as if they were round where neighbouring faces meet at less than 30 degrees
    contour,  // the same with a contour, whose colours are darkened
};

// How the body is shown beside its contour.
struct Look {
    Shading shading = Shading::flat;
    bool silhouettes = false;     // dark rims where the body hides itself
    bool occlusion = false;       // corners and hollows darker
    bool undeformed = false;      // outline at rest
    bool marks = false;           // of the largest and the smallest value
    bool element_values = false;  // as they are in each element, not averaged at the nodes
    bool operator==(const Look&) const = default;
};

// Signs of a vector or of the principal stresses at the nodes.
enum class Glyphs { none, displacement, principal, reaction, velocity, acceleration };

struct DisplayState {
    std::array<bool, 16> flags = start_flags();
    std::int32_t contour = 4;  // row of the Contour menu, -1 none
    std::int32_t further = 0;  // index of a quantity from 100 on, shown in place of the contour; 0 none
    std::int32_t frame = 1;    // mode or output step shown, 1-based; 0 undeformed
    std::int32_t frame_increment = 1;  // kept for the control that sets it
    bool animation_running = false;
    bool animation_repeats = false;  // from the last step to the first; ends with the animation
    double speed = 1;                // frames, or entries of the phase table, per tick
    double part_of_frame = 0;        // of them, what no picture has shown yet: 0 … 1
    bool mode_swings = true;         // false: at its peak, phase 0
    int phase = 0;                   // entry of the phase table shown
    double mode_scale = 1.0;
    double transparency = 1.0;  // alpha of the drawn model
    Vec3 light{1, 1, 1};        // main light, m; max_length each once a view is set up
    bool auto_scale = true;     // small static displacements are drawn magnified
    ColorScale scale;
    DisplayUnits units;
    std::vector<ShownSection> sections;
    bool hides(const Vec3& place) const {
        return std::ranges::any_of(sections, [&](const ShownSection& s) { return s.hides(place); });
    }
    std::int32_t active_section = -1;  // whose rim is drawn; -1 none
    std::vector<std::int32_t> probes;  // nodes (0-based) that are marked with their values
    Threshold threshold;
    std::vector<double>
        iso_values;  // surfaces of these values, in the quantity's own unit; the body is an outline
    Deformation deformation = Deformation::usual;
    double deformation_factor = 1;
    Look look;
    Glyphs glyphs = Glyphs::none;
    double glyph_scale = 1;
    MouseMode mouse_mode = MouseMode::translation;
    EigenMethod eigen_method = EigenMethod::subspace;
    bool real_time = false;  // explicit analysis stepped by the view
    bool result_ready = false;
    PartLooks part_looks;  // empty: all parts as they are
    Highlight highlight;

    // Row of the quantity table, -1 none.
    std::int32_t shown_contour() const { return further > 0 ? further : contour; }
    bool operator==(const DisplayState&) const = default;
    bool shows(ViewFlag flag) const { return flags[static_cast<std::size_t>(flag)]; }
};

// `frame` at least 1, then at most mode_num: 0 where there are no frames.
std::int32_t clamp_frame(std::int32_t frame, std::int32_t mode_num);

inline constexpr std::array<double, 5> speeds{0.25, 0.5, 1, 2, 4};  // that a user may choose

// One repaint later: modes oscillate by the periodic timer alone (`tick`) unless they stand at their peak; a
// running animation of steps moves `speed` frames on and stops at the last, or after it goes on from the
// first where it repeats; the load cases of a static result stand still. Clamps the frame in all cases.
void advance(DisplayState& state, AnalysisType ana_type, std::int32_t mode_num, bool tick = true);

// Runs the animation of steps from the frame shown on, from the first where that is the last.
void play(DisplayState& state, std::int32_t mode_num, bool repeats);

// The next tick of the timer changes something: a mode swings, or an animation of steps runs.
bool animates(const DisplayState& state, AnalysisType ana_type, std::int32_t mode_num);

// The contour that an exclusive menu shows: the last checked entry that is not `current`, else -1.
std::int32_t chosen_contour(std::span<const bool> checked, std::int32_t current);

// Width and height of an answer as "640x480" or "640 x 480"; none for any other text, for a side of
// 0 and for one above 16384.
std::optional<std::array<int, 2>> pixmap_size(std::string_view text);

}  // namespace kestralum::view
