#include "app/large/large_options.h"

#include "app/batch/batch_options.h"
#include "large/large_run.h"

namespace kestralum {

namespace {

CommandLine describe(LargeCommand& options) {
    CommandLine line(
        "mpirun -n RANKS kestralum-large ANALYSIS MODEL_FILE [OPTION]...\n"
        "kestralum-large --help | --version",
        options);
    line.add_text("ANALYSIS", "", large_analyses(), options.analysis);
    line.add_text("MODEL_FILE", "", "the model; its control file (.ana) is read from beside it",
                  options.model_file);
    line.add_value("--set", "NAME=EXPRESSION",
                   "gives a parameter of the model another expression; repeatable",
                   [&options](const std::string& text) { return read_override(text, options.overrides); });
    line.add_text("--setting", "FILE",
                  "settings file instead of setting/setting.txt; SOLVER iterative: conjugate\n"
                  "gradients with multigrid, sparse or skyline: the direct factor of MUMPS",
                  options.setting_file);
    line.add_text("--log", "DIR", "writes there instead of log; one run at a time in a folder",
                  options.log_folder);
    line.add_flag("--vtu",
                  "writes a piece for ParaView from every rank and NAME.pvtu instead of the result file;\n"
                  "nonlinear, explicit: for each frame as it is reached, and NAME.pvd",
                  options.vtu);
    line.add_text("--case", "NAME", "the load case or combination that acts", options.load_case);
    line.add_value("--hexahedra", "FORM", "full, enhanced or mean-dilatation, in place of the model's",
                   [&options](const std::string& text) { return read_hexahedra(text, options.hexahedra); });
    line.add_flag("--quiet", "summary and errors only", options.quiet);
    line.add_footer(
        "Exit status: 0 done; 1 the analysis could not be completed; 2 bad usage, missing settings, "
        "unreadable\n"
        "or wrong input.");
    return line;
}

}  // namespace

LargeCommand parse_large_command(std::span<const char* const> arguments) {
    LargeCommand options;
    options.error = describe(options).parse(arguments);
    if (!options.error.empty() || options.help || options.version) return options;
    if (options.analysis.empty() || options.model_file.empty())
        options.error = "an analysis and a model file are wanted";
    else if (!is_large_analysis(options.analysis))
        options.error = "no analysis has the name '" + options.analysis + "': " + large_analyses();
    return options;
}

std::string large_usage() {
    LargeCommand options;
    return describe(options).help_text();
}

}  // namespace kestralum
