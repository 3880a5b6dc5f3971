// The graph window: its curves, axes, mouse and files.
#include <QFileDialog>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QToolButton>
#include <QTreeWidget>

#include "app/window/curve_view.h"
#include "app/window/history_plots.h"
#include "app/window_fixture.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

using MadeRun = kestralum::Run;

// An explicit run; its outputs are 0.5 s apart: energies in J, momenta in kg m/s, a wall's force in N.
std::shared_ptr<MadeRun> made_run() {
    auto run = std::make_shared<MadeRun>();
    run->ana_type = AnalysisType::explicit_dynamics;
    run->mesh = box_mesh({{1, 1, 1}, {1, 1, 1}}, ElementKind::hexahedron);
    run->history.columns = {"time",    "kinetic",  "internal", "plastic", "damping",    "wall",
                            "contact", "external", "support",  "drift",   "momentum_x", "wall_FLOOR_z"};
    return run;
}
void add_frame(MadeRun& run, double noise = 0) {
    const double t = 0.5 * run.mode_num(), e = std::sin(t) * std::sin(t) + noise;
    auto frame = std::make_shared<Frame>(run.mesh.dof_num());
    frame->n_freq = t;
    run.results.push_back(frame);
    for (const double value : {t, 3 * e, 3 - 3 * e, 0., 0., 0., 0., 0., 0., 0.01 * e, 1 + t, -7.0})
        run.history.values.push_back(value);
}

class Plots : public ::testing::Test {
protected:
    Plots() : run(made_run()), plots([this] { return std::shared_ptr<const MadeRun>(run); }) {
        for (int k = 0; k < 41; ++k) add_frame(*run);
        plots.resize(900, 420);
        plots.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&plots));
        QObject::connect(&plots, &HistoryPlots::frame_chosen, &plots, [this](int frame) {
            asked.push_back(frame);
            plots.show_frame(frame);
        });
        QTest::qWait(50);
    }
    QTreeWidgetItem* item(const QString& name) {
        auto* list = plots.findChild<QTreeWidget*>("curve_list");
        const auto found = list->findItems(name, Qt::MatchExactly | Qt::MatchRecursive);
        EXPECT_EQ(found.size(), 1) << name.toStdString();
        return found.value(0);
    }
    // By the mouse on the box of its row.
    void check(const QString& name) {
        auto* list = plots.findChild<QTreeWidget*>("curve_list");
        list->scrollToItem(item(name));
        const QRect row = list->visualItemRect(item(name));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, {row.left() + 8, row.center().y()});
    }
    std::string shown() const {
        std::string out;
        for (const std::size_t c : plots.shown_columns()) out += plots.history().columns[c].name + "|";
        return out;
    }
    QString text(const char* label) { return plots.findChild<QLabel*>(label)->text(); }

    std::shared_ptr<MadeRun> run;
    HistoryPlots plots;
    CurveView& view = *plots.findChild<CurveView*>("curve_view");
    std::vector<int> asked;
    TempFolder folder;
};

TEST_F(Plots, ChecksCurvesOnTwoAxesAndRefusesAThird) {
    EXPECT_EQ(shown(), "Total energy|Kinetic energy|Internal energy|");
    check("Internal energy");
    check("Wall FLOOR force z");
    EXPECT_EQ(shown(), "Total energy|Kinetic energy|Wall FLOOR force z|");
    EXPECT_FALSE(plots.findChild<QLabel*>("plot_message")->isVisible());
    check("Momentum x");
    EXPECT_EQ(shown(), "Total energy|Kinetic energy|Wall FLOOR force z|");
    EXPECT_TRUE(text("plot_message").contains("J and N")) << text("plot_message").toStdString();
    check("Wall FLOOR force z");
    check("Momentum x");
    EXPECT_EQ(shown(), "Total energy|Kinetic energy|Momentum x|");
    plots.pick_node(1);  // listed; drawn once it is checked
    EXPECT_EQ(item("Node 1 Mises stress")->checkState(0), Qt::Unchecked);
    for (const char* name : {"Total energy", "Kinetic energy", "Momentum x"}) check(name);
    EXPECT_FALSE(view.isVisible());
    EXPECT_TRUE(text("plot_empty").startsWith("Check a curve"));
    check("Node 1 displacement, size");
    plots.pick_node(2);  // what was chosen holds for the next node
    EXPECT_EQ(shown(), "Node 2 displacement, size|");
    plots.pick_node(3, true);  // with Shift: beside it
    plots.pick_node(3, true);
    plots.pick_node(0, true);
    EXPECT_EQ(shown(), "Node 2 displacement, size|Node 3 displacement, size|");
    EXPECT_NE(item("Node 2 displacement, size")->foreground(0),
              item("Node 3 displacement, size")->foreground(0));
    plots.pick_node(4);
    EXPECT_EQ(shown(), "Node 4 displacement, size|");
    run.reset();
    plots.refresh();
    EXPECT_TRUE(text("plot_empty").startsWith("Run an analysis"));
}

