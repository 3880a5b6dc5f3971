// Sweeps over parameters on the command line.
#include "app/sweep.h"
#include "batch_run.h"
#include "model/format.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// The fields of a table's lines, without quotes: none of these tests' texts needs them.
std::vector<std::vector<std::string>> fields_of(const std::string& csv) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : lines_of(csv)) {
        std::vector<std::string>& row = rows.emplace_back(1);
        for (const char c : line)
            if (c == ',')
                row.emplace_back();
            else
                row.back() += c;
    }
    return rows;
}

std::string field(const std::vector<std::vector<std::string>>& rows, std::size_t row, const std::string& of) {
    const auto at = std::ranges::find(rows[0], of);
    EXPECT_NE(at, rows[0].end()) << of;
    return at == rows[0].end() ? "" : rows[row].at(at - rows[0].begin());
}

std::string without_seconds(const std::string& csv) {
    std::string text;
    for (const std::string& line : lines_of(csv)) text += line.substr(0, line.rfind(',')) + "\n";
    return text;
}

}  // namespace

TEST(SweepAxis, TakesRangesAndListsAndSaysWhatIsWrong) {
    const std::pair<const char*, std::vector<double>> taken[] = {
        {"h=0.01:0.05:5", {0.01, 0.02, 0.03, 0.04, 0.05}},
        {"h=3:-1:3", {3, 1, -1}},
        {"h=2:9:1", {2}},
        {"h=1e-3,-2,+4", {1e-3, -2, 4}},
        {"h=7", {7}}};
    for (const auto& [text, values] : taken) {
        SweepAxis axis;
        EXPECT_EQ(read_sweep_axis(text, axis), "") << text;
        EXPECT_EQ(axis.values, values) << text;
    }
    const std::pair<const char*, const char*> refused[] = {
        {"h", "'h'"},         {"=1", "'=1'"},     {"h=", "'h='"},         {"h=1:2", "FROM:TO:COUNT"},
        {"h=1:x:3", "'x'"},   {"h=nan", "'nan'"}, {"h=1,,2", "''"},       {"h=1:2:2.5", "'2.5'"},
        {"h=1:2:0", "not 0"}, {"h=0:1:-3", "-3"}, {"h=1:inf:3", "'inf'"}, {"h=0:1:10001", "10000"},
        {"time=1", "'time'"}};
    for (const auto& [text, word] : refused) {
        SweepAxis axis;
        EXPECT_TRUE(contains(read_sweep_axis(text, axis), word)) << text << read_sweep_axis(text, axis);
    }
    const SweepAxis many{"h", std::vector<double>(101)}, one{"h", {1, 2, 1}};
    std::vector<SweepAxis> axes{many, many};
    for (SweepAxis& axis : axes)
        for (std::size_t k = 0; k < axis.values.size(); ++k) axis.values[k] = static_cast<double>(k);
    EXPECT_TRUE(contains(refused_axes(axes, {}), "stands twice"));
    axes[1].name = "b";
    EXPECT_TRUE(contains(refused_axes(axes, {}), "10201 runs"));
    EXPECT_TRUE(contains(refused_axes(std::array{one}, {}), "the value 1 stands twice"));
    const ParameterOverride set[] = {{"b", "1"}};
    axes[0].values.resize(3);
    EXPECT_TRUE(contains(refused_axes(axes, set), "--set"));
    EXPECT_EQ(refused_axes(axes, {}), "");
}

