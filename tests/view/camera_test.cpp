// Camera arithmetic, the trackball and picking, without a display.
#include "view/camera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "support/box_mesh.h"
#include "view/picking.h"
#include "view/surface.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

constexpr ViewDirection all_directions[] = {
    ViewDirection::x,       ViewDirection::y,       ViewDirection::z,        ViewDirection::minus_x,
    ViewDirection::minus_y, ViewDirection::minus_z, ViewDirection::isometric};

const Scene long_box{{10, -1, 2, 14, 0, 4}, 4};

Camera turned_camera() {
    Camera camera;
    resize(camera, 801, 600);
    look_from(camera, ViewDirection::isometric);
    mouse_press(camera, 300, 200);
    mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, 420, 330);
    fit_points(camera, long_box, long_box.size_info);
    return camera;
}

void expect_rotation(const Matrix& m) {
    for (std::size_t a = 0; a < 3; ++a)
        for (std::size_t b = 0; b < 3; ++b) {
            const Vec3 u{m[4 * a], m[4 * a + 1], m[4 * a + 2]}, v{m[4 * b], m[4 * b + 1], m[4 * b + 2]};
            EXPECT_NEAR(dot(u, v), a == b ? 1 : 0, 1e-12);
        }
    EXPECT_NEAR(dot(cross({m[0], m[1], m[2]}, {m[4], m[5], m[6]}), {m[8], m[9], m[10]}), 1, 1e-12);
}

TEST(Camera, ProjectsAsTheMatricesDoAndBack) {
    const Camera camera = turned_camera();
    const Matrix whole = product(projection(camera, long_box), model_view(camera, long_box));
    for (const Vec3& p : {Vec3{10, -1, 2}, {14, 0, 4}, {12.3, -0.4, 2.2}}) {
        const auto pixel = project(camera, long_box, p);
        ASSERT_TRUE(pixel);
        const Vec3 device = transform(whole, p);
        EXPECT_NEAR((*pixel)[0], 0.5 * (1 + device[0]) * 801, 1e-9);
        EXPECT_NEAR((*pixel)[1], 0.5 * (1 - device[1]) * 600, 1e-9);
        const Ray ray = unproject(camera, long_box, (*pixel)[0], (*pixel)[1]);
        EXPECT_NEAR(norm(ray.direction), 1, 1e-12);
        const Vec3 to = minus(p, ray.origin);
        EXPECT_GT(dot(to, ray.direction), 0);
        EXPECT_NEAR(norm(cross(to, ray.direction)), 0, 1e-9);
    }
}

TEST(Camera, TrackballTurnsWithTheMouseAndDoesNothingElse) {
    Camera camera = turned_camera();
    const Vec3 shift = camera.shift;
    int x = 10, y = 590;
    mouse_press(camera, x, y);
    for (int k = 0; k < 2000; ++k) {  // also far outside the ball and the view
        x = (x * 37 + 11 * k) % 1500 - 300;
        y = (y * 53 + 7 * k) % 1100 - 200;
        mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, x, y);
    }
    expect_rotation(camera.turn);
    EXPECT_EQ(camera.shift, shift);
    const Matrix before = camera.turn;
    mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, x, y);
    for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(camera.turn[k], before[k], 1e-12);
    // what faces the viewer goes with the mouse, by 30 of 300 pixels of radius, on a turned model too
    resize(camera, 600, 600);
    EXPECT_NEAR(transform(trackball(camera, 300, 300, 300, 270), {0, 0, 1})[1], 0.1, 1e-9);
    look_from(camera, ViewDirection::x);
    mouse_press(camera, 300, 300);
    mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, 330, 300);
    EXPECT_NEAR(transform(camera.turn, {1, 0, 0})[0], 0.1, 1e-9);
    EXPECT_NEAR(transform(camera.turn, {0, 0, 1})[1], 1, 1e-9);
}

