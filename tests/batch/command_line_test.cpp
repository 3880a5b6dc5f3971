// The programs' command lines, word by word.
#include "app/batch/batch_options.h"
#include "app/window/window_options.h"
#include "batch_run.h"
#include "model/format.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// Words between blanks; '' stands for an empty one.
template <typename Parse>
auto parsed(const std::string& line, Parse parse) {
    std::vector<std::string> words = tokens_of(line);
    std::vector<const char*> arguments;
    for (std::string& word : words) arguments.push_back(word == "''" ? "" : word.c_str());
    return parse(arguments);
}

// What a line asks for, but for what it leaves as it is by default.
std::string told(const BatchOptions& o) {
    std::string text = o.command + " " + o.model_file;
    if (!o.export_file.empty()) text += " to:" + o.export_file;
    for (const ParameterOverride& set : o.overrides) text += " " + set.name + ":=" + set.expression;
    for (const auto& p : o.probes) text += formatted(" (%g %g %g)", p[0], p[1], p[2]);
    if (o.setting_file != "setting\\setting.txt") text += " setting:" + o.setting_file;
    if (o.hexahedra) text += std::string(" hexahedra:") + word_of(*o.hexahedra);
    if (o.log_folder != "log") text += " log:" + o.log_folder;
    const std::pair<bool, const char*> flags[] = {
        {o.prestress, " prestress"},  {o.vtu, " vtu"},   {o.quiet, " quiet"},     {o.tidy, " tidy"},
        {o.mean_dilatation, " mean"}, {o.help, " help"}, {o.version, " version"},
    };
    for (const auto& [given, word] : flags) text += given ? word : "";
    return text;
}

}  // namespace

TEST(CommandLine, SaysWhatToRun) {
    // clang-format off
    const std::pair<const char*, const char*> lines[] = {
        {"static bar.txt", "static bar.txt"}, {"'' static '' bar.txt", "static bar.txt"},
        {"--quiet static --vtu bar.txt --tidy", "static bar.txt vtu quiet tidy"},
        {"static bar.txt --set B=7 --log a --set B=L/5 --log b", "static bar.txt B:=7 B:=L/5 log:b"},
        {"static --set A=B=C bar.txt --set P=-5 --quiet --quiet", "static bar.txt A:=B=C P:=-5 quiet"},
        {"check bar.txt --setting --vtu --log {}", "check bar.txt setting:--vtu log:{}"},
        {"explicit [a,b] --probe -1,2e-3,+3 --mean-dilatation", "explicit [a,b] (-1 0.002 3) mean"},
        {"nonlinear m --probe 1,2,3 --probe 0,0,0", "nonlinear m (1 2 3) (0 0 0)"},
        {"static m --hexahedra full --hexahedra enhanced", "static m hexahedra:enhanced"},
        {"eigen-lanczos m --probe 1,2,3", "eigen-lanczos m (1 2 3)"},
        {"eigen-subspace --prestress m", "eigen-subspace m prestress"}, {"buckling m", "buckling m"},
        {"--quiet export m --set A=1 b/m.INP", "export m to:b/m.INP A:=1 quiet"}, {"-h", "  help"},
        {"check m --vtu --help", "check m vtu help"}, {"--version", "  version"}};
    // clang-format on
    for (const auto& [line, expected] : lines) {
        const BatchOptions options = parsed(line, parse_batch_options);
        EXPECT_EQ(options.error, "") << line;
        EXPECT_EQ(told(options), expected) << line;
    }
}

