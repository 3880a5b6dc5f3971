#include "app/python/model_text.h"

#include <algorithm>
#include <optional>

#include "input/model_sections.h"

namespace kestralum::python {

namespace {

// What a record refers to stands before it.
constexpr Keyword order[] = {
    Keyword::parameter,          Keyword::material_info, Keyword::part_info,        Keyword::set_info,
    Keyword::boundary_condition, Keyword::apply_force,   Keyword::rigid_element,    Keyword::rigid_force,
    Keyword::rigid_combine,      Keyword::load_info,     Keyword::load_combination, Keyword::tie_info,
    Keyword::mode_num,           Keyword::step_num,      Keyword::iteration,        Keyword::hexahedra,
};

std::ptrdiff_t rank_of(Keyword keyword) {
    return std::ranges::find(order, keyword) - std::begin(order);
}

std::optional<Keyword> find_section(std::string_view name) {
    for (const Keyword keyword : order)
        if (name == spelling(keyword)) return keyword;
    return std::nullopt;
}

std::size_t begin_of(const std::string& text, const Token& token) {
    return token.text.empty() ? text.size() : static_cast<std::size_t>(token.text.data() - text.data());
}

// The beginning of a token's line where nothing but blanks stands before it, else the token's own place.
std::size_t line_begin(const std::string& text, std::size_t at) {
    const std::size_t line = text.rfind('\n', at == 0 ? 0 : at - 1);
    const std::size_t begin = at == 0 || line == std::string::npos ? 0 : line + 1;
    return text.find_first_not_of(" \t\r", begin) >= at ? begin : at;
}

// In front of the first section of a higher rank, else of the end.
std::size_t place_of_new(const std::string& text, const ModelSections& sections, Keyword keyword) {
    for (const FileSection& section : sections.sections)
        if (section.keyword != Keyword::comment && rank_of(section.keyword) > rank_of(keyword))
            return line_begin(text, begin_of(text, section.opening));
    return line_begin(text, begin_of(text, sections.end));
}

std::string inserted(std::string text, std::size_t at, const std::string& lines) {
    const bool open_line = at > 0 && text[at - 1] != '\n';
    return text.insert(at, (open_line ? "\n" : "") + lines);
}

std::string with_value(const std::string& text, const FileSection& section, std::string_view value) {
    if (section.tokens.empty()) return text + " " + std::string(value) + " %\n";
    std::string out = text;
    return out.replace(begin_of(text, section.tokens[0]), section.tokens[0].text.size(), value);
}

std::string listed_sections() {
    std::string text;
    for (const std::string_view name : section_names())
        text += (text.empty() ? "" : ", ") + std::string(name);
    return text;
}

std::string refused_record(std::string_view section, std::string_view record) {
    const std::string name(section);
    if (record.find_first_not_of(" \t\r\n") == std::string_view::npos)
        return name + ": a record has no fields";
    for (std::size_t at = 0; (at = record.find('%', at)) != std::string_view::npos; ++at)
        if (at == 0 || std::string_view(" \t\r\n").find(record[at - 1]) != std::string_view::npos)
            return name + ": a field cannot begin with %, which ends the section";
    return {};
}

}  // namespace

std::vector<std::string_view> section_names() {
    std::vector<std::string_view> names;
    for (const Keyword keyword : order) names.emplace_back(spelling(keyword));
    return names;
}

std::string with_record(const std::string& text, std::string_view section, std::string_view record,
                        std::string& fault) {
    const auto keyword = find_section(section);
    fault = keyword ? refused_record(section, record)
                    : "no section '" + std::string(section) + "'; there are " + listed_sections();
    if (!fault.empty()) return text;
    const SilentProgress silent;
    const ModelSections sections = split_sections(text, silent);
    const FileSection* last = nullptr;
    for (const FileSection& one : sections.sections)
        if (one.keyword == *keyword) last = &one;
    if (has_one_value(*keyword)) {
        if (last) return with_value(text, *last, record);
        const std::string line = std::string(section) + " " + std::string(record) + " %\n";
        return inserted(text, place_of_new(text, sections, *keyword), line);
    }
    const std::string line = "  " + std::string(record) + "\n";
    if (last && last->closing.text.empty()) return inserted(text, text.size(), line + "%\n");
    if (last) return inserted(text, line_begin(text, begin_of(text, last->closing)), line);
    return inserted(text, place_of_new(text, sections, *keyword), std::string(section) + "\n" + line + "%\n");
}

std::string with_parameters(const std::string& text, std::span<const ParameterOverride> overrides) {
    struct Change {
        std::size_t at, length;
        const std::string* expression;
    };
    std::vector<Change> changes;
    const SilentProgress silent;
    for (const FileSection& section : split_sections(text, silent).sections)
        for (std::size_t k = 0; section.keyword == Keyword::parameter && k + 1 < section.tokens.size();
             k += 2)
            for (const ParameterOverride& one : overrides)
                if (one.name == section.tokens[k].text)
                    changes.push_back({begin_of(text, section.tokens[k + 1]),
                                       section.tokens[k + 1].text.size(), &one.expression});
    std::string out = text;
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
        out.replace(change->at, change->length, *change->expression);
    return out;
}

}  // namespace kestralum::python
