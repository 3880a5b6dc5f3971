#include "large/explicit_ranks.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "elements/element_type.h"
#include "elements/finite_elements.h"
#include "large/recovery.h"

namespace kestralum {

ExplicitRanks::~ExplicitRanks() {
    if (std::uncaught_exceptions() > 0) return;  // others may never send what is waited for
    if (flag_request_ != MPI_REQUEST_NULL) MPI_Wait(&flag_request_, MPI_STATUS_IGNORE);
    for (MPI_Request& request : requests_) MPI_Request_free(&request);
}

void ExplicitRanks::deal_out(const Mesh& mesh) {
    around_ = elements_of_nodes(mesh);
    partition_ = partition(team_, mesh, around_);
}

void ExplicitRanks::cut(Job& job, ExplicitState& s) {
    const Mesh& mesh = job.run.mesh;
    std::vector<std::int32_t> elements;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (partition_.element_rank[e] == team_.rank()) elements.push_back(e);
    std::vector<char> owned(mesh.node_num());
    for (std::size_t n = 0; n < owned.size(); ++n) owned[n] = partition_.node_rank[n] == team_.rank();
    std::vector<std::int32_t> contact = contact_surface(job, s), bound;
    find_bound(s, contact);
    for (const auto& [node, rank] : bound_)
        if (rank == team_.rank()) bound.push_back(s.mesh->number[node]);
    for (std::size_t n = 0; n < everywhere_.size(); ++n)
        if (everywhere_[n]) bound.push_back(s.mesh->number[n]);
    s.piece = std::make_unique<ExplicitPiece>(cut_piece(*s.mesh, elements, owned, bound));
    s.piece->contact_nodes = std::move(contact);
    piece_ = make_piece(partition_, team_.rank(), mesh, {});
    find_neighbours(mesh, s.piece->steps);
    find_halo(mesh);
    around_ = {};
    if (pieces_) files_.emplace(team_, job, piece_);
}

std::vector<int> ExplicitRanks::ranks_of(std::int32_t node) const {
    std::vector<int> ranks;
    for (const std::int32_t e : around_.of(node)) ranks.push_back(partition_.element_rank[e]);
    for (auto at = std::ranges::lower_bound(bound_, std::pair(node, 0));
         at != bound_.end() && at->first == node; ++at)
        ranks.push_back(at->second);
    std::ranges::sort(ranks);
    ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
    return ranks;
}

// A spring acts where its first node is owned, on all of its nodes; who has a tied node hands its forces to
// all that lead it.
void ExplicitRanks::find_bound(const ExplicitState& s, std::span<const std::int32_t> contact) {
    const std::vector<std::int32_t>& of_run = s.mesh->of_run;
    std::vector<std::pair<std::int32_t, int>> found;
    const auto want = [&](std::int32_t node, int rank) {
        if (!std::ranges::binary_search(ranks_of(node), rank)) found.emplace_back(node, rank);
    };
    const auto add_found = [&] {
        bound_.insert(bound_.end(), found.begin(), found.end());
        std::ranges::sort(bound_);
        bound_.erase(std::unique(bound_.begin(), bound_.end()), bound_.end());
        found.clear();
    };
    bound_.clear();
    for (std::size_t b = 0; b < s.springs.blocks(); ++b) {
        const auto nodes = s.springs.nodes(b);
        for (const std::int32_t n : nodes) want(of_run[n], partition_.node_rank[of_run[nodes.front()]]);
    }
    add_found();
    const ConstraintMap& map = s.freedoms.constraints.map;
    for (std::size_t k = 0; k < map.special_nodes().size(); ++k)
        for (const int rank : ranks_of(of_run[map.special_nodes()[k]]))
            for (const auto& [master, weight] : map.weights(k)) want(of_run[master], rank);
    add_found();
    everywhere_.clear();
    if (contact.empty()) return;
    everywhere_.assign(of_run.size(), 0);
    for (const std::int32_t n : contact) everywhere_[of_run[n]] = 1;
    for (std::size_t k = 0; k < map.special_nodes().size(); ++k)
        for (const auto& [master, weight] : map.weights(k))
            if (everywhere_[of_run[map.special_nodes()[k]]]) everywhere_[of_run[master]] = 1;
}

// Forces at a node are summed by all that have it, from those that have a part in them.
void ExplicitRanks::find_neighbours(const Mesh& mesh, const StepMesh& piece) {
    const int own = team_.rank();
    std::vector<std::vector<std::int32_t>> leaving(team_.size());  // nodes here
    std::vector<std::int32_t> coming(team_.size(), 0), shared;
    std::vector<std::vector<int>> sharers;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (piece.number[n] < 0) continue;
        const std::vector<int> ranks = ranks_of(n);
        const bool all = !everywhere_.empty() && everywhere_[n];
        if (all ? team_.size() == 1 : ranks.size() == 1) continue;
        shared.push_back(n);
        sharers.push_back(ranks);
        for (const int rank : ranks) coming[rank] += rank != own;
        if (!std::ranges::binary_search(ranks, own)) continue;
        for (int rank = 0; rank < team_.size(); ++rank)
            if (rank != own && (all || std::ranges::binary_search(ranks, rank)))
                leaving[rank].push_back(piece.number[n]);
    }
    std::vector<std::size_t> next(team_.size(), 0);  // places of in_ by rank
    for (int rank = 1; rank < team_.size(); ++rank) next[rank] = next[rank - 1] + coming[rank - 1];
    first_source_.assign(1, 0);
    for (std::size_t k = 0; k < shared.size(); ++k) {
        shared_nodes_.push_back(piece.number[shared[k]]);
        for (const int rank : sharers[k])
            sources_.push_back({rank == own ? -1 : static_cast<std::int64_t>(3 * next[rank]++)});
        first_source_.push_back(sources_.size());
    }
    open_channels(leaving, coming);
}

