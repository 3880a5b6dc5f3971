// The lines of an Abaqus input deck as one stream: comments and blank lines left out, included files read in
// their place; keyword lines and the fields of data lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/progress.h"

namespace kestralum {

// Upper case, as keywords, names of parameters and names of sets are compared.
std::string upper_case(std::string_view text);

// "*NODE, NSET=Top": the word without its star, blanks and small letters ("ENDPART"), and the parameters.
struct InpKeyword {
    struct Parameter {
        std::string name, value;  // name in capitals without blanks; value trimmed, without quotes
    };
    std::string word, shown;  // shown: as a notice names it, "*END PART"
    std::vector<Parameter> parameters;

    const std::string* find(std::string_view name) const;  // its value, null where it is not given
};

// Where something stands, for errors that are found later.
struct InpPlace {
    std::int32_t file = 0;   // in the order in which the files were opened
    std::uint32_t line = 0;  // from 1
};

class InpLines {
public:
    // `text` must outlive the object.
    InpLines(std::string_view text, std::string_view file_name, const Progress& progress);

    // The next keyword line, its continuation lines joined. False at the end of the deck, on an error and
    // where `progress` asks to stop; passes over data lines, but for those before the first keyword, which
    // are an error.
    bool next_keyword(InpKeyword& keyword);
    // The next data line, trimmed, valid until the next call; false at a keyword, at the end and as above.
    bool next_data(std::string_view& line);
    // Reads the lines of another file before the rest of the present one.
    bool include(const std::string& path);

    // The value of a parameter that must be there; null with an error.
    const std::string* needed(const InpKeyword& keyword, const char* name, const char* expected);
    // Where a keyword has its data lines in a file of their own (INPUT=), these come next.
    bool open_input(const InpKeyword& keyword);

    bool stopped();
    bool sound() { return error_.empty() && !stopped(); }
    InpPlace place() const { return place_; }
    // The error, "" while there is none. fail() returns false and keeps the first error only.
    const std::string& error() const { return error_; }
    bool fail(std::string_view token, std::string_view expected) { return fail_at(place_, token, expected); }
    bool fail_at(const InpPlace& place, std::string_view token, std::string_view expected);
    bool refuse(const InpPlace& place, std::string_view what);
    // The deck ends, or a keyword comes, where `expected` should be.
    bool fail_at_end(std::string_view expected);

private:
    struct Source {
        std::string own;  // the text of an included file
        std::string_view text;
        std::size_t position = 0;
        InpPlace next;  // of the line at `position`
    };
    bool fetch();
    bool cut_line(Source& source);
    InpKeyword parse_keyword();
    std::string place_text(const InpPlace& place) const;

    const Progress& progress_;
    std::vector<Source> stack_;
    std::vector<std::string> file_names_;
    std::string_view line_;
    InpPlace place_;
    bool pending_ = false;  // line_ is a keyword that next_keyword() gives
    bool ended_ = false, stopped_ = false;
    std::uint64_t looks_ = 0;
    std::string error_;
};

// The comma-separated fields of one data line.
class InpFields {
public:
    explicit InpFields(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) {}

    // Each takes one field with its comma. False, and the field then in token(), where it is not such a
    // number; an empty field, after a comma or before one, is 0 for next_number().
    bool next_integer(std::int32_t& value);
    bool next_number(double& value);
    std::string_view next();  // the field without outer blanks and quotes
    std::string_view token() const { return token_; }

    bool at_end();                               // nothing but blanks is left
    bool after_comma() const { return comma_; }  // the field given last had one

private:
    void skip_blanks() {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) ++at_;
    }
    bool close(const char* begin);
    const char *at_, *end_;
    std::string_view token_;
    bool comma_ = true;
};

}  // namespace kestralum
