// What the drawing sends to the graphics card, computed from a model and a run and kept until they or the
// display state change.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "model/model.h"
#include "model/run.h"
#include "view/camera.h"
#include "view/condition_symbols.h"
#include "view/contour.h"
#include "view/deformation.h"
#include "view/display_state.h"
#include "view/rigid_symbols.h"
#include "view/surface.h"
#include "view/trim.h"

namespace kestralum::view {

// A frame of another run on the same mesh.
struct Subtracted {
    std::shared_ptr<const Model> model;
    std::shared_ptr<const Run> run;
    std::shared_ptr<const Frame> frame;
    std::vector<std::int32_t> node_of;   // per node of the mesh shown its node in the run's, 0-based
    std::vector<std::int32_t> material;  // node_materials() of the run's mesh
};

// What is drawn: a model as it was meshed, or a run with its own mesh and frames.
struct SceneTables {
    const Model& model;
    const Run* run = nullptr;                         // null: the model's own mesh and no results
    std::span<const std::int32_t> force_node;         // per force: its node of mesh() (1-based), 0 for none
    std::span<const std::int32_t> fixed_nodes;        // of mesh(), 0-based: held in all directions
    std::span<const RigidHold> rigid_holds = {};      // one per rigid element
    std::span<const SupportHold> support_holds = {};  // of mesh(), of supports with options
    std::span<const SupportSprings> support_springs = {};  // the same
    const Subtracted* minus = nullptr;  // its values are taken off those of the frame shown; null: none
    // What an element has itself, in the layout of Frame::node_stress with elements in place of nodes; empty
    // where it is not known.
    std::function<std::vector<double>(const Frame&)> element_stress = {};
    // Displacements are drawn no farther, but for a fixed factor: what is compared has one factor.
    double largest_factor = std::numeric_limits<double>::infinity();

    const Mesh& mesh() const { return run ? run->mesh : model.mesh; }
    Frames frames() const { return run ? Frames(run->results) : Frames(); }
    AnalysisType ana_type() const { return run ? run->ana_type : AnalysisType::eigen; }
    Scene box() const { return {mesh().size_info, mesh().max_length}; }
};

class Picture {
public:
    // The mesh is another one; so are the results.
    void mesh_changed();
    // The results are others, on the same mesh.
    void results_changed() { ++results_revision_; }

    // Brings everything up to date with the tables and the state.
    void update(const SceneTables& tables, const DisplayState& state);

    // The faces of one element only, or what sections leave of them: what is outlined, lit and picked.
    // Vertices from node_num on are those of further().
    const Surface& outside() const { return trimmed() ? trimmed_->surface : free_; }
    // The faces that the contour colours: every element's where the whole model is translucent and not cut.
    const Surface& faces() const { return translucent_ ? all_ : outside(); }
    bool trimmed() const { return trimmed_.has_value(); }
    const FurtherVertices& further() const;
    const Surface& whole() const { return free_; }  // without sections
    // whole() has the faces of all elements, none hidden, removed or seen through.
    bool has_every_face() const { return removed_.empty() && choice_ == PartChoice(); }

    // Whether the run has taken the element (0-based) out in the frame shown.
    bool is_removed(std::int32_t element) const { return std::ranges::binary_search(removed_, element); }

    // Values are shown: there are results and a quantity that they carry.
    bool contour() const { return range_.has_value(); }
    bool translucent() const { return translucent_; }
    const std::vector<double>& values() const { return values_; }  // node_num; empty without contour
    const std::optional<ValueRange>& range() const { return range_; }
    // The same at the vertices of faces(), and of the elements (element_num) where those are shown, else
    // empty.
    const std::vector<double>& vertex_values() const { return trimmed() ? vertex_values_ : values_; }
    const std::vector<double>& element_values() const { return element_values_; }
    // Where the colours reach to: the range, or what the scale says in its place.
    std::array<double, 2> color_ends(const ColorScale& scale) const;

    std::span<const double> vector() const {  // dof_num, of the frame shown; may be empty
        return frame_ ? std::span(frame_->mode_vec) : std::span<const double>();
    }
    // Load case of the frame shown; empty: none or not told.
    std::string frame_name() const { return frame_ ? frame_->name : std::string(); }
    double factor() const { return factor_; }  // on it, at the largest swing
    // What that would be for a frame, whatever tables.largest_factor says.
    double own_factor(const SceneTables& tables, const DisplayState& state, const Frame& frame);
    bool deformed() const { return factor_ != 0 && !vector().empty(); }
    double swing(int phase) const;  // on it, at an entry of the phase table

    // The places drawn of nodes and further vertices (× 3) at an entry of the phase table.
    void place(const SceneTables& tables, int phase, std::vector<double>& out) const;

    double edge_length() const { return edge_length_; }  // mean over the outside, m; 0 without edges

    // What further quantities of the mesh are made of, at its nodes or for its elements; until the next call.
    const FieldBase* field_base(const SceneTables& tables, bool of_elements);

