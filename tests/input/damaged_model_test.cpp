// Files that were cut or changed: whatever they hold, the reader ends with a model or with a line that
// says why not, and in the latter case the store is as it was.
#include <gtest/gtest.h>

#include <random>

#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "input_files.h"
#include "model/console.h"
#include "model_text.h"

using namespace kestralum;

namespace {

const std::string control_text = R"(KESTRALUM explicit
d_time 1e-6 end_time 2*1e-3 output_frequency 10 C_alfa 5
Gravity -z Plastic on Element_contact off
MATERIAL_EXTRA_INFO STEEL 8e10 2.5e8 1e9 ALU 2.6e10 1e8 0 %
RIGID_WALL a b c % END
)";

struct Reader {
    test::TemporaryFolder folder;
    const ModelStore before = placeholder_model();
    const std::string before_digest = test::digest(before);
    int read = 0, refused = 0;

    void check(const std::string& model, const std::string& control, const std::string& what) {
        ModelStore store = before;
        store.model_file_name = folder.write("m.txt", model);
        folder.write("m.ana", control);
        console::Capture console;
        const ModelReadReport report = read_model_file(store, {});
        ASSERT_EQ(report.ok, report.remarks.errors.empty()) << what;
        ASSERT_LE(report.remarks.errors.size(), 21u) << what;  // the list is kept short
        for (const std::string& line : report.remarks.errors) ASSERT_GT(line.size(), 10u) << what;
        if (!report.ok) {
            ASSERT_EQ(test::digest(store), before_digest) << what;
        } else {
            ASSERT_EQ(store.results.mode_vec.size(), static_cast<std::size_t>(store.mode_count) *
                                                         static_cast<std::size_t>(store.mesh.dof_num));
            for (const Part& part : store.parts)
                ASSERT_LT(static_cast<std::size_t>(part.material_id), store.materials.size()) << what;
        }
        const std::string read_digest = test::digest(store);
        const AnalysisInfoReport info = read_analysis_info(store);
        ASSERT_EQ(info.status == AnalysisInfoStatus::wrong, !info.remarks.errors.empty()) << what;
        if (info.status != AnalysisInfoStatus::read) {
            ASSERT_EQ(test::digest(store), read_digest) << what;
        }
        (report.ok ? read : refused) += 1;
    }
};

const char* const odd_tokens[] = {
    "%",         "END",        "-1",   "0",          "1e9",        "1e308*1e308",
    "0/0",       "3000000000", "nope", "((((",       "part_info",  "material_info",
    "parameter", "area",       "node", "unit=mm",    "x",          "1e-320",
    "-",         "time",       "sin(", "2147483647", "HOLLOWCYLI", "VOL",
    "STL",       "\xff\xfe"};

}  // namespace

TEST(DamagedModel, EveryPrefix) {
    Reader reader;
    for (std::size_t length = 0; length <= test::model_text.size(); ++length)
        reader.check(test::model_text.substr(0, length), control_text.substr(0, length),
                     "prefix of " + std::to_string(length));
    // a prefix is a model only where it ends between records
    EXPECT_GT(reader.read, 20);
    EXPECT_GT(reader.refused, reader.read);
}

TEST(DamagedModel, RandomTokenChanges) {
    Reader reader;
    std::mt19937 random(20260711);
    const std::vector<std::string> model = test::tokens_of(test::model_text),
                                   control = test::tokens_of(control_text);
    const auto damage = [&](std::vector<std::string> tokens) {
        const std::size_t at = random() % tokens.size();
        switch (random() % 3) {
            case 0:
                tokens.erase(tokens.begin() + static_cast<std::ptrdiff_t>(at));
                break;
            case 1:
                tokens[at] = odd_tokens[random() % std::size(odd_tokens)];
                break;
            default:
                tokens.insert(tokens.begin() + static_cast<std::ptrdiff_t>(at),
                              odd_tokens[random() % std::size(odd_tokens)]);
        }
        return test::joined(tokens);
    };
    for (int k = 0; k < 200; ++k) {
        const std::string text = damage(model);
        reader.check(text, damage(control), "change " + std::to_string(k) + "\n" + text);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(reader.refused, 50);
}

TEST(DamagedModel, NoLimitOfLengthIsAssumed) {
    Reader reader;
    const std::string longest(200000, 'x');
    reader.check("material_info " + longest + " 1 1 0 % END", longest, "long name");
    reader.check("material_info A " + longest + " 1 0 % " + longest, "a explicit " + longest, "long number");
    reader.check("material_info A " + std::string(50000, '(') + " 1 0 % END", "", "parentheses");
    std::string many = "boundary_condition ";
    for (int k = 0; k < 20000; ++k) many += "wrong ";
    reader.check(many, "a explicit MATERIAL_EXTRA_INFO " + many, "many wrong tokens");
    reader.check(std::string(1000, '\0') + "END", std::string("\0\0", 2), "zero bytes");
    EXPECT_EQ(reader.refused, 3);
}
