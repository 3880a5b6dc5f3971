// Renumbering, the shared pattern, assembly and elimination, against brute force.
#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <random>
#include <set>

#include "solver/ordering.h"
#include "solver/sparse.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/text_checks.h"

namespace kestralum {
namespace {

Mesh shuffled(Mesh mesh, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::int32_t> number(mesh.node_num());
    std::iota(number.begin(), number.end(), 0);
    std::shuffle(number.begin(), number.end(), random);
    const auto old = mesh.coordinates;
    for (std::size_t d = 0; d < old.size(); ++d) mesh.coordinates[3 * number[d / 3] + d % 3] = old[d];
    for (std::int32_t& c : mesh.connectivity) c = number[c - 1] + 1;
    return mesh;
}

TEST(Ordering, NarrowsTheBandAndKeepsTheMesh) {
    SilentProgress quiet;
    for (ElementKind kind : testing::every_kind) {
        const Mesh original = shuffled(testing::box_mesh({{2, 3, 9}, {0.2, 0.3, 0.9}}, kind), 7);
        for (const std::string type : {"LX", "LY", "LZ", "LALL", "LMAX"}) {
            Mesh mesh = original;
            const auto [band, node_of] = order_nodes(mesh, type, quiet);
            EXPECT_EQ(band, measure_band(mesh));
            for (std::int32_t d = 0; d < mesh.dof_num(); ++d)
                EXPECT_EQ(mesh.coordinates[3 * node_of[d / 3] + d % 3], original.coordinates[d]) << type;
            for (std::size_t c = 0; c < mesh.connectivity.size(); ++c)
                EXPECT_EQ(node_of[original.connectivity[c] - 1], mesh.connectivity[c] - 1);
            // along the longest axis a layer of corner nodes holds 12, of ten-node tetrahedra fewer than 100
            const int layers = kind == ElementKind::tetrahedron10 ? 3 * 120 : 3 * 26;
            EXPECT_TRUE(band <= layers || (type != "LMAX" && type != "LALL")) << type << " " << band;
        }
        Mesh mesh = original;
        order_nodes(mesh, "other", quiet);
        EXPECT_EQ(mesh.coordinates, original.coordinates) << "a word that is not understood";
    }
}

TEST(Ordering, KeepsTheOrderOfEqualDistancesAndTheEarlierAxisOfEqualBands) {
    testing::Collected captured;
    Mesh mesh;  // along x: two nodes at the same distance, then a nearer one
    mesh.coordinates = {1, 0, 0, 1, 0, 0, 0, 0, 0};
    update_extent(mesh);
    mesh.surface_facets = {1, 2, 3};
    reorder_nodes(mesh, "LX", captured);
    EXPECT_EQ(mesh.surface_facets, (std::vector<std::int32_t>{2, 3, 1}));
    EXPECT_EQ(mesh.coordinates, (std::vector<double>{0, 0, 0, 1, 0, 0, 1, 0, 0}));

    const Mesh beam = testing::hexa_box({{2, 2, 6}, {1, 1, 3}});
    const struct {
        Mesh mesh;
        const char *type, *taken;
    } cases[] = {{testing::hexa_box({{3, 3, 3}, {1, 1, 1}}), "LALL", "LX"},
                 {beam, "LZ", "LX"},  // only when it is better than the numbering it starts from
                 {shuffled(beam, 3), "LZ", "LZ"}};
    for (const auto& c : cases) {
        Mesh ordered = c.mesh;
        captured.lines.clear();
        order_nodes(ordered, c.type, captured);
        EXPECT_TRUE(testing::contains(captured.lines, std::string("Ordering: min_direc=") + c.taken + "\n"))
            << captured.lines;
    }
}

// Element matrices that tell element, row and column apart.
bool tagged(int nodes, std::int32_t e, double* ke, double* me) {
    for (int r = 0; r < 3 * nodes; ++r)
        for (int c = 0; c < 3 * nodes; ++c)
            ke[3 * nodes * r + c] = 1.0 / (1 + e) + 0.1 * (r + c) + 0.01 * r * c;
    for (int r = 0; r < nodes; ++r)
        for (int c = 0; c < nodes; ++c) me[nodes * r + c] = 2.0 + e + 0.5 * (r + c);
    return true;
}

// `bad`: elements that cannot be computed; the first of them must be named.
SparseKM assembled(const Mesh& mesh, int threads, const std::set<std::int32_t>& bad = {}) {
    SparseKM km;
    SilentProgress quiet;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh), quiet);
    count_overlap(neighbours, km, quiet);
    build_index(neighbours, km, quiet);
    find_diagonals(km);
    const auto element = [&](std::int32_t e, double* ke, double* me) {
        return tagged(mesh.node_per_element(), e, ke, me) && !bad.contains(e);
    };
    EXPECT_EQ(assemble_km(mesh, neighbours, element, threads, km, quiet), bad.empty() ? -1 : *bad.begin());
    return km;
}

