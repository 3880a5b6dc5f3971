#include "app/window/caption.h"

#include <QFileInfo>

#include "model/format.h"
#include "view/deformation.h"
#include "view/legend.h"

namespace kestralum {

QStringList shown_names(const Model& model, const Run* run) {
    const auto file = [](const std::string& name) {
        return QFileInfo(QString::fromStdString(name)).fileName();
    };
    QStringList texts;
    if (model.source == ModelSource::start_up)
        texts << "no model";
    else
        texts << (model.source == ModelSource::model_file ? file(model.model_file_name) : "no model file");
    if (!run || run->results.empty())
        texts << "no result";
    else if (!run->origin.file_name.empty())
        texts << file(run->origin.file_name);
    else
        texts << QString::fromStdString(run->origin.analysis);
    return texts;
}

namespace {

// As the legend tells it, without the quantity.
std::string frame_text(const ShownModel& shown) {
    const view::SceneTables tables = shown.tables();
    std::string text =
        view::legend_text(tables.ana_type(), -1, tables.frames(), tables.model.control, shown.state.frame);
    return text.starts_with(", ") ? text.substr(2) : text;
}

}  // namespace

std::string caption_text(ShownModel& shown) {
    shown.drawing.update(shown.tables(), shown.state);
    const Run* run = shown.store.run.get();
    QStringList parts;
    for (const QString& name : shown_names(*shown.store.model, run))
        if (!name.startsWith("no ")) parts << name;
    const auto frame = view::frame_at(shown.tables().frames(), shown.state.frame);
    if (frame && shown.ana_type() == AnalysisType::nonlinear_static)
        parts << QString::fromStdString(formatted("load factor %.6g", frame->n_freq));
    if (frame && !shown.state.shows(view::ViewFlag::text)) {
        parts << QString::fromStdString(frame_text(shown));
        const view::Picture& picture = shown.drawing.picture();
        if (picture.deformed()) parts << QString::fromStdString(view::scale_text(picture.factor()));
    }
    parts.removeAll(QString());
    return parts.join(QString::fromUtf8("  ·  ")).toStdString();
}

}  // namespace kestralum
