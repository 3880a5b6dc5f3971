#include "view/gl/scene_drawing.h"

#include <GL/glu.h>

#include <algorithm>

namespace kestralum::view::gl {

namespace {

constexpr Color cone_color{0.55f, 0.35f, 0.1f, 1}, arrow_color{0.85f, 0.1f, 0.1f, 1};
constexpr Color selection_color{1, 0.1f, 0.75f, 0.75f}, stripe_color{1, 1, 1, 0.75f};
constexpr double axes_share = 0.2;  // of max_length

// A quarter of the pixels, as glPolygonStipple takes them: 32 rows of 32 bits.
std::array<GLubyte, 128> diagonal_stripes() {
    std::array<GLubyte, 128> rows{};
    for (std::size_t y = 0; y < 32; ++y)
        for (std::size_t x = 0; x < 32; ++x)
            if ((x + y) % 8 < 2) rows[4 * y + x / 8] |= static_cast<GLubyte>(0x80u >> x % 8);
    return rows;
}

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

ConditionTables conditions_at(const Picture& picture, const SceneTables& tables,
                              std::span<const double> places) {
    return {tables.model,           tables.mesh(), tables.support_holds,
            tables.support_springs, places,        acting(picture, tables)};
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

// Dense meshes fade: edges closer than a few pixels would blacken the faces.
float fading(double pixels_per_edge) {
    const double covered = pixels_per_edge < 8 ? pixels_per_edge / 8 : 1;
    return static_cast<float>(std::clamp(pixels_per_edge / 16 * covered, 0.03, 0.6));
}

double pixels_per_length(const Camera& camera, const Scene& scene) {
    const double away = std::max(distance(camera, scene), 0.01 * extent_of(scene.max_length));
    return 0.5 * camera.height / (tangent() * away);
}

}  // namespace

ContourBar shown_bar(const Picture& picture, const DisplayState& state, AnalysisType ana_type) {
    if (!picture.contour() || !state.shows(ViewFlag::contour_bar)) return {};
    return contour_bar(state.shown_contour(), ana_type, *picture.range());
}

std::vector<double> extent_points(const Picture& picture, const SceneTables& tables,
                                  const DisplayState& state) {
    std::vector<double> points, places;
    auto add_mesh = [&](int phase) {
        picture.place(tables, phase, places);
        for (const std::int32_t n : picture.outside().nodes)
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
        add_conditions(load_symbols(conditions_at(picture, tables, loaded)));
    }
    if (state.shows(ViewFlag::bc)) add_conditions(support_symbols(conditions_at(picture, tables, loaded)));
    if (state.shows(ViewFlag::axes) && !points.empty() && near_origin(tables.box()))
        for (const Line& line : axes(axes_share * extent_of(tables.mesh().max_length)))
            points.insert(points.end(), line.to.begin(), line.to.end());
    if (state.shows(ViewFlag::dimension))
        for (const Line& line : dimensions(tables.box()).lines)
            for (const Vec3& end : {line.from, line.to}) points.insert(points.end(), end.begin(), end.end());
    if (points.empty()) points.assign(tables.mesh().coordinates.begin(), tables.mesh().coordinates.end());
    return points;
}

void SceneDrawing::draw(const SceneTables& tables, const DisplayState& state, const Camera& camera,
                        TextPainter& painter) {
    picture_.update(tables, state);
    mesh_.update(picture_, tables, state);
    update_symbols(tables);
    update_loads(tables, state);
    update_contacts(tables, state);
    update_rigid(tables, state);
    const Scene scene = tables.box();
    set_state(state, camera, scene);
    // opaque symbols first, so that they shine through a translucent model
    draw_symbols(state, picture_.edge_length() * pixels_per_length(camera, scene));
    draw_mesh(tables, state, camera);
    draw_hidden_lines(state);
    draw_overlay(texts(tables, state), camera, scene, painter);
}

void SceneDrawing::set_state(const DisplayState& state, const Camera& camera, const Scene& scene) const {
    glViewport(0, 0, camera.width, camera.height);
    glClearColor(0.9f, 0.9f, 0.9f, 1);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDisable(GL_SCISSOR_TEST);
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_CULL_FACE);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_MULTISAMPLE);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LEQUAL);
    glEnable(GL_ALPHA_TEST);
    glAlphaFunc(GL_GREATER, 0);
    glEnable(GL_BLEND);
    // the picture's own alpha stays 1: a grab must not come out translucent
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glShadeModel(GL_SMOOTH);
    glEnable(GL_NORMALIZE);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);

    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(projection(camera, scene).data());
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    // a fainter light from the viewer: no side of the model is ever black
    const float viewer[4] = {0, 0, 1, 0}, dim[4] = {0.3f, 0.3f, 0.3f, 1}, none[4] = {0, 0, 0, 1};
    glLightfv(GL_LIGHT1, GL_POSITION, viewer);
    glLightfv(GL_LIGHT1, GL_DIFFUSE, dim);
    glLightfv(GL_LIGHT1, GL_SPECULAR, none);
    glLightfv(GL_LIGHT1, GL_AMBIENT, none);
    glEnable(GL_LIGHT1);
    glLoadMatrixd(model_view(camera, scene).data());
    const auto [x, y, z] = to_float(state.light);
    const float main[4] = {x, y, z, 1};
    const float diffuse[4] = {0.7f, 0.7f, 0.7f, 1}, specular[4] = {1, 1, 1, 1},
                ambient[4] = {0.5f, 0.5f, 0.5f, 1};
    glLightfv(GL_LIGHT0, GL_POSITION, main);
    glLightfv(GL_LIGHT0, GL_DIFFUSE, diffuse);
    glLightfv(GL_LIGHT0, GL_SPECULAR, specular);
    glLightfv(GL_LIGHT0, GL_AMBIENT, ambient);
    glEnable(GL_LIGHT0);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 1);
}

