// The window: menus, controls and the view. Slots set a field of the display state or start a job of the
// worker; the view repaints by its timer meanwhile and shows what a job has made once that is whole.
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/window/file_watch.h"
#include "app/window/film.h"
#include "app/window/gl_widget.h"
#include "app/window/messages.h"
#include "app/window/run_settings.h"
#include "app/window/worker.h"
#include "input/model_reader.h"

class QDockWidget;
class QDoubleSpinBox;
class QLabel;
class QMenu;
class QSpinBox;
class QToolBar;
class QVBoxLayout;

namespace kestralum {

class LiveRun;
class PixmapWindow;
class ProgressLine;
class DisplayPanel;
class SweepPanel;
class Verification;
class ViewMenu;
struct AnalysisEntry;
struct ReportChoice;
struct StoredRun;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // `quiet`: without the progress and echo lines on the console.
    explicit MainWindow(const std::string& log_folder = "log", bool quiet = false);
    ~MainWindow() override;

    GLWidget* view() { return view_; }
    const ModelStore& store() { return view_->shown().store; }
    Worker& worker() { return *worker_; }
    Messages& messages() { return *messages_; }

    // Begins to read a model and its control file; for a mesh or CAD file that of a model written beside it.
    // With an error the former model stays, and a box gives the reason.
    void open_model(const QString& name);
    // The same for a file with results.
    void open_results(const QString& name);
    void open_displacements(const QString& name);
    // The same for any of them, by the beginning of its name: "result_", "disp_", else a model or part.
    void open_any(const QString& name);

    // Parameters with another expression than the file's. Set, they hold until another model is opened.
    const std::vector<ParameterOverride>& overrides() const { return overrides_; }
    void set_overrides(const std::vector<ParameterOverride>& overrides, bool run_again);

    // Opened once the settings are read.
    void open_at_start(const QString& name) { at_start_ = name; }

signals:
    void content_shown();         // another model or another run stands in store()
    void frame_shown(int frame);  // another frame is drawn, or a live run has added some; from 1
    void contour_changed();       // another quantity colours the model
    void reading_refused();       // a reading was stopped, failed or left: model and overrides stand

public slots:
    // Draws a frame, the nearest there is, and shows its number in the boxes.
    void step_to(int frame);
    void renderIntoPixmap();
    void grabFrameBuffer();
    void clearPixmap();
    void savePicture();
    void saveAnimation();
    void holdResult();
    void saveReport();
    void verifyProgram();
    void copySelection();
    void clearSelection();
    void showPartFileDialog();
    void about();
    void stopRotate() {}
    void showInputFileDialog();
    void exec_analysis() {}
    void exec_analysis2() {}
    void open_graphwindow();
    void start_animation();
    void i_anime_Changed(int frame);
    void add_anime_Changed(int increment);
    void ctrLC_id_Changed(int) {}
    void cameraLC_id_Changed(int) {}
    void showResultFileDialog();
    void showDispFileDialog();
    void showMovFileDialog();
    void slotsViewMenu();
    void slotsExecExplicit();
    void slotsExecExplicitStep();
    void updateModel();
    void slotsContourMenu();
    void checkModel();
    void slotsExecStatic();
    void slotsExecEigenSubspace();
    void slotsExecEigenLanczos();
    void slotsExecNonlinearStatic();
    void slotsExecBuckling();
    void slotsModeNumberChanged(int number);
    void slotsModeScaleChanged(double scale);
    void slotsTransChanged(double opacity);
    void slotsMainLightPosXChanged(double x);
    void slotsMainLightPosYChanged(double y);
    void slotsMainLightPosZChanged(double z);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    using Slot = void (MainWindow::*)();

    // main_window_menus.cpp
    QAction* add_action(const char* text, const char* tip, Slot slot);
    void make_menus();
    void make_appended_entries();
    void make_comparison_entries();  // main_window_comparison.cpp
    void compare(Compare how);
    void show_comparison();
    void make_help_menu();
    void make_controls(QVBoxLayout* column);
    void make_toolbars();

    // main_window_docks.cpp
    QDockWidget* add_dock(const char* title, QWidget* content, Qt::DockWidgetArea area, bool open);
    void make_docks();
    void make_result_docks();  // main_window_results.cpp
    void make_room(QDockWidget* dock);
    void make_window_menu();
    void reset_layout();
    void keep_layout();
    void restore_layout();
    void show_what_is_shown();
    QSpinBox* integer_control(QVBoxLayout* column, const char* label, void (MainWindow::*slot)(int));
    QDoubleSpinBox* decimal_control(QVBoxLayout* column, const char* label,
                                    std::array<double, 4> range_step_start, void (MainWindow::*slot)(double));

    void on_started();
    void on_settings_missing();
    void set_frame(int frame);
    void set_mouse_mode(view::MouseMode mode);
    void offer_error_estimate();
    void show_contour(std::int32_t entry);
    void set_further(std::int32_t index);
    void show_further(std::int32_t index);
    void show_plastic_strain(bool on);
    void go_to_extreme(bool largest);
    void show_frame_in_controls();
    void show_light_in_controls();

    // Does `action` now or, while a job is under way, what the user chooses: after its end, after stopping
    // it, or not at all. `what` names the action.
    void after_run(const QString& what, std::function<void()> action);
    void wait_with(std::function<void()> action);
    void go_on();
    void leave_sweep();

