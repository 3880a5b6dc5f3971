// The domains and boundary faces of a Netgen file as groups.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "mesh/part_groups.h"
#include "model/progress.h"

namespace kestralum {

// What the reader of nodes and elements knows of a file.
struct VolText {
    std::string_view text;
    bool comment_lines;                              // lines that begin with '#' hold no tokens
    std::array<std::array<std::size_t, 2>, 2> read;  // bytes [begin, end) of elements and points, ascending
    std::span<const std::int32_t> domains;           // of each element
    std::int32_t node_num;
};

// Domains first, then faces, both by number: named by "materials" and "bcnames", numbers of one name
// together, others "domain_N" and "face_N" (boundary number N). One domain without a name is no group. No
// faces where the section of surface elements cannot be followed, no names where theirs cannot; none at all
// where `progress` asks to stop.
std::vector<RawGroup> find_vol_groups(const VolText& file, const Progress& progress);

}  // namespace kestralum
