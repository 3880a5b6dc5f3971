#include "view/picture.h"

#include <algorithm>
#include <cmath>

#include "fields/frame_difference.h"
#include "fields/plane_cut.h"

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

namespace {

bool shows_inside(const DisplayState& state) {
    return std::ranges::any_of(state.sections, &ShownSection::on) || state.threshold.on() ||
           !state.iso_values.empty();
}

}  // namespace

void Picture::update(const SceneTables& tables, const DisplayState& state) {
    const bool carries = carries_values(tables, state);
    inside_shows_ = shows_inside(state) && tables.mesh().element_num() > 0;
    update_faces(tables, state, carries);
    update_values(tables, state, carries);
    update_trim(tables, state);
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
    const bool outside_alone =
        inside_shows_ || state.look.element_values || state.look.shading == Shading::contour;
    const bool translucent = carries && state.transparency < 1 && !outside_alone;
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
    ++base_revision_;
    ++faces_revision_;
}

const std::vector<char>& Picture::gone(const Mesh& mesh) {
    if (gone_of_ == base_revision_) return gone_;
    gone_of_ = base_revision_;
    gone_ = gone_elements(mesh, choice_.hidden, {removed_});
    std::vector<char> there(mesh.node_num(), 0);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        if (!gone_[e])
            for (const std::int32_t n : mesh.element(e)) there[node_index(n)] = 1;
    inner_.clear();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (there[n]) inner_.push_back(n);
    return gone_;
}

std::span<const std::int32_t> Picture::range_nodes(const Mesh& mesh) {
    if (!inside_shows_) return translucent_ ? all_.value_nodes : free_.value_nodes;
    gone(mesh);
    return inner_;
}

const FurtherVertices& Picture::further() const {
    static const FurtherVertices none;
    return trimmed() ? trimmed_->further : none;
}

std::array<double, 2> Picture::color_ends(const ColorScale& scale) const {
    if (scale.range == RangeKind::fixed) return {scale.low, scale.high};
    if (!range_) return {0, 0};
    if (scale.range != RangeKind::symmetric) return {range_->low.value, range_->high.value};
    const double reach = std::max(std::abs(range_->low.value), std::abs(range_->high.value));
    return {-reach, reach};
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
        whole_nodes_ = removed_.empty() ? (translucent_ ? all_ : free_).value_nodes
                                        : build_surface(mesh, kind, choice_).value_nodes;
    }
    return value_range_all_frames(
        tables.frames(), [&](const Frame& frame) { return nodes_of(tables, state, frame); },
        inside_shows_ ? range_nodes(mesh) : std::span<const std::int32_t>(whole_nodes_),
        [&](const Frame& frame) { return nodes_left(mesh, frame, whole_nodes_, choice_); });
}

// Materials are found once for a mesh, and only where a quantity wants them.
const FieldBase* Picture::field_base(const SceneTables& tables, bool of_elements) {
    const Mesh& mesh = tables.mesh();
    if (materials_of_ != mesh_revision_) {
        materials_of_ = mesh_revision_;
        node_materials_ = node_materials(tables.model, mesh);
        element_materials_.assign(mesh.element_num(), -1);
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            const std::int32_t part = e < std::ssize(mesh.p_ele_part_id) ? mesh.p_ele_part_id[e] : -1;
            if (part < 0 || part >= std::ssize(tables.model.parts)) continue;
            const std::int32_t material = tables.model.parts[part].material_id;
            if (material < std::ssize(tables.model.materials)) element_materials_[e] = material;
        }
    }
    base_.emplace(FieldBase{tables.model, of_elements ? element_materials_ : node_materials_});
    return &*base_;
}

namespace {

bool is_further(std::int32_t contour) {
    const Quantity* quantity = quantity_at(contour);
    return quantity && quantity->source == Source::field;
}

std::vector<double> less(const std::vector<double>& values, std::int32_t contour, const Subtracted& minus) {
    const FieldBase base{*minus.model, minus.material};
    return value_difference(values, nodal_values(contour, minus.run->mesh, *minus.frame, &base), 1,
                            minus.node_of);
}

}  // namespace

std::vector<double> Picture::nodes_of(const SceneTables& tables, const DisplayState& state,
                                      const Frame& frame) {
    const std::int32_t contour = state.shown_contour();
    const FieldBase* base = is_further(contour) ? field_base(tables, false) : nullptr;
    const std::vector<double> values = nodal_values(contour, tables.mesh(), frame, base);
    return tables.minus && !values.empty() ? less(values, contour, *tables.minus) : values;
}

