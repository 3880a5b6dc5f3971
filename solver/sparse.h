// The row-compressed pattern that stiffness [K] and mass [M] share, their assembly from element
// matrices and the removal of fixed degrees of freedom.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "model/progress.h"
#include "model/topology.h"

namespace kestralum {

// Both triangles are stored; row r holds entries row_start[r] … row_start[r] + row_count[r] - 1 with
// ascending columns.
struct SparseKM {
    std::vector<std::int32_t> row_count;  // rows
    std::vector<std::int64_t> row_start;  // rows + 1; the last is the number of entries
    std::vector<std::int32_t> col_index;  // entries
    std::vector<double> K_value;          // entries, N/m
    std::vector<double> M_value;          // entries, kg
    std::vector<std::int64_t> diag_pos;   // rows: offset of the diagonal entry, -1 without one

    std::int32_t rows() const { return static_cast<std::int32_t>(row_count.size()); }
    std::int64_t entries() const { return static_cast<std::int64_t>(col_index.size()); }
};

// Neighbour set of each node: the node itself and all that share an element with it, ascending.
struct NodeNeighbours {
    std::vector<std::int64_t> start;  // node_num + 1
    std::vector<std::int32_t> nodes;  // 0-based
};
// All that prints ends early on a cancel: with sound tables that lack the rest, not to be computed with.
NodeNeighbours neighbours_of_nodes(const Mesh& mesh, const NodeElements& node_elements, Progress& progress);

// Row counts and starts of the three rows of every node; returns K_num2, the number of entries.
std::int64_t count_overlap(const NodeNeighbours& neighbours, SparseKM& km, Progress& progress);
// Column indices of every row; after a cancel col_index is not whole and not to be read.
void build_index(const NodeNeighbours& neighbours, SparseKM& km, Progress& progress);
// The lines of both for a pattern that is not made; returns its number of entries.
std::int64_t print_pattern(const NodeNeighbours& neighbours, Progress& progress);
// Offset of each row's diagonal entry.
void find_diagonals(SparseKM& km);

// One element's matrices: Ke (3·nodes square, row-major, degree of freedom 3·local node + direction)
// and the nodal mass Me (nodes square; the same in each direction, no coupling between directions).
// Called from several threads at once. False or an exception: the element cannot be computed.
using ElementMatrices = std::function<bool(std::int32_t element, double* ke, double* me)>;

// What assemble_km() makes of the mass: nothing (`me` is null), M_value on the pattern, or one value per pair
// of neighbours in node_mass, in their order.
enum class MassStorage { none, pattern, nodes };

// Adds every element's matrices, in element order for every entry whatever the number of threads.
// Returns the first element (0-based) that could not be computed, -1 when all could or a cancel ended it.
// `counter` stands before the progress counter.
std::int32_t assemble_km(const Mesh& mesh, const NodeNeighbours& neighbours, const ElementMatrices& matrices,
                         int threads, SparseKM& km, Progress& progress,
                         MassStorage mass = MassStorage::pattern,
                         const char* counter = "    k=", std::vector<double>* node_mass = nullptr);

// Keeps the rows and columns with map >= 0 under their new numbers; an empty M_value stays empty.
void keep_rows(std::span<const std::int32_t> map, SparseKM& km);
// The same with the progress lines.
void eliminate_fixed(std::span<const std::int32_t> dof_map, SparseKM& km, Progress& progress);

// The diagonal of K, one entry per row.
std::vector<double> diagonal_of(const SparseKM& km);

// Lower profile size of the pattern: the sum over rows of (row - first column + 1).
std::int64_t profile_size(const SparseKM& km);

// y = values · x over the pattern.
void multiply(const SparseKM& km, std::span<const double> values, std::span<const double> x,
              std::span<double> y);

// The same for k columns, n apart, with 0 below the last row; every row's sum runs in the order of its
// entries whatever the threads.
void multiply(const SparseKM& km, std::span<const double> values, std::span<const double> x,
              std::span<double> y, std::int64_t n, std::int32_t k, int threads);

// √Σ vᵢ², in order.
double norm(std::span<const double> v);

}  // namespace kestralum
