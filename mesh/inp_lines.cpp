#include "mesh/inp_lines.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "model/paths.h"
#include "model/records.h"

namespace kestralum {

namespace {

constexpr std::size_t most_open_files = 16;
constexpr std::size_t most_files = 1000;

bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r') || c == '\0';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view without_quotes(std::string_view text) {
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') return text.substr(1, text.size() - 2);
    return text;
}

std::string squeezed(std::string_view text) {
    std::string out = upper_case(text);
    std::erase_if(out, is_blank);
    return out;
}

bool is_comment(std::string_view line) {
    return line.starts_with("**");
}

// Text up to the first comma outside of quotes, taken from `rest` with that comma.
std::string_view take_field(std::string_view& rest) {
    bool quoted = false;
    std::size_t end = 0;
    for (; end < rest.size() && (quoted || rest[end] != ','); ++end) quoted = quoted != (rest[end] == '"');
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return field;
}

// std::from_chars with what Fortran writes too: a leading '+' and the exponent letters d and D.
std::from_chars_result read_number(const char* begin, const char* end, double& value) {
    if (end - begin > 1 && *begin == '+' && begin[1] != '-') ++begin;
    const auto read = std::from_chars(begin, end, value);
    if (read.ec != std::errc{} || read.ptr == end || (*read.ptr != 'd' && *read.ptr != 'D')) return read;
    char text[128];  // longer than any number that means its last digit
    const char* stop = std::find_if(read.ptr, end, [](char c) { return c == ',' || is_blank(c); });
    const auto length = static_cast<std::size_t>(stop - begin);
    if (length >= sizeof text) return read;
    std::memcpy(text, begin, length);
    text[read.ptr - begin] = 'e';
    const auto again = std::from_chars(text, text + length, value);
    return {begin + (again.ptr - text), again.ec};
}

}  // namespace

std::string upper_case(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return out;
}

const std::string* InpKeyword::find(std::string_view name) const {
    for (const Parameter& parameter : parameters)
        if (parameter.name == name) return &parameter.value;
    return nullptr;
}

InpLines::InpLines(std::string_view text, std::string_view file_name, const Progress& progress)
    : progress_(progress), file_names_{std::string(file_name)} {
    stack_.reserve(most_open_files);  // a source holds its own text: it stays where it is
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
    stack_.push_back({"", text, 0, {0, 1}});
}

bool InpLines::stopped() {
    if (looks_++ % 256 == 0) stopped_ = stopped_ || progress_.cancelled();
    return stopped_;
}

// The next line of one file, trimmed; false at its end.
bool InpLines::cut_line(Source& source) {
    if (source.position >= source.text.size()) return false;
    const char* const begin = source.text.data() + source.position;
    const std::size_t left = source.text.size() - source.position;
    const void* const found = std::memchr(begin, '\n', left);
    const std::size_t length = found ? static_cast<const char*>(found) - begin : left;
    line_ = trimmed({begin, length});
    place_ = source.next;
    source.position += length + 1;
    source.next.line += source.next.line < std::numeric_limits<std::uint32_t>::max();
    return true;
}

// The next line that holds something; included files are opened on the way.
bool InpLines::fetch() {
    while (!ended_ && error_.empty() && !stopped()) {
        if (!cut_line(stack_.back())) {
            place_ = stack_.back().next;
            ended_ = stack_.size() == 1;
            if (!ended_) stack_.pop_back();
            continue;
        }
        if (line_.empty() || is_comment(line_)) continue;
        if (line_[0] != '*' || squeezed(line_.substr(0, 32)).compare(0, 8, "*INCLUDE") != 0) return true;
        const InpKeyword keyword = parse_keyword();
        if (keyword.word != "INCLUDE") return fail(keyword.shown, "*INCLUDE, INPUT=");
        const std::string* const path = keyword.find("INPUT");
        if (!path || path->empty()) return fail(keyword.shown, "INPUT= with the name of a file");
        include(*path);
    }
    return false;
}

bool InpLines::include(const std::string& path) {
    const bool absolute = path.starts_with('/') || path.starts_with('\\');
    const std::string& from = file_names_[stack_.back().next.file];
    const std::string name = absolute ? path : paths::directory_of(from) + path;
    for (const Source& open : stack_)
        if (file_names_[open.next.file] == name) return fail(path, "a file that does not include itself");
    if (stack_.size() >= most_open_files) return fail(path, "at most 16 files within each other");
    if (file_names_.size() >= most_files) return fail(path, "at most 1000 included files");
    Source source;
    std::string why;
    if (!paths::read_text(name, source.own, why)) return fail(path, "a file that can be read (" + why + ")");
    source.next = {static_cast<std::int32_t>(file_names_.size()), 1};
    file_names_.push_back(name);
    stack_.push_back(std::move(source));
    Source& opened = stack_.back();
    opened.text = opened.own;
    if (opened.text.starts_with("\xef\xbb\xbf")) opened.text.remove_prefix(3);
    return true;
}