TEST(CommandLine, NamesTheWordThatIsWrong) {
    // clang-format off
    const std::pair<const char*, const char*> lines[] = {
        {"", "an analysis, `check`, `export`, `frames` or `verify`"}, {"static", "model file is missing"}, {"check", "model file"},
        {"statik bar.txt", "'statik'"}, {"bar.txt static", "'bar.txt'"}, {"'' bar.txt", "'bar.txt'"},
        {"static bar.txt more", "'more'"}, {"static bar.txt ''", "''"}, {"static -", "unknown option -"},
        {"static bar.txt -hh", "-hh"}, {"static bar.txt --log=a", "--log=a"}, {"static -- m", "option --"},
        {"static bar.txt --bogus --help", "--bogus"}, {"static bar.txt --set", "--set wants a value"},
        {"static bar.txt --set B", "'B'"}, {"static bar.txt --set =1", "'=1'"},
        {"static bar.txt --set B= --help", "'B='"}, {"static bar.txt --log", "--log"},
        {"static bar.txt --log ''", "empty"}, {"static bar.txt --setting", "--setting"},
        {"static bar.txt --setting ''", "empty"}, {"explicit bar.txt --probe", "--probe"},
        {"explicit bar.txt --probe 1,2 --probe 1,2,3", "'1,2'"}, {"explicit bar.txt --probe 1,2,x", "'1,2,x'"},
        {"explicit bar.txt --probe 1,2,3,4", "'1,2,3,4'"}, {"explicit bar.txt --probe 1,inf,3", "inf"},
        {"static bar.txt --mean-dilatation", "--mean-dilatation"}, {"check bar.txt --vtu", "--vtu"},
        {"check bar.txt --probe 1,2,3", "--probe"}, {"check bar.txt --tidy", "--tidy"},
        {"export", "model file is missing"}, {"export m", "file to export to is missing"},
        {"export m a.inp b.inp", "'b.inp'"}, {"export m a.obj", ".inp, .msh, .vtu, .stl"},
        {"export m a.inp --vtu", "--vtu"}, {"export m a.inp --probe 1,2,3", "--probe"},
        {"check m a.inp", "'a.inp'"}, {"static m --hexahedra wedge", "'wedge'"},
        {"check m --hexahedra full", "--hexahedra"},
        {"buckling m --prestress", "--prestress goes with eigen"}, {"check m --prestress", "--prestress"},
        {"static m --only le", "--only goes with verify"}, {"verify c --vtu", "verify takes"},
        {"check m --case A", "--case goes with an analysis"}, {"explicit m --mean-dilatation --hexahedra full", "--mean-dilatation"}};
    // clang-format on
    for (const auto& [line, word] : lines) {
        const BatchOptions options = parsed(line, parse_batch_options);
        EXPECT_TRUE(contains(options.error, word)) << line << ": " << options.error;
        EXPECT_EQ(options.error.find('\n'), std::string::npos) << line;
    }
}

