#include "mesh/inp_groups.h"

#include <algorithm>
#include <compare>

#include "mesh/word_counts.h"

namespace kestralum {

namespace {

// One entry of a set when its numbers have been looked up.
struct Member {
    std::int32_t instance;  // -1: the owner's own
    std::int32_t place;     // in the body's nodes, or in its solids and then flats
    std::int8_t side;       // as in InpEntry
    auto operator<=>(const Member&) const = default;
};

template <typename T>
void sort_unique(std::vector<T>& values) {
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

class InpGroups {
public:
    InpGroups(InpLines& lines, const InpDeck& deck, const InpLayout& layout, const PartMesh& mesh,
              std::span<const int> sides, std::int64_t most_entries, const Progress& progress)
        : lines_(lines),
          deck_(deck),
          layout_(layout),
          mesh_(mesh),
          sides_(sides),
          left_(most_entries),
          progress_(progress),
          members_(deck.sets.size()),
          unique_(deck.sets.size(), 0),
          missing_(deck.sets.size(), 0) {}

    bool find(std::vector<RawGroup>& groups, std::string_view file_name, std::vector<std::string>& notices) {
        for (const auto& [set, entry] : deck_.entries)
            if (!add_entry(set, entry)) return false;
        std::vector<std::vector<std::int32_t>> sets_of(deck_.bodies.size());
        for (std::size_t s = 0; s < deck_.sets.size(); ++s)
            if (!deck_.sets[s].internal)
                sets_of[deck_.sets[s].owner.body].push_back(static_cast<std::int32_t>(s));
        for (std::size_t i = 0; i < deck_.instances.size(); ++i) {
            const auto instance = static_cast<std::int32_t>(i);
            if (!add_groups(sets_of[deck_.instances[i].body], instance, groups)) return false;
        }
        if (!add_groups(sets_of[0], -1, groups)) return false;
        if (!dropped_.empty())
            notices.push_back("file " + std::string(file_name) +
                              ": left out of its sets, being of no solid element: " + dropped_.listed());
        return true;
    }

private:
    const InpBody& body_of(std::int32_t instance) const { return deck_.bodies[layout_.piece(instance).body]; }
    // Room for so many more entries of all sets.
    bool take(std::int64_t entries, const InpPlace& place) {
        left_ -= entries;
        if (left_ < 0)
            return lines_.refuse(place, "its sets have more entries together than there is room for");
        work_ += entries + 1;
        if (work_ < 4096) return true;
        work_ = 0;
        return !progress_.cancelled();
    }

    bool add_entry(std::int32_t set, const InpEntry& entry) {
        const InpSet& to = deck_.sets[set];
        const std::int32_t body = entry.instance >= 0 ? deck_.instances[entry.instance].body : to.owner.body;
        const bool nodes = to.kind == InpSetKind::nodes || (to.kind == InpSetKind::surface && entry.side < 0);
        const std::size_t first = members_[set].size();
        const auto flats_begin = static_cast<std::int32_t>(deck_.bodies[body].element_number.size());
        bool good = true;
        switch (entry.what) {
            case InpEntry::What::numbers:
                good = add_numbers(set, entry, body, nodes);
                break;
            case InpEntry::What::nodes:
            case InpEntry::What::solids:
                good = add_range(set, entry, 0);
                break;
            case InpEntry::What::flats:
                good = add_range(set, entry, flats_begin);
                break;
            case InpEntry::What::set:
                good = add_set(set, entry);
                break;
            case InpEntry::What::elements_of:
                good = add_nodes_of(set, entry);
        }
        if (!good) return false;
        if (to.kind == InpSetKind::surface)
            for (std::size_t m = first; m < members_[set].size(); ++m)
                if (!set_side(members_[set][m], entry, to.owner)) return false;
        if (entry.what == InpEntry::What::set || entry.what == InpEntry::What::elements_of)
            drop_repeated(set);
        return true;
    }
    // A set that names itself, or another one again and again, would grow without end. Looked at each time
    // that it has doubled.
    void drop_repeated(std::int32_t set) {
        constexpr std::size_t few = 256;
        if (members_[set].size() < 2 * unique_[set] + few) return;
        sort_unique(members_[set]);
        unique_[set] = members_[set].size();
    }
    bool add_numbers(std::int32_t set, const InpEntry& entry, std::int32_t body, bool nodes) {
        const InpBody& of = deck_.bodies[body];
        const NodeNumbers& numbers = nodes ? layout_.numbers[body].nodes : layout_.numbers[body].elements;
        const std::int64_t wanted = (std::int64_t{entry.last} - entry.first) / entry.step + 1;
        const auto there = static_cast<std::int64_t>(nodes ? of.node_number.size()
                                                           : of.element_number.size() + of.flats.size());
        if (!take(std::min(wanted, there) + 1, entry.place)) return false;
        std::vector<Member>& to = members_[set];
        const std::size_t before = to.size();
        if (wanted <= there) {
            for (std::int64_t number = entry.first; number <= entry.last; number += entry.step)
                if (const std::int32_t at = numbers.find(number); at >= 0)
                    to.push_back({entry.instance, at, -1});
        } else {  // more than there are: each of these is asked
            for (std::int32_t at = 0; at < there; ++at) {
                const std::int32_t number = nodes ? of.node_number[at]
                                            : std::size_t(at) < of.element_number.size()
                                                ? of.element_number[at]
                                                : of.flats[at - of.element_number.size()].number;
                if (number >= entry.first && number <= entry.last && (number - entry.first) % entry.step == 0)
                    to.push_back({entry.instance, at, -1});
            }
        }
        missing_[set] += wanted - static_cast<std::int64_t>(to.size() - before);
        return true;
    }
    bool add_range(std::int32_t set, const InpEntry& entry, std::int32_t offset) {
        if (!take(entry.last - entry.first, entry.place)) return false;
        for (std::int32_t at = entry.first; at < entry.last; ++at)
            members_[set].push_back({entry.instance, offset + at, -1});
        return true;
    }
    bool add_set(std::int32_t set, const InpEntry& entry) {
        const std::size_t count = members_[entry.first].size();
        if (!take(static_cast<std::int64_t>(count) + 1, entry.place)) return false;
        for (std::size_t m = 0; m < count; ++m) {  // by place: a set may name itself
            Member member = members_[entry.first][m];
            if (member.instance < 0) member.instance = entry.instance;
            members_[set].push_back(member);
        }
        return true;
    }
    bool add_nodes_of(std::int32_t set, const InpEntry& entry) {
        const std::size_t per = deck_.type.nodes;
        std::vector<Member> nodes;
        for (Member member : members_[entry.first]) {
            if (member.instance < 0) member.instance = entry.instance;
            if (!take(static_cast<std::int64_t>(per), entry.place)) return false;
            const std::int32_t body = owner_body(member, deck_.sets[entry.first].owner);
            const InpBody& of = deck_.bodies[body];
            const std::size_t solids = of.element_number.size();
            if (std::size_t(member.place) < solids) {
                for (std::size_t k = 0; k < per; ++k)
                    nodes.push_back({member.instance, of.element_nodes[per * member.place + k] - 1, -1});
                continue;
            }
            for (const std::int32_t number : of.flats[member.place - solids].nodes)
                if (const std::int32_t at = number > 0 ? layout_.numbers[body].nodes.find(number) : -1;
                    at >= 0)
                    nodes.push_back({member.instance, at, -1});
        }
        members_[set].insert(members_[set].end(), nodes.begin(), nodes.end());
        return true;
    }
    std::int32_t owner_body(const Member& member, const InpOwner& owner) const {
        return member.instance >= 0 ? deck_.instances[member.instance].body : owner.body;
    }
    bool set_side(Member& member, const InpEntry& entry, const InpOwner& owner) {
        const InpBody& of = deck_.bodies[owner_body(member, owner)];
        member.side = entry.side;
        if (entry.side < 0 || std::size_t(member.place) >= of.element_number.size()) return true;
        if (std::size_t(entry.side) < sides_.size()) return true;
        return lines_.refuse(
            entry.place,
            "a surface has side " +
                (entry.side == whole_face ? "SPOS or SNEG" : "S" + std::to_string(entry.side + 1)) +
                " of element " + std::to_string(of.element_number[member.place]) +
                ", a solid with sides S1 to S" + std::to_string(sides_.size()));
    }

    // The sets of one body as groups, for one of its instances or, -1, for what stands outside of parts.
    bool add_groups(const std::vector<std::int32_t>& sets, std::int32_t instance,
                    std::vector<RawGroup>& groups) {
        const std::size_t begin = groups.size();
        std::vector<std::int32_t> set_of;
        std::vector<std::vector<std::int32_t>>
            flat_nodes;  // of each new group: nodes of its surface elements
        for (const std::int32_t s : sets) {
            const InpSet& set = deck_.sets[s];
            if (!take(0, lines_.place())) return false;
            if (set.owner.instance >= 0 && set.owner.instance != instance) continue;
            const auto entries = static_cast<std::int64_t>(members_[s].size());
            if (!take(entries + 16, lines_.place())) return false;
            RawGroup& group = groups.emplace_back();
            flat_nodes.emplace_back();
            group.name = (instance >= 0 ? deck_.instances[instance].name + "." : "") + set.name;
            std::int64_t dropped = missing_[s];
            for (Member member : members_[s]) {
                if (member.instance < 0) member.instance = instance;
                const bool node =
                    set.kind == InpSetKind::nodes || (set.kind == InpSetKind::surface && member.side < 0);
                dropped += !(node ? add_node(member, group) : add_element(member, group, flat_nodes.back()));
            }
            if (dropped > 0) dropped_.add(group.name, dropped);
            finish(group);
            set_of.push_back(s);
        }
        drop_doubles(set_of, begin, groups, flat_nodes);
        return true;
    }
    // 1-based number in the mesh of a node of the body, 0 where no solid has it.
    std::int32_t number_of(std::int32_t instance, std::int32_t place) const {
        const InpPiece& piece = layout_.piece(instance);
        const std::int32_t kept = layout_.numbers[piece.body].kept[place];
        return kept > 0 ? piece.first_node + kept : 0;
    }
    bool add_node(const Member& member, RawGroup& group) const {
        const std::int32_t number = number_of(member.instance, member.place);
        if (number > 0) group.nodes.push_back(number);
        return number > 0;
    }
    bool add_element(const Member& member, RawGroup& group, std::vector<std::int32_t>& flat_nodes) const {
        const InpPiece& piece = layout_.piece(member.instance);
        const InpBody& of = deck_.bodies[piece.body];
        const std::size_t solids = of.element_number.size();
        if (std::size_t(member.place) < solids) {
            const std::int32_t element = piece.first_element + member.place;
            if (member.side < 0)
                group.elements.push_back(element);
            else
                group.faces.push_back({element, sides_[member.side]});
            return true;
        }
        const InpBody::Flat& flat = of.flats[member.place - solids];
        std::array<std::int32_t, 6> nodes{};
        std::size_t count = 0;
        for (; count < nodes.size() && flat.nodes[count] > 0; ++count) {
            const std::int32_t place = layout_.numbers[piece.body].nodes.find(flat.nodes[count]);
            nodes[count] = place < 0 ? 0 : number_of(member.instance, place);
            if (nodes[count] == 0) return false;
        }
        std::vector<std::int32_t>& to = flat.corners > 0 ? flat_nodes : group.nodes;
        to.insert(to.end(), nodes.begin(), nodes.begin() + std::ptrdiff_t(count));
        if (flat.corners > 0)
            group.corners.push_back({nodes[0], nodes[1], nodes[2], flat.corners == 4 ? nodes[3] : 0});
        return true;
    }
    // A set with solids is one of bodies, whatever else it lists.
    static void finish(RawGroup& group) {
        if (group.elements.empty() || !group.faces.empty()) return;
        group.corners.clear();
        group.nodes.clear();
    }
    // Programs write a body as an element set and as a node set of the same name.
    void drop_doubles(const std::vector<std::int32_t>& set_of, std::size_t begin,
                      std::vector<RawGroup>& groups,
                      const std::vector<std::vector<std::int32_t>>& flat_nodes) const {
        std::unordered_map<std::string, std::size_t> bodies;
        for (std::size_t k = begin; k < groups.size(); ++k)
            if (deck_.sets[set_of[k - begin]].kind == InpSetKind::elements) bodies.emplace(groups[k].name, k);
        std::vector<char> doubles(groups.size(), 0);
        for (std::size_t k = begin; k < groups.size(); ++k) {
            const auto body = bodies.find(groups[k].name);
            if (deck_.sets[set_of[k - begin]].kind != InpSetKind::nodes || body == bodies.end()) continue;
            sort_unique(groups[k].nodes);
            doubles[k] = nodes_of(groups[body->second], flat_nodes[body->second - begin]) == groups[k].nodes;
        }
        std::size_t kept = begin;
        for (std::size_t k = begin; k < groups.size(); ++k) {
            if (doubles[k]) continue;
            if (kept != k) groups[kept] = std::move(groups[k]);
            ++kept;
        }
        groups.resize(kept);
    }
    std::vector<std::int32_t> nodes_of(const RawGroup& group, std::vector<std::int32_t> nodes) const {
        if (!group.elements.empty()) nodes.clear();
        nodes.insert(nodes.end(), group.nodes.begin(), group.nodes.end());
        const std::int64_t per = nodes_per_element(mesh_.kind);
        for (const std::int32_t e : group.elements)
            nodes.insert(nodes.end(), mesh_.connectivity.begin() + per * e,
                         mesh_.connectivity.begin() + per * (e + 1));
        sort_unique(nodes);
        return nodes;
    }

    InpLines& lines_;
    const InpDeck& deck_;
    const InpLayout& layout_;
    const PartMesh& mesh_;
    const std::span<const int> sides_;
    std::int64_t left_, work_ = 0;
    const Progress& progress_;
    std::vector<std::vector<Member>> members_;  // of each set
    std::vector<std::size_t> unique_;           // of each set: how many it had when doubles went
    std::vector<std::int64_t> missing_;         // of each set: numbers that are no node's or element's
    WordCounts dropped_;
};

}  // namespace

std::vector<int> find_inp_sides(ElementKind kind, std::span<const std::int32_t> before,
                                std::span<const std::int32_t> after) {
    const std::span<const int> order = inp_node_order(kind);
    std::vector<int> faces;
    for (int side = 0; !inp_side_corners(kind, side).empty(); ++side) {
        std::uint32_t corners = 0;  // a bit for each local node of the element as it is now
        for (const int from : inp_side_corners(kind, side)) {
            const auto local = std::find(order.begin(), order.end(), from) - order.begin();
            corners |= 1u << (std::find(after.begin(), after.end(), before[local]) - after.begin());
        }
        for (int face = 0; face < face_table(kind).faces; ++face) {
            std::uint32_t of_face = 0;
            for (const int local : face_corners(kind, face)) of_face |= 1u << local;
            if (of_face == corners) faces.push_back(face);
        }
    }
    return faces;
}

bool find_inp_groups(InpLines& lines, const InpDeck& deck, const InpLayout& layout, const PartMesh& mesh,
                     std::span<const int> sides, std::int64_t most_entries, std::string_view file_name,
                     std::vector<RawGroup>& groups, std::vector<std::string>& notices,
                     const Progress& progress) {
    return InpGroups(lines, deck, layout, mesh, sides, most_entries, progress)
        .find(groups, file_name, notices);
}

}  // namespace kestralum
