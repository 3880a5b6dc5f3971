// The sweep and the parameters of a model, each panel by itself.
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QLineSeries>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>

#include "app/sweep_table.h"
#include "app/window/parameter_panel.h"
#include "app/window/sweep_panel.h"
#include "app/window_fixture.h"
#include "input/analysis_info_reader.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Panels : ::testing::Test {
    std::shared_ptr<const Model> read(const std::string& text,
                                      const std::vector<ParameterOverride>& overrides = {}) {
        SilentProgress silent;
        auto model = std::make_shared<Model>(placeholder_model());
        model->model_file_name = folder.write("bar.txt", text);
        EXPECT_TRUE(read_input_file(*model, overrides, silent).ok);
        EXPECT_EQ(read_analysis_info_file(*model, silent).remarks.errors.size(), 0u);
        return model;
    }
    TempFolder folder;
};

struct SweepPanels : Panels {
    std::shared_ptr<const Model> model;
    SweepPanel panel{[this] {
        RunOptions options;
        options.log_folder = folder.file("log");
        Settings settings;
        settings.memory_size = settings.free_hd_size = 1000;
        settings.ordering_type = "LALL";
        settings.c_eigen_shift = 0.5;
        settings.div_memory_size = 1;
        settings.n_threads = 2;
        return SweepPanel::Scene{model, {{"B", "0.05"}}, options, settings};
    }};

    template <typename Widget>
    Widget* find(const char* name) {
        auto* widget = panel.findChild<Widget*>(name);
        EXPECT_TRUE(widget) << name;
        return widget;
    }
    void choose(const std::string& head, const char* parameter, const char* from, const char* to, int count) {
        find<QComboBox>((head + " parameter").c_str())->setCurrentText(parameter);
        find<QComboBox>((head + " kind").c_str())->setCurrentText("Range");
        find<QLineEdit>((head + " from").c_str())->setText(from);
        find<QLineEdit>((head + " to").c_str())->setText(to);
        find<QSpinBox>((head + " count").c_str())->setValue(count);
    }
    void choose(const std::string& head, const char* parameter, const char* list) {
        find<QComboBox>((head + " parameter").c_str())->setCurrentText(parameter);
        find<QComboBox>((head + " kind").c_str())->setCurrentText("List");
        find<QLineEdit>((head + " list").c_str())->setText(list);
    }
    std::string message() { return find<QLabel>("sweep message")->text().toStdString(); }
    void wait_idle() {
        ASSERT_TRUE(QTest::qWaitFor([&] { return !panel.busy(); }, 60000));
    }
    QList<QAbstractSeries*> curves() { return find<QChartView>("sweep plot")->chart()->series(); }
};

}  // namespace

