// Renumbering, the shared pattern, assembly and elimination, against brute force.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "model/console.h"
#include "solver/ordering.h"
#include "solver/sparse.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

using testing::Grid;

Mesh shuffled(Mesh mesh, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::int32_t> number(static_cast<std::size_t>(mesh.node_num()));
    for (std::size_t n = 0; n < number.size(); ++n) number[n] = static_cast<std::int32_t>(n);
    std::shuffle(number.begin(), number.end(), random);
    const auto old = mesh.coordinates;
    for (std::size_t n = 0; n < number.size(); ++n)
        for (std::size_t c = 0; c < 3; ++c) mesh.coordinates[3 * static_cast<std::size_t>(number[n]) + c] = old[3 * n + c];
    for (std::int32_t& c : mesh.connectivity) c = number[static_cast<std::size_t>(c - 1)] + 1;
    return mesh;
}

// Corner places of every element, in order: what renumbering must not change.
std::vector<double> places(const Mesh& mesh) {
    std::vector<double> out;
    for (std::int32_t c : mesh.connectivity)
        for (std::size_t k = 0; k < 3; ++k) out.push_back(mesh.coordinates[3 * static_cast<std::size_t>(c - 1) + k]);
    return out;
}

TEST(Ordering, NarrowsTheBandAndKeepsTheMesh) {
    const console::Capture quiet;
    for (ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10}) {
        const Mesh original = shuffled(testing::box_mesh({{2, 3, 9}, {0.2, 0.3, 0.9}}, kind), 7);
        for (const char* type : {"LX", "LY", "LZ", "LALL", "LMAX"}) {
            Mesh mesh = original;
            const std::int32_t band = order_nodes(mesh, type);
            EXPECT_EQ(band, measure_band(mesh));
            EXPECT_EQ(places(mesh), places(original)) << type;
            // along the longest axis a layer of corner nodes holds 12, of ten-node tetrahedra fewer than 100
            if (std::string(type) == "LMAX" || std::string(type) == "LALL") {
                EXPECT_LE(band, kind == ElementKind::tetrahedron10 ? 3 * 120 : 3 * 26) << type;
            }
        }
        Mesh mesh = original;
        order_nodes(mesh, "other");
        EXPECT_EQ(mesh.coordinates, original.coordinates) << "a word that is not understood";
    }
}

TEST(Ordering, KeepsTheOrderOfEqualDistancesAndTheEarlierAxisOfEqualBands) {
    console::Capture captured;
    Mesh mesh;  // along x: two nodes at the same distance, then a nearer one
    mesh.coordinates = {1, 0, 0, 1, 0, 0, 0, 0, 0};
    mesh.connectivity = {};
    update_extent(mesh);
    mesh.surface_facets = {1, 2, 3};
    reorder_nodes(mesh, "LX");
    EXPECT_EQ(mesh.surface_facets, (std::vector<std::int32_t>{2, 3, 1}));
    EXPECT_EQ(mesh.coordinates, (std::vector<double>{0, 0, 0, 1, 0, 0, 1, 0, 0}));

    Mesh cube = testing::hexa_box({{3, 3, 3}, {1, 1, 1}});
    order_nodes(cube, "LALL");
    EXPECT_NE(captured.lines.find("Ordering: min_direc=LX\n"), std::string::npos) << captured.lines;
    // LZ alone is taken only when it is better than the numbering it starts from
    Mesh beam = testing::hexa_box({{2, 2, 6}, {1, 1, 3}});
    captured.lines.clear();
    order_nodes(beam, "LZ");
    EXPECT_NE(captured.lines.find("Ordering: min_direc=LX\n"), std::string::npos);
    Mesh mixed = shuffled(beam, 3);
    captured.lines.clear();
    order_nodes(mixed, "LZ");
    EXPECT_NE(captured.lines.find("Ordering: min_direc=LZ\n"), std::string::npos);
}

// Element matrices that tell element, row and column apart.
bool tagged(int nodes, std::int32_t e, double* ke, double* me) {
    for (int r = 0; r < 3 * nodes; ++r)
        for (int c = 0; c < 3 * nodes; ++c) ke[3 * nodes * r + c] = 1.0 / (1 + e) + 0.1 * (r + c) + 0.01 * r * c;
    for (int r = 0; r < nodes; ++r)
        for (int c = 0; c < nodes; ++c) me[nodes * r + c] = 2.0 + e + 0.5 * (r + c);
    return true;
}

