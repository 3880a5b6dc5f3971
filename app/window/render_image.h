// The picture drawn into an image of any size, beside the one on the screen.
#pragma once

#include <QImage>
#include <QSize>
#include <QString>

#include "app/window/shown_model.h"

namespace kestralum {

// GLUT's letters belong to an X display and have one size; on other platforms, and where a pixel of the
// screen is more than one of the view, Qt paints the texts.
bool use_glut_text();

// Draws with the context that is current. A null image where the card cannot draw that size; `error`
// says why. Texts and lines are larger in images beyond 1920 x 1080. With `fit` the model is fitted to that
// size first. The camera's own size comes back.
QImage render_image(ShownModel& shown, const QSize& size, bool fit, QString& error);

}  // namespace kestralum