TEST(Camera, WheelKeepsWhatIsUnderTheCursor) {
    Camera camera = turned_camera();
    const Ray before = unproject(camera, long_box, 150, 400);
    // where the ray meets the plane through the centre that faces the camera
    const Vec3 axis = unproject(camera, long_box, 400.5, 300).direction;
    const double along = dot(minus(long_box.centre(), before.origin), axis) / dot(before.direction, axis);
    const Vec3 held = plus(before.origin, times(along, before.direction));
    for (const double steps : {1.0, 3.0, -2.0}) {
        const double from = long_box.max_length - camera.shift[2];
        zoom_at(camera, long_box, steps, 150, 400);
        EXPECT_NEAR(long_box.max_length - camera.shift[2], from * std::pow(0.9, steps), 1e-9);
        const auto pixel = project(camera, long_box, held);
        ASSERT_TRUE(pixel);
        EXPECT_NEAR((*pixel)[0], 150, 1e-6);
        EXPECT_NEAR((*pixel)[1], 400, 1e-6);
    }
    for (int k = 0; k < 500; ++k) zoom_at(camera, long_box, 1, 150, 400);
    EXPECT_GT(long_box.max_length - camera.shift[2],
              long_box.max_length / 100);  // not through the near plane
    for (int k = 0; k < 500; ++k) zoom_at(camera, long_box, -1, 150, 400);
    EXPECT_LT(long_box.max_length - camera.shift[2], long_box.max_length * 100);
}

// The nearest distance at which every point lies within nine tenths of the room that the texts leave, and in
// its middle.
TEST(Camera, FitFillsTheRoomBesideTheTexts) {
    const Mesh bent = hexa_box({{3, 2, 1}, {3, 1, 0.5}, [](double* x) { x[1] += 0.3 * x[0] * x[0]; }});
    const Mesh corners =
        hexa_box({{1, 1, 1}, {4, 1, 2}, [](double* x) { x[0] += 10, x[1] -= 1, x[2] += 2; }});
    for (const Mesh* mesh : {&bent, &corners})
        for (const auto& [width, height] : {std::pair{800, 600}, {300, 900}, {1600, 300}})
            for (const ViewDirection direction : all_directions)
                for (const Margins& m : {Margins{}, Margins{0, 250, 0, 60}, Margins{100, 0, 80, 0}}) {
                    if (width != 800 && m.right + m.left > 0) continue;
                    const Scene scene{mesh->size_info, mesh->max_length};
                    Camera camera;
                    resize(camera, width, height);
                    look_from(camera, direction);
                    fit_points(camera, scene, mesh->coordinates, m);
                    const double room[2] = {width - m.left - m.right, height - m.top - m.bottom};
                    const double middle[2] = {m.left + room[0] / 2, m.top + room[1] / 2};
                    double low[2] = {1e9, 1e9}, high[2] = {-1e9, -1e9}, widest = 0, filled = 0;
                    for (std::int64_t n = 0; n < mesh->node_num(); ++n) {
                        const auto at = project(camera, scene, triple(mesh->coordinates, n));
                        ASSERT_TRUE(at);
                        EXPECT_LT(std::abs((*at)[2]), 1);
                        for (int a = 0; a < 2; ++a) {
                            low[a] = std::min(low[a], (*at)[a]);
                            high[a] = std::max(high[a], (*at)[a]);
                            widest = std::max(widest, std::abs((*at)[a] - middle[a]) / room[a]);
                            filled = std::max(filled, (high[a] - low[a]) / room[a]);
                        }
                    }
                    EXPECT_NEAR(widest, 0.45, 1e-8);
                    EXPECT_NEAR(filled, 0.9, 1e-6);
                }
}

TEST(Camera, FitIgnoresMarginsThatLeaveNothing) {
    const Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    const Scene scene{mesh.size_info, mesh.max_length};
    Camera plain, squeezed;
    for (Camera* camera : {&plain, &squeezed}) resize(*camera, 200, 100);
    fit_points(plain, scene, mesh.coordinates);
    fit_points(squeezed, scene, mesh.coordinates, {0, 190, 60, 30});
    EXPECT_EQ(squeezed.shift, plain.shift);
    fit_points(squeezed, scene, {});
    EXPECT_EQ(squeezed.shift, plain.shift) << "nothing to fit";
}

TEST(Camera, LooksAlongTheNamedAxis) {
    const std::tuple<ViewDirection, Vec3, Vec3> views[] = {
        {ViewDirection::x, {1, 0, 0}, {0, 0, 1}},
        {ViewDirection::y, {0, 1, 0}, {0, 0, 1}},
        {ViewDirection::z, {0, 0, 1}, {0, 1, 0}},
        {ViewDirection::minus_x, {-1, 0, 0}, {0, 0, 1}},
        {ViewDirection::minus_y, {0, -1, 0}, {0, 0, 1}},
        {ViewDirection::minus_z, {0, 0, -1}, {0, 1, 0}},
        {ViewDirection::isometric, unit({1, 1, 1}), unit({-1, -1, 2})}};
    for (const auto& [direction, viewer, up] : views) {
        Camera camera;
        look_from(camera, direction);
        expect_rotation(camera.turn);
        EXPECT_NEAR(transform(camera.turn, viewer)[2], 1, 1e-12);
        EXPECT_NEAR(transform(camera.turn, up)[1], 1, 1e-12);
    }
}

