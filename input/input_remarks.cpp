#include "input/input_remarks.h"

#include <algorithm>

namespace kestralum {

namespace {

// Bytes of the UTF-8 character that `text` begins with; 0 for a control character or anything else.
std::size_t character_size(std::string_view text) {
    const unsigned char lead = text[0];
    if (lead < 0x80) return lead >= ' ' && lead != 127;
    const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || size > text.size()) return 0;
    for (const char c : text.substr(1, size - 1))
        if ((c & 0xc0) != 0x80) return 0;
    return size;
}

}  // namespace

std::string shown_text(std::string_view text, std::size_t most) {
    std::string out;
    for (std::string_view rest = text; !rest.empty() && out.size() < most;) {
        const std::size_t size = character_size(rest);
        out += size > 0 ? rest.substr(0, size) : "?";
        rest.remove_prefix(std::max<std::size_t>(size, 1));
    }
    if (text.size() > most) out += "...";
    return out;
}

std::string place_of(const Token& token) {
    if (token.text.empty()) return "end of file";
    return "token " + std::to_string(token.number) + " '" + shown_text(token.text) + "'";
}

void InputRemarks::expected(const Token& token, std::string_view what) {
    error(place_of(token) + ": expected " + std::string(what));
}

void InputRemarks::notice(const Token& token, std::string_view text) {
    notice(place_of(token) + ": " + std::string(text));
}

void InputRemarks::error(std::string_view text) {
    if (++errors_ <= remarks_listed) remarks_.errors.push_back(file_name_ + ": " + std::string(text));
}

void InputRemarks::notice(std::string_view text) {
    if (++notices_ <= remarks_listed) remarks_.notices.push_back(file_name_ + ": " + std::string(text));
}

void InputRemarks::close() {
    const auto further = [&](int count, const char* what) {
        return file_name_ + ": " + std::to_string(count - remarks_listed) + " further " + what;
    };
    if (errors_ > remarks_listed) remarks_.errors.push_back(further(errors_, "errors"));
    if (notices_ > remarks_listed) remarks_.notices.push_back(further(notices_, "notices"));
    errors_ = notices_ = 0;
}

void print_remarks(const Remarks& remarks, Progress& progress) {
    for (const std::string& line : remarks.errors) progress.error("%s", line.c_str());
    for (const std::string& line : remarks.notices) progress.notice("%s", line.c_str());
}

}  // namespace kestralum
