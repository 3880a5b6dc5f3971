// Files that were cut or changed: whatever they hold, the reader ends with a model or with a line that
// says why not, and in the latter case the model is as it was.
#include <gtest/gtest.h>

#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model_text.h"
#include "support/text_damage.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::string control_text = R"(KESTRALUM explicit
d_time 1e-6 end_time 2*1e-3 output_frequency 10 C_alfa 5
Gravity -z Plastic on Element_contact off
MATERIAL_EXTRA_INFO STEEL 8e10 2.5e8 1e9 table=0:2e8,1e-3:2.5e8 shear=elastic ALU 2.6e10 1e8 0 kinematic=1e9 %
NL_HALVING 4 LOAD_FACTORS 0.5 1 -1 % LOAD_FACTOR_EXPR sin(6*time)
RIGID_WALL FLOOR plane +z 0 0 0 0 0 1 0 1 0 0 0 0 0 % END
)";

struct DamagedModel : ::testing::Test {
    TempFolder folder;
    const Model before = placeholder_model();
    const std::string before_digest = digest(before);
    int read = 0, refused = 0;

    void check(const std::string& text, const std::string& control, const std::string& what) {
        Model model = before;
        model.model_file_name = folder.write("m.txt", text);
        folder.write("m.ana", control);
        SilentProgress silent;
        const ModelReadReport report = read_input_file(model, {}, silent);
        ASSERT_EQ(report.ok, report.remarks.errors.empty()) << what;
        ASSERT_LE(report.remarks.errors.size(), 21u) << what;  // the list is kept short
        if (!report.ok) {
            ASSERT_EQ(digest(model), before_digest) << what;
        } else {
            for (const Part& part : model.parts)
                ASSERT_LT(static_cast<std::size_t>(part.material_id), model.materials.size()) << what;
        }
        const std::string read_digest = digest(model);
        const AnalysisInfoReport info = read_analysis_info_file(model, silent);
        ASSERT_EQ(info.status == AnalysisInfoStatus::wrong, !info.remarks.errors.empty()) << what;
        if (info.status != AnalysisInfoStatus::read) {
            ASSERT_EQ(digest(model), read_digest) << what;
        }
        (report.ok ? read : refused) += 1;
    }
};

}  // namespace

TEST_F(DamagedModel, EveryPrefix) {
    for (std::size_t length = 0; length <= model_text.size() && !HasFatalFailure(); ++length)
        check(model_text.substr(0, length), control_text.substr(0, length), std::to_string(length));
    // a prefix is a model only where it ends between records
    EXPECT_GT(read, 20);
    EXPECT_GT(refused, read);
}

TEST_F(DamagedModel, RandomTokenChanges) {
    std::mt19937 random(20260711);
    const auto model = tokens_of(model_text), control = tokens_of(control_text);
    for (int k = 0; k < 200 && !HasFatalFailure(); ++k) {
        const std::string text = damaged(model, random() % model.size(), random);
        check(text, damaged(control, random() % control.size(), random), text);
    }
    EXPECT_GT(refused, 50);
}

TEST_F(DamagedModel, NoLimitOfLengthIsAssumed) {
    const std::string longest(200000, 'x');
    check("material_info " + longest + " 1 1 0 % END", longest, "long name");
    check("material_info A " + longest + " 1 0 % " + longest, "a explicit " + longest, "long number");
    check("material_info A " + std::string(50000, '(') + " 1 0 % END", "", "parentheses");
    std::string many = "boundary_condition ";
    for (int k = 0; k < 20000; ++k) many += "wrong ";
    check(many, "a explicit MATERIAL_EXTRA_INFO " + many, "many wrong tokens");
    check(std::string(1000, '\0') + "END", std::string("\0\0", 2), "zero bytes");
    check("\x89PNG\r\n\x1a\n" + longest, "\x89PNG explicit \x1a", "pictures");
    EXPECT_EQ(refused, 4);
}

// Wherever the reading is when it is asked to stop: it does, and nothing has changed.
TEST_F(DamagedModel, StopsOnRequest) {
    Model model = before;
    model.model_file_name = folder.write("m.txt", model_text);
    folder.write("m.ana", control_text);
    const std::string stopped = folder.file("m.txt") + ": stopped on request\n";
    int look = 1;
    for (std::string told = stopped; told == stopped; ++look) {
        ASSERT_EQ(digest(model), before_digest) << look;
        StopsAtLook progress(look);
        told = joined(read_input_file(model, {}, progress).remarks.errors);
    }
    EXPECT_GT(look, 200) << "every token, record and layer is looked at";
    const std::string read_digest = digest(model);
    EXPECT_NE(read_digest, before_digest);
    for (look = 1; look < 30; ++look) {
        StopsAtLook progress(look);
        const AnalysisInfoReport report = read_analysis_info_file(model, progress);
        ASSERT_EQ(joined(report.remarks.errors), report.file_name + ": stopped on request\n") << look;
        ASSERT_EQ(digest(model), read_digest) << look;
    }
}
