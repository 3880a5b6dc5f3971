// The bar that moves through the frames, and the table of modes.
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QTableWidget>
#include <QToolButton>

#include "app/window/mode_table.h"
#include "app/window/playback_bar.h"
#include "app/window_fixture.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

using MadeRun = kestralum::Run;

MadeRun made_run(AnalysisType type, const std::vector<double>& n_freq) {
    MadeRun run;
    run.ana_type = type;
    for (const double value : n_freq) {
        auto frame = std::make_shared<Frame>(3);
        frame->n_freq = value;
        run.results.push_back(frame);
    }
    return run;
}

class Bar : public ::testing::Test {
protected:
    void show(AnalysisType type, const std::vector<double>& n_freq) {
        run = made_run(type, n_freq);
        state = {};
        bar = std::make_unique<PlaybackBar>(state, [this] { return &run; });
        QObject::connect(bar.get(), &PlaybackBar::frame_chosen, bar.get(), [this](int frame) {
            asked.push_back(frame);
            state.frame = frame;
        });
        bar->resize(800, 40);
        bar->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(bar.get()));
    }
    QToolButton* button(const char* name) { return bar->findChild<QToolButton*>(name); }
    void click(const char* name) { QTest::mouseClick(button(name), Qt::LeftButton); }
    QString place() { return bar->findChild<QLabel*>("playback_place")->text(); }
    // The frames that follow, a repaint each, until the animation stops or `most` are seen.
    std::vector<int> played(int most = 50) {
        std::vector<int> out;
        while (state.animation_running && std::ssize(out) < most) {
            view::advance(state, run.ana_type, run.mode_num());
            out.push_back(state.frame);
        }
        return out;
    }

    MadeRun run;
    view::DisplayState state;
    std::unique_ptr<PlaybackBar> bar;
    std::vector<int> asked;
};

TEST_F(Bar, StepsSlidesAndPlaysAtItsSpeed) {
    show(AnalysisType::explicit_dynamics, {0, 0.5, 1, 1.5, 2});
    EXPECT_FALSE(button("playback_first")->isEnabled());
    click("playback_forward");
    EXPECT_EQ(place(), "2 / 5   0.5 s");
    click("playback_last");
    click("playback_forward");  // grey: there is none
    click("playback_back");
    click("playback_first");
    auto* slider = bar->findChild<QSlider*>("playback_slider");
    slider->setFocus();
    QTest::keyClick(slider, Qt::Key_Right);
    QTest::keyClick(slider, Qt::Key_End);
    EXPECT_EQ(asked, (std::vector{2, 5, 4, 1, 2, 5}));
    click("playback_play");  // at the last: from the first
    EXPECT_EQ(played(), (std::vector{2, 3, 4, 5}));
    state.frame = 3;
    click("playback_repeat");
    click("playback_play");
    EXPECT_EQ(played(6), (std::vector{4, 5, 1, 2, 3, 4}));
    auto* speed = bar->findChild<QComboBox*>("playback_speed");
    speed->setFocus();
    QTest::keyClick(speed, Qt::Key_Down);  // 2x
    EXPECT_EQ(played(4), (std::vector{5, 1, 3, 5}));
    QTest::keyClick(speed, Qt::Key_Home);  // 0.25x
    EXPECT_EQ(played(9), (std::vector{5, 5, 5, 1, 1, 1, 1, 2, 2}));
    click("playback_play");
    EXPECT_FALSE(state.animation_running);
    view::advance(state, run.ana_type, run.mode_num());
    EXPECT_EQ(state.frame, 2);
    // the old way begins at the first and stops at the last whatever the bar was told
    state.speed = 1;
    state.frame = 1;
    state.animation_running = true;
    EXPECT_EQ(played(), (std::vector{2, 3, 4, 5}));
    click("playback_back");
    asked.clear();
    run.results.resize(2);
    bar->refresh();
    EXPECT_EQ(slider->maximum(), 2);
    EXPECT_TRUE(asked.empty()) << "what is shown asks for nothing";
}

TEST_F(Bar, LetsAModeSwingOrStandAtItsPeak) {
    show(AnalysisType::buckling, {1.5, 3.25});
    state.phase = 7;
    click("playback_play");
    view::advance(state, run.ana_type, 2);
    EXPECT_EQ(state.phase, 0);
    click("playback_play");
    const auto phase = [&](bool tick) {
        view::advance(state, run.ana_type, 2, tick);
        return state.phase;
    };
    EXPECT_EQ((std::vector{phase(true), phase(false), phase(true)}), (std::vector{1, 1, 2}));
    state.speed = 4;
    EXPECT_EQ(phase(true), 6);
    click("playback_last");
    EXPECT_EQ(place(), "2 / 2   load factor 3.25");
    show(AnalysisType::linear_static, {0, 0});
    EXPECT_FALSE(button("playback_play")->isEnabled()) << "load cases stand still";
    EXPECT_TRUE(button("playback_forward")->isEnabled());
}

TEST(ModeTable, ListsChoosesAndCopiesModes) {
    MadeRun run = made_run(AnalysisType::eigen, {1e-4, 2e-4, 123.456, 200});
    EXPECT_EQ(first_elastic_mode(run), 3);
    run.report.total_mass = 2;
    for (int k = 0; k < 4; ++k)
        run.report.modes.push_back({0, run.results[k]->n_freq, 1e-9, k < 1, {0.5 * k, 0, 0.25}});
    EXPECT_EQ(first_elastic_mode(run), 2) << "the report knows";
    const MadeRun* shown = nullptr;
    ModeTable modes([&] { return shown; });
    modes.resize(700, 260);
    modes.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&modes));
    auto* table = modes.findChild<QTableWidget*>("mode_rows");
    EXPECT_FALSE(table->isVisible());
    shown = &run;
    modes.refresh();
    std::vector<int> asked;
    QObject::connect(&modes, &ModeTable::frame_chosen, &modes, [&](int frame) { asked.push_back(frame); });
    modes.show_frame(2);
    EXPECT_TRUE(asked.empty());
    const auto click = [&](int row) {
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {},
                          table->visualItemRect(table->item(row, 1)).center());
    };
    click(3);
    QTest::keyClick(table, Qt::Key_Up);
    EXPECT_EQ(asked, (std::vector{4, 3}));
    EXPECT_NE(table->item(0, 1)->foreground().color(), table->item(1, 1)->foreground().color());
    QTest::keyClick(table, Qt::Key_C, Qt::ControlModifier);
    const QStringList lines = QApplication::clipboard()->text().split('\n');
    ASSERT_EQ(lines.size(), 6);
    EXPECT_EQ(lines[0],
              "No.\tFrequency [Hz]\tResidual\tMass x [kg]\tx [%]\tMass y [kg]\ty [%]\tMass z [kg]\tz [%]");
    EXPECT_EQ(lines[3], "3\t123.456\t1e-09\t1\t50.0\t0\t0.0\t0.25\t12.5");
    EXPECT_EQ(modes.findChild<QLabel*>("mode_note")->text(),
              "Together they move x 150.0 %, y 0.0 %, z 50.0 % of 2 kg.");
    run.report = {};
    modes.refresh();
    EXPECT_EQ(modes.text(), "No.\tFrequency [Hz]\n1\t0.0001\n2\t0.0002\n3\t123.456\n4\t200\n");
    EXPECT_EQ(first_elastic_mode(made_run(AnalysisType::eigen, {100, 200})), 1);
    EXPECT_EQ(first_elastic_mode(made_run(AnalysisType::linear_static, {0})), 0);
}

}  // namespace
