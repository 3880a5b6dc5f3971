// `verify`: cases against their targets, what is missed and what is refused; and that the shipped folder
// holds.
#include <array>
#include <regex>

#include "app/html_text.h"
#include "app/svg_chart.h"
#include "app/verify_peer.h"
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

// The line that begins with `start`.
std::string line_of(const std::string& text, const std::string& start) {
    const std::size_t at = text.find("\n" + start);
    EXPECT_NE(at, std::string::npos) << start << text;
    return at == std::string::npos ? "" : lines_of(text.substr(at + 1)).front();
}

int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

struct Verify : Batch {
    void SetUp() override {
        Batch::SetUp();
        std::filesystem::create_directory(folder.path() / "verify");
        for (const char* name : {"bar.txt", "verify/bar.txt"})
            folder.write(name, replaced(bar_text, "boundary_condition",
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
    // settings that cannot be read are not passed over
    folder.write("verify/cases.txt", cases);
    folder.write("verify/bar.ana", "BAR explicit end_time what END\n");
    EXPECT_TRUE(contains(this->run("verify pulled").out, "MISSED: verify/bar.ana: token 4 'what'"));
}

// Without a folder of cases those of the source tree are taken, or the ones installed.
TEST_F(Verify, TakesTheCasesBesideTheProgram) {
    if (!std::filesystem::exists(KESTRALUM_BINARY_DIR "/../verify/cases.txt"))
        GTEST_SKIP() << "the build stands outside the source tree";
    const Ended run = this->run("verify patch_hex --quiet");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out, "1 case: 12 checks met, 0 missed, 1 shown\n")) << run.out;
}

// A misspelt parameter changes nothing, and is told; an expression without a value is not told by the page.
TEST_F(Verify, TellsWhatAParameterIsNot) {
    folder.write("cases.txt", replaced(cases, "set=P=2000", "set=P=2000 set=PP=7"));
    Ended run = this->run("verify cases.txt pulled");
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(count_of(run.out, "\n  note: bar.txt: --set PP: the model file defines no such parameter"), 1)
        << run.out;
    const std::string sum = "1" + std::string(1 << 20, '+');
    for (const auto& [good, bad] :
         {std::pair<const char*, std::string>{"near 2*P*L", "near " + sum + "+2*P*L"},
          {"set=P=2000", "set=P=" + sum}}) {
        folder.write("cases.txt", replaced(cases, good, bad));
        run = this->run("verify cases.txt pulled");
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(contains(run.out, "MISSED: ") && contains(run.out, "++...")) << run.out.substr(0, 3000);
        EXPECT_LT(run.out.size(), 3000u);
    }
    EXPECT_LT(refused("verify " + std::string(100000, 'x')).err.size(), 1000u);
}

// An infinite target or tolerance would be met by any value, a place that is none by the first node, and what
// an analysis does not compute would be 0.
TEST_F(Verify, MissesWhatIsNoNumberOrNotComputed) {
    const std::array<std::array<const char*, 3>, 6> wrongs{{
        {"near 2*P*L/(4e11*A) rel", "near 1/0 rel", "'1/0' is not a finite number"},
        {"A) rel 1e-6\n  most", "A) rel 1/0\n  most", "'1/0' is not a finite number"},
        {"formula 2*tip above tip", "formula 2*tip below tip/0", "'tip/0' is not a finite number"},
        {"displacement x at L 0 0", "displacement x at 0/0 0 0", "'0/0' is not a finite number"},
        {"energy near 0.5*P*tip", "frequency 1 near 0", "the analysis has no frequencies"},
        {"f frequency 1", "f load_factor 1", "the analysis has no load factors"},
    }};
    for (const auto& [good, bad, told] : wrongs) {
        folder.write("cases.txt", replaced(cases, good, bad));
        const Ended run = this->run("verify cases.txt");
        EXPECT_EQ(run.status, 1) << bad;
        EXPECT_TRUE(contains(run.out, std::string("MISSED: ") + told)) << bad << run.out;
    }
}

// What is asked for runs, and what it refers to is known; the rest is counted or refused.
TEST_F(Verify, RunsTheCasesThatAreNamed) {
    const std::string long_one = replaced(cases, "run static set=P=2000 %", "run static set=P=2000 long %");
    folder.write("cases.txt", long_one);
    folder.write("verify/cases.txt", long_one);
    for (const char* words : {"verify cases.txt first", "verify first", "verify 'fi*'",
                              "verify cases.txt --quick", "verify --only fir 'pull*' first"}) {
        const Ended run = this->run(words);
        EXPECT_EQ(run.status, 0) << words << run.out << run.err;
        // of the other case only the value that is referred to
        EXPECT_TRUE(contains(run.out, "\n1 case: 1 checks met, 0 missed, 1 shown\n")) << words << run.out;
        EXPECT_FALSE(contains(run.out, "\npulled ")) << words;
        EXPECT_EQ(contains(run.out, "1 long case left out\n"), contains(words, "--quick")) << words;
    }
    EXPECT_TRUE(contains(this->run("verify pulled first").out, "\n2 cases: 6 checks met"));
    EXPECT_TRUE(contains(refused("verify pulled frist").err, "'frist'; the nearest name is 'first'"));
    EXPECT_TRUE(contains(refused("verify 'p*' 'q*'").err, "no case is named 'q*'; --list tells the names"));
    EXPECT_TRUE(contains(refused("verify elsewhere").err, "'elsewhere'; --list tells the names"));
    refused("verify other/cases.txt first");
    for (const char* words : {"verify ''", "verify cases.txt ''", "verify '' first", "verify --quick ''"})
        EXPECT_TRUE(contains(refused(words).err, "an empty name")) << words;
    // what looks like a file is one where it is there
    folder.write("verify/cases.txt", replaced(cases, "case first ", "case sub/first.bar "));
    for (const char* words : {"verify sub/first.bar", "verify 'sub/*'", "verify 'sub/first.*' --quick"})
        EXPECT_TRUE(contains(this->run(words).out, "\n1 case: 1 checks met, 0 missed, 1 shown\n")) << words;
    EXPECT_TRUE(contains(refused("verify sub/second.bar").err, "sub/second.bar: ")) << "no file of the name";
    refused("verify first --list --report page.html");
    refused("static bar.txt --quick");
}

// The word `orders`: rows of all elements, beside cases or alone; a case of that name goes before it.
TEST_F(Verify, TellsObservedOrdersWhereTheyAreNamed) {
    folder.write("cases.txt", cases);
    Ended run = this->run("verify cases.txt orders-explicit pulled --quick --report page.html");
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "1 case: 5 checks met, 0 missed, 0 shown\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "18 rows, 0 below theory\n")) << run.out;
    const std::string page = read_file(folder.path() / "page.html");
    EXPECT_TRUE(contains(page, "<a href=\"#orders\">") && contains(page, "<h2 id=\"orders\">")) << page;
    EXPECT_EQ(count_of(page, "<figcaption>explicit, random meshes: "), 2);
    EXPECT_EQ(count_of(page, "<figcaption>explicit, regular meshes: "), 2);
    run = this->run("verify cases.txt orders-explicit --quick");
    EXPECT_TRUE(run.status == 0 && !contains(run.out, "cases:")) << run.out;
    for (const auto& [words, told] : {std::pair{"orders --list", "orders does not go with --list"},
                                      {"orders --peer ccx", "orders does not go with --peer"},
                                      {"orders-modal", "orders-modal: there are orders-static"},
                                      {"ordersx", "no case is named 'ordersx'"}}) {
        run = this->run(std::string("verify cases.txt ") + words);
        EXPECT_EQ(run.status, 2) << words;
        EXPECT_TRUE(contains(run.err, told)) << run.err;
    }
    folder.write("cases.txt", replaced(cases, "case first ", "case orders "));
    run = this->run("verify cases.txt orders");
    EXPECT_TRUE(contains(run.out, "1 case: 1 checks met, 0 missed, 1 shown\n")) << run.out;
}

TEST_F(Verify, ListsWithoutRunning) {
    folder.write("cases.txt",
                 replaced(cases, "model bar.txt % run static", "model gone.txt % run static long"));
    const Ended run = this->run("verify cases.txt --list");
    EXPECT_EQ(run.status, 0) << run.err;
    const auto lines = lines_of(run.out.substr(run.out.find("\npulled ") + 1));
    ASSERT_EQ(lines.size(), 4u) << run.out;
    EXPECT_EQ(tokens_of(lines[0]), tokens_of("pulled static long A bar"));
    EXPECT_EQ(tokens_of(lines[1]), tokens_of("Hooke (1678)"));
    EXPECT_EQ(tokens_of(lines[2]), tokens_of("first eigen-lanczos"));
    // without a log folder to itself; what runs says why there is none: the system's folder takes no other
    EXPECT_EQ(this->run("verify cases.txt --list --log /sys/none/log").status, 0);
    const Ended refusal = refused("verify cases.txt --log /sys/none/log");
    EXPECT_TRUE(contains(refusal.err, "the folder /sys/none/log cannot be written: ")) << refusal.err;
    EXPECT_FALSE(contains(refusal.err, "No such file")) << refusal.err;
}

// Columns of today stay where they are; tolerance and seconds follow, and what is known to be bad says so.
TEST_F(Verify, TellsToleranceTimeAndWhatIsWeak) {
    folder.write("cases.txt", replaced(replaced(cases, "near P/A rel 1e-6", "shown P/A"), "title A bar",
                                       "family Bars % weak a rod is no beam % title A bar"));
    const Ended run = this->run("verify cases.txt");
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "\n  source: Hooke (1678)\npulled ")) << run.out;
    const std::string line = line_of(run.out, "pulled                       tip ");
    EXPECT_TRUE(contains(line, "   5e-06          5e-06    ")) << line;
    const auto words = tokens_of(line);
    ASSERT_EQ(words.size(), 10u) << line;
    EXPECT_EQ(words[6] + words[7] + words[8], "ok0.0001%");
    EXPECT_TRUE(std::regex_match(words[9], std::regex("[0-9]+\\.[0-9]{2}"))) << line;  // seconds
    EXPECT_TRUE(contains(line_of(run.out, "pulled                       most "), " %  weak"));
    EXPECT_TRUE(contains(run.out, "\n  weak: a rod is no beam\n"));
    EXPECT_TRUE(contains(run.out, "2 cases: 5 checks met, 0 missed, 2 shown\n1 of those shown "));
}

