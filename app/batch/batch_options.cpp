#include "app/batch/batch_options.h"

#include <cmath>

#include "analysis/analysis_table.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

bool set_override(BatchOptions& options, const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) return false;
    options.overrides.push_back({text.substr(0, equals), text.substr(equals + 1)});
    return true;
}

// X,Y,Z
bool add_probe(BatchOptions& options, std::string text) {
    std::array<double, 3> place{};
    for (std::size_t c = 0; c < 3; ++c) {
        const std::size_t comma = c < 2 ? text.find(',') : text.size();
        if (comma == std::string::npos) return false;
        const auto value = parse_double(std::string_view(text).substr(0, comma));
        if (!value || !std::isfinite(*value)) return false;
        place[c] = *value;
        text.erase(0, comma + 1);
    }
    options.probes.push_back(place);
    return true;
}

void check_command(BatchOptions& options) {
    if (!options.error.empty() || options.help || options.version) return;
    if (options.command.empty())
        options.error = "an analysis or `check` is missing";
    else if (options.command != "check" && !find_analysis(options.command))
        options.error = "unknown analysis '" + options.command + "'";
    else if (options.model_file.empty())
        options.error = "the model file is missing";
    else if (options.command != "explicit" && options.mean_dilatation)
        options.error = "--mean-dilatation goes with explicit";
    else if (options.command != "explicit" && options.command != "nonlinear" && !options.probes.empty())
        options.error = "--probe goes with nonlinear and explicit";
    else if (options.command == "check" && options.vtu)
        options.error = "check writes no results: --vtu goes with an analysis";
}

}  // namespace

BatchOptions parse_batch_options(std::span<const char* const> arguments) {
    BatchOptions options;
    for (std::size_t k = 0; k < arguments.size() && options.error.empty(); ++k) {
        const std::string argument = arguments[k];
        auto value = [&]() -> std::string {
            if (k + 1 < arguments.size()) return arguments[++k];
            options.error = argument + " wants a value";
            return {};
        };
        if (argument == "--help" || argument == "-h")
            options.help = true;
        else if (argument == "--version")
            options.version = true;
        else if (argument == "--vtu")
            options.vtu = true;
        else if (argument == "--quiet")
            options.quiet = true;
        else if (argument == "--setting")
            options.setting_file = value();
        else if (argument == "--log")
            options.log_directory = value();
        else if (argument == "--mean-dilatation")
            options.mean_dilatation = true;
        else if (argument == "--probe") {
            const std::string text = value();
            if (options.error.empty() && !add_probe(options, text))
                options.error = "--probe wants X,Y,Z in metres, not '" + text + "'";
        } else if (argument == "--set") {
            const std::string text = value();
            if (options.error.empty() && !set_override(options, text))
                options.error = "--set wants NAME=EXPRESSION, not '" + text + "'";
        } else if (argument.starts_with("-"))
            options.error = "unknown option " + argument;
        else if (options.command.empty())
            options.command = argument;
        else if (options.model_file.empty())
            options.model_file = argument;
        else
            options.error = "'" + argument + "' is one argument too many";
    }
    if (options.error.empty() && (options.log_directory.empty() || options.setting_file.empty()))
        options.error = "an empty file or folder name";
    check_command(options);
    return options;
}

std::string batch_usage() {
    std::string analyses;
    for (const AnalysisEntry& entry : analysis_table())
        analyses += std::string(analyses.empty() ? "" : ", ") + entry.batch_word;
    return "kestralum-batch ANALYSIS MODEL_FILE [--set NAME=EXPRESSION]... [--setting FILE] [--log DIR] "
           "[--vtu] [--quiet]\n"
           "kestralum-batch check MODEL_FILE [--set NAME=EXPRESSION]... [--setting FILE] [--quiet]\n"
           "kestralum-batch --help | --version\n"
           "\n"
           "  ANALYSIS              " +
           analyses +
           "\n"
           "  MODEL_FILE            the model; its control file (.ana) is read from beside it\n"
           "  check                 reads and meshes only and tells what the model is made of and what it "
           "needs\n"
           "  --set NAME=EXPRESSION gives a parameter of the model another expression; repeatable\n"
           "  --setting FILE        settings file instead of setting/setting.txt\n"
           "  --log DIR             writes there instead of log; one run at a time in a folder\n"
           "  --vtu                 writes NAME.vtu for ParaView beside the result file; nonlinear, "
           "explicit: one a frame and NAME.pvd\n"
           "  --probe X,Y,Z         nonlinear, explicit: motion of the nearest node in the history, metres; "
           "repeatable\n"
           "  --mean-dilatation     explicit: hexahedra with one pressure each, for large plastic strains\n"
           "  --quiet               prints the closing summary only\n"
           "\n"
           "Exit status: 0 done; 1 the analysis could not be completed; 2 bad usage, missing settings, "
           "unreadable or wrong input.\n";
}

}  // namespace kestralum