// leaving: per rank the nodes whose values go there; coming: per rank how many come.
void ExplicitRanks::open_channels(std::span<const std::vector<std::int32_t>> leaving,
                                  std::span<const std::int32_t> coming) {
    std::size_t all_leaving = 0, all_coming = 0;
    for (std::size_t rank = 0; rank < leaving.size(); ++rank) {
        all_leaving += leaving[rank].size();
        all_coming += coming[rank];
    }
    out_.resize(3 * all_leaving);
    in_.resize(3 * all_coming);
    constexpr int tag = 1;
    std::size_t to = 0, from = 0;
    for (int rank = 0; rank < team_.size(); ++rank) {
        if (const int count = 3 * coming[rank]; count > 0) {
            MPI_Recv_init(&in_[from], count, MPI_DOUBLE, rank, tag, team_.comm(), &requests_.emplace_back());
            from += static_cast<std::size_t>(count);
        }
        if (leaving[rank].empty()) continue;
        const int count = static_cast<int>(3 * leaving[rank].size());
        neighbours_.push_back({to, leaving[rank]});
        MPI_Send_init(&out_[to], count, MPI_DOUBLE, rank, tag, team_.comm(), &requests_.emplace_back());
        to += static_cast<std::size_t>(count);
    }
}

void ExplicitRanks::add_shared(double* values, int width) {
    for (const Neighbour& neighbour : neighbours_) {
        double* out = out_.data() + neighbour.first;
        for (const std::int32_t n : neighbour.nodes)
            out = std::copy_n(values + std::ptrdiff_t(width) * n, 3, out);
    }
    const int count = static_cast<int>(requests_.size());
    MPI_Startall(count, requests_.data());
    MPI_Waitall(count, requests_.data(), MPI_STATUSES_IGNORE);
    for (std::size_t k = 0; k < shared_nodes_.size(); ++k) {
        double* own = values + std::ptrdiff_t(width) * shared_nodes_[k];
        double sum[3] = {0, 0, 0};
        for (std::size_t s = first_source_[k]; s < first_source_[k + 1]; ++s) {
            const double* part = sources_[s].at < 0 ? own : in_.data() + sources_[s].at;
            for (std::size_t c = 0; c < 3; ++c) sum[c] += part[c];
        }
        std::copy_n(sum, 3, own);
    }
}

std::vector<std::int32_t> ExplicitRanks::everywhere(std::span<const std::int32_t> here) const {
    const std::vector<double> all = team_.gather_everywhere(std::vector<double>(here.begin(), here.end()));
    return {all.begin(), all.end()};
}

