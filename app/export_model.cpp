#include "app/export_model.h"

#include <filesystem>
#include <vector>

#include "input/analysis_info_reader.h"
#include "mesh/import_text.h"
#include "model/format.h"
#include "model/paths.h"
#include "results/export_file.h"
#include "system/nodal_conditions.h"

namespace kestralum {

namespace {

// The files that the model was read from, stored names; of a part's file both places where it is looked for.
std::vector<std::string> source_files(const Model& model) {
    std::vector<std::string> files{model.model_file_name, analysis_info_file_name(model.model_file_name)};
    const std::string folder = paths::directory_of(model.model_file_name);
    for (const std::vector<Part>* parts : {&model.parts, &model.parts_o})
        for (const Part& part : *parts) {
            const std::string path = mesh_file_path(part);
            files.push_back(path);
            files.push_back(folder + path);
        }
    return files;
}

// The first of them that `file` is, "" if none.
std::string overwritten_source(const Model& model, const std::string& file) {
    for (const std::string& source : source_files(model)) {
        std::error_code absent;
        if (!source.empty() &&
            std::filesystem::equivalent(paths::to_platform(source), paths::to_platform(file), absent))
            return source;
    }
    return {};
}

RunStatus refuse(Progress& progress, RunStatus why, const std::string& line) {
    progress.error("%s", line.c_str());
    return why;
}

RunStatus work(const Model& model, const Settings& settings, const std::string& file, Remarks& remarks,
               Progress& progress) {
    const std::optional<ExportFormat> format = export_format(file);
    if (!format) return refuse(progress, RunStatus::bad_input, refused_ending(file));
    if (const std::string source = overwritten_source(model, file); !source.empty())
        return refuse(progress, RunStatus::bad_input,
                      paths::to_platform(file) + ": the model is read from this file, which is not replaced");
    if (model.mesh.element_num() < 1)
        return refuse(progress, RunStatus::bad_input, "the model has no solid elements: nothing to export");
    NodalConditions conditions;
    const bool needs_conditions = *format == ExportFormat::inp || *format == ExportFormat::vtu;
    const bool known =
        !needs_conditions || find_nodal_conditions(model, settings, progress, conditions, remarks);
    const bool written =
        known && export_file(*format, {model, conditions, file, settings.threads(), remarks, progress});
    for (const std::string& error : remarks.errors) progress.error("%s", error.c_str());
    if (written) return RunStatus::done;
    return progress.cancelled() ? RunStatus::cancelled : known ? RunStatus::failed : RunStatus::bad_input;
}

}  // namespace

std::string refused_ending(const std::string& file_name) {
    if (export_format(file_name)) return {};
    return "'" + file_name + "' has none of the endings that can be exported: .inp, .msh, .vtu, .stl";
}

RunStatus export_model(const Model& model, const Settings& settings, const std::string& file,
                       Progress& progress) {
    Remarks remarks;
    const RunStatus status = work(model, settings, file, remarks, progress);
    if (status != RunStatus::done) return status;
    for (const std::string& notice : remarks.notices) progress.summary("note: %s\n", notice.c_str());
    progress.summary("%-22s %s: %d elements, %zu sets\n", "exported", paths::to_platform(file).c_str(),
                     model.mesh.element_num(), model.mesh.sets.size());
    return status;
}

}  // namespace kestralum