TEST_F(Plots, ZoomsMovesPointsAndAsksForFrames) {
    const CurveView::Range x = view.x_range(), y = view.y_range(false);
    EXPECT_EQ((std::vector{x.low, x.high}), (std::vector{0., 20.}));
    QWidget* chart = view.viewport();
    const auto at = [&](std::size_t row) { return view.place_of(1, row).toPoint(); };
    QSignalSpy pointed(&view, &CurveView::pointed_at);
    QTest::mouseMove(chart, at(3) + QPoint(2, 3));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !pointed.empty(); }));
    EXPECT_EQ(pointed.back().at(0).toString(), "Kinetic energy = 2.98499 J   at Time = 1.5 s   (frame 4)");
    QTest::mouseClick(chart, Qt::LeftButton, {}, at(20) + QPoint(2, -40));
    EXPECT_EQ(asked, std::vector{21});
    // a band around rows 10 to 30
    const QPoint from(at(10).x(), at(0).y()), to(at(30).x(), at(3).y());
    QTest::mousePress(chart, Qt::LeftButton, {}, from);
    QTest::mouseMove(chart, to);
    QTest::mouseRelease(chart, Qt::LeftButton, {}, to);
    EXPECT_NEAR(view.x_range().low, 5, 0.1);
    EXPECT_NEAR(view.x_range().high, 15, 0.1);
    EXPECT_NEAR(view.y_range(false).low, 0, 0.05);
    EXPECT_NEAR(view.y_range(false).high, 2.985, 0.05);
    const double before = view.x_range().low;
    QTest::mousePress(chart, Qt::RightButton, {}, at(20));
    QTest::mouseMove(chart, at(20) + QPoint(60, 0));
    QTest::mouseRelease(chart, Qt::RightButton, {}, at(20) + QPoint(60, 0));
    EXPECT_LT(view.x_range().low, before - 0.5);
    const CurveView::Range zoomed = view.x_range();
    const QPointF place = view.place_of(1, 20);
    QWheelEvent wheel(place, chart->mapToGlobal(place), {}, {0, 240}, {}, {}, Qt::NoScrollPhase, false);
    QApplication::sendEvent(chart, &wheel);
    EXPECT_NEAR(view.x_range().high - view.x_range().low, 0.64 * (zoomed.high - zoomed.low), 1e-9);
    const auto share = [](CurveView::Range range) { return (10 - range.low) / (range.high - range.low); };
    EXPECT_NEAR(share(view.x_range()), share(zoomed), 1e-9) << "zooms about the pointer";
    check("Internal energy");
    EXPECT_FALSE(view.fitted()) << "another curve of the unit leaves the part that is seen";
    asked.clear();
    QTest::mouseDClick(chart, Qt::LeftButton, {}, place.toPoint() + QPoint(30, 0));
    EXPECT_TRUE(view.fitted());
    EXPECT_EQ(view.x_range().high, x.high);
    EXPECT_EQ(view.y_range(false).high, y.high);
    EXPECT_EQ(asked.empty() ? 21 : asked.back(), 21) << "the frame of before the double click";
}