// Stripes of two colours: one of them stands out from whatever colour the faces have, and lines stay seen.
void SceneDrawing::draw_selection() const {
    glPolygonOffset(0.5f, 0.5f);  // before the faces, behind the lines on them
    glColor4fv(selection_color.data());
    mesh_.draw_marked_faces();
    glEnable(GL_POLYGON_STIPPLE);
    glPolygonStipple(diagonal_stripes().data());
    glColor4fv(stripe_color.data());
    mesh_.draw_marked_faces();
    glDisable(GL_POLYGON_STIPPLE);
}

void SceneDrawing::draw_mesh(const SceneTables& tables, const DisplayState& state,
                             const Camera& camera) const {
    const Scene scene = tables.box();
    const Vec3 centre = scene.centre();
    glPushMatrix();
    glTranslated(centre[0], centre[1], centre[2]);
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(1, 1);
    if (state.shows(ViewFlag::fem)) {
        // opaque faces need neither test nor blending, and both cost where the processor draws
        glDisable(GL_BLEND);
        glDisable(GL_ALPHA_TEST);
        glEnable(GL_LIGHTING);
        mesh_.draw_lit_faces(tables.model.parts);
        glDisable(GL_LIGHTING);
        if (picture_.translucent()) {
            glEnable(GL_BLEND);
            glDepthMask(GL_FALSE);
        }
        mesh_.draw_contour_faces();
        glDepthMask(GL_TRUE);
        glEnable(GL_BLEND);
        glEnable(GL_ALPHA_TEST);
    }
    draw_selection();
    glDisable(GL_POLYGON_OFFSET_FILL);
    glDisable(GL_LIGHTING);
    const double pixels = picture_.edge_length() * pixels_per_length(camera, scene);
    if (state.shows(ViewFlag::wire)) {
        glLineWidth(1);
        glColor4f(0.05f, 0.05f, 0.05f, fading(pixels));
        mesh_.draw_edges();
    }
    if (state.shows(ViewFlag::shape)) {
        glLineWidth(1.5f);
        glColor4f(0, 0, 0, 0.9f);
        mesh_.draw_outline();
    }
    if (state.shows(ViewFlag::node)) {
        glPointSize(pixels < 6 ? 1.0f : pixels < 14 ? 2.0f : 3.0f);
        glColor4f(0, 0, 0, std::min(1.0f, 1.5f * fading(pixels)));
        mesh_.draw_nodes();
        glPointSize(1);
    }
    glPopMatrix();
    if (const auto at = picked_place(tables, state)) {
        glDisable(GL_DEPTH_TEST);
        glPointSize(9);
        glColor4f(1, 0, 1, 1);
        glBegin(GL_POINTS);
        glVertex3dv(at->data());
        glEnd();
        glPointSize(1);
        glEnable(GL_DEPTH_TEST);
    }
}

