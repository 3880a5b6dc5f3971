// The words that tell what a picture shows.
#pragma once

#include <QStringList>
#include <string>

#include "app/window/shown_model.h"

namespace kestralum {

// The model's file, then the analysis of its result or the file that this was read from; "no model", "no
// result" where there is none: a result of another file never poses as the model's.
QStringList shown_names(const Model& model, const Run* run);

// The line below a saved picture: file, analysis, and frame and factor of the deformation where the picture
// itself does not tell them. Empty without a model. The picture's tables are brought up to date.
std::string caption_text(ShownModel& shown);

}  // namespace kestralum
