// The start-up model and the tables that are made from a mesh.
#include <gtest/gtest.h>

#include <cmath>

#include "model/model.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(StartUp, ThePlaceholderModelHasOneNodeSteelAndMillimetres) {
    const Model model = placeholder_model();
    EXPECT_EQ(model.model_file_name, "data\\buckle_pipe_plastic2_v207.txt");
    EXPECT_EQ(model.mesh.coordinates, std::vector<double>(3, 0.0));
    EXPECT_EQ(model.mesh.node_n_dir, std::vector<double>(3, 0.0)) << "one entry for the one node";
    EXPECT_EQ(model.mesh.max_length, 1.0);
    ASSERT_TRUE(model.materials.size() == 1 && model.parameters.size() == 1);
    const Material& steel = model.materials[0];
    EXPECT_EQ(steel.name, "STEEL");
    EXPECT_EQ((std::array{steel.density, steel.young, steel.poisson}), (std::array{7800.0, 2.06e11, 0.3}));
    const Parameter& mm = model.parameters[0];
    EXPECT_TRUE(mm.name == "mm" && mm.value == 0.001 && mm.expression == "0.001");
}

TEST(Extent, BoundsTheNodesAndFallsBackToOneWhereTheySpanNothing) {
    Mesh mesh;
    mesh.coordinates = {-1, 5, 2, 0.5, -3, 2, -2, 4, 2};
    mesh.max_length = 99;
    update_extent(mesh);
    EXPECT_EQ(mesh.size_info, (std::array<double, 6>{-2, -3, 2, 0.5, 5, 2}));
    EXPECT_EQ(mesh.max_length, 8);
    mesh.coordinates = {7, 8, 9};
    update_extent(mesh);
    EXPECT_EQ(mesh.size_info, (std::array<double, 6>{7, 8, 9, 7, 8, 9}));
    EXPECT_EQ(mesh.max_length, 1);
    mesh.coordinates.clear();
    update_extent(mesh);
    EXPECT_EQ(mesh.size_info, (std::array<double, 6>{}));
}

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