// The same code picks a quantity out of the elements' table as out of the nodes'.
std::vector<double> Picture::elements_of(const SceneTables& tables, const DisplayState& state,
                                         const Frame& frame) {
    if (!state.look.element_values || !tables.element_stress || tables.minus) return {};
    Frame table;
    table.node_stress = tables.element_stress(frame);
    if (table.node_stress.empty()) return {};
    table.mode_vec.assign(3 * std::size_t(tables.mesh().element_num()), 0);
    const std::int32_t contour = state.shown_contour();
    const FieldBase* base = is_further(contour) ? field_base(tables, true) : nullptr;
    std::vector<double> values = place_values(contour, table, base);
    if (std::ssize(values) != tables.mesh().element_num()) values.clear();
    return values;
}

// Those that are seen, or all that are drawn where the inside shows.
std::vector<std::int32_t> Picture::range_elements(const Mesh& mesh) {
    std::vector<std::int32_t> elements;
    if (inside_shows_) {
        for (std::int32_t e = 0; e < mesh.element_num(); ++e)
            if (!gone(mesh)[e]) elements.push_back(e);
    } else {
        for (const std::int32_t e : free_.triangle_element)
            if (e >= 0 && (elements.empty() || elements.back() != e)) elements.push_back(e);
    }
    return elements;
}

std::optional<ValueRange> Picture::element_range_of_all_frames(const SceneTables& tables,
                                                               const DisplayState& state) {
    const std::vector<std::int32_t> elements = range_elements(tables.mesh());
    return value_range_all_frames(
        tables.frames(), [&](const Frame& frame) { return elements_of(tables, state, frame); }, elements,
        [&](const Frame& frame) {
            std::vector<std::int32_t> left = elements;
            std::erase_if(left, [&](std::int32_t e) { return std::ranges::binary_search(frame.removed, e); });
            return left;
        });
}

void Picture::update_values(const SceneTables& tables, const DisplayState& state, bool carries) {
    const bool all_frames = state.scale.range == RangeKind::all_frames;
    const ValueKey key{results_revision_, base_revision_, state.shown_contour(),
                       state.frame,       all_frames,     state.real_time,
                       carries,           inside_shows_,  state.look.element_values};
    if (key == value_key_) return;
    value_key_ = key;
    ++color_revision_;
    values_.clear();
    element_values_.clear();
    range_.reset();
    const auto frame = frame_at(tables.frames(), state.frame);
    if (!carries || !frame) return;
    values_ = nodes_of(tables, state, *frame);
    if (values_.empty()) return;
    if (state.real_time) return widen_live_range(tables, state);
    live_range_.reset();
    element_values_ = elements_of(tables, state, *frame);
    const bool of_elements = !element_values_.empty();
    if (all_frames) {
        const RangeKey range_key{results_revision_, whole_revision_, state.shown_contour(), inside_shows_,
                                 of_elements};
        if (!(range_key == all_frames_key_)) {
            all_frames_key_ = range_key;
            all_frames_range_ =
                of_elements ? element_range_of_all_frames(tables, state) : range_of_all_frames(tables, state);
        }
        range_ = all_frames_range_;
    } else {
        range_ = of_elements ? value_range(element_values_, range_elements(tables.mesh()))
                             : value_range(values_, range_nodes(tables.mesh()));
    }
    if (range_) range_->low.of_element = range_->high.of_element = of_elements;
}

// Of a run that goes on: over all frames that were shown, so that colours do not jump from one to the next.
void Picture::widen_live_range(const SceneTables& tables, const DisplayState& state) {
    const RangeKey key{0, whole_revision_, state.shown_contour(), inside_shows_, false};
    if (!live_range_ || !(key == live_key_))
        live_range_ = range_of_all_frames(tables, state);
    else if (const auto now = value_range(values_, range_nodes(tables.mesh()))) {
        if (now->low.value < live_range_->low.value)
            live_range_->low = {now->low.value, now->low.node, state.frame};
        if (now->high.value > live_range_->high.value)
            live_range_->high = {now->high.value, now->high.node, state.frame};
    }
    live_key_ = key;
    range_ = live_range_;
}

