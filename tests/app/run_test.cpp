// Analyses on the worker: the window goes on meanwhile, and shows what has become whole.
#include <malloc.h>
#include <QElapsedTimer>
#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QToolButton>
#include <atomic>
#include <set>

#include "app/run_process.h"
#include "app/window_fixture.h"
#include "solver/factor_files.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

class Runs : public Window {
protected:
    // A bar that starts with a velocity.
    bool open_flying(const std::string& times) {
        folder.write("flying.ana", "FLY explicit d_time 1e-7 " + times +
                                       " C_alfa 0\n"
                                       "INITIAL_VELOCITY BAR part x 10  0 0 0 0 0 0 % END\n");
        return open(replaced(bar_text, "CLAMP plane x  0 0 -1 1 -1 1", ""), "flying.txt");
    }
    // A job of the worker that goes on until the test lets it end.
    void start_job() {
        seen_stop = running = release = false;
        auto job = [this](Progress& progress) {
            progress.set_stage("factor");
            running = true;
            for (int k = 1; !release && !progress.cancelled(); k += k < 300) {
                progress.set_count(k, 400);
                QTest::qSleep(5);
            }
            seen_stop = progress.cancelled();
        };
        window->worker().start("Static", job, [](const Heard&) {});
        wait_for([&] { return running.load(); });
    }
    QToolButton* stop_button() {
        auto* button = window->statusBar()->findChild<QToolButton*>("Stop");
        return button && button->isVisible() ? button : nullptr;
    }
    // Milliseconds from Stop to the end of the job.
    qint64 stop_takes() {
        QElapsedTimer time;
        time.start();
        QToolButton* stop = stop_button();
        EXPECT_TRUE(stop);
        if (stop) stop->click();
        wait_idle();
        return time.elapsed();
    }
    std::atomic<bool> running, release, seen_stop;
};

TEST_F(Runs, TheWindowGoesOnMeanwhile) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::explicit_dynamics, 5);
    start_job();
    int repaints = 0;
    QObject::connect(window->view(), &GLWidget::painted, [&] { ++repaints; });
    wait_for([&] {
        camera().shift[0] += 1e-3;  // turned by hand
        return repaints >= 8 && stop_button();
    });
    ASSERT_TRUE(window->worker().busy());
    QString told;
    for (const auto* label : window->statusBar()->findChildren<QLabel*>()) told += label->text();
    EXPECT_TRUE(told.contains("Static: factor") && told.contains(" %")) << told.toStdString();
    EXPECT_GT(window->statusBar()->findChild<QProgressBar*>()->value(), 100);
    QImage before = picture();
    for (const char* text : {"X", "&Disp. x", "&Wire"}) {
        trigger(text);
        EXPECT_NE(picture(), before) << text;
        before = picture();
    }
    trigger("&Start Animation");
    wait_for([&] { return state().frame == 5; });
    EXPECT_LT(stop_takes(), 500);
    EXPECT_TRUE(seen_stop);
    EXPECT_FALSE(stop_button()) << "the progress of a job that has ended is shown";
}

TEST_F(Runs, AskBeforeTheyAreDisturbed) {
    const QString other = write("other.txt", replaced(block_text, "4 2 2 0 0 0", "8 2 2 0 0 0"));
    // answer, whether the run is stopped, elements shown in the end
    const std::tuple<const char*, bool, int> cases[] = {
        {"Wait", false, 32}, {"Stop the run", true, 32}, {"Leave it", false, 16}};
    for (const auto& [answer, stopped, elements] : cases) {
        ASSERT_TRUE(open(block_text));
        start_job();
        std::string told;
        answer_boxes(told, {answer});
        window->open_model(other);
        EXPECT_TRUE(contains(told, "Static") && contains(told, "other.txt")) << told;
        EXPECT_EQ(mesh().element_num(), 16);
        if (stopped) wait_for([&] { return seen_stop.load(); });
        release = true;
        wait_idle();
        EXPECT_EQ(seen_stop, stopped) << answer;
        EXPECT_EQ(mesh().element_num(), elements) << answer;
    }
    for (const QString answer : {"Leave it", "Stop the run"}) {
        start_job();
        std::string told;
        answer_boxes(told, {answer});
        trigger("E&xit");
        QTest::qWait(500);
        EXPECT_EQ(window->isVisible(), answer == "Leave it") << told;
        release = true;
        wait_idle();
    }
}

