#include "model/progress.h"

#include <charconv>
#include <cstdio>

#include "model/format.h"

namespace kestralum {

void Progress::take_line(Kind kind, const char* format, va_list arguments) {
    std::string text = formatted_list(format, arguments);
    if (kind == Kind::notice || kind == Kind::error) text += '\n';
    take(kind, text);
}

void Progress::print(const char* format, ...) {
    if (!lines_) return;
    va_list arguments;
    va_start(arguments, format);
    take_line(Kind::line, format, arguments);
    va_end(arguments);
}

void Progress::summary(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    take_line(Kind::summary, format, arguments);
    va_end(arguments);
}

void Progress::notice(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    take_line(Kind::notice, format, arguments);
    va_end(arguments);
}

void Progress::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    take_line(Kind::error, format, arguments);
    va_end(arguments);
}

void Progress::write(std::string_view text) {
    if (lines_) take(Kind::line, text);
}

void Progress::set_count(std::int64_t i, std::int64_t n) {
    count_.store(i, std::memory_order_relaxed);
    total_.store(n, std::memory_order_relaxed);
}

void Progress::counter(std::int64_t i, std::int64_t n, std::string_view prefix) {
    set_count(i, n);
    if (!lines_) return;
    char text[64];
    char* p = text + prefix.copy(text, 16);
    p = std::to_chars(p, text + 40, i).ptr;
    *p++ = '/';
    p = std::to_chars(p, text + 62, n).ptr;
    *p++ = '\r';
    take(Kind::line, {text, p});
}

void Progress::set_stage(std::string_view stage) {
    const std::lock_guard lock(stage_lock_);
    stage_ = stage;
    set_count(0, 0);
    set_share(-1);
}

Progress::Place Progress::place() const {
    const std::lock_guard lock(stage_lock_);
    return {stage_, count_.load(), total_.load(), share_.load()};
}

void Progress::set_course(std::string_view text) {
    const std::lock_guard lock(stage_lock_);
    course_.text = text;
}

void Progress::add_residual(double residual) {
    const std::lock_guard lock(stage_lock_);
    course_.residuals.push_back(residual);
}

void Progress::clear_residuals() {
    const std::lock_guard lock(stage_lock_);
    course_.residuals.clear();
}

Progress::Course Progress::course() const {
    const std::lock_guard lock(stage_lock_);
    return course_;
}

void ConsoleProgress::take(Kind kind, std::string_view text) {
    if (quiet_ && (kind == Kind::line || kind == Kind::notice)) return;
    std::FILE* stream = kind == Kind::error ? stderr : stdout;
    if (kind == Kind::error) std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace kestralum
