// Which node lies under the mouse.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "view/camera.h"
#include "view/color_scale.h"
#include "view/surface.h"
#include "view/trim.h"

namespace kestralum::view {

struct Pick {
    std::int32_t element = 0;  // 1-based; 0 on a facet of an STL part
    std::int32_t node = 0;     // 1-based
    Vec3 place{};              // of the node as drawn, m
    // Where the ray met a face: the triangle of the surface, -1 where it met none, and the shares of the
    // triangle's corners in the place, 1 in all.
    std::int64_t triangle = -1;
    Vec3 shares{};

    // Global number of the node's x direction: 0-based, three per node.
    std::int32_t dof() const { return 3 * (node - 1); }
};

// The nearest face that the ray meets, and of its nodes the one nearest to where it meets it. A ray
// that meets none takes the drawn node that it passes within `slack` per unit of distance (tangent of
// an angle, about a few pixels): the one closest to the ray's line. `coordinates` are those drawn, of nodes
// and `further` vertices; of a face that a section has made the nodes are those that its corners lie between.
std::optional<Pick> pick_node(const Ray& ray, const Surface& surface, std::span<const double> coordinates,
                              double slack = 0, const FurtherVertices& further = {});

// Tangent of the angle that `pixels` of the screen span, of which each is pixel_ratio pixels of the view.
double pixel_slack(const Camera& camera, double pixels);

// "Element:%d, Node:%d, D.o.f.:%d".
std::string pick_text(const Pick& pick);

struct ToldIn {
    AnalysisType ana_type = AnalysisType::linear_static;
    DisplayUnits units{};
};

// The line of the status bar: the pick, the node's coordinates, and where there are any its
// displacement (of three values) and the value of the contour quantity.
std::string status_text(const Pick& pick, const Mesh& mesh, std::span<const double> displacement,
                        std::span<const double> values, std::int32_t contour, const ToldIn& told = {});

}  // namespace kestralum::view
