#include "model/console.h"

#include <locale.h>
#include <atomic>
#include <charconv>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace kestralum::console {

namespace {

void to_standard_streams(Kind kind, std::string_view text) {
    std::FILE* stream = kind == Kind::error ? stderr : stdout;
    if (kind == Kind::error) std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stream);
}

struct State {
    Sink sink = to_standard_streams;
    bool lines = true;
    std::mutex progress_lock;
    std::string stage;
    std::atomic<std::int64_t> count{0}, total{0};
    std::atomic<bool> cancel{false};
};

State& state() {
    static State the_state;
    return the_state;
}

// vsnprintf under the C locale: a decimal point whatever the user's language.
std::string formatted(const char* format, va_list arguments) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t former = uselocale(c_locale);
    char buffer[512];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string text;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof buffer) {
        text.assign(buffer, static_cast<std::size_t>(length));
    } else if (length > 0) {
        std::vector<char> large(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(large.data(), large.size(), format, again);
        text.assign(large.data(), static_cast<std::size_t>(length));
    }
    va_end(again);
    uselocale(former);
    return text;
}

}  // namespace

Sink set_sink(Sink sink) {
    Sink former = std::move(state().sink);
    state().sink = sink ? std::move(sink) : Sink(to_standard_streams);
    return former;
}

std::string format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);
    return text;
}

void print(const char* format, ...) {
    if (!state().lines) return;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    state().sink(Kind::line, text);
}

void summary(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    state().sink(Kind::summary, text);
}

void notice(const char* format, ...) {
    if (!state().lines) return;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments) + "\n";
    va_end(arguments);
    state().sink(Kind::notice, text);
}

void error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments) + "\n";
    va_end(arguments);
    state().sink(Kind::error, text);
}

void counter(std::int64_t i, std::int64_t n, std::string_view prefix) {
    State& s = state();
    s.count.store(i, std::memory_order_relaxed);
    s.total.store(n, std::memory_order_relaxed);
    if (!s.lines) return;
    char text[64];
    char* p = text + prefix.copy(text, 16);
    p = std::to_chars(p, text + 40, i).ptr;
    *p++ = '/';
    p = std::to_chars(p, text + 62, n).ptr;
    *p++ = '\r';
    s.sink(Kind::line, {text, static_cast<std::size_t>(p - text)});
}

void set_progress(std::int64_t i, std::int64_t n) {
    State& s = state();
    s.count.store(i, std::memory_order_relaxed);
    s.total.store(n, std::memory_order_relaxed);
}

void write(std::string_view text) {
    if (state().lines) state().sink(Kind::line, text);
}

void set_lines_enabled(bool enabled) {
    state().lines = enabled;
}
bool lines_enabled() {
    return state().lines;
}

void set_stage(std::string_view stage) {
    State& s = state();
    std::lock_guard lock(s.progress_lock);
    s.stage = stage;
    s.count = 0;
    s.total = 0;
}

Progress progress() {
    State& s = state();
    std::lock_guard lock(s.progress_lock);
    return {s.stage, s.count.load(), s.total.load()};
}

void request_cancel(bool cancel) {
    state().cancel = cancel;
}
bool cancel_requested() {
    return state().cancel.load(std::memory_order_relaxed);
}

Capture::Capture() : enabled_(lines_enabled()) {
    set_lines_enabled(true);
    former_ = set_sink([this](Kind kind, std::string_view text) {
        switch (kind) {
            case Kind::line:
                lines += text;
                break;
            case Kind::notice:
                notices += text;
                break;
            case Kind::error:
                errors += text;
                break;
            case Kind::summary:
                summaries += text;
                break;
        }
    });
}

Capture::~Capture() {
    set_sink(std::move(former_));
    set_lines_enabled(enabled_);
}

}  // namespace kestralum::console