TEST(CommandLine, SaysWhatTheWindowShows) {
    const WindowOptions bare = parsed("'' m.txt --log b --quiet", parse_window_options);
    EXPECT_EQ(bare.error + bare.snapshot + bare.model_file + bare.log_folder, "m.txtb");
    EXPECT_TRUE(bare.quiet && bare.display == view::DisplayState());
    const WindowOptions full = parsed(
        "--snapshot a.png --result r --contour -1 --frame 3 --view z --size 640x480 --scale 0.1 --opacity 1 "
        "--show node,part-axes --hide bc --frame 4",
        parse_window_options);
    EXPECT_EQ(full.error + full.snapshot + full.result_file, "a.pngr");
    EXPECT_TRUE(full.display.contour == -1 && full.frame == 4 && full.scale == 0.1 && full.opacity == 1);
    EXPECT_TRUE(full.direction == view::ViewDirection::z && full.size == (std::array{640, 480}));
    EXPECT_TRUE(full.show == (std::vector<std::size_t>{0, 5}) && full.hide == std::vector<std::size_t>{6});
    EXPECT_EQ(parsed("m --snapshot a --contour plastic", parse_window_options).display.further, 100);
    const WindowOptions film = parsed(
        "m --film a.b.GIF --analysis static --frames 2:9999:3 --view bottom --projection orthographic "
        "--background white --caption on --fps 7",
        parse_window_options);
    EXPECT_EQ(film.error + film.film, "a.b.GIF");
    EXPECT_TRUE(film.film_range == (FilmRange{2, 9999, 3}) && film.fps == 7 && film.caption && film.white);
    EXPECT_TRUE(film.orthographic && film.direction == view::ViewDirection::minus_z);
    EXPECT_FALSE(full.orthographic || full.white || full.caption);
    // clang-format off
    const std::pair<const char*, const char*> refused[] = {
        {"--snapshot", "--snapshot wants"}, {"m --snapshot ''", "--snapshot wants"}, {"--snapshot a", "model file"},
        {"m --frame 2", "--frame requires --snapshot"}, {"m --snapshot a --frame 0", "'0'"},
        {"m --snapshot a --contour 18", "'18', plastic or error"}, {"m --snapshot a --scale nan", "'nan'"},
        {"m --snapshot a --size 640*480", "'640*480'"}, {"m --snapshot a --view w", "'w'"},
        {"m --snapshot a --hide wires", "'wires'"}, {"m --snapshot a --analysis dynamic", "'dynamic'"},
        {"m --snapshot a --analysis static --result r", "--result"}, {"m n", "'n'"}, {"-x", "-x"},
        {"m --log ''", "empty"}, {"m --snapshot=a", "--snapshot=a"}, {"m --film a.avi", "'a.avi'"}, {"m --report a.pdf", "'a.pdf'"}, {"--report a.html", "--report wants a model"},
        {"m --film .gif", "'.gif'"}, {"m --film a.gif", "--film wants --analysis"}, {"m --snapshot a --fps 5", "--film"},
        {"m --film a.gif --analysis static --frames 3:2", "'3:2'"}, {"m --film a.gif --frames 0:2", "'0:2'"},
        {"m --film a.gif --frames 1:2:3:4", "'1:2:3:4'"}, {"m --film a.gif --frames 4", "'4'"},
        {"m --film a.gif --fps 51", "'51'"}, {"m --snapshot a --projection flat", "'flat'"},
        {"m --caption on", "--caption requires --snapshot"}};
    // clang-format on
    for (const auto& [line, word] : refused)
        EXPECT_TRUE(contains(parsed(line, parse_window_options).error, word)) << line;
    EXPECT_EQ(parsed("m --frame 2 --help", parse_window_options).error, "");
}

TEST(Film, HasTheFramesOfItsRange) {
    using enum AnalysisType;
    const auto steps = film_frames(explicit_dynamics, 7, {2, 9999, 3});
    EXPECT_EQ(steps, (std::vector<FilmFrame>{{2, 0}, {5, 0}}));
    EXPECT_TRUE(film_frames(linear_static, 3, {4, 9, 1}).empty());
    const auto modes = film_frames(eigen, 3, {2, 3, 1});
    ASSERT_EQ(modes.size(), 2u * view::phase_count);
    EXPECT_EQ(modes[view::phase_count - 1], (FilmFrame{2, view::phase_count - 1}));
    EXPECT_EQ(modes[view::phase_count], (FilmFrame{3, 0}));
    EXPECT_EQ(series_name("a.b/c.d.PNG", 12), "a.b/c.d_0012.PNG");
    EXPECT_FALSE(film_format("a/b.gif/c"));
}

TEST_F(Batch, BadUsageIsOneLineAndTouchesNothing) {
    const Ended wrong = refused("statik bar.txt");
    EXPECT_EQ(wrong.err, "kestralum-batch: unknown analysis 'statik' (see kestralum-batch --help)\n");
    std::filesystem::remove_all(folder.path() / "setting");
    const Ended version = run("--version"), help = run("--help");
    EXPECT_EQ(version.status + help.status, 0);
    EXPECT_EQ(version.out, std::string("KESTRALUM ") + program_version + "\n");
    EXPECT_TRUE(contains(help.out, "static, eigen-subspace, eigen-lanczos, nonlinear, explicit"));
    EXPECT_EQ(wrong.out + version.err + help.err, "");
    EXPECT_FALSE(exists("log"));
}
