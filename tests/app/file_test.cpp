// Opening models, results and displacements: what is shown, asked and told.
#include <QDropEvent>
#include <QFileDialog>
#include <QLineEdit>
#include <QMimeData>
#include <numeric>

#include "app/window_fixture.h"
#include "results/vtu_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::string pull = "apply_force\n  PULL area x 1000  0.4 0.4 -1 1 -1 1  %\n";
const std::string unloaded_text = replaced(block_text, pull, "");

class Files : public Window {
protected:
    // Answers the file dialog of a menu entry; without a name it is closed.
    void choose(const char* entry, const std::string& file, const char* filter = "Text Files (*.txt)") {
        answer_next<QFileDialog>([=](QFileDialog* dialog) {
            EXPECT_EQ(dialog->windowTitle(), "Open file");
            EXPECT_EQ(dialog->nameFilters(), (QStringList{filter, "All Files (*)"}));
            if (file.empty()) return dialog->reject();
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(QString::fromStdString(file));
            QMetaObject::invokeMethod(dialog, "accept");
        });
        run(entry);
        expect_answered();
    }
};

TEST_F(Files, OpensAndUpdatesAModel) {
    const std::string file = folder.write("model.txt", block_text);
    choose("&Open Model File", file);
    EXPECT_EQ(mesh().element_num(), 16);
    EXPECT_TRUE(window->windowTitle().contains("model.txt"));
    EXPECT_FALSE(state().result_ready) << "a new model has no results";

    folder.write("model.txt", replaced(unloaded_text, "4 2 2 0 0 0", "8 2 2 0 0 0"));
    const auto camera_before = camera().shift;
    run("&Update Model");
    EXPECT_EQ(mesh().element_num(), 32);
    EXPECT_EQ(camera().shift, camera_before) << "an update keeps the view";
    EXPECT_TRUE(contains(messages(), "apply_force") && model().forces.size() == 1)
        << "an update names what it keeps and does not ask: " << messages();

    choose("&Open Mov File", "", "Text Files (*.mov)");
}

TEST_F(Files, KeepsTheModelWhenAFileIsDamaged) {
    ASSERT_TRUE(open(block_text));
    const QString title = window->windowTitle();
    const QImage before = picture();
    using Open = void (MainWindow::*)(const QString&);
    const std::tuple<Open, QString, const char*> damaged[] = {
        {&MainWindow::open_model,
         write("damaged.txt", replaced(block_text, "0.4 0.2 0.2 0 0 0  4", "0.4 oops 0.2 0 0 0  4")), "oops"},
        {&MainWindow::open_model, "missing.txt", "missing.txt"},
        {&MainWindow::open_results, write("not_a_result", "ver3.01\n%\nNode\n-5\n"), "-5"},
        {&MainWindow::open_displacements, "nowhere", "nowhere"}};
    for (const auto& [open, name, what] : damaged) {
        const std::string told = told_by([&, open = open, name = name] { (window.get()->*open)(name); });
        EXPECT_TRUE(contains(told, name.toStdString()) && contains(told, what)) << told;
    }
    EXPECT_EQ(window->windowTitle(), title);
    EXPECT_EQ(picture(), before);
}

TEST_F(Files, AsksWhatAnotherModelShallTakeFromTheOneBefore) {
    folder.write("model.ana",
                 "BLOCKS explicit d_time 1e-7 end_time 1e-6 output_frequency 1 C_alfa 0\n"
                 "RIGID_WALL FLOOR plane +z 0 0 0 0  0 0 0 0 0 0  0 0 0 % END\n");
    const QString second = write("second.txt", unloaded_text);
    for (const bool keep : {false, true}) {
        // all that the second one leaves in force is in the first one
        ASSERT_TRUE(open(block_text));
        const std::string told = told_by([&] { open(second); }, {keep ? "Keep" : "Start-up values"});
        for (const char* table : {"apply_force", "control file", "RIGID_WALL"})
            EXPECT_TRUE(contains(told, table)) << told;
        EXPECT_FALSE(contains(told, "material_info")) << told;
        EXPECT_EQ(model().forces.size(), keep ? 1u : 0u);
        EXPECT_EQ(model().control.d_time, keep ? 1e-7 : 0);
        EXPECT_EQ(model().explicit_tables.walls.size(), keep ? 1u : 0u);
        EXPECT_TRUE(contains(model().model_file_name, "second.txt"));
    }
    ASSERT_TRUE(open(second)) << "the same file does not ask";
    EXPECT_EQ(model().forces.size(), 1u);
}