TEST_F(SweepPanels, TableAndCurvesHoldWhatTheRunsGave) {
    EXPECT_FALSE(find<QPushButton>("sweep start")->isEnabled());
    model = read(bar_text);
    panel.refresh();
    panel.resize(640, 760);
    panel.show();
    choose("first", "P", "1000", "3000", 3);
    choose("second", "B", "0.01,0.02");
    find<QPushButton>("sweep start")->click();
    EXPECT_TRUE(panel.busy() && !find<QPushButton>("sweep start")->isEnabled());
    wait_idle();
    EXPECT_EQ(message(), "6 runs are done.");
    auto* table = find<QTableWidget>("sweep table");
    ASSERT_EQ(table->rowCount(), 6);
    EXPECT_TRUE(table->item(5, 0)->text() == "3000" && table->item(5, 1)->text() == "0.02");
    // u = P L / (E B²), a curve for each B
    find<QComboBox>("sweep column")->setCurrentText("largest displacement [m]");
    ASSERT_EQ(curves().size(), 2);
    for (int k = 0; k < 2; ++k) {
        const auto* curve = qobject_cast<QLineSeries*>(curves()[k]);
        const double area = k == 0 ? 1e-4 : 4e-4;
        ASSERT_EQ(curve->count(), 3);
        for (int i = 0; i < 3; ++i) {
            const double u = curve->at(i).x() * 0.2 / (2e11 * area);
            EXPECT_EQ(curve->at(i).x(), 1000.0 * (i + 1));
            EXPECT_NEAR(curve->at(i).y(), u, 1e-6 * u);
        }
    }
    EXPECT_EQ(panel.save_csv(QString::fromStdString(folder.file("rows.csv"))), "");
    EXPECT_EQ(lines_of(read_file(folder.path() / "rows.csv")).size(), 7u);
    EXPECT_TRUE(contains(panel.save_csv("/nowhere/rows.csv").toStdString(), "/nowhere/rows.csv"));
    // values that cannot be swept say so and leave the rows
    choose("first", "P", "1,x");
    find<QPushButton>("sweep start")->click();
    EXPECT_EQ(message(), "P: 'x' is not a number");
    choose("first", "B", "1,2");
    find<QPushButton>("sweep start")->click();
    EXPECT_EQ(message(), "B: the parameter stands twice");
    EXPECT_TRUE(!panel.busy() && panel.rows().size() == 6);
    // one parameter: the override of B holds; a run that fails is a row, and no point of the curve
    find<QComboBox>("second parameter")->setCurrentIndex(0);
    choose("first", "L", "0.1,0,0.3");
    find<QPushButton>("sweep start")->click();
    wait_idle();
    EXPECT_EQ(message(), "1 of 3 runs failed.");
    ASSERT_TRUE(panel.rows().size() == 3 && curves().size() == 1);
    EXPECT_EQ(qobject_cast<QLineSeries*>(curves()[0])->count(), 2);
    EXPECT_NEAR(*panel.rows()[2].quantities[2], 1000 * 0.3 / (2e11 * 0.05 * 0.05), 1e-11);
    EXPECT_TRUE(table->item(1, table->columnCount() - 1)->text().contains(": "));
}

TEST_F(Window, ASweepAndAnAnalysisGoOnSideBySide) {
    ASSERT_TRUE(
        open(replaced(replaced(block_text, "part_info", "parameter F 1e3 %\npart_info"), "x 1000", "x F")));
    auto* panel = window->findChild<SweepPanel*>();
    ASSERT_TRUE(panel);
    window->findChild<QDockWidget*>("Sweep")->show();
    EXPECT_EQ(panel->findChild<QComboBox*>("first parameter")->currentText(), "F");
    panel->findChild<QPushButton*>("sweep start")->click();  // from F to 2 F in 5 values
    run("&Static");
    wait_for([&] { return !panel->busy(); });
    ASSERT_TRUE(shown_run() && shown_run()->report.status == RunStatus::done);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "log/result_model.txt"));
    ASSERT_EQ(panel->rows().size(), 5u);
    for (const SweepRow& row : panel->rows()) EXPECT_EQ(row.error, "");
    // the first value is that of the file: the displacement of the run beside the sweep
    const double u = shown_run()->report.largest_displacement.value;
    EXPECT_EQ(panel->rows()[0].quantities[2], u);
    EXPECT_NEAR(*panel->rows()[4].quantities[2], 2 * u, 1e-9 * u);
}

TEST_F(Window, AParameterOfTheModelShownIsChanged) {
    ASSERT_TRUE(
        open(replaced(replaced(block_text, "part_info", "parameter F 1e3 %\npart_info"), "x 1000", "x F")));
    run("&Static");
    ASSERT_TRUE(shown_run());
    const double u = shown_run()->report.largest_displacement.value;
    window->findChild<QDockWidget*>("Parameters")->show();
    window->findChild<QCheckBox*>("parameter run again")->setChecked(true);
    auto* table = window->findChild<QTableWidget*>("parameter table");
    ASSERT_EQ(table->rowCount(), 1);
    table->item(0, 1)->setText("3e3");
    wait_for([&] { return shown_run() && shown_run()->report.largest_displacement.value > 2 * u; });
    EXPECT_NEAR(shown_run()->report.largest_displacement.value, 3 * u, 1e-9 * u);
    EXPECT_EQ(table->item(0, 2)->text(), "3000");
    wait_for([&] { return table->item(0, 3)->text() == "1e3"; });
    window->findChild<QPushButton*>("parameter reset")->click();
    wait_for([&] { return shown_run() && shown_run()->report.largest_displacement.value < 2 * u; });
    EXPECT_EQ(table->item(0, 1)->text(), "1e3");
}