// A cantilever whose enhanced hexahedra bend and whose full ones lock, on two meshes.
const std::string bending =
    "case coarse family Bending <of> bars % title Enhanced, 2 cells % source Euler (1744) %\n"
    "model bent.txt % run static set=N=2 hexahedra=enhanced %\n"
    "check tip displacement y set BAR_END near P*L^3/(3*2e11*B^4/12) rel 0.2 plot\n"
    "  none reaction CLAMP x near 0 abs 1e-3 plot %\n"
    "case fine family Bending <of> bars % source Euler (1744) % model bent.txt %\n"
    "run static set=N=8 hexahedra=enhanced %\n"
    "check tip displacement y set BAR_END near P*L^3/(3*2e11*B^4/12) rel 0.02 plot %\n"
    "case locked family Bending <of> bars % weak full hexahedra lock % model bent.txt %\n"
    "run static set=N=2 hexahedra=full %\n"
    "check tip displacement y set BAR_END shown P*L^3/(3*2e11*B^4/12) plot %\n"
    "case locked_fine family Bending <of> bars % weak full hexahedra lock % model bent.txt %\n"
    "run static set=N=8 hexahedra=full %\n"
    "check tip displacement y set BAR_END shown P*L^3/(3*2e11*B^4/12) plot %\n"
    "case apart model gone.txt % run static % check tip displacement y at 0 0 0 below 1 %\nEND\n";

