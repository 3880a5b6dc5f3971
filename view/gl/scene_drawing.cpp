#include "view/gl/scene_drawing.h"

#include <GL/glu.h>

#include <algorithm>
#include <cmath>

#include "view/lighting.h"

namespace kestralum::view::gl {

namespace {

constexpr Color cone_color{0.55f, 0.35f, 0.1f, 1};
constexpr Color selection_color{1, 0.1f, 0.75f, 0.75f}, stripe_color{1, 1, 1, 0.75f};

// A quarter of the pixels, as glPolygonStipple takes them: 32 rows of 32 bits.
std::array<GLubyte, 128> diagonal_stripes() {
    std::array<GLubyte, 128> rows{};
    for (std::size_t y = 0; y < 32; ++y)
        for (std::size_t x = 0; x < 32; ++x)
            if ((x + y) % 8 < 2) rows[4 * y + x / 8] |= static_cast<GLubyte>(0x80u >> x % 8);
    return rows;
}

// Dense meshes fade: edges closer than a few pixels would blacken the faces.
float fading(double pixels_per_edge) {
    const double covered = pixels_per_edge < 8 ? pixels_per_edge / 8 : 1;
    return static_cast<float>(std::clamp(pixels_per_edge / 16 * covered, 0.03, 0.6));
}

double pixels_per_length(const Camera& camera, const Scene& scene) {
    const double away = std::max(plane_distance(camera, scene), 0.01 * extent_of(scene.max_length));
    return 0.5 * camera.height / (tangent() * away);
}

void set_lights(const Vec3& main_light, const Scene& scene) {
    const auto set = [](GLenum name, const std::array<float, 4>& place, double diffuse, double specular,
                        double ambient) {
        const auto grey = [](double share) {
            const auto f = static_cast<float>(share);
            return std::array<float, 4>{f, f, f, 1};
        };
        glLightfv(name, GL_POSITION, place.data());
        glLightfv(name, GL_DIFFUSE, grey(diffuse).data());
        glLightfv(name, GL_SPECULAR, grey(specular).data());
        glLightfv(name, GL_AMBIENT, grey(ambient).data());
        glEnable(name);
    };
    const auto at = [](const Vec3& v, float w) {
        const auto [x, y, z] = to_float(v);
        return std::array<float, 4>{x, y, z, w};
    };
    constexpr double of_scene = 0.2;  // ambient light of the scene itself
    set(GL_LIGHT0, at(main_light, 1), main_diffuse, 1, 2 * ambient_share - of_scene);
    const auto lamps = fill_lights(scene);
    for (std::size_t k = 0; k < lamps.size(); ++k)
        set(static_cast<GLenum>(GL_LIGHT1 + k), at(unit(lamps[k]), 0), norm(lamps[k]), 0, 0);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 1);
}

}  // namespace

void SceneDrawing::draw(const SceneTables& tables, const DisplayState& state, const Camera& camera,
                        TextPainter& painter) {
    picture_.update(tables, state);
    mesh_.update(picture_, tables, state);
    highlight_.update(picture_, tables, state);
    results_.update(picture_, tables, state);
    update_symbols(tables, state);
    update_cones(tables, state);
    update_loads(tables, state);
    update_walls(tables, state);
    update_contacts(tables, state);
    update_rigid(tables, state);
    const Scene scene = tables.box();
    const double ratio = camera.pixel_ratio;
    set_state(state, camera, scene);
    // opaque symbols first, so that they shine through a translucent model
    draw_symbols(state, picture_.edge_length() * pixels_per_length(camera, scene) / ratio, ratio);
    draw_mesh(tables, state, camera);
    OverlayTexts overlay = texts(tables, state);
    add_labels(overlay, tables, state, camera);
    draw_hidden_lines(state, ratio);
    draw_overlay(overlay, camera, scene, painter);
}

void SceneDrawing::set_state(const DisplayState& state, const Camera& camera, const Scene& scene) const {
    glViewport(camera.left, 0, camera.width, camera.height);
    glClearColor(background_[0], background_[1], background_[2], background_[3]);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glScissor(camera.left, 0, camera.width, camera.height);
    glEnable(GL_SCISSOR_TEST);  // a view beside another clears its own part
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_CULL_FACE);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
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
    glLoadMatrixd(model_view(camera, scene).data());
    set_lights(state.light, scene);
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

void SceneDrawing::draw_faces(const SceneTables& tables, const DisplayState& state) const {
    // opaque faces need neither test nor blending, and both cost where the processor draws
    glDisable(GL_BLEND);
    glDisable(GL_ALPHA_TEST);
    for (const bool clear : {false, true}) {
        if (clear) {
            glEnable(GL_BLEND);
            glDepthMask(GL_FALSE);
        }
        glEnable(GL_LIGHTING);
        mesh_.draw_lit_faces(tables.model.parts, state, clear);
        if (!mesh_.lit_contour()) glDisable(GL_LIGHTING);
        mesh_.draw_contour_faces(state, clear);
        glDisable(GL_LIGHTING);
    }
    glDepthMask(GL_TRUE);
    glEnable(GL_ALPHA_TEST);
}

