// Draws a model into files without showing a window.
#pragma once

#include "app/window/window_options.h"
#include "model/progress.h"

namespace kestralum {

// Reads what the options name, runs the analysis they ask for and writes the picture and the film. The exit
// status of the program; `progress` says why it is not 0.
int make_snapshot(const WindowOptions& options, Progress& progress);

}  // namespace kestralum