TEST_F(Plots, GrowsWithARunAndStaysQuick) {
    add_frame(*run, 5);
    plots.show_frame(42);
    ASSERT_TRUE(QTest::qWaitFor([&] { return plots.history().x.size() == 42; }));
    EXPECT_EQ(view.x_range().high, 20.5);
    EXPECT_GT(view.y_range(false).high, 15);
    view.setFixedSize(600, 300);
    while (run->mode_num() < 10000) add_frame(*run, 0.01 * run->mode_num());
    plots.show_frame(10000);
    ASSERT_TRUE(QTest::qWaitFor([&] { return plots.history().x.size() == 10000; }));
    QElapsedTimer time;
    time.start();
    for (int k = 0; k < 10; ++k) {
        add_frame(*run);
        view.grow();
        view.grab();
    }
    EXPECT_LT(time.elapsed(), 10 * 250) << "ms for ten rows more, each drawn";
}

TEST_F(Plots, SavesPictureAndNumbers) {
    const auto save = [&](const char* button, const QString& name) {
        QTimer::singleShot(200, &plots, [&, name] {
            auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            ASSERT_TRUE(dialog);
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(name);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        QTest::mouseClick(plots.findChild<QPushButton*>(button), Qt::LeftButton);
    };
    save("plot_picture", QString::fromStdString(folder.file("drawn")));
    const QImage picture(QString::fromStdString(folder.file("drawn.png")));
    EXPECT_EQ(picture.size(), view.size() * view.devicePixelRatioF());
    save("plot_csv", QString::fromStdString(folder.file("numbers")));
    const std::string text = read_file(folder.file("numbers.csv"));
    EXPECT_TRUE(
        text.starts_with("Time [s],Total energy [J],Kinetic energy [J],Internal energy [J]\n0,3,0,3\n"))
        << text.substr(0, 200);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 42);
}

// ---- in the window

const std::string flying_text = R"(
mode_num 8 %
material_info
  STEEL 7800 2e11 0.3
%
part_info
  BLOCK orange STEEL RECT  0.4 0.2 0.2 0 0 0  4 2 2 0 0 0  0 0 0  0 0 0  %
END
)";

TEST_F(Window, ShowsCurvesModesAndFramesOfARun) {
    write("flying.ana",
          "FLY explicit d_time 1e-7 end_time 1e-5 output_frequency 10 C_alfa 0\n"
          "INITIAL_VELOCITY BLOCK part x 5  0 0 0 0 0 0 % END\n");
    ASSERT_TRUE(open(flying_text, "flying.txt"));
    trigger("&Open Graph Window");
    auto* plots = window->findChild<HistoryPlots*>();
    EXPECT_TRUE(plots->isVisible());
    trigger("&Explicit(Real Time)");
    wait_for([&] { return plots->history().x.size() >= 3; });
    EXPECT_TRUE(state().real_time) << "the curves are there before the run has ended";
    wait_idle();
    wait_for([&] { return std::ssize(plots->history().x) == shown().mode_num(); });
    const SharedRun made = shown_run();
    const std::vector<double>& energy = plots->history().columns[0].values;
    for (std::size_t row = 0; row < energy.size(); ++row)
        EXPECT_NEAR(energy[row], 0.5 * 124.8 * 25, 1e-6 * 1560) << row;
    std::vector<int> drawn;
    QObject::connect(window.get(), &MainWindow::frame_shown, [&](int frame) { drawn.push_back(frame); });
    trigger("&Start Animation");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !state().animation_running; }));
    EXPECT_GE(drawn.size(), 9u);
    auto* slider = window->findChild<QSlider*>("playback_slider");
    EXPECT_EQ(slider->value(), 11);
    QTest::mouseClick(window->findChild<QToolButton*>("playback_first"), Qt::LeftButton);
    EXPECT_EQ(state().frame, 1);
    auto* view = plots->findChild<CurveView*>();
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->place_of(0, 6).toPoint());
    EXPECT_EQ(state().frame, 7);
    window->view()->look_from(view::ViewDirection::z);
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, window->view()->rect().center());
    const std::string last = plots->history().columns.back().name;
    EXPECT_TRUE(last.starts_with("Node ") && last.ends_with("Mises stress")) << last;
    // a free body: six motions without deformation come first
    told_by([&] { run("&Eigen(Lanczos)"); }, {"Replace"});
    EXPECT_EQ(state().frame, 7);
    EXPECT_EQ(plots->history().columns.size(), 1u);
    EXPECT_EQ(slider->maximum(), shown().mode_num());
}

}  // namespace
