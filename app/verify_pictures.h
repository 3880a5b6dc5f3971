// Pictures of verification cases, drawn by the window program beside this one.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "model/progress.h"

namespace kestralum {

struct PictureOrder {
    std::string model_file, analysis;
    std::string options;  // of kestralum, with blanks between them
};

struct DrawnPictures {
    std::vector<std::string> png;     // per order; empty: not drawn
    std::vector<std::string> faults;  // per order: why not, as the window program says; empty: drawn
    std::string why_none;             // why nothing could be drawn; empty: see `png`
};

// Draws on the display that the environment names, else on one in memory, Xvfb. Works in a folder of its own
// in `log_folder` and leaves nothing there. A picture that takes minutes is given up. Incomplete where
// `progress` was cancelled.
DrawnPictures draw_pictures(std::span<const PictureOrder> orders, const std::string& log_folder,
                            Progress& progress);

}  // namespace kestralum
