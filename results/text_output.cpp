#include "results/text_output.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

namespace kestralum {

void append_e(std::string& text, double value) {
    if (value == 0 && !std::signbit(value)) {
        text.append("0.000000e+00", 12);
        return;
    }
    char digits[32];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::scientific, 6).ptr;
    text.append(digits, end);
}

void append_d(std::string& text, std::int64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    text.append(digits, end);
}

void FormatLine::copy_text() {
    const char* stop = std::strchr(rest_, '%');
    const char* const end = stop ? stop : rest_ + std::strlen(rest_);
    text_.append(rest_, end);
    rest_ = end;
}

void FormatLine::take(char kind) {
    assert(rest_[0] == '%' && rest_[1] == kind);
    (void)kind;
    rest_ += 2;
}

FormatLine& FormatLine::operator<<(std::int32_t value) {
    take('d');
    append_d(text_, value);
    copy_text();
    return *this;
}

FormatLine& FormatLine::operator<<(double value) {
    take('e');
    append_e(text_, value);
    copy_text();
    return *this;
}

FormatLine& FormatLine::operator<<(std::string_view value) {
    take('s');
    text_.append(value);
    copy_text();
    return *this;
}

TextOutput::TextOutput(const std::string& path, const Progress& progress)
    : file_(paths::open(path, "wb")), progress_(progress), was_cancelled_(progress.cancelled()) {
    if (!file_) error_ = std::strerror(errno);
}

bool TextOutput::goes_on() {
    if (error_.empty() && stopped()) error_ = "stopped on request";
    return error_.empty();
}

void TextOutput::write(std::string_view text) {
    constexpr std::size_t piece = 1 << 22;  // bytes between two looks at a cancel
    while (!text.empty() && goes_on()) {
        const std::string_view now = text.substr(0, piece);
        if (std::fwrite(now.data(), 1, now.size(), file_.get()) != now.size()) error_ = std::strerror(errno);
        text.remove_prefix(now.size());
    }
}

void TextOutput::write_rows(std::int64_t rows, int threads,
                            const std::function<void(std::int64_t, std::string&)>& row) {
    // rounds of blocks: formatted in parallel, then written in order
    constexpr std::int64_t block_rows = 256, round_blocks = 32;
    std::vector<std::string> texts(round_blocks);
    for (std::int64_t first = 0; first < rows && goes_on(); first += round_blocks * block_rows) {
        const std::int64_t blocks = std::min(round_blocks, (rows - first + block_rows - 1) / block_rows);
        const int team = static_cast<int>(std::min<std::int64_t>(std::max(threads, 1), blocks));
#pragma omp parallel for schedule(dynamic, 1) num_threads(team) if (team > 1)
        for (std::int64_t b = 0; b < blocks; ++b) {
            std::string& text = texts[b];
            text.clear();
            const std::int64_t begin = first + b * block_rows;
            const std::int64_t end = std::min(rows, begin + block_rows);
            for (std::int64_t r = begin; r < end && !stopped(); ++r) row(r, text);
        }
        for (std::int64_t b = 0; b < blocks; ++b) write(texts[b]);
    }
}

bool TextOutput::finish() {
    if (file_ && (std::fflush(file_.get()) != 0 || std::ferror(file_.get())) && error_.empty())
        error_ = std::strerror(errno);
    if (file_ && std::fclose(file_.release()) != 0 && error_.empty()) error_ = std::strerror(errno);
    return error_.empty();
}

std::string write_whole(std::string_view target, std::string_view log_folder,
                        const std::function<void(TextOutput&)>& fill, const Progress& progress) {
    const std::string path = paths::to_platform(target, log_folder), held = path + ".part";
    TextOutput file(held, progress);
    if (file.is_open()) fill(file);
    const bool whole = file.is_open() && file.finish();
    if (whole && std::rename(held.c_str(), path.c_str()) == 0) return {};
    const std::string reason = whole ? std::strerror(errno) : file.error();
    std::remove(held.c_str());
    return path + " cannot be written: " + reason;
}

}  // namespace kestralum