// The bar's end moves by P L / (E B²); each row has the digits of a run of its own.
TEST_F(Batch, ASweepGivesWhatSeparateRunsGive) {
    const Ended sweep = run("static bar.txt --sweep B=0.01,0.02 --sweep P=1000:3000:3");
    ASSERT_EQ(sweep.status, 0) << sweep.out << sweep.err;
    const auto rows = fields_of(bytes("log/sweep_bar.csv"));
    ASSERT_EQ(rows.size(), 7u);
    std::size_t at = 0;
    for (const std::string b : {"0.01", "0.02"})
        for (const std::string p : {"1000", "2000", "3000"}) {
            ASSERT_TRUE(rows[++at][0] == b && rows[at][1] == p && rows[at][2] == "done") << at;
            const double u = *parse_double(field(rows, at, "largest displacement [m]")),
                         area = *parse_double(b);
            EXPECT_NEAR(u, *parse_double(p) * 0.2 / (2e11 * area * area), 1e-6 * u);
            EXPECT_NEAR(*parse_double(field(rows, at, "total mass [kg]")), 7800 * 0.2 * area * area, 1e-9);
            EXPECT_NEAR(*parse_double(field(rows, at, "strain energy [J]")), u * *parse_double(p) / 2, 1e-8);
            const Ended alone = run("static bar.txt --quiet --set B=" + b + " --set P=" + p + " --log alone");
            for (const std::string& figure :
                 {formatted("%.6e m at", u),
                  formatted("%.6e N/m^2 at node ",
                            *parse_double(field(rows, at, "largest Mises stress [Pa]"))) +
                      field(rows, at, "stress at node") + " "})
                EXPECT_TRUE(contains(alone.out, figure)) << figure << alone.out;
        }
    EXPECT_TRUE(contains(sweep.out, "6/6  B=0.02 P=3000: largest displacement 7.5")) << sweep.out;
    EXPECT_EQ(std::filesystem::directory_iterator(folder.path() / "log/sweep")->path().filename(), ".lock");
    EXPECT_FALSE(exists("log/result_bar.txt"));
}

// Small and large models in turn, each with as many threads as it is given: not a digit differs.
TEST_F(Batch, ASweepGivesTheSameDigitsOnAnyNumberOfThreads) {
    folder.write("bar.txt", replaced(replaced(bar_text, "P 1000", "P 1000 n 2"), "8 2 2", "8*n n n"));
    std::string former;
    for (const std::string threads : {"1", "3"}) {
        folder.write("setting/setting.txt", replaced(settings_text(), "N_THREADS 2", "N_THREADS " + threads));
        const Ended sweep = run("static bar.txt --quiet --sweep n=2,9,3");
        ASSERT_EQ(sweep.status, 0) << sweep.out << sweep.err;
        const std::string csv = without_seconds(bytes("log/sweep_bar.csv"));
        EXPECT_EQ(lines_of(csv).size(), 4u);
        EXPECT_TRUE(former.empty() || former == csv) << former << csv;
        former = csv;
    }
}

TEST_F(Batch, EveryAnalysisCanBeSwept) {
    folder.write("bar.txt", replaced(bar_text, "END", "mode_num 8 %\nEND"));
    folder.write("bar.ana", "x explicit end_time 20e-6 output_frequency 4 d_time 1e-6 END");
    // analysis, a column, its value at L = 0.1 over that at 0.2, within; a column it has not
    struct Case {
        const char *analysis, *column;
        double ratio, within;
        const char* absent;
    };
    const Case cases[] = {{"eigen-subspace", "frequency 6 [Hz]", 0, 0, "load factor"},
                          {"eigen-lanczos", "frequency 1 [Hz]", 0, 0, "end time"},
                          {"nonlinear", "last displacement [m]", 0.5, 1e-4, "frequency"},
                          {"nonlinear", "total mass [kg]", 0.5, 1e-9, "estimated error"},
                          {"explicit", "end time [s]", 1, 1e-9, "strain energy"}};
    for (const Case& c : cases) {
        const Ended sweep = run(std::string(c.analysis) + " bar.txt --quiet --sweep L=0.1,0.2");
        ASSERT_EQ(sweep.status, 0) << sweep.out << sweep.err;
        const std::string csv = bytes("log/sweep_bar.csv");
        const auto rows = fields_of(csv);
        const double a = *parse_double(field(rows, 1, c.column)), b = *parse_double(field(rows, 2, c.column));
        if (c.ratio > 0)
            EXPECT_NEAR(a / b, c.ratio, c.within) << c.analysis;
        else
            EXPECT_GT(a, b) << c.analysis;
        EXPECT_FALSE(contains(csv, c.absent)) << c.analysis;
    }
    folder.write("bar.txt", replaced(replaced(bar_text, "P 1000", "P -1000"), "0.2  B", "0.4  B"));
    ASSERT_EQ(run("buckling bar.txt --quiet --sweep P=-1000,-2000").status, 0);
    const auto rows = fields_of(bytes("log/sweep_bar.csv"));
    const double one = *parse_double(field(rows, 1, "load factor 1")),
                 two = *parse_double(field(rows, 2, "load factor 1"));
    EXPECT_NEAR(one / two, 2, 1e-6);
}

