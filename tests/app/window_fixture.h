// A window on the screen for each test, with a store of its own and a folder for its files.
#pragma once

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QMessageBox>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/window/main_window.h"
#include "batch/batch_run.h"
#include "model/console.h"
#include "model/model_store.h"
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
    void SetUp() override {
        model_store() = placeholder_model();
        window = std::make_unique<MainWindow>();
        bool started = false;
        QObject::connect(window->view(), &GLWidget::started, [&] { started = true; });
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        QApplication::setActiveWindow(window.get());
        ASSERT_TRUE(QTest::qWaitFor([&] { return started; }));
        guard.callOnTimeout([this] { close_forgotten(); });
        guard.start(1000);
    }
    void TearDown() override { window.reset(); }

    view::DisplayState& state() { return window->view()->state(); }
    const view::Picture& shown_picture() { return window->view()->shown().drawing.picture(); }
    view::Camera& camera() { return window->view()->shown().camera; }
    QImage picture() { return window->view()->grab_picture(); }
    std::string status() { return window->statusBar()->currentMessage().toStdString(); }

    bool open(const std::string& text, const std::string& name = "model.txt") {
        return window->open_model(write(name, text));
    }
    QString write(const std::string& name, const std::string& text) {
        return QString::fromStdString(folder.write(name, text));
    }
    // A result by hand: displacement and stress (node_stress 4) are what `value` says of a node's place.
    void set_results(const std::function<view::Vec3(const double* x)>& value,
                     AnalysisType type = AnalysisType::linear_static) {
        ModelStore& store = model_store();
        store.ana_type = type;
        store.results.resize(2, store.mesh.dof_num);
        for (std::int32_t d = 0; d < store.mesh.dof_num; ++d)
            store.results.mode_vec[d] = store.results.node_stress[4 * store.mesh.dof_num + d] =
                value(&store.mesh.coordinates[d / 3 * 3])[d % 3];
        state().result_ready = true;
        window->view()->shown().drawing.results_changed();
    }
    void show_only(std::initializer_list<view::ViewFlag> flags, view::ViewDirection from) {
        state().flags.fill(false);
        for (const view::ViewFlag flag : flags) state().flags[static_cast<std::size_t>(flag)] = true;
        window->view()->look_from(from);
    }

    QAction* action(const QString& text) {
        QAction* found = nullptr;
        for (QAction* a : window->findChildren<QAction*>())
            if (a->text() == text) found = a;
        EXPECT_NE(found, nullptr) << text.toStdString();
        return found;
    }
    void trigger(const QString& text) {
        if (QAction* found = action(text)) found->trigger();
    }

    // Answers the next modal dialog; the test fails where none comes up.
    template <typename Dialog>
    void answer_next(const std::function<void(Dialog*)>& answer) {
        ++expected_answers;
        wait_for_dialog<Dialog>(answer, 100);
    }
    // Reads and closes the next message box.
    void close_next_box(std::string& text) {
        answer_next<QMessageBox>([&text](QMessageBox* box) {
            text = (box->text() + "\n" + box->informativeText()).toStdString();
            box->accept();
        });
    }
    // What the message box says that comes up meanwhile.
    std::string told_by(const std::function<void()>& what) {
        std::string told;
        close_next_box(told);
        what();
        expect_answered();
        return told;
    }
    void expect_answered() { EXPECT_EQ(answered, expected_answers) << "a dialog did not come up"; }

    TempFolder folder;
    std::unique_ptr<MainWindow> window;
    int answered = 0, expected_answers = 0;

private:
    // A dialog that no test answers would hold all of them for ever.
    void close_forgotten() {
        QWidget* dialog = QApplication::activeModalWidget();
        seconds = dialog && dialog == waiting ? seconds + 1 : 0;
        waiting = dialog;
        if (seconds < 8) return;
        const auto* box = qobject_cast<QMessageBox*>(dialog);
        ADD_FAILURE() << "nobody answered " << dialog->metaObject()->className() << " "
                      << (box ? (box->text() + box->informativeText()).toStdString() : "");
        dialog->close();
    }
    QTimer guard;
    QWidget* waiting = nullptr;
    int seconds = 0;

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
