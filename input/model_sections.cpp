#include "input/model_sections.h"

#include "model/token_reader.h"

namespace kestralum {

namespace {

struct KeywordRow {
    const char* spelling;
    Keyword keyword;
};

// The order matters: a token is compared with the beginnings in turn.
constexpr KeywordRow keyword_rows[] = {
    {"material_info", Keyword::material_info},
    {"mode_num", Keyword::mode_num},
    {"step_num", Keyword::step_num},
    {"mode_num||step_num", Keyword::mode_num},
    {"iteration", Keyword::iteration},
    {"parameter", Keyword::parameter},
    {"part_info", Keyword::part_info},
    {"boundary_condition", Keyword::boundary_condition},
    {"apply_force", Keyword::apply_force},
    {"rigid_element", Keyword::rigid_element},
    {"rigid_force", Keyword::rigid_force},
    {"rigid_combine", Keyword::rigid_combine},
    {"set_info", Keyword::set_info},
    {"load_info", Keyword::load_info},
    {"load_combination", Keyword::load_combination},
    {"tie_info", Keyword::tie_info},
    {"hexahedra", Keyword::hexahedra},
    {"%", Keyword::comment},
    {"END", Keyword::end},
};

Token next_token(TokenReader& reader) {
    const std::string_view text = reader.next();
    return {text, reader.token_number()};
}

void read_until_closed(TokenReader& reader, FileSection& section, const Progress& progress) {
    while (!progress.cancelled()) {
        const Token token = next_token(reader);
        if (token.text.empty() || token.text.starts_with('%')) {
            section.closing = token;
            return;
        }
        section.tokens.push_back(token);
    }
}

}  // namespace

std::optional<Keyword> keyword_of(std::string_view token) {
    for (const KeywordRow& row : keyword_rows)
        if (token.starts_with(row.spelling)) return row.keyword;
    return std::nullopt;
}

const char* spelling(Keyword keyword) {
    for (const KeywordRow& row : keyword_rows)
        if (row.keyword == keyword) return row.spelling;
    return "";
}

ModelSections split_sections(std::string_view text, const Progress& progress) {
    ModelSections model;
    TokenReader reader(text);
    while (!progress.cancelled()) {
        const Token token = next_token(reader);
        const auto keyword = keyword_of(token.text);
        if (!keyword || *keyword == Keyword::end) {
            model.end = token;
            return model;
        }
        FileSection& section = model.sections.emplace_back(FileSection{*keyword, token, {}, {}});
        if (*keyword == Keyword::comment) continue;
        if (!has_one_value(*keyword)) {
            read_until_closed(reader, section, progress);
            continue;
        }
        for (int k = 0; k < 2; ++k) {
            const Token value = next_token(reader);
            if (!value.text.empty()) section.tokens.push_back(value);
        }
    }
    return model;
}

}  // namespace kestralum
