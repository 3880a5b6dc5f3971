// Where things stand in a model or control file: the line of a token that a remark names, and the records of
// a section with their lines.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "input/model_sections.h"

namespace kestralum {

// Line, from 1, of a token of a text, from 1. 0 where the text has fewer tokens.
std::int64_t line_of_token(std::string_view text, std::int64_t token);

// Line of the first token of a text that is `name`; 0 for none.
std::int64_t line_of_name(std::string_view text, std::string_view name);

struct TextPlace {
    std::string file;       // as the remark names it
    std::int64_t line = 0;  // from 1; 0: the file as a whole
};

// The place that a remark begins with, "FILE: … token N …", "FILE:N: …" or "FILE: line N …"; none where it
// begins with no readable file.
std::optional<TextPlace> place_of_remark(std::string_view remark);

struct RecordPlace {
    std::int64_t line = 0;  // from 1; 0: not found
    std::string text;       // of the record, one blank between its tokens
};

// The records of all sections of one keyword in a model file, in the order of `names`: each begins with the
// next token of its name, one that opens a line before others. `sections`: of `text`, by split_sections().
std::vector<RecordPlace> record_places(std::string_view text, const ModelSections& sections, Keyword section,
                                       const std::vector<std::string>& names);

}  // namespace kestralum
