// What the Analysis menu sets beside the analyses: the form of hexahedra, the load case, prestress.
#pragma once

#include <QActionGroup>
#include <QMenu>
#include <QString>

#include "model/model.h"
#include "model/run.h"

namespace kestralum {

class RunSettings : public QObject {
    Q_OBJECT

public:
    // Appends the entries to a menu.
    RunSettings(QMenu* menu, QObject* parent);

    // The load cases and combinations of a model. The case that was chosen stays where the model has it; else
    // all act.
    void offer_cases(const Model& model);

    void put_into(RunOptions& options) const;
    // What differs from the model's own in a run of this type, for the user: "load case WIND, enhanced
    // hexahedra"; empty where nothing does.
    QString text(AnalysisType type) const;

private:
    QActionGroup *forms_, *cases_;
    QMenu* case_menu_;
    QAction* prestress_;
};

}  // namespace kestralum