// Of line_, which begins with a star, and of the lines that follow a comma at its end.
InpKeyword InpLines::parse_keyword() {
    std::string text(line_);
    const InpPlace begin = place_;
    Source& source = stack_.back();
    while (text.ends_with(',')) {
        const std::size_t position = source.position;
        const InpPlace next = source.next;
        if (!cut_line(source)) break;
        if (line_.starts_with('*') && !is_comment(line_)) {
            source.position = position;
            source.next = next;
            break;
        }
        if (!is_comment(line_)) text += line_;
        if (line_.empty()) break;
    }
    place_ = begin;
    InpKeyword keyword;
    std::string_view rest = std::string_view(text).substr(1);
    const std::string_view word = trimmed(take_field(rest));
    keyword.word = squeezed(word);
    keyword.shown = "*" + truncate_text(upper_case(word), name_text_width);
    while (!rest.empty()) {
        const std::string_view field = trimmed(take_field(rest));
        const std::size_t equals = std::min(field.find('='), field.size());
        const std::string_view value = equals < field.size() ? trimmed(field.substr(equals + 1)) : "";
        if (!field.empty())
            keyword.parameters.push_back(
                {squeezed(field.substr(0, equals)), std::string(without_quotes(value))});
    }
    return keyword;
}

bool InpLines::next_keyword(InpKeyword& keyword) {
    for (bool first = place_.line == 0; pending_ || fetch(); first = false) {
        if (line_[0] == '*') {
            pending_ = false;
            keyword = parse_keyword();
            return true;
        }
        if (first) return fail(line_, "a keyword, such as *NODE,");
    }
    return false;
}

bool InpLines::next_data(std::string_view& line) {
    if (pending_ || !fetch()) return false;
    pending_ = line_[0] == '*';
    line = line_;
    return !pending_;
}

const std::string* InpLines::needed(const InpKeyword& keyword, const char* name, const char* expected) {
    const std::string* const value = keyword.find(name);
    if (value && !value->empty()) return value;
    fail(keyword.shown, expected);
    return nullptr;
}

bool InpLines::open_input(const InpKeyword& keyword) {
    const std::string* const path = keyword.find("INPUT");
    return !path || include(*path);
}

std::string InpLines::place_text(const InpPlace& place) const {
    return "file " + file_names_[place.file] + ", line " + std::to_string(place.line);
}

bool InpLines::refuse(const InpPlace& place, std::string_view what) {
    if (error_.empty()) error_ = place_text(place) + ": " + std::string(what);
    return false;
}

bool InpLines::fail_at(const InpPlace& place, std::string_view token, std::string_view expected) {
    if (token.empty()) return refuse(place, "nothing where " + std::string(expected) + " is expected");
    if (error_.empty())
        error_ = place_text(place) + " \"" + truncate_text(token, name_text_width) +
                 "\": " + std::string(expected) + " expected";
    return false;
}

bool InpLines::fail_at_end(std::string_view expected) {
    if (stopped_) return false;
    if (pending_) return fail(line_, expected);
    return refuse(place_, "the file ends where " + std::string(expected) + " is expected");
}

bool InpFields::close(const char* begin) {
    const char* const after = at_;
    skip_blanks();
    comma_ = at_ != end_ && *at_ == ',';
    if (comma_) ++at_;
    if (comma_ || at_ == end_) {
        token_ = {begin, static_cast<std::size_t>(after - begin)};
        return true;
    }
    at_ = begin;
    next();
    return false;
}

bool InpFields::next_integer(std::int32_t& value) {
    skip_blanks();
    const char* const begin = at_;
    const bool plus = end_ - begin > 1 && *begin == '+' && begin[1] != '-';
    const auto [after, status] = std::from_chars(begin + plus, end_, value);
    if (status != std::errc{}) {
        next();
        return false;
    }
    at_ = after;
    return close(begin);
}

bool InpFields::next_number(double& value) {
    skip_blanks();
    const char* const begin = at_;
    value = 0;
    if (at_ == end_ ? comma_ : *at_ == ',') return close(begin);
    const auto [after, status] = read_number(begin, end_, value);
    if (status != std::errc{} || !std::isfinite(value)) {
        next();
        return false;
    }
    at_ = after;
    return close(begin);
}

std::string_view InpFields::next() {
    std::string_view rest(at_, static_cast<std::size_t>(end_ - at_));
    const std::string_view field = take_field(rest);
    comma_ = at_ + field.size() != end_;
    at_ = end_ - rest.size();
    return token_ = without_quotes(trimmed(field));
}

bool InpFields::at_end() {
    skip_blanks();
    return at_ == end_;
}

}  // namespace kestralum
