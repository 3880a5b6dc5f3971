// Every action of every menu, and the controls: what they are and what they do.
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSpinBox>

#include "analysis/analysis_table.h"
#include "app/window/dialogs.h"
#include "app/window_fixture.h"
#include "results/result_file.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

QStringList texts_of(const QList<QAction*>& actions) {
    QStringList texts;
    for (const QAction* action : actions) texts << action->text();
    return texts;
}

TEST_F(Window, HasItsMenusInOrder) {
    const std::pair<const char*, QStringList> menus[] = {
        {"&Model", {"&Open Model File", "&Update Model", "&Open Result File", "&Open Disp. File", "E&xit"}},
        {"&View",
         {"&Node", "&Shape", "&Wire", "&Fem", "&Axes", "&Part Axes", "&B.C.", "&Text", "&Force",
          "&Rigid Element", "&Rigid Wall", "&Element Contact", "&Contour Bar", "&Part Name", "&Dimension",
          "&Fem infomation"}},
        {"&Analysis",
         {"&Static", "&Eigen(Subspace)", "&Eigen(Lanczos)", "&Explicit", "&Explicit(Real Time)",
          "&Nonlinear Static"}},
        {"&Result", {"&Start Animation"}},
        {"&Contour",
         {"&Disp. Mag.", "&Disp. x", "&Disp. y", "&Disp. z", "&Mises Stress", "&Stress xx", "&Stress yy",
          "&Stress zz", "&Stress xy", "&Stress yz", "&Stress xz", "&Strain xx", "&Strain yy", "&Strain zz",
          "&Strain xy", "&Strain yz", "&Strain xz", "&Part Color"}}};
    const auto bar = window->menuBar()->actions();
    ASSERT_EQ(bar.size(), 5);
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(bar[k]->text(), menus[k].first);
        EXPECT_EQ(texts_of(bar[k]->menu()->actions()), menus[k].second);
    }
    const QStringList off{"&Part Axes", "&Rigid Element", "&Element Contact", "&Part Name", "&Dimension"};
    for (const QAction* entry : bar[1]->menu()->actions())
        EXPECT_EQ(entry->isChecked(), !off.contains(entry->text())) << entry->text().toStdString();
    for (const QAction* entry : bar[4]->menu()->actions())
        EXPECT_EQ(entry->isChecked(), entry->text() == "&Mises Stress");
    EXPECT_EQ(action("&Eigen(Subspace)")->statusTip(), "EigenSubspace");
    EXPECT_EQ(action("&Open Disp. File")->statusTip(), "Open Disp. File");
    EXPECT_EQ(action("E&xit")->shortcuts(), QKeySequence::keyBindings(QKeySequence::Quit));
    const std::pair<const char*, const char*> keys[] = {{"&Render into Pixmap...", "Ctrl+R"},
                                                        {"&Grab Frame Buffer", "Ctrl+G"},
                                                        {"&Clear Pixmap", "Ctrl+L"},
                                                        {"&Stop Rotate", "Ctrl+S"}};
    for (const auto& [text, key] : keys) {
        EXPECT_EQ(action(text)->shortcut(), QKeySequence(key));
        EXPECT_TRUE(window->actions().contains(action(text)))
            << "the shortcut of " << text << " does not work";
    }
}

