// The picture drawn into an image of any size, beside the one on the screen.
#pragma once

#include <QImage>
#include <QSize>
#include <QString>
#include <cstdint>
#include <span>

#include "app/window/shown_model.h"

namespace kestralum {

// GLUT's letters belong to an X display and have one size; on other platforms, and where a pixel of the
// screen is more than one of the view, Qt paints the texts.
bool use_glut_text();

struct ImageOptions {
    QSize size;  // pixels, the caption's among them
    // The model is fitted to that size first; else it stands as the camera shows it, with `whole_width` as
    // much of it to the left and right as there.
    bool fit = false, whole_width = false;
    bool white = false;    // behind the model; else grey
    bool caption = false;  // a strip below the scene tells what is shown
    double ratio = 0;      // letters and lines are so many times larger; 0: by the size, beyond 1920 x 1080
};

// Draws with the context that is current; Qt paints the texts. A null image where the card cannot draw that
// size; `error` says why. The camera comes back as it was.
QImage render_image(ShownModel& shown, const ImageOptions& options, QString& error);

// Moves the model so that the frames, from 1, leave an image of these options no more than render_image()
// with `fit` would let the frame shown. Needs a context that is current.
void fit_to_frames(ShownModel& shown, const ImageOptions& options, std::span<const std::int32_t> frames);

// The bytes of a file: "png" or "jpg"; quality 0 to 100, -1: the usual one.
QByteArray coded(const QImage& image, const QByteArray& format, int quality = -1);

// Writes a picture as its ending tells, .png or .jpg: the whole file or none, a former one stays meanwhile.
// Why that was not possible; empty: done.
QString save_image(const QImage& image, const QString& file_name);

}  // namespace kestralum
