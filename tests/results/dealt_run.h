// A run dealt out to processes, as each of them writes its piece.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "model/run.h"

namespace kestralum::testing {

// The elements first … last of a run with their nodes, as one rank of several has them.
struct Dealt {
    kestralum::Run run;
    std::vector<std::int32_t> node;  // here -> whole, from 1
    std::int32_t first = 0;          // of its elements in the whole
};

inline Frame frame_of(const Frame& whole, const Dealt& piece) {
    const std::size_t dofs = whole.mode_vec.size();
    Frame own(piece.run.mesh.dof_num());
    own.n_freq = whole.n_freq;
    own.name = whole.name;
    for (std::size_t n = 0; n < piece.node.size(); ++n) {
        const std::size_t from = 3 * node_index(piece.node[n]);
        std::copy_n(&whole.mode_vec[from], 3, &own.mode_vec[3 * n]);
        for (std::size_t g = 0; g < stress_groups; ++g)
            std::copy_n(&whole.node_stress[g * dofs + from], 3,
                        &own.node_stress[g * own.mode_vec.size() + 3 * n]);
    }
    for (const std::int32_t e : whole.removed)
        if (e >= piece.first && e < piece.first + piece.run.mesh.element_num())
            own.removed.push_back(e - piece.first);
    return own;
}

// With its frames.
inline Dealt dealt(const kestralum::Run& whole, std::int32_t first, std::int32_t last) {
    Dealt out;
    out.first = first;
    const Mesh& mesh = whole.mesh;
    out.run.ana_type = whole.ana_type;
    out.run.origin = whole.origin;
    out.run.mesh.element_type = mesh.element_type;
    std::vector<std::int32_t> number(mesh.node_num(), 0);
    for (std::int32_t e = first; e < last; ++e) {
        for (const std::int32_t n : mesh.element(e)) {
            std::int32_t& here = number[node_index(n)];
            if (here == 0) {
                out.node.push_back(n);
                out.run.mesh.coordinates.insert(out.run.mesh.coordinates.end(), mesh.node(n - 1),
                                                mesh.node(n - 1) + 3);
                here = static_cast<std::int32_t>(out.node.size());
            }
            out.run.mesh.connectivity.push_back(here);
        }
        out.run.mesh.p_ele_part_id.push_back(mesh.p_ele_part_id[e]);
    }
    for (const auto& frame : whole.results)
        out.run.results.push_back(std::make_shared<Frame>(frame_of(*frame, out)));
    return out;
}

}  // namespace kestralum::testing
