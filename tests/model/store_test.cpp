// The store's start-up model and the tables that are made from a mesh.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "model/console.h"
#include "model/model_store.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(StartUp, MakesTheFolderPrintsTheBannerAndPutsThePlaceholderModelIntoTheStore) {
    const TempFolder folder;
    paths::set_log_directory(folder.file("deeper/log"));
    ModelStore& store = model_store();
    store.mesh = hexa_box({{2, 1, 1}, {1, 1, 1}});
    store.boundary_conditions.resize(3);
    store.ver_name = "old";
    store.result_file_known = true;
    console::Capture console;
    init_model_defaults();
    init_model_defaults();  // a folder that exists is no error
    EXPECT_EQ(console.lines, "KESTRALUM ver3.01\nKESTRALUM ver3.01\n");
    EXPECT_EQ(console.errors, "");
    EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "deeper/log"));

    EXPECT_EQ(store.ver_name, "ver3.01");
    EXPECT_EQ(store.model_file_name, "data\\buckle_pipe_plastic2_v207.txt");
    EXPECT_TRUE(store.model_file_known && !store.result_file_known);
    const Mesh& mesh = store.mesh;
    EXPECT_EQ(mesh.coordinates, std::vector<double>(3, 0.0));
    EXPECT_EQ(mesh.node_n_dir, std::vector<double>(3, 0.0)) << "one entry for the one node";
    EXPECT_EQ(mesh.dof_num, 0) << "0 at start although there is a node";
    EXPECT_EQ(mesh.max_length, 1.0);
    EXPECT_EQ(store.results.mode_num(), 1);
    EXPECT_EQ(store.store_limit, 500);
    ASSERT_TRUE(store.materials.size() == 1 && store.parameters.size() == 1);
    const Material& steel = store.materials[0];
    EXPECT_EQ(steel.name, "STEEL");
    EXPECT_EQ((std::array{steel.density, steel.young, steel.poisson}), (std::array{7800.0, 2.06e11, 0.3}));
    const Parameter& mm = store.parameters[0];
    EXPECT_TRUE(mm.name == "mm" && mm.value == 0.001 && mm.expression == "0.001");
    EXPECT_TRUE(mesh.connectivity.empty() && store.boundary_conditions.empty());
}

TEST(Results, AllVectorsAreResizedTogetherAndZeroed) {
    Results results;
    results.resize(2, 6);
    results.n_freq = {3, 4};
    results.frame_vector = {1, 0};
    results.mode_vec.assign(12, 5);
    results.node_stress.assign(60, 6);
    results.resize(3, 9);
    EXPECT_EQ(results.mode_num(), 3);
    EXPECT_EQ(results.n_freq, std::vector<double>(3, 0.0));
    EXPECT_EQ(results.frame_vector, (std::vector<std::int32_t>{0, 1, 2}))
        << "no order of an earlier analysis is left";
    EXPECT_EQ(results.mode_vec, std::vector<double>(27, 0.0));
    EXPECT_EQ(results.node_stress, std::vector<double>(135, 0.0));
    results.resize(-4, -1);
    EXPECT_EQ(results.mode_num(), 1) << "there is always a frame to show";
    EXPECT_TRUE(results.mode_vec.empty() && results.node_stress.empty());
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
        force.node = 77;  // of an earlier numbering
        return force;
    };
    std::vector<AppliedForce> forces{node_force(1, 0.9e-7), node_force(1 + 1.5e-7, 0), node_force(2, 0),
                                     node_force(2, 0.5e-7), node_force(std::nan(""), 0)};
    forces.push_back(node_force(0, 0));
    forces.back().kind = ForceKind::area;
    resolve_force_points(mesh, forces);
    std::vector<std::int32_t> found;
    for (const AppliedForce& force : forces) found.push_back(force.node);
    EXPECT_EQ(found, (std::vector<std::int32_t>{2, 3, 0, 4, 0, 0}));
}
