// The tables that are made from a mesh.
#include <gtest/gtest.h>

#include <cmath>

#include "model/model.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(ForcePoints, TheFirstNodeNearerThanTheToleranceInEveryDirection) {
    Mesh mesh;
    mesh.coordinates = {0, 0, 0, 1, 0, 0, 1 + 0.9e-7, 0, 0, 2, 1.1e-7, 0};
    const auto node_force = [](double x, double y) {
        AppliedForce force;
        force.point = {x, y, 0};
        return force;
    };
    std::vector<AppliedForce> forces{node_force(1, 0.9e-7), node_force(1 + 1.5e-7, 0), node_force(2, 0),
                                     node_force(2, 0.5e-7), node_force(std::nan(""), 0)};
    forces.push_back(node_force(0, 0));
    forces.back().kind = ForceKind::area;
    EXPECT_EQ(resolve_force_points(mesh, forces), (std::vector<std::int32_t>{2, 3, 0, 4, 0, 0}));
}
