// What an Abaqus input deck says, as it stands in the file: nodes and elements under the file's numbers, sets
// as lists of entries; parts and where their instances stand. Nothing is looked up yet but names of parts and
// instances: decks may use what they define later.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mesh/inp_lines.h"
#include "mesh/inp_types.h"
#include "model/remarks.h"
#include "model/vector3.h"

namespace kestralum {

// Nodes and elements with numbers of their own: a part, or all that stands outside of parts.
struct InpBody {
    std::string name;                          // of the part, "" outside of parts
    std::vector<std::int32_t> node_number;     // of the file, in its order
    std::vector<double> coordinates;           // nodes × 3, in the file's unit
    std::vector<std::uint32_t> node_line;      // nodes: line of the file
    std::vector<std::int32_t> element_number;  // solids
    std::vector<std::int32_t> element_nodes;   // solids × nodes per element: numbers in the program's order
    std::vector<std::uint32_t> element_line;
    // Surface and line elements, springs and masses: they are no part of the mesh, but sets may have them.
    struct Flat {
        std::int32_t number;
        std::array<std::int32_t, 6> nodes;  // numbers, corners first; 0 fills, what is beyond is left out
        std::uint32_t line;
        std::int32_t corners;  // 3 or 4, 0 of the others
    };
    std::vector<Flat> flats;
    // Index ranges [first, last) read under one keyword, and the file that they stand in.
    struct Block {
        std::int32_t first, last, file;
    };
    std::vector<Block> node_blocks, element_blocks, flat_blocks;
};

struct InpInstance {
    std::string name;
    std::int32_t body = 0;
    Vec3 shift{};                   // before the rotation, in the file's unit
    Vec3 axis_begin{}, axis_end{};  // of the rotation
    double angle = 0;               // degrees, right-handed from begin to end
};

struct InpEntry {
    enum class What : std::int8_t {
        numbers,  // first, first + step … last
        nodes,    // index ranges [first, last) read under one keyword
        solids,
        flats,
        set,         // set number `first`
        elements_of  // the nodes of the elements of set number `first`
    };
    What what = What::numbers;
    std::int8_t side = -1;       // of a surface: 0 … 5, whole_face for surface elements; -1 for nodes
    std::int32_t instance = -1;  // whose numbers or set: index; -1 the owner's own
    std::int32_t first = 0, last = 0, step = 1;
    InpPlace place{};
};
inline constexpr std::int8_t whole_face = 6;

enum class InpSetKind : std::int8_t { nodes, elements, surface };

// Who owns a set: a part, an instance, or the deck (body 0, no instance).
struct InpOwner {
    std::int32_t body = 0, instance = -1;
    bool operator==(const InpOwner&) const = default;
};

struct InpSet {
    std::string name;
    InpSetKind kind = InpSetKind::nodes;
    InpOwner owner;
    bool internal = false;  // made by a program for its own use
};

struct InpDeck {
    std::vector<InpBody> bodies{1};
    std::vector<InpInstance> instances;
    std::vector<InpSet> sets;
    // All entries in the file's order, with the set that they belong to: a set that is named in an entry
    // counts with what it holds there.
    std::vector<std::pair<std::int32_t, InpEntry>> entries;

    InpType type;           // of all solids; Role::unknown while there is none
    std::string type_word;  // as the file has it

    std::int32_t find_body(std::string_view name) const;      // a part; -1 none
    std::int32_t find_instance(std::string_view name) const;  // -1 none
    // A set by its name as the owner sees it: an instance sees its part's too. -1 none.
    std::int32_t find_set(InpSetKind kind, InpOwner owner, std::string_view name) const;
    // Each adds one of a new name and returns its number; add_set() also finds the one that is there.
    std::int32_t add_body(const std::string& name);
    std::int32_t add_instance(const std::string& name, std::int32_t body);
    std::int32_t add_set(InpSetKind kind, InpOwner owner, const std::string& name);

private:
    std::unordered_map<std::string, std::int32_t> names_;  // of all three, in capitals, with what they name
};

// Reads the deck. False with the error of `lines`, or without one where its `progress` asks to stop. Notices:
// what was passed over, and the elements that are no solids.
bool read_inp_deck(InpLines& lines, std::string_view file_name, InpDeck& deck, Remarks& remarks);

}  // namespace kestralum
