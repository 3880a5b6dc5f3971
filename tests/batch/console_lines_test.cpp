// What each analysis says, every line in its order: the texts beside this file, whose first line is the
// command.
#include <map>

#include "batch_run.h"
#include "console_pattern.h"

using namespace kestralum::testing;

namespace {

const std::filesystem::path texts = KESTRALUM_SOURCE_DIR "/tests/batch/console_lines";

using Lines = std::vector<std::string>;

// What several analyses say alike: the lines below each "@name:".
std::map<std::string, Lines> common_blocks() {
    std::map<std::string, Lines> blocks;
    std::string name;
    for (const std::string& line : lines_of(read_file(texts / "common.txt")))
        if (line.starts_with('@') && line.ends_with(':'))
            name = line.substr(0, line.size() - 1);
        else
            blocks[name].push_back(line);
    return blocks;
}

// The text with the block in the place of each "@name argument"; in it '$' stands for the argument.
Lines expanded(const Lines& text, const std::string& argument = "") {
    static const std::map<std::string, Lines> blocks = common_blocks();
    Lines out;
    for (std::string line : text) {
        if (contains(line, "$")) line = replaced(line, "$", argument);
        const std::size_t blank = std::min(line.find(' '), line.size());
        Lines lines{line};
        if (line.starts_with('@'))
            lines = expanded(blocks.at(line.substr(0, blank)), line.substr(std::min(blank + 1, line.size())));
        out.insert(out.end(), lines.begin(), lines.end());
    }
    return out;
}

struct ConsoleLines : Batch, ::testing::WithParamInterface<std::string> {};

}  // namespace

TEST_P(ConsoleLines, AreAllThereInOrder) {
    std::filesystem::copy(KESTRALUM_SOURCE_DIR "/data", folder.path() / "data");
    folder.write("tiny.txt", settings_text("0.05"));
    folder.write("modes.txt", replaced(replaced(bar_text, "L B B", "L B 1.5*B"), "END", "mode_num 4 %\nEND"));
    Lines expected = expanded(lines_of(read_file(texts / (GetParam() + ".txt"))));
    ASSERT_GT(expected.size(), 100u);
    const Ended ended = run(expected.front(), "env -u OPENBLAS_CORETYPE " + in_time);  // it may earn a note
    expected.erase(expected.begin());
    EXPECT_EQ(ended.status, 0) << ended.err;
    const Lines said = console_pattern(ended.out);
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), said.begin(), said.end());
    if (wanted == expected.end() && got == said.end()) return;
    auto from = [](auto at, auto end) { return joined({at, at + std::min<std::ptrdiff_t>(6, end - at)}); };
    ADD_FAILURE() << "line " << wanted - expected.begin() + 1 << " should be:\n"
                  << from(wanted, expected.end()) << "but is:\n"
                  << from(got, said.end());
}

INSTANTIATE_TEST_SUITE_P(Of, ConsoleLines,
                         ::testing::Values("static", "static_rigid", "static_divisions", "eigen_subspace",
                                           "eigen_lanczos", "nonlinear", "explicit", "explicit_contact"),
                         [](const auto& name) { return name.param; });
