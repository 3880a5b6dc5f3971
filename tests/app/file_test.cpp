// Opening models, results and displacements; running the analyses from their menu.
#include <QFileDialog>
#include <QLineEdit>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>

#include "analysis/analysis_table.h"
#include "app/window/long_work.h"
#include "app/window/real_time.h"
#include "app/window_fixture.h"
#include "results/result_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

class Files : public Window {
protected:
    // Answers the file dialog of a menu entry; without a name it is closed.
    void choose(const char* entry, const std::string& file, const char* filter = nullptr) {
        answer_next<QFileDialog>([&](QFileDialog* dialog) {
            EXPECT_EQ(dialog->windowTitle(), "Open file");
            EXPECT_TRUE(!filter || dialog->nameFilters() == (QStringList{filter, "All Files (*)"}));
            if (file.empty()) return dialog->reject();
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(file));
            QMetaObject::invokeMethod(dialog, "accept");
        });
        trigger(entry);
        expect_answered();
    }
};

TEST_F(Files, OpensAndUpdatesAModel) {
    const std::string file = folder.write("model.txt", block_text);
    console::Capture captured;
    choose("&Open Model File", file, "Text Files (*.txt)");
    EXPECT_TRUE(contains(captured.lines, "filename=" + file + "\n"));
    EXPECT_EQ(model_store().mesh.element_num(), 16);
    EXPECT_TRUE(window->windowTitle().contains("model.txt"));
    EXPECT_FALSE(state().result_ready) << "a new model has no results";

    folder.write("model.txt", replaced(block_text, "4 2 2 0 0 0", "8 2 2 0 0 0"));
    const auto camera_before = camera().shift;
    trigger("&Update Model");
    EXPECT_EQ(model_store().mesh.element_num(), 32);
    EXPECT_EQ(camera().shift, camera_before) << "an update keeps the view";

    choose("&Open Model File", "");
    EXPECT_EQ(model_store().mesh.element_num(), 32);
    choose("&Open Mov File", "", "Text Files (*.mov)");
}

TEST_F(Files, KeepsTheModelWhenAFileIsDamaged) {
    ASSERT_TRUE(open(block_text));
    const QString title = window->windowTitle();
    const std::string typo = replaced(block_text, "0.4 0.2 0.2 0 0 0  4", "0.4 oops 0.2 0 0 0  4");
    const QString cut = write("not_a_result", "ver3.01\n%\nNode\n-5\n");
    const struct {
        std::function<bool()> opens;
        const char *file, *what;
    } damaged[] = {{[&] { return open(typo, "damaged.txt"); }, "damaged.txt", "oops"},
                   {[&] { return window->open_results(cut); }, "not_a_result", "-5"},
                   {[&] { return window->open_displacements("nowhere"); }, "nowhere", ""}};
    for (const auto& d : damaged) {
        const std::string told = told_by([&] { EXPECT_FALSE(d.opens()); });
        EXPECT_TRUE(contains(told, d.file) && contains(told, d.what)) << told;
    }
    EXPECT_EQ(window->windowTitle(), title);
    EXPECT_TRUE(contains(model_store().model_file_name, "model.txt"));
    EXPECT_EQ(model_store().mesh.element_num(), 16);
    EXPECT_EQ(model_store().forces.size(), 1u);
    // tables that a file leaves out are carried over, and that is told
    ASSERT_TRUE(open(replaced(block_text, "apply_force\n  PULL area x 1000  0.4 0.4 -1 1 -1 1  %\n", ""),
                     "second.txt"));
    EXPECT_TRUE(contains(status(), "apply_force")) << status();
}

// What a run leaves in the window is in its file, and comes back from it.
TEST_F(Files, RunsAnalysesAndReadsTheirResults) {
    ASSERT_TRUE(open(bar_text, "bar.txt"));
    const QImage parts = picture();
    trigger("&Static");
    EXPECT_EQ(model_store().ana_type, AnalysisType::linear_static);
    EXPECT_TRUE(state().result_ready);
    EXPECT_NE(picture(), parts) << "contour and deformed shape are shown without a click";
    EXPECT_TRUE(contains(status(), "2.5")) << status();
    const Results run = model_store().results;

    trigger("&Eigen(Lanczos)");
    EXPECT_EQ(model_store().ana_type, AnalysisType::eigen);
    EXPECT_EQ(state().eigen_method, view::EigenMethod::lanczos);
    const double first = model_store().results.n_freq.at(0);
    trigger("&Eigen(Subspace)");
    EXPECT_EQ(state().eigen_method, view::EigenMethod::subspace);
    EXPECT_GT(first, 0);
    EXPECT_NEAR(model_store().results.n_freq.at(0), first, 1e-6 * first);

    trigger("&Static");  // its file again
    ASSERT_TRUE(open(block_text));
    choose("&Open Result File", folder.file("log/result_bar.txt"));
    EXPECT_TRUE(model_store().result_file_known);
    EXPECT_TRUE(state().result_ready);
    EXPECT_EQ(model_store().ana_type, AnalysisType::linear_static);
    ASSERT_EQ(model_store().results.mode_vec.size(), run.mode_vec.size());
    for (std::size_t k = 0; k < run.mode_vec.size(); ++k)
        EXPECT_NEAR(model_store().results.mode_vec[k], run.mode_vec[k], 1e-6 * bar_end);
}

