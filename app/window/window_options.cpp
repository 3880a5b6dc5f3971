#include "app/window/window_options.h"

#include <algorithm>

#include "analysis/analysis_table.h"
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

class Parser {
public:
    explicit Parser(std::span<const char* const> arguments) : arguments_(arguments) {}

    WindowOptions parse() {
        for (at_ = 0; at_ < arguments_.size() && out_.error.empty(); ++at_) take(arguments_[at_]);
        if (!out_.error.empty() || out_.help || out_.version) return out_;
        if (snapshot_only_.empty() || !out_.snapshot.empty())
            check();
        else
            out_.error = snapshot_only_ + " goes with --snapshot";
        return out_;
    }

private:
    void take(const std::string& argument) {
        if (argument == "--help" || argument == "-h")
            out_.help = true;
        else if (argument == "--version")
            out_.version = true;
        else if (argument == "--log")
            out_.log_directory = value(argument);
        else if (argument == "--quiet")
            out_.quiet = true;
        else if (argument.starts_with("--"))
            take_snapshot_option(argument);
        else if (argument.starts_with("-") && argument.size() > 1)
            out_.error = "unknown option " + argument;
        else if (out_.model_file.empty())
            out_.model_file = argument;
        else
            out_.error = "'" + argument + "' is one argument too many";
    }

    void take_snapshot_option(const std::string& argument) {
        const std::string text = value(argument);
        if (!out_.error.empty()) return;
        if (argument != "--snapshot") snapshot_only_ = argument;
        if (argument == "--snapshot")
            out_.snapshot = text;
        else if (argument == "--result")
            out_.result_file = text;
        else if (argument == "--analysis")
            out_.analysis = text;
        else if (argument == "--contour")
            contour(argument, text);
        else if (argument == "--frame")
            integer(argument, text, 1, 9999, out_.frame);
        else if (argument == "--scale")
            number(argument, text, 0.1, 10, out_.scale);
        else if (argument == "--opacity")
            number(argument, text, 0.01, 1, out_.opacity);
        else if (argument == "--show")
            entries(argument, text, out_.show);
        else if (argument == "--hide")
            entries(argument, text, out_.hide);
        else if (argument == "--size")
            size(text);
        else if (argument == "--view")
            direction(text);
        else
            out_.error = "unknown option " + argument;
    }

    void check() {
        if (!out_.snapshot.empty() && out_.model_file.empty() && out_.result_file.empty())
            out_.error = "--snapshot wants a model file";
        else if (!out_.analysis.empty() && !find_analysis(out_.analysis))
            out_.error = "unknown analysis '" + out_.analysis + "'";
        else if (!out_.analysis.empty() && !out_.result_file.empty())
            out_.error = "--analysis and --result exclude each other";
        else if (out_.log_directory.empty())
            out_.error = "an empty folder name";
    }

    std::string value(const std::string& argument) {
        if (at_ + 1 < arguments_.size()) return arguments_[++at_];
        out_.error = argument + " wants a value";
        return {};
    }

    void integer(const std::string& argument, const std::string& text, std::int32_t low, std::int32_t high,
                 std::int32_t& place) {
        const auto value = parse_int32(text);
        if (value && *value >= low && *value <= high)
            place = *value;
        else
            out_.error = argument + " wants an integer from " + std::to_string(low) + " to " +
                         std::to_string(high) + ", not '" + text + "'";
    }

    void contour(const std::string& argument, const std::string& text) {
        out_.plastic_strain = text == "plastic";
        if (out_.plastic_strain) return;
        integer(argument, text, -1, static_cast<std::int32_t>(view::quantities.size()) - 1, out_.contour);
        if (!out_.error.empty()) out_.error += ", or plastic";
    }

    void number(const std::string& argument, const std::string& text, double low, double high,
                double& place) {
        const auto value = parse_double(text);
        if (value && *value >= low && *value <= high)
            place = *value;
        else
            out_.error = argument + " wants a number within the range of its control, not '" + text + "'";
    }

    void size(const std::string& text) {
        const auto sides = view::pixmap_size(text);
        if (sides)
            out_.size = *sides;
        else
            out_.error = "--size wants WIDTHxHEIGHT, not '" + text + "'";
    }

    void direction(const std::string& text) {
        using view::ViewDirection;
        if (text == "x")
            out_.direction = ViewDirection::x;
        else if (text == "y")
            out_.direction = ViewDirection::y;
        else if (text == "z")
            out_.direction = ViewDirection::z;
        else if (text == "iso")
            out_.direction = ViewDirection::isometric;
        else
            out_.error = "--view wants x, y, z or iso, not '" + text + "'";
    }

    // Words separated by commas.
    void entries(const std::string& argument, const std::string& text, std::vector<std::size_t>& rows) {
        for (std::size_t from = 0; from <= text.size();) {
            const std::size_t comma = std::min(text.find(',', from), text.size());
            const std::string word = text.substr(from, comma - from);
            from = comma + 1;
            const auto row =
                std::find_if(view::view_entries.begin(), view::view_entries.end(),
                             [&](const view::ViewEntry& entry) { return option_word(entry.text) == word; });
            if (row == view::view_entries.end()) {
                out_.error = argument + ": '" + word + "' is no entry of the View menu";
                return;
            }
            rows.push_back(static_cast<std::size_t>(row - view::view_entries.begin()));
        }
    }

    std::span<const char* const> arguments_;
    std::size_t at_ = 0;
    WindowOptions out_;
    std::string snapshot_only_;  // an option that a window does not know
};

}  // namespace

WindowOptions parse_window_options(std::span<const char* const> arguments) {
    return Parser(arguments).parse();
}

std::string window_usage() {
    std::string analyses, words;
    for (const AnalysisEntry& entry : analysis_table())
        analyses += std::string(analyses.empty() ? "" : ", ") + entry.batch_word;
    for (std::size_t k = 0; k < view::view_entries.size(); ++k)
        words += (k == 0       ? ""
                  : k % 8 == 0 ? ",\n                        "
                               : ", ") +
                 option_word(view::view_entries[k].text);
    return "kestralum [MODEL_FILE] [--log DIR] [--quiet]\n"
           "kestralum MODEL_FILE --snapshot FILE [OPTION]...\n"
           "kestralum --help | --version\n"
           "\n"
           "  MODEL_FILE            the model to open\n"
           "  --log DIR             analyses write there instead of log\n"
           "  --quiet               no lines of the stages on the console\n"
           "  --snapshot FILE       draws the model into an image (.png) without showing a window\n"
           "\n"
           "Options of a snapshot:\n"
           "  --analysis ANALYSIS   runs it first: " +
           analyses +
           "\n"
           "  --result FILE         shows the results of this file\n"
           "  --contour N|plastic   0 ... 16 in the order of the Contour menu, 17 part colours, -1 none; 4 "
           "unless given;\n"
           "                        plastic: equivalent plastic strain\n"
           "  --frame K             mode or output step, from 1\n"
           "  --view x|y|z|iso      looks from there; iso unless given\n"
           "  --size WxH            pixels; 800x600 unless given\n"
           "  --scale S             mode scale, 0.1 ... 10\n"
           "  --opacity A           of the contour, 0.01 ... 1\n"
           "  --show, --hide LIST   entries of the View menu, separated by commas:\n"
           "                        " +
           words +
           "\n"
           "\n"
           "Exit status: 0 done; 1 the picture could not be made; 2 bad usage or wrong input.\n";
}

}  // namespace kestralum
