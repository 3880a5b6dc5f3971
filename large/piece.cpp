#include "large/piece.h"

#include <metis.h>

#include <algorithm>
#include <new>
#include <numeric>

namespace kestralum {

namespace {

// Corners of a face: as many nodes have elements in common that are neighbours.
int corners_of_face(ElementKind kind) {
    return kind == ElementKind::hexahedron ? 4 : 3;
}

// Equal shares of the elements in their order; for meshes too small to be cut with care.
void deal_in_order(std::vector<std::int32_t>& rank, int ranks) {
    const std::int64_t count = std::ssize(rank);
    for (std::int64_t e = 0; e < count; ++e) rank[e] = static_cast<std::int32_t>(e * ranks / count);
}

// False where METIS refuses.
bool deal_by_graph(const Mesh& mesh, int ranks, std::vector<std::int32_t>& rank) {
    idx_t elements = mesh.element_num(), nodes = mesh.node_num(), parts = ranks, cut = 0;
    // tetrahedra with nodes on their edges are neighbours by their corners as well as by all nodes of a face
    idx_t common = corners_of_face(mesh.element_type);
    std::vector<idx_t> start(elements + 1), index(mesh.connectivity.size()), of_node(nodes);
    for (idx_t e = 0; e <= elements; ++e) start[e] = e * mesh.node_per_element();
    for (std::size_t k = 0; k < index.size(); ++k) index[k] = mesh.connectivity[k] - 1;
    idx_t options[METIS_NOPTIONS];
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_SEED] = 1;
    return METIS_PartMeshDual(&elements, &nodes, start.data(), index.data(), nullptr, nullptr, &common,
                              &parts, nullptr, options, &cut, rank.data(), of_node.data()) == METIS_OK;
}

std::vector<std::int32_t> deal_elements(const Mesh& mesh, int ranks) {
    std::vector<std::int32_t> rank(mesh.element_num(), 0);
    constexpr int worth_a_graph = 8;  // elements per rank
    if (ranks == 1) return rank;
    if (mesh.element_num() < worth_a_graph * ranks || !deal_by_graph(mesh, ranks, rank))
        deal_in_order(rank, ranks);
    return rank;
}

// A node goes to that rank around it which has the fewest so far; one on no element to the first.
std::vector<std::int32_t> deal_nodes(const NodeElements& around, std::span<const std::int32_t> element_rank,
                                     std::int32_t nodes, int ranks) {
    std::vector<std::int32_t> out(nodes, 0);
    std::vector<std::int64_t> count(ranks, 0);
    for (std::int32_t n = 0; n < nodes; ++n) {
        std::int32_t best = -1;
        for (const std::int32_t e : around.of(n)) {
            const std::int32_t rank = element_rank[e];
            if (best < 0 || count[rank] < count[best] || (count[rank] == count[best] && rank < best))
                best = rank;
        }
        out[n] = std::max(best, 0);
        ++count[out[n]];
    }
    return out;
}

}  // namespace

Partition partition(const Team& team, const Mesh& mesh, const NodeElements& around) {
    Partition out;
    if (team.first()) out.element_rank = deal_elements(mesh, team.size());
    team.share(out.element_rank);
    const std::int32_t nodes = mesh.node_num();
    out.node_rank = deal_nodes(around, out.element_rank, nodes, team.size());
    out.first.assign(team.size() + 1, 0);
    for (const std::int32_t rank : out.node_rank) ++out.first[rank + 1];
    std::partial_sum(out.first.begin(), out.first.end(), out.first.begin());
    std::vector<std::int32_t> next(out.first.begin(), out.first.end() - 1);
    out.number.resize(nodes);
    for (std::int32_t n = 0; n < nodes; ++n) out.number[n] = next[out.node_rank[n]]++;
    return out;
}

