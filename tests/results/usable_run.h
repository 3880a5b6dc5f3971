// What everybody relies on in a run that was read from a file.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "results/result_file.h"

namespace kestralum::testing {

// What drawing, analyses and writers rely on.
inline void expect_usable(const StoredRun& stored, const std::string& what) {
    const Mesh& mesh = stored.run.mesh;
    ASSERT_GE(mesh.node_num(), 1) << what;
    ASSERT_EQ(mesh.node_n_dir.size(), mesh.coordinates.size()) << what;
    ASSERT_LE(static_cast<unsigned>(mesh.element_type), 2u) << what;
    for (std::int32_t node : mesh.connectivity) ASSERT_TRUE(node >= 1 && node <= mesh.node_num()) << what;
    ASSERT_EQ(mesh.p_ele_part_id.size(), mesh.element_num()) << what;
    for (std::int32_t part : mesh.p_ele_part_id)
        ASSERT_LT(static_cast<std::size_t>(part), stored.model.parts.size()) << what;
    for (double x : mesh.coordinates) ASSERT_TRUE(std::isfinite(x)) << what;
    ASSERT_TRUE(std::isfinite(mesh.max_length) && mesh.max_length > 0) << what;
    ASSERT_EQ(stored.run.force_node.size(), stored.model.forces.size()) << what;
    ASSERT_GE(stored.run.mode_num(), 1) << what;
    for (const auto& frame : stored.run.results) {
        ASSERT_TRUE(frame->mode_vec.empty() || frame->mode_vec.size() == mesh.coordinates.size()) << what;
        ASSERT_EQ(frame->node_stress.size(), 5 * frame->mode_vec.size()) << what;
    }
}

}  // namespace kestralum::testing