void SceneDrawing::draw_symbols(const DisplayState& state, double pixels) const {
    glDisable(GL_LIGHTING);
    glLineWidth(2);
    if (state.shows(ViewFlag::axes)) draw_lines(axes_);
    if (state.shows(ViewFlag::part_axes)) draw_lines(part_axes_);
    if (state.shows(ViewFlag::shape)) draw_lines(features_);
    if (state.shows(ViewFlag::rigid_element)) {
        draw_lines(rigid_);
        glPointSize(pixels < 8 ? 3 : 5);
        draw_points(rigid_members_);
        glPointSize(1);
    }
    if (state.shows(ViewFlag::rigid_wall)) draw_lines(wall_lines_);
    if (state.shows(ViewFlag::element_contact)) draw_lines(contact_lines_);
    if (state.shows(ViewFlag::dimension)) draw_lines(dimension_lines_);
    if (state.shows(ViewFlag::force)) draw_lines(arrow_shafts_);
    if (state.shows(ViewFlag::force)) loads_.draw_lines();
    if (state.shows(ViewFlag::bc)) supports_.draw_lines();
    glLineWidth(1);
    glEnable(GL_LIGHTING);
    if (state.shows(ViewFlag::bc) && cones_.count() > 0) {
        set_material(cone_color);
        draw_lit(cones_, 0, cones_.count());
    }
    if (state.shows(ViewFlag::force) && arrow_heads_.count() > 0) {
        set_material(arrow_color);
        draw_lit(arrow_heads_, 0, arrow_heads_.count());
    }
    if (state.shows(ViewFlag::rigid_element) && rigid_heads_.count() > 0) {
        set_material(arrow_color);
        draw_lit(rigid_heads_, 0, rigid_heads_.count());
    }
    if (state.shows(ViewFlag::force)) loads_.draw_solids();
    if (state.shows(ViewFlag::bc)) supports_.draw_solids();
    glDisable(GL_LIGHTING);
}

// What of axes and rigid elements lies inside or behind the model shines through it.
void SceneDrawing::draw_hidden_lines(const DisplayState& state) const {
    glDepthFunc(GL_GREATER);
    glDepthMask(GL_FALSE);
    glLineWidth(2);
    glEnable(GL_LINE_STIPPLE);
    glLineStipple(2, 0x5555);
    if (state.shows(ViewFlag::axes)) draw_lines(axes_);
    if (state.shows(ViewFlag::part_axes)) draw_lines(part_axes_);
    if (state.shows(ViewFlag::rigid_element)) draw_lines(rigid_);
    if (state.shows(ViewFlag::force)) loads_.draw_through();
    if (state.shows(ViewFlag::bc)) supports_.draw_through();
    glDisable(GL_LINE_STIPPLE);
    glLineWidth(1);
    glDepthMask(GL_TRUE);
    glDepthFunc(GL_LEQUAL);
}

void SceneDrawing::update_symbols(const SceneTables& tables) {
    if (symbols_of_ == picture_.mesh_revision()) return;
    symbols_of_ = picture_.mesh_revision();
    const double L = extent_of(tables.mesh().max_length);
    auto send = [](Buffer& buffer, const std::vector<Line>& lines) {
        buffer.send(GL_ARRAY_BUFFER, line_vertices(lines));
    };
    send(axes_, axes(axes_share * L));
    send(part_axes_, part_axes(tables.model.parts_o, axes_share * L));
    send(features_, feature_outlines(tables.model.parts_o));
    const Markers sizes = dimensions(tables.box());
    send(dimension_lines_, sizes.lines);
    dimension_labels_ = sizes.labels;
    part_labels_ = part_names(tables.mesh(), tables.model.parts, tables.mesh().coordinates);
    std::vector<LitVertex> cones;  // supports do not move
    for (const Cone& cone : support_cones(tables.mesh(), tables.fixed_nodes, tables.mesh().coordinates))
        add_cone(cones, cone);
    cones_.send(GL_ARRAY_BUFFER, cones);
}

