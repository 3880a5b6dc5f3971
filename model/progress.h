// What a reader, a mesher, an analysis or a writer says while it works, where it is, and whether it should
// stop. The caller gives the object: the batch command prints, the window shows, a test collects. Two runs
// with an object each do not see one another.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kestralum {

class Progress {
public:
    enum class Kind {
        line,     // the fixed progress and echo lines
        notice,   // a remark on the input or the run
        error,    // why something could not be done
        summary,  // the closing report
    };

    virtual ~Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Lines: text as it stands, no newline is added. Return at once where nobody wants lines.
    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void write(std::string_view text);
    // "  %d/%d\r": the counter of a long loop after its prefix (at most 16 bytes); keeps place() in step.
    // Cheap: no printf.
    void counter(std::int64_t i, std::int64_t n, std::string_view prefix = "  ");

    // One whole line each; the newline is added.
    void notice(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));

    void summary(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Where the work is. set_stage() starts a stage with its counter at 0; set_count() is counter() without a
    // line.
    struct Place {
        std::string stage;
        std::int64_t count = 0, total = 0;
        double share = -1;  // 0 … 1 of the stage's operations, where they are counted; else negative
        // How far the work is, 0 … 1; negative: not known.
        double done() const {
            if (share >= 0) return share;
            const bool counted = total > 0 && count > 0 && count <= total;
            return counted ? static_cast<double>(count) / static_cast<double>(total) : -1;
        }
    };
    void set_stage(std::string_view stage);
    void set_count(std::int64_t i, std::int64_t n);
    // The share of the stage's operations that is done: where its steps are of very different size.
    void set_share(double share) { share_.store(share, std::memory_order_relaxed); }
    Place place() const;

    // How an iteration or a time integration goes on, beside its stage.
    struct Course {
        std::string text;               // "increment 3 of 10, iteration 4"
        std::vector<double> residuals;  // of the iterations of this increment, each relative to the loads
    };
    void set_course(std::string_view text);
    void add_residual(double residual);
    void clear_residuals();
    Course course() const;

    // Asks the work to stop; any thread and a signal handler may. Every loop that can take long looks at
    // cancelled() at least each tenth of a second.
    void cancel() { cancel_.store(true, std::memory_order_relaxed); }
    virtual bool cancelled() const { return cancel_.load(std::memory_order_relaxed); }

    // False: print(), write() and counter() have no effect; a loop that only prints can be left out.
    bool lines_wanted() const { return lines_; }

protected:
    explicit Progress(bool lines = true) : lines_(lines) {}
    // Takes one piece of text; from any thread.
    virtual void take(Kind kind, std::string_view text) = 0;

private:
    void take_line(Kind kind, const char* format, va_list arguments);
    const bool lines_;
    std::atomic<bool> cancel_{false};
    mutable std::mutex stage_lock_;
    std::string stage_;
    Course course_;
    std::atomic<std::int64_t> count_{0}, total_{0};
    std::atomic<double> share_{-1};
};

// Lines, notices and summary to standard output, errors to standard error. Quiet: summary and errors only.
class ConsoleProgress : public Progress {
public:
    explicit ConsoleProgress(bool quiet = false) : Progress(!quiet), quiet_(quiet) {}

protected:
    void take(Kind kind, std::string_view text) override;

private:
    const bool quiet_;
};

// For work whose lines nobody wants to read: drops them all and stops with `whole`, the work it is a part of.
class SilentProgress : public Progress {
public:
    SilentProgress() : Progress(false) {}
    explicit SilentProgress(const Progress& whole) : Progress(false), whole_(&whole) {}
    bool cancelled() const override { return whole_ ? whole_->cancelled() : Progress::cancelled(); }

protected:
    void take(Kind, std::string_view) override {}

private:
    const Progress* whole_ = nullptr;
};

}  // namespace kestralum
