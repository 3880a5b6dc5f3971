// Pictures of the view in a window of their own and in files, films and pages.
#include <QDesktopServices>
#include <QFileInfo>
#include <QProgressDialog>
#include <QUrl>
#include <utility>

#include "app/window/dialogs.h"
#include "app/window/film.h"
#include "app/window/main_window.h"
#include "app/window/picture_dialogs.h"
#include "app/window/verification.h"

namespace kestralum {

void MainWindow::show_pixmap(const QImage& image) {
    clearPixmap();
    pixmap_ = new PixmapWindow(QPixmap::fromImage(image), this);
    pixmap_->show();
}

namespace {

// A mode is taken at its peak, wherever it swings just now.
class AtPeak {
public:
    explicit AtPeak(view::DisplayState& state) : state_(state), phase_(std::exchange(state.phase, 0)) {}
    ~AtPeak() { state_.phase = phase_; }

private:
    view::DisplayState& state_;
    const int phase_;
};

PictureOf picture_of(GLWidget& view) {
    const view::Camera& camera = view.shown().camera;
    return {{camera.width, camera.height}, camera.pixel_ratio, view.is_fitted()};
}

}  // namespace

void MainWindow::renderIntoPixmap() {
    const auto size = ask_for_size(this, view_->size());
    if (!size) return;
    QString error;
    const AtPeak still(view_->state());
    const QImage image = view_->render_picture({.size = *size}, error);
    if (image.isNull())
        refuse("The pixmap was not drawn", {error});
    else
        show_pixmap(image);
}

void MainWindow::grabFrameBuffer() {
    const AtPeak still(view_->state());
    show_pixmap(view_->grab_picture());
}

void MainWindow::clearPixmap() {
    delete pixmap_;
}

// In the folder of the model, by its name.
QString MainWindow::offered_name() {
    const Run* run = store().run.get();
    const std::string& model = store().model->model_file_name;
    QString name = QFileInfo(QString::fromStdString(model).replace('\\', '/')).completeBaseName();
    if (name.isEmpty()) name = "picture";
    if (run && !run->origin.analysis.empty()) name += "_" + QString::fromStdString(run->origin.analysis);
    return folder_ + "/" + name;
}

void MainWindow::savePicture() {
    const auto options = ask_for_picture(this, picture_of(*view_));
    if (!options) return;
    const QString name = ask_for_new_file(this, "Save Picture", offered_name(), ".png");
    if (name.isEmpty()) return;
    QString error;
    const AtPeak still(view_->state());
    const QImage image = view_->render_picture(*options, error);
    if (error.isEmpty()) error = save_image(image, name);
    if (!error.isEmpty()) return refuse("The picture was not saved", {error});
    tell(MessageKind::summary,
         {QString("%1: a picture of %2 x %3").arg(name).arg(image.width()).arg(image.height())});
}

void MainWindow::saveAnimation() {
    if (film_) return say("An animation is being saved");
    ShownModel& shown = view_->shown();
    if (shown.mode_num() == 0 || !shown.state.result_ready)
        return say("There is no result: an animation shows modes, steps or load cases");
    const auto choice =
        ask_for_film(this, picture_of(*view_), shown.ana_type(), shown.mode_num(), shown.state.frame);
    if (!choice) return;
    const auto entry = std::ranges::find(film_formats, choice->format, &FilmFormatEntry::format);
    const QString name = ask_for_new_file(this, "Save Animation", offered_name(), entry->ending);
    if (name.isEmpty()) return;
    if (const QString missing = film_hindrance(name); !missing.isEmpty())
        return refuse("The animation was not saved", {missing});
    if (film_format(name.toStdString()) == FilmFormat::png_series && !may_replace_series(name)) return;
    start_film(
        {name, film_frames(shown.ana_type(), shown.mode_num(), choice->range), choice->fps, choice->image},
        choice->all_frames_range);
}

// The file dialog asked about a name without a number.
bool MainWindow::may_replace_series(const QString& name) {
    const QString first = QString::fromStdString(series_name(name.toStdString(), 1));
    enum Answer { replace, leave };
    return !QFileInfo::exists(first) || ask(this, first + " is there already.", "Replace these pictures?",
                                            {"Replace", "Leave them"}, leave, leave) == replace;
}

// Beside the view, which goes on with what it shows.
void MainWindow::start_film(Film film, bool all_frames_range) {
    view::DisplayState& state = view_->state();
    const view::RangeKind former = state.scale.range;
    if (all_frames_range && former == view::RangeKind::automatic)
        state.scale.range = view::RangeKind::all_frames;
    film_ = new FilmMaker(view_->shown(), std::move(film), this);
    state.scale.range = former;
    auto* progress = new QProgressDialog(QString("Saving %1").arg(film_->film().file_name), "Cancel", 0,
                                         static_cast<int>(film_->count()), this);
    progress->setWindowTitle("Save Animation");
    progress->setMinimumDuration(0);
    progress->setAutoClose(false);
    progress->setAutoReset(false);
    progress->setValue(0);
    connect(film_, &FilmMaker::progressed, progress, &QProgressDialog::setValue);
    connect(progress, &QProgressDialog::canceled, film_, &FilmMaker::cancel);
    connect(film_, &FilmMaker::ended, this, [this, progress](const QString& error) {
        const Film& done = film_->film();
        progress->disconnect(film_);
        progress->deleteLater();
        film_->deleteLater();
        if (progress->wasCanceled())
            say(error);
        else if (!error.isEmpty())
            refuse("The animation was not saved", {error});
        else {
            tell(MessageKind::summary, {QString("%1: %2 pictures of %3 x %4, %5 a second")
                                            .arg(done.file_name)
                                            .arg(done.frames.size())
                                            .arg(done.image.size.width())
                                            .arg(done.image.size.height())
                                            .arg(done.fps)});
            if (const std::string older = film_->older_pictures(); !older.empty())
                tell(MessageKind::note, {QString::fromStdString(older)});
        }
        film_ = nullptr;
    });
    film_->start();
}

void MainWindow::saveReport() {
    const auto choice = ask_for_report(this, view_->state().result_ready);
    if (!choice) return;
    const QString name = ask_for_new_file(this, "Save Report", offered_name(), ".html");
    if (name.isEmpty()) return;
    after_run("Report", [this, choice = *choice, name] { start_report(choice, name); });
}

// What takes time beside the window, the pictures when it is done.
void MainWindow::start_report(const ReportChoice& choice, const QString& name) {
    const std::shared_ptr<const Model> model = store().model;
    const std::shared_ptr<const Run> run = store().run;
    auto texts = std::make_shared<ReportTexts>();
    worker_->start(
        "Report",
        [texts, model, run, settings = store().settings](Progress& progress) {
            progress.set_stage("check");
            *texts = report_texts(*model, run.get(), settings, progress);
        },
        [this, texts, model, run, choice, name](const Heard& heard) {
            if (heard.stopped) return say("The report was stopped");
            if (store().model != model || store().run != run)
                return say("The report was not saved: another model or result is shown");
            QString error;
            view_->makeCurrent();
            auto pictures = draw_report_pictures(view_->shown(), choice, error);
            view_->doneCurrent();
            if (error.isEmpty()) error = write_report(view_->shown(), *texts, std::move(pictures), name);
            if (!error.isEmpty()) return refuse("The report was not saved", {error});
            tell(MessageKind::summary, {name + " was written"});
        });
}

void MainWindow::verifyProgram() {
    if (verification_) return say("The verification is under way");
    const QString cases = verification_cases();
    if (cases.isEmpty())
        return refuse("The verification cannot be run",
                      {"there is no verify/cases.txt here or beside the program"});
    enum Answer { quick, all, leave };
    const int answer = ask(this, "The problems with a known answer are computed beside the window.",
                           cases + ": all of them, or those alone that are quick?",
                           {"Quick", "All", "Cancel"}, quick, leave);
    if (answer == leave) return;
    const QString folder = QFileInfo(QString::fromStdString(log_folder_)).absoluteFilePath();
    verification_ = new Verification({cases, folder, folder + "/verification.html", answer == quick}, this);
    auto* progress = new QProgressDialog("Verifying", "Cancel", 0, 0, this);
    progress->setWindowTitle("Verify");
    progress->setMinimumDuration(0);
    progress->setAutoClose(false);
    progress->setAutoReset(false);
    progress->setValue(0);
    connect(verification_, &Verification::progressed, progress,
            [progress](int done, int count, const QString& what) {
                progress->setMaximum(count);
                progress->setValue(done);
                progress->setLabelText(QString("%1 of %2 cases: %3").arg(done).arg(count).arg(what));
            });
    connect(progress, &QProgressDialog::canceled, verification_, &Verification::cancel);
    connect(verification_, &Verification::ended, this,
            [this, progress](bool cancelled, const QString& error) {
                progress->disconnect(verification_);
                progress->deleteLater();
                if (cancelled)
                    say("The verification was stopped");
                else
                    end_verification(error);
                verification_->deleteLater();
                verification_ = nullptr;
            });
    verification_->start();
}

void MainWindow::end_verification(const QString& error) {
    if (!error.isEmpty()) return refuse("The verification was not completed", {error});
    const QString page = verification_->plan().page;
    const QString totals = verification_->totals();
    tell(MessageKind::error, verification_->missed());
    tell(MessageKind::summary, {totals, page + " was written"});
    enum Answer { open, leave };
    if (ask(this, totals, page + " tells all of them.", {"Open the Page", "Close"}, open, leave) == open &&
        !QDesktopServices::openUrl(QUrl::fromLocalFile(page)))
        say(page + " cannot be opened here");
}

}  // namespace kestralum