TEST_F(Runs, ShowWhatTheyComputed) {
    folder.write("bar.ana", "BAR explicit d_time 1e-7 end_time 1e-5 output_frequency 10 C_alfa 0 END\n");
    ASSERT_TRUE(open("step_num 4 %\niteration 30 %\n" + bar_text, "bar.txt"));
    const QImage parts = picture();
    run("&Static");
    EXPECT_NE(picture(), parts) << "contour and deformed shape are shown without a click";
    EXPECT_TRUE(contains(status(), "2.5")) << status();
    EXPECT_EQ(shown().mode_num(), 1);
    const std::pair<const char*, AnalysisType> analyses[] = {
        {"&Eigen(Lanczos)", AnalysisType::eigen},
        {"&Nonlinear Static", AnalysisType::nonlinear_static},
        {"&Explicit", AnalysisType::explicit_dynamics}};
    for (const auto& [text, type] : analyses) {
        const std::string told = told_by([&, text = text] { run(text); }, {"Replace"});
        EXPECT_TRUE(contains(told, "result_bar.txt")) << told;
        EXPECT_EQ(shown().ana_type(), type) << text;
        // load and time steps are shown where they have led to
        EXPECT_GE(shown().mode_num(), 4) << text;
        EXPECT_EQ(state().frame, has_steps(type) ? shown().mode_num() : 1) << text;
    }
    const SharedRun before = shown_run();
    told_by([&] { run("&Static"); }, {"Leave it"});
    EXPECT_EQ(shown_run(), before) << "the file was not to be replaced";
    EXPECT_FALSE(list_factor_files(folder.file("log")).names.empty());
    trigger("Remove &Factor Files");
    told_by([&] { run("&Static"); }, {"Replace"});
    EXPECT_TRUE(list_factor_files(folder.file("log")).names.empty());
}

// A frame for each load case, one where a case is chosen; the estimated error while the frame has one.
TEST_F(Runs, LoadCasesAreFramesAndSettingsReachTheRun) {
    const std::string two_cases =
        replaced(block_text, "-1 1 -1 1  %\nrigid",
                 "-1 1 -1 1 case=pull  DOWN area z -500  0.4 0.4 -1 1 -1 1 case=down  %\n"
                 "load_combination\n  BOTH pull+2*down  %\nrigid");
    QMenu* cases = action("&All Cases")->associatedObjects().isEmpty()
                       ? nullptr
                       : qobject_cast<QMenu*>(action("&All Cases")->associatedObjects().constFirst());
    ASSERT_TRUE(cases && !cases->isEnabled()) << "the start model has one case";
    ASSERT_TRUE(open(two_cases));
    EXPECT_FALSE(action("E&rror Estimate")->isEnabled());
    run("&Static");
    ASSERT_EQ(shown().mode_num(), 3);
    EXPECT_TRUE(contains(status(), "3 load cases, the largest displacement") && contains(status(), "in BOTH"))
        << status();
    window->slotsModeNumberChanged(2);
    EXPECT_EQ(state().frame, 2);
    EXPECT_EQ(status(), "Load case down, 2/3");
    trigger("E&rror Estimate");
    picture();
    EXPECT_EQ(state().frame, 2) << "a repaint has stepped back";
    ASSERT_TRUE(shown_picture().contour());
    EXPECT_NEAR(shown_picture().range()->high.value, 100 * std::ranges::max(shown_run()->results[1]->error),
                1e-9);
    EXPECT_TRUE(action("E&rror Estimate")->isChecked() && !action("&Mises Stress")->isChecked());

    ASSERT_TRUE(cases->isEnabled());
    for (const char* text : {"BOTH", "&Enhanced", "&Prestress"}) trigger(text);
    run("&Static");
    EXPECT_EQ(shown().mode_num(), 1);
    EXPECT_TRUE(contains(status(), "Static (load case BOTH, enhanced hexahedra):")) << status();
    EXPECT_EQ(shown_run()->origin.options.load_case, "BOTH");
    EXPECT_EQ(shown_run()->origin.options.hexahedra, HexahedronForm::enhanced);
    EXPECT_TRUE(action("E&rror Estimate")->isChecked());
    told_by([&] { run("&Eigen(Lanczos)"); }, {"Replace"});
    EXPECT_TRUE(contains(status(), "prestress):") && shown_run()->origin.options.prestress) << status();
    EXPECT_FALSE(action("E&rror Estimate")->isEnabled());
    EXPECT_EQ(state().shown_contour(), 4) << "modes have no estimate: back to the stress";
    ASSERT_TRUE(open(replaced(replaced(two_cases, "=down", "=up"), "*down", "*up"), "other.txt"));
    EXPECT_TRUE(action("BOTH")->isChecked()) << "this model has it too";
    told_by([&] { open(block_text, "one.txt"); }, {"Start-up values"});
    EXPECT_TRUE(action("&All Cases")->isChecked() && !cases->isEnabled());
}

