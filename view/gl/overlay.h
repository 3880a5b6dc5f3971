// What lies flat over the picture: legend, contour bar, labels, mesh counts. Drawn last, always readable.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "view/gl/text.h"
#include "view/legend.h"
#include "view/picture.h"
#include "view/symbols.h"

namespace kestralum::view::gl {

struct OverlayTexts {
    std::string legend, scale;       // at the foot
    std::vector<std::string> lines;  // top left corner: mesh counts, pick
    std::vector<Label> labels;       // beside places of the model that are in sight
    std::vector<Label> dim_labels;   // beside places that the model hides
    ContourBar bar;                  // none without colours
    bool triad = false;              // lower left: how the model is turned
};

// Labels cover neither each other nor the other texts; one that finds no room nearby is left out.
void draw_overlay(const OverlayTexts& texts, const Camera& camera, const Scene& scene, TextPainter& painter);

// The room that all but the labels take: at whole sides, and boxes. The triad takes none.
struct OverlayRoom {
    Margins margins;               // of the contour bar and the legend
    std::vector<PixelBox> boxes;   // of the lines in the corner
    std::vector<PixelBox> strips;  // what the margins are for: contour bar, legend
};
OverlayRoom overlay_room(const OverlayTexts& texts, const Camera& camera, const TextPainter& painter);

// Whether a pixel lies on the bar's text of the largest value (true) or of the smallest.
std::optional<bool> bar_mark_at(const ContourBar& bar, const Camera& camera, const TextPainter& painter,
                                double x, double y);

}  // namespace kestralum::view::gl