TEST(Assembly, EqualsTheDenseSumAndIsTheSameForAnyNumberOfThreads) {
    SilentProgress quiet;
    for (ElementKind kind : testing::every_kind) {
        const Mesh mesh = shuffled(testing::box_mesh({{3, 2, 2}, {1, 1, 1}}, kind), 11);
        const SparseKM km = assembled(mesh, 1);
        const int nodes = mesh.node_per_element(), size = 3 * nodes;
        std::map<std::pair<int, int>, std::pair<double, double>> dense;
        std::vector<double> ke(size * size), me(nodes * nodes);
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            tagged(nodes, e, ke.data(), me.data());
            const auto dof = [&](int i) { return 3 * (mesh.connectivity[e * nodes + i / 3] - 1) + i % 3; };
            for (int r = 0; r < size; ++r)
                for (int c = 0; c < size; ++c) {
                    auto& [k, m] = dense[{dof(r), dof(c)}];
                    k += ke[size * r + c];
                    if (r % 3 == c % 3) m += me[nodes * (r / 3) + c / 3];
                }
        }
        ASSERT_EQ(km.K_value.size(), dense.size());
        std::size_t k = 0;
        for (const auto& [place, value] : dense) {
            EXPECT_EQ(km.col_index[k], place.second);
            EXPECT_NEAR(km.K_value[k], value.first, 1e-12 * std::abs(value.first));
            EXPECT_NEAR(km.M_value[k++], value.second, 1e-12 * std::abs(value.second));
        }
        for (int threads : {2, 3}) {
            const SparseKM other = assembled(mesh, threads);
            EXPECT_TRUE(other.K_value == km.K_value && other.M_value == km.M_value) << threads << " threads";
        }
        assembled(mesh, 2, {7, 10});
    }
}

TEST(Elimination, KeepsTheFreeRowsAndColumns) {
    SilentProgress quiet;
    const SparseKM full = assembled(testing::hexa_box({{2, 2, 2}, {1, 1, 1}}), 1);
    SparseKM km = full;
    std::vector<std::int32_t> map(full.rows(), -1), free;
    for (int j = 6; j < full.rows(); ++j)
        if (j % 5 != 2) free.push_back(j), map[j] = static_cast<std::int32_t>(free.size()) - 1;
    eliminate_fixed(map, km, quiet);
    ASSERT_EQ(km.rows(), free.size());
    // row by row: multiplying by a vector that is zero on the fixed ones gives the same
    std::vector<double> x(map.size(), 0.0), y(map.size()), xr(free.size()), yr(free.size());
    for (std::size_t k = 0; k < free.size(); ++k) x[free[k]] = xr[k] = 0.3 + std::sin(k);
    multiply(full, full.K_value, x, y);
    multiply(km, km.K_value, xr, yr);
    std::int64_t profile = 0;
    for (int k = 0; k < km.rows(); ++k) {
        EXPECT_DOUBLE_EQ(yr[k], y[free[k]]);
        EXPECT_EQ(km.col_index[km.diag_pos[k]], k);
        profile += k - km.col_index[km.row_start[k]] + 1;
    }
    EXPECT_EQ(profile_size(km), profile);
}

}  // namespace
}  // namespace kestralum