TEST(Camera, SurvivesAModelAndAViewWithoutSize) {
    Camera camera;
    resize(camera, 0, -3);
    const Scene point{{}, 0};
    fit_points(camera, point, point.size_info);
    zoom_at(camera, point, 2, 0, 0);
    const auto pixel = project(camera, point, {0, 0, 0});
    ASSERT_TRUE(pixel);
    for (const double value : *pixel) EXPECT_TRUE(std::isfinite(value));
    for (const double value : projection(camera, point)) EXPECT_TRUE(std::isfinite(value));
}

class Picking : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Kinds, Picking, ::testing::ValuesIn(every_kind));

// Every node of the side that faces the viewer is picked at its own pixel, from all sides.
TEST_P(Picking, FindsTheNodeUnderThePixel) {
    const Mesh mesh = box_mesh({{4, 2, 3}, {4, 1, 2}}, GetParam());
    const Surface surface = build_surface(mesh, Faces::free);
    const Scene scene{mesh.size_info, mesh.max_length};
    for (const ViewDirection direction : all_directions) {
        Camera camera;
        resize(camera, 900, 700);
        look_from(camera, direction);
        fit_points(camera, scene, mesh.coordinates);
        int tried = 0;
        for (const std::int32_t n : surface.nodes) {
            const Vec3 p = triple(mesh.coordinates, n);
            const Vec3 eye = unproject(camera, scene, 450, 350).origin;
            bool faces_viewer = false;  // the viewer stands beyond a side that holds the node
            for (std::size_t c = 0; c < 3; ++c)
                faces_viewer |= (p[c] == mesh.size_info[3 + c] && eye[c] > p[c]) ||
                                (p[c] == mesh.size_info[c] && eye[c] < p[c]);
            if (!faces_viewer) continue;
            ++tried;
            const auto pixel = project(camera, scene, p);
            const auto pick = pick_node(unproject(camera, scene, (*pixel)[0], (*pixel)[1]), surface,
                                        mesh.coordinates, pixel_slack(camera, 3));
            ASSERT_TRUE(pick);
            EXPECT_EQ(pick->node, n + 1);
            const auto first = mesh.connectivity.begin() + (pick->element - 1) * mesh.node_per_element();
            EXPECT_NE(std::find(first, first + mesh.node_per_element(), n + 1),
                      first + mesh.node_per_element());
        }
        EXPECT_GE(tried, 12);
    }
}

TEST(PickingOnABox, TakesTheFrontAndMissesBeside) {
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 2, 2}});
    const Surface surface = build_surface(mesh, Faces::free);
    const auto front = pick_node({{1.1, 0.9, 9}, {0, 0, -1}}, surface, mesh.coordinates);
    ASSERT_TRUE(front);
    EXPECT_EQ(front->place, (Vec3{1, 1, 2}));
    EXPECT_EQ(pick_text(*front), "Element:6, Node:23, D.o.f.:66");
    EXPECT_FALSE(pick_node({{1, 1, 9}, {0, 0, 1}}, surface, mesh.coordinates));      // behind the viewer
    EXPECT_FALSE(pick_node({{2.01, 1, 9}, {0, 0, -1}}, surface, mesh.coordinates));  // just beside
    const auto near = pick_node({{2.01, 1.01, 9}, {0, 0, -1}}, surface, mesh.coordinates, 0.01);
    ASSERT_TRUE(near);
    EXPECT_EQ(near->place[0], 2);
    EXPECT_EQ(near->place[1], 1);
    std::vector<double> u(mesh.coordinates.size(), 0.0), values(27, 7.5);
    u[3 * 22 + 1] = -0.25;
    EXPECT_EQ(status_text(*front, mesh, u, values, 4),
              "Element:6, Node:23, D.o.f.:66   x:1 y:1 z:2 [m]   ux:0.000e+00 uy:-2.500e-01 uz:0.000e+00   "
              "Mises Stress:7.500e+00");
    EXPECT_EQ(status_text(*front, mesh, {}, {}, 4), "Element:6, Node:23, D.o.f.:66   x:1 y:1 z:2 [m]");
}

}  // namespace
