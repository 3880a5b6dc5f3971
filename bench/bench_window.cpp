// The window during a static run of a cube: repaints per second while the view is turned with the mouse, at
// rest and in each stage of the run, the longest wait for a repaint, and how long a Stop in each stage takes.
// Usage: bench_window [CELLS]   along an edge; 30 unless given. Needs an X display; works in the source
// folder.
#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QSettings>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "app/window/main_window.h"
#include "offscreen.h"

using namespace kestralum;

namespace {

struct Turning {
    std::vector<double> waits;  // ms, between repaints
    double per_second() const {
        double sum = 0;
        for (const double wait : waits) sum += wait;
        return sum > 0 ? 1000 * static_cast<double>(waits.size()) / sum : 0;
    }
    double longest() const { return waits.empty() ? 0 : *std::ranges::max_element(waits); }
};

class Bench {
public:
    Bench(MainWindow& window, const QString& model) : window_(window), view_(*window.view()) {
        window_.open_model(model);
        wait_idle();
        view_.state().mouse_mode = view::MouseMode::rotation;
        QObject::connect(&view_, &GLWidget::painted, [this] { painted_ = true; });
    }

    // Turns the view as long as `goes_on`; each repaint brings the next move of the mouse. By stage.
    template <typename GoesOn>
    std::map<std::string, Turning> turn(const GoesOn& goes_on) {
        std::map<std::string, Turning> out;
        const QPoint middle(view_.width() / 2, view_.height() / 2);
        send(QEvent::MouseButtonPress, middle);
        QElapsedTimer clock;
        clock.start();
        for (int k = 0; goes_on(); ++k) {
            const std::string stage = window_.worker().busy() ? window_.worker().place().stage : "at rest";
            painted_ = false;
            send(QEvent::MouseMove, middle + QPoint(k % 200 - 100, 40));
            while (!painted_) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 1);
            out[stage].waits.push_back(1e-6 * static_cast<double>(clock.nsecsElapsed()));
            clock.restart();
        }
        send(QEvent::MouseButtonRelease, middle);
        return out;
    }

    void trigger(const char* entry) {
        for (QAction* action : window_.findChildren<QAction*>())
            if (action->text() == entry) return action->trigger();
    }
    void wait_idle() {
        if (!QTest::qWaitFor([this] { return !window_.worker().busy(); }, 600000)) std::exit(1);
    }

    // Milliseconds from Stop to rest, asked for as soon as the stage has begun; nothing where it did not
    // come.
    double stop_in(const std::string& stage) {
        trigger("&Static");
        while (window_.worker().busy() && window_.worker().place().stage != stage) QTest::qWait(1);
        if (!window_.worker().busy()) return -1;
        QTest::qWait(20);
        QElapsedTimer clock;
        clock.start();
        window_.worker().stop();
        wait_idle();
        return 1e-6 * static_cast<double>(clock.nsecsElapsed());
    }

private:
    void send(QEvent::Type type, const QPoint& at) {
        const bool move = type == QEvent::MouseMove, up = type == QEvent::MouseButtonRelease;
        QMouseEvent event(type, at, view_.mapToGlobal(at), move ? Qt::NoButton : Qt::LeftButton,
                          up ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(&view_, &event);
    }

    MainWindow& window_;
    GLWidget& view_;
    bool painted_ = false;
};

void write_cube(const QString& file, int cells) {
    std::ofstream(file.toStdString())
        << "material_info\n  STEEL 7800 2e11 0.3\n%\npart_info\n  CUBE orange STEEL RECT  1 1 1 0 0 0  "
        << cells << ' ' << cells << ' ' << cells
        << " 0 0 0  0 0 0  0 0 0  %\nboundary_condition\n  CLAMP plane x  0 0 -1 2 -1 2  %\n"
           "apply_force\n  PULL area x 1000  1 1 -1 2 -1 2  %\nEND\n";
}

void print(const std::string& stage, const Turning& turning) {
    std::printf("%-12s %8zu %12.1f %14.0f\n", stage.c_str(), turning.waits.size(), turning.per_second(),
                turning.longest());
}

}  // namespace

int main(int argc, char** argv) {
    testing::use_view_format();
    QApplication application(argc, argv);
    const int cells = argc > 1 ? std::atoi(argv[1]) : 30;
    if (cells < 1 || cells > 200) {
        std::fputs("bench_window: 1 to 200 cells along an edge are wanted\n", stderr);
        return 2;
    }
    std::setlocale(LC_NUMERIC, "C");
    const QTemporaryDir folder;
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, folder.path());
    const QString model = folder.filePath("cube.txt");
    write_cube(model, cells);
    MainWindow window(folder.filePath("log").toStdString(), true);
    window.resize(1280, 900);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window)) return 1;
    QTest::qWait(500);
    Bench bench(window, model);

    bench.trigger("&Static");  // a result to turn, which stays on the screen until the next one is whole
    bench.wait_idle();
    QTest::qWait(300);
    QElapsedTimer clock;
    clock.start();
    std::printf("%d x %d x %d hexahedra\n%-12s %8s %12s %14s\n", cells, cells, cells, "stage", "repaints",
                "per second", "longest [ms]");
    const auto rest = bench.turn([&] { return clock.elapsed() < 3000; });
    print("at rest", rest.at("at rest"));
    bench.trigger("&Static");
    Turning all;
    std::vector<std::string> stages;
    for (const auto& [stage, turning] : bench.turn([&] { return window.worker().busy(); })) {
        if (stage != "at rest" && !stage.empty()) stages.push_back(stage);
        print(stage.empty() ? "(begin)" : stage, turning);
        all.waits.insert(all.waits.end(), turning.waits.begin(), turning.waits.end());
    }
    print("run", all);
    std::printf("turning in the run / at rest: %.2f\n\nstop in      answered after [ms]\n",
                all.per_second() / rest.at("at rest").per_second());
    for (const std::string& stage : stages) {
        const double time = bench.stop_in(stage);
        if (time < 0)
            std::printf("%-12s over before the stop\n", stage.c_str());
        else
            std::printf("%-12s %.0f\n", stage.c_str(), time);
    }
}
