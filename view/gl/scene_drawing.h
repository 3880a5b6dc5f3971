// Draws the scene with the fixed-function pipeline of OpenGL.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "view/gl/condition_drawing.h"
#include "view/gl/highlight_drawing.h"
#include "view/gl/mesh_drawing.h"
#include "view/gl/overlay.h"
#include "view/gl/result_drawing.h"
#include "view/part_labels.h"
#include "view/picking.h"
#include "view/selection.h"

namespace kestralum::view::gl {

// The bar shown; without colours where there is none.
ContourBar shown_bar(const Picture& picture, const DisplayState& state, AnalysisType ana_type);

// All calls but the *_changed ones and picture() need a current context, always the same one.
class SceneDrawing {
public:
    void mesh_changed() { picture_.mesh_changed(); }
    void results_changed() { picture_.results_changed(); }
    const Picture& picture() const { return picture_; }

    // Clears the framebuffer in force and draws. Sets every piece of state it relies on.
    void draw(const SceneTables& tables, const DisplayState& state, const Camera& camera,
              TextPainter& painter);

    // What is behind the model from the next picture on.
    // A line above all others in the corner; empty: none.
    void set_title(const std::string& title) { title_ = title; }
    void set_background(const Color& color) { background_ = color; }

    // The node that was picked: marked and named in the picture until the mesh changes or none is set.
    void set_pick(const std::optional<Pick>& pick) { pick_ = pick; }
    std::int32_t picked_node() const { return pick_ ? pick_->node : 0; }  // from 1; 0 none

    // The faces that are selected, marked and told of in the picture until other ones are set.
    void set_selection(const FaceSelection& selection, const Mesh& mesh) {
        mesh_.set_marked(selection.triangles(mesh), selection.all().faces);
        selection_text_ = selection.text(mesh);
    }

    double own_factor(const SceneTables& tables, const DisplayState& state, const Frame& frame) {
        return picture_.own_factor(tables, state, frame);
    }

    // Brings picture() up to date without drawing; needs no context.
    void update(const SceneTables& tables, const DisplayState& state) { picture_.update(tables, state); }

    // The room that texts and contour bar take of the view, for the picture that is up to date.
    OverlayRoom room(const SceneTables& tables, const DisplayState& state, const Camera& camera,
                     const TextPainter& painter) const {
        return overlay_room(texts(tables, state), camera, painter);
    }

    // Whether a pixel lies on the contour bar's text of the largest value (true) or of the smallest.
    std::optional<bool> mark_at(const SceneTables& tables, const DisplayState& state, const Camera& camera,
                                const TextPainter& painter, double x, double y) const {
        return bar_mark_at(shown_bar(picture_, state, tables.ana_type()), camera, painter, x, y);
    }

    // Bytes of geometry sent to the card so far: a repaint that changes nothing adds none.
    std::int64_t bytes_sent();

    // Frees what lies on the card, or forgets it where its context has gone.
    void release(bool context_alive);

private:
    std::vector<Buffer*> buffers();
    void set_state(const DisplayState& state, const Camera& camera, const Scene& scene) const;
    void update_symbols(const SceneTables& tables, const DisplayState& state);
    void update_cones(const SceneTables& tables, const DisplayState& state);
    void update_loads(const SceneTables& tables, const DisplayState& state);
    void update_walls(const SceneTables& tables, const DisplayState& state);
    void update_contacts(const SceneTables& tables, const DisplayState& state);
    void update_rigid(const SceneTables& tables, const DisplayState& state);
    void draw_mesh(const SceneTables& tables, const DisplayState& state, const Camera& camera) const;
    void draw_faces(const SceneTables& tables, const DisplayState& state) const;
    void draw_selection() const;
    // `pixels` an edge of the mesh is long
    void draw_symbols(const DisplayState& state, double pixels, double pixel_ratio) const;
    void draw_hidden_lines(const DisplayState& state, double pixel_ratio) const;
    OverlayTexts texts(const SceneTables& tables, const DisplayState& state) const;
    void add_labels(OverlayTexts& texts, const SceneTables& tables, const DisplayState& state,
                    const Camera& camera) const;
    void add_part_labels(OverlayTexts& texts, const SceneTables& tables, const DisplayState& state,
                         const Camera& camera) const;
    Vec3 drawn_at(std::int32_t node, const SceneTables& tables, const DisplayState& state) const;
    Vec3 middle_of(const MeshSet& set, const SceneTables& tables, const DisplayState& state) const;
    std::optional<Vec3> picked_place(const SceneTables& tables, const DisplayState& state) const;

    std::string title_;
    Color background_{0.9f, 0.9f, 0.9f, 1};
    Picture picture_;
    MeshDrawing mesh_;
    HighlightDrawing highlight_;
    ResultDrawing results_;
    std::optional<Pick> pick_;
    std::vector<std::string> selection_text_;

    // What the symbols were made from: the mesh with its visible parts; the places that follow the deformed
    // shape, and what acts there; the time.
    struct MeshKey {
        std::uint64_t mesh = 0, faces = 0;
        bool operator==(const MeshKey&) const = default;
    } symbols_of_;
    struct ConesKey {
        std::uint64_t mesh = 0;
        std::vector<ShownSection> sections;
        bool operator==(const ConesKey&) const = default;
    } cones_of_;
    struct PlacesKey {
        std::uint64_t mesh = 0, places = 0;
        std::string frame_name;
        double time = 0;
        bool operator==(const PlacesKey&) const = default;
    } forces_of_, supports_of_, walls_of_, contacts_of_;
    PlacesKey places_key(const SceneTables& tables) const;
    struct RigidKey {
        std::uint64_t mesh = 0, shape = 0;
        double swing = 0;
        bool operator==(const RigidKey&) const = default;
    } rigid_of_;
    Buffer axes_, part_axes_, features_, rigid_, rigid_members_, rigid_heads_, dimension_lines_, cones_,
        arrow_shafts_, arrow_heads_, wall_lines_, contact_lines_;
    ConditionDrawing loads_, supports_;  // of load_info; with options, and ties
    std::vector<PartLabel> part_labels_;
    std::vector<Label> rigid_labels_, dimension_labels_, force_labels_, wall_labels_, contact_labels_;
};

// The places that the picture extends to: the mesh at both ends of a mode's swing and its arrows.
std::vector<double> extent_points(const Picture& picture, const SceneTables& tables,
                                  const DisplayState& state);

}  // namespace kestralum::view::gl