// A case like another one: what it says itself holds instead; what is shown is not judged, what follows is.
TEST_F(Verify, TakesOverWhatACaseDoesNotSayItself) {
    const std::string more =
        "case again like pulled run static set=P=3000 % check work energy shown 1 %\n"
        "case unjudged like pulled title Other bar % weak some reason % shown\n"
        "check tip displacement x at L 0 0 near 1.1*2*P*L/(4e11*A) rel 1e-6\n"
        "  smaller error_ratio most rough below 1e-3 %\nEND\n";
    const std::string rough = "case rough like pulled check most formula 1.1*P/A near P/A rel 0.2 %\n";
    folder.write("cases.txt", replaced(cases, "END\n", rough + more));
    const Ended run = this->run("verify cases.txt 'again' unjudged");
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    // the tip's target has the parameter of the case; that of the reaction stays at 2000 N and is missed
    EXPECT_EQ(tokens_of(line_of(run.out, "again                        tip "))[2], "7.5e-06") << run.out;
    EXPECT_TRUE(contains(line_of(run.out, "again                        carried "), "MISSED"));
    EXPECT_TRUE(contains(line_of(run.out, "again                        work "), "shown"));
    // a bound stays a bound: it is no target that a value has an error to
    const auto carried = tokens_of(line_of(run.out, "unjudged                     carried "));
    ASSERT_EQ(carried.size(), 5u) << run.out;
    EXPECT_EQ(carried[2], "-2001..-1999");
    EXPECT_EQ(carried[4], "weak");
    for (const char* check : {"most", "carried", "work", "twice"})
        EXPECT_TRUE(contains(line_of(run.out, std::string("unjudged                     ") + check), "weak"))
            << check << run.out;
    EXPECT_TRUE(contains(line_of(run.out, "unjudged                     tip "), "-9.09 %  MISSED"));
    EXPECT_TRUE(contains(line_of(run.out, "unjudged                     smaller "), "  ok"));
    const std::pair<const char*, const char*> wrongs[] = {
        {"again like pulled", "again like pulledd"},
        {"again like pulled", "again like again"},
        {"again like pulled", "again title A % like pulled"},
        {"work energy shown 1", "work energy shown 1 work energy shown 1"},
        {"error_ratio most rough", "error_ratio most %"},
    };
    for (const auto& [good, bad] : wrongs) {
        folder.write("cases.txt", replaced(cases, "END\n", rough + replaced(more, good, bad)));
        EXPECT_TRUE(contains(refused("verify cases.txt").err, "cases.txt: token ")) << bad;
    }
    folder.write("cases.txt", replaced(cases, "END\n", rough + replaced(more, "most rough", "gone rough")));
    EXPECT_TRUE(contains(this->run("verify cases.txt unjudged").out, "MISSED: no check 'unjudged__gone'"));
}

