// What DisplayState::highlight points out: faces with a veil and an outline, nodes and places with a mark.
#pragma once

#include "view/gl/buffers.h"
#include "view/picture.h"

namespace kestralum::view::gl {

class HighlightDrawing {
public:
    // Sends what has changed; it moves with the mesh.
    void update(const Picture& picture, const SceneTables& tables, const DisplayState& state);

    // In coordinates from the middle of the box, lighting off. Lines and marks are drawn fainter where the
    // model hides them.
    void draw_faces() const;
    void draw_lines(double pixel_ratio) const;
    void draw_marks(double pixel_ratio) const;
    std::array<Buffer*, 4> buffers() { return {&places_, &triangles_, &outline_, &marks_}; }
    void forget() { sent_of_ = {}; }  // what lies on the card

private:
    void find(const Picture& picture, const SceneTables& tables);
    void send_places(const Picture& picture, const SceneTables& tables, int phase);

    struct Key {
        std::uint64_t mesh = 0, faces = 0, places = 0;
        double swing = 0;
        bool operator==(const Key&) const = default;
    } sent_of_;
    Highlight highlight_;
    std::vector<std::int32_t> nodes_;   // of the faces, ascending, 0-based
    std::vector<std::int32_t> marked_;  // nodes, 0-based
    Buffer places_, triangles_, outline_, marks_;
};

}  // namespace kestralum::view::gl
