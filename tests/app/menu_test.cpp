// What the menus and the controls do.
#include <QDir>
#include <QDoubleSpinBox>
#include <QInputDialog>
#include <QMenu>
#include <QMenuBar>

#include "app/window/dialogs.h"
#include "app/window_fixture.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

TEST_F(Window, EveryControlChangesThePicture) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{1e-6 * x[0], 0, 0}; });
    const std::pair<const char*, double> values[] = {
        {"Mode Scale:", 2.5}, {"Model Trans.:", 0.4}, {"LightX", -1.5}, {"LightY", 2.25}, {"LightZ", 9.75}};
    for (const auto& [name, value] : values) {
        state().contour = name[0] == 'L' ? 17 : 4;  // colours of values are not lit
        const QImage before = picture();
        window->findChild<QDoubleSpinBox*>(name)->setValue(value);
        EXPECT_NE(picture(), before) << name;
    }
    state().contour = 4;
    for (const char* toggle : {"Auto Scale", "All Frames"}) {
        const QImage before = picture();
        trigger(toggle);
        EXPECT_NE(picture(), before) << toggle;
    }
}

// What the window itself prints, in the order of its texts.
TEST_F(Window, PrintsItsLines) {
    ::testing::internal::CaptureStdout();
    show_window(false);
    for (const char* text : {"&Node", "&Node", "&Wire", "&Shape", "&Shape"}) trigger(text);
    QTest::keyClick(window.get(), Qt::Key_T);
    QTest::keyClick(window.get(), Qt::Key_R);
    ASSERT_TRUE(open(block_text));
    const std::string lines = ::testing::internal::GetCapturedStdout();
    std::size_t at = 0;
    for (const std::string line :
         {" Qt timer 50[ms]\n", "SETTING FILE OPEN !!\n", "KESTRALUM ver3.01\n", "max_length = 1.000e+00\n",
          "View Menu [1] is Checked\n",  // Node went off, Shape is on
          "View Menu [0] is Checked\nView Menu [1] is Checked\nView Menu [0] is Checked\n",
          "View Menu [0] is Checked\nView Menu [0] is Checked\nView Menu [1] is Checked\n",
          "keyPressEvent:\n   t\nkeyPressEvent:\n   r\n", "INPUT FILE OPEN !!\n"}) {
        at = lines.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << "is missing in:\n" << lines;
        at += line.size();
    }
}

// Each entry shows and hides something of its own.
TEST_F(Window, ViewEntriesShowWhatTheyName) {
    folder.write("model.ana",
                 "BLOCKS explicit d_time 1e-7 end_time 1e-6 output_frequency 1 C_alfa 0\n"
                 "RIGID_WALL FLOOR plane +z 0 0 0 0  0 0 0 0 0 0  0 0 0 %\n"
                 "ELEMENT_CONTACT TOUCH BLOCK OTHER 1 0 0 0  0 0 0 0 0 0  0 % END\n");
    // aside of the origin, where the part's axes would lie on the model's
    ASSERT_TRUE(open(
        replaced(block_text, "0 0 0  0 0 0  %",
                 "0 0.05 0  0 0 0  OTHER red STEEL RECT 0.4 0.2 0.1 0 0 0  4 2 1 0 0 0  0 0.3 0  0 0 0  %")));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    for (const view::ViewEntry& entry : view::view_entries) {
        const QImage with = picture();
        trigger(entry.text);
        EXPECT_NE(picture(), with) << entry.text << " changes nothing";
        trigger(entry.text);
        EXPECT_EQ(picture(), with) << entry.text;
    }
}

// A support with options shows what it holds, not three directions; loads and supports follow their entries.
TEST_F(Window, SupportsWithOptionsShowWhatTheyHold) {
    ASSERT_TRUE(open(replaced(
        block_text, "-1 1 -1 1  %\napply_force\n  PULL area x 1000  0.4 0.4 -1 1 -1 1  %",
        "-1 1 -1 1 fix=x  %\nset_info E plane x 0.4 %\nload_info P pressure E 1e5  G gravity 0 0 -9.81 %")));
    EXPECT_TRUE(shown().tables().fixed_nodes.empty());
    ASSERT_EQ(shown().tables().support_holds.size(), 9u);
    EXPECT_EQ(shown().tables().support_holds[0].axis, 0);
    for (const char* entry : {"&B.C.", "&Force"}) {
        const QImage with = picture();
        trigger(entry);
        EXPECT_NE(picture(), with) << entry;
        trigger(entry);
        EXPECT_EQ(picture(), with) << entry;
    }
}