// Load and time steps are shown where they have led to, and played from the start.
TEST_F(Files, RunsTheAnalysesThatGoInSteps) {
    folder.write("bar.ana", "BAR explicit d_time 1e-7 end_time 1e-5 output_frequency 10 C_alfa 0 END\n");
    ASSERT_TRUE(open("step_num 4 %\niteration 30 %\n" + bar_text, "bar.txt"));
    const std::pair<const char*, AnalysisType> analyses[] = {
        {"&Nonlinear Static", AnalysisType::nonlinear_static},
        {"&Explicit", AnalysisType::explicit_dynamics}};
    for (const auto& [text, type] : analyses) {
        trigger(text);
        EXPECT_EQ(model_store().ana_type, type);
        EXPECT_TRUE(state().result_ready);
        EXPECT_FALSE(state().real_time);
        const std::int32_t frames = model_store().results.mode_num();
        EXPECT_GE(frames, 4) << text;
        EXPECT_EQ(state().frame, frames) << text;
        trigger("&Start Animation");
        ASSERT_TRUE(QTest::qWaitFor([&] { return !state().animation_running; }));
        EXPECT_EQ(state().frame, frames);
    }
}

TEST_F(Files, RefusedAnalysesTellWhy) {
    // the start-up model has nothing to analyse
    std::string told = told_by([&] { trigger("&Static"); });
    EXPECT_TRUE(contains(told, "no solid elements")) << told;
    EXPECT_FALSE(state().result_ready);
    EXPECT_EQ(model_store().ana_type, AnalysisType::eigen) << "what is shown keeps its kind";
    ASSERT_TRUE(open(bar_text, "bar.txt"));
    {
        LogLock other;
        ASSERT_TRUE(other.take());
        told = told_by([&] { trigger("&Static"); });
        EXPECT_TRUE(contains(told, "another run")) << told;
        EXPECT_FALSE(state().result_ready);
    }
    trigger("&Static");
    EXPECT_TRUE(state().result_ready);
}

// ---- real time

struct FakeRun {
    static inline int begun, advanced, dropped, steps;
    static bool begin(RunReport&) { return ++begun; }
    static bool advance(RunReport&) { return ++advanced < steps; }
    static void drop() { ++dropped; }
    static int frame() { return advanced + 1; }
    static constexpr RealTimeDriver driver{begin, advance, drop, frame, 1};
};

class RealTime : public Window {
protected:
    void SetUp() override {
        Window::SetUp();
        former_ = real_time_driver();
        set_real_time_driver(&FakeRun::driver);
        FakeRun::begun = FakeRun::advanced = FakeRun::dropped = 0;
        FakeRun::steps = 1000;
        ASSERT_TRUE(open(bar_text, "bar.txt"));
        model_store().results.resize(50, model_store().mesh.dof_num);
    }
    void TearDown() override {
        window.reset();
        set_real_time_driver(former_);
    }
    const RealTimeDriver* former_ = nullptr;
};

TEST_F(RealTime, StepsOncePerRepaintAndNeverInAGrab) {
    int repaints = 0;
    trigger("&Explicit(Real Time)");
    QObject::connect(window->view(), &GLWidget::painted, [&] { ++repaints; });
    EXPECT_EQ(FakeRun::begun, 1);
    EXPECT_EQ(FakeRun::advanced, 0) << "the slot only sets up";
    EXPECT_EQ(model_store().ana_type, AnalysisType::explicit_dynamics);
    EXPECT_TRUE(state().real_time && state().result_ready);
    ASSERT_TRUE(QTest::qWaitFor([&] { return repaints >= 3; }));
    EXPECT_EQ(FakeRun::advanced, repaints);
    const int before = FakeRun::advanced;
    picture();
    QString error;
    window->view()->render_picture(QSize(100, 80), error);
    EXPECT_EQ(FakeRun::advanced, before);

    trigger("&Static");  // another analysis ends it
    EXPECT_EQ(FakeRun::dropped, 1);
    EXPECT_FALSE(state().real_time);
    trigger("&Explicit(Real Time)");
    EXPECT_TRUE(state().real_time);
    trigger("&Update Model");
    EXPECT_EQ(FakeRun::dropped, 2);
    EXPECT_FALSE(state().real_time);
}