void SceneDrawing::draw_mesh(const SceneTables& tables, const DisplayState& state,
                             const Camera& camera) const {
    const Scene scene = tables.box();
    const Vec3 centre = scene.centre();
    const double ratio = camera.pixel_ratio;
    const auto width = [&](double pixels) { return static_cast<float>(ratio * pixels); };
    glPushMatrix();
    glTranslated(centre[0], centre[1], centre[2]);
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(1, 1);
    if (state.shows(ViewFlag::fem)) draw_faces(tables, state);
    glDisable(GL_LIGHTING);
    if (state.look.occlusion && state.shows(ViewFlag::fem) && state.transparency >= 1) mesh_.draw_occlusion();
    draw_selection();
    highlight_.draw_faces();
    glDisable(GL_POLYGON_OFFSET_FILL);
    const bool opaque =
        state.transparency >= 1 &&
        std::ranges::all_of(state.part_looks, [](const PartLook& l) { return l.opacity >= 1; });
    if (state.look.silhouettes && opaque && state.shows(ViewFlag::fem)) {
        glLineWidth(width(3));
        glColor4f(0, 0, 0, 1);
        mesh_.draw_silhouettes();
    }
    if (state.look.undeformed && picture_.deformed()) {
        glLineWidth(width(1));
        glColor4f(0.35f, 0.35f, 0.35f, 0.9f);
        mesh_.draw_undeformed();
    }
    const double pixels = picture_.edge_length() * pixels_per_length(camera, scene) / ratio;
    if (state.shows(ViewFlag::wire)) {
        glLineWidth(width(1));
        glColor4f(0.05f, 0.05f, 0.05f, fading(pixels));
        mesh_.draw_edges();
    }
    if (state.shows(ViewFlag::shape)) {
        glLineWidth(width(1.5));
        glColor4f(0, 0, 0, 0.9f);
        mesh_.draw_outline();
    }
    if (state.shows(ViewFlag::node)) {
        glPointSize(width(pixels < 6 ? 1 : pixels < 14 ? 2 : 3));
        glColor4f(0, 0, 0, std::min(1.0f, 1.5f * fading(pixels)));
        mesh_.draw_nodes();
    }
    highlight_.draw_lines(ratio);
    highlight_.draw_marks(ratio);
    glPointSize(1);
    glPopMatrix();
    results_.draw_marks(ratio);
    if (const auto at = picked_place(tables, state)) {
        glDisable(GL_DEPTH_TEST);
        glPointSize(width(9));
        glColor4f(1, 0, 1, 1);
        glBegin(GL_POINTS);
        glVertex3dv(at->data());
        glEnd();
        glPointSize(1);
        glEnable(GL_DEPTH_TEST);
    }
}

void SceneDrawing::draw_symbols(const DisplayState& state, double pixels, double pixel_ratio) const {
    glDisable(GL_LIGHTING);
    glLineWidth(static_cast<float>(2 * pixel_ratio));
    if (state.shows(ViewFlag::axes)) draw_lines(axes_);
    if (state.shows(ViewFlag::part_axes)) draw_lines(part_axes_);
    if (state.shows(ViewFlag::shape)) draw_lines(features_);
    if (state.shows(ViewFlag::rigid_element)) {
        draw_lines(rigid_);
        glPointSize(static_cast<float>(pixel_ratio * (pixels < 8 ? 3 : 5)));
        draw_points(rigid_members_);
        glPointSize(1);
    }
    if (state.shows(ViewFlag::rigid_wall)) draw_lines(wall_lines_);
    if (state.shows(ViewFlag::element_contact)) draw_lines(contact_lines_);
    if (state.shows(ViewFlag::dimension)) draw_lines(dimension_lines_);
    if (state.shows(ViewFlag::force)) draw_lines(arrow_shafts_);
    if (state.shows(ViewFlag::force)) loads_.draw_lines();
    if (state.shows(ViewFlag::bc)) supports_.draw_lines();
    results_.draw_lines(pixel_ratio);
    glLineWidth(1);
    glEnable(GL_LIGHTING);
    results_.draw_solids();
    if (state.shows(ViewFlag::bc) && cones_.count() > 0) {
        set_material(cone_color);
        draw_lit(cones_, 0, cones_.count());
    }
    if (state.shows(ViewFlag::force) && arrow_heads_.count() > 0) {
        set_material(force_color);
        draw_lit(arrow_heads_, 0, arrow_heads_.count());
    }
    if (state.shows(ViewFlag::rigid_element) && rigid_heads_.count() > 0) {
        set_material(force_color);
        draw_lit(rigid_heads_, 0, rigid_heads_.count());
    }
    if (state.shows(ViewFlag::force)) loads_.draw_solids();
    if (state.shows(ViewFlag::bc)) supports_.draw_solids();
    glDisable(GL_LIGHTING);
}

// What of axes and rigid elements lies inside or behind the model shines through it.
void SceneDrawing::draw_hidden_lines(const DisplayState& state, double pixel_ratio) const {
    glDepthFunc(GL_GREATER);
    glDepthMask(GL_FALSE);
    glLineWidth(static_cast<float>(2 * pixel_ratio));
    glEnable(GL_LINE_STIPPLE);
    glLineStipple(static_cast<GLint>(std::lround(2 * pixel_ratio)), 0x5555);
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
    for (Buffer* buffer : highlight_.buffers()) all.push_back(buffer);
    for (Buffer* buffer : results_.buffers()) all.push_back(buffer);
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
    symbols_of_ = {};
    cones_of_ = {};
    forces_of_ = supports_of_ = walls_of_ = contacts_of_ = {};
    rigid_of_ = {};
    highlight_.forget();
    results_.forget();
}

}  // namespace kestralum::view::gl
