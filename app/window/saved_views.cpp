#include "app/window/saved_views.h"

#include <QCryptographicHash>
#include <QFileInfo>
#include <QSettings>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <optional>

#include "app/window/dialogs.h"

namespace kestralum {

namespace {

constexpr char separator = '\t';

QString key_of(const QString& model_file) {
    const QByteArray path = QFileInfo(model_file).absoluteFilePath().toUtf8();
    return "views/" + QCryptographicHash::hash(path, QCryptographicHash::Sha1).toHex();
}

bool is_rotation(const view::Matrix& m) {
    const view::Vec3 u{m[0], m[1], m[2]}, v{m[4], m[5], m[6]}, w{m[8], m[9], m[10]};
    constexpr double near = 1e-6;
    return std::abs(view::norm(u) - 1) < near && std::abs(view::norm(v) - 1) < near &&
           view::norm(view::minus(view::cross(u, v), w)) < near && m[3] == 0 && m[7] == 0 && m[11] == 0 &&
           m[12] == 0 && m[13] == 0 && m[14] == 0 && m[15] == 1;
}

QString written(const SavedView& view) {
    QStringList fields{view.name, view.orthographic ? "1" : "0"};
    for (const double value : view.shift) fields << QString::number(value, 'g', 17);
    for (const double value : view.turn) fields << QString::number(value, 'g', 17);
    return fields.join(separator);
}

std::optional<SavedView> read(const QString& text) {
    const QStringList fields = text.split(separator);
    SavedView view;
    if (fields.size() != 2 + std::ssize(view.shift) + std::ssize(view.turn)) return std::nullopt;
    view.name = fields[0];
    view.orthographic = fields[1] == "1";
    bool good = !view.name.isEmpty();
    for (qsizetype k = 2; k < fields.size(); ++k) {
        bool number = false;
        const double value = fields[k].toDouble(&number);
        good = good && number && std::isfinite(value);
        (k < 5 ? view.shift[k - 2] : view.turn[k - 5]) = value;
    }
    return good && is_rotation(view.turn) ? std::optional(view) : std::nullopt;
}

void write(const QString& model_file, const QList<SavedView>& views) {
    QStringList texts;
    for (const SavedView& view : views) texts << written(view);
    QSettings settings = kept_settings();
    if (texts.isEmpty())
        settings.remove(key_of(model_file));
    else
        settings.setValue(key_of(model_file), texts);
}

}  // namespace

QList<SavedView> saved_views(const QString& model_file) {
    QList<SavedView> out;
    for (const QString& text : kept_settings().value(key_of(model_file)).toStringList())
        if (const auto view = read(text)) out << *view;
    return out;
}

void keep_view(const QString& model_file, const SavedView& view) {
    QList<SavedView> views = saved_views(model_file);
    const auto same = std::ranges::find(views, view.name, &SavedView::name);
    if (same != views.end())
        *same = view;
    else
        views << view;
    write(model_file, views);
}

void remove_view(const QString& model_file, const QString& name) {
    QList<SavedView> views = saved_views(model_file);
    views.removeIf([&](const SavedView& view) { return view.name == name; });
    write(model_file, views);
}

}  // namespace kestralum
