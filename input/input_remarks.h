// The one form in which the readers of the input files name a place and what is wrong there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "model/progress.h"
#include "model/remarks.h"

namespace kestralum {

// A token with its number in the file, from 1. An empty text stands for the end of the file.
struct Token {
    std::string_view text;
    std::int64_t number = 0;
};

// Text for a console line: what cannot be printed as "?", of a longer one than `most` bytes the beginning and
// "...".
std::string shown_text(std::string_view text, std::size_t most = 60);

// "token 12 'abc'", long or unprintable text made fit for a console line; "end of file".
std::string place_of(const Token& token);

// Lists are kept this short: one missing token shifts all that follow.
inline constexpr int remarks_listed = 20;

class InputRemarks {
public:
    InputRemarks(std::string file_name, Remarks& remarks)
        : file_name_(std::move(file_name)), remarks_(remarks) {}

    // "FILE: token N 'TOKEN': expected WHAT"
    void expected(const Token& token, std::string_view what);
    // "FILE: token N 'TOKEN': TEXT"
    void notice(const Token& token, std::string_view text);
    // "FILE: TEXT"
    void error(std::string_view text);
    void notice(std::string_view text);

    bool ok() const { return remarks_.ok(); }
    Remarks& remarks() { return remarks_; }
    const std::string& file_name() const { return file_name_; }
    // Adds how many errors and notices were left out of the lists. Called once, when the file has been read.
    void close();

private:
    std::string file_name_;
    Remarks& remarks_;
    int errors_ = 0, notices_ = 0;
};

// Prints what a report holds: a line for each error and notice.
void print_remarks(const Remarks& remarks, Progress& progress);

}  // namespace kestralum