// As where no window can draw: neither a display nor Xvfb.
const std::string no_pictures = "env -u DISPLAY PATH=/nowhere /usr/bin/timeout -k 5 200";

TEST_F(Verify, WritesAPageThatStandsForItself) {
    folder.write("bent.txt",
                 "%A_bar_&_its_tip.\n%L_>_B\n" +
                     replaced(replaced(replaced(read_file(folder.file("bar.txt")), "8 2 2", "N 1 1"),
                                       "P 1000", "P 1000 N 4"),
                              "area x P  L L -1 1 -1 1", "area y P  L L -1 1 -1 1"));
    folder.write("cases.txt", bending);
    const Ended run = this->run("verify cases.txt --report page.html", no_pictures);
    EXPECT_EQ(run.status, 1) << run.err;  // the case without a model is missed, and stands in the page
    EXPECT_TRUE(contains(run.out, "note: no pictures: ")) << run.out;
    EXPECT_TRUE(contains(run.out, "page                   page.html, 2 problems, 0 pictures\n")) << run.out;
    const std::string page = bytes("page.html");
    for (const char* text :
         {"<a href=\"#problem1\">Bending &lt;of&gt; bars</a>: 3 met, 2 weak</li>",
          "Source: Euler (1744)</p>\n<p>A bar &amp; its tip. L &gt; B</p>", "KESTRALUM ver3.01",
          "5, of cases.txt", "<td>fine</td><td>enhanced hexahedra</td><td>108</td>",
          "MISSED: ", "Weak: full hexahedra lock.</p>", "none: "})
        EXPECT_TRUE(contains(page, text)) << text << page;
    EXPECT_TRUE(std::regex_search(
        page, std::regex(std::filesystem::exists(KESTRALUM_SOURCE_DIR "/.git")
                             ? "<td>KESTRALUM ver[0-9.]+, commit [0-9a-f]{10}( with changes)?</td>"
                             : "<td>KESTRALUM ver[0-9.]+</td>")))
        << page;
    for (const char* text : {"<script", "<link", "src=", folder.path().c_str(), KESTRALUM_SOURCE_DIR})
        EXPECT_FALSE(contains(page, text)) << text;
    EXPECT_EQ(count_of(page, "<svg"), 1);       // a target of 0 has no error to draw
    EXPECT_EQ(count_of(page, "<polyline"), 2);  // enhanced, full
    EXPECT_EQ(count_of(page, "<circle"), 4);
    EXPECT_EQ(count_of(page, "Weak: "), 1);
    EXPECT_FALSE(exists("log/verify_pictures"));
    this->run("verify cases.txt --report again.html", no_pictures);
    EXPECT_EQ(bytes("again.html"), page);
}