    // main_window_files.cpp
    struct Reading;
    void look_into(const QString& name);
    void open_part(const QString& name);
    enum class Opening { fresh, again, watched };  // turned and fitted; as it is; the same, without boxes
    void read_model(const QString& name, std::shared_ptr<const Model> base, Opening opening);
    void read_model(const QString& name, std::shared_ptr<const Model> base, Opening opening,
                    const std::vector<ParameterOverride>& overrides, bool run_again = false);
    void take_model(Reading& reading, const Heard& heard, Opening opening);
    void watch_files(const QDateTime& read_since);
    void read_saved();
    void remember(const QString& name);
    void list_recent();
    void open_frames(const QString& name, const QString& what,
                     std::function<std::optional<StoredRun>(const Model* own, Progress&)> read);
    void take_frames(StoredRun& stored, const QString& name);

    // main_window_runs.cpp
    void run_analysis(const char* menu_text);
    void prepare_run(const AnalysisEntry& entry, std::function<void()> start);
    void check_budget(const AnalysisEntry& entry, std::function<void()> start);
    void start_check(bool asked);
    void start_run(const AnalysisEntry& entry);
    void start_live_run();
    void show_live_start(std::shared_ptr<Run> run);
    void show_live_frame(std::shared_ptr<const Frame> frame, const std::vector<double>& row);
    void end_live_run(const Run* run, const Heard& heard);
    void show_outcome(const Run& run, const QString& title, const Heard& heard);
    RunOptions run_options() const;

    // main_window_pictures.cpp
    void show_pixmap(const QImage& image);
    QString offered_name();
    bool may_replace_series(const QString& name);
    void start_film(Film film, bool all_frames_range);
    void start_report(const ReportChoice& choice, const QString& name);
    void end_verification(const QString& error);

    void say(const QString& text);
    // Keeps messages; the first error or summary is also said in the status bar. Gives them as they are kept.
    QStringList tell(MessageKind kind, const QStringList& lines);
    // The same, and a box: nothing could be done.
    void refuse(const QString& headline, const QStringList& errors);

    const std::string log_folder_;
    WindowProgress console_;  // what the window itself prints
    std::unique_ptr<Worker> worker_;
    std::function<void()> after_;  // done once the worker is idle

    GLWidget* view_ = nullptr;
    Messages* messages_ = nullptr;
    ProgressLine* run_row_ = nullptr;
    QLabel *said_ = nullptr, *shown_text_ = nullptr;  // of the status bar
    std::vector<QDockWidget*> docks_;
    QDockWidget* graphs_ = nullptr;
    QByteArray first_layout_;  // docks and bars as they are without a kept layout
    std::array<QAction*, 16> view_actions_{};
    // the rows of the quantity table, and the estimated error behind them
    static constexpr std::int32_t error_entry = std::ssize(view::quantities), contour_count = error_entry + 1;
    std::array<QAction*, contour_count> contour_actions_{};
    std::vector<QAction*> further_actions_;  // their data: the index of the quantity
    QAction* plastic_ = nullptr;
    std::int32_t before_plastic_ = 0;  // the further quantity that its toggle covers
    QAction* copy_ = nullptr;
    QMenu* result_menu_ = nullptr;
    QAction *rotate_ = nullptr, *stop_ = nullptr;
    struct ToolActions {  // of the menus, shown in the tool bars too
        QAction *open = nullptr, *update = nullptr, *statics = nullptr, *eigen = nullptr,
                *nonlinear = nullptr, *explicit_run = nullptr;
        QMenu* contour = nullptr;
    } tools_;
    QAction* remove_factor_ = nullptr;
    RunSettings* settings_ = nullptr;
    std::array<QDoubleSpinBox*, 3> light_boxes_{};
    QSpinBox* frame_box_ = nullptr;
    QSpinBox* mode_box_ = nullptr;
    QPointer<PixmapWindow> pixmap_;
    QPointer<FilmMaker> film_;             // under way
    QPointer<Verification> verification_;  // under way
    ViewMenu* view_menu_ = nullptr;
    QString at_start_, folder_, result_folder_;  // of the file dialogs
    QMenu* recent_menu_ = nullptr;
    FileWatch watch_;
    bool saved_meanwhile_ = false;  // a watched file was saved while a job was under way
    std::vector<ParameterOverride> overrides_;
    const AnalysisEntry* last_analysis_ = nullptr;
    bool check_unasked_ = false;   // a check is under way that follows an opening
    std::int32_t told_frame_ = 0;  // by frame_shown
    SweepPanel* sweep_ = nullptr;
    DisplayPanel* display_ = nullptr;
    QAction* all_frames_ = nullptr;
    QAction *beside_ = nullptr, *difference_ = nullptr;
    bool leaves_sweep_ = false;  // the user wants to exit all the same
    QString starter_notice_;     // of the model under way, where it was made for a part

    QStringList control_errors_;  // of the model's control file: no analysis starts
    struct Budget {
        std::weak_ptr<const Model> model;
        double factor_megabytes = 0;
    } budget_;  // of the model last looked at

    // of an explicit run that goes on while it is drawn
    std::shared_ptr<LiveRun> live_;
    std::shared_ptr<Run> live_frames_;  // store().run while it goes on
    bool live_frame_new_ = false;       // the last of them is not on the screen yet
};

}  // namespace kestralum
