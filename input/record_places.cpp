#include "input/record_places.h"

#include <algorithm>
#include <charconv>

#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

std::int64_t line_at(std::string_view text, const char* place) {
    return 1 + std::count(text.data(), place, '\n');
}

bool opens_line(std::string_view text, std::string_view token) {
    const char* at = token.data();
    while (at > text.data() && (at[-1] == ' ' || at[-1] == '\t')) --at;
    return at == text.data() || at[-1] == '\n' || at[-1] == '\r';
}

// A number at the beginning of `text`, 0 for none.
std::int64_t leading_number(std::string_view text) {
    std::int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// The token of that name from `from` on; tokens.size() for none.
std::size_t find_record(std::string_view text, const std::vector<Token>& tokens, std::size_t from,
                        const std::string& name) {
    std::size_t other = tokens.size();
    for (std::size_t k = from; k < tokens.size(); ++k) {
        if (tokens[k].text != name) continue;
        if (opens_line(text, tokens[k].text)) return k;
        other = std::min(other, k);
    }
    return other;
}

}  // namespace

std::int64_t line_of_token(std::string_view text, std::int64_t token) {
    TokenReader tokens(text);
    if (token < 1 || !tokens.skip(token - 1)) return 0;
    const std::string_view found = tokens.next();
    return found.empty() ? 0 : line_at(text, found.data());
}

std::int64_t line_of_name(std::string_view text, std::string_view name) {
    TokenReader tokens(text);
    for (std::string_view token = tokens.next(); !token.empty(); token = tokens.next())
        if (token == name) return line_at(text, token.data());
    return 0;
}

std::optional<TextPlace> place_of_remark(std::string_view remark) {
    for (std::size_t colon = remark.find(':'); colon != std::string_view::npos;
         colon = remark.find(':', colon + 1)) {
        TextPlace place{std::string(remark.substr(0, colon)), 0};
        if (place.file.empty() || !paths::open(place.file, "rb")) continue;
        std::string_view rest = remark.substr(colon + 1);
        if (const auto token = rest.find(" token "); token != std::string_view::npos) {
            std::string text, reason;
            if (paths::read_text(place.file, text, reason))
                place.line = line_of_token(text, leading_number(rest.substr(token + 7)));
        } else {
            if (rest.starts_with(" line ")) rest.remove_prefix(6);
            place.line = leading_number(rest);
        }
        return place;
    }
    return std::nullopt;
}

std::vector<RecordPlace> record_places(std::string_view text, const ModelSections& sections, Keyword section,
                                       const std::vector<std::string>& names) {
    std::vector<Token> tokens;
    for (const FileSection& s : sections.sections)
        if (s.keyword == section) tokens.insert(tokens.end(), s.tokens.begin(), s.tokens.end());
    std::vector<std::size_t> firsts;
    std::size_t from = 0;
    for (const std::string& name : names) {
        firsts.push_back(find_record(text, tokens, from, name));
        if (firsts.back() < tokens.size()) from = firsts.back() + 1;
    }
    std::vector<RecordPlace> out(names.size());
    for (std::size_t r = 0; r < names.size(); ++r) {
        if (firsts[r] == tokens.size()) continue;
        const auto next = std::ranges::find_if(firsts.begin() + static_cast<std::ptrdiff_t>(r) + 1,
                                               firsts.end(), [&](std::size_t k) { return k > firsts[r]; });
        const std::size_t end = next == firsts.end() ? tokens.size() : *next;
        out[r].line = line_at(text, tokens[firsts[r]].text.data());
        for (std::size_t k = firsts[r]; k < end; ++k)
            (out[r].text += k > firsts[r] ? " " : "") += tokens[k].text;
    }
    return out;
}

}  // namespace kestralum
