// Numbers as text into a file, fast: the result file of a large model is hundreds of megabytes of
// formatted numbers, most of them zero.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "model/paths.h"

namespace kestralum {

// Appends as printf would, whatever the locale: "%e" and "%d".
void append_e(std::string& text, double value);
void append_d(std::string& text, std::int64_t value);

// Appends by a format that knows %d, %s and %e only; text between stands as it is.
// The arguments are taken in order from the three calls' types.
class FormatLine {
public:
    FormatLine(std::string& text, const char* format) : text_(text), rest_(format) { copy_text(); }
    FormatLine& operator<<(std::int32_t value);
    FormatLine& operator<<(double value);
    FormatLine& operator<<(std::string_view value);

private:
    void copy_text();      // up to the next conversion
    void take(char kind);  // asserts the conversion's kind
    std::string& text_;
    const char* rest_;
};

// A file under a temporary name beside its target. Errors are remembered; finish() tells them.
class TextOutput {
public:
    explicit TextOutput(std::string_view stored_name);
    bool is_open() const { return file_ != nullptr; }
    void write(std::string_view text);

    // Writes `rows` rows in order; row(r, text) appends row r. The rows are formatted in blocks by
    // `threads` threads.
    void write_rows(std::int64_t rows, int threads,
                    const std::function<void(std::int64_t, std::string&)>& row);

    // Closes; false when anything could not be written (reason in error()).
    bool finish();
    const std::string& error() const { return error_; }

private:
    paths::File file_;
    std::string error_;
};

// Writes beside `target`; the file takes its name when `fill` has written it whole. What went wrong, empty if
// nothing.
[[nodiscard]] std::string write_whole(const std::string& target,
                                      const std::function<void(TextOutput&)>& fill);

}  // namespace kestralum
