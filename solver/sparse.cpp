#include "solver/sparse.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cmath>

namespace kestralum {

NodeNeighbours neighbours_of_nodes(const Mesh& mesh, const NodeElements& node_elements, Progress& progress) {
    const std::int32_t nodes = mesh.node_num();
    const int per_element = mesh.node_per_element();
    NodeNeighbours out;
    out.start.assign(std::size_t(nodes) + 1, 0);
    out.nodes.reserve(std::size_t(nodes) * 27);
    std::vector<std::int32_t> seen(nodes, -1);  // last node that took this one
    for (std::int32_t i = 0; i < nodes; ++i) {
        if (progress.cancelled()) {
            std::fill(out.start.begin() + i + 1, out.start.end(), out.start[i]);
            break;
        }
        progress.counter(i, nodes);
        const auto first = static_cast<std::ptrdiff_t>(out.nodes.size());
        out.nodes.push_back(i);
        seen[i] = i;
        for (std::int64_t k = node_elements.start[i]; k < node_elements.start[i + 1]; ++k) {
            const std::ptrdiff_t e = node_elements.elements[k];
            for (int p = 0; p < per_element; ++p) {
                const auto n = static_cast<std::int32_t>(node_index(mesh.connectivity[e * per_element + p]));
                if (seen[n] == i) continue;
                seen[n] = i;
                out.nodes.push_back(n);
            }
        }
        std::sort(out.nodes.begin() + first, out.nodes.end());
        out.start[i + 1] = static_cast<std::int64_t>(out.nodes.size());
    }
    return out;
}

namespace {

// `count` zeros. Memory is taken and cleared in steps of a twentieth of a second, between which a stop is
// seen: false, with fewer.
template <typename Value>
bool set_zero(std::vector<Value>& values, std::int64_t count, const Progress& progress) {
    constexpr std::size_t step = 1 << 23;
    values.clear();
    values.reserve(count);
    while (values.size() < std::size_t(count)) {
        if (progress.cancelled()) return false;
        values.resize(std::min<std::size_t>(count, values.size() + step));
    }
    return true;
}

std::int64_t entries_of(const NodeNeighbours& neighbours) {
    return 9 * neighbours.start.back();
}

void print_overlap(const NodeNeighbours& neighbours, Progress& progress) {
    progress.print("\n");
    progress.print("  [K],[M] element num=%ld\n", entries_of(neighbours));
}

void print_index(const NodeNeighbours& neighbours, Progress& progress) {
    for (std::size_t i = 0; progress.lines_wanted() && i + 1 < neighbours.start.size(); ++i) {
        const std::int64_t count = neighbours.start[i + 1] - neighbours.start[i];
        progress.print("  %zu/%zu:%ld,%ld\r", i, neighbours.start.size() - 1, count, 3 * count);
    }
    progress.print("  [K],[M] index\n");
}

}  // namespace

std::int64_t count_overlap(const NodeNeighbours& neighbours, SparseKM& km, Progress& progress) {
    const std::size_t nodes = neighbours.start.size() - 1;
    km.row_count.resize(3 * nodes);
    km.row_start.assign(3 * nodes + 1, 0);
    for (std::size_t i = 0; i < nodes; ++i)
        for (std::size_t r = 3 * i; r < 3 * i + 3; ++r) {
            km.row_count[r] = static_cast<std::int32_t>(3 * (neighbours.start[i + 1] - neighbours.start[i]));
            km.row_start[r + 1] = km.row_start[r] + km.row_count[r];
        }
    print_overlap(neighbours, progress);
    return km.row_start.back();
}

void build_index(const NodeNeighbours& neighbours, SparseKM& km, Progress& progress) {
    if (!set_zero(km.col_index, km.row_start.back(), progress)) return;
    std::int32_t* column = km.col_index.data();
    for (std::size_t i = 0; i + 1 < neighbours.start.size(); ++i) {
        if (i % 4096 == 0 && progress.cancelled()) return;
        for (int row = 0; row < 3; ++row)
            for (std::int64_t k = neighbours.start[i]; k < neighbours.start[i + 1]; ++k)
                for (std::int32_t c = 0; c < 3; ++c) *column++ = 3 * neighbours.nodes[k] + c;
    }
    print_index(neighbours, progress);
}

std::int64_t print_pattern(const NodeNeighbours& neighbours, Progress& progress) {
    print_overlap(neighbours, progress);
    print_index(neighbours, progress);
    return entries_of(neighbours);
}

void find_diagonals(SparseKM& km) {
    km.diag_pos.resize(km.row_count.size());
    for (std::int32_t r = 0; r < km.rows(); ++r) {
        const auto first = km.col_index.begin() + km.row_start[r];
        const auto last = first + km.row_count[r];
        const auto at = std::lower_bound(first, last, r);
        km.diag_pos[r] = at != last && *at == r ? at - km.col_index.begin() : -1;
    }
}

namespace {

// Element matrices are computed in parallel into the slots of one batch, then added.
struct Batch {
    std::int32_t first, last;  // elements
    int per_element;
    const std::vector<double>& ke;
    const std::vector<double>& me;
    std::vector<double>* node_mass;  // null: the mass goes on the pattern
};

// Adds the batch's contributions to the rows of nodes [node_first, node_last), in element order.
void add_batch(const Mesh& mesh, const NodeNeighbours& neighbours, const Batch& batch,
               std::int32_t node_first, std::int32_t node_last, SparseKM& km) {
    const std::size_t ne = batch.per_element;
    const std::size_t size = 3 * ne;
    for (std::int32_t e = batch.first; e < batch.last; ++e) {
        const std::int32_t* element = mesh.connectivity.data() + static_cast<std::size_t>(e) * ne;
        const double* ke = batch.ke.data() + static_cast<std::size_t>(e - batch.first) * size * size;
        const double* me = batch.me.empty()
                               ? nullptr
                               : batch.me.data() + static_cast<std::size_t>(e - batch.first) * ne * ne;
        for (std::size_t p = 0; p < ne; ++p) {
            const auto i = static_cast<std::int32_t>(node_index(element[p]));
            if (i < node_first || i >= node_last) continue;
            const std::int32_t* set = neighbours.nodes.data() + neighbours.start[i];
            const std::int32_t* set_end = neighbours.nodes.data() + neighbours.start[i + 1];
            double* k_row[3];
            double* m_row[3];
            for (std::size_t a = 0; a < 3; ++a) {
                const std::int64_t start = km.row_start[3 * i + a];
                k_row[a] = km.K_value.data() + start;
                m_row[a] = me && !batch.node_mass ? km.M_value.data() + start : nullptr;
            }
            for (std::size_t q = 0; q < ne; ++q) {
                const auto j = static_cast<std::int32_t>(node_index(element[q]));
                const std::int32_t* at = std::lower_bound(set, set_end, j);
                assert(at != set_end && *at == j);
                const std::size_t offset = 3 * (at - set);
                for (std::size_t a = 0; a < 3; ++a) {
                    const double* block = ke + (3 * p + a) * size + 3 * q;
                    for (std::size_t b = 0; b < 3; ++b) k_row[a][offset + b] += block[b];
                    if (m_row[a]) m_row[a][offset + a] += me[p * ne + q];
                }
                if (batch.node_mass) (*batch.node_mass)[at - neighbours.nodes.data()] += me[p * ne + q];
            }
        }
    }
}

}  // namespace

std::int32_t assemble_km(const Mesh& mesh, const NodeNeighbours& neighbours, const ElementMatrices& matrices,
                         int threads, SparseKM& km, Progress& progress, MassStorage mass, const char* counter,
                         std::vector<double>* node_mass) {
    const std::size_t ne = mesh.node_per_element();
    const std::int32_t elements = mesh.element_num();
    const std::int32_t nodes = mesh.node_num();
    const bool with_mass = mass != MassStorage::none;
    if (!set_zero(km.K_value, km.entries(), progress) ||
        !set_zero(km.M_value, mass == MassStorage::pattern ? km.entries() : 0, progress))
        return -1;
    if (mass == MassStorage::nodes) node_mass->assign(neighbours.nodes.size(), 0.0);
    constexpr std::int32_t batch_size = 1024;
    std::vector<double> ke(batch_size * 9 * ne * ne), me(with_mass ? batch_size * ne * ne : 0);
    std::vector<char> computed(batch_size, 0);
    for (std::int32_t first = 0; first < elements && !progress.cancelled(); first += batch_size) {
        const std::int32_t last = std::min(elements, first + batch_size);
#pragma omp parallel for schedule(static) num_threads(threads)
        for (std::int32_t e = first; e < last; ++e) {
            const std::size_t slot = e - first;
            try {
                computed[slot] = matrices(e, ke.data() + slot * 9 * ne * ne,
                                          with_mass ? me.data() + slot * ne * ne : nullptr);
            } catch (...) {  // no exception may leave a thread
                computed[slot] = false;
            }
        }
        for (std::int32_t e = first; e < last; ++e) {
            progress.counter(e, elements, counter);
            if (!computed[e - first]) return e;
        }
        const Batch batch{first, last, static_cast<int>(ne), ke, me, node_mass};
        // the rows are dealt out so that every thread has rows of this batch's elements
        const auto [low, high] =
            std::minmax_element(mesh.connectivity.begin() + first * static_cast<std::ptrdiff_t>(ne),
                                mesh.connectivity.begin() + last * static_cast<std::ptrdiff_t>(ne));
        const std::int64_t low_node = *low - 1, span = *high - low_node;
#pragma omp parallel for schedule(static) num_threads(threads)
        for (int t = 0; t < threads; ++t)
            add_batch(
                mesh, neighbours, batch, static_cast<std::int32_t>(low_node + span * t / threads),
                t + 1 == threads ? nodes : static_cast<std::int32_t>(low_node + span * (t + 1) / threads),
                km);
    }
    return -1;
}

void keep_rows(std::span<const std::int32_t> dof_map, SparseKM& km) {
    const bool with_mass = !km.M_value.empty();
    const std::size_t rows = km.rows();
    std::size_t kept = 0;
    std::int64_t entry = 0;
    // compacted in place: every kept entry moves towards the front
    for (std::size_t r = 0; r < rows; ++r) {
        if (dof_map[r] < 0) continue;
        const std::int64_t first = km.row_start[r], last = first + km.row_count[r];
        const std::int64_t row_first = entry;
        for (std::int64_t k = first; k < last; ++k) {
            const std::size_t from = k;
            const std::int32_t column = dof_map[km.col_index[from]];
            if (column < 0) continue;
            const std::size_t to = entry++;
            km.col_index[to] = column;
            km.K_value[to] = km.K_value[from];
            if (with_mass) km.M_value[to] = km.M_value[from];
        }
        km.row_count[kept] = static_cast<std::int32_t>(entry - row_first);
        km.row_start[kept] = row_first;
        ++kept;
    }
    km.row_count.resize(kept);
    km.row_start.resize(kept + 1);
    km.row_start[kept] = entry;
    km.col_index.resize(entry);
    km.K_value.resize(entry);
    if (with_mass) km.M_value.resize(entry);
    find_diagonals(km);
}

void eliminate_fixed(std::span<const std::int32_t> dof_map, SparseKM& km, Progress& progress) {
    progress.print(" Eliminate fix index\n");
    keep_rows(dof_map, km);
    progress.print(" Eliminate fix index Complete\n");
}

std::int64_t profile_size(const SparseKM& km) {
    std::int64_t size = 0;
    for (std::int32_t r = 0; r < km.rows(); ++r) size += r - std::min(r, km.col_index[km.row_start[r]]) + 1;
    return size;
}

void multiply(const SparseKM& km, std::span<const double> values, std::span<const double> x,
              std::span<double> y) {
    for (std::size_t r = 0; r < km.row_count.size(); ++r) {
        double sum = 0;
        for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k)
            sum += values[k] * x[km.col_index[k]];
        y[r] = sum;
    }
}

