#include "app/window/snapshot.h"

#include <QEventLoop>
#include <QImage>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QTimer>
#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/run_process.h"
#include "app/window/film.h"
#include "app/window/render_image.h"
#include "app/window/report_pictures.h"
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

ImageOptions image_options(const WindowOptions& options) {
    ImageOptions image;
    image.size = QSize(options.size[0], options.size[1]);
    image.fit = true;
    image.white = options.white;
    image.caption = options.caption;
    return image;
}

// OpenGL without a window, current as long as it lives.
class OffscreenContext {
public:
    OffscreenContext() {
        surface_.setFormat(context_.format());
        surface_.create();
        valid_ = context_.create() && context_.makeCurrent(&surface_);
    }
    bool valid() const { return valid_; }

private:
    QOffscreenSurface surface_;
    QOpenGLContext context_;
    bool valid_ = false;
};

ExitStatus write_picture(const WindowOptions& options, ShownModel& shown, Progress& progress) {
    const OffscreenContext context;
    if (!context.valid()) {
        progress.error("there is no OpenGL to draw with");
        return exit_failed;
    }
    QString error;
    const QImage image = render_image(shown, image_options(options), error);
    shown.release_drawings(true);
    if (error.isEmpty()) error = save_image(image, QString::fromStdString(options.snapshot));
    if (error.isEmpty()) return exit_done;
    progress.error("%s", error.toStdString().c_str());
    return exit_failed;
}

std::atomic<bool> interrupted{false};

// What a film has written so far is taken away before the process ends.
class Interrupts {
public:
    Interrupts() {
        for (std::size_t k = 0; k < signals_.size(); ++k)
            former_[k] = std::signal(signals_[k], [](int) { interrupted.store(true); });
    }
    ~Interrupts() {
        for (std::size_t k = 0; k < signals_.size(); ++k) std::signal(signals_[k], former_[k]);
    }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

private:
    static constexpr std::array<int, 3> signals_{SIGINT, SIGTERM, SIGHUP};
    std::array<void (*)(int), 3> former_{};
};

// Which frames; modes are those of --frame where no range is given.
FilmRange film_range(const WindowOptions& options, const ShownModel& shown) {
    if (options.film_range) return *options.film_range;
    if (!has_shapes(shown.ana_type())) return {};
    return {shown.state.frame, shown.state.frame, 1};
}

ExitStatus write_film(const WindowOptions& options, ShownModel& shown, Progress& progress) {
    Film film{QString::fromStdString(options.film),
              film_frames(shown.ana_type(), shown.mode_num(), film_range(options, shown)),
              options.fps > 0 ? options.fps : usual_fps(shown.ana_type()), image_options(options)};
    if (film.frames.empty()) {
        progress.error("--frames begins behind the last frame, %d", shown.mode_num());
        return exit_wrong_input;
    }
    const Interrupts until_done;
    QEventLoop loop;
    QString error;
    FilmMaker maker(shown, std::move(film));
    QObject::connect(&maker, &FilmMaker::progressed, [&](int done) {
        progress.counter(done, static_cast<std::int64_t>(maker.count()), "film ");
    });
    QObject::connect(&maker, &FilmMaker::ended, [&](const QString& why) {
        error = why;
        loop.quit();
    });
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        if (interrupted.load()) maker.cancel();
    });
    look.start(50);
    maker.start();
    loop.exec();
    if (progress.lines_wanted()) progress.print("\n");
    if (!error.isEmpty()) {
        progress.error("%s", error.toStdString().c_str());
        return exit_failed;
    }
    if (const std::string older = maker.older_pictures(); !older.empty())
        progress.summary("note: %s\n", older.c_str());
    return exit_done;
}

ExitStatus write_page(const WindowOptions& options, ShownModel& shown, Progress& progress) {
    const ReportTexts texts =
        report_texts(*shown.store.model, shown.store.run.get(), shown.store.settings, progress);
    const OffscreenContext context;
    if (!context.valid()) {
        progress.error("there is no OpenGL to draw with");
        return exit_failed;
    }
    ReportChoice choice;
    choice.current = shown.state.result_ready;
    choice.fit = true;
    QString error;
    auto pictures = draw_report_pictures(shown, choice, error);
    shown.drawing.release(true);
    if (error.isEmpty())
        error = write_report(shown, texts, std::move(pictures), QString::fromStdString(options.report));
    if (error.isEmpty()) return exit_done;
    progress.error("%s", error.toStdString().c_str());
    return exit_failed;
}

void set_display(const WindowOptions& options, ShownModel& shown) {
    view::DisplayState& state = shown.state = options.display;
    shown.reset_light();
    state.result_ready = shown.store.run != nullptr;
    state.frame = view::clamp_frame(options.frame, shown.mode_num());
    state.mode_scale = options.scale;
    state.transparency = options.opacity;
    for (const std::size_t row : options.show) state.flags[row] = true;
    for (const std::size_t row : options.hide) state.flags[row] = false;
    shown.camera.orthographic = options.orthographic;
    view::look_from(shown.camera, options.direction.value_or(view::ViewDirection::isometric));
}

}  // namespace

int make_snapshot(const WindowOptions& options, Progress& progress) {
    if (!options.film.empty())
        if (const QString missing = film_hindrance(QString::fromStdString(options.film));
            !missing.isEmpty()) {
            progress.error("%s", missing.toStdString().c_str());
            return exit_failed;
        }
    ShownModel shown;
    if (!start_up("setting\\setting.txt", options.log_folder, shown.store.settings, progress))
        return exit_wrong_input;
    if (const auto ended = fill_store(options, shown, progress)) return *ended;
    set_display(options, shown);
    ExitStatus status = exit_done;
    if (!options.snapshot.empty()) status = write_picture(options, shown, progress);
    if (status == exit_done && !options.film.empty()) {
        view::RangeKind& range = shown.state.scale.range;
        if (range == view::RangeKind::automatic && !has_shapes(shown.ana_type()))
            range = view::RangeKind::all_frames;  // colours mean the same in all of it
        status = write_film(options, shown, progress);
        range = options.display.scale.range;
    }
    if (status == exit_done && !options.report.empty()) status = write_page(options, shown, progress);
    return status;
}

}  // namespace kestralum
