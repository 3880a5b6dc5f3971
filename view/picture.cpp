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
    frame_ = faces_frame_ = nullptr;
    removed_.clear();
    numbers_.reset();
}

void Picture::update(const SceneTables& tables, const DisplayState& state) {
    const bool carries = carries_values(tables, state);
    update_faces(tables, state, carries);
    update_values(tables, state, carries);
    update_shape(tables, state);
}

// Whether other elements than before are missing.
bool Picture::take_removed(const SceneTables& tables, const DisplayState& state) {
    auto frame = state.result_ready ? frame_at(tables.frames(), state.frame) : nullptr;
    if (frame && frame->mode_vec.size() != tables.mesh().coordinates.size()) frame = nullptr;
    if (frame == faces_frame_) return false;
    faces_frame_ = std::move(frame);
    const std::vector<std::int32_t> none, &removed = faces_frame_ ? faces_frame_->removed : none;
    if (removed == removed_) return false;
    removed_ = removed;
    return true;
}

Surface Picture::surface_of(const Mesh& mesh, Faces faces) {
    if (removed_.empty() && !numbers_) return build_surface(mesh, faces, choice_);
    if (!numbers_) numbers_ = number_faces(mesh);
    return build_surface(mesh, faces, choice_, {removed_, &*numbers_});
}

void Picture::update_faces(const SceneTables& tables, const DisplayState& state, bool carries) {
    const bool translucent = carries && state.transparency < 1;
    PartChoice choice = part_choice(state.part_looks);
    const bool others = drawn_mesh_ != mesh_revision_ || choice != choice_,
               removed = take_removed(tables, state);
    if (!others && !removed && translucent_ == translucent) return;
    if (others || translucent_ != translucent) ++whole_revision_;
    if (others || removed) {
        choice_ = std::move(choice);
        free_ = surface_of(tables.mesh(), Faces::free);
        all_ = {};
        all_built_ = false;
        edge_length_ = mean_edge_length(free_, tables.mesh().coordinates);
        drawn_mesh_ = mesh_revision_;
    }
    translucent_ = translucent;
    if (translucent && !all_built_) {
        all_ = surface_of(tables.mesh(), Faces::all);
        all_built_ = true;
    }
    ++faces_revision_;
}

namespace {

// The nodes drawn in a frame that has lost elements: of those drawn without a loss, and of the lost ones, all
// that have an element left.
std::vector<std::int32_t> nodes_left(const Mesh& mesh, const Frame& frame,
                                     std::span<const std::int32_t> whole, const PartChoice& choice) {
    std::vector<char> drawn(mesh.node_num(), 0);
    for (const std::int32_t n : whole) drawn[n] = 1;
    for (const std::int32_t e : frame.removed) {
        if (e < 0 || e >= mesh.element_num()) continue;
        const std::int32_t part = e < std::ssize(mesh.p_ele_part_id) ? mesh.p_ele_part_id[e] : -1;
        if (part >= 0 && part < std::ssize(choice.hidden) && choice.hidden[part]) continue;
        for (const std::int32_t n : mesh.element(e)) drawn[node_index(n)] = 1;
    }
    const std::vector<char> bare = bare_nodes(mesh, frame.removed);
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (drawn[n] && !bare[n]) nodes.push_back(n);
    return nodes;
}

}  // namespace

std::optional<ValueRange> Picture::range_of_all_frames(const SceneTables& tables, const DisplayState& state) {
    const Mesh& mesh = tables.mesh();
    if (whole_nodes_of_ != whole_revision_) {
        whole_nodes_of_ = whole_revision_;
        const Faces kind = translucent_ ? Faces::all : Faces::free;
        whole_nodes_ =
            removed_.empty() ? faces().value_nodes : build_surface(mesh, kind, choice_).value_nodes;
    }
    return value_range_all_frames(
        state.shown_contour(), mesh, tables.frames(), whole_nodes_,
        [&](const Frame& frame) { return nodes_left(mesh, frame, whole_nodes_, choice_); });
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
    const RangeKey range_key{results_revision_, whole_revision_, state.shown_contour()};
    if (!(range_key == all_frames_key_)) {
        all_frames_key_ = range_key;
        all_frames_range_ = range_of_all_frames(tables, state);
    }
    range_ = all_frames_range_;
}

// Of a run that goes on: over all frames that were shown, so that colours do not jump from one to the next.
void Picture::widen_live_range(const SceneTables& tables, const DisplayState& state) {
    const RangeKey key{0, whole_revision_, state.shown_contour()};
    if (!live_range_ || !(key == live_key_))
        live_range_ = range_of_all_frames(tables, state);
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
