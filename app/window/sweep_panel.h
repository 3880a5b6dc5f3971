// A sweep over one or two parameters of the model shown: what is swept, the table of its rows, a plot of one
// column.
#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/sweep.h"
#include "app/window/worker.h"

class QChart;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QTableWidget;
class QTimer;

namespace kestralum {

class AxisEditor;

class SweepPanel : public QWidget {
    Q_OBJECT

public:
    // What a sweep starts from.
    struct Scene {
        std::shared_ptr<const Model> model;
        std::vector<ParameterOverride> overrides;  // in force; those of swept parameters are left out
        RunOptions options;
        Settings settings;
    };

    explicit SweepPanel(std::function<Scene()> scene, QWidget* parent = nullptr);
    ~SweepPanel() override;  // ends a sweep under way

    bool busy() const { return worker_->busy(); }
    const std::vector<SweepRow>& rows() const { return rows_; }
    // Why the rows cannot be written, empty if they are.
    QString save_csv(const QString& file_name) const;

public slots:
    // Another model may be there: its parameters are offered. The rows of the last sweep stay.
    void refresh();
    void start();
    void stop();

private:
    void make_choice();
    void make_table();
    QWidget* make_plot();
    void say(const QString& text, bool wrong = false);
    void begin(SweepPlan plan);
    void add_row(const SweepRow& row);
    void end(const SweepOutcome& outcome, const Heard& heard);
    void show_buttons();
    void offer_columns();
    void plot();
    void ask_for_csv();

    const std::function<Scene()> scene_;
    QComboBox *analysis_, *column_;
    AxisEditor *first_, *second_;
    QPushButton *start_, *stop_, *save_;
    QProgressBar* bar_;
    QLabel* message_;
    QTableWidget* table_;
    QChart* chart_;
    QTimer* replot_;
    std::shared_ptr<const SweepPlan> plan_;  // of the rows
    std::vector<SweepRow> rows_;
    std::vector<std::size_t> columns_;  // those that are offered for the plot
    std::unique_ptr<Worker> worker_;    // the last member: it ends before what its job calls
};

}  // namespace kestralum