void SceneDrawing::update_loads(const SceneTables& tables, const DisplayState& state) {
    if (loads_of_mesh_ == picture_.mesh_revision() && loads_of_shape_ == picture_.shape_revision()) return;
    loads_of_mesh_ = picture_.mesh_revision();
    loads_of_shape_ = picture_.shape_revision();
    std::vector<Line> shafts;
    std::vector<LitVertex> heads;
    force_labels_.clear();
    auto add = [&](const ForceSymbols& symbols) {
        for (const Arrow& arrow : symbols.arrows) add_arrow(arrow, arrow_color, shafts, heads);
        force_labels_.insert(force_labels_.end(), symbols.labels.begin(), symbols.labels.end());
    };
    const std::vector<double> places = arrow_places(picture_, tables);
    add(forces_at(picture_, tables, places));
    const bool moves = tables.ana_type() == AnalysisType::explicit_dynamics && state.result_ready;
    const double time = moves ? frame_time(tables.frames(), tables.model.control, state.frame) : 0;
    const Markers walls = wall_markers(tables.model.explicit_tables.walls, tables.model.parameters, time,
                                       box_with(tables.box(), places));
    wall_lines_.send(GL_ARRAY_BUFFER, line_vertices(walls.lines));
    wall_labels_ = walls.labels;
    arrow_shafts_.send(GL_ARRAY_BUFFER, line_vertices(shafts));
    arrow_heads_.send(GL_ARRAY_BUFFER, heads);
    loads_.send(load_symbols(conditions_at(picture_, tables, places)));
    supports_.send(support_symbols(conditions_at(picture_, tables, places)));
}

// Boxes that follow the parts; nothing is sent while they are not shown.
void SceneDrawing::update_contacts(const SceneTables& tables, const DisplayState& state) {
    const auto now = std::pair(picture_.mesh_revision(), picture_.shape_revision());
    if (!state.shows(ViewFlag::element_contact) || contacts_of_ == now) return;
    contacts_of_ = now;
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
    for (const Arrow& arrow : rigid.arrows) add_arrow(arrow, arrow_color, rigid.lines, heads);
    for (const TurnArrow& turn : rigid.turns) add_turn(turn, arrow_color, rigid.lines, heads);
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
    if (state.shows(ViewFlag::fem_information) && tables.mesh().element_num() > 0)
        out.lines = fem_information(tables.mesh(), tables.model.parts.size());
    if (pick_ && state.shows(ViewFlag::text)) out.lines.push_back(pick_text(*pick_));
    if (state.shows(ViewFlag::text))
        out.lines.insert(out.lines.end(), selection_text_.begin(), selection_text_.end());
    auto add = [&](ViewFlag flag, const std::vector<Label>& labels) {
        if (state.shows(flag)) out.labels.insert(out.labels.end(), labels.begin(), labels.end());
    };
    add(ViewFlag::part_name, part_labels_);
    add(ViewFlag::rigid_element, rigid_labels_);
    add(ViewFlag::rigid_wall, wall_labels_);
    add(ViewFlag::element_contact, contact_labels_);
    add(ViewFlag::dimension, dimension_labels_);
    add(ViewFlag::force, force_labels_);
    add(ViewFlag::force, loads_.labels());
    add(ViewFlag::bc, supports_.labels());
    out.bar = shown_bar(picture_, state, tables.ana_type());
    return out;
}

std::optional<Vec3> SceneDrawing::picked_place(const SceneTables& tables, const DisplayState& state) const {
    if (!pick_ || pick_->node < 1 || pick_->node > tables.mesh().node_num()) return std::nullopt;
    const std::int64_t n = node_index(pick_->node);
    Vec3 place = triple(tables.mesh().coordinates, n);
    if (picture_.deformed())
        place = plus(place, times(picture_.swing(state.phase), triple(picture_.vector(), n)));
    return place;
}

std::vector<Buffer*> SceneDrawing::buffers() {
    std::vector<Buffer*> all{&axes_,          &part_axes_,   &features_,        &rigid_,
                             &rigid_members_, &rigid_heads_, &dimension_lines_, &cones_,
                             &arrow_shafts_,  &arrow_heads_, &wall_lines_,      &contact_lines_};
    for (ConditionDrawing* conditions : {&loads_, &supports_})
        for (Buffer* buffer : conditions->buffers()) all.push_back(buffer);
    return all;
}

std::int64_t SceneDrawing::bytes_sent() {
    std::int64_t bytes = mesh_.bytes_sent();
    for (const Buffer* buffer : buffers()) bytes += buffer->bytes_sent();
    return bytes;
}

void SceneDrawing::release(bool context_alive) {
    mesh_.release(context_alive);
    for (Buffer* buffer : buffers()) buffer->release(context_alive);
    symbols_of_ = loads_of_mesh_ = loads_of_shape_ = 0;
    rigid_of_ = {};
}

}  // namespace kestralum::view::gl
