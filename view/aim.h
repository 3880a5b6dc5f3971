// From the mouse to places and planes of the model, and back to the middle of the view.
#pragma once

#include <array>
#include <optional>
#include <span>

#include "view/camera.h"
#include "view/display_state.h"
#include "view/symbols.h"

namespace kestralum::view {

// Moves the model sideways so that a place of it stands in the middle of the view.
void centre_on(Camera& camera, const Vec3& place, const Scene& scene);

// How far a plane through `point` goes along its normal (m) when the mouse moves by (dx, dy) pixels: as far
// as the normal is drawn along the mouse's way. Where it points at the viewer or away, up is along it.
double drag_along(const Camera& camera, const Scene& scene, const Vec3& point, const Vec3& normal, double dx,
                  double dy);

// The reach of a plane's position along its normal in a box: least and greatest of normal · place, m.
std::array<double, 2> reach_along(const Scene& scene, const Vec3& normal);
// Moves a plane to that position, measured as normal · place.
void move_to(ShownSection& section, double position);

// Through three places, towards where they run anticlockwise; none where they lie on a line.
std::optional<ShownSection> section_through(const std::array<Vec3, 3>& places);

// The rim of a plane in a box a little larger than the model's, and an arrow along the normal.
struct SectionFrame {
    std::vector<Line> rim;
    Arrow arrow{};
};
SectionFrame section_frame(const Scene& scene, const ShownSection& section);

}  // namespace kestralum::view
