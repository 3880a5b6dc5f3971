// What stands around the view: messages, tree, layout, files that are saved meanwhile, live runs.
#include <QClipboard>
#include <QDockWidget>
#include <QDropEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QSpinBox>
#include <QStatusTipEvent>
#include <QToolBar>
#include <QToolButton>
#include <QTreeWidget>

#include "app/window/dialogs.h"
#include "app/window_fixture.h"
#include "view/gl/text.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

// Paint events of all widgets.
class Paints : public QObject {
public:
    Paints() { qApp->installEventFilter(this); }
    int count = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        count += event->type() == QEvent::Paint;
        return false;
    }
};

class Docks : public Window {
protected:
    QDockWidget* dock(const char* title) { return window->findChild<QDockWidget*>(title); }
    QTreeWidgetItem* row(const QString& group, const QString& name) {
        auto* tree = window->findChild<QTreeWidget*>("model tree");
        for (int g = 0; g < tree->topLevelItemCount(); ++g)
            for (int k = 0; k < tree->topLevelItem(g)->childCount(); ++k)
                if (tree->topLevelItem(g)->text(0).startsWith(group + " (") &&
                    tree->topLevelItem(g)->child(k)->text(0) == name)
                    return tree->topLevelItem(g)->child(k);
        ADD_FAILURE() << "no row " << name.toStdString();
        return nullptr;
    }
    void choose(const QString& group, const QString& name) {
        auto* tree = window->findChild<QTreeWidget*>("model tree");
        tree->clearSelection();
        if (QTreeWidgetItem* one = row(group, name)) {
            one->parent()->setExpanded(true);
            tree->setCurrentItem(one);
        }
    }
    void press(const char* button) { window->findChild<QToolButton*>(button)->click(); }
};

TEST_F(Docks, CloseComeBackAndStayBetweenStarts) {
    QMenu* menu = window->menuBar()->actions()[5]->menu();
    EXPECT_EQ(menu->title(), "&Window");
    ASSERT_TRUE(dock("Messages")->isVisible());
    for (QAction* entry : menu->actions())
        if (entry->text() == "Messages" || entry->text() == "Picture") entry->trigger();
    EXPECT_FALSE(dock("Messages")->isVisible() || window->findChild<QToolBar*>("Picture")->isVisible());
    window->close();
    show_window(true);
    EXPECT_FALSE(dock("Messages")->isVisible() || window->findChild<QToolBar*>("Picture")->isVisible());
    for (QAction* entry : window->menuBar()->actions()[5]->menu()->actions())
        if (entry->text() == "Sweep") entry->trigger();
    QTest::qWait(100);
    EXPECT_FALSE(dock("Sweep")->visibleRegion().isEmpty()) << "a tab that is opened is in front";
    trigger("&Reset Layout");
    EXPECT_TRUE(dock("Messages")->isVisible() && window->findChild<QToolBar*>("Picture")->isVisible());
    window->close();
}

// A model as it was fitted stays fitted when a dock takes a part of the view; one that was moved stays put.
TEST_F(Docks, AFittedModelGivesRoomToThem) {
    ASSERT_TRUE(open(block_text));
    run("&Static");
    const auto outside = [&] { return shown().leaves_view(view::gl::GlutText(camera().height)); };
    const auto toggle_messages = [&] {
        const int height = camera().height;
        for (QAction* entry : window->menuBar()->actions()[5]->menu()->actions())
            if (entry->text() == "Messages") entry->trigger();
        QTest::qWait(100);
        EXPECT_NE(camera().height, height);
    };
    toggle_messages();
    window->view()->fit_view();
    const view::Camera before = camera();
    toggle_messages();
    EXPECT_FALSE(outside());
    EXPECT_NE(camera().shift, before.shift);
    camera().shift[1] += 1e-3;
    const Vec3 put = camera().shift;
    toggle_messages();
    EXPECT_EQ(camera().shift, put);
    toggle_messages();
}

// Any widget that is drawn has the picture of the view put together again.
TEST_F(Docks, NothingIsDrawnWhileNothingChanges) {
    ASSERT_TRUE(open(block_text));
    run("&Static");
    window->view()->setFocus();  // no cursor blinks there
    QTest::qWait(500);
    const Paints paints;
    QTest::qWait(1000);
    EXPECT_EQ(paints.count, 0);
}

