#include "app/window/snapshot.h"

#include <QImage>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <optional>

#include "analysis/analysis_table.h"
#include "app/run_process.h"
#include "app/window/render_image.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "input/settings_reader.h"
#include "model/console.h"
#include "model/model_store.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

enum ExitStatus { exit_done = 0, exit_failed = 1, exit_wrong_input = 2 };

// What the options name goes into the store; nothing when it is there.
std::optional<ExitStatus> fill_store(const WindowOptions& options, view::DisplayState& state) {
    ModelStore& store = model_store();
    if (!options.model_file.empty()) {
        store.model_file_name = options.model_file;
        if (!read_input_file().ok) return exit_wrong_input;
        if (read_analysis_info_file().status == AnalysisInfoStatus::wrong) return exit_wrong_input;
    }
    if (!options.result_file.empty()) {
        if (!read_result_file(options.result_file, store)) return exit_wrong_input;
        state.result_ready = true;
    }
    if (options.analysis.empty()) return std::nullopt;
    LogLock lock;
    if (!lock.take()) return exit_failed;
    const RunReport report = find_analysis(options.analysis)->run();
    for (const std::string& error : report.remarks.errors) console::error("%s", error.c_str());
    if (report.status == RunStatus::bad_input) return exit_wrong_input;
    if (report.status != RunStatus::done && !report.has_results()) return exit_failed;
    state.result_ready = true;
    return std::nullopt;
}

ExitStatus write_picture(const WindowOptions& options, ShownModel& shown) {
    QOffscreenSurface surface;
    QOpenGLContext context;
    surface.setFormat(context.format());
    surface.create();
    if (!context.create() || !context.makeCurrent(&surface)) {
        console::error("there is no OpenGL to draw with");
        return exit_failed;
    }
    shown.model_changed();
    view::look_from(shown.camera, options.direction.value_or(view::ViewDirection::isometric));
    QString error;
    const QImage image = render_image(shown, QSize(options.size[0], options.size[1]), true, error);
    shown.drawing.release(true);
    if (image.isNull()) {
        console::error("%s", error.toStdString().c_str());
        return exit_failed;
    }
    if (image.save(QString::fromStdString(options.snapshot))) return exit_done;
    console::error("%s cannot be written", options.snapshot.c_str());
    return exit_failed;
}

}  // namespace

int make_snapshot(const WindowOptions& options) {
    if (read_setting_file() == SettingsStatus::missing) return exit_wrong_input;
    init_model_defaults();
    ShownModel shown;
    view::DisplayState& state = shown.state;
    if (const auto ended = fill_store(options, state)) return *ended;
    shown.reset_light();
    state.contour = options.contour;
    state.plastic_strain = options.plastic_strain;
    state.frame = view::clamp_frame(options.frame, model_store().results.mode_num());
    state.mode_scale = options.scale;
    state.transparency = options.opacity;
    for (const std::size_t row : options.show) state.flags[row] = true;
    for (const std::size_t row : options.hide) state.flags[row] = false;
    return write_picture(options, shown);
}

}  // namespace kestralum