TEST_F(Window, HasItsControls) {
    struct Row {
        const char* label;
        double low, high, step, start;
    };
    const double L = model_store().mesh.max_length;
    const Row rows[] = {{"Anime Frame:", 1, 9999, 1, 1},  {"Mode No.:", 1, 9999, 1, 1},
                        {"Mode Scale:", 0.1, 10, 0.1, 1}, {"Model Trans.:", 0.01, 1, 0.01, 1},
                        {"LightX", -10, 10, 0.01, L},     {"LightY", -10, 10, 0.01, L},
                        {"LightZ", -10, 10, 0.01, L}};
    for (const Row& row : rows) {
        const auto* box = window->findChild<QAbstractSpinBox*>(row.label);
        ASSERT_NE(box, nullptr) << row.label;
        const std::pair<const char*, double> expected[] = {
            {"minimum", row.low}, {"maximum", row.high}, {"singleStep", row.step}, {"value", row.start}};
        for (const auto& [name, value] : expected)
            EXPECT_EQ(box->property(name).toDouble(), value) << row.label << " " << name;
        EXPECT_EQ(box->width(), 50);
    }
    const std::pair<const char*, double> values[] = {
        {"Mode Scale:", 2.5}, {"Model Trans.:", 0.4}, {"LightX", -1.5}, {"LightY", 2.25}, {"LightZ", 9.75}};
    for (const auto& [name, value] : values) window->findChild<QDoubleSpinBox*>(name)->setValue(value);
    EXPECT_EQ(state().mode_scale, 2.5);
    EXPECT_EQ(state().transparency, 0.4);
    EXPECT_EQ(state().light, (Vec3{-1.5, 2.25, 9.75}));
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
    console::Capture captured;
    for (std::size_t k = 0; k < view::view_entries.size(); ++k) {
        const QString text = view::view_entries[k].text;
        const bool before = state().flags[k];
        const QImage with = picture();
        trigger(text);
        EXPECT_EQ(state().flags[k], !before);
        const QImage without = picture();
        EXPECT_NE(with, without) << text.toStdString() << " changes nothing";
        trigger(text);
        EXPECT_EQ(with, picture()) << text.toStdString();
    }
    EXPECT_TRUE(contains(captured.lines, "View Menu [0] is Checked\n"));
    EXPECT_TRUE(contains(captured.lines, "View Menu [1] is Checked\n"));
    EXPECT_FALSE(contains(captured.lines, "View Menu [2]"));
}

TEST_F(Window, ContourEntriesExcludeEachOther) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], x[1], 0}; });
    auto checked = [&] {
        QStringList texts;
        for (const QAction* entry : window->menuBar()->actions()[4]->menu()->actions())
            if (entry->isChecked()) texts << entry->text();
        return texts;
    };
    for (std::size_t k = 0; k < view::quantities.size(); ++k) {
        if (static_cast<std::int32_t>(k) == state().contour) continue;
        trigger(view::quantities[k].menu_text);
        EXPECT_EQ(checked(), QStringList{view::quantities[k].menu_text});
        EXPECT_EQ(state().contour, static_cast<std::int32_t>(k));
    }
    const QImage part_colour = picture();
    trigger("&Disp. x");
    EXPECT_NE(picture(), part_colour);
    trigger("&Disp. x");
    EXPECT_TRUE(checked().isEmpty());
    EXPECT_EQ(state().contour, -1);
    EXPECT_EQ(picture(), part_colour) << "no contour shows the parts' colours";
}

// node_stress 4: Mises, plastic strain.
TEST_F(Window, PlasticStrainShowsInPlaceOfTheContour) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0.01 + x[1], 0}; });
    state().contour = 4;
    state().auto_scale = false;
    const QImage mises = picture();
    QAction* toggle = action("Plastic Strain");
    ASSERT_TRUE(toggle && toggle->isCheckable());
    EXPECT_FALSE(toggle->isChecked());
    EXPECT_EQ(window->menuBar()->actions()[4]->menu()->actions().size(), 18);
    toggle->trigger();
    EXPECT_NE(picture(), mises);
    const Mesh& mesh = model_store().mesh;
    const auto& values = shown_picture().values();
    ASSERT_EQ(values.size(), mesh.node_num());
    for (std::size_t n = 0; n < values.size(); ++n)
        EXPECT_DOUBLE_EQ(values[n], 0.01 + mesh.coordinates[3 * n + 1]) << "node " << n + 1;
    toggle->trigger();
    EXPECT_EQ(picture(), mises);
    toggle->trigger();
    trigger("&Disp. x");  // what was chosen last shows
    EXPECT_FALSE(toggle->isChecked());
    picture();
    EXPECT_DOUBLE_EQ(shown_picture().range()->high.value, 0.4);
}

