#include "mesh/inp_sets.h"

namespace kestralum {

namespace {

std::string type_of(const InpKeyword& keyword) {
    const std::string* const type = keyword.find("TYPE");
    return type ? upper_case(*type) : "ELEMENT";
}

}  // namespace

bool is_inp_surface(const InpKeyword& keyword) {
    return !keyword.find("COMBINE") && (type_of(keyword) == "ELEMENT" || type_of(keyword) == "NODE");
}

// Adds an entry to a set; numbers one after the other become one range.
void InpSetReader::add_entry(std::int32_t set, InpEntry entry) {
    if (!deck_.entries.empty() && entry.what == InpEntry::What::numbers && entry.step == 1) {
        auto& [last_set, last] = deck_.entries.back();
        if (last_set == set && last.what == entry.what && last.step == 1 && last.side == entry.side &&
            last.instance == entry.instance && last.place.file == entry.place.file &&
            std::int64_t{last.last} + 1 == entry.first) {
            last.last = entry.last;
            return;
        }
    }
    deck_.entries.emplace_back(set, entry);
}

// INSTANCE= of a set: the numbers and names in it are that instance's.
bool InpSetReader::find_scope(const InpKeyword& keyword, InpOwner owner, InpOwner& scope) {
    scope = owner;
    const std::string* const name = keyword.find("INSTANCE");
    if (!name) return true;
    const std::int32_t instance = deck_.find_instance(*name);
    if (instance < 0) return lines_.fail(*name, "the name of an instance");
    scope = {deck_.instances[instance].body, instance};
    return true;
}

bool InpSetReader::read_set(const InpKeyword& keyword, InpSetKind kind, InpOwner owner) {
    const bool nodes = kind == InpSetKind::nodes;
    const std::string* const name = nodes ? lines_.needed(keyword, "NSET", "NSET= with a name")
                                          : lines_.needed(keyword, "ELSET", "ELSET= with a name");
    InpOwner scope;
    if (!name || !find_scope(keyword, owner, scope)) return false;
    const std::int32_t set = deck_.add_set(kind, owner, *name);
    if (keyword.find("INTERNAL")) deck_.sets[set].internal = true;
    if (const std::string* const elements = nodes ? keyword.find("ELSET") : nullptr) {
        InpEntry entry{InpEntry::What::elements_of};
        if (!find_named(*elements, InpSetKind::elements, scope, entry)) return false;
        if (entry.what != InpEntry::What::set) return lines_.fail(*elements, "the name of an element set");
        entry.what = InpEntry::What::elements_of;
        add_entry(set, entry);
    }
    if (!lines_.open_input(keyword)) return false;
    const bool generate = keyword.find("GENERATE") != nullptr;
    std::string_view line;
    while (lines_.next_data(line))
        if (!(generate ? read_generate(line, set, scope) : read_members(line, set, kind, scope)))
            return false;
    return lines_.sound();
}

bool InpSetReader::read_generate(std::string_view line, std::int32_t set, InpOwner scope) {
    InpFields fields(line);
    InpEntry entry;
    entry.instance = scope.instance;
    entry.place = lines_.place();
    if (!fields.next_integer(entry.first) || entry.first < 1)
        return lines_.fail(fields.token(), "a first number");
    if (!fields.next_integer(entry.last) || entry.last < entry.first)
        return lines_.fail(fields.token(), "a last number, at least the first,");
    if (!fields.at_end() && (!fields.next_integer(entry.step) || entry.step < 1))
        return lines_.fail(fields.token(), "a step of at least 1");
    if (!fields.at_end()) return lines_.fail(fields.next(), "the end of the line");
    add_entry(set, entry);
    return true;
}

bool InpSetReader::read_members(std::string_view line, std::int32_t set, InpSetKind kind, InpOwner scope) {
    InpFields fields(line);
    while (!fields.at_end()) {
        if (lines_.stopped()) return false;
        InpEntry entry;
        if (!read_member(fields, kind, scope, entry)) return false;
        if (entry.first != 0 || entry.what == InpEntry::What::set) add_entry(set, entry);
    }
    return true;
}

// A number, or the name of a set of that kind; an empty field leaves the number 0.
bool InpSetReader::read_member(InpFields& fields, InpSetKind kind, InpOwner scope, InpEntry& entry) {
    entry.instance = scope.instance;
    entry.place = lines_.place();
    std::int32_t number = 0;
    if (fields.next_integer(number)) {
        entry.first = entry.last = number;
        return number > 0 || lines_.fail(fields.token(), "a number of at least 1");
    }
    return fields.token().empty() || find_named(fields.token(), kind, scope, entry);
}

// "SET", "INSTANCE.SET" and "INSTANCE.12".
bool InpSetReader::find_named(std::string_view name, InpSetKind kind, InpOwner scope, InpEntry& entry) {
    constexpr std::size_t longest = 255;  // names have 80 characters; each dot costs a look-up
    if (name.size() > longest) return lines_.fail(name, "a name of at most 255 characters");
    entry.place = lines_.place();
    entry.what = InpEntry::What::set;
    entry.instance = scope.instance;
    entry.first = deck_.find_set(kind, scope, name);
    for (std::size_t dot = name.find('.'); entry.first < 0 && dot != name.npos;
         dot = name.find('.', dot + 1)) {
        entry.instance = deck_.find_instance(name.substr(0, dot));
        if (entry.instance < 0) continue;
        const std::string_view rest = name.substr(dot + 1);
        InpFields number(rest);
        if (number.next_integer(entry.first) && entry.first > 0) {
            entry.what = InpEntry::What::numbers;
            entry.last = entry.first;
            return true;
        }
        entry.first = deck_.find_set(kind, {deck_.instances[entry.instance].body, entry.instance}, rest);
    }
    return entry.first >= 0 ||
           lines_.fail(name, kind == InpSetKind::nodes ? "a node number or a node set's name"
                                                       : "an element number or a set's name");
}

bool InpSetReader::read_surface(const InpKeyword& keyword, InpOwner owner) {
    const bool nodes = type_of(keyword) == "NODE";
    const std::string* const name = lines_.needed(keyword, "NAME", "NAME=");
    if (!name) return false;
    const std::int32_t set = deck_.add_set(InpSetKind::surface, owner, *name);
    if (keyword.find("INTERNAL")) deck_.sets[set].internal = true;
    if (!lines_.open_input(keyword)) return false;
    std::string_view line;
    while (lines_.next_data(line)) {
        InpFields fields(line);
        InpEntry entry;
        if (!read_member(fields, nodes ? InpSetKind::nodes : InpSetKind::elements, owner, entry))
            return false;
        if (entry.first == 0 && entry.what == InpEntry::What::numbers)
            return lines_.fail("", "a number or the name of a set");
        if (!nodes && !read_side(fields, entry.side)) return false;
        add_entry(set, entry);
    }
    return lines_.sound();
}

bool InpSetReader::read_side(InpFields& fields, std::int8_t& side) {
    const std::string word = upper_case(fields.next());
    if (word.size() == 2 && word[0] == 'S' && word[1] >= '1' && word[1] <= '6')
        side = static_cast<std::int8_t>(word[1] - '1');
    else if (word == "SPOS" || word == "SNEG")
        side = whole_face;
    else
        return lines_.fail(word, "a side, S1 to S6,");
    return fields.at_end() || lines_.fail(fields.next(), "the end of the line");
}

}  // namespace kestralum
