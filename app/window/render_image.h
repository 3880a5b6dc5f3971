// The picture drawn into an image of any size, beside the one on the screen.
#pragma once

#include <QImage>
#include <QSize>
#include <QString>

#include "app/window/shown_model.h"

namespace kestralum {

// GLUT's letters belong to an X display; on other platforms Qt paints the texts.
bool use_glut_text();

// Draws with the context that is current. A null image where the card cannot draw that size; `error`
// says why. With `fit` the model is fitted to that size first. The camera's own size comes back.
QImage render_image(ShownModel& shown, const QSize& size, bool fit, QString& error);

}  // namespace kestralum
