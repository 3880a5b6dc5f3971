// What lies flat over the picture: legend, contour bar, labels, mesh counts. Drawn last, always readable.
#pragma once

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
    std::vector<Label> labels;       // beside places of the model
    ContourBar bar;                  // none without colours
};

void draw_overlay(const OverlayTexts& texts, const Camera& camera, const Scene& scene, TextPainter& painter);

// Width of the panel of a contour bar with its distance from the edge.
double bar_width(const ContourBar& bar, const Camera& camera, const TextPainter& painter);

}  // namespace kestralum::view::gl