TEST_F(Files, TellsOfFilesNotReadToTheirEnd) {
    const std::string typo = replaced(block_text, "apply_force", "aply_force");
    open(typo);
    EXPECT_TRUE(contains(messages(), "aply_force")) << messages();
    EXPECT_EQ(mesh().element_num(), 16) << "what was read is shown";
    // an analysis with a control file that is wrong would compute something else than its author meant
    folder.write("bar.ana", "BAR explicit d_time oops END\n");
    open(bar_text, "bar.txt");
    EXPECT_TRUE(contains(messages(), "bar.ana: line 1: token 4 'oops'")) << messages();
    const std::string told = told_by([&] { run("&Static"); });
    EXPECT_TRUE(contains(told, "oops") && !state().result_ready) << told;
    folder.write("bar.ana", "BAR explicit d_time 1e-7 END\n");
    run("&Update Model");
    run("&Static");
    EXPECT_TRUE(state().result_ready) << status();
}

// What a run leaves in the window is in its file, and comes back from it.
TEST_F(Files, ReadsBackWhatAnAnalysisWrote) {
    ASSERT_TRUE(open(bar_text, "bar.txt"));
    run("&Static");
    const SharedRun made = shown_run();
    choose("&Open Result File", folder.file("log/result_bar.txt"));
    ASSERT_TRUE(made && shown_run() && shown_run() != made);
    EXPECT_TRUE(state().result_ready);
    EXPECT_TRUE(contains(status(), "1 frame") && !contains(status(), "frames")) << status();
    // the file does not hold all that an analysis needs
    const QImage shown = picture();
    const std::string told = told_by([&] { run("&Static"); });
    EXPECT_TRUE(contains(told, "material")) << told;
    EXPECT_EQ(picture(), shown);
    run("&Update Model");
    EXPECT_FALSE(model().materials.empty());
    EXPECT_FALSE(state().result_ready);
}

// A history in pieces, opened from its list and, by drop, a frame of it.
TEST_F(Files, ReadsBackAHistoryInPieces) {
    ASSERT_TRUE(open("step_num 3 %\n" + bar_text, "bar.txt"));
    run("&Nonlinear Static");
    const SharedRun made = shown_run();
    ASSERT_TRUE(made && made->mode_num() == 3);
    std::vector<std::int32_t> node(made->mesh.node_num());
    std::iota(node.begin(), node.end(), 1);
    VtuPieceFrames files({model(), *made, node}, 0);
    Collected said;
    for (const auto& frame : made->results) {
        HeldFile file;
        ASSERT_EQ(files.hold(*frame, said, file), "");
        ASSERT_EQ(file.take_name(), "");
        ASSERT_EQ(files.write_lists(1, said), "");
    }
    choose("&Open Result File", folder.file("log/bar.pvd"));
    ASSERT_TRUE(shown_run() != made && shown().mode_num() == 3) << status();
    EXPECT_EQ(shown().ana_type(), AnalysisType::nonlinear_static);
    for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(shown_run()->results[k]->n_freq, made->results[k]->n_freq);
        EXPECT_EQ(shown_run()->results[k]->mode_vec, made->results[k]->mode_vec);
    }
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(folder.file("log/bar_000002.pvtu")))});
    QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &enter);
    QDropEvent drop(QPointF(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &drop);
    wait_for([&] { return shown().mode_num() == 1; });
    wait_idle();
    EXPECT_EQ(shown_run()->results[0]->n_freq, made->results[1]->n_freq);
}

}  // namespace
