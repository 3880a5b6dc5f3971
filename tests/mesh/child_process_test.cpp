// Programs that are run beside this one: what they say and how they end.
#include "mesh/child_process.h"

#include <chrono>

#include "group_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct ShellRun {
    std::string lines;
    ChildEnd end;
    double seconds = 0;
    explicit ShellRun(const std::string& script, const Progress& progress = SilentProgress(),
                      double silence_limit = 60) {
        const auto start = std::chrono::steady_clock::now();
        const std::vector<std::string> arguments{"-c", script};
        end = run_child(
            "/bin/sh", arguments, silence_limit,
            [&](std::string_view line) { lines += "[" + std::string(line.substr(0, 20)) + "]"; }, progress);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
};

TEST(ChildProcess, TellsWhatTheProgramSaysAndHowItEnds) {
    const ShellRun good("echo one; echo two >&2; printf 'a\\rlast'");
    EXPECT_EQ(good.lines, "[one][two][a][last]");
    EXPECT_EQ(good.end.reason, "");
    EXPECT_EQ(ShellRun("exit 3").end.reason, "ended with status 3");
    EXPECT_EQ(ShellRun("kill -SEGV $$").end.reason, "was ended by signal 11 (Segmentation fault)");
    EXPECT_EQ(ShellRun("head -c 10000 /dev/zero | tr '\\0' x").lines,
              "[xxxxxxxxxxxxxxxxxxxx][xxxxxxxxxxxxxxxxxxxx][xxxxxxxxxxxxxxxxxxxx]");
    const ChildEnd none = run_child(
        "/no/such/program", {}, 1, [](std::string_view) {}, SilentProgress());
    EXPECT_EQ(none.reason, "cannot be started: No such file or directory");
}

TEST(ChildProcess, IsEndedWhenItFallsSilentOrIsNotWanted) {
    for (const char* script : {"echo x; exec sleep 60", "exec >&- 2>&-; exec sleep 60"}) {
        const ShellRun silent(script, SilentProgress(), 0.3);
        EXPECT_EQ(silent.end.reason, "has said nothing for 0.3 s");
        EXPECT_LT(silent.seconds, 10);
        StopsAtLook stop(3);
        const ShellRun stopped(script, stop);
        EXPECT_TRUE(stopped.end.cancelled);
        EXPECT_LT(stopped.seconds, 10);
    }
    // one that talks is not silent
    EXPECT_EQ(ShellRun("for i in 1 2 3 4 5 6; do sleep 0.2; echo x; done", SilentProgress(), 0.6).end.reason,
              "");
}

}  // namespace