// What the window program says of its options is passed on, with a program in its place that only refuses.
TEST_F(Verify, SaysWhyAPictureIsMissing) {
    folder.write("cases.txt", replaced(cases, "title A bar %", "title A bar % picture --contuor 1 %"));
    std::filesystem::permissions(
        folder.write("kestralum",
                     "#!/bin/sh\nfor word; do [ $word != --contuor ] || what=$word; done\n"
                     "echo \"kestralum: unknown option $what\" >&2; exit 2\n"),
        std::filesystem::perms::owner_all);
    const Ended run = this->run("verify cases.txt pulled --report page.html",
                                "env DISPLAY=:0 sh -c 'cp \"$0\" . && exec ./kestralum-batch \"$@\"'");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out,
                         "note: A bar: the window program has drawn no picture: kestralum: unknown "
                         "option --contuor\n"))
        << run.out;
    EXPECT_TRUE(contains(run.out, "page.html, 1 problem, 0 pictures\n")) << run.out;
}

TEST_F(Verify, SaysBeforeItRunsThatNoPageCanBeWritten) {
    folder.write("cases.txt", bending);
    for (const char* file : {"gone/page.html", "folder.html"}) {
        std::filesystem::create_directory(folder.path() / "folder.html");
        const Ended run = refused(std::string("verify cases.txt --report ") + file);
        EXPECT_TRUE(contains(run.err, std::string(file) + " cannot be written: ")) << run.err;
        EXPECT_FALSE(contains(run.out, "coarse")) << run.out;
    }
    refused("verify cases.txt --report page.txt");
}

// A program in place of CalculiX that knows the bar's answer: u = SCALE x along the bar, nothing across it.
const std::string stand_in =
    "#!/bin/sh\n"
    "echo ' displacements (vx,vy,vz) for set NALL and time  0.1000000E+01' > $2.dat\n"
    "awk '/^\\*/ {nodes = /^\\*NODE,/; next} nodes {split($0, a, \",\");\n"
    "  printf \"%d %.6E %.6E %.6E\\n\", a[1], SCALE * a[2], 0, 0}' SCALE=$SCALE $2.inp >> $2.dat\n"
    "[ -z \"$BROKEN\" ] || { rm $2.dat; echo '*ERROR in calinput'; exit 201; }\n";

// Where the two agree and where not is told case by case; what the peer has no like of is not judged.
TEST_F(Verify, ComparesWithAnotherProgram) {
    folder.write("cases.txt",
                 "case full model bar.txt % run static hexahedra=full % check t energy shown 1 %\n"
                 "case twice like full run static set=P=2000 % check %\n"
                 "case other like full run static hexahedra=enhanced % check %\n"
                 "case plastic like full run nonlinear % check %\nEND\n");
    std::filesystem::create_directory(folder.path() / "bin");
    std::filesystem::permissions(folder.write("bin/ccx", stand_in), std::filesystem::perms::owner_all);
    const std::string with = "env PATH=\"$PWD/bin:$PATH\" SCALE=1.25e-5 " + in_time;
    const Ended run = this->run("verify cases.txt --peer ccx", with);
    EXPECT_EQ(run.status, 1) << run.out << run.err;
    const std::string full = line_of(run.out, "full "), other = line_of(run.out, "other ");
    EXPECT_EQ(tokens_of(full)[3], "81");  // 9 by 3 by 3 nodes
    EXPECT_TRUE(full.ends_with("1e-06  ok")) << full;
    EXPECT_TRUE(contains(line_of(run.out, "twice "), "5.0e-01    1e-06  MISSED")) << run.out;
    EXPECT_TRUE(contains(other, "shown   hexahedra enhanced are written as C3D8I")) << other;
    EXPECT_TRUE(contains(run.out, "\nplastic                      left out: neither static nor modal\n"));
    EXPECT_TRUE(contains(run.out, "1 case agrees with CalculiX, 1 missed, 1 shown, 1 left out\n")) << run.out;
    EXPECT_EQ(this->run("verify cases.txt full --peer ccx", with).status, 0);
    EXPECT_TRUE(contains(this->run("verify cases.txt full --peer ccx", "env BROKEN=1 " + with).out,
                         "MISSED: ccx ended with status 201: *ERROR in calinput\n"));
    EXPECT_FALSE(exists("log/verify_peer"));
    const Ended without = refused("verify cases.txt --peer ccx", 2, no_pictures);
    EXPECT_TRUE(contains(without.err, "there is no ccx on the path")) << without.err;
    refused("verify cases.txt --peer other");
    refused("verify cases.txt --peer ccx --list");
}

