// The words and numbers of a Gmsh mesh file: text, or text with sections of binary numbers.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "model/progress.h"

namespace kestralum {

class GmshInput {
public:
    static constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();  // records of one table
    static constexpr std::int64_t look = 4096;  // records between two looks at a stop on request

    // All must outlive the reader; a byte-order mark at the text's beginning is passed over.
    GmshInput(std::string_view text, std::string_view file_name, const Progress& progress);

    // From here on the numbers are binary, with their bytes turned round where `swapped`.
    void be_binary(bool swapped) {
        binary_ = true;
        swapped_ = swapped;
    }
    bool binary() const { return binary_; }

    // The next word of text; empty at the end.
    std::string_view word();
    // What follows to the end of the line, without the blanks around it; the line is then passed over.
    std::string_view rest_of_line();
    // Passes over the text before `end`; false where that does not come.
    bool skip_to(std::string_view end);

    // A whole number, in text also of binary files. False, as all below: there is none here.
    bool text_whole(std::int64_t& value) {
        skip_blanks();
        start(Form::text);
        return text_number(value);
    }
    // A whole number that takes 4 or 8 bytes in a binary file.
    bool whole4(std::int64_t& value) {
        return binary_ ? fixed<std::int32_t>(Form::int4, value) : text_whole(value);
    }
    bool whole8(std::int64_t& value) {
        return binary_ ? fixed<std::int64_t>(Form::int8, value) : text_whole(value);
    }
    bool real(double& value) {
        if (binary_) return fixed<double>(Form::real, value);
        skip_blanks();
        start(Form::text);
        return text_number(value);
    }

    // Counts: 0 or more, and no more than what is left can hold of records of at least so many bytes each.
    // False with an error about `what`.
    bool text_count(std::int64_t& count, const char* what, std::int64_t text_bytes,
                    std::int64_t binary_bytes);
    bool count8(std::int64_t& count, const char* what, std::int64_t text_bytes, std::int64_t binary_bytes);
    // Passes over so many numbers of 4 or 8 bytes. False with an error about `what`.
    bool skip4(std::int64_t count, const char* what);
    bool skip8(std::int64_t count, const char* what);

    // Whether a number can be a tag, whose sign may be turned.
    static bool is_tag(std::int64_t value) { return value >= -most && value <= most; }

    bool stopped() const { return progress_.cancelled(); }

    // Where the word or number given last begins, and such a place in words: "line 7" or, of a binary file,
    // "byte 123", counted from 1 and from 0.
    std::int64_t last_at() const { return last_ - begin_; }
    std::string place(std::int64_t at) const;
    std::string place() const { return place(last_at()); }
    // The error, "file NAME, line 7 "TOKEN": EXPECTED expected" of the word or number given last, or that the
    // file ends there; "" where none was told. Both return false.
    bool fail(const std::string& expected);
    bool fault(const std::string& line);
    const std::string& error() const { return error_; }

private:
    enum class Form : char { text, int4, int8, real };

    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    void skip_blanks() {
        while (at_ != end_ && is_blank(*at_)) ++at_;
    }
    void start(Form form) {
        last_ = at_;
        form_ = form;
    }
    template <typename Number>
    bool text_number(Number& value) {
        const auto [end, status] = std::from_chars(at_, end_, value);
        if (status != std::errc{} || (end != end_ && !is_blank(*end))) return odd_number(value);
        at_ = end;
        return true;
    }
    bool odd_number(std::int64_t& value);
    bool odd_number(double& value);
    template <typename Stored>
    Stored stored_at(const char* at) const {
        std::array<char, sizeof(Stored)> bytes;
        std::memcpy(bytes.data(), at, bytes.size());
        if (swapped_) std::reverse(bytes.begin(), bytes.end());
        Stored value;
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    template <typename Stored, typename Number>
    bool fixed(Form form, Number& value) {
        start(form);
        if (end_ - at_ < static_cast<std::ptrdiff_t>(sizeof(Stored))) {
            last_ = at_ = end_;
            return false;
        }
        value = stored_at<Stored>(at_);
        at_ += sizeof(Stored);
        return true;
    }
    bool check_count(std::int64_t count, const char* what, std::int64_t bytes);
    std::string last_token() const;

    const std::string_view file_name_;
    const Progress& progress_;
    std::string error_;
    const char *begin_, *at_, *end_;
    const char* last_;
    Form form_ = Form::text;
    bool binary_ = false, swapped_ = false;
};

}  // namespace kestralum
