#include "input/input_remarks.h"

namespace kestralum {

std::string place_of(const Token& token) {
    if (token.text.empty()) return "end of file";
    constexpr std::size_t shown = 60;
    std::string text(token.text.substr(0, shown));
    for (char& c : text)
        if ((c >= 0 && c < ' ') || c == 127) c = '?';
    if (token.text.size() > shown) text += "...";
    return "token " + std::to_string(token.number) + " '" + text + "'";
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
