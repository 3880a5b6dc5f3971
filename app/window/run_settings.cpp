#include "app/window/run_settings.h"

#include "model/load_cases.h"

namespace kestralum {

namespace {

QAction* add_choice(QMenu* menu, QActionGroup* group, const QString& text, const QVariant& data,
                    const QString& tip) {
    QAction* action = menu->addAction(text);
    action->setCheckable(true);
    action->setData(data);
    action->setStatusTip(tip);
    group->addAction(action);
    return action;
}

}  // namespace

RunSettings::RunSettings(QMenu* menu, QObject* parent)
    : QObject(parent), forms_(new QActionGroup(this)), cases_(new QActionGroup(this)) {
    QMenu* forms = menu->addMenu("&Hexahedra");
    add_choice(forms, forms_, "&Model's", -1, "The form that the model file names")->setChecked(true);
    const std::pair<const char*, const char*> words[] = {
        {"&Full", "The plain element: stiff in bending"},
        {"&Enhanced", "Bends with few elements through the thickness, and flows"},
        {"Mean &Dilatation", "For plastic flow; stiff in bending"}};
    for (int k = 0; k < 3; ++k) add_choice(forms, forms_, words[k].first, k, words[k].second);
    case_menu_ = menu->addMenu("&Load Case");
    prestress_ = menu->addAction("&Prestress");
    prestress_->setCheckable(true);
    prestress_->setStatusTip("Eigen: modes of the body under the stresses of its loads");
    offer_cases(Model());
}

void RunSettings::offer_cases(const Model& model) {
    const QAction* former = cases_->checkedAction();
    const QString chosen = former ? former->data().toString() : QString();
    case_menu_->clear();  // deletes the entries, which leave their group
    add_choice(case_menu_, cases_, "&All Cases", QString(),
               "A static run has a frame of each; the others take all together")
        ->setChecked(true);
    const auto add = [&](const std::string& name, const char* tip) {
        const QString text = QString::fromStdString(name);
        add_choice(case_menu_, cases_, text, text, tip)->setChecked(text == chosen);
    };
    case_menu_->addSeparator();
    const std::vector<std::string> names = case_names(model);
    for (const std::string& name : names) add(name, "This load case alone acts");
    case_menu_->addSeparator();
    for (const LoadCombination& combination : model.combinations)
        add(combination.name, "This sum alone acts");
    const bool choice = names.size() + model.combinations.size() > 1;
    case_menu_->setEnabled(choice);
    if (!choice) cases_->actions().front()->setChecked(true);
}

void RunSettings::put_into(RunOptions& options) const {
    if (const int form = forms_->checkedAction()->data().toInt(); form >= 0)
        options.hexahedra = static_cast<HexahedronForm>(form);
    options.load_case = cases_->checkedAction()->data().toString().toStdString();
    options.prestress = prestress_->isChecked();
}

QString RunSettings::text(AnalysisType type) const {
    RunOptions options;
    put_into(options);
    QStringList parts;
    if (!options.load_case.empty()) parts << "load case " + QString::fromStdString(options.load_case);
    if (options.hexahedra) parts << QString(word_of(*options.hexahedra)) + " hexahedra";
    if (options.prestress && type == AnalysisType::eigen) parts << "prestress";
    return parts.join(", ");
}

}  // namespace kestralum
