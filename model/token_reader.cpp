#include "model/token_reader.h"

#include <charconv>

namespace kestralum {

namespace {

bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r') || c == '\0';
}

template <typename T>
std::optional<T> parse_whole(std::string_view token) {
    if (token.size() > 1 && token[0] == '+' && token[1] != '-' && token[1] != '+') token.remove_prefix(1);
    T value{};
    const auto [end, status] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (status != std::errc{} || end != token.data() + token.size() || token.empty()) return std::nullopt;
    return value;
}

}  // namespace

std::optional<double> parse_double(std::string_view token) {
    return parse_whole<double>(token);
}
std::optional<std::int32_t> parse_int32(std::string_view token) {
    return parse_whole<std::int32_t>(token);
}
std::optional<std::int64_t> parse_int64(std::string_view token) {
    return parse_whole<std::int64_t>(token);
}

void TokenReader::skip_blank() {
    while (position_ < text_.size()) {
        const char c = text_[position_];
        if (is_blank(c)) {
            if (c == '\n') line_start_ = true;
            ++position_;
        } else if (skip_comments_ && line_start_ && c == '#') {
            const std::size_t end = text_.find('\n', position_);
            position_ = end == std::string_view::npos ? text_.size() : end;
        } else {
            return;
        }
    }
}

std::string_view TokenReader::next() {
    skip_blank();
    std::size_t end = position_;
    while (end < text_.size() && !is_blank(text_[end])) ++end;
    last_ = text_.substr(position_, end - position_);
    if (!ended_) ++number_;
    ended_ = last_.empty();
    position_ = end;
    line_start_ = false;
    return last_;
}

std::string_view TokenReader::peek() {
    TokenReader ahead = *this;
    return ahead.next();
}

bool TokenReader::skip(std::int64_t count) {
    for (std::int64_t k = 0; k < count; ++k)
        if (next().empty()) return false;
    return true;
}

bool TokenReader::at_end() {
    skip_blank();
    return position_ >= text_.size();
}

}  // namespace kestralum
