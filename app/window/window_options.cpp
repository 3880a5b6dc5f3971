#include "app/window/window_options.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/command_line.h"
#include "app/window/display_options.h"
#include "model/token_reader.h"
#include "view/contour.h"
#include "view/display_state.h"

namespace kestralum {

namespace {

// "&Part Axes" as "part-axes": how the command line names an entry of the View menu.
std::string option_word(const char* menu_text) {
    std::string word;
    for (const char* c = menu_text; *c; ++c) {
        if (*c == '&' || *c == '.') continue;
        word += *c == ' ' ? '-' : *c >= 'A' && *c <= 'Z' ? static_cast<char>(*c - 'A' + 'a') : *c;
    }
    return word;
}

std::string take_integer(const std::string& option, const std::string& text, std::int32_t low,
                         std::int32_t high, std::int32_t& place) {
    const auto value = parse_int32(text);
    if (!value || *value < low || *value > high)
        return option + " wants an integer from " + std::to_string(low) + " to " + std::to_string(high) +
               ", not '" + text + "'";
    place = *value;
    return {};
}

std::string take_number(const std::string& option, const std::string& text, double low, double high,
                        double& place) {
    const auto value = parse_double(text);
    if (!value || !(*value >= low && *value <= high))
        return option + " wants a number within the range of its control, not '" + text + "'";
    place = *value;
    return {};
}

std::string take_size(WindowOptions& options, const std::string& text) {
    const auto sides = view::pixmap_size(text);
    if (!sides) return "--size wants WIDTHxHEIGHT, not '" + text + "'";
    options.size = *sides;
    return {};
}

// "x", "y" and "z", and the sides by name.
std::string take_direction(WindowOptions& options, const std::string& text) {
    using view::ViewDirection;
    constexpr std::pair<std::string_view, ViewDirection> axes[] = {
        {"x", ViewDirection::x}, {"y", ViewDirection::y}, {"z", ViewDirection::z}};
    for (const auto& [word, direction] : axes)
        if (text == word) options.direction = direction;
    for (const view::NamedView& side : view::named_views)
        if (text == side.word) options.direction = side.direction;
    const bool known =
        std::ranges::any_of(axes, [&](const auto& axis) { return text == axis.first; }) ||
        std::ranges::any_of(view::named_views, [&](const auto& side) { return text == side.word; });
    return known ? std::string()
                 : "--view wants x, y, z, iso, front, back, left, right, top or bottom, not '" + text + "'";
}

std::string take_word(const std::string& option, const std::string& text, const char* no, const char* yes,
                      bool& place) {
    if (text != no && text != yes) return option + " wants " + no + " or " + yes + ", not '" + text + "'";
    place = text == yes;
    return {};
}

std::string take_film(WindowOptions& options, const std::string& text) {
    if (!film_format(text))
        return "--film wants the name of a .gif, .webm, .mp4 or .png file, not '" + text + "'";
    options.film = text;
    return {};
}

std::string take_report(WindowOptions& options, const std::string& text) {
    if (!text.ends_with(".html") && !text.ends_with(".htm"))
        return "--report wants the name of an .html file, not '" + text + "'";
    options.report = text;
    return {};
}

std::string take_film_range(WindowOptions& options, const std::string& text) {
    options.film_range = read_film_range(text);
    return options.film_range ? std::string()
                              : "--frames wants FROM:TO or FROM:TO:STEP, from 1, not '" + text + "'";
}

std::string take_entries(const std::string& option, const std::string& text, std::vector<std::size_t>& rows) {
    return each_word(text, [&](const std::string& word) -> std::string {
        const auto row =
            std::find_if(view::view_entries.begin(), view::view_entries.end(),
                         [&](const view::ViewEntry& entry) { return option_word(entry.text) == word; });
        if (row == view::view_entries.end()) return option + ": '" + word + "' is no entry of the View menu";
        rows.push_back(row - view::view_entries.begin());
        return {};
    });
}

// Words for a help text that goes on in lines of at most eight.
std::string listed(std::span<const std::string> words) {
    std::string text;
    for (std::size_t k = 0; k < words.size(); ++k)
        text += (k == 0 ? "" : k % 8 == 0 ? ",\n" : ", ") + words[k];
    return text;
}

// An option that has to do with pictures notes that it stands on the line.
struct PictureOptions {
    CommandLine& line;
    WindowOptions& options;
    OptionTerms terms{"", "", "Options of a picture, film or report"};

