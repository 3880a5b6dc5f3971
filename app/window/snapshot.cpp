#include "app/window/snapshot.h"

#include <QImage>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <memory>
#include <optional>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/run_process.h"
#include "app/window/render_image.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

enum ExitStatus { exit_done = 0, exit_failed = 1, exit_wrong_input = 2 };

// What no result file tells: walls, contact, springs and control, of the model named beside it.
void take_tables(Model& of_results, const Model& model) {
    if (model.parts.size() != of_results.parts.size() ||
        model.rigid_elements.size() != of_results.rigid_elements.size())
        return;
    of_results.rigid_combines = model.rigid_combines;
    of_results.control = model.control;
    of_results.explicit_tables = model.explicit_tables;
}

// What the options name goes into the store; nothing when it is there.
std::optional<ExitStatus> fill_store(const WindowOptions& options, ShownModel& shown, Progress& progress) {
    Model model = placeholder_model();
    if (!options.model_file.empty()) {
        model.model_file_name = options.model_file;
        if (!read_input_file(model, {}, progress).ok) return exit_wrong_input;
        if (read_analysis_info_file(model, progress).status == AnalysisInfoStatus::wrong)
            return exit_wrong_input;
    }
    if (!options.result_file.empty()) {
        auto stored = read_result_file(options.result_file, options.log_folder, progress);
        if (!stored) return exit_wrong_input;
        take_tables(stored->model, model);
        shown.show(std::make_shared<const Model>(std::move(stored->model)),
                   std::make_shared<const Run>(std::move(stored->run)));
        return std::nullopt;
    }
    const auto read = std::make_shared<const Model>(std::move(model));
    shown.show(read, nullptr);
    if (options.analysis.empty()) return std::nullopt;
    LogLock lock;
    if (!lock.take(options.log_folder, progress)) return exit_failed;
    RunOptions run_options;
    run_options.log_folder = options.log_folder;
    Run run = find_analysis(options.analysis)->analyse(*read, shown.store.settings, run_options, progress);
    for (const std::string& error : run.report.remarks.errors) progress.error("%s", error.c_str());
    if (run.report.status == RunStatus::bad_input) return exit_wrong_input;
    if (run.report.status != RunStatus::done && !run.report.has_results()) return exit_failed;
    shown.show(read, std::make_shared<const Run>(std::move(run)));
    return std::nullopt;
}

ExitStatus write_picture(const WindowOptions& options, ShownModel& shown, Progress& progress) {
    QOffscreenSurface surface;
    QOpenGLContext context;
    surface.setFormat(context.format());
    surface.create();
    if (!context.create() || !context.makeCurrent(&surface)) {
        progress.error("there is no OpenGL to draw with");
        return exit_failed;
    }
    view::look_from(shown.camera, options.direction.value_or(view::ViewDirection::isometric));
    QString error;
    const QImage image = render_image(shown, QSize(options.size[0], options.size[1]), true, error);
    shown.drawing.release(true);
    if (image.isNull()) {
        progress.error("%s", error.toStdString().c_str());
        return exit_failed;
    }
    if (image.save(QString::fromStdString(options.snapshot))) return exit_done;
    progress.error("%s cannot be written", options.snapshot.c_str());
    return exit_failed;
}

}  // namespace

int make_snapshot(const WindowOptions& options, Progress& progress) {
    ShownModel shown;
    if (!start_up("setting\\setting.txt", options.log_folder, shown.store.settings, progress))
        return exit_wrong_input;
    if (const auto ended = fill_store(options, shown, progress)) return *ended;
    view::DisplayState& state = shown.state = options.display;
    shown.reset_light();
    state.result_ready = shown.store.run != nullptr;
    state.frame = view::clamp_frame(options.frame, shown.mode_num());
    state.mode_scale = options.scale;
    state.transparency = options.opacity;
    for (const std::size_t row : options.show) state.flags[row] = true;
    for (const std::size_t row : options.hide) state.flags[row] = false;
    return write_picture(options, shown, progress);
}

}  // namespace kestralum