TEST_F(Batch, ARunOfASweepThatFailsIsARow) {
    for (const char* name : {"log/sweep/B_1", "log/sweep/B_0.03"})
        std::filesystem::create_directories(folder.path() / name);
    folder.write("log/sweep/B_1/.sweep", "");  // what a sweep left that was broken off
    folder.write("log/sweep/B_0.03/mine.txt", "somebody's own");
    const Ended sweep = run("static bar.txt --sweep B=0.01,0,0.02,0.03");
    EXPECT_EQ(sweep.status, 1) << sweep.out;
    EXPECT_EQ(sweep.err, "2 of 4 runs failed\n");
    const std::string csv = bytes("log/sweep_bar.csv");
    const auto lines = lines_of(csv);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_TRUE(lines[1].starts_with("0.01,done,,") && lines[3].starts_with("0.02,done,,")) << csv;
    EXPECT_TRUE(lines[2].starts_with("0,") && !lines[2].starts_with("0,done")) << csv;
    EXPECT_TRUE(contains(lines[4], "is in the way") &&
                bytes("log/sweep/B_0.03/mine.txt") == "somebody's own");
    EXPECT_FALSE(exists("log/sweep/B_1"));
    // nothing of it when there is no run
    const std::pair<const char*, const char*> words[] = {
        {"static bar.txt --sweep nope=1", "bar.txt defines no such parameter"},
        {"static absent.txt --sweep B=1", "absent.txt"},
        {"check bar.txt --sweep B=1", "--sweep goes with an analysis"},
        {"verify --sweep B=1", "verify takes"},
        {"static bar.txt --sweep B=1 --vtu", "--vtu"},
        {"static bar.txt --sweep B=1 --probe 0,0,0", "--probe"},
        {"static bar.txt --sweep B=1 --tidy", "--tidy"},
        {"static bar.txt --sweep B=1 --set B=2", "--set"},
        {"static bar.txt --sweep B=1 --sweep B=2", "twice"},
        {"static bar.txt --sweep B=1 --sweep L=1 --sweep P=2", "two"},
        {"static bar.txt --sweep B=x", "'x' is not a number"}};
    for (const auto& [line, said] : words) EXPECT_TRUE(contains(refused(line).err, said)) << line;
    // another sweep holds the folder: a sweep is refused, an analysis is not
    const std::string held = "flock log/sweep/.lock " + in_time;
    EXPECT_TRUE(contains(refused("static bar.txt --sweep B=1 --log log", 2, held).err, "log/sweep"));
    EXPECT_EQ(bytes("log/sweep_bar.csv"), csv);
    EXPECT_EQ(run("static bar.txt", held).status, 0);
}

TEST_F(Batch, AnInterruptedSweepKeepsTheRowsThatAreDone) {
    folder.write("bar.ana", "x explicit end_time T output_frequency 1000000 d_time 1e-6 END");
    folder.write("bar.txt", replaced(bar_text, "P 1000", "P 1000 T 1e-5"));
    const Ended stopped =
        run("explicit bar.txt --sweep T=1e-5,2e-5,1e3,2e3,3e3", "timeout --preserve-status -s INT -k 15 3");
    EXPECT_EQ(stopped.status, 1);
    EXPECT_EQ(stopped.err, "stopped on request: 2 of 5 runs are done\n");
    const auto rows = fields_of(bytes("log/sweep_bar.csv"));
    ASSERT_EQ(rows.size(), 3u) << stopped.out;
    EXPECT_TRUE(field(rows, 1, "end time [s]") != field(rows, 2, "end time [s]") && rows[2][1] == "done");
    const std::string csv = bytes("log/sweep_bar.csv");
    EXPECT_EQ(run("explicit bar.txt --sweep T=1e3", "timeout --preserve-status -s INT -k 15 1").status, 1);
    EXPECT_EQ(bytes("log/sweep_bar.csv"), csv) << "nothing is done: the earlier table stays";
    EXPECT_EQ(std::ranges::distance(std::filesystem::directory_iterator(folder.path() / "log/sweep")), 1);
}