// node_stress 4: Mises, plastic strain.
TEST_F(Window, ContoursExcludeEachOther) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0.01 + x[1], 0}; });
    state().auto_scale = false;
    auto shows = [&](const QStringList& checked, double high, const char* what) {
        picture();
        QStringList texts;
        for (const QAction* entry : window->menuBar()->actions()[4]->menu()->actions())
            if (entry->isChecked()) texts << entry->text();
        EXPECT_EQ(texts, checked) << what;
        EXPECT_DOUBLE_EQ(shown_picture().contour() ? shown_picture().range()->high.value : 0, high) << what;
    };
    shows({"&Mises Stress"}, 0.4, "at start");
    trigger("&Disp. y");
    shows({"&Disp. y"}, 0.21, "another one");
    trigger("&Disp. y");
    shows({}, 0, "chosen once more");
    trigger("Plastic Strain");
    shows({}, 0.21, "the toggle");
    trigger("&Disp. x");
    shows({"&Disp. x"}, 0.4, "what was chosen last");
    EXPECT_FALSE(action("Plastic Strain")->isChecked());
    trigger("&Part Color");
    shows({"&Part Color"}, 0, "parts");
}

TEST_F(Window, FramesStayWithinTheResults) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double*) { return Vec3{}; }, AnalysisType::explicit_dynamics, 5);
    for (const int asked : {0, -3, 3, 5, 9999}) {
        window->i_anime_Changed(asked);
        EXPECT_EQ(state().frame, std::clamp(asked, 1, 5));
    }
    trigger("&Start Animation");
    EXPECT_EQ(state().frame, 1);
    for (int k = 0; k < 20; ++k) picture();
    EXPECT_EQ(state().frame, 1) << "a grab has moved the animation on";
    ASSERT_TRUE(QTest::qWaitFor([&] { return !state().animation_running; }));
    EXPECT_EQ(state().frame, 5);
    shown().show(window->store().model, nullptr);  // no frame at all
    window->i_anime_Changed(2);
    EXPECT_EQ(state().frame, 0);
}

TEST_F(Window, RendersGrabsAndClearsPixmaps) {
    ASSERT_TRUE(open(block_text));
    auto pixmap = [&] {
        const auto* shown = window->findChild<PixmapWindow*>();
        return shown ? shown->pixmap().size() : QSize();
    };
    std::string told;
    auto render = [&](const QString& answer, bool taken) {
        answer_next<QInputDialog>([&, answer](QInputDialog* dialog) {
            EXPECT_EQ(dialog->textValue(),
                      QString("%1 x %2").arg(window->view()->width()).arg(window->view()->height()));
            dialog->setTextValue(answer);
            if (!taken) answer_boxes(told, {""});
            dialog->accept();
        });
        trigger("&Render into Pixmap...");
        expect_answered();
    };
    render("320 x 200", true);
    EXPECT_EQ(pixmap(), QSize(320, 200));
    trigger("&Clear Pixmap");
    render("640*480", false);
    EXPECT_TRUE(contains(told, "640*480")) << told;
    EXPECT_EQ(pixmap(), QSize());
    const std::pair<Qt::Key, QSize> keys[] = {{Qt::Key_G, window->view()->size()}, {Qt::Key_L, QSize()}};
    for (const auto& [key, size] : keys) {
        QApplication::setActiveWindow(window.get());
        QTest::keyClick(window.get(), key, Qt::ControlModifier);
        EXPECT_EQ(pixmap(), size);
    }
}

TEST_F(Window, BoxesComeUp) {
    EXPECT_TRUE(contains(told_by([&] { trigger("&About"); }), "Structural analysis"));
    // the program ends after the box has named where the file was looked for
    std::string missing;
    answer_boxes(missing, {""});
    QTimer::singleShot(0, window->view(), &GLWidget::settings_missing);
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(contains(missing, "setting/setting.txt")) << missing;
    EXPECT_TRUE(contains(missing, QDir::currentPath().toStdString())) << missing;
}

}  // namespace
