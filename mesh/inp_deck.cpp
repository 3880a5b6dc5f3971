#include "mesh/inp_deck.h"

namespace kestralum {

namespace {

std::string key(char what, InpOwner owner, std::string_view name) {
    return what + std::to_string(owner.body) + "," + std::to_string(owner.instance) + "," + upper_case(name);
}

char letter(InpSetKind kind) {
    return kind == InpSetKind::nodes ? 'n' : kind == InpSetKind::elements ? 'e' : 's';
}

std::int32_t find(const std::unordered_map<std::string, std::int32_t>& names, const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? -1 : found->second;
}

}  // namespace

std::int32_t InpDeck::find_body(std::string_view name) const {
    return find(names_, key('b', {}, name));
}

std::int32_t InpDeck::find_instance(std::string_view name) const {
    return find(names_, key('i', {}, name));
}

std::int32_t InpDeck::find_set(InpSetKind kind, InpOwner owner, std::string_view name) const {
    const std::int32_t own = find(names_, key(letter(kind), owner, name));
    if (own >= 0 || owner.instance < 0) return own;
    return find(names_, key(letter(kind), {owner.body, -1}, name));
}

std::int32_t InpDeck::add_body(const std::string& name) {
    const auto number = static_cast<std::int32_t>(bodies.size());
    bodies.emplace_back().name = name;
    return names_[key('b', {}, name)] = number;
}

std::int32_t InpDeck::add_instance(const std::string& name, std::int32_t body) {
    const auto number = static_cast<std::int32_t>(instances.size());
    instances.emplace_back().name = name;
    instances.back().body = body;
    return names_[key('i', {}, name)] = number;
}

std::int32_t InpDeck::add_set(InpSetKind kind, InpOwner owner, const std::string& name) {
    const auto [place, added] =
        names_.try_emplace(key(letter(kind), owner, name), static_cast<std::int32_t>(sets.size()));
    if (added) sets.push_back({name, kind, owner, false});
    return place->second;
}

}  // namespace kestralum
