// A surface that changes in a run: where elements erode, faces go and others are laid bare.
#include <algorithm>
#include <iterator>
#include <utility>

#include "analysis/explicit/explicit_contact.h"
#include "analysis/explicit/explicit_walls.h"
#include "model/mesh_sets.h"

namespace kestralum {

namespace {

// Of each item of the former list its place in the list in force, -1 where it has gone. `key_of`: what tells
// items apart.
template <typename Items, typename KeyOf>
std::vector<std::int32_t> new_places(const Items& former, const Items& now, KeyOf key_of) {
    using Key = decltype(key_of(now[0]));
    std::vector<std::pair<Key, std::int32_t>> places;
    for (std::size_t k = 0; k < now.size(); ++k)
        places.emplace_back(key_of(now[k]), static_cast<std::int32_t>(k));
    std::sort(places.begin(), places.end());
    std::vector<std::int32_t> out;
    for (const auto& item : former) {
        const std::pair<Key, std::int32_t> wanted{key_of(item), 0};
        const auto at = std::lower_bound(places.begin(), places.end(), wanted);
        out.push_back(at != places.end() && at->first == wanted.first ? at->second : -1);
    }
    return out;
}

}  // namespace

void ContactSet::renew(std::span<const Part> parts, const Mesh& mesh, std::vector<SurfaceTriangle> surface) {
    std::vector<ContactPair> records;
    for (const Active& active : pairs_) records.push_back(active.pair);
    ContactSet fresh(records, parts, mesh, std::move(surface));
    const auto triangles =
        new_places(surface_.triangles(), fresh.surface_.triangles(), [](const SurfaceTriangle& t) {
            return std::pair{t.node, t.part};
        });
    const auto edges = new_places(surface_.edges(), fresh.surface_.edges(), [](const FeatureEdge& e) {
        return std::pair{e.node, e.part};
    });
    // what a contact with a triangle that has gone knew is of no use
    const auto kept = [&](ContactMemory memory) {
        if (memory.triangle < 0) return memory;
        memory.triangle = triangles[memory.triangle];
        return memory.triangle < 0 ? ContactMemory{} : memory;
    };
    for (std::size_t p = 0; p < pairs_.size(); ++p) {
        const Active& from = pairs_[p];
        Active& to = fresh.pairs_[p];
        to.share = from.share;
        to.begun = from.begun;
        to.held = from.held;
        to.covered = from.covered;
        for (std::size_t s = 0; s < 2; ++s)
            for (std::size_t i = 0; i < from.side[s].nodes.size(); ++i) {
                const std::vector<std::int32_t>& nodes = to.side[s].nodes;
                const auto at = std::lower_bound(nodes.begin(), nodes.end(), from.side[s].nodes[i]);
                if (at == nodes.end() || *at != from.side[s].nodes[i]) continue;
                to.side[s].memory[static_cast<std::size_t>(at - nodes.begin())] =
                    kept(from.side[s].memory[i]);
            }
        std::vector<std::pair<std::array<std::int32_t, 2>, std::size_t>> crossing;
        for (std::size_t k = 0; k < from.edges.pairs.size(); ++k) {
            const std::array<std::int32_t, 2> pair{edges[from.edges.pairs[k][0]],
                                                   edges[from.edges.pairs[k][1]]};
            if (pair[0] >= 0 && pair[1] >= 0) crossing.emplace_back(pair, k);
        }
        std::sort(crossing.begin(), crossing.end());
        for (const auto& [pair, k] : crossing) {
            to.edges.pairs.push_back(pair);
            to.edges.memory.push_back(kept(from.edges.memory[k]));
        }
    }
    fresh.most_ = most_;
    fresh.peaks = peaks;
    fresh.deepest_ = deepest_;
    fresh.margin_share_ = margin_share_;
    fresh.d_time_ = d_time_;
    fresh.step_ = step_;
    fresh.after_ = after_;
    *this = std::move(fresh);
}

void WallSet::add_nodes(std::span<const std::int32_t> nodes, const Mesh& mesh) {
    std::vector<std::int32_t> all;
    std::ranges::set_union(nodes_, nodes, std::back_inserter(all));
    for (Placed& placed : walls_) {
        const std::vector<std::int32_t> former = nodes_of(placed);
        std::vector<std::int32_t> own = all;
        if (const MeshSet* set =
                placed.wall.set_name.empty() ? nullptr : find_set(mesh, placed.wall.set_name)) {
            own.clear();
            std::ranges::set_intersection(all, set->nodes, std::back_inserter(own));
            placed.own_nodes = own;
        }
        placed.touches.reserve(all.size());
        if (placed.sticking.empty()) continue;
        std::vector<Sticking> sticking(own.size());
        for (std::size_t i = 0; i < former.size(); ++i)
            sticking[static_cast<std::size_t>(std::ranges::lower_bound(own, former[i]) - own.begin())] =
                placed.sticking[i];
        placed.sticking = std::move(sticking);
    }
    nodes_ = std::move(all);
}

}  // namespace kestralum
