#include "large/recovery.h"

#include <algorithm>
#include <cmath>

#include "elements/error_estimate.h"
#include "model/removed_elements.h"

namespace kestralum {

namespace {

constexpr int stress_width = 3 * stress_groups;  // values per node

}  // namespace

PieceStresses piece_stresses(Job& job, const Elasticity& elasticity, const Piece& piece,
                             std::span<const double> u, std::span<const double> initial) {
    SilentProgress silent(job.progress);
    PieceStresses out;
    point_stresses(piece.mesh, job.model.parts, elasticity, piece.of_all(u), job.threads(), out.points,
                   silent, {.form = job.hexahedra(), .initial = initial});
    out.nodal.assign(std::size_t(stress_groups) * piece.mesh.dof_num(), 0.0);
    mean_stress_strain(piece.mesh, piece.around, out.points, {}, job.threads(), out.nodal, silent);
    return out;
}

std::vector<double> gather_stresses(const Team& team, const Partition& partition, const Piece& piece,
                                    std::span<const double> nodal) {
    const std::size_t here = piece.mesh.dof_num(), all = 3 * partition.number.size();
    std::vector<double> own(std::size_t(stress_width) * piece.owned);
    for (std::int32_t n = 0; n < piece.owned; ++n)
        for (std::size_t g = 0; g < stress_groups; ++g)
            std::copy_n(&nodal[g * here + 3 * n], 3, &own[std::size_t(stress_width) * n + 3 * g]);
    const std::vector<double> by_node = gather_nodes(team, partition, own, stress_width, false);
    std::vector<double> out(team.first() ? stress_groups * all : 0);
    for (std::size_t n = 0; 3 * n < all && team.first(); ++n)
        for (std::size_t g = 0; g < stress_groups; ++g)
            std::copy_n(&by_node[stress_width * n + 3 * g], 3, &out[g * all + 3 * n]);
    return out;
}

namespace {

// The largest of the ranks' values; among equals that of the lowest node.
NodeValue largest_of(const Team& team, const Mesh& mesh, const NodeValue& here) {
    const double own[2] = {here.value, static_cast<double>(here.node)};
    const std::vector<double> all = team.gather_everywhere(own);
    NodeValue out;
    for (std::size_t k = 0; k < all.size(); k += 2) {
        const auto node = static_cast<std::int32_t>(all[k + 1]);
        if (node == 0) continue;
        if (out.node == 0 || all[k] > out.value || (all[k] == out.value && node < out.node))
            out = {node, all[k], place_of(mesh, node - 1)};
    }
    return out;
}

}  // namespace

void find_largest(const Team& team, Job& job, const Piece& piece, std::span<const double> u,
                  std::span<const double> nodal, std::span<const std::int32_t> removed) {
    std::vector<char> bare = bare_nodes(piece.mesh, removed);
    if (!team.any(std::ssize(removed) < piece.mesh.element_num())) bare.clear();  // there is nothing else
    NodeValue displacement, mises;
    for (std::int32_t k = 0; k < piece.owned; ++k) {
        if (!bare.empty() && bare[k]) continue;
        const std::int32_t n = piece.nodes[k];
        const double size = norm(triple(u, k));
        const double stress = nodal.empty() ? 0 : nodal[4 * std::size_t(piece.mesh.dof_num()) + 3 * k];
        if (displacement.node == 0 || size > displacement.value) displacement = {n + 1, size, {}};
        if (mises.node == 0 || stress > mises.value) mises = {n + 1, stress, {}};
    }
    job.report().largest_displacement = largest_of(team, job.run.mesh, displacement);
    job.report().largest_mises = largest_of(team, job.run.mesh, mises);
}

std::vector<double> gather_forces(const Team& team, const Job& job, const Partition& partition,
                                  const Piece& piece, const PointResults& points,
                                  std::span<const char> wanted) {
    std::vector<char> here(piece.nodes.size(), 0);
    for (std::int32_t k = 0; k < piece.owned; ++k) here[k] = wanted[piece.nodes[k]];
    const std::vector<double> forces = internal_forces(piece.mesh, points, here, job.hexahedra());
    return gather_nodes(team, partition, std::span(forces).first(piece.owned_dofs()), 3, true);
}

TeamError find_error(const Team& team, const Job& job, const Piece& piece, const PieceStresses& stresses) {
    const std::vector<ElementEnergies> energies =
        element_energies(piece.mesh, job.model.parts, job.model.materials, piece.around, stresses.points,
                         stresses.nodal, job.threads());
    std::array<double, 3> sums{};  // error, stress, volume
    double largest = 0;
    std::int32_t at = -1;
    for (std::size_t e = 0; e < energies.size(); ++e) {
        if (!piece.counted[e]) continue;
        sums[0] += energies[e].error;
        sums[1] += energies[e].stress;
        sums[2] += stresses.points.volume[e];
        if (energies[e].error > largest) {
            largest = energies[e].error;
            at = piece.elements[e];
        }
    }
    team.sum(sums);
    const double own[2] = {largest, static_cast<double>(at)};
    TeamError out;
    out.strain_energy = 0.5 * sums[1];
    const double all = sums[0] + sums[1];
    out.relative = all > 0 ? std::sqrt(sums[0] / all) : 0;
    double most = 0;
    const std::vector<double> ranks = team.gather_everywhere(own);
    for (std::size_t k = 0; k < ranks.size(); k += 2)
        if (ranks[k] > most) {
            most = ranks[k];
            out.worst = static_cast<std::int32_t>(ranks[k + 1]);
        }
    // volume times error, and volume, of the elements around each node
    std::vector<double> sum(2 * std::size_t(job.mesh().node_num()), 0.0);
    for (std::size_t e = 0; e < energies.size(); ++e) {
        if (!piece.counted[e]) continue;
        const double volume = stresses.points.volume[e];
        const double error = all > 0 ? std::sqrt(energies[e].error / volume * sums[2] / all) : 0;
        for (const std::int32_t node : piece.mesh.element(static_cast<std::int64_t>(e))) {
            const std::size_t n = piece.nodes[node_index(node)];
            sum[2 * n] += volume * error;
            sum[2 * n + 1] += volume;
        }
    }
    team.sum(sum);
    for (std::size_t n = 0; 2 * n < sum.size() && team.first(); ++n)
        out.nodal.push_back(sum[2 * n + 1] > 0 ? sum[2 * n] / sum[2 * n + 1] : 0);
    return out;
}

}  // namespace kestralum