namespace {

// A value above 0 is hidden; what has no value is hidden too, as far away as any.
void add_threshold(const std::vector<double>& values, std::span<const std::int32_t> nodes, double limit,
                   double sign, std::vector<std::vector<double>>& levels) {
    std::vector<double> level(values.size(), -1);  // what is no element's carries no value
    double largest = 1;
    for (const std::int32_t n : nodes)
        if (std::isfinite(values[n])) largest = std::max(largest, std::abs(values[n] - limit));
    for (const std::int32_t n : nodes) {
        const double above = sign * (values[n] - limit);
        level[n] = std::isnan(above) ? largest : std::clamp(above, -largest, largest);
    }
    levels.push_back(std::move(level));
}

}  // namespace

TrimRequest Picture::trim_request(const Mesh& mesh, const DisplayState& state) {
    TrimRequest request;
    request.gone = gone(mesh);
    for (const ShownSection& section : state.sections)
        if (section.on) request.levels.push_back(distances_to(mesh, {"", section.point, section.normal}));
    if (!contour()) return request;
    const Threshold& limits = state.threshold;
    if (limits.below) add_threshold(values_, inner_, *limits.below, -1, request.levels);
    if (limits.above) add_threshold(values_, inner_, *limits.above, 1, request.levels);
    for (const double value : state.iso_values) {
        std::vector<double> level(values_);
        for (double& v : level) v -= value;
        request.iso_levels.push_back(std::move(level));
    }
    request.body = state.iso_values.empty();
    return request;
}

void Picture::update_trim(const SceneTables& tables, const DisplayState& state) {
    const bool by_values = state.threshold.on() || !state.iso_values.empty();
    const TrimKey key{base_revision_, by_values ? color_revision_ : 0, state.sections, state.threshold,
                      state.iso_values};
    if (!(key == trim_key_)) {
        const bool had = trimmed();
        trim_key_ = key;
        trimmed_.reset();
        if (inside_shows_) trimmed_ = trim_surface(tables.mesh(), free_, trim_request(tables.mesh(), state));
        if (trimmed() || had) ++faces_revision_;
    }
    vertex_values_.clear();
    if (!trimmed() || !contour()) return;
    vertex_values_ = values_;
    extend(trimmed_->further, 1, vertex_values_);
}

ScaleRule Picture::scale_rule(const SceneTables& tables, const DisplayState& state) {
    ScaleRule rule{tables.mesh().max_length, state.mode_scale, state.auto_scale, state.deformation,
                   state.deformation_factor};
    if (state.deformation != Deformation::automatic || !has_steps(tables.ana_type())) return rule;
    if (largest_of_ != results_revision_) {
        largest_of_ = results_revision_;
        largest_of_steps_ = 0;
        for (const auto& frame : tables.frames()) {
            const double largest = largest_displacement(frame->mode_vec);
            if (std::isfinite(largest)) largest_of_steps_ = std::max(largest_of_steps_, largest);
        }
    }
    rule.largest_of_steps = largest_of_steps_;
    return rule;
}

void Picture::update_shape(const SceneTables& tables, const DisplayState& state) {
    const ShapeKey key{results_revision_,        faces_revision_,      state.frame,        tables.ana_type(),
                       state.mode_scale,         state.auto_scale,     state.result_ready, state.deformation,
                       state.deformation_factor, tables.largest_factor};
    if (key == shape_key_) return;
    const bool same_faces = key.faces == shape_key_.faces, same_kind = key.ana_type == shape_key_.ana_type;
    shape_key_ = key;
    const auto former_frame = frame_;
    const double former_factor = factor_;
    frame_ = state.result_ready ? frame_at(tables.frames(), state.frame) : nullptr;
    if (frame_ && frame_->mode_vec.size() != tables.mesh().coordinates.size()) frame_ = nullptr;
    factor_ = frame_ ? own_factor(tables, state, *frame_) : 0;
    if (state.deformation != Deformation::fixed) factor_ = std::min(factor_, tables.largest_factor);
    phases_ = phase_table(tables.ana_type());
    // frames that a run adds behind the one shown change nothing
    const bool same_places = same_kind && frame_ == former_frame && factor_ == former_factor;
    if (!same_places) ++places_revision_;
    if (!same_places || !same_faces) ++shape_revision_;
}

double Picture::own_factor(const SceneTables& tables, const DisplayState& state, const Frame& frame) {
    return scale_factor(tables.ana_type(), frame.mode_vec, scale_rule(tables, state));
}

double Picture::swing(int phase) const {
    return factor_ * phases_[phase];
}

void Picture::place(const SceneTables& tables, int phase, std::vector<double>& out) const {
    displace(tables.mesh().coordinates, vector(), swing(phase), out);
    if (trimmed()) extend(trimmed_->further, 3, out);
}

}  // namespace kestralum::view
