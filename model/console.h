// Every line the program prints goes through here: standard output of the batch command, a
// test's capture, the window's message pane. Number formats never depend on the locale.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kestralum::console {

enum class Kind {
    line,     // the fixed progress and echo lines
    notice,   // a remark on the input or the run
    error,    // why something could not be done
    summary,  // the closing report of the batch command
};

using Sink = std::function<void(Kind, std::string_view)>;

// Replaces the sink and returns the former one. The default sink writes lines, notices and
// summary to standard output and errors to standard error.
Sink set_sink(Sink sink);

// printf-style text as it stands: no newline is added.
void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
void summary(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One whole line each; the newline is added. Errors and notices are also counted, see below.
void notice(const char* format, ...) __attribute__((format(printf, 1, 2)));
void error(const char* format, ...) __attribute__((format(printf, 1, 2)));

// "  %d/%d\r": the counter of a long loop after its prefix (at most 16 bytes). Cheap: no printf.
void counter(std::int64_t i, std::int64_t n, std::string_view prefix = "  ");

// The same without a line: for loops whose lines are other ones.
void set_progress(std::int64_t i, std::int64_t n);

// Raw text, line kind; the fast way for a prepared block of counter text.
void write(std::string_view text);

// With lines off (a quiet run) print, counter and write return at once.
void set_lines_enabled(bool enabled);
bool lines_enabled();

// Lines off while it lives: for work whose progress nobody wants to read.
class Silence {
public:
    Silence() : lines_(lines_enabled()) { set_lines_enabled(false); }
    ~Silence() { set_lines_enabled(lines_); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    bool lines_;
};

// printf into a string, independent of the locale.
std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Where the program is: stage name, count and total, kept in step by counter(); a window reads
// it for its progress bar and asks to stop.
struct Progress {
    std::string stage;
    std::int64_t count = 0, total = 0;
};
void set_stage(std::string_view stage);
Progress progress();
void request_cancel(bool cancel);
bool cancel_requested();

// Collects what is printed while it lives (tests): lines, notices and errors apart.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    std::string lines, notices, errors, summaries;

private:
    Sink former_;
    bool enabled_;
};

}  // namespace kestralum::console
