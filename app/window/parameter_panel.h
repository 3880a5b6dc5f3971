// The parameters of the model shown, with another value at hand: what is typed here acts as --set does.
#pragma once

#include <QWidget>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/window/worker.h"
#include "input/file_parameters.h"
#include "input/model_reader.h"
#include "model/model.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QTableWidget;

namespace kestralum {

class ParameterPanel : public QWidget {
    Q_OBJECT

public:
    // The model shown and the overrides that it was read with.
    struct Scene {
        std::shared_ptr<const Model> model;
        std::vector<ParameterOverride> overrides;
    };
    // All overrides that are to be in force now; run_again: and the last analysis once more.
    using Changed = std::function<void(const std::vector<ParameterOverride>& overrides, bool run_again)>;

    ParameterPanel(std::function<Scene()> scene, Changed changed, QWidget* parent = nullptr);
    ~ParameterPanel() override;

public slots:
    // Another model stands there, or the one before still does since a change was refused.
    void refresh();
    // The file's expressions again.
    void reset();

private:
    void show_rows();
    void show_row(int row);
    void take(int row, const QString& text);
    void show_error(int row, const QString& error);
    void change(std::vector<ParameterOverride> overrides);
    void compare_with_file();
    QString file_expression(const std::string& name) const;  // null: not known, or not in the file

    const std::function<Scene()> scene_;
    const Changed changed_;
    Scene shown_;
    std::vector<Parameter> rows_;              // of the table: the first of each name
    std::map<std::string, std::string> file_;  // the file's expressions, where one is overridden
    QTableWidget* table_;
    QLabel* message_;
    QCheckBox* run_again_;
    QPushButton* reset_;
    bool filling_ = false;            // the table is written by the panel
    bool asked_ = false;              // for a change whose outcome is not shown yet
    std::unique_ptr<Worker> worker_;  // reads the file; the last member, see SweepPanel
};

}  // namespace kestralum
