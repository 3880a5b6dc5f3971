// The store as it is shown: what the view widget and the snapshot share.
#pragma once

#include <cstdint>
#include <vector>

#include "view/gl/scene_drawing.h"

namespace kestralum {

class ShownModel {
public:
    view::DisplayState state;
    view::Camera camera;
    view::gl::SceneDrawing drawing;

    // The store holds another model, or the same one renumbered: its fixed nodes and
    // those of its rigid elements are looked up again.
    void model_changed();

    void reset_light();  // to max_length each

    view::SceneTables tables() const;
    view::Scene box() const;

    // Moves the model so that it fills what the texts leave of the view.
    void fit(const view::gl::TextPainter& texts);

    void draw(view::gl::TextPainter& texts) { drawing.draw(tables(), state, camera, texts); }

    // The node under a pixel: marked in the picture and told in a line for the status bar; "" beside the
    // model, which takes the mark away.
    std::string pick(double x, double y);

private:
    std::vector<std::int32_t> fixed_nodes_;  // 0-based
    std::vector<view::RigidHold> rigid_holds_;
};

}  // namespace kestralum