TEST_F(Verify, AgreesWithCalculix) {
    if (kestralum::find_ccx().empty())
        GTEST_SKIP() << "CalculiX (ccx) is not installed: the comparison with it is not tried";
    const Ended run = this->run("verify " KESTRALUM_SOURCE_DIR
                                "/verify/cases.txt wedge_full thermal_bar_tet4 cases_tet_coarse "
                                "fv52_full_coarse beam_regular_full --peer ccx");
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "5 cases agree with CalculiX, 0 missed, 0 shown, 0 left out\n")) << run.out;
}

// Displacements of the steps, then frequencies; what the file tells of the modes' shapes is passed over.
TEST(Ccx, ReadsWhatItPrints) {
    const kestralum::CcxResults read = kestralum::read_ccx_dat(
        "\n displacements (vx,vy,vz) for set NALL and time  0.1000000E+01\n\n"
        "         1  1.5E-06 -2.0E-07  0.0E+00\n        12  3.0E-06  0.0E+00  4.0E-08\n"
        "\n displacements (vx,vy,vz) for set NALL and time  0.2000000E+01\n\n"
        "         1  1.0E+00  2.0E+00  3.0E+00\n"
        "\n     E I G E N V A L U E   O U T P U T\n\n MODE NO    EIGENVALUE    FREQUENCY\n"
        "                       REAL PART   IMAGINARY PART\n"
        "      1   0.4E+04   0.6E+02   0.1006584E+02   0.0E+00\n"
        "      2   0.9E+04   0.9E+02   0.1509877E+02   0.0E+00\n"
        "\n     P A R T I C I P A T I O N   F A C T O R S\n\n      1   0.1   0.2   0.3   0.4   0.5   0.6\n"
        "\n displacements (vx,vy,vz) for set NALL and time  0.0000000E+00\n\n"
        "         1  9.0E+00  9.0E+00  9.0E+00\n");
    ASSERT_EQ(read.steps.size(), 2u);
    ASSERT_EQ(read.steps[0].size(), 2u);
    EXPECT_EQ(read.steps[0][1].first, 12);
    EXPECT_EQ(read.steps[0][1].second, (std::array<double, 3>{3e-6, 0, 4e-8}));
    EXPECT_EQ(read.steps[1].size(), 1u);
    EXPECT_EQ(read.frequencies, (std::vector<double>{10.06584, 15.09877}));
}

// An error that falls with a power of the unknowns is a straight line; what is not positive has no place.
TEST(LogChart, DrawsPowersAsStraightLines) {
    const kestralum::LogCurve curves[] = {{"a < b", {{10, 4}, {100, 0.4}, {1000, 0}, {10000, 0.004}}},
                                          {"c", {{1000, 0.04}}}};
    const std::string svg = kestralum::svg_log_chart(curves, "unknowns", "error [%]");
    std::vector<std::array<double, 2>> marks;
    const std::regex circle("<circle cx=\"([0-9.]+)\" cy=\"([0-9.]+)\"");
    for (std::sregex_iterator at(svg.begin(), svg.end(), circle), end; at != end; ++at)
        marks.push_back({std::stod((*at)[1]), std::stod((*at)[2])});
    ASSERT_EQ(marks.size(), 4u) << svg;
    EXPECT_LT(marks[0][0], marks[1][0]);
    EXPECT_LT(marks[0][1], marks[1][1]);  // downwards
    for (std::size_t c = 0; c < 2; ++c) {
        EXPECT_NEAR(marks[2][c] - marks[1][c], 2 * (marks[1][c] - marks[0][c]), 0.2);
        EXPECT_NEAR(marks[3][c] - marks[1][c], marks[1][c] - marks[0][c], 0.2);
    }
    for (const char* text : {">a &lt; b<", ">unknowns<", ">error [%]<", ">100<", ">0.01<"})
        EXPECT_TRUE(contains(svg, text)) << text << svg;
    const kestralum::LogCurve point[] = {{"c", {{1000, 0.04}, {2000, -1}}}};
    EXPECT_EQ(kestralum::svg_log_chart(point, "x", "y"), "");
}

TEST(Base64, IsThatOfRfc4648) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe", "//4="}};
    for (const auto& [bytes, text] : vectors) EXPECT_EQ(kestralum::base64(bytes), text);
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
        {"work energy", "tip energy"},
        {"title A bar %", "weak % title A bar %"},
        {"set=P=2000", "set=P=2000 quick"},
        {"between -2001 -1999", "between -2001 %"},
        {"title A bar %", "picture --view iso --snapshot other.png % title A bar %"},
        {"title A bar %", "picture --log=elsewhere % title A bar %"},
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
