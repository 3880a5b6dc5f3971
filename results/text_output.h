// Numbers as text into a file, fast: the result file of a large model is hundreds of megabytes of
// formatted numbers, most of them zero.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "model/paths.h"
#include "model/progress.h"

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
    // An enum as its number; an array value by value.
    template <typename T>
    requires std::is_enum_v<T> FormatLine& operator<<(T value) {
        return *this << static_cast<std::int32_t>(value);
    }
    template <typename T, std::size_t n>
    FormatLine& operator<<(const std::array<T, n>& values) {
        for (const T& value : values) *this << value;
        return *this;
    }

private:
    void copy_text();      // up to the next conversion
    void take(char kind);  // asserts the conversion's kind
    std::string& text_;
    const char* rest_;
};

// A file being written. What goes wrong first is kept and reported by finish(); what follows it is not
// written. A cancel that comes while the file is open counts as such a fault, "stopped on request".
class TextOutput {
public:
    TextOutput(const std::string& path, const Progress& progress);  // as the platform opens it
    TextOutput(paths::File file, const Progress& progress);
    bool is_open() const { return file_ != nullptr; }
    void write(std::string_view text);
    // What is to be written cannot be had.
    void fail(const std::string& why) {
        if (error_.empty()) error_ = why;
    }

    // Writes `rows` rows in order; row(r, text) appends row r. The rows are formatted in blocks by
    // `threads` threads.
    void write_rows(std::int64_t rows, int threads,
                    const std::function<void(std::int64_t, std::string&)>& row);

    // Closes; false when anything could not be written (reason in error()).
    bool finish();
    const std::string& error() const { return error_; }

private:
    bool stopped() const { return !was_cancelled_ && progress_.cancelled(); }
    bool goes_on();
    paths::File file_;
    std::string error_;
    const Progress& progress_;
    const bool was_cancelled_;  // before: a stopped run still writes what it has reached
};

// Writes beside `target`, a stored name; the file takes its name when `fill` has written it whole. What
// went wrong, empty if nothing.
[[nodiscard]] std::string write_whole(std::string_view target, std::string_view log_folder,
                                      const std::function<void(TextOutput&)>& fill, const Progress& progress);

// The same in two steps, for a file that takes its name when others are whole too. What has not taken it is
// removed at the end.
class HeldFile {
public:
    HeldFile() = default;
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;
    ~HeldFile() { drop(); }
    [[nodiscard]] std::string write(std::string_view target, std::string_view log_folder,
                                    const std::function<void(TextOutput&)>& fill, const Progress& progress);
    [[nodiscard]] std::string take_name();
    void drop();

private:
    std::string path_, held_;  // as the platform opens them; held_ is empty where nothing is held
};

}  // namespace kestralum
