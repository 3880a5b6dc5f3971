// Which elements set the time step of the explicit analysis.
#include <gtest/gtest.h>

#include "elements/stable_step.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

// A thick and a thin element: only those that can be strained bound the step, all of them where none can.
TEST(StableStep, ElementsInsideRigidBodiesDoNotBoundIt) {
    Mesh mesh = testing::box_mesh({{2, 1, 1}, {2, 1, 1}}, ElementKind::hexahedron);
    for (std::size_t n = 0; n < mesh.coordinates.size(); n += 3)
        if (mesh.coordinates[n] == 1) mesh.coordinates[n] = 1.9;
    const std::vector<Part> parts(1);
    const std::vector<Material> materials{
        {.id = 0, .name = "S", .density = 8000, .young = 2e11, .poisson = 0.3}};
    std::vector<double> x;
    for (std::size_t n = 0; n < mesh.coordinates.size(); n += 3)
        x.insert(x.end(), {mesh.coordinates[n], mesh.coordinates[n + 1], mesh.coordinates[n + 2], 0});
    const auto bound = [&](std::vector<char> rigid) {
        return StepBound(mesh, parts, materials, 1, 1, rigid);
    };
    const StableStep thin = bound({}).undeformed(), thick = bound({0, 1}).undeformed();
    EXPECT_EQ(thin.element, 1);
    EXPECT_EQ(thick.element, 0);
    EXPECT_GT(thick.step, 2 * thin.step);
    EXPECT_EQ(bound({1, 1}).undeformed().step, thin.step);
    EXPECT_EQ(bound({}).worst_above(x.data(), 0.99 * thick.step, 1).element, 1);
    EXPECT_EQ(bound({0, 1}).worst_above(x.data(), 0.99 * thick.step, 1).element, -1);
}

}  // namespace
}  // namespace kestralum
