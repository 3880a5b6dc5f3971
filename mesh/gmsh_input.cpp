#include "mesh/gmsh_input.h"

#include "model/format.h"
#include "model/records.h"
#include "model/token_reader.h"

namespace kestralum {

GmshInput::GmshInput(std::string_view text, std::string_view file_name, const Progress& progress)
    : file_name_(file_name),
      progress_(progress),
      begin_(text.data()),
      at_(begin_ + (text.starts_with("\xef\xbb\xbf") ? 3 : 0)),
      end_(begin_ + text.size()),
      last_(at_) {}

std::string_view GmshInput::word() {
    skip_blanks();
    start(Form::text);
    at_ = std::find_if(at_, end_, is_blank);
    return {last_, static_cast<std::size_t>(at_ - last_)};
}

std::string_view GmshInput::rest_of_line() {
    const char* const end = std::find(at_, end_, '\n');
    const char *first = at_, *last = end;
    while (first != last && is_blank(*first)) ++first;
    while (last != first && is_blank(last[-1])) --last;
    at_ = first;
    start(Form::text);
    at_ = end == end_ ? end_ : end + 1;
    return {first, static_cast<std::size_t>(last - first)};
}

bool GmshInput::skip_to(std::string_view end) {
    const std::string_view text(at_, static_cast<std::size_t>(end_ - at_));
    const std::size_t found = text.find(end);
    at_ = found == std::string_view::npos ? end_ : at_ + found;
    start(Form::text);
    return found != std::string_view::npos;
}

bool GmshInput::text_count(std::int64_t& count, const char* what, std::int64_t text_bytes,
                           std::int64_t binary_bytes) {
    if (!text_whole(count)) return fail(what);
    return check_count(count, what, binary_ ? binary_bytes : text_bytes);
}
bool GmshInput::count8(std::int64_t& count, const char* what, std::int64_t text_bytes,
                       std::int64_t binary_bytes) {
    if (!whole8(count)) return fail(what);
    return check_count(count, what, binary_ ? binary_bytes : text_bytes);
}
bool GmshInput::check_count(std::int64_t count, const char* what, std::int64_t bytes) {
    const std::int64_t left = end_ - at_ + 1;  // the end of the last line may be missing
    if (count >= 0 && count <= std::min(left / bytes, most)) return true;
    return fail(std::string(what) + (count < 0 ? "" : ", no more than the file can hold,"));
}

bool GmshInput::skip4(std::int64_t count, const char* what) {
    std::int64_t ignored = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        if (k % look == look - 1 && stopped()) return false;
        if (!whole4(ignored)) return fail(what);
    }
    return true;
}
bool GmshInput::skip8(std::int64_t count, const char* what) {
    std::int64_t ignored = 0;
    for (std::int64_t k = 0; k < count; ++k)
        if (!whole8(ignored)) return fail(what);
    return true;
}

// What std::from_chars does not take as it stands, such as a number with a plus sign.
bool GmshInput::odd_number(std::int64_t& value) {
    const auto number = parse_int64(word());
    if (number) value = *number;
    return number.has_value();
}
bool GmshInput::odd_number(double& value) {
    const auto number = parse_double(word());
    if (number) value = *number;
    return number.has_value();
}

std::string GmshInput::place(std::int64_t at) const {
    if (binary_) return "byte " + std::to_string(at);
    return "line " + std::to_string(std::count(begin_, begin_ + at, '\n') + 1);
}

std::string GmshInput::last_token() const {
    switch (form_) {
        case Form::int4:
            return std::to_string(stored_at<std::int32_t>(last_));
        case Form::int8:
            return std::to_string(stored_at<std::int64_t>(last_));
        case Form::real:
            return formatted("%.17g", stored_at<double>(last_));
        case Form::text:
            break;
    }
    std::string token = truncate_text({last_, static_cast<std::size_t>(at_ - last_)}, name_text_width);
    for (char& c : token)
        if (static_cast<unsigned char>(c) < ' ') c = '?';  // of binary numbers that were taken for a word
    return token;
}

bool GmshInput::fail(const std::string& expected) {
    if (last_ == end_) return fault(place() + ": the file ends where " + expected + " is expected");
    return fault(place() + " \"" + last_token() + "\": " + expected + " expected");
}
bool GmshInput::fault(const std::string& line) {
    error_ = "file " + std::string(file_name_) + ", " + line;
    return false;
}

}  // namespace kestralum
