#include <algorithm>
#include <iterator>
#include <optional>

#include "model/mesh_sets.h"
#include "view/gl/scene_drawing.h"
#include "view/gl/visible_points.h"

// Symbols and texts of the picture: made when what they are made from changes, and only while they are shown.

namespace kestralum::view::gl {

namespace {

constexpr double axes_share = 0.2;  // of max_length

std::vector<double> arrow_places(const Picture& picture, const SceneTables& tables) {
    if (!has_shapes(tables.ana_type()) && picture.deformed()) {
        std::vector<double> places;
        picture.place(tables, 0, places);
        return places;
    }
    return tables.mesh().coordinates;  // a swinging mode leaves its loads behind
}

// A wall without bounds reaches to where the model has got.
Scene box_with(Scene scene, std::span<const double> places) {
    for (std::size_t k = 0; k < places.size(); ++k) {
        if (!std::isfinite(places[k])) continue;
        scene.size_info[k % 3] = std::min(scene.size_info[k % 3], places[k]);
        scene.size_info[3 + k % 3] = std::max(scene.size_info[3 + k % 3], places[k]);
    }
    for (std::size_t c = 0; c < 3; ++c)
        scene.max_length = std::max(scene.max_length, scene.size_info[3 + c] - scene.size_info[c]);
    return scene;
}

// The model's axes are part of its picture where they begin in it or beside it.
bool near_origin(const Scene& scene) {
    const double beside = 0.1 * extent_of(scene.max_length);
    for (std::size_t k = 0; k < 3; ++k)
        if (scene.size_info[k] > beside || scene.size_info[3 + k] < -beside) return false;
    return true;
}

// What acts in the frame that is shown.
ActingCases acting(const Picture& picture, const SceneTables& tables) {
    return {tables.model, picture.frame_name()};
}

// Of the frame that is shown; none before an explicit run.
std::optional<double> explicit_time(const SceneTables& tables, const DisplayState& state) {
    if (tables.ana_type() != AnalysisType::explicit_dynamics || !state.result_ready) return std::nullopt;
    return frame_time(tables.frames(), tables.model.control, state.frame);
}

ConditionTables conditions_at(const Picture& picture, const SceneTables& tables,
                              std::span<const double> places, std::optional<double> time) {
    return {tables.model,
            tables.mesh(),
            tables.support_holds,
            tables.support_springs,
            places,
            acting(picture, tables),
            time};
}

// Loads, and velocities where the run is one that has them or may become one.
ConditionSymbols acting_symbols(const ConditionTables& conditions, const SceneTables& tables) {
    ConditionSymbols out = load_symbols(conditions);
    if (tables.run && tables.ana_type() != AnalysisType::explicit_dynamics) return out;
    ConditionSymbols velocities = velocity_symbols(conditions);
    std::ranges::move(velocities.solids, std::back_inserter(out.solids));
    std::ranges::move(velocities.labels, std::back_inserter(out.labels));
    return out;
}

ForceSymbols forces_at(const Picture& picture, const SceneTables& tables, std::span<const double> places) {
    const ActingCases acts = acting(picture, tables);
    std::vector<AppliedForce> forces;
    std::vector<std::int32_t> nodes;
    for (std::size_t f = 0; f < tables.model.forces.size(); ++f) {
        if (!acts(tables.model.forces[f].options.case_name)) continue;
        forces.push_back(tables.model.forces[f]);
        nodes.push_back(f < tables.force_node.size() ? tables.force_node[f] : 0);
    }
    return force_symbols(tables.mesh(), forces, nodes, places);
}

RigidSymbols rigid_at(const Picture& picture, const SceneTables& tables, int phase) {
    const std::vector<RigidForce> forces = acting(picture, tables).of(tables.model.rigid_forces);
    return rigid_symbols(
        {tables.mesh(), tables.model.rigid_elements, tables.rigid_holds, forces, tables.model.rigid_combines},
        {picture.vector(), picture.swing(phase), has_steps(tables.ana_type())});
}

// The parts as read are the first ones of the parts, in their order.
std::vector<Part> visible_parts(const std::vector<Part>& parts_o, const PartLooks& looks) {
    std::vector<Part> out;
    for (std::size_t p = 0; p < parts_o.size(); ++p)
        if (look_of(looks, static_cast<std::int32_t>(p)).visible) out.push_back(parts_o[p]);
    return out;
}

}  // namespace

ContourBar shown_bar(const Picture& picture, const DisplayState& state, AnalysisType ana_type) {
    if (!picture.contour() || !state.shows(ViewFlag::contour_bar)) return {};
    return contour_bar(state.shown_contour(), ana_type, *picture.range(),
                       {state.scale, state.units, picture.color_ends(state.scale)});
}

std::vector<double> extent_points(const Picture& picture, const SceneTables& tables,
                                  const DisplayState& state) {
    std::vector<double> points, places;
    auto add_mesh = [&](int phase) {
        picture.place(tables, phase, places);
        for (const std::int32_t n : picture.whole().nodes)
            points.insert(points.end(), &places[3 * n], &places[3 * n] + 3);
    };
    auto add_rigid = [&](int phase) {
        if (!state.shows(ViewFlag::rigid_element)) return;
        const RigidSymbols rigid = rigid_at(picture, tables, phase);
        for (const Line& line : rigid.lines) points.insert(points.end(), line.from.begin(), line.from.end());
        for (const TurnArrow& turn : rigid.turns)
            for (const Vec3& r : {turn.u, turn.v, times(-1, turn.u), times(-1, turn.v)}) {
                const Vec3 rim = plus(turn.centre, r);
                points.insert(points.end(), rim.begin(), rim.end());
            }
        for (const Arrow& arrow : rigid.arrows)
            for (const Vec3& end : {arrow.tail, arrow.tip})
                points.insert(points.end(), end.begin(), end.end());
    };
    add_mesh(0);
    add_rigid(0);
    if (has_shapes(tables.ana_type()) && picture.deformed()) {
        add_mesh(phase_count / 2);
        add_rigid(phase_count / 2);
    }
    const auto add_arrows = [&](const std::vector<Arrow>& arrows) {
        for (const Arrow& arrow : arrows)
            for (const Vec3& end : {arrow.tail, arrow.tip})
                points.insert(points.end(), end.begin(), end.end());
    };
    const auto add_conditions = [&](const ConditionSymbols& symbols) {
        for (const Solids& solids : symbols.solids) add_arrows(solids.arrows);
        for (const Line& line : symbols.through)
            for (const Vec3& end : {line.from, line.to}) points.insert(points.end(), end.begin(), end.end());
    };
    const std::vector<double> loaded = arrow_places(picture, tables);
    if (state.shows(ViewFlag::force)) {
        add_arrows(forces_at(picture, tables, loaded).arrows);
        add_conditions(
            acting_symbols(conditions_at(picture, tables, loaded, explicit_time(tables, state)), tables));
    }
    if (state.shows(ViewFlag::bc))
        add_conditions(support_symbols(conditions_at(picture, tables, loaded, std::nullopt)));
    if (state.shows(ViewFlag::axes) && !points.empty() && near_origin(tables.box()))
        for (const Line& line : axes(axes_share * extent_of(tables.mesh().max_length)))
            points.insert(points.end(), line.to.begin(), line.to.end());
    if (state.shows(ViewFlag::dimension))
        for (const Line& line : dimensions(tables.box()).lines)
            for (const Vec3& end : {line.from, line.to}) points.insert(points.end(), end.begin(), end.end());
    if (points.empty()) points.assign(tables.mesh().coordinates.begin(), tables.mesh().coordinates.end());
    return points;
}

void SceneDrawing::update_symbols(const SceneTables& tables, const DisplayState& state) {
    const MeshKey key{picture_.mesh_revision(), picture_.whole_revision()};
    if (symbols_of_ == key) return;
    symbols_of_ = key;
    const std::vector<Part> parts_o = visible_parts(tables.model.parts_o, state.part_looks);
    const double L = extent_of(tables.mesh().max_length);
    auto send = [](Buffer& buffer, const std::vector<Line>& lines) {
        buffer.send(GL_ARRAY_BUFFER, line_vertices(lines));
    };
    send(axes_, axes(axes_share * L));
    send(part_axes_, part_axes(parts_o, axes_share * L));
    send(features_, feature_outlines(parts_o));
    const Markers sizes = dimensions(tables.box());
    send(dimension_lines_, sizes.lines);
    dimension_labels_ = sizes.labels;
    part_labels_ = part_labels(tables.mesh(), tables.model.parts, picture_.whole(), state.part_looks);
}

// Supports do not move; those of nodes that a section hides are hidden too.
void SceneDrawing::update_cones(const SceneTables& tables, const DisplayState& state) {
    const ConesKey key{picture_.mesh_revision(), state.sections};
    if (cones_of_ == key) return;
    cones_of_ = key;
    std::vector<std::int32_t> nodes;
    for (const std::int32_t n : tables.fixed_nodes)
        if (n >= 0 && n < tables.mesh().node_num() && !state.hides(place_of(tables.mesh(), n)))
            nodes.push_back(n);
    std::vector<LitVertex> cones;
    for (const Cone& cone : support_cones(tables.mesh(), nodes, tables.mesh().coordinates))
        add_cone(cones, cone);
    cones_.send(GL_ARRAY_BUFFER, cones);
}

SceneDrawing::PlacesKey SceneDrawing::places_key(const SceneTables& tables) const {
    const bool follow = !has_shapes(tables.ana_type());  // a swinging mode leaves them behind
    return {picture_.mesh_revision(), follow ? picture_.places_revision() : 0, picture_.frame_name(), 0};
}

void SceneDrawing::update_loads(const SceneTables& tables, const DisplayState& state) {
    const PlacesKey key = places_key(tables);
    PlacesKey timed = key;  // what follows the time as well
    const auto time = explicit_time(tables, state);
    const ExplicitTables& records = tables.model.explicit_tables;
    if (!records.initial_velocities.empty() || !records.velocity_inputs.empty())
        timed.time = time.value_or(-1);
    const bool forces = state.shows(ViewFlag::force) && forces_of_ != timed,
               supports = state.shows(ViewFlag::bc) && supports_of_ != key;
    if (!forces && !supports) return;
    const std::vector<double> places = arrow_places(picture_, tables);
    if (forces) {
        forces_of_ = timed;
        std::vector<Line> shafts;
        std::vector<LitVertex> heads;
        const ForceSymbols symbols = forces_at(picture_, tables, places);
        for (const Arrow& arrow : symbols.arrows) add_arrow(arrow, force_color, shafts, heads);
        force_labels_ = symbols.labels;
        arrow_shafts_.send(GL_ARRAY_BUFFER, line_vertices(shafts));
        arrow_heads_.send(GL_ARRAY_BUFFER, heads);
        loads_.send(acting_symbols(conditions_at(picture_, tables, places, time), tables));
    }
    if (!supports) return;
    supports_of_ = key;
    supports_.send(support_symbols(conditions_at(picture_, tables, places, std::nullopt)));
}

void SceneDrawing::update_walls(const SceneTables& tables, const DisplayState& state) {
    if (!state.shows(ViewFlag::rigid_wall)) return;
    PlacesKey key = places_key(tables);
    if (tables.ana_type() == AnalysisType::explicit_dynamics && state.result_ready)
        key.time = frame_time(tables.frames(), tables.model.control, state.frame);
    if (walls_of_ == key) return;
    walls_of_ = key;
    const auto& records = tables.model.explicit_tables.walls;
    Markers walls;
    if (!records.empty())
        walls = wall_markers(records, tables.model.parameters, key.time,
                             box_with(tables.box(), arrow_places(picture_, tables)));
    wall_lines_.send(GL_ARRAY_BUFFER, line_vertices(walls.lines));
    wall_labels_ = walls.labels;
}

// Boxes that follow the parts.
void SceneDrawing::update_contacts(const SceneTables& tables, const DisplayState& state) {
    const PlacesKey key = places_key(tables);
    if (!state.shows(ViewFlag::element_contact) || contacts_of_ == key) return;
    contacts_of_ = key;
    const Markers contacts =
        contact_markers(tables.mesh(), tables.model.parts, tables.model.explicit_tables.contacts,
                        arrow_places(picture_, tables));
    contact_lines_.send(GL_ARRAY_BUFFER, line_vertices(contacts.lines));
    contact_labels_ = contacts.labels;
}

// They swing with a mode; nothing is sent while they are not shown.
void SceneDrawing::update_rigid(const SceneTables& tables, const DisplayState& state) {
    if (!state.shows(ViewFlag::rigid_element)) return;
    const RigidKey key{picture_.mesh_revision(), picture_.shape_revision(), picture_.swing(state.phase)};
    if (key == rigid_of_) return;
    rigid_of_ = key;
    RigidSymbols rigid = rigid_at(picture_, tables, state.phase);
    std::vector<LitVertex> heads;
    for (const Arrow& arrow : rigid.arrows) add_arrow(arrow, force_color, rigid.lines, heads);
    for (const TurnArrow& turn : rigid.turns) add_turn(turn, force_color, rigid.lines, heads);
    std::vector<ColorVertex> members;
    for (const Vec3& place : rigid.members) members.push_back(color_vertex(place, {0.6f, 0, 0.6f, 1}));
    rigid_.send(GL_ARRAY_BUFFER, line_vertices(rigid.lines));
    rigid_members_.send(GL_ARRAY_BUFFER, members);
    rigid_heads_.send(GL_ARRAY_BUFFER, heads);
    rigid_labels_ = std::move(rigid.labels);
}

OverlayTexts SceneDrawing::texts(const SceneTables& tables, const DisplayState& state) const {
    OverlayTexts out;
    if (state.shows(ViewFlag::text) && state.result_ready) {
        out.legend = legend_text(tables.ana_type(), state.shown_contour(), tables.frames(),
                                 tables.model.control, state.frame);
        if (picture_.deformed()) out.scale = scale_text(picture_.factor());
    }
    if (!title_.empty()) out.lines.push_back(title_);
    if (state.shows(ViewFlag::fem_information) && tables.mesh().element_num() > 0)
        for (const std::string& line : fem_information(tables.mesh(), tables.model.parts.size()))
            out.lines.push_back(line);
    if (pick_ && state.shows(ViewFlag::text)) out.lines.push_back(pick_text(*pick_));
    if (state.shows(ViewFlag::text))
        out.lines.insert(out.lines.end(), selection_text_.begin(), selection_text_.end());
    if (!results_.text().empty()) out.lines.push_back(results_.text());
    if (state.shows(ViewFlag::text) && state.result_ready && !picture_.contour() &&
        quantity_text(state.shown_contour())[0] != '\0')
        out.lines.push_back(std::string("No values: ") + quantity_text(state.shown_contour()));
    if (picture_.trimmed() && picture_.outside().triangle_num() == 0)
        out.lines.push_back("Sections and thresholds leave nothing of the body");
    out.bar = shown_bar(picture_, state, tables.ana_type());
    if (tables.minus && !out.bar.title.empty()) out.bar.title = "Difference: " + out.bar.title;
    out.triad = state.shows(ViewFlag::axes);
    return out;
}

// A label's place is looked for in what the scene has left in the depth buffer.
void SceneDrawing::add_labels(OverlayTexts& out, const SceneTables& tables, const DisplayState& state,
                              const Camera& camera) const {
    if (state.shows(ViewFlag::part_name)) add_part_labels(out, tables, state, camera);
    std::vector<Label> labels = results_.labels();
    auto add = [&](ViewFlag flag, const std::vector<Label>& more) {
        if (state.shows(flag)) labels.insert(labels.end(), more.begin(), more.end());
    };
    add(ViewFlag::rigid_element, rigid_labels_);
    add(ViewFlag::rigid_wall, wall_labels_);
    add(ViewFlag::element_contact, contact_labels_);
    add(ViewFlag::dimension, dimension_labels_);
    add(ViewFlag::force, force_labels_);
    add(ViewFlag::force, loads_.labels());
    add(ViewFlag::bc, supports_.labels());
    for (const std::string& name : state.highlight.sets)
        if (const MeshSet* set = find_set(tables.mesh(), name); set && !set->nodes.empty())
            labels.push_back({middle_of(*set, tables, state), name});
    std::vector<Vec3> places;
    for (const Label& label : labels) places.push_back(label.at);
    const std::vector<char> visible = visible_points(places, camera, tables.box());
    for (std::size_t k = 0; k < labels.size(); ++k)
        (visible[k] ? out.labels : out.dim_labels).push_back(labels[k]);
}

Vec3 SceneDrawing::drawn_at(std::int32_t node, const SceneTables& tables, const DisplayState& state) const {
    const Vec3 at = triple(tables.mesh().coordinates, node);
    if (!picture_.deformed()) return at;
    return plus(at, times(picture_.swing(state.phase), triple(picture_.vector(), node)));
}

// At the node that is nearest to the mean of all, as drawn.
Vec3 SceneDrawing::middle_of(const MeshSet& set, const SceneTables& tables, const DisplayState& state) const {
    const std::vector<double>& x = tables.mesh().coordinates;
    Vec3 sum{};
    for (const std::int32_t n : set.nodes) sum = plus(sum, triple(x, n));
    const Vec3 mean = times(1.0 / static_cast<double>(set.nodes.size()), sum);
    const auto away = [&](std::int32_t n) { return norm(minus(triple(x, n), mean)); };
    return drawn_at(*std::ranges::min_element(set.nodes, {}, away), tables, state);
}

// A part that nothing is seen of has no name in the picture.
void SceneDrawing::add_part_labels(OverlayTexts& out, const SceneTables& tables, const DisplayState& state,
                                   const Camera& camera) const {
    std::vector<Vec3> places;
    const auto place = [&](std::int32_t n) { return drawn_at(n, tables, state); };
    for (const PartLabel& label : part_labels_) {
        if (label.triangles.empty()) places.push_back(label.place);
        for (const auto& [a, b, c] : label.triangles)
            places.push_back(times(1.0 / 3, plus(place(a), plus(place(b), place(c)))));
    }
    const Scene scene = tables.box();
    const std::vector<char> visible = visible_points(places, camera, scene);
    std::size_t first = 0;
    for (const PartLabel& label : part_labels_) {
        const std::size_t count = std::max<std::size_t>(label.triangles.size(), 1);
        const auto of_part = std::span(places).subspan(first, count);
        const auto at = middle_in_sight(camera, scene, of_part, std::span(visible).subspan(first, count));
        if (at >= 0) out.labels.push_back({of_part[at], label.text});
        first += count;
    }
}

}  // namespace kestralum::view::gl
