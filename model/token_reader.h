// Whitespace-separated tokens of a text, numbered from 1, with the readers' common checks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestralum {

// Whole-token number parsing, independent of the locale; nothing for anything else. A leading
// '+' is taken. Hexadecimal is not; "nan" and "inf" are, where a file can hold them.
std::optional<double> parse_double(std::string_view token);
std::optional<std::int32_t> parse_int32(std::string_view token);
std::optional<std::int64_t> parse_int64(std::string_view token);

class TokenReader {
public:
    // `text` must outlive the reader; a byte-order mark at its beginning is passed over.
    // `skip_comment_lines`: lines whose first non-blank character is '#' hold no tokens.
    explicit TokenReader(std::string_view text, bool skip_comment_lines = false)
        : text_(text),
          position_(text.starts_with("\xef\xbb\xbf") ? 3 : 0),
          skip_comments_(skip_comment_lines) {}

    // Next token; empty at the end of the text.
    std::string_view next();
    // The same without consuming it.
    std::string_view peek();
    bool skip(std::int64_t count);  // false when the text ended first

    std::optional<double> next_double() { return parse_double(next()); }
    std::optional<std::int32_t> next_int32() { return parse_int32(next()); }

    // Number of the token that next() gave last, from 1; at the end of the text one more than
    // the last token.
    std::int64_t token_number() const { return number_; }
    bool at_end();
    std::string_view last() const { return last_; }

    // What is left can hold at most this many tokens: a count read from the text that is larger
    // cannot be right.
    std::int64_t most_tokens_left() const {
        return static_cast<std::int64_t>((text_.size() - position_ + 1) / 2);
    }

private:
    void skip_blank();
    std::string_view text_;
    std::string_view last_;
    std::size_t position_;
    std::int64_t number_ = 0;
    bool skip_comments_ = false;
    bool line_start_ = true;
    bool ended_ = false;
};

}  // namespace kestralum