TEST_F(Window, FramesStayWithinTheResults) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double*) { return Vec3{}; }, AnalysisType::explicit_dynamics);
    model_store().results.resize(5, model_store().mesh.dof_num);
    const std::pair<int, int> frames[] = {{0, 1}, {-3, 1}, {3, 3}, {5, 5}, {9999, 5}};
    for (const auto& [asked, shown] : frames) {
        window->i_anime_Changed(asked);
        EXPECT_EQ(state().frame, shown);
        window->slotsModeNumberChanged(asked);
        EXPECT_EQ(state().frame, shown);
    }
    window->findChild<QSpinBox*>("Mode No.:")->setValue(4);
    EXPECT_EQ(state().frame, 4);
    window->add_anime_Changed(3);
    EXPECT_EQ(state().frame_increment, 3);

    trigger("&Start Animation");
    EXPECT_EQ(state().frame, 1);
    EXPECT_TRUE(state().animation_running);
    for (int k = 0; k < 20; ++k) picture();
    EXPECT_EQ(state().frame, 1) << "a grab has moved the animation on";
    ASSERT_TRUE(QTest::qWaitFor([&] { return !state().animation_running; }));
    EXPECT_EQ(state().frame, 5);

    model_store().results.n_freq.clear();  // no frame at all
    window->i_anime_Changed(2);
    EXPECT_EQ(state().frame, 0);
    EXPECT_FALSE(picture().isNull());
}

TEST_F(Window, RendersGrabsAndClearsPixmaps) {
    ASSERT_TRUE(open(block_text));
    auto pixmap = [&]() -> QSize {
        const auto* shown = window->findChild<PixmapWindow*>();
        return shown ? shown->pixmap().size() : QSize();
    };
    auto render = [&](const QString& answer) {
        answer_next<QInputDialog>([&, answer](QInputDialog* dialog) {
            EXPECT_EQ(dialog->windowTitle(), "Grabber");
            EXPECT_EQ(dialog->labelText(), "Enter pixmap size:");
            EXPECT_EQ(dialog->textValue(),
                      QString("%1 x %2").arg(window->view()->width()).arg(window->view()->height()));
            dialog->setTextValue(answer);
            dialog->accept();
        });
        trigger("&Render into Pixmap...");
        expect_answered();
    };
    render("640x480");
    EXPECT_EQ(pixmap(), QSize(640, 480));
    render("320 x 200");
    EXPECT_EQ(pixmap(), QSize(320, 200));
    trigger("&Clear Pixmap");
    EXPECT_EQ(pixmap(), QSize());
    std::string told;
    // the box comes up while the slot is still in its prompt's call
    answer_next<QInputDialog>([&](QInputDialog* dialog) {
        dialog->setTextValue("640*480");
        close_next_box(told);
        dialog->accept();
    });
    trigger("&Render into Pixmap...");
    expect_answered();
    EXPECT_TRUE(contains(told, "640*480")) << told;
    EXPECT_EQ(pixmap(), QSize());
    QApplication::setActiveWindow(window.get());
    QTest::keyClick(window.get(), Qt::Key_G, Qt::ControlModifier);
    EXPECT_EQ(pixmap(), window->view()->size());
    QApplication::setActiveWindow(window.get());
    QTest::keyClick(window.get(), Qt::Key_L, Qt::ControlModifier);
    EXPECT_EQ(pixmap(), QSize());
}

TEST_F(Window, BoxesComeUpAndExitCloses) {
    const std::string about = told_by([&] { trigger("&About"); });
    EXPECT_TRUE(contains(
        about,
        "The <b>Grabber</b> example demonstrates two approaches for rendering OpenGL into a Qt pixmap."));
    told_by([&] { trigger("About &Qt"); });
    trigger("&Stop Rotate");
    trigger("&Open Graph Window");
    // the program ends after the box has told where the file was looked for
    const std::string missing = told_by([&] { emit window->view()->settings_missing(); });
    EXPECT_TRUE(contains(missing, "setting/setting.txt")) << missing;
    EXPECT_TRUE(contains(missing, QDir::currentPath().toStdString())) << missing;
    trigger("E&xit");
    EXPECT_FALSE(window->isVisible());
}

}  // namespace