StableStep ExplicitRanks::smallest(StableStep here) const {
    const double own[2] = {here.step, static_cast<double>(here.element)};
    const std::vector<double> all = team_.gather_everywhere(own);
    StableStep out;
    for (std::size_t k = 0; k < all.size(); k += 2) {
        const auto element = static_cast<std::int32_t>(all[k + 1]);
        if (element < 0) continue;
        if (out.element < 0 || all[k] < out.step || (all[k] == out.step && element < out.element))
            out = {all[k], element};
    }
    return out;
}

std::vector<StepBound::Candidate> ExplicitRanks::highest(std::span<const StepBound::Candidate> here,
                                                         std::span<const std::int32_t> of_run) const {
    struct Found {
        double estimate;
        std::int32_t of_run, element;
    };
    std::vector<double> own;
    for (const auto& [estimate, element] : here)
        own.insert(own.end(), {estimate, static_cast<double>(of_run[element])});
    const std::vector<double> all = team_.gather_everywhere(own);
    std::vector<Found> found;
    for (std::size_t k = 0; k < all.size(); k += 2) {
        if (!std::isfinite(all[k])) return {{all[k], -1}};
        found.push_back({all[k], static_cast<std::int32_t>(all[k + 1]), -1});
        for (const auto& [estimate, element] : here)
            if (of_run[element] == found.back().of_run) found.back().element = element;
    }
    std::ranges::sort(found, [](const Found& a, const Found& b) {
        return a.estimate != b.estimate ? a.estimate > b.estimate : a.of_run < b.of_run;
    });
    std::vector<StepBound::Candidate> out;
    for (std::size_t k = 0; k < std::min(found.size(), StepBound::most_candidates); ++k)
        out.push_back({found[k].estimate, found[k].element});
    return out;
}

int ExplicitRanks::flags(int here, bool at_once) {
    int all = 0;
    if (flag_request_ != MPI_REQUEST_NULL) {
        MPI_Wait(&flag_request_, MPI_STATUS_IGNORE);
        all = flag_all_;
    }
    flag_here_ = here;
    MPI_Iallreduce(&flag_here_, &flag_all_, 1, MPI_INT, MPI_BOR, team_.comm(), &flag_request_);
    if (!at_once) return all;
    MPI_Wait(&flag_request_, MPI_STATUS_IGNORE);
    return all | flag_all_;
}

void ExplicitRanks::share_first(StepFault& fault) const {
    const double own[3] = {static_cast<double>(fault.step), static_cast<double>(fault.kind),
                           static_cast<double>(fault.element)};
    const std::vector<double> all = team_.gather_everywhere(own);
    int from = -1;
    const auto of = [&](int rank) { return std::span(all).subspan(3 * std::size_t(rank), 3); };
    for (int rank = 0; rank < team_.size(); ++rank)
        if (of(rank)[0] >= 0 && (from < 0 || std::ranges::lexicographical_compare(of(rank), of(from))))
            from = rank;
    fault.step = static_cast<std::int64_t>(of(from)[0]);
    fault.kind = static_cast<int>(of(from)[1]);
    fault.element = static_cast<std::int32_t>(of(from)[2]);
    int length = static_cast<int>(fault.text.size());
    MPI_Bcast(&length, 1, MPI_INT, from, team_.comm());
    fault.text.resize(length);
    MPI_Bcast(fault.text.data(), length, MPI_CHAR, from, team_.comm());
}

// What a rank has around nodes of others' elements goes there, in the order of the run's elements.
void ExplicitRanks::find_halo(const Mesh& mesh) {
    leaving_.resize(team_.size());
    coming_.resize(team_.size());
    for (std::size_t k = 0; k < piece_.elements.size(); ++k) {
        const std::int32_t e = piece_.elements[k];
        const auto place = static_cast<std::int32_t>(k);
        if (!piece_.counted[k]) {
            coming_[partition_.element_rank[e]].push_back(place);
            continue;
        }
        counted_.push_back(place);
        for (const std::int32_t node : mesh.element(e))
            for (const std::int32_t other : around_.of(node_index(node))) {
                const int rank = partition_.element_rank[other];
                std::vector<std::int32_t>& list = leaving_[rank];
                if (rank != team_.rank() && (list.empty() || list.back() != place)) list.push_back(place);
            }
    }
}