// Whatever ends a run without results leaves picture and store as they were.
TEST_F(Runs, LeaveThePictureWhereTheyFail) {
    std::string told = told_by([&] { run("&Static"); });
    EXPECT_TRUE(contains(told, "no solid elements")) << told;
    ASSERT_TRUE(open(bar_text, "bar.txt"));
    run("&Static");
    const SharedRun before = shown_run();
    ASSERT_TRUE(before);
    const QImage drawn = picture();
    const std::pair<const char*, QStringList> refused[] = {{"&Static", {""}},
                                                           {"&Explicit(Real Time)", {"Replace", ""}}};
    for (const auto& [entry, answers] : refused) {
        SilentProgress silent;
        LogLock other;
        ASSERT_TRUE(other.take(folder.file("log"), silent));
        told = told_by([&, entry = entry] { run(entry); }, answers);
        EXPECT_TRUE(contains(told, "another run")) << told;
    }
    trigger("&Static");
    window->worker().stop();
    wait_idle();
    EXPECT_TRUE(contains(status(), "stopped")) << status();
    // the disk budget: a warning before, and the window does not end with the run
    shown().store.settings.free_hd_size = 1e-3;
    told = told_by([&] { run("&Static"); }, {"Leave it"});
    EXPECT_TRUE(contains(told, "FREE_HD_SIZE")) << told;
    told = told_by([&] { run("&Static"); }, {"Run all the same", ""});
    EXPECT_TRUE(contains(told, "not completed")) << told;
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(shown_run(), before);
    EXPECT_EQ(picture(), drawn);
}

TEST_F(Runs, StopAndCloseDoNotWait) {
    ASSERT_TRUE(open_flying("end_time 20 output_frequency 10000"));
    const auto start = [&] {
        trigger("&Explicit");
        wait_for([&] { return window->worker().place().count > 100 && stop_button(); });
    };
    start();
    QTest::mouseMove(stop_button());  // a button that is left clears what it had put into the status bar
    QTest::qWait(100);
    EXPECT_LT(stop_takes(), 500);
    QTest::qWait(200);
    EXPECT_TRUE(contains(status(), "Explicit: stopped on request")) << status();
    start();
    QElapsedTimer time;
    time.start();
    window.reset();
    EXPECT_LT(time.elapsed(), 500);
}

// Stop in every stage of a run in turn, while the view is turned: until a run has no stage that was not
// stopped.
TEST_F(Runs, AreToldWhileThePointerRestsOnTheButton) {
    ASSERT_TRUE(open(block_text));
    QStatusTipEvent tip("Static");
    QApplication::sendEvent(window.get(), &tip);
    ASSERT_EQ(window->statusBar()->currentMessage(), "Static");
    run("&Static");
    EXPECT_EQ(window->statusBar()->currentMessage(), "");
    EXPECT_TRUE(window->findChild<QLabel*>("said")->isVisible());
    EXPECT_TRUE(status().starts_with("Static: largest displacement")) << status();
}

class Stages : public Runs {};  // apart: times of a run that a sanitizer does not slow down

