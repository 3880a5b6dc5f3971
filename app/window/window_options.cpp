#include "app/window/window_options.h"

#include <algorithm>
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

std::string take_direction(WindowOptions& options, const std::string& text) {
    using view::ViewDirection;
    constexpr std::pair<std::string_view, ViewDirection> words[] = {{"x", ViewDirection::x},
                                                                    {"y", ViewDirection::y},
                                                                    {"z", ViewDirection::z},
                                                                    {"iso", ViewDirection::isometric}};
    for (const auto& [word, direction] : words)
        if (text == word) {
            options.direction = direction;
            return {};
        }
    return "--view wants x, y, z or iso, not '" + text + "'";
}

// Words separated by commas.
std::string take_entries(const std::string& option, const std::string& text, std::vector<std::size_t>& rows) {
    for (std::size_t from = 0; from <= text.size();) {
        const std::size_t comma = std::min(text.find(',', from), text.size());
        const std::string word = text.substr(from, comma - from);
        from = comma + 1;
        const auto row =
            std::find_if(view::view_entries.begin(), view::view_entries.end(),
                         [&](const view::ViewEntry& entry) { return option_word(entry.text) == word; });
        if (row == view::view_entries.end()) return option + ": '" + word + "' is no entry of the View menu";
        rows.push_back(row - view::view_entries.begin());
    }
    return {};
}

// Words for a help text that goes on in lines of at most eight.
std::string listed(std::span<const std::string> words) {
    std::string text;
    for (std::size_t k = 0; k < words.size(); ++k)
        text += (k == 0 ? "" : k % 8 == 0 ? ",\n" : ", ") + words[k];
    return text;
}

void describe_snapshot(CommandLine& line, WindowOptions& options) {
    std::vector<std::string> analyses, entries;
    for (const AnalysisEntry& entry : analysis_table()) analyses.push_back(entry.batch_word);
    for (const view::ViewEntry& entry : view::view_entries) entries.push_back(option_word(entry.text));
    line.add_value("--snapshot", "FILE", "draws the model into an image (.png) without showing a window",
                   [&options](const std::string& text) {
                       options.snapshot = text;
                       return std::string(text.empty() ? "--snapshot wants the name of an image" : "");
                   });
    OptionTerms terms{"--snapshot", "", "Options of a snapshot"};
    auto add = [&](const std::string& name, const std::string& shape, const std::string& description,
                   Take take) { line.add_value(name, shape, description, std::move(take), terms); };
    using Text = const std::string&;
    line.add_text("--analysis", "ANALYSIS", "runs it first: " + listed(analyses), options.analysis, terms);
    terms.excludes = "--analysis";
    line.add_text("--result", "FILE", "shows the results of this file", options.result_file, terms);
    terms.excludes.clear();
    add("--contour", "N|plastic|error|NAME",
        "0 ... 16 in the order of the Contour menu, 17 part colours, -1 none; 4 unless given;\n"
        "plastic: equivalent plastic strain; error: estimated error of the stress; or the name\n"
        "of a further quantity as --quantities has it: principal_stress_1, safety_factor ...",
        [&options](Text text) { return take_contour(text, options.display); });
    add("--frame", "K", "mode or output step, from 1",
        [&options](Text text) { return take_integer("--frame", text, 1, 9999, options.frame); });
    add("--view", "x|y|z|iso", "looks from there; iso unless given",
        [&options](Text text) { return take_direction(options, text); });
    add("--size", "WxH", "pixels; 800x600 unless given",
        [&options](Text text) { return take_size(options, text); });
    add("--scale", "S", "mode scale, 0.1 ... 10",
        [&options](Text text) { return take_number("--scale", text, 0.1, 10, options.scale); });
    add("--opacity", "A", "of the model, 0.01 ... 1",
        [&options](Text text) { return take_number("--opacity", text, 0.01, 1, options.opacity); });
    describe_display(line, options.display, terms);
    add("--show", "LIST", "entries of the View menu, separated by commas:\n" + listed(entries),
        [&options](Text text) { return take_entries("--show", text, options.show); });
    add("--hide", "LIST", "the same",
        [&options](Text text) { return take_entries("--hide", text, options.hide); });
}

CommandLine describe(WindowOptions& options) {
    CommandLine line(
        "kestralum [MODEL_FILE] [--log DIR] [--quiet]\n"
        "kestralum MODEL_FILE --snapshot FILE [OPTION]...\n"
        "kestralum --help | --version",
        options);
    line.add_text("MODEL_FILE", "",
                  "the model to open, or a mesh or CAD file: a model of it is\nwritten beside it",
                  options.model_file);
    line.add_text("--log", "DIR", "analyses write there instead of log", options.log_folder);
    line.add_flag("--quiet", "no lines of the stages on the console", options.quiet);
    describe_snapshot(line, options);
    line.add_footer("Exit status: 0 done; 1 the picture could not be made; 2 bad usage or wrong input.");
    return line;
}

// What does not go together.
std::string check_options(const WindowOptions& options) {
    if (!options.snapshot.empty() && options.model_file.empty() && options.result_file.empty())
        return "--snapshot wants a model file";
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
