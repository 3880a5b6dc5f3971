// The store as it is shown: what the view widget and the snapshot share.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model_store.h"
#include "view/gl/scene_drawing.h"

namespace kestralum {

enum class Compare { off, side_by_side, difference };

class ShownModel {
public:
    ModelStore store;
    view::DisplayState state;
    view::Camera camera;
    view::gl::SceneDrawing drawing;

    // Puts a model and its run (null: none) into the store. The run's mesh and frames are drawn, without one
    // the model's mesh.
    void show(std::shared_ptr<const Model> model, std::shared_ptr<const Run> run);

    // The mesh that is drawn, and the frames that there are of it.
    const Mesh& mesh() const { return store.run ? store.run->mesh : store.model->mesh; }
    std::int32_t mode_num() const { return store.run ? store.run->mode_num() : 0; }
    AnalysisType ana_type() const { return store.run ? store.run->ana_type : AnalysisType::eigen; }

    // Grows when the model, its results or the selection are others.
    std::uint64_t revision() const { return revision_; }
    // The run has further frames.
    void results_changed() {
        drawing.results_changed();
        ++revision_;
    }

    void reset_light();  // to max_length each

    view::SceneTables tables() const;
    view::Scene box() const;

    // Moves the model so that its visible parts fill what the texts leave of the view; of a mode at both ends
    // of its swing.
    void fit(const view::gl::TextPainter& texts);
    // What is drawn reaches out of the view or under the texts, at an end of its swing.
    bool leaves_view(const view::gl::TextPainter& texts);

    void draw(view::gl::TextPainter& texts);

    // Keeps the result that is shown, to be compared with others: beside them, with the same camera, colours
    // and deformation, or as what others differ from it by.
    void hold_result();
    bool holds_result() const { return held_.run != nullptr; }
    const std::string& held_title() const { return held_title_; }
    Compare comparison() const { return compare_; }
    // Why it cannot be compared so, in one line; empty: it is.
    [[nodiscard]] std::string compare(Compare how);
    // The same result and way as another's.
    void compare_like(const ShownModel& other);
    // Width and height of each view in a window of that size.
    int view_width(int width) const { return compare_ == Compare::side_by_side ? width / 2 : width; }
    void set_background(const view::Color& color);
    void release_drawings(bool context_alive);

    // The node under a pixel: marked in the picture and named in a line for the status bar; "" beside the
    // model, which takes the mark away. The faces around the pixel are selected: in place of those that are,
    // or with `more` beside them. A pixel beside the faces selects none, with `more` it changes nothing.
    std::string pick(double x, double y, bool more = false);
    // The same with the held result in its own view: named and marked there, nothing is selected.
    std::string pick_held(double x, double y);

    // The nodes that were picked last (0-based), the latest behind; at most three.
    const std::vector<std::int32_t>& recent_picks() const { return recent_picks_; }

    // Moves the place of the largest or smallest value of the colours into the middle of the view and picks
    // its node; the line for the status bar. Where all frames count, `frame` is set to the one that has it.
    std::string go_to_extreme(bool largest);
    // The same with a node, 1-based; "" for one that the mesh does not have.
    std::string go_to_node(std::int32_t node);

    const view::FaceSelection& selection() const { return selection_; }
    void clear_selection();
    std::function<void()> on_selection;  // called when it has changed; may be empty
    // The records of set_info for what is selected; two that differ never have a name in common.
    std::string selection_records();

private:
    std::optional<view::Pick> pick_in(const view::Picture& picture, const view::SceneTables& tables,
                                      const view::DisplayState& display, double x, double y) const;
    static std::string pick_line(const view::Pick& pick, const view::Picture& picture,
                                 const view::SceneTables& tables, const view::DisplayState& display);
    void select(const std::optional<view::Pick>& pick, bool more);
    void selection_changed();

    view::PartLooks looks_for(const Model& model) const;

    std::uint64_t revision_ = 0;
    std::vector<std::int32_t> force_node_;   // per force: its node of mesh(), 1-based, 0 for none
    std::vector<std::int32_t> fixed_nodes_;  // of mesh(), 0-based
    std::vector<view::RigidHold> rigid_holds_;
    std::vector<view::SupportHold> support_holds_;
    std::vector<view::SupportSprings> support_springs_;

    std::vector<std::int32_t> recent_picks_;
    std::vector<double> extent();
    std::string match_held();
    struct Panes {
        view::DisplayState left, right;  // of the held result and of the one shown
    };
    Panes panes();
    view::SceneTables held_tables() const;
    view::DisplayState held_state() const;
    void share_factor();
    void draw_both(view::gl::TextPainter& texts);

    view::Subtracted held_;  // node_of and material: of the run shown, in Compare::difference
    std::int32_t held_frame_ = 1;
    std::string held_title_, held_name_;
    Compare compare_ = Compare::off;
    view::gl::SceneDrawing held_drawing_;
    std::vector<std::int32_t> held_fixed_nodes_;
    struct FactorKey {
        std::shared_ptr<const Frame> shown, held;
        double mode_scale = 0;
        bool auto_scale = false;
        view::Deformation deformation = view::Deformation::usual;
        bool operator==(const FactorKey&) const = default;
    } factor_of_;
    double one_factor_ = 0;  // the smaller one of what both would be drawn with
    view::FaceSelection selection_;
    std::string records_;                   // of the selection, once they have been asked for
    std::vector<std::string> given_names_;  // in records so far
    // of mesh(), once a patch was looked for
    std::vector<ElementFace> free_faces_;
    std::optional<SmoothPatches> patches_;
};

}  // namespace kestralum