TEST_F(SweepPanels, StopEndsASweepAndKeepsItsRows) {
    folder.write("bar.ana", "x explicit end_time T output_frequency 1000000 d_time 1e-6 END");
    model = read(replaced(bar_text, "P 1000", "P 1000 T 1e-5"));
    panel.refresh();
    find<QComboBox>("sweep analysis")->setCurrentText("Explicit");
    choose("first", "T", "1e-5,1e3,2e3");
    find<QPushButton>("sweep start")->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return panel.rows().size() == 1; }, 60000));
    QElapsedTimer watch;
    watch.start();
    find<QPushButton>("sweep stop")->click();
    wait_idle();
    EXPECT_LT(watch.elapsed(), 1500) << "half a second on a machine that does nothing else";
    EXPECT_EQ(message(), "Stopped: 1 of 3 runs are done.");
    EXPECT_EQ(find<QTableWidget>("sweep table")->rowCount(), 1);
    find<QPushButton>("sweep start")->click();  // and goes on when the panel is closed
}

TEST_F(Panels, AParameterTakesAnotherExpression) {
    std::vector<ParameterOverride> in_force;
    std::shared_ptr<const Model> model = read(bar_text);
    int calls = 0;
    bool again = false;
    ParameterPanel panel(
        [&] {
            return ParameterPanel::Scene{model, in_force};
        },
        [&](const std::vector<ParameterOverride>& overrides, bool run_again) {
            ++calls;
            again = run_again;
            in_force = overrides;
        });
    panel.resize(480, 260);
    panel.show();
    auto* table = panel.findChild<QTableWidget*>("parameter table");
    const auto text = [&](int row, int column) { return table->item(row, column)->text().toStdString(); };
    ASSERT_EQ(table->rowCount(), 4);
    EXPECT_EQ(text(2, 0) + " " + text(2, 1) + " " + text(2, 2) + text(2, 3), "A B*B 0.0004");
    // wrong ones: the reason beside the field, nothing changes; A stands behind B
    for (const auto& [expression, why] :
         {std::pair("1/0", "not finite"), {"L+nope", "nope"}, {"2*A", "'A'"}, {"", "no expression"}}) {
        table->item(1, 1)->setText(expression);
        EXPECT_TRUE(contains(text(1, 2), why)) << text(1, 2);
    }
    EXPECT_EQ(calls, 0);
    panel.findChild<QCheckBox*>("parameter run again")->setChecked(true);
    table->item(1, 1)->setText("L/4");
    ASSERT_EQ(calls, 1);
    ASSERT_TRUE(in_force.size() == 1 && again);
    EXPECT_EQ(in_force[0].name + "=" + in_force[0].expression, "B=L/4");
    // the main window has read the model with it
    model = read(bar_text, in_force);
    panel.refresh();
    EXPECT_EQ(text(1, 2) + " " + text(2, 2), "0.05 0.0025");
    EXPECT_TRUE(table->item(1, 0)->font().bold() && !table->item(2, 0)->font().bold());
    ASSERT_TRUE(QTest::qWaitFor([&] { return text(1, 3) == "0.02"; }, 10000)) << "the file's own";
    table->item(3, 1)->setText("-7");
    EXPECT_EQ(in_force.size(), 2u);
    in_force.pop_back();  // the model was refused with it
    panel.refresh();
    EXPECT_EQ(text(3, 1), "1000");
    // the file's own expression typed again is no override any more; Reset takes them all
    table->item(1, 1)->setText("0.02");
    EXPECT_TRUE(calls == 3 && in_force.empty());
    in_force = {{"B", "L/4"}};
    panel.findChild<QPushButton*>("parameter reset")->click();
    EXPECT_TRUE(calls == 4 && in_force.empty());
}