// Stresses, strains and volumes of all elements of piece_, and which of them are out; plastic:
// of the elements here, comes back with the others.
PointResults ExplicitRanks::points_of_piece(const PointResults& here, std::span<const char> gone_here,
                                            std::vector<double>& plastic, std::vector<char>& gone) const {
    const std::size_t points = element_type(piece_.mesh.element_type).points,
                      elements = piece_.elements.size(), with_plastic = plastic.empty() ? 0 : points;
    PointResults out;
    out.stress.assign(6 * points * elements, 0.0);
    out.strain = out.stress;
    out.volume.assign(elements, 1.0);
    std::vector<double> all_plastic(with_plastic * elements, 0.0), is_out(elements, 0.0);
    for (std::size_t k = 0; k < counted_.size(); ++k) {
        const std::size_t to = counted_[k];
        std::copy_n(&here.stress[6 * points * k], 6 * points, &out.stress[6 * points * to]);
        std::copy_n(&here.strain[6 * points * k], 6 * points, &out.strain[6 * points * to]);
        out.volume[to] = here.volume[k];
        is_out[to] = gone_here[k];
        std::copy_n(plastic.begin() + std::ptrdiff_t(with_plastic * k), with_plastic,
                    all_plastic.begin() + std::ptrdiff_t(with_plastic * to));
    }
    const std::size_t width = 12 * points + 2 + with_plastic;
    constexpr int tag = 2;
    std::vector<std::vector<double>> out_buffers(team_.size()), in_buffers(team_.size());
    std::vector<MPI_Request> requests;
    for (int rank = 0; rank < team_.size(); ++rank) {
        for (const std::int32_t at : leaving_[rank]) {
            std::vector<double>& to = out_buffers[rank];
            const auto add = [&](const std::vector<double>& from, std::size_t count) {
                const auto first = from.begin() + std::ptrdiff_t(count * at);
                to.insert(to.end(), first, first + std::ptrdiff_t(count));
            };
            add(out.stress, 6 * points);
            add(out.strain, 6 * points);
            add(out.volume, 1);
            add(is_out, 1);
            add(all_plastic, with_plastic);
        }
        in_buffers[rank].resize(width * coming_[rank].size());
        if (!in_buffers[rank].empty())
            MPI_Irecv(in_buffers[rank].data(), static_cast<int>(in_buffers[rank].size()), MPI_DOUBLE, rank,
                      tag, team_.comm(), &requests.emplace_back());
        if (!out_buffers[rank].empty())
            MPI_Isend(out_buffers[rank].data(), static_cast<int>(out_buffers[rank].size()), MPI_DOUBLE, rank,
                      tag, team_.comm(), &requests.emplace_back());
    }
    MPI_Waitall(static_cast<int>(requests.size()), requests.data(), MPI_STATUSES_IGNORE);
    for (int rank = 0; rank < team_.size(); ++rank) {
        auto from = in_buffers[rank].cbegin();
        for (const std::int32_t at : coming_[rank]) {
            const auto take = [&](std::vector<double>& to, std::size_t count) {
                std::copy_n(from, count, to.begin() + std::ptrdiff_t(count * at));
                from += std::ptrdiff_t(count);
            };
            take(out.stress, 6 * points);
            take(out.strain, 6 * points);
            take(out.volume, 1);
            take(is_out, 1);
            take(all_plastic, with_plastic);
        }
    }
    plastic = std::move(all_plastic);
    gone.assign(is_out.begin(), is_out.end());
    return out;
}

// gone_here, gone: elements that are out, of those that this rank counts and of piece_.
void ExplicitRanks::write_piece(const ExplicitState& s, std::vector<double> nodal,
                                std::span<const char> gone_here, std::span<const char> gone) {
    if (s.step == 0 && team_.any(!s.trouble.empty())) return;  // the run is refused
    const std::vector<std::int32_t>& number = s.piece->steps.number;
    u_.assign(3 * piece_.nodes.size(), 0.0);
    for (std::size_t k = 0; k < piece_.nodes.size(); ++k)
        if (const std::int32_t n = number[piece_.nodes[k]]; n >= 0)
            std::copy_n(&s.u[4 * std::size_t(n)], 3, &u_[3 * k]);
    nodal_ = std::move(nodal);
    const auto numbers = [](std::span<const char> flags) {
        std::vector<std::int32_t> out;
        for (std::size_t e = 0; e < flags.size(); ++e)
            if (flags[e]) out.push_back(static_cast<std::int32_t>(e));
        return out;
    };
    removed_ = numbers(gone);
    trouble_ = files_->add(s.time(), u_, nodal_, numbers(gone_here));
}