TEST_F(Docks, MessagesAreKeptFilteredCopiedAndLeadToTheirLine) {
    ASSERT_TRUE(open(block_text));
    EXPECT_TRUE(contains(messages(), "check of model.txt") && contains(messages(), "total mass"))
        << messages();
    const QString wrong =
        write("wrong.txt", replaced(block_text, "0.4 0.2 0.2 0 0 0  4", "0.4 oops 0.2 0 0 0  4"));
    QString shown;
    answer_next<QMessageBox>([&](QMessageBox* box) {
        for (const QLabel* label : box->findChildren<QLabel*>())
            if (label->textFormat() == Qt::PlainText) shown += label->text();
        box->accept();
    });
    window->open_model(wrong);
    wait_idle();
    EXPECT_TRUE(shown.contains("wrong.txt: line 6: part \"BLOCK\"")) << shown.toStdString();
    const std::string place = "wrong.txt: line 6: ";  // the text begins with an empty line
    EXPECT_TRUE(contains(messages(), place)) << messages();

    const std::string noted = folder.file("noted"),
                      editor = folder.write("editor.sh", "#!/bin/sh\necho \"$1 at $2\" > " + noted + "\n");
    qputenv("KESTRALUM_EDITOR", QByteArray::fromStdString("/bin/sh " + editor + " %f %l"));
    auto* list = window->findChild<QListWidget*>("message list");
    for (int r = 0; r < list->count(); ++r)
        if (contains(list->item(r)->text().toStdString(), place)) emit list->itemDoubleClicked(list->item(r));
    wait_for([&] { return QFileInfo(QString::fromStdString(noted)).size() > 0; });
    EXPECT_EQ(read_file(noted), wrong.toStdString() + " at 6\n");
    qunsetenv("KESTRALUM_EDITOR");

    press("Summaries");
    EXPECT_FALSE(contains(messages(), "total mass"));
    EXPECT_TRUE(contains(messages(), place));
    window->messages().copy();
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), messages());
}

TEST_F(Docks, TheTreePointsOutWhatRecordsHold) {
    ASSERT_TRUE(open(
        replaced(block_text, "0 0 0  0 0 0  %",
                 "0 0 0  0 0 0  OTHER red STEEL RECT 0.4 0.2 0.1 0 0 0  4 2 1 0 0 0  0 0.3 0  0 0 0  %")));
    const auto record = [&] { return window->findChild<QLineEdit*>("record")->text().toStdString(); };
    const auto place = [&] { return window->findChild<QLabel*>("place")->text().toStdString(); };
    choose("Supports", "CLAMP");
    EXPECT_EQ(state().highlight.nodes.size(), 9u + 6u) << "the nodes at x = 0 of both parts";
    EXPECT_EQ(record(), "CLAMP plane x 0 0 -1 1 -1 1");
    EXPECT_EQ(place(), "model.txt: line 8");
    choose("Parts", "OTHER");
    EXPECT_EQ(state().highlight.parts, std::vector<std::int32_t>{1});
    EXPECT_EQ(place(), "model.txt: line 6");

    const QImage whole = picture();
    press("Isolate");
    EXPECT_FALSE(state().part_looks.at(0).visible);
    EXPECT_EQ(row("Parts", "BLOCK")->checkState(0), Qt::Unchecked);
    const QImage alone = picture();
    EXPECT_NE(alone, whole);
    run("&Update Model");
    EXPECT_FALSE(state().part_looks.at(0).visible) << "a look holds over a reading";
    press("Show All");
    EXPECT_TRUE(state().part_looks.at(0).visible);
    row("Parts", "OTHER")->setCheckState(0, Qt::Unchecked);
    EXPECT_FALSE(state().part_looks.at(1).visible);

    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::explicit_dynamics, 3);
    emit window->content_shown();
    choose("Results", "Frame 2");
    EXPECT_EQ(state().frame, 2);
}

TEST_F(Docks, SavedFilesAreReadAgain) {
    const std::string file = folder.write("model.txt", block_text);
    window->open_model(QString::fromStdString(file));
    wait_idle();
    camera().shift = {0.01, 0.02, 0};
    folder.write("model.txt", replaced(block_text, "4 2 2 0 0 0", "8 2 2 0 0 0"));
    wait_for([&] { return mesh().element_num() == 32; });
    EXPECT_EQ(camera().shift, (Vec3{0.01, 0.02, 0})) << "a save keeps the camera";
    wait_idle();
    folder.write("model.txt", replaced(block_text, "4 2 2 0 0 0", "oops 2 2 0 0 0"));
    wait_for([&] { return contains(messages(), "oops"); });
    wait_idle();
    EXPECT_EQ(mesh().element_num(), 32) << "the former model is shown";
    trigger("&Watch File");
    folder.write("model.txt", block_text);
    QTest::qWait(1000);
    EXPECT_EQ(mesh().element_num(), 32) << "not while it is off";
    trigger("&Watch File");
    wait_for([&] { return mesh().element_num() == 16; });
}