void multiply(const SparseKM& km, std::span<const double> values, std::span<const double> x,
              std::span<double> y, std::int64_t n, std::int32_t k, int threads) {
    const std::int64_t rows = km.rows();
    for (std::int32_t c = 0; c < k; ++c) std::fill(y.begin() + c * n + rows, y.begin() + (c + 1) * n, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads) if (rows * k > 10000)
    for (std::int64_t r = 0; r < rows; ++r)
        for (std::int32_t c = 0; c < k; c += 4) {
            const std::int32_t some = std::min(4, k - c);
            double sum[4] = {};
            const double* from = x.data() + c * n;
            for (std::int64_t e = km.row_start[r]; e < km.row_start[r + 1]; ++e) {
                const double v = values[e];
                const double* at = from + km.col_index[e];
                for (std::int32_t q = 0; q < some; ++q) sum[q] += v * at[q * n];
            }
            for (std::int32_t q = 0; q < some; ++q) y[(c + q) * n + r] = sum[q];
        }
}

std::vector<double> diagonal_of(const SparseKM& km) {
    std::vector<double> diagonal;
    for (std::int64_t k : km.diag_pos) diagonal.push_back(km.K_value[k]);
    return diagonal;
}

double norm(std::span<const double> v) {
    double sum = 0;
    for (const double x : v) sum += x * x;
    return std::sqrt(sum);
}

}  // namespace kestralum
