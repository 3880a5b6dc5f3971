// Views that the user has given a name, kept between starts for each model file.
#pragma once

#include <QList>
#include <QString>

#include "view/camera.h"

namespace kestralum {

struct SavedView {
    QString name;
    view::Vec3 shift{};  // m
    view::Matrix turn = view::identity();
    bool orthographic = false;
};

// In the order in which they were saved; a record that is none is passed over.
QList<SavedView> saved_views(const QString& model_file);
// In place of one of that name.
void keep_view(const QString& model_file, const SavedView& view);
void remove_view(const QString& model_file, const QString& name);

}  // namespace kestralum
