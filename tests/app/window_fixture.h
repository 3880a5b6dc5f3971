// A window on the screen for each test, with a folder for its files.
#pragma once

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/window/main_window.h"
#include "batch/batch_run.h"
#include "support/temp_folder.h"

namespace kestralum::testing {

// A block of 4 × 2 × 2 elements, 0.4 × 0.2 × 0.2 m, clamped at x = 0, pulled at x = 0.4, with a rigid
// element, for everything that can be shown.
inline const std::string block_text = R"(
material_info
  STEEL 7800 2e11 0.3
%
part_info
  BLOCK orange STEEL RECT  0.4 0.2 0.2 0 0 0  4 2 2 0 0 0  0 0 0  0 0 0  %
boundary_condition
  CLAMP plane x  0 0 -1 1 -1 1  %
apply_force
  PULL area x 1000  0.4 0.4 -1 1 -1 1  %
rigid_element
  HEAD area  0.5 0.1 0.1  0.4 0.4 0 0.2 0 0.2  %
END
)";

class Window : public ::testing::Test {
protected:
    void SetUp() override { show_window(true); }
    void TearDown() override { window.reset(); }
    void show_window(bool quiet) {
        window = std::make_unique<MainWindow>(folder.file("log"), quiet);
        QSignalSpy started(window->view(), &GLWidget::started);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        QApplication::setActiveWindow(window.get());
        ASSERT_TRUE(started.count() || started.wait());
    }

    view::DisplayState& state() { return window->view()->state(); }
    ShownModel& shown() { return window->view()->shown(); }
    const view::Picture& shown_picture() { return shown().drawing.picture(); }
    using SharedRun = std::shared_ptr<const kestralum::Run>;  // a test has a Run() of its own
    SharedRun shown_run() { return window->store().run; }
    const Model& model() { return *window->store().model; }
    const Mesh& mesh() { return shown().mesh(); }
    view::Camera& camera() { return shown().camera; }
    QImage picture() { return window->view()->grab_picture(); }
    std::string status() { return window->findChild<QLabel*>("said")->text().toStdString(); }

    std::string messages() { return window->messages().text().toStdString(); }

    void wait_for(const std::function<bool()>& what) { ASSERT_TRUE(QTest::qWaitFor(what, 60000)); }
    void wait_idle() {
        wait_for([&] { return !window->worker().busy(); });
    }
    // True where another model has come into the store.
    bool open(const QString& file) {
        const Model* former = &model();
        window->open_model(file);
        wait_idle();
        return &model() != former;
    }
    bool open(const std::string& text, const std::string& name = "model.txt") {
        return open(write(name, text));
    }
    void run(const QString& entry) {
        trigger(entry);
        wait_idle();
    }
    QString write(const std::string& name, const std::string& text) {
        return QString::fromStdString(folder.write(name, text));
    }
    // A run by hand: displacement and stress (node_stress 4) of frame 1 are what `value` says of a node's
    // place; the frames that follow are zero.
    void set_results(const std::function<view::Vec3(const double* x)>& value,
                     AnalysisType type = AnalysisType::linear_static, int frames = 2) {
        auto made = std::make_shared<kestralum::Run>();
        made->ana_type = type;
        made->mesh = model().mesh;
        made->force_node = resolve_force_points(made->mesh, model().forces);
        const std::int32_t dof_num = made->mesh.dof_num();
        auto first = std::make_shared<Frame>(dof_num);
        for (std::int32_t d = 0; d < dof_num; ++d)
            first->mode_vec[d] = first->node_stress[4 * dof_num + d] = value(made->mesh.node(d / 3))[d % 3];
        made->results.push_back(first);
        while (made->mode_num() < frames) made->results.push_back(std::make_shared<Frame>(dof_num));
        shown().show(window->store().model, made);
        state().frame = 1;
    }
    void show_only(std::initializer_list<view::ViewFlag> flags, view::ViewDirection from) {
        state().flags.fill(false);
        for (const view::ViewFlag flag : flags) state().flags[static_cast<std::size_t>(flag)] = true;
        window->view()->look_from(from);
    }

    QAction* action(const QString& text) {
        for (QAction* a : window->findChildren<QAction*>())
            if (a->text() == text) return a;
        ADD_FAILURE() << "no entry " << text.toStdString();
        return window->findChild<QAction*>();
    }
    void trigger(const QString& text) { action(text)->trigger(); }

    // Answers the next modal dialog; the test fails where none comes up.
    template <typename Dialog>
    void answer_next(const std::function<void(Dialog*)>& answer) {
        ++expected_answers;
        wait_for_dialog<Dialog>(answer, 600);
    }
    // Answers the next message boxes in turn, each with the button of that text, or "" to close it; what they
    // say is added to `told`.
    void answer_boxes(std::string& told, const QStringList& buttons) {
        answer_next<QMessageBox>([this, &told, buttons](QMessageBox* box) {
            told += (box->text() + "\n" + box->informativeText() + "\n").toStdString();
            if (buttons.size() > 1) answer_boxes(told, buttons.mid(1));
            for (QAbstractButton* b : box->buttons())
                if (b->text() == buttons[0]) return b->click();
            EXPECT_EQ(buttons[0], "") << "not in: " << told;
            box->accept();
        });
    }
    // What the boxes say that come up meanwhile and while the job goes on that begins then.
    std::string told_by(const std::function<void()>& what, const QStringList& buttons = {""}) {
        std::string told;
        answer_boxes(told, buttons);
        what();
        wait_idle();
        expect_answered();
        return told;
    }
    void expect_answered() { EXPECT_EQ(answered, expected_answers) << "a dialog did not come up"; }

    TempFolder folder;
    std::unique_ptr<MainWindow> window;
    int answered = 0, expected_answers = 0;

private:
    template <typename Dialog>
    void wait_for_dialog(const std::function<void(Dialog*)>& answer, int tries) {
        QTimer::singleShot(50, window.get(), [this, answer, tries] {
            auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
            if (dialog) {
                ++answered;
                answer(dialog);
            } else if (tries > 0) {
                wait_for_dialog<Dialog>(answer, tries - 1);
            }
        });
    }
};

}  // namespace kestralum::testing
