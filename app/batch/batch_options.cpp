#include "app/batch/batch_options.h"

#include <cmath>
#include <filesystem>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/command_line.h"
#include "app/export_model.h"
#include "app/section_table.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

std::string read_override(const std::string& text, std::vector<ParameterOverride>& overrides) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
        return "--set wants NAME=EXPRESSION, not '" + text + "'";
    overrides.push_back({text.substr(0, equals), text.substr(equals + 1)});
    return {};
}

std::string read_hexahedra(const std::string& text, std::optional<HexahedronForm>& form) {
    form = hexahedron_form_of(text);
    return form ? "" : "--hexahedra wants full, enhanced or mean-dilatation, not '" + text + "'";
}

namespace {

// NAME=FROM:TO:COUNT or NAME=V1,V2,...
std::string add_sweep(BatchOptions& options, const std::string& text) {
    return read_sweep_axis(text, options.sweep.emplace_back());
}

// X,Y,Z
std::string add_probe(BatchOptions& options, const std::string& text) {
    const std::string refused = "--probe wants X,Y,Z in metres, not '" + text + "'";
    std::string rest = text;
    std::array<double, 3> place{};
    for (std::size_t c = 0; c < 3; ++c) {
        const std::size_t comma = c < 2 ? rest.find(',') : rest.size();
        if (comma == std::string::npos) return refused;
        const auto value = parse_double(std::string_view(rest).substr(0, comma));
        if (!value || !std::isfinite(*value)) return refused;
        place[c] = *value;
        rest.erase(0, comma + 1);
    }
    options.probes.push_back(place);
    return {};
}

std::string add_section(BatchOptions& options, const std::string& text) {
    return read_section_plane(text, options.sections.emplace_back());
}

std::string add_line(BatchOptions& options, const std::string& text) {
    return read_line_request(text, options.lines.emplace_back());
}

// What takes results apart; empty where nothing of it is given.
std::string of_results(const BatchOptions& options) {
    if (!options.sections.empty()) return "--section";
    if (!options.lines.empty()) return "--line";
    return options.quantities ? "--quantities" : "";
}

// What of it does not go with the analysis or the other options.
std::string check_results(const BatchOptions& options) {
    const AnalysisEntry* const analysis = find_analysis(options.command);
    const bool shapes = analysis && has_shapes(analysis->type);
    if (shapes && (!options.sections.empty() || options.quantities))
        return std::string(options.quantities ? "--quantities" : "--section") +
               " goes with static, nonlinear or explicit: shapes have any size";
    return options.quantities && !options.vtu ? "--quantities goes with --vtu" : "";
}

std::string choose_checkpoint(BatchOptions& options, const std::string& text) {
    const auto seconds = parse_double(text);
    const bool good = seconds && *seconds >= 0 && std::isfinite(*seconds);
    if (good) options.checkpoint_seconds = *seconds;
    return good ? "" : "--checkpoint wants seconds, at least 0 (none), not '" + text + "'";
}

std::string choose_report(BatchOptions& options, const std::string& text) {
    options.report = text;
    return text.ends_with(".html") || text.ends_with(".htm")
               ? ""
               : "--report wants the name of an .html file, not '" + text + "'";
}

std::string choose_peer(BatchOptions& options, const std::string& text) {
    options.peer = text;
    return text == "ccx" ? "" : "--peer wants ccx (CalculiX), not '" + text + "'";
}

// What only the steps of an explicit run take; empty where nothing of it is given.
std::string of_steps(const BatchOptions& options) {
    if (options.keep_frames) return "--keep-frames";
    if (options.restart) return "--restart";
    return options.checkpoint_seconds > 0 ? "--checkpoint" : "";
}

// The cases file is the first word of `verify` where it is a file or looks like one; else it is a name.
void take_case_names(BatchOptions& options) {
    const std::string& first = options.model_file;
    if (options.command != "verify" || first.empty() || first.find_first_of("/\\.") != std::string::npos)
        return;
    std::error_code fault;
    if (std::filesystem::is_regular_file(first, fault)) return;
    options.case_names.insert(options.case_names.begin(), std::exchange(options.model_file, {}));
}

// What only `verify` takes beside --only; empty where nothing of it is given.
std::string of_verify(const BatchOptions& options) {
    if (options.list) return "--list";
    if (options.quick) return "--quick";
    if (!options.peer.empty()) return "--peer";
    return options.report.empty() ? "" : "--report";
}

// Words that stand on the line without an option before them.
enum class Words { model, model_and_export, cases, all };

CommandLine describe(BatchOptions& options, Words words) {
    std::string analyses;
    for (const AnalysisEntry& entry : analysis_table())
        analyses += std::string(analyses.empty() ? "" : ", ") + entry.batch_word;
    CommandLine line(
        "kestralum-batch ANALYSIS MODEL_FILE [OPTION]...\n"
        "kestralum-batch check MODEL_FILE [--set NAME=EXPRESSION]... [--setting FILE] [--quiet]\n"
        "kestralum-batch export MODEL_FILE FILE [--set NAME=EXPRESSION]... [--setting FILE] [--quiet]\n"
        "kestralum-batch frames FRAMES_FILE [--vtu] [--setting FILE] [--log DIR]\n"
        "kestralum-batch verify [CASES_FILE] [NAME]... [--only WORD] [--list] [--quick] [--report "
        "FILE.html]\n"
        "                       [--peer ccx] [--setting FILE] [--log DIR]\n"
        "kestralum-batch --help | --version",
        options);
    line.add_text(
        "ANALYSIS", "",
        analyses +
            "; or check:\n"
            "reads and meshes only and tells what the model is made of and what it needs;\n"
            "or export: writes mesh, sets, supports and loads for another program;\n"
            "or frames: writes the result files of what a killed explicit run has left;\n"
            "or verify: runs the cases of verify/cases.txt, or of another file, against their targets",
        options.command);
    line.add_text("MODEL_FILE", "", "the model; its control file (.ana) is read from beside it",
                  options.model_file);
    if (words == Words::model_and_export || words == Words::all)
        line.add_text("FILE", "",
                      "export: the file to write, by its ending .inp (CalculiX, Abaqus), .msh (Gmsh),\n"
                      ".vtu (ParaView) or .stl (surface)",
                      options.export_file);
    if (words == Words::cases || words == Words::all)
        line.add_words("NAME",
                       "verify: cases to run; NAME* is all whose names begin so; none: all; orders,\n"
                       "orders-ANALYSIS: the observed orders of convergence of every element",
                       options.case_names);
    line.add_value("--set", "NAME=EXPRESSION",
                   "gives a parameter of the model another expression; repeatable",
                   [&options](const std::string& text) { return read_override(text, options.overrides); });
    line.add_value(
        "--sweep", "NAME=VALUES",
        "runs the analysis for each value of a parameter and tabulates what comes out, also into\n"
        "sweep_MODEL.csv; VALUES: FROM:TO:COUNT or V1,V2,...; given twice: for all pairs of values",
        [&options](const std::string& text) { return add_sweep(options, text); });
    line.add_text("--setting", "FILE", "settings file instead of setting/setting.txt", options.setting_file);
    line.add_text("--log", "DIR", "writes there instead of log; one run at a time in a folder",
                  options.log_folder);
    line.add_flag("--vtu",
                  "writes NAME.vtu for ParaView beside the result file; nonlinear, explicit: one a frame\n"
                  "and NAME.pvd",
                  options.vtu);
    line.add_flag("--keep-frames", "explicit: the file of the frames so far stays when the run has ended",
                  options.keep_frames);
    line.add_value("--checkpoint", "SECONDS",
                   "explicit: saves the state of the run each so many seconds of the clock",
                   [&options](const std::string& text) { return choose_checkpoint(options, text); });
    line.add_flag("--restart", "explicit: goes on from the last checkpoint of a run that was ended",
                  options.restart);
    line.add_value("--probe", "X,Y,Z",
                   "what becomes of the node nearest to this place, metres: static, eigen, buckling: in the\n"
                   "summary; nonlinear, explicit: in the history; repeatable",
                   [&options](const std::string& text) { return add_probe(options, text); });
    line.add_value("--section", "PLANE",
                   "static, nonlinear, explicit: force and moment across a plane, also into\n"
                   "section_MODEL.csv; PLANE: x=0.1, y= or z=, metres, or \"px py pz nx ny nz\", a point\n"
                   "and the normal; repeatable",
                   [&options](const std::string& text) { return add_section(options, text); });
    line.add_value(
        "--line", "LINE",
        "displacements, stresses and further quantities along a line, into line_MODEL.csv;\n"
        "LINE: \"x y z x y z n\", two places, metres, and a number of points, or \"set NAME\", the\n"
        "nodes of a set; repeatable",
        [&options](const std::string& text) { return add_line(options, text); });
    line.add_flag("--quantities",
                  "static, nonlinear, explicit: principal stresses, pressure, energy density, safety factor\n"
                  "and others in the files of --vtu too",
                  options.quantities);
    line.add_text("--only", "WORD", "verify: the cases whose names begin with the word", options.only);
    line.add_flag("--list", "verify: tells the cases with title and source, runs none", options.list);
    line.add_flag("--quick", "verify: leaves out the long cases", options.quick);
    line.add_value("--report", "FILE",
                   "verify: writes a page (.html) with pictures, tables and convergence plots",
                   [&options](const std::string& text) { return choose_report(options, text); });
    line.add_value("--peer", "ccx",
                   "verify: compares static and modal cases with CalculiX node by node, not with targets",
                   [&options](const std::string& text) { return choose_peer(options, text); });
    line.add_text("--case", "NAME",
                  "the load case or combination that acts; without it static computes them all, the others\n"
                  "take all loads together",
                  options.load_case);
    line.add_flag("--prestress",
                  "eigen: modes of the body under the stresses of its loads, all or those of --case",
                  options.prestress);
    line.add_flag("--mean-dilatation",
                  "explicit: hexahedra with one pressure each, for large plastic strains",
                  options.mean_dilatation);
    line.add_value(
        "--hexahedra", "WORD",
        "full, enhanced (bend without locking) or mean-dilatation (flow without locking) in place of\n"
        "what the model says",
        [&options](const std::string& text) { return read_hexahedra(text, options.hexahedra); });
    line.add_flag("--tidy", "removes the files of the factor after the run", options.tidy);
    line.add_flag("--quiet", "prints the closing summary only", options.quiet);
    line.add_footer(
        "Exit status: 0 done; 1 the analysis could not be completed; 2 bad usage, missing settings, "
        "unreadable\n"
        "or wrong input.");
    return line;
}

// What does not go with a sweep.
std::string check_sweep(const BatchOptions& options) {
    if (options.sweep.empty()) return {};
    if (!find_analysis(options.command)) return "--sweep goes with an analysis";
    if (options.vtu || options.tidy || !options.probes.empty())
        return std::string("--sweep keeps no files of its runs: it does not go with ") +
               (options.vtu    ? "--vtu"
                : options.tidy ? "--tidy"
                               : "--probe");
    if (const std::string steps = of_steps(options); !steps.empty())
        return "--sweep keeps no files of its runs: it does not go with " + steps;
    if (const std::string fields = of_results(options); !fields.empty())
        return "--sweep keeps no files of its runs: it does not go with " + fields;
    return refused_axes(options.sweep, options.overrides);
}

std::string check_verify(const BatchOptions& options) {
    if (options.list && !options.report.empty()) return "--list does not go with --report";
    if (!options.peer.empty() && (options.list || !options.report.empty()))
        return std::string("--peer does not go with ") + (options.list ? "--list" : "--report");
    return {};
}

// `frames` makes files of what a run has computed.
std::string check_frames(const BatchOptions& options) {
    if (options.model_file.empty()) return "the frames file is missing";
    if (!options.overrides.empty() || options.tidy || !options.probes.empty() || options.hexahedra ||
        !options.load_case.empty() || options.mean_dilatation || options.prestress ||
        !options.sweep.empty() || !options.only.empty() || !of_verify(options).empty() ||
        !of_steps(options).empty() || !of_results(options).empty())
        return "frames computes nothing: it takes --vtu, --setting and --log";
    return {};
}

// What does not go together.
std::string check_command(const BatchOptions& options) {
    const bool exports = options.command == "export", verifies = options.command == "verify";
    if (options.command.empty()) return "an analysis, `check`, `export`, `frames` or `verify` is missing";
    if (options.command == "frames") return check_frames(options);
    if (!verifies && !options.only.empty()) return "--only goes with verify";
    if (verifies &&
        (!options.overrides.empty() || options.vtu || options.tidy || !options.probes.empty() ||
         options.hexahedra || !options.load_case.empty() || options.mean_dilatation || options.prestress ||
         !options.sweep.empty() || !of_steps(options).empty() || !of_results(options).empty()))
        return "verify takes its cases' own options, and --only, --list, --quick, --report, --peer, "
               "--setting and --log";
    if (verifies) return check_verify(options);
    if (const std::string word = of_verify(options); !word.empty()) return word + " goes with verify";
    if (options.command != "check" && !exports && !find_analysis(options.command))
        return "unknown analysis '" + options.command + "'";
    if (options.model_file.empty()) return "the model file is missing";
    if (options.command != "explicit" && options.mean_dilatation)
        return "--mean-dilatation goes with explicit";
    if (const std::string steps = of_steps(options); options.command != "explicit" && !steps.empty())
        return steps + " goes with explicit";
    if (options.mean_dilatation && options.hexahedra) return "--mean-dilatation does not go with --hexahedra";
    if (options.prestress && options.command != "eigen-subspace" && options.command != "eigen-lanczos")
        return "--prestress goes with eigen-subspace or eigen-lanczos";
    if (const std::string refused = check_sweep(options); !refused.empty()) return refused;
    if (options.command != "check" && !exports) return check_results(options);
    if (!options.probes.empty()) return options.command + " computes nothing: --probe goes with an analysis";
    if (const std::string fields = of_results(options); !fields.empty())
        return options.command + " computes nothing: " + fields + " goes with an analysis";
    if (!options.load_case.empty())
        return options.command + " computes nothing: --case goes with an analysis";
    if (options.hexahedra) return options.command + " computes nothing: --hexahedra goes with an analysis";
    if (options.vtu) return options.command + " writes no results: --vtu goes with an analysis";
    if (options.tidy) return options.command + " writes no factor: --tidy goes with an analysis";
    if (!exports) return {};
    if (options.export_file.empty()) return "the file to export to is missing";
    return refused_ending(options.export_file);
}

}  // namespace

BatchOptions parse_batch_options(std::span<const char* const> arguments) {
    BatchOptions options;
    options.error = describe(options, Words::model_and_export).parse(arguments);
    if (options.command != "export") {  // a second file is one argument too many
        const Words words = options.command == "verify" ? Words::cases : Words::model;
        options = {};
        CommandLine line = describe(options, words);
        options.error = line.parse(arguments);
        // all cases are what is meant by no name, not by one that is lost
        if (options.error.empty() && words == Words::cases && line.passed_over_empty())
            options.error = "an empty name of a case";
    }
    if (!options.error.empty()) return options;
    take_case_names(options);
    if (options.log_folder.empty() || options.setting_file.empty())
        options.error = "an empty file or folder name";
    else if (options.command == "-" || options.model_file == "-" || options.export_file == "-")
        options.error = "unknown option -";
    else if (!options.help && !options.version)
        options.error = check_command(options);
    return options;
}

std::string batch_usage() {
    BatchOptions unused;
    return describe(unused, Words::all).help_text();
}

}  // namespace kestralum
