// A held result beside the one that is shown, or taken off it.
#include <algorithm>
#include <limits>
#include <string_view>

#include "app/window/caption.h"
#include "app/window/shown_model.h"
#include "conditions/constraints.h"
#include "results/match_mesh.h"

namespace kestralum {

namespace {

// The caption with the frame, in letters that every font has.
std::string title_of(ShownModel& shown) {
    std::string title = caption_text(shown);
    for (std::size_t at; (at = title.find("\u00b7")) != std::string::npos;)
        title.replace(at, std::string_view("\u00b7").size(), "-");
    const view::SceneTables tables = shown.tables();
    const std::string frame =
        view::legend_text(tables.ana_type(), -1, tables.frames(), tables.model.control, shown.state.frame);
    return frame.empty() ? title : title + (frame[0] == ',' ? "" : " - ") + frame;
}

// Short: the legend of each view tells its frame.
std::string name_of(const Run* run) {
    if (!run) return "";
    const std::string& file =
        run->origin.file_name.empty() ? run->origin.model_file_name : run->origin.file_name;
    return file.substr(file.find_last_of("/\\") + 1) +
           (run->origin.analysis.empty() ? "" : ", " + run->origin.analysis);
}

}  // namespace

void ShownModel::hold_result() {
    if (mode_num() == 0) return;
    held_ = {store.model, store.run, nullptr, {}, {}};
    held_frame_ = state.frame;
    held_.frame = view::frame_at(tables().frames(), held_frame_);
    held_title_ = title_of(*this);
    held_name_ = name_of(store.run.get());
    held_fixed_nodes_ = fixed_nodes_;
    held_drawing_.mesh_changed();
    if (compare_ == Compare::difference && !match_held().empty()) compare_ = Compare::off;
    results_changed();
}

// Which nodes of the held run's mesh those of the shown one's are.
std::string ShownModel::match_held() {
    if (!held_.node_of.empty()) return "";
    if (!store.run || store.run->results.empty()) return "There is no result to take the held one off";
    if (has_shapes(store.run->ana_type) != has_shapes(held_.run->ana_type))
        return "A mode has no size: it is compared with modes alone";
    MeshMatch match = match_meshes(store.run->mesh, held_.run->mesh, Coordinates::as_written);
    if (!match.same()) return "The held result is of another mesh: " + match.why_not;
    held_.node_of = std::move(match.node_of);
    held_.material = node_materials(*held_.model, held_.run->mesh);
    return "";
}

std::string ShownModel::compare(Compare how) {
    if (how != Compare::off && !holds_result()) return "Hold a result first";
    if (how == Compare::difference)
        if (std::string why = match_held(); !why.empty()) return why;
    if (how == Compare::side_by_side && has_shapes(ana_type()) != has_shapes(held_.run->ana_type))
        return "A mode has no size: it is compared with modes alone";
    if (how != compare_) results_changed();
    compare_ = how;
    return "";
}

void ShownModel::compare_like(const ShownModel& other) {
    held_ = other.held_;
    held_frame_ = other.held_frame_;
    held_title_ = other.held_title_;
    held_name_ = other.held_name_;
    held_fixed_nodes_ = other.held_fixed_nodes_;
    compare_ = other.compare_;
    held_drawing_.mesh_changed();
    results_changed();
}

namespace {

// Both in the colours that reach over both.
void share_range(view::DisplayState& a, view::DisplayState& b, const view::Picture& first,
                 const view::Picture& second) {
    if (!first.contour() || !second.contour()) return;
    const auto one = first.color_ends(a.scale), other = second.color_ends(b.scale);
    for (view::DisplayState* state : {&a, &b}) {
        state->scale.range = view::RangeKind::fixed;
        state->scale.low = std::min(one[0], other[0]);
        state->scale.high = std::max(one[1], other[1]);
    }
}

}  // namespace

void ShownModel::draw(view::gl::TextPainter& texts) {
    if (compare_ == Compare::side_by_side) return draw_both(texts);
    drawing.set_title(compare_ == Compare::difference ? "Less " + held_title_ : "");
    drawing.draw(tables(), state, camera, texts);
}

view::SceneTables ShownModel::held_tables() const {
    view::SceneTables tables{.model = *held_.model,
                             .run = held_.run.get(),
                             .force_node = held_.run->force_node,
                             .fixed_nodes = held_fixed_nodes_};
    tables.largest_factor = one_factor_;
    return tables;
}

// Of runs with steps the same one.
view::DisplayState ShownModel::held_state() const {
    view::DisplayState left = state;
    left.result_ready = true;
    const bool steps = has_steps(held_.run->ana_type) && has_steps(ana_type());
    left.frame = view::clamp_frame(steps ? state.frame : held_frame_, held_.run->mode_num());
    left.real_time = false;
    left.highlight = {};
    left.probes.clear();
    if (held_.model != store.model) left.part_looks.clear();
    return left;
}

// Neither is drawn farther than it would be alone.
void ShownModel::share_factor() {
    const view::DisplayState left = held_state();
    const FactorKey key{view::frame_at(tables().frames(), state.frame),
                        view::frame_at(held_tables().frames(), left.frame), state.mode_scale,
                        state.auto_scale, state.deformation};
    if (key == factor_of_) return;
    factor_of_ = key;
    one_factor_ = std::numeric_limits<double>::infinity();
    const auto take = [&](double factor) {
        if (factor > 0) one_factor_ = std::min(one_factor_, factor);
    };
    if (key.shown) take(drawing.own_factor(tables(), state, *key.shown));
    if (key.held) take(held_drawing_.own_factor(held_tables(), left, *key.held));
}

ShownModel::Panes ShownModel::panes() {
    Panes both{held_state(), state};
    drawing.update(tables(), both.right);
    held_drawing_.update(held_tables(), both.left);
    share_range(both.left, both.right, held_drawing_.picture(), drawing.picture());
    return both;
}

void ShownModel::draw_both(view::gl::TextPainter& texts) {
    share_factor();
    const Panes both = panes();
    view::Camera half = camera;
    half.left = 0;
    held_drawing_.set_title("Held: " + held_name_);
    held_drawing_.draw(held_tables(), both.left, half, texts);
    half.left = camera.width;
    texts.set_left(half.left);
    drawing.set_title("Shown: " + name_of(store.run.get()));
    drawing.draw(tables(), both.right, half, texts);
    texts.set_left(0);
}

std::string ShownModel::pick_held(double x, double y) {
    const view::DisplayState left = held_state();
    const view::SceneTables held = held_tables();
    held_drawing_.update(held, left);
    const auto found = pick_in(held_drawing_.picture(), held, left, x, y);
    held_drawing_.set_pick(found);
    ++revision_;
    return found ? "Held: " + pick_line(*found, held_drawing_.picture(), held, left) : "";
}

void ShownModel::set_background(const view::Color& color) {
    drawing.set_background(color);
    held_drawing_.set_background(color);
}

void ShownModel::release_drawings(bool context_alive) {
    drawing.release(context_alive);
    held_drawing_.release(context_alive);
}

}  // namespace kestralum