namespace {

// Nodes around which all elements are wanted.
std::vector<char> wanted_nodes(const Partition& partition, int rank, const Mesh& mesh,
                               const ConstraintMap& map) {
    std::vector<char> out(partition.node_rank.size());
    for (std::size_t n = 0; n < out.size(); ++n) out[n] = partition.node_rank[n] == rank;
    const std::vector<char> owned = out;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (partition.element_rank[e] == rank)
            for (const std::int32_t node : mesh.element(e)) out[node_index(node)] = 1;
    if (map.empty()) return out;
    const auto special = map.special_nodes();
    for (std::size_t k = 0; k < special.size(); ++k)
        for (const auto& [node, weight] : map.weights(k))
            if (owned[node]) out[special[k]] = 1;
    return out;
}

// The nodes of the elements here, and those that tied ones among them follow.
std::vector<char> nodes_here(const Mesh& mesh, std::span<const std::int32_t> elements,
                             const ConstraintMap& map) {
    std::vector<char> out(mesh.node_num(), 0);
    for (const std::int32_t e : elements)
        for (const std::int32_t node : mesh.element(e)) out[node_index(node)] = 1;
    if (map.empty()) return out;
    const auto special = map.special_nodes();
    for (std::size_t k = 0; k < special.size(); ++k)
        if (out[special[k]])
            for (const auto& [node, weight] : map.weights(k)) out[node] = 1;
    return out;
}

Mesh mesh_of(const Piece& piece, const Mesh& mesh) {
    Mesh out;
    out.element_type = mesh.element_type;
    out.size_info = mesh.size_info;
    out.max_length = mesh.max_length;
    for (const std::int32_t n : piece.nodes)
        out.coordinates.insert(out.coordinates.end(), mesh.node(n), mesh.node(n) + 3);
    for (const std::int32_t e : piece.elements) {
        for (const std::int32_t node : mesh.element(e))
            out.connectivity.push_back(piece.node_of[node_index(node)] + 1);
        out.p_ele_part_id.push_back(mesh.p_ele_part_id[e]);
    }
    out.node_n_dir.assign(out.coordinates.size(), 0.0);
    return out;
}

// Chains of ties have been resolved: weights name plain nodes or nodes with axes alone.
ConstraintMap map_of(const Piece& piece, const ConstraintMap& map) {
    ConstraintMap out;
    if (map.empty()) return out;
    const auto count = static_cast<std::int32_t>(piece.nodes.size());
    const auto special = map.special_nodes();
    for (std::size_t k = 0; k < special.size(); ++k) {
        const std::int32_t n = special[k], here = piece.node_of[n];
        if (here < 0) continue;
        if (map.is_tied(n)) {
            ConstraintMap::Weights weights = map.weights(k);
            for (auto& [node, weight] : weights) node = piece.node_of[node];
            out.tie(here, count, std::move(weights));
        } else {
            Mat3 axes;
            for (std::int32_t c = 0; c < 3; ++c)
                for (std::size_t d = 0; d < 3; ++d) axes[3 * c + d] = map.axis(3 * n + c)[d];
            out.set_axes(here, count, axes);
        }
    }
    out.close();
    return out;
}

}  // namespace

Piece make_piece(const Partition& partition, int rank, const Mesh& mesh, const ConstraintMap& map) {
    Piece out;
    const std::vector<char> wanted = wanted_nodes(partition, rank, mesh, map);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (std::ranges::any_of(mesh.element(e),
                                [&](std::int32_t node) { return wanted[node_index(node)] != 0; })) {
            out.elements.push_back(e);
            out.counted.push_back(partition.element_rank[e] == rank);
        }
    const std::vector<char> here = nodes_here(mesh, out.elements, map);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (partition.node_rank[n] == rank) out.nodes.push_back(n);
    out.owned = static_cast<std::int32_t>(out.nodes.size());
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (here[n] && partition.node_rank[n] != rank) out.nodes.push_back(n);
    out.node_of.assign(mesh.node_num(), -1);
    for (std::size_t k = 0; k < out.nodes.size(); ++k) {
        out.node_of[out.nodes[k]] = static_cast<std::int32_t>(k);
        out.number.push_back(partition.number[out.nodes[k]]);
        out.whole.push_back(wanted[out.nodes[k]]);
    }
    out.mesh = mesh_of(out, mesh);
    out.around = elements_of_nodes(out.mesh);
    out.map = map_of(out, map);
    return out;
}

PieceJob::PieceJob(const Job& whole, const Piece& piece)
    : silent(whole.progress), job{whole.model, whole.settings, whole.options, silent, run} {
    run.mesh = piece.mesh;
}

std::vector<double> Piece::of_all(std::span<const double> all, int width) const {
    std::vector<double> out(width * nodes.size());
    for (std::size_t k = 0; k < nodes.size(); ++k)
        std::copy_n(&all[std::size_t(width) * nodes[k]], width, &out[width * k]);
    return out;
}

std::vector<double> gather_nodes(const Team& team, const Partition& partition, std::span<const double> owned,
                                 int width, bool everywhere) {
    const std::vector<double> by_rank = everywhere ? team.gather_everywhere(owned) : team.gather(owned);
    std::vector<double> out(by_rank.size());
    for (std::size_t n = 0; n < partition.number.size() && !by_rank.empty(); ++n)
        std::copy_n(&by_rank[std::size_t(width) * partition.number[n]], width, &out[width * n]);
    return out;
}

std::vector<double> gather_elements(const Team& team, const Partition& partition, const Piece& piece,
                                    std::span<const double> values, std::size_t width) {
    std::vector<double> own;
    for (std::size_t e = 0; e < piece.elements.size(); ++e)
        if (piece.counted[e])
            own.insert(own.end(), values.begin() + std::ptrdiff_t(e * width),
                       values.begin() + std::ptrdiff_t((e + 1) * width));
    const std::vector<double> by_rank = team.gather(own);
    if (!team.first()) return {};
    std::vector<std::size_t> next(team.size() + 1, 0);  // element of a rank, its elements ascending
    for (const std::int32_t rank : partition.element_rank) ++next[rank + 1];
    std::partial_sum(next.begin(), next.end(), next.begin());
    std::vector<double> out(by_rank.size());
    for (std::size_t e = 0; e < partition.element_rank.size(); ++e)
        std::copy_n(&by_rank[width * next[partition.element_rank[e]]++], width, &out[width * e]);
    return out;
}

}  // namespace kestralum