TEST_F(Stages, AnswerAStopAndLeaveTheWindowAlive) {
    ASSERT_TRUE(open(replaced(bar_text, "8 2 2", "40 14 14")));
    std::set<std::string> stopped;
    // A run goes to its end when it shows no stage that has not been stopped in. The view is drawn all the
    // time until then; stages that are over while a picture is drawn are looked for without pictures.
    for (int whole_runs = 0; whole_runs < 3 && stopped.size() < 20;) {
        trigger("&Static");
        bool another = false;
        qint64 longest = 0;
        QElapsedTimer turn;
        turn.start();
        while (window->worker().busy() && !another) {
            const std::string stage = window->worker().place().stage;
            another = !stage.empty() && stopped.insert(stage).second;
            if (whole_runs == 0) camera().shift[0] += 1e-4;
            QTest::qWait(whole_runs == 0 ? 5 : 1);
            longest = std::max(longest, turn.restart());
        }
        QElapsedTimer time;
        time.start();
        window->worker().stop();
        wait_idle();
        EXPECT_LT(time.elapsed(), 500) << "after Stop in one of the first " << stopped.size() << " stages";
        EXPECT_LT(longest, 400) << "the window stood still";
        if (!another) ++whole_runs;
    }
    for (const char* stage : {"assemble", "factor", "recover", "write"})
        EXPECT_TRUE(stopped.contains(stage)) << stage;
    EXPECT_TRUE(state().result_ready) << "the last run was not stopped";
}

// ---- in real time

TEST_F(Runs, GoOnWhileTheyAreDrawn) {
    ASSERT_TRUE(open_flying("end_time 1e-5 output_frequency 10"));
    int repaints = 0;
    QObject::connect(window->view(), &GLWidget::painted, [&] {
        EXPECT_LE(shown().mode_num(), ++repaints) << "more than an interval for a repaint";
    });
    trigger("&Explicit(Real Time)");
    wait_for([&] { return state().real_time && shown().mode_num() >= 3; });
    EXPECT_EQ(state().frame, shown().mode_num()) << "the picture does not follow";
    window->slotsModeNumberChanged(1);
    const int reached = shown().mode_num();
    wait_for([&] { return shown().mode_num() > reached; });
    EXPECT_EQ(state().frame, 1) << "a frame that is looked at is left";
    wait_idle();
    EXPECT_FALSE(state().real_time);
    const SharedRun made = shown_run();
    ASSERT_EQ(made->mode_num(), 11);
    const Frame& last = *made->results.back();
    EXPECT_GT(view::largest_displacement(last.mode_vec), 5e-5);
    // what it wrote comes back, into another model too
    told_by([&] { open(block_text); }, {"Start-up values"});
    window->open_displacements(QString::fromStdString(folder.file("log/disp_flying.txt")));
    wait_idle();
    ASSERT_TRUE(shown().mode_num() == 11 && shown().ana_type() == AnalysisType::explicit_dynamics);
    EXPECT_TRUE(model().forces.empty()) << "the forces belong to another mesh";
    for (std::size_t k = 0; k < last.mode_vec.size(); ++k)
        EXPECT_NEAR(shown_run()->results.back()->mode_vec[k], last.mode_vec[k], 1e-9);
}

// Bytes in use, not those of the process, which the library's arenas hold.
std::size_t bytes_in_use() {
    const struct mallinfo2 all = ::mallinfo2();
    return all.uordblks + all.hblkhd;
}

// The results of a run take 50 kB, those of a hundred would show.
TEST_F(Runs, AHundredOfThemLeaveNothingBehind) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "a sanitizer has its own memory";
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a sanitizer has its own memory";
#endif
#endif
    ASSERT_TRUE(open(replaced(block_text, "4 2 2 0 0 0", "8 4 4 0 0 0")));
    const auto work = [&](int k) {
        std::filesystem::remove(folder.path() / "log/result_model.txt");  // nothing is asked
        run(k % 2 ? "&Static" : "&Eigen(Lanczos)");
        state().contour = 1 + k % 4;
        picture();
        if (k % 10 == 9) open(replaced(block_text, "4 2 2 0 0 0", "8 4 4 0 0 0"));
        window->messages().clear();
    };
    for (int k = 0; k < 20; ++k) work(k);
    const std::size_t before = bytes_in_use();
    for (int k = 0; k < 100; ++k) work(k);
    const std::size_t after = bytes_in_use();
    std::printf("    in use: %.2f MB, after a hundred runs %.2f MB\n", 1e-6 * double(before),
                1e-6 * double(after));
    EXPECT_LT(after, before + 1'000'000);
}

}  // namespace
