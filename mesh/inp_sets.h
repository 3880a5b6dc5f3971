// Reads the sets and surfaces of an input deck: lists, ranges, and names of other sets.
#pragma once

#include "mesh/inp_deck.h"

namespace kestralum {

// A surface of sides of elements or of nodes; others are defined by rules that are not read.
bool is_inp_surface(const InpKeyword& keyword);

// Each reads the data lines under one keyword into the deck's entries, for a set of `owner`. False with the
// error of the lines, or where they were stopped.
class InpSetReader {
public:
    InpSetReader(InpLines& lines, InpDeck& deck) : lines_(lines), deck_(deck) {}

    bool read_set(const InpKeyword& keyword, InpSetKind kind, InpOwner owner);
    bool read_surface(const InpKeyword& keyword, InpOwner owner);  // where is_inp_surface()

private:
    void add_entry(std::int32_t set, InpEntry entry);
    bool find_scope(const InpKeyword& keyword, InpOwner owner, InpOwner& scope);
    bool read_generate(std::string_view line, std::int32_t set, InpOwner scope);
    bool read_members(std::string_view line, std::int32_t set, InpSetKind kind, InpOwner scope);
    bool read_member(InpFields& fields, InpSetKind kind, InpOwner scope, InpEntry& entry);
    bool find_named(std::string_view name, InpSetKind kind, InpOwner scope, InpEntry& entry);
    bool read_side(InpFields& fields, std::int8_t& side);

    InpLines& lines_;
    InpDeck& deck_;
};

}  // namespace kestralum