TEST_F(Docks, DroppedAndRecentFilesAreOpened) {
    const QString file = write("dropped.txt", block_text);
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(file)});
    QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &drop);
    wait_for([&] { return mesh().element_num() == 16; });
    wait_idle();
    QMenu* recent = nullptr;
    for (QAction* entry : window->menuBar()->actions()[0]->menu()->actions())
        if (entry->text() == "&Recent Files") recent = entry->menu();
    ASSERT_TRUE(recent);
    emit recent->aboutToShow();
    ASSERT_FALSE(recent->actions().isEmpty());
    EXPECT_EQ(recent->actions().front()->text(), file);
}

// Keys mean the view after a number box was touched; texts stay while the pointer wanders over the menus.
TEST_F(Docks, KeysAndTextsSurviveTheControls) {
    ASSERT_TRUE(open(block_text));
    window->view()->look_from(view::ViewDirection::isometric);
    auto* box = window->findChild<QSpinBox*>("Mode No.:");
    box->setFocus();
    QTest::keyClick(box, Qt::Key_X);
    view::Camera from_x;
    view::look_from(from_x, view::ViewDirection::x);
    EXPECT_EQ(camera().turn, from_x.turn);
    QTest::keyClick(box, Qt::Key_Return);
    EXPECT_TRUE(window->view()->hasFocus());
    const std::string said = status();
    ASSERT_FALSE(said.empty());
    for (const char* tip : {"Static", ""}) {  // as the pointer comes to a menu entry and leaves it
        QStatusTipEvent event(tip);
        QApplication::sendEvent(window->menuBar(), &event);
        EXPECT_EQ(status(), said);
    }
    EXPECT_TRUE(window->findChild<QLabel*>("said")->isVisible());
    // a mode is grabbed at its peak
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::eigen);
    std::array<QImage, 2> grabbed;
    for (std::size_t k = 0; k < 2; ++k) {
        state().phase = k == 0 ? 0 : 5;
        state().mode_swings = false;
        trigger("&Grab Frame Buffer");
        grabbed[k] = window->findChild<PixmapWindow*>()->pixmap().toImage();
    }
    EXPECT_EQ(grabbed[0], grabbed[1]);
}

TEST_F(Docks, ALiveRunIsHeldSteppedAndGoesOn) {
    folder.write("flying.ana",
                 "FLY explicit d_time 1e-7 end_time 4e-4 output_frequency 40 C_alfa 0\n"
                 "INITIAL_VELOCITY BAR part x 10  0 0 0 0 0 0 % END\n");
    ASSERT_TRUE(open(replaced(bar_text, "CLAMP plane x  0 0 -1 1 -1 1", ""), "flying.txt"));
    auto* pause = window->findChild<QSpinBox*>("interval pause");
    pause->setValue(0);
    trigger("&Explicit(Real Time)");
    const auto frames = [&] { return shown().mode_num(); };
    double highest = 0;
    wait_for([&] {
        if (shown_picture().range()) {
            EXPECT_GE(shown_picture().range()->high.value, highest) << "the colours jump back";
            highest = shown_picture().range()->high.value;
        }
        return frames() >= 6;
    });
    EXPECT_GT(highest, 0);
    press("Pause");
    QTest::qWait(400);
    const int held = frames();
    QTest::qWait(400);
    ASSERT_EQ(frames(), held) << "a run that is held goes on";
    press("Step");
    wait_for([&] { return frames() == held + 1; });
    QTest::qWait(300);
    EXPECT_EQ(frames(), held + 1) << "one step is one interval";
    press("Pause");
    wait_for([&] { return frames() >= held + 4; });
    EXPECT_TRUE(window->worker().busy());
    press("Stop");
    wait_idle();
    EXPECT_FALSE(read_file(folder.file("log/result_flying.txt")).empty()) << "what was reached is kept";
    picture();
    const auto range = *shown_picture().range();
    EXPECT_EQ(range.high.frame, 0) << "the colours are of the frame again, not of the run";
    EXPECT_TRUE(row("Results", QString("Frame %1").arg(frames()))) << "the tree has the frames";
}

}  // namespace
