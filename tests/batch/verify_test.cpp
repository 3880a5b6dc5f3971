// `verify`: cases against their targets, what is missed and what is refused; and that the shipped folder
// holds.
#include "batch_run.h"

using namespace kestralum::testing;

namespace {

const std::string cases =
    "%a_comment\n"
    "case pulled title A bar % source Hooke (1678) % model bar.txt % run static set=P=2000 %\n"
    "check tip displacement x at L 0 0 near 2*P*L/(4e11*A) rel 1e-6\n"
    "  most stress mises set_max BAR_END near P/A rel 1e-6\n"
    "  carried reaction CLAMP x between -2001 -1999\n"
    "  work energy near 0.5*P*tip rel 1e-6  twice formula 2*tip above tip %\n"
    "case first model bar.txt % run eigen-lanczos %\n"
    "check f frequency 1 shown 1  of_other formula pulled__tip near 5e-6 abs 1e-11 %\nEND\n";

struct Verify : Batch {
    void SetUp() override {
        Batch::SetUp();
        folder.write("bar.txt", replaced(bar_text, "boundary_condition",
                                         "set_info BAR_END plane x L %\nboundary_condition"));
    }
};

}  // namespace

TEST_F(Verify, TellsEachCheckAndCountsThem) {
    folder.write("cases.txt", cases);
    Ended run = this->run("verify cases.txt");
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "2 cases: 6 checks met, 0 missed, 1 shown\n")) << run.out;
    folder.write("cases.txt", replaced(replaced(cases, "near P/A", "near 1.1*P/A"), "at L 0 0", "at no 0 0"));
    run = this->run("verify cases.txt --only pulled");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "MISSED: 'no' has no value") && contains(run.out, "-9.09 %  MISSED"))
        << run.out;
    // what refers to a value that is missed is missed too
    EXPECT_TRUE(contains(run.out, "1 case: 1 checks met, 4 missed, 0 shown\n")) << run.out;
    folder.write("bar.txt", "part_info %");
    EXPECT_TRUE(
        contains(this->run("verify cases.txt --only first").out, "MISSED: the model has no solid elements"));
}

TEST_F(Verify, RefusesWhatIsWrongInAFile) {
    const std::pair<const char*, const char*> wrongs[] = {
        {"run static", "run statik"},
        {"displacement x", "displacement q"},
        {"at L 0 0 near", "at L 0 near"},
        {"rel 1e-6\n  most", "about 1\n  most"},
        {"set=P=2000", "set=P"},
        {"case first", "case pulled"},
        {"model bar.txt % run static", "run static"},
        {"work energy", "2work energy"},
        {"between -2001 -1999", "between -2001 %"},
    };
    for (const auto& [good, bad] : wrongs) {
        folder.write("cases.txt", replaced(cases, good, bad));
        EXPECT_TRUE(contains(refused("verify cases.txt").err, "cases.txt: token ")) << bad;
    }
    for (std::size_t length = 20; length < cases.size() - 5; length += 97) {
        folder.write("cases.txt", cases.substr(0, length));
        const int status = this->run("verify cases.txt").status;
        EXPECT_TRUE(status >= 0 && status <= 2) << length;
    }
    EXPECT_TRUE(contains(refused("verify nothing.txt").err, "nothing.txt: "));
}

// Published targets, as the folder states them: some of each kind, the whole is for `kestralum-batch verify`.
TEST_F(Verify, TheShippedFolderHoldsWhereItIsQuick) {
    const std::string folder_of = std::string(KESTRALUM_SOURCE_DIR) + "/verify/cases.txt";
    for (const char* only :
         {"patch", "cook4", "column_free_hex", "thermal_bar", "tied_nested", "cases_hex", "slanted"}) {
        const Ended run = this->run("verify " + folder_of + " --only " + only);
        EXPECT_EQ(run.status, 0) << run.out << run.err;
        EXPECT_TRUE(contains(run.out, " 0 missed")) << run.out;
    }
}
