#include "mesh/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::size_t longest_line = 4096;

// Both ends closed with the struct, and in the child by exec.
struct Pipe {
    int ends[2] = {-1, -1};
    bool open() { return ::pipe2(ends, O_CLOEXEC) == 0; }
    void close_end(int which) {
        if (ends[which] >= 0) ::close(ends[which]);
        ends[which] = -1;
    }
    ~Pipe() {
        close_end(0);
        close_end(1);
    }
};

// In the child, where only calls that a signal handler may make are allowed. Does not return; what went wrong
// goes through `fault`.
[[noreturn]] void become(char* const* arguments, int output, int fault, rlim_t most_memory) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit limit{most_memory, most_memory};
    ::setrlimit(RLIMIT_AS, &limit);
    const rlimit no_core{0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);
    const int nothing = ::open("/dev/null", O_RDONLY);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::execv(arguments[0], arguments);
    const int why = errno;
    [[maybe_unused]] const auto written = ::write(fault, &why, sizeof why);
    ::_exit(127);
}

// Cuts what comes into lines.
class LineCutter {
public:
    explicit LineCutter(const std::function<void(std::string_view)>& take) : take_(take) {}
    void add(std::string_view text) {
        for (const char c : text) {
            if (c != '\n' && c != '\r') line_ += c;
            if (c == '\n' || c == '\r' || line_.size() == longest_line) end();
        }
    }
    void end() {
        if (!line_.empty()) take_(line_);
        line_.clear();
    }

private:
    const std::function<void(std::string_view)>& take_;
    std::string line_;
};

std::string end_of(int status) {
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        return formatted("was ended by signal %d (%s)", number, ::strsignal(number));
    }
    return WEXITSTATUS(status) == 0 ? std::string() : formatted("ended with status %d", WEXITSTATUS(status));
}

// Asks it to end, so that it can clean up after itself, and does not wait long for that.
void end_child(pid_t child) {
    constexpr int most_ms = 1000;
    ::kill(child, SIGTERM);
    for (int waited_ms = 0; waited_ms < most_ms; waited_ms += 5) {
        if (::waitpid(child, nullptr, WNOHANG) == child) return;
        ::usleep(5000);
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

}  // namespace

ChildEnd run_child(const std::string& program, std::span<const std::string> arguments, double silence_limit,
                   const std::function<void(std::string_view line)>& take_line, const Progress& progress) {
    using Clock = std::chrono::steady_clock;
    Pipe output, fault;
    const auto not_started = [](int why) {
        return ChildEnd{false, std::string("cannot be started: ") + std::strerror(why)};
    };
    if (!output.open() || !fault.open()) return not_started(errno);
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    const auto memory = static_cast<rlim_t>(::sysconf(_SC_PHYS_PAGES)) *
                        static_cast<rlim_t>(::sysconf(_SC_PAGE_SIZE)) / 10 * 9;

    const pid_t child = ::fork();
    if (child < 0) return not_started(errno);
    if (child == 0) become(words.data(), output.ends[1], fault.ends[1], memory);
    output.close_end(1);
    fault.close_end(1);
    int why = 0;
    if (::read(fault.ends[0], &why, sizeof why) == sizeof why) {  // 0 bytes: exec has closed it
        ::waitpid(child, nullptr, 0);
        return not_started(why);
    }

    ChildEnd end;
    LineCutter lines(take_line);
    int status = 0;
    bool talks = true;  // its output is open
    for (auto heard = Clock::now();;) {
        constexpr int wait_ms = 50;
        pollfd ready{output.ends[0], POLLIN, 0};
        if (talks && ::poll(&ready, 1, wait_ms) > 0) {
            char block[4096];
            const ssize_t count = ::read(output.ends[0], block, sizeof block);
            talks = count != 0;
            if (count > 0) lines.add({block, static_cast<std::size_t>(count)});
            heard = Clock::now();
        }
        if (!talks) {
            if (::waitpid(child, &status, WNOHANG) == child) break;
            ::usleep(1000);
        }
        end.cancelled = progress.cancelled();
        const bool silent = std::chrono::duration<double>(Clock::now() - heard).count() > silence_limit;
        if (silent) end.reason = formatted("has said nothing for %.6g s", silence_limit);
        if (!end.cancelled && !silent) continue;
        end_child(child);
        return end;
    }
    lines.end();
    end.reason = end_of(status);
    return end;
}

}  // namespace kestralum