void ExplicitRanks::find_largest(Job& job) const {
    kestralum::find_largest(team_, job, piece_, u_, nodal_, removed_);
}

GatheredFrame ExplicitRanks::gather(const Job& job, ExplicitState& s, std::span<const double> residual) {
    GatheredFrame out;
    // nodes
    constexpr std::size_t groups = 4, width = 3 * groups;
    const std::vector<std::int32_t>& number = s.piece->steps.number;
    std::vector<double> own(width * piece_.owned, 0.0);
    for (std::int32_t k = 0; k < piece_.owned; ++k) {
        const std::int32_t n = number[piece_.nodes[k]];
        if (n < 0) continue;  // on no element
        double* to = &own[width * k];
        for (const LineDoubles* values : {&s.u, &s.v, &s.v_new})
            to = std::copy_n(&(*values)[4 * std::size_t(n)], 3, to);
        std::copy_n(&residual[3 * std::size_t(n)], 3, to);
    }
    const std::vector<double> all = gather_nodes(team_, partition_, own, width, false);
    const std::array<std::vector<double>*, groups> parts{&out.u, &out.v, &out.v_new, &out.residual};
    for (std::size_t g = 0; g < groups; ++g)
        for (std::size_t at = 3 * g; at < all.size(); at += width)
            parts[g]->insert(parts[g]->end(), &all[at], &all[at] + 3);
    // stresses
    const Mesh& mesh = s.piece->steps.mesh;
    std::vector<double> u(mesh.dof_num());
    for (std::size_t d = 0; d < u.size(); ++d) u[d] = s.u[4 * (d / 3) + d % 3];
    s.blocks->copy_stresses(s.points.stress, s.plastic_strain);
    logarithmic_strains(mesh, u, job.settings.threads(), s.points);
    std::vector<double> plastic = s.plastic_strain, nodal(std::size_t(stress_groups) * piece_.mesh.dof_num());
    std::vector<char> gone_here, gone;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        gone_here.push_back(s.erosion && s.blocks->is_removed(e));
    const PointResults points = points_of_piece(s.points, gone_here, plastic, gone);
    SilentProgress silent;
    mean_stress_strain(piece_.mesh, s.erosion ? live_elements(piece_.around, gone) : piece_.around, points,
                       plastic, 1, nodal, silent);
    if (files_) {
        write_piece(s, std::move(nodal), gone_here, gone);
        return out;
    }
    out.node_stress = gather_stresses(team_, partition_, piece_, nodal);
    // means of the elements
    const int count = element_type(mesh.element_type).points;
    const auto of_elements = [&](std::span<const float> means, int components) {
        const std::vector<double> by_rank = team_.gather(std::vector<double>(means.begin(), means.end()));
        std::vector<float> ordered(by_rank.size());
        std::vector<std::size_t> next(team_.size() + 1, 0);
        for (const std::int32_t rank : partition_.element_rank) next[rank + 1] += components;
        for (std::size_t k = 1; k < next.size(); ++k) next[k] += next[k - 1];
        for (std::size_t e = 0; e < partition_.element_rank.size() && !by_rank.empty(); ++e)
            for (int c = 0; c < components; ++c)
                ordered[components * e + c] = static_cast<float>(by_rank[next[partition_.element_rank[e]]++]);
        return ordered;
    };
    out.element_stress = of_elements(point_means(s.points.stress, count, 6), 6);
    out.element_plastic = of_elements(point_means(s.plastic_strain, count, 1), 1);
    if (!s.erosion) return out;
    const std::vector<float> out_of_all =
        of_elements(std::vector<float>(gone_here.begin(), gone_here.end()), 1);
    for (std::size_t e = 0; e < out_of_all.size(); ++e)
        if (out_of_all[e] > 0) out.removed.push_back(static_cast<std::int32_t>(e));
    return out;
}

}  // namespace kestralum
