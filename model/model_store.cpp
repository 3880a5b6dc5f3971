#include "model/model_store.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>

#include "model/console.h"
#include "model/paths.h"

namespace kestralum {

void Results::resize(std::int32_t mode_num, std::int32_t dof_num) {
    const std::size_t modes = std::max(mode_num, 1);
    const std::size_t dofs = std::max(dof_num, 0);
    n_freq.assign(modes, 0.0);
    frame_vector.resize(modes);
    for (std::size_t k = 0; k < modes; ++k) frame_vector[k] = static_cast<std::int32_t>(k);
    mode_vec.assign(modes * dofs, 0.0);
    node_stress.assign(stress_groups * modes * dofs, 0.0);
}

void Results::keep(std::int32_t frames, std::int32_t dof_num) {
    if (frames >= mode_num()) return;
    const auto count = static_cast<std::size_t>(frames), dofs = static_cast<std::size_t>(dof_num);
    n_freq.resize(count);
    frame_vector.resize(count);
    mode_vec.resize(count * dofs);
    node_stress.resize(stress_groups * count * dofs);
}

ModelStore& model_store() {
    static ModelStore store = placeholder_model();
    return store;
}

ModelStore placeholder_model() {
    ModelStore store;
    store.mesh.coordinates.assign(3, 0.0);
    store.mesh.node_n_dir.assign(3, 0.0);
    store.materials.push_back({.id = 0, .name = "STEEL", .density = 7800, .young = 2.06e11, .poisson = 0.3});
    store.parameters.push_back({.id = 0, .name = "mm", .value = 0.001, .expression = "0.001"});
    store.results.resize(1, 0);
    return store;
}

void init_model_defaults() {
    std::error_code ignored;
    std::filesystem::create_directories(paths::log_directory(), ignored);
    model_store() = placeholder_model();
    console::print("KESTRALUM %s\n", program_version);
}

void update_extent(Mesh& mesh) {
    mesh.size_info = {};
    mesh.max_length = 1.0;
    if (mesh.coordinates.empty()) return;
    for (std::size_t c = 0; c < 3; ++c) mesh.size_info[c] = mesh.size_info[c + 3] = mesh.coordinates[c];
    for (std::size_t k = 0; k < mesh.coordinates.size(); ++k) {
        double& low = mesh.size_info[k % 3];
        double& high = mesh.size_info[k % 3 + 3];
        low = std::min(low, mesh.coordinates[k]);
        high = std::max(high, mesh.coordinates[k]);
    }
    double longest = 0;
    for (std::size_t c = 0; c < 3; ++c)
        longest = std::max(longest, mesh.size_info[c + 3] - mesh.size_info[c]);
    if (longest > 0) mesh.max_length = longest;
}

void resolve_force_points(const Mesh& mesh, std::vector<AppliedForce>& forces) {
    constexpr double tolerance = 1e-7;  // m
    const double* x = mesh.coordinates.data();
    // nodes by x, so that each point looks at one slice only
    std::vector<std::int32_t> by_x(mesh.node_num());
    std::iota(by_x.begin(), by_x.end(), 0);
    auto x_of = [&](std::int32_t n) { return x[3 * static_cast<std::ptrdiff_t>(n)]; };
    if (std::any_of(forces.begin(), forces.end(),
                    [](const AppliedForce& f) { return f.kind == ForceKind::node; }))
        std::sort(by_x.begin(), by_x.end(),
                  [&](std::int32_t a, std::int32_t b) { return x_of(a) < x_of(b); });
    for (AppliedForce& force : forces) {
        force.node = 0;
        if (force.kind != ForceKind::node) continue;
        const auto begin = std::lower_bound(by_x.begin(), by_x.end(), force.point[0] - 2 * tolerance,
                                            [&](std::int32_t n, double value) { return x_of(n) < value; });
        for (auto at = begin; at != by_x.end() && x_of(*at) < force.point[0] + 2 * tolerance; ++at) {
            const double* p = x + 3 * static_cast<std::ptrdiff_t>(*at);
            const bool here = std::abs(p[0] - force.point[0]) < tolerance &&
                              std::abs(p[1] - force.point[1]) < tolerance &&
                              std::abs(p[2] - force.point[2]) < tolerance;
            if (here && (force.node == 0 || *at + 1 < force.node)) force.node = *at + 1;
        }
    }
}

}  // namespace kestralum
