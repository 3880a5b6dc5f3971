#include "app/window/shown_model.h"

#include <algorithm>
#include <utility>

#include "analysis/element_values.h"
#include "conditions/constraints.h"
#include "conditions/rigid_bodies.h"
#include "conditions/supports.h"
#include "model/selection.h"
#include "results/match_mesh.h"
#include "view/aim.h"

namespace kestralum {

namespace {

// Nodes and normals of the rigid elements as an analysis finds them; the first element keeps a node. Records
// that an analysis refuses are shown all the same.
std::vector<view::RigidHold> find_rigid_holds(const Model& model, const Mesh& mesh) {
    std::vector<view::RigidHold> holds;
    if (model.rigid_elements.empty()) return holds;
    const NodeElements around = elements_of_nodes(mesh);
    RigidSystem system;
    for (const RigidElement& record : model.rigid_elements) add_body(system, record, mesh, around);
    if (mesh.node_n_dir.size() == mesh.coordinates.size()) find_normals(system, mesh);
    for (RigidBody& body : system.bodies) holds.push_back({std::move(body.members), body.normal});
    return holds;
}

// What the supports with options hold and rest on, as an analysis finds it. Records that an analysis refuses
// show what can be found of them.
void find_supports(const Model& model, const Mesh& mesh, std::vector<view::SupportHold>& holds,
                   std::vector<view::SupportSprings>& springs) {
    holds.clear();
    springs.clear();
    const auto& records = model.boundary_conditions;
    if (std::ranges::none_of(records, [](const BoundaryCondition& r) { return r.options.given; })) return;
    const NodeElements around = elements_of_nodes(mesh);
    for (const HeldDirection& held : find_held_directions(records, mesh, around).held)
        holds.push_back({held.node, held.record, held.direction, held.axis});
    for (std::size_t r = 0; r < records.size(); ++r)
        if (records[r].options.spring.given() || records[r].options.normal_spring.given())
            springs.push_back({static_cast<std::int32_t>(r), support_faces(records[r], mesh, around)});
}

}  // namespace

// Looks stay with the parts of their names.
view::PartLooks ShownModel::looks_for(const Model& model) const {
    view::PartLooks looks(model.parts.size());
    for (std::size_t p = 0; p < looks.size(); ++p) {
        const auto former = std::ranges::find(store.model->parts, model.parts[p].name, &Part::name) -
                            store.model->parts.begin();
        looks[p] = view::look_of(state.part_looks, static_cast<std::int32_t>(former));
    }
    const bool plain =
        std::ranges::all_of(looks, [](const view::PartLook& l) { return l == view::PartLook(); });
    return plain ? view::PartLooks() : looks;
}

void ShownModel::show(std::shared_ptr<const Model> model, std::shared_ptr<const Run> run) {
    state.part_looks = looks_for(*model);
    state.highlight = {};
    store.model = std::move(model);
    store.run = std::move(run);
    fixed_nodes_ = wholly_fixed_nodes(store.model->boundary_conditions, mesh());
    find_supports(*store.model, mesh(), support_holds_, support_springs_);
    rigid_holds_ = find_rigid_holds(*store.model, mesh());
    force_node_ = store.run ? store.run->force_node : resolve_force_points(mesh(), store.model->forces);
    state.result_ready = mode_num() > 0;
    ++revision_;
    drawing.set_pick({});
    recent_picks_.clear();
    state.probes.clear();
    drawing.mesh_changed();
    patches_.reset();
    free_faces_.clear();
    clear_selection();
    held_.node_of.clear();
    if (compare_ == Compare::difference && !match_held().empty()) compare_ = Compare::off;
    if (compare_ == Compare::side_by_side && mode_num() > 0 &&
        has_shapes(ana_type()) != has_shapes(held_.run->ana_type))
        compare_ = Compare::off;
}

void ShownModel::reset_light() {
    const double L = mesh().max_length;
    state.light = {L, L, L};
}

view::SceneTables ShownModel::tables() const {
    view::SceneTables tables{*store.model, store.run.get(), force_node_,     fixed_nodes_,
                             rigid_holds_, support_holds_,  support_springs_};
    if (compare_ == Compare::difference && !held_.node_of.empty()) tables.minus = &held_;
    if (compare_ == Compare::side_by_side) tables.largest_factor = one_factor_;
    if (store.run)
        tables.element_stress = [model = store.model, run = store.run](const Frame& frame) {
            return element_values(*model, *run, frame);
        };
    return tables;
}

view::Scene ShownModel::box() const {
    return tables().box();
}

void ShownModel::fit(const view::gl::TextPainter& texts) {
    const std::vector<double> points = extent();
    const auto room = drawing.room(tables(), state, camera, texts);
    view::fit_beside(camera, box(), points, room.margins, room.boxes);
}

// Of the held result too where it stands beside.
std::vector<double> ShownModel::extent() {
    const bool both = compare_ == Compare::side_by_side;
    if (both) share_factor();
    drawing.update(tables(), state);
    std::vector<double> points = view::gl::extent_points(drawing.picture(), tables(), state);
    if (!both) return points;
    held_drawing_.update(held_tables(), held_state());
    const auto more = view::gl::extent_points(held_drawing_.picture(), held_tables(), held_state());
    points.insert(points.end(), more.begin(), more.end());
    return points;
}

bool ShownModel::leaves_view(const view::gl::TextPainter& texts) {
    const std::vector<double> points = extent();
    const auto room = drawing.room(tables(), state, camera, texts);
    std::vector<view::PixelBox> taken = room.boxes;
    taken.insert(taken.end(), room.strips.begin(), room.strips.end());
    return !view::in_free_view(camera, box(), points, taken);
}

std::string ShownModel::pick(double x, double y, bool more) {
    drawing.update(tables(), state);
    const auto found = pick_in(drawing.picture(), tables(), state, x, y);
    drawing.set_pick(found);
    select(found, more);
    if (!found) return "";
    recent_picks_.push_back(found->node - 1);
    if (recent_picks_.size() > 3) recent_picks_.erase(recent_picks_.begin());
    return pick_line(*found, drawing.picture(), tables(), state);
}

std::optional<view::Pick> ShownModel::pick_in(const view::Picture& picture, const view::SceneTables& tables,
                                              const view::DisplayState& display, double x, double y) const {
    std::vector<double> places;
    picture.place(tables, display.phase, places);
    const view::Scene box = tables.box();
    return view::pick_node(view::unproject(camera, box, x, y), picture.outside(), places,
                           view::pixel_slack(camera, 5), picture.further());
}

std::string ShownModel::pick_line(const view::Pick& pick, const view::Picture& picture,
                                  const view::SceneTables& tables, const view::DisplayState& display) {
    return view::status_text(pick, tables.mesh(), picture.vector(), picture.values(), display.shown_contour(),
                             {tables.ana_type(), display.units});
}

std::string ShownModel::go_to_extreme(bool largest) {
    drawing.update(tables(), state);
    const auto& range = drawing.picture().range();
    if (!range) return "";
    const view::Extreme extreme = largest ? range->high : range->low;
    if (extreme.frame > 0) state.frame = extreme.frame;
    if (!extreme.of_element) return go_to_node(extreme.node);
    const auto at = view::place_of_extreme(mesh(), mesh().coordinates, extreme);
    if (at) view::centre_on(camera, *at, box());
    return at ? "Element:" + std::to_string(extreme.node) : "";
}

std::string ShownModel::go_to_node(std::int32_t node) {
    if (node < 1 || node > mesh().node_num()) return "";
    drawing.update(tables(), state);
    std::vector<double> places;
    drawing.picture().place(tables(), state.phase, places);
    view::Pick pick;
    pick.node = node;
    pick.place = view::triple(places, node - 1);
    const auto& connectivity = mesh().connectivity;
    const auto found = std::ranges::find(connectivity, node);
    if (found != connectivity.end())
        pick.element = static_cast<std::int32_t>((found - connectivity.begin()) /
                                                 nodes_per_element(mesh().element_type)) +
                       1;
    view::centre_on(camera, pick.place, box());
    drawing.set_pick(pick);
    ++revision_;
    return pick_line(pick, drawing.picture(), tables(), state);
}

void ShownModel::select(const std::optional<view::Pick>& pick, bool more) {
    const auto patches = [this]() -> SmoothPatches& {
        if (!patches_) {
            const view::Picture& picture = drawing.picture();
            free_faces_ =
                picture.has_every_face() ? view::faces_of(mesh(), picture.whole()) : free_faces(mesh());
            patches_.emplace(mesh(), free_faces_);
        }
        return *patches_;
    };
    auto faces =
        pick ? view::select_faces(mesh(), store.model->sets, drawing.picture().outside(), *pick, patches)
             : std::nullopt;
    if (!faces && more) return;
    if (!more) selection_.clear();
    if (faces) selection_.add(std::move(*faces));
    selection_changed();
}

void ShownModel::clear_selection() {
    selection_.clear();
    selection_changed();
}

void ShownModel::selection_changed() {
    records_.clear();
    drawing.set_selection(selection_, mesh());
    ++revision_;
    if (on_selection) on_selection();
}

std::string ShownModel::selection_records() {
    if (records_.empty()) records_ = selection_.records(store.model->sets, given_names_);
    return records_;
}

}  // namespace kestralum
