#include "view/picture.h"

namespace kestralum::view {

namespace {

// The mean over at most about a thousand edges: how dense a mesh looks.
double mean_edge_length(const Surface& surface, std::span<const double> coordinates) {
    const std::size_t edges = surface.edges.size() / 2, stride = edges / 1000 + 1;
    double sum = 0, count = 0;
    for (std::size_t k = 0; k < edges; k += stride, ++count)
        sum += norm(
            minus(triple(coordinates, surface.edges[2 * k + 1]), triple(coordinates, surface.edges[2 * k])));
    return count > 0 ? sum / count : 0;
}

// The results belong to the mesh, and the quantity has values in them.
bool carries_values(const SceneTables& tables, const DisplayState& state) {
    const Quantity* quantity = quantity_at(state.shown_contour());
    return state.result_ready && quantity && quantity->source != Source::none && !tables.frames().empty() &&
           tables.mesh().element_num() > 0;
}

}  // namespace

void Picture::mesh_changed() {
    ++mesh_revision_;
    ++results_revision_;
    ++places_revision_;
    frame_ = nullptr;
}

void Picture::update(const SceneTables& tables, const DisplayState& state) {
    const bool carries = carries_values(tables, state);
    update_faces(tables, state, carries);
    update_values(tables, state, carries);
    update_shape(tables, state);
}

void Picture::update_faces(const SceneTables& tables, const DisplayState& state, bool carries) {
    const bool translucent = carries && state.transparency < 1;
    PartChoice choice = part_choice(state.part_looks);
    if (drawn_mesh_ != mesh_revision_ || choice != choice_) {
        choice_ = std::move(choice);
        free_ = build_surface(tables.mesh(), Faces::free, choice_);
        all_ = {};
        all_built_ = false;
        edge_length_ = mean_edge_length(free_, tables.mesh().coordinates);
        drawn_mesh_ = mesh_revision_;
        translucent_ = !translucent;  // counts as a change below
    }
    if (translucent_ == translucent) return;
    translucent_ = translucent;
    if (translucent && !all_built_) {
        all_ = build_surface(tables.mesh(), Faces::all, choice_);
        all_built_ = true;
    }
    ++faces_revision_;
}

void Picture::update_values(const SceneTables& tables, const DisplayState& state, bool carries) {
    const ValueKey key{
        results_revision_, faces_revision_, state.shown_contour(), state.frame, state.all_frames_range,
        state.real_time,   carries};
    if (key == value_key_) return;
    value_key_ = key;
    ++color_revision_;
    values_.clear();
    range_.reset();
    const auto frame = frame_at(tables.frames(), state.frame);
    if (!carries || !frame) return;
    values_ = nodal_values(state.shown_contour(), tables.mesh(), *frame);
    if (values_.empty()) return;
    if (state.real_time) return widen_live_range(tables, state);
    live_range_.reset();
    if (!state.all_frames_range) {
        range_ = value_range(values_, faces().value_nodes);
        return;
    }
    const RangeKey range_key{results_revision_, faces_revision_, state.shown_contour()};
    if (!(range_key == all_frames_key_)) {
        all_frames_key_ = range_key;
        all_frames_range_ = value_range_all_frames(state.shown_contour(), tables.mesh(), tables.frames(),
                                                   faces().value_nodes);
    }
    range_ = all_frames_range_;
}

// Of a run that goes on: over all frames that were shown, so that colours do not jump from one to the next.
void Picture::widen_live_range(const SceneTables& tables, const DisplayState& state) {
    const RangeKey key{0, faces_revision_, state.shown_contour()};
    if (!live_range_ || !(key == live_key_))
        live_range_ = value_range_all_frames(state.shown_contour(), tables.mesh(), tables.frames(),
                                             faces().value_nodes);
    else if (const auto now = value_range(values_, faces().value_nodes)) {
        if (now->low.value < live_range_->low.value)
            live_range_->low = {now->low.value, now->low.node, state.frame};
        if (now->high.value > live_range_->high.value)
            live_range_->high = {now->high.value, now->high.node, state.frame};
    }
    live_key_ = key;
    range_ = live_range_;
}

void Picture::update_shape(const SceneTables& tables, const DisplayState& state) {
    const ShapeKey key{results_revision_, faces_revision_,  state.frame,       tables.ana_type(),
                       state.mode_scale,  state.auto_scale, state.result_ready};
    if (key == shape_key_) return;
    const bool same_faces = key.faces == shape_key_.faces, same_kind = key.ana_type == shape_key_.ana_type;
    shape_key_ = key;
    const auto former_frame = frame_;
    const double former_factor = factor_;
    frame_ = state.result_ready ? frame_at(tables.frames(), state.frame) : nullptr;
    if (frame_ && frame_->mode_vec.size() != tables.mesh().coordinates.size()) frame_ = nullptr;
    factor_ = scale_factor(tables.ana_type(), vector(),
                           {tables.mesh().max_length, state.mode_scale, state.auto_scale});
    phases_ = phase_table(tables.ana_type());
    // frames that a run adds behind the one shown change nothing
    const bool same_places = same_kind && frame_ == former_frame && factor_ == former_factor;
    if (!same_places) ++places_revision_;
    if (!same_places || !same_faces) ++shape_revision_;
}

double Picture::swing(int phase) const {
    return factor_ * phases_[phase];
}

void Picture::place(const SceneTables& tables, int phase, std::vector<double>& out) const {
    displace(tables.mesh().coordinates, vector(), swing(phase), out);
}

}  // namespace kestralum::view