SparseKM assembled(const Mesh& mesh, int threads) {
    SparseKM km;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh));
    const std::int64_t entries = count_overlap(neighbours, km);
    EXPECT_EQ(entries, km.row_start.back());
    build_index(neighbours, km);
    find_diagonals(km);
    const int nodes = mesh.node_per_element();
    EXPECT_EQ(assemble_km(mesh, neighbours, [&](std::int32_t e, double* ke, double* me) { return tagged(nodes, e, ke, me); }, threads, km), -1);
    return km;
}

TEST(Assembly, EqualsTheDenseSumAndIsTheSameForAnyNumberOfThreads) {
    const console::Capture quiet;
    for (ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10}) {
        const Mesh mesh = shuffled(testing::box_mesh({{3, 2, 2}, {1, 1, 1}}, kind), 11);
        const SparseKM km = assembled(mesh, 1);
        const int nodes = mesh.node_per_element();
        std::map<std::pair<int, int>, std::pair<double, double>> dense;
        std::vector<double> ke(static_cast<std::size_t>(9 * nodes * nodes)), me(static_cast<std::size_t>(nodes * nodes));
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            tagged(nodes, e, ke.data(), me.data());
            for (int r = 0; r < 3 * nodes; ++r)
                for (int c = 0; c < 3 * nodes; ++c) {
                    auto& [k, m] = dense[{3 * (mesh.connectivity[static_cast<std::size_t>(e * nodes + r / 3)] - 1) + r % 3,
                                          3 * (mesh.connectivity[static_cast<std::size_t>(e * nodes + c / 3)] - 1) + c % 3}];
                    k += ke[static_cast<std::size_t>(3 * nodes * r + c)];
                    if (r % 3 == c % 3) m += me[static_cast<std::size_t>(nodes * (r / 3) + c / 3)];
                }
        }
        ASSERT_EQ(static_cast<std::size_t>(km.entries()), dense.size());
        std::size_t k = 0;
        for (const auto& [place, value] : dense) {
            EXPECT_EQ(km.col_index[k], place.second);
            EXPECT_NEAR(km.K_value[k], value.first, 1e-12 * std::abs(value.first));
            EXPECT_NEAR(km.M_value[k], value.second, 1e-12 * std::abs(value.second));
            ++k;
        }
        for (int threads : {2, 3}) {
            const SparseKM other = assembled(mesh, threads);
            EXPECT_TRUE(other.K_value == km.K_value && other.M_value == km.M_value) << threads << " threads";
        }
    }
}

TEST(Assembly, NamesTheFirstElementThatCannotBeComputed) {
    const console::Capture quiet;
    const Mesh mesh = testing::hexa_box({{3, 3, 3}, {1, 1, 1}});
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh));
    SparseKM km;
    count_overlap(neighbours, km);
    build_index(neighbours, km);
    EXPECT_EQ(assemble_km(mesh, neighbours, [](std::int32_t e, double*, double*) { return e != 20 && e != 13; }, 2, km), 13);
}

TEST(Elimination, KeepsTheFreeRowsAndColumns) {
    const console::Capture quiet;
    const Mesh mesh = testing::hexa_box({{2, 2, 2}, {1, 1, 1}});
    const SparseKM full = assembled(mesh, 1);
    SparseKM km = full;
    std::vector<std::int32_t> map(static_cast<std::size_t>(mesh.dof_num));
    std::vector<std::size_t> free;
    for (std::size_t j = 0; j < map.size(); ++j) {
        map[j] = j % 5 == 2 || j < 6 ? -1 : static_cast<std::int32_t>(free.size());
        if (map[j] >= 0) free.push_back(j);
    }
    eliminate_fixed(map, km);
    ASSERT_EQ(static_cast<std::size_t>(km.rows()), free.size());
    // row by row: multiplying by a vector that is zero on the fixed ones gives the same
    std::vector<double> x(map.size(), 0.0), y(map.size()), xr(free.size()), yr(free.size());
    for (std::size_t k = 0; k < free.size(); ++k) x[free[k]] = xr[k] = 0.3 + std::sin(static_cast<double>(k));
    multiply(full, full.K_value, x, y);
    multiply(km, km.K_value, xr, yr);
    std::int64_t profile = 0;
    for (std::size_t k = 0; k < free.size(); ++k) {
        EXPECT_DOUBLE_EQ(yr[k], y[free[k]]);
        EXPECT_EQ(km.col_index[static_cast<std::size_t>(km.diag_pos[k])], static_cast<std::int32_t>(k));
        profile += static_cast<std::int64_t>(k) - km.col_index[static_cast<std::size_t>(km.row_start[k])] + 1;
    }
    EXPECT_EQ(profile_size(km), profile);
}

}  // namespace
}  // namespace kestralum
