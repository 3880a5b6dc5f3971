// A store that uses everything a result file can carry, with numbers that need all their digits.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "model/model_store.h"
#include "support/box_mesh.h"

namespace kestralum::testing {

inline Part make_part(std::int32_t id, const char* name, std::mt19937& random) {
    std::uniform_real_distribution<double> number(-2, 3);
    Part part;
    part.id = id;
    part.name = name;
    part.color_name = "blue";
    part.color = {0.1, 1.0 / 3, 0.9};
    part.material_name = "STEEL";
    part.material_id = id % 2;
    part.type_name = "HOLLOWRECT";
    part.type = Shape::hollowrect;
    for (auto* values : {&part.origin, &part.euler_angles})
        for (double& v : *values) v = number(random);
    for (double& v : part.size) v = number(random);
    part.div = {1, 20, 300, 0, -5, 2147483647};
    part.active = id % 2;
    return part;
}

inline void add_conditions(ModelStore& store) {
    store.boundary_conditions.push_back(
        {0, "CLAMP", "plane", "x", Selection::plane, 0, {0, 0, -1, 1, -2, 1.0 / 3}});
    store.boundary_conditions.push_back(
        {1, "RIM", "volume", "z", Selection::volume, 2, {1e-7, 2, 3, 4, 5, 6e20}});
    AppliedForce push;
    push = {0, "PUSH", "node", ForceKind::node, "y", 1, -1234.5678, {0.1, 0.2, 0.3}, {}, 3};
    store.forces.push_back(push);
    store.forces.push_back({1, "LOAD", "area", ForceKind::area, "z", 2, 2.0 / 3, {}, {0, 1, 0, 2, 0, 3}, 0});
    store.rigid_elements.push_back(
        {0, "HEAD", "round", RigidSelection::round, {1, 2, 3}, {0, 0, 0, 0.25, 2, 1e-3}});
    store.rigid_elements.push_back({1, "FOOT", "area", RigidSelection::area, {4, 5, 6}, {0, 1, 2, 3, 4, 5}});
    store.rigid_forces.push_back({0, "TURN", "FOOT", 1, "ry", RigidDirection::ry, 3.5});
}

// Part 0 holds the first half of the elements, part 1 the others. Frame k shows row modes-1-k.
inline ModelStore full_store(ElementKind kind, std::int32_t modes, std::array<int, 3> cells = {2, 1, 2}) {
    std::mt19937 random(7);
    ModelStore store = placeholder_model();
    store.model_file_name = "data\\full.txt";
    store.mesh = box_mesh({cells, {1, 2.0 / 3, 3}, [](double* x) { x[0] += 0.125 * x[2]; }}, kind);
    Mesh& mesh = store.mesh;
    store.parts = {make_part(0, "BAR", random), make_part(1, "BLOCK", random)};
    store.parts_o = {make_part(0, "BAR_AS_READ", random)};
    for (std::size_t e = mesh.p_ele_part_id.size() / 2; e < mesh.p_ele_part_id.size(); ++e)
        mesh.p_ele_part_id[e] = 1;
    add_conditions(store);
    store.ana_type = AnalysisType::linear_static;
    store.results.resize(modes, mesh.dof_num);
    Results& results = store.results;
    std::reverse(results.frame_vector.begin(), results.frame_vector.end());
    std::normal_distribution<double> number(0, 1e5);
    for (auto* values : {&results.n_freq, &results.mode_vec, &results.node_stress})
        for (double& v : *values) v = number(random);
    results.mode_vec.front() = -0.0;
    results.mode_vec.back() = 4.9406564584124654e-324;
    results.node_stress.front() = 1.7976931348623157e308;
    return store;
}

inline const std::string full_target = "log\\result_full.txt";

}  // namespace kestralum::testing
