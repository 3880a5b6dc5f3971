#include "system/diagonals.h"

#include <algorithm>

namespace kestralum {

namespace {

constexpr std::int32_t chunk_nodes = 4096;

// The matrices of the elements around a run of nodes, and those nodes' rows.
struct Chunk {
    std::int32_t first = 0, last = 0;    // nodes
    std::vector<std::int32_t> elements;  // ascending
    std::vector<double> ke, me;          // of each of them
    std::vector<double> K, M;            // per entry of the rows: 3 × 3 and 1 per neighbour
    std::vector<char> sound;
};

void gather_elements(const NodeElements& node_elements, Chunk& chunk) {
    chunk.elements.clear();
    for (std::int32_t n = chunk.first; n < chunk.last; ++n)
        chunk.elements.insert(chunk.elements.end(), node_elements.of(n).begin(), node_elements.of(n).end());
    std::sort(chunk.elements.begin(), chunk.elements.end());
    chunk.elements.erase(std::unique(chunk.elements.begin(), chunk.elements.end()), chunk.elements.end());
}

// The rows of one node: K three rows of 3 · neighbours, M one of neighbours.
void add_node(const Mesh& mesh, const NodeElements& node_elements, std::span<const std::int32_t> set,
              std::int32_t node, const Chunk& chunk, double* K, double* M) {
    const int ne = mesh.node_per_element(), size = 3 * ne;
    const std::size_t width = 3 * set.size();
    for (const std::int32_t e : node_elements.of(node)) {
        const std::size_t slot =
            std::lower_bound(chunk.elements.begin(), chunk.elements.end(), e) - chunk.elements.begin();
        const auto element = mesh.element(e);
        const int p = static_cast<int>(std::find(element.begin(), element.end(), node + 1) - element.begin());
        const double* ke = &chunk.ke[slot * size * size] + 3 * p * size;
        const double* me = &chunk.me[slot * ne * ne] + p * ne;
        for (int q = 0; q < ne; ++q) {
            const std::size_t at =
                std::lower_bound(set.begin(), set.end(), static_cast<std::int32_t>(node_index(element[q]))) -
                set.begin();
            for (int a = 0; a < 3; ++a)
                for (int b = 0; b < 3; ++b) K[a * width + 3 * at + b] += ke[a * size + 3 * q + b];
            M[at] += me[q];
        }
    }
}

class DiagonalSums {
public:
    DiagonalSums(const Mesh& mesh, const NodeElements& node_elements, const NodeNeighbours& neighbours,
                 std::span<const std::int32_t> dof_map, int threads)
        : mesh_(mesh),
          node_elements_(node_elements),
          neighbours_(neighbours),
          dof_map_(dof_map),
          threads_(threads) {
        out.K.assign(mesh.dof_num(), 0.0);
        out.M.assign(mesh.dof_num(), 0.0);
    }

    // False where an element could not be computed.
    bool take(std::int32_t first, std::int32_t last, const ElementMatrices& matrices) {
        chunk_.first = first;
        chunk_.last = last;
        gather_elements(node_elements_, chunk_);
        if (!compute(matrices)) return false;
        assemble();
        add_up();
        return true;
    }

    MatrixDiagonals out;

private:
    std::span<const std::int32_t> set_of(std::int32_t n) const {
        return {neighbours_.nodes.data() + neighbours_.start[n],
                neighbours_.nodes.data() + neighbours_.start[n + 1]};
    }

    bool compute(const ElementMatrices& matrices) {
        const std::size_t ne = mesh_.node_per_element();
        const auto count = static_cast<std::int64_t>(chunk_.elements.size());
        chunk_.ke.resize(9 * ne * ne * count);
        chunk_.me.resize(ne * ne * count);
        chunk_.sound.resize(count);
#pragma omp parallel for schedule(static) num_threads(threads_)
        for (std::int64_t k = 0; k < count; ++k)
            chunk_.sound[k] =
                matrices(chunk_.elements[k], &chunk_.ke[9 * ne * ne * k], &chunk_.me[ne * ne * k]);
        for (std::int64_t k = 0; k < count; ++k)
            if (!chunk_.sound[k]) {
                out.bad_element = chunk_.elements[k];
                return false;
            }
        return true;
    }

    void assemble() {
        const std::int64_t begin = neighbours_.start[chunk_.first], end = neighbours_.start[chunk_.last];
        chunk_.K.assign(9 * (end - begin), 0.0);
        chunk_.M.assign(end - begin, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads_)
        for (std::int32_t n = chunk_.first; n < chunk_.last; ++n) {
            const std::int64_t at = neighbours_.start[n] - begin;
            add_node(mesh_, node_elements_, set_of(n), n, chunk_, &chunk_.K[9 * at], &chunk_.M[at]);
        }
    }

    // One after the other: a sum's bits depend on its order.
    void add_up() {
        const std::int64_t begin = neighbours_.start[chunk_.first];
        for (std::int32_t n = chunk_.first; n < chunk_.last; ++n) {
            const auto set = set_of(n);
            const double* K = &chunk_.K[9 * (neighbours_.start[n] - begin)];
            const double* M = &chunk_.M[neighbours_.start[n] - begin];
            const std::size_t own = std::lower_bound(set.begin(), set.end(), n) - set.begin();
            for (std::size_t a = 0; a < 3; ++a, K += 3 * set.size()) {
                out.K[3 * n + a] = K[3 * own + a];
                out.M[3 * n + a] = M[own];
                for (std::size_t k = 0; k < set.size(); ++k) out.mass_sum += M[k];
                if (dof_map_[3 * n + a] < 0) continue;
                for (std::size_t k = 0; k < 3 * set.size(); ++k)
                    if (dof_map_[3 * set[k / 3] + k % 3] >= 0) out.stiffness_sum += K[k];
            }
        }
    }

    const Mesh& mesh_;
    const NodeElements& node_elements_;
    const NodeNeighbours& neighbours_;
    std::span<const std::int32_t> dof_map_;
    int threads_;
    Chunk chunk_;
};

}  // namespace

MatrixDiagonals matrix_diagonals(const Mesh& mesh, const NodeElements& node_elements,
                                 const NodeNeighbours& neighbours, const ElementMatrices& matrices,
                                 std::span<const std::int32_t> dof_map, int threads, Progress& progress) {
    DiagonalSums sums(mesh, node_elements, neighbours, dof_map, threads);
    for (std::int32_t n = 0; n < mesh.node_num() && !progress.cancelled(); n += chunk_nodes)
        if (!sums.take(n, std::min(mesh.node_num(), n + chunk_nodes), matrices)) break;
    for (std::int32_t e = 0; progress.lines_wanted() && e < mesh.element_num(); ++e)
        progress.counter(e, mesh.element_num(), "    k=");
    return std::move(sums.out);
}

}  // namespace kestralum
