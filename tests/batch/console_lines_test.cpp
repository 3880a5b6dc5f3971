// What each analysis says, every line in its order: the texts beside this file, whose first line is the
// command.
#include "batch_run.h"
#include "console_pattern.h"

using namespace kestralum::testing;

namespace {

const std::filesystem::path texts = KESTRALUM_SOURCE_DIR "/tests/batch/console_lines";

struct ConsoleLines : Batch, ::testing::WithParamInterface<std::string> {};

}  // namespace

TEST_P(ConsoleLines, AreAllThereInOrder) {
    std::filesystem::copy(KESTRALUM_SOURCE_DIR "/data", folder.path() / "data");
    folder.write("tiny.txt", settings_text("0.05"));
    folder.write("modes.txt", replaced(replaced(bar_text, "L B B", "L B 1.5*B"), "END", "mode_num 4 %\nEND"));
    std::vector<std::string> expected = lines_of(read_file(texts / (GetParam() + ".txt")));
    ASSERT_GT(expected.size(), 100u);
    const Ended ended = run(expected.front(), "env -u OPENBLAS_CORETYPE " + in_time);  // it may earn a note
    expected.erase(expected.begin());
    EXPECT_EQ(ended.status, 0) << ended.err;
    const std::vector<std::string> said = console_pattern(ended.out);
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), said.begin(), said.end());
    if (wanted == expected.end() && got == said.end()) return;
    auto from = [](auto at, auto end) { return joined({at, at + std::min<std::ptrdiff_t>(6, end - at)}); };
    ADD_FAILURE() << "line " << wanted - expected.begin() + 2 << " should be:\n"
                  << from(wanted, expected.end()) << "but is:\n"
                  << from(got, said.end());
}

INSTANTIATE_TEST_SUITE_P(Of, ConsoleLines,
                         ::testing::Values("static", "static_rigid", "static_divisions", "eigen_subspace",
                                           "eigen_lanczos", "nonlinear", "explicit", "explicit_contact"),
                         [](const auto& name) { return name.param; });