TEST_F(RealTime, EndsWithItsLastFrame) {
    FakeRun::steps = 3;
    trigger("&Explicit(Real Time)");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !state().real_time; }));
    QTest::qWait(200);
    EXPECT_EQ(FakeRun::advanced, 3);
    EXPECT_EQ(state().frame, 50) << "the last frame of the results is shown";
    EXPECT_EQ(FakeRun::dropped, 0) << "the run has finished by itself";
}

// The program's own driver: a bar that starts with a velocity, ten frames of it.
TEST_F(Files, StepsTheExplicitAnalysisInRealTime) {
    folder.write("flying.ana",
                 "FLY explicit d_time 1e-7 end_time 1e-5 output_frequency 10 C_alfa 0\n"
                 "INITIAL_VELOCITY BAR part x 10  0 0 0 0 0 0 % END\n");
    ASSERT_TRUE(open(replaced(bar_text, "CLAMP plane x  0 0 -1 1 -1 1", ""), "flying.txt"));
    console::Capture captured;
    trigger("&Explicit(Real Time)");
    EXPECT_TRUE(state().real_time);
    EXPECT_EQ(state().frame, 1);
    EXPECT_FALSE(contains(captured.lines, "ti_current"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !state().real_time; }, 20000));
    EXPECT_TRUE(contains(captured.lines, " ti_current = 2\n"));
    EXPECT_EQ(state().frame, model_store().results.mode_num());
    EXPECT_TRUE(std::filesystem::exists(folder.file("log/disp_flying.txt")));
    const Results run = model_store().results;
    ASSERT_EQ(run.mode_num(), 11);
    EXPECT_GT(view::largest_displacement(view::frame_displacement(run, model_store().mesh.dof_num, 11)),
              5e-5);
    // what the analysis wrote comes back into another model
    ASSERT_TRUE(open(block_text));
    captured.lines.clear();
    const std::string written = folder.file("log/disp_flying.txt");
    choose("&Open Disp. File", written);
    EXPECT_EQ(model_store().ana_type, AnalysisType::explicit_dynamics);
    EXPECT_EQ(model_store().mesh.element_num(), 32);
    EXPECT_TRUE(model_store().forces.empty()) << "the forces belong to another mesh";
    ASSERT_EQ(model_store().results.mode_vec.size(), run.mode_vec.size());
    for (std::size_t k = 0; k < run.mode_vec.size(); ++k)
        EXPECT_NEAR(model_store().results.mode_vec[k], run.mode_vec[k], 1e-5 * std::abs(run.mode_vec[k]));
    for (const char* line : {"----------read_data-----------\n", "Node:81\n", "Element:32\n", "mode_num:11\n",
                             "ana_type:3\n", "FILE CLOSE !!\n", "time_num = ", "out_time_num = "})
        EXPECT_TRUE(contains(captured.lines, line)) << line;
    // cut short it is told and left alone
    const std::string text = read_file(written);
    for (const char* at : {"mode_vec", "node_stress", "size_info"}) {
        told_by([&] {
            EXPECT_FALSE(window->open_displacements(write("cut", text.substr(0, text.find(at) + 14)))) << at;
        });
        EXPECT_EQ(model_store().results.mode_num(), 11);
    }
}

// ---- long work

TEST_F(Files, LongWorkShowsProgressAndCanBeCancelled) {
    ASSERT_TRUE(open(block_text));
    int highest = 0;
    QString text;
    auto* clicker = new QTimer(window.get());
    QObject::connect(clicker, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<QProgressDialog*>(QApplication::activeModalWidget());
        if (!dialog) return;
        highest = std::max(highest, dialog->value());
        text = dialog->labelText();
        if (highest > 200) dialog->findChild<QPushButton*>()->click();
    });
    clicker->start(20);
    const QImage before = picture();
    int reached = 0;
    window->view()->hold_picture(true);
    const Heard heard = run_long_work(window.get(), "Static", [&] {
        console::set_stage("factor");
        for (int k = 1; k <= 400 && !console::cancel_requested(); ++k) {
            reached = k;
            QTest::qSleep(10);
            console::counter(k, 400);
        }
        model_store().mesh.connectivity.clear();  // half written: the picture stays as it was
        window->view()->shown().drawing.mesh_changed();
        console::counter(1, 400);
        console::error("it broke");
    });
    EXPECT_EQ(picture(), before);
    window->view()->hold_picture(false);
    EXPECT_GT(reached, 80);
    EXPECT_LT(reached, 300) << "the cancel button did nothing";
    EXPECT_TRUE(text.contains("factor") && text.contains("%")) << text.toStdString();
    EXPECT_EQ(heard.errors, QStringList{"it broke"});
    EXPECT_FALSE(console::cancel_requested());
}

}  // namespace
