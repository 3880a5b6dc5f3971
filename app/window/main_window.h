// The window: menus, controls and the view. Slots set a field of the display state or run a command;
// the view repaints by its timer.
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <array>
#include <functional>
#include <memory>

#include "app/run_process.h"
#include "app/window/gl_widget.h"
#include "model/run_report.h"

class QDoubleSpinBox;
class QLabel;
class QSpinBox;
class QVBoxLayout;

namespace kestralum {

class PixmapWindow;
struct AnalysisEntry;
struct Heard;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow();
    ~MainWindow() override;

    GLWidget* view() { return view_; }

    // Reads a model and its control file; with an error the former model stays, and a box tells why.
    // `fresh`: turned and fitted as a new picture, not only updated.
    bool open_model(const QString& name, bool fresh = true);
    // A file with results; the same goes for errors.
    bool open_results(const QString& name);
    bool open_displacements(const QString& name);

    // Opened once the store stands.
    void open_at_start(const QString& name) { at_start_ = name; }

public slots:
    void renderIntoPixmap();
    void grabFrameBuffer();
    void clearPixmap();
    void about();
    void stopRotate() {}
    void showInputFileDialog();
    void exec_analysis() {}
    void exec_analysis2() {}
    void open_graphwindow() {}
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
    void slotsExecStatic();
    void slotsExecEigenSubspace();
    void slotsExecEigenLanczos();
    void slotsExecNonlinearStatic();
    void slotsModeNumberChanged(int number);
    void slotsModeScaleChanged(double scale);
    void slotsTransChanged(double opacity);
    void slotsMainLightPosXChanged(double x);
    void slotsMainLightPosYChanged(double y);
    void slotsMainLightPosZChanged(double z);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    using Slot = void (MainWindow::*)();

    // main_window_menus.cpp
    QAction* add_action(const char* text, const char* tip, Slot slot);
    void make_menus();
    void make_hidden_actions();
    void make_controls(QVBoxLayout* column);
    void make_toolbar();
    QSpinBox* integer_control(QVBoxLayout* column, const char* label, void (MainWindow::*slot)(int));
    QDoubleSpinBox* decimal_control(QVBoxLayout* column, const char* label,
                                    std::array<double, 4> range_step_start, void (MainWindow::*slot)(double));

    void on_started();
    void on_settings_missing();
    void set_frame(int frame);
    void show_frame_in_controls();
    void show_light_in_controls();

    Heard work(const QString& title, const std::function<void()>& what);
    bool open_frames(const QString& name, const QString& what, bool (*read)());
    // `select`: what the choice of the analysis sets in the display state
    void run_analysis(
        const char* menu_text, const std::function<void()>& select = [] {});
    RunReport run_on_store(const AnalysisEntry& entry, Heard& heard);
    void show_run(const RunReport& report, const QString& title, const Heard& heard);
    void show_outcome(const RunReport& report, const QString& title, const Heard& heard);
    void step_real_time();
    void end_real_time();
    void show_results_read(const QString& name);
    void show_pixmap(const QImage& image);
    bool busy() const { return busy_; }
    void say(const QString& text);

    GLWidget* view_ = nullptr;
    std::array<QAction*, 16> view_actions_{};
    std::array<QAction*, 18> contour_actions_{};
    QAction* plastic_ = nullptr;
    std::array<QDoubleSpinBox*, 3> light_boxes_{};
    QSpinBox* frame_box_ = nullptr;
    QSpinBox* mode_box_ = nullptr;
    QPointer<PixmapWindow> pixmap_;
    QString at_start_;
    std::unique_ptr<LogLock> log_lock_;  // of a real-time run
    bool busy_ = false;
};

}  // namespace kestralum
