// A model and a run that use everything a result file can carry, with numbers that need all their digits.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "results/result_file.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum::testing {

inline Part make_part(std::int32_t id, const char* name) {
    Part part{id,      name, "blue",       {0.1, 1.0 / 3, 0.9},
              "STEEL", id,   "HOLLOWRECT", Shape::hollowrect,
              {},      {},   {},           {},
              id,      {},   {},           {},
              {}};
    part.size = {1.0 / 3, -2.0 / 3, 1e-9, 7e20, 0, 1.7};
    part.div = {1, 20, 300, 0, -5, 2147483647};
    part.origin = part.euler_angles = {1.0 / 7, -200.0 / 7, 3};
    return part;
}

inline void add_conditions(Model& model, Run& run) {
    model.boundary_conditions = {{0, "CLAMP", "plane", "x", Selection::plane, 0, {0, 0, -1, 1, -2, 1.0 / 3}},
                                 {1, "RIM", "volume", "z", Selection::volume, 2, {1e-7, 2, 3, 4, 5, 6e20}}};
    model.forces = {{0, "PUSH", "node", ForceKind::node, "y", 1, -1234.5678, {0.1, 0.2, 0.3}, {}},
                    {1, "LOAD", "area", ForceKind::area, "z", 2, 2.0 / 3, {}, {0, 1, 0, 2, 0, 3}}};
    run.force_node = {3, 0};
    model.rigid_elements = {{0, "HEAD", "round", RigidSelection::round, {1, 2, 3}, {0, 0, 0, 0.25, 2, 1e-3}},
                            {1, "FOOT", "area", RigidSelection::area, {4, 5, 6}, {0, 1, 2, 3, 4, 5}}};
    model.rigid_forces = {{0, "TURN", "FOOT", 1, "ry", RigidDirection::ry, 3.5}};
}

// Part 0 holds the first half of the elements, part 1 the others and a facet in the box. The last node stands
// where one of the facet's does.
inline StoredRun full_run(const TempFolder& folder, ElementKind kind, int modes,
                          std::array<int, 3> cells = {2, 1, 2}) {
    std::mt19937 random(7);
    StoredRun out;
    auto& [model, run] = out;
    model.model_file_name = "data\\full.txt";
    run.origin.options.log_folder = folder.file("log");
    run.origin.settings.n_threads = 2;
    model.mesh = box_mesh({cells, {1, 2.0 / 3, 3}, [](double* x) { x[0] += 0.125 * x[2]; }}, kind);
    Mesh& mesh = model.mesh;
    const std::int32_t nodes = mesh.node_num();
    mesh.coordinates.insert(mesh.coordinates.end(),
                            {0, 0, 0.5, 1.0 / 3, 0, 0.5, 0, 2.0 / 3, 0.5, 1.0 / 3, 0, 0.5});
    mesh.node_n_dir.resize(mesh.coordinates.size());
    mesh.surface_facets = {nodes + 1, nodes + 2, nodes + 3};
    mesh.surface_part_id = {1};
    auto& part_id = mesh.p_ele_part_id;
    for (std::size_t e = part_id.size() / 2; e < part_id.size(); ++e) part_id[e] = 1;
    run.mesh = mesh;
    model.parts = {make_part(0, "BAR"), make_part(1, "BLOCK")};
    model.parts_o = {make_part(0, "BAR_AS_READ")};
    add_conditions(model, run);
    run.ana_type = AnalysisType::linear_static;
    std::normal_distribution<double> number(0, 1e5);
    for (int k = 0; k < modes; ++k) {
        Frame frame(run.mesh.dof_num());
        frame.n_freq = number(random);
        for (auto* values : {&frame.mode_vec, &frame.node_stress})
            for (double& v : *values) v = number(random);
        frame.mode_vec.front() = -0.0;
        run.results.push_back(std::make_shared<const Frame>(std::move(frame)));
    }
    return out;
}

// Writes the run as that of the model file `name` and gives the bytes of the file.
inline std::string written(StoredRun stored, const TempFolder& folder, const char* name = "full.txt",
                           std::int32_t columns = 0) {
    Collected quiet;
    stored.model.model_file_name = std::string("data\\") + name;
    EXPECT_TRUE(write_results(stored.model, stored.run, std::max(columns, stored.run.mode_num()),
                              Publish::now, quiet))
        << quiet.errors;
    return read_file(folder.path() / "log" / (std::string("result_") + name));
}

inline StoredRun read_back(const TempFolder& folder, const char* name = "full.txt") {
    Collected quiet;
    auto stored = read_result_file(std::string("log\\result_") + name, folder.file("log"), quiet);
    EXPECT_TRUE(stored) << quiet.errors;
    return stored.value_or(StoredRun{});
}

}  // namespace kestralum::testing