    // Each grows when what it names has changed.
    std::uint64_t mesh_revision() const { return mesh_revision_; }
    std::uint64_t whole_revision() const { return base_revision_; }     // whole()
    std::uint64_t faces_revision() const { return faces_revision_; }    // outside() or faces()
    std::uint64_t color_revision() const { return color_revision_; }    // values or range
    std::uint64_t shape_revision() const { return shape_revision_; }    // vector, factor or faces()
    std::uint64_t places_revision() const { return places_revision_; }  // the mesh, vector or factor

private:
    void update_faces(const SceneTables& tables, const DisplayState& state, bool carries);
    bool take_removed(const SceneTables& tables, const DisplayState& state);
    Surface surface_of(const Mesh& mesh, Faces faces);
    std::optional<ValueRange> range_of_all_frames(const SceneTables& tables, const DisplayState& state);
    std::optional<ValueRange> element_range_of_all_frames(const SceneTables& tables,
                                                          const DisplayState& state);
    void update_values(const SceneTables& tables, const DisplayState& state, bool carries);
    void widen_live_range(const SceneTables& tables, const DisplayState& state);
    std::vector<double> elements_of(const SceneTables& tables, const DisplayState& state, const Frame& frame);
    std::vector<double> nodes_of(const SceneTables& tables, const DisplayState& state, const Frame& frame);
    std::vector<std::int32_t> range_elements(const Mesh& mesh);
    void update_trim(const SceneTables& tables, const DisplayState& state);
    TrimRequest trim_request(const Mesh& mesh, const DisplayState& state);
    void update_shape(const SceneTables& tables, const DisplayState& state);
    ScaleRule scale_rule(const SceneTables& tables, const DisplayState& state);
    const std::vector<char>& gone(const Mesh& mesh);
    std::span<const std::int32_t> range_nodes(const Mesh& mesh);

    Surface free_, all_;
    std::optional<Trimmed> trimmed_;
    std::vector<char> gone_;           // per element, of gone_of_
    std::vector<std::int32_t> inner_;  // nodes of all drawn elements, the same
    std::uint64_t gone_of_ = 0;
    bool inside_shows_ = false;  // sections, thresholds or iso-surfaces: ranges are those of the whole body
    PartChoice choice_;
    std::shared_ptr<const Frame> faces_frame_;  // whose elements are drawn; null: all
    std::vector<std::int32_t> removed_;         // of it
    std::optional<FaceNumbers> numbers_;        // once elements are missing
    std::uint64_t whole_revision_ = 0;          // grows when faces are others for another reason than these
    std::vector<std::int32_t> whole_nodes_;     // value nodes of faces() with no element removed
    std::uint64_t whole_nodes_of_ = 0;          // whole_revision_ of these
    bool translucent_ = false, all_built_ = false;
    std::vector<double> values_, vertex_values_, element_values_;
    std::vector<std::int32_t> node_materials_, element_materials_;
    std::uint64_t materials_of_ = 0;  // mesh revision
    std::optional<FieldBase> base_;
    std::optional<ValueRange> range_;
    std::shared_ptr<const Frame> frame_;  // null: undeformed
    double factor_ = 0, edge_length_ = 0;
    std::array<double, phase_count> phases_{};

    // what the parts were computed from
    struct ValueKey {
        std::uint64_t results = 0, faces = 0;
        std::int32_t contour = -1, frame = 0;
        bool all_frames = false, live = false, carries = false, inside = false, of_elements = false;
        bool operator==(const ValueKey&) const = default;
    } value_key_;
    struct ShapeKey {
        std::uint64_t results = 0, faces = 0;
        std::int32_t frame = 0;
        AnalysisType ana_type = AnalysisType::eigen;
        double mode_scale = 0;
        bool auto_scale = false, ready = false;
        Deformation deformation = Deformation::usual;
        double deformation_factor = 1, largest_factor = 0;
        bool operator==(const ShapeKey&) const = default;
    } shape_key_;
    struct TrimKey {
        std::uint64_t faces = 0, values = 0;  // values: only where they cut
        std::vector<ShownSection> sections;
        Threshold threshold;
        std::vector<double> iso_values;
        bool operator==(const TrimKey&) const = default;
    } trim_key_;
    double largest_of_steps_ = 0;
    std::uint64_t largest_of_ = 0;  // results revision
    struct RangeKey {
        std::uint64_t results = 0, faces = 0;
        std::int32_t contour = -1;
        bool inside = false, of_elements = false;
        bool operator==(const RangeKey&) const = default;
    } all_frames_key_;
    std::optional<ValueRange> all_frames_range_;
    RangeKey live_key_;
    std::optional<ValueRange> live_range_;

    std::uint64_t mesh_revision_ = 1, results_revision_ = 1, drawn_mesh_ = 0;
    std::uint64_t base_revision_ = 0;  // free_ or all_
    std::uint64_t faces_revision_ = 0, color_revision_ = 0, shape_revision_ = 0, places_revision_ = 1;
};

}  // namespace kestralum::view
