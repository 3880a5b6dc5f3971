// The examples of the guide are read as they stand there: fenced blocks that name the file they are of.
#include <gtest/gtest.h>

#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/paths.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

std::vector<std::string> examples(const std::string& document, const std::string& kind) {
    std::string text, reason;
    EXPECT_TRUE(paths::read_text(std::string(KESTRALUM_SOURCE_DIR) + "/docs/" + document, text, reason))
        << reason;
    std::vector<std::string> blocks;
    const std::string open = "```" + kind + "\n";
    for (std::size_t at = text.find(open); at != std::string::npos; at = text.find(open, at)) {
        at += open.size();
        const std::size_t end = text.find("```", at);
        blocks.push_back(text.substr(at, end - at));
        at = end;
    }
    return blocks;
}

}  // namespace

// Each example stands behind a bar, whose sections it may replace.
TEST(Guide, ExamplesOfTheFilesAreRead) {
    const std::string bar =
        "material_info STEEL 7800 206e9 0.3 % parameter mm 0.001 L 500*mm % "
        "part_info BAR blue STEEL RECT L 40*mm 100*mm 0 0 0 5 2 2 0 0 0 0 0 0 0 0 0 % ";
    const TempFolder folder;
    std::string shown;
    Model last;
    for (const std::string& example : examples("model_file.md", "model")) {
        Collected console;
        last = placeholder_model();
        last.model_file_name = folder.write("bar.txt", bar + example + " END");
        const ModelReadReport report = read_input_file(last, {}, console);
        EXPECT_TRUE(report.ok && report.ended_at_end) << example << console.errors << report.end_token;
        shown += console.lines;
    }
    for (const char* section : {"material_info", "boundary_condition", "apply_force", "load_info",
                                "load_combination", "tie_info", "rigid_force"})
        EXPECT_TRUE(contains(shown, std::string("str=") + section + "\n")) << section;
    const auto controls = examples("settings.md", "control");
    EXPECT_FALSE(controls.empty());
    for (const std::string& example : controls) {
        Collected console;
        folder.write("bar.ana", example);
        EXPECT_EQ(read_analysis_info_file(last, console).status, AnalysisInfoStatus::read) << console.errors;
        EXPECT_EQ(console.notices, "") << example;
    }
}