    void add(const std::string& name, const std::string& shape, const std::string& description, Take take) {
        line.add_value(
            name, shape, description,
            [&options = options, name, take = std::move(take)](const std::string& text) {
                if (options.drawing_option.empty()) options.drawing_option = name;
                return take(text);
            },
            terms);
    }
    void add_text(const std::string& name, const std::string& shape, const std::string& description,
                  std::string& place) {
        add(name, shape, description, [&place](const std::string& text) {
            place = text;
            return std::string();
        });
    }
};

void describe_files(CommandLine& line, WindowOptions& options) {
    using Text = const std::string&;
    line.add_value("--snapshot", "FILE",
                   "draws the model into an image (.png, .jpg) without showing a window",
                   [&options](Text text) {
                       options.snapshot = text;
                       return std::string(text.empty() ? "--snapshot wants the name of an image" : "");
                   });
    line.add_value("--film", "FILE",
                   "a film of the result: .gif, .webm or .mp4, for which ffmpeg has to be\n"
                   "installed, or NAME.png for a series NAME_0001.png ...",
                   [&options](Text text) { return take_film(options, text); });
    line.add_value("--report", "FILE", "a page for the browser (.html) with model, run and pictures",
                   [&options](Text text) { return take_report(options, text); });
}

void describe_pictures(CommandLine& line, WindowOptions& options) {
    std::vector<std::string> analyses, entries;
    for (const AnalysisEntry& entry : analysis_table()) analyses.push_back(entry.batch_word);
    for (const view::ViewEntry& entry : view::view_entries) entries.push_back(option_word(entry.text));
    using Text = const std::string&;
    PictureOptions of{line, options};
    of.add_text("--analysis", "ANALYSIS", "runs it first: " + listed(analyses), options.analysis);
    of.terms.excludes = "--analysis";
    of.add_text("--result", "FILE", "shows the results of this file", options.result_file);
    of.terms.excludes.clear();
    of.add("--contour", "N|plastic|error|NAME",
           "0 ... 16 in the order of the Contour menu, 17 part colours, -1 none; 4 unless given;\n"
           "plastic: equivalent plastic strain; error: estimated error of the stress; or the name\n"
           "of a further quantity as --quantities has it: principal_stress_1, safety_factor ...",
           [&options](Text text) { return take_contour(text, options.display); });
    of.add("--frame", "K", "mode or output step, from 1",
           [&options](Text text) { return take_integer("--frame", text, 1, 9999, options.frame); });
    of.add("--view", "x|y|z|iso|SIDE",
           "looks from there; iso unless given; SIDE: front back left right top bottom,\n"
           "from -y +y -x +x +z -z",
           [&options](Text text) { return take_direction(options, text); });
    of.add("--projection", "perspective|orthographic", "perspective unless given", [&options](Text text) {
        return take_word("--projection", text, "perspective", "orthographic", options.orthographic);
    });
    of.add("--size", "WxH", "pixels; 800x600 unless given",
           [&options](Text text) { return take_size(options, text); });
    of.add("--scale", "S", "mode scale, 0.1 ... 10",
           [&options](Text text) { return take_number("--scale", text, 0.1, 10, options.scale); });
    of.add("--opacity", "A", "of the model, 0.01 ... 1",
           [&options](Text text) { return take_number("--opacity", text, 0.01, 1, options.opacity); });
    describe_display([&](const std::string& name, const std::string& shape, const std::string& text,
                         Take take) { of.add(name, shape, text, std::move(take)); },
                     options.display);
    of.add("--show", "LIST", "entries of the View menu, separated by commas:\n" + listed(entries),
           [&options](Text text) { return take_entries("--show", text, options.show); });
    of.add("--hide", "LIST", "the same",
           [&options](Text text) { return take_entries("--hide", text, options.hide); });
    of.add("--background", "grey|white", "behind the model; grey unless given",
           [&options](Text text) { return take_word("--background", text, "grey", "white", options.white); });
    of.add("--caption", "off|on", "a line below the picture tells file, analysis and frame; off unless given",
           [&options](Text text) { return take_word("--caption", text, "off", "on", options.caption); });
    of.terms = {"--film", "", "Options of a film"};
    of.add("--frames", "FROM:TO[:STEP]",
           "modes, steps or load cases, from 1; all of them unless given, and of modes\n"
           "that of --frame: each mode swings once",
           [&options](Text text) { return take_film_range(options, text); });
    of.add("--fps", "N", "frames a second, 1 ... 50; 20 unless given, of load cases 1",
           [&options](Text text) { return take_integer("--fps", text, least_fps, most_fps, options.fps); });
}

CommandLine describe(WindowOptions& options) {
    CommandLine line(
        "kestralum [MODEL_FILE] [--log DIR] [--quiet]\n"
        "kestralum MODEL_FILE --snapshot FILE [OPTION]...\n"
        "kestralum MODEL_FILE --film FILE [OPTION]...\n"
        "kestralum MODEL_FILE --report FILE [OPTION]...\n"
        "kestralum --help | --version",
        options);
    line.add_text("MODEL_FILE", "",
                  "the model to open, or a mesh or CAD file: a model of it is\nwritten beside it",
                  options.model_file);
    line.add_text("--log", "DIR", "analyses write there instead of log", options.log_folder);
    line.add_flag("--quiet", "no lines of the stages on the console", options.quiet);
    describe_files(line, options);
    describe_pictures(line, options);
    line.add_footer("Exit status: 0 done; 1 the picture could not be made; 2 bad usage or wrong input.");
    return line;
}

// What does not go together.
std::string check_options(const WindowOptions& options) {
    if (!options.draws() && !options.drawing_option.empty())
        return options.drawing_option + " requires --snapshot, --film or --report";
    const char* const file = !options.snapshot.empty() ? "--snapshot"
                             : !options.film.empty()   ? "--film"
                                                       : "--report";
    if (options.draws() && options.model_file.empty() && options.result_file.empty())
        return std::string(file) + " wants a model file";
    if (!options.film.empty() && options.analysis.empty() && options.result_file.empty())
        return "--film wants --analysis or --result";
    if (!options.analysis.empty() && !find_analysis(options.analysis))
        return "unknown analysis '" + options.analysis + "'";
    if (options.log_folder.empty()) return "an empty folder name";
    return {};
}

}  // namespace

WindowOptions parse_window_options(std::span<const char* const> arguments) {
    WindowOptions options;
    options.error = describe(options).parse(arguments);
    if (options.error.empty() && !options.help && !options.version) options.error = check_options(options);
    return options;
}

std::string window_usage() {
    WindowOptions unused;
    return describe(unused).help_text();
}

}  // namespace kestralum
