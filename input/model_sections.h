// The first look at a model file: its tokens parted into sections, nothing converted yet.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "input/input_remarks.h"

namespace kestralum {

enum class Keyword {
    material_info,
    mode_num,
    step_num,
    iteration,
    parameter,
    part_info,
    boundary_condition,
    apply_force,
    rigid_element,
    rigid_force,
    rigid_combine,
    set_info,
    load_info,
    load_combination,
    tie_info,
    hexahedra,
    comment,
    end,
};

// The first keyword, in the order of the table, that the token begins with.
std::optional<Keyword> keyword_of(std::string_view token);

// The keyword's plain spelling.
const char* spelling(Keyword keyword);

// mode_num, step_num and iteration: a single integer follows, hexahedra: a single word; no section.
constexpr bool has_one_value(Keyword keyword) {
    return keyword == Keyword::mode_num || keyword == Keyword::step_num || keyword == Keyword::iteration ||
           keyword == Keyword::hexahedra;
}

// A top-level token and what belongs to it: the tokens up to the closing "%" for a section, the value
// and the one token passed over after it for mode_num, step_num, iteration and hexahedra, nothing for a
// comment marker.
struct FileSection {
    Keyword keyword;
    Token opening;
    std::vector<Token> tokens;
    Token closing;  // empty text where the section ends with the file
};

struct ModelSections {
    std::vector<FileSection> sections;
    Token end;  // END or the token that is no keyword; empty text at the end of the file
};

// The tokens refer to `text`, which must outlive them. Ends early where `progress` asks to stop.
ModelSections split_sections(std::string_view text, const Progress& progress);

}  // namespace kestralum
