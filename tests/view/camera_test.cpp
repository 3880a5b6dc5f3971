// Camera arithmetic, the trackball and picking, without a display.
#include "view/camera.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/box_mesh.h"
#include "support/near.h"
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

Camera camera_from(ViewDirection direction, int width, int height) {
    Camera camera;
    resize(camera, width, height);
    look_from(camera, direction);
    return camera;
}

Camera turned_camera() {
    Camera camera = camera_from(ViewDirection::isometric, 801, 600);
    mouse_press(camera, 300, 200);
    mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, 420, 330);
    fit_points(camera, long_box, long_box.size_info);
    return camera;
}

void expect_rotation(const Matrix& m) {
    const Vec3 u{m[0], m[1], m[2]}, v{m[4], m[5], m[6]}, w{m[8], m[9], m[10]};
    EXPECT_NEAR(norm(u), 1, 1e-12);
    EXPECT_NEAR(norm(v), 1, 1e-12);
    EXPECT_NEAR(dot(u, v), 0, 1e-12);
    expect_near(cross(u, v), w);
}

TEST(Camera, ProjectsAsTheMatricesDoAndBack) {
    for (const bool parallel : {false, true}) {
        Camera camera = turned_camera();
        camera.orthographic = parallel;
        const Matrix whole = product(projection(camera, long_box), model_view(camera, long_box));
        for (const Vec3& p : {Vec3{10, -1, 2}, {14, 0, 4}, {12.3, -0.4, 2.2}}) {
            const Vec3 pixel = project(camera, long_box, p).value(), device = transform(whole, p);
            EXPECT_NEAR(pixel[0], 0.5 * (1 + device[0]) * 801, 1e-9);
            EXPECT_NEAR(pixel[1], 0.5 * (1 - device[1]) * 600, 1e-9);
            const Ray ray = unproject(camera, long_box, pixel[0], pixel[1]);
            expect_near(unit(minus(p, ray.origin)), ray.direction, 1e-9);
        }
    }
}

// What lies in the plane of the centre stands still when the projection changes; in a parallel view depth
// moves nothing, also behind the camera, and a drag moves the model as far as the mouse.
TEST(Camera, ParallelViewDrawsThePlaneOfTheCentreAlike) {
    const Camera plain = turned_camera();
    Camera camera = plain;
    camera.orthographic = true;
    const Vec3 toward = times(-1, unproject(camera, long_box, 400.5, 300).direction);
    const Vec3 in_plane = plus(long_box.centre(), across(toward));
    const Vec3 at = project(plain, long_box, in_plane).value();
    for (const double depth : {-3.0, 0.0, 3.0, 40.0}) {
        const Vec3 pixel = project(camera, long_box, plus(in_plane, times(depth, toward))).value();
        EXPECT_NEAR(pixel[0], at[0], 1e-9);
        EXPECT_NEAR(pixel[1], at[1], 1e-9);
        EXPECT_LT(std::abs(pixel[2]), 1);
    }
    const Vec3 nearer = brought_nearer(camera, long_box, in_plane, 0.01);
    expect_near(nearer, plus(in_plane, times(0.01 * distance(camera, long_box), toward)));
    for (const double steps : {0.0, 12.0}) {
        zoom_at(camera, long_box, steps, 10, 20);
        const Vec3 before = project(camera, long_box, in_plane).value();
        mouse_press(camera, 100, 100);
        mouse_move(camera, long_box, MouseButton::left, MouseMode::translation, 137, 85);
        const Vec3 after = project(camera, long_box, in_plane).value();
        EXPECT_NEAR(after[0] - before[0], 37, 1e-9);
        EXPECT_NEAR(after[1] - before[1], -15, 1e-9);
    }
    camera.shift[2] =
        2 * long_box.max_length;  // moved through the camera: still drawn, and the wheel brings it back
    EXPECT_TRUE(std::isfinite(project(camera, long_box, in_plane).value()[0]));
    for (int k = 0; k < 60; ++k) zoom_at(camera, long_box, -1, 0, 0);
    EXPECT_GT(distance(camera, long_box), long_box.max_length);
}

// A narrower picture shows the width that a wider one did.
TEST(Camera, KeepsTheWidthInANarrowerPicture) {
    for (const bool parallel : {false, true}) {
        Camera camera = turned_camera();
        camera.orthographic = parallel;
        const double former = camera.aspect();
        const Vec3 right{camera.turn[0], camera.turn[4], camera.turn[8]};
        const Vec3 beside = plus(long_box.centre(), right);
        const double share = project(camera, long_box, beside).value()[0] / camera.width;
        resize(camera, 500, 500);
        keep_width(camera, long_box, former);
        EXPECT_NEAR(project(camera, long_box, beside).value()[0] / 500, share, 1e-9);
        const Camera wide = camera;
        keep_width(camera, long_box, 0.5);
        EXPECT_EQ(camera, wide);
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
    camera = camera_from(ViewDirection::x, 600, 600);
    EXPECT_NEAR(transform(trackball(camera, 300, 300, 300, 270), {0, 0, 1})[1], 0.1, 1e-9);
    mouse_press(camera, 300, 300);
    mouse_move(camera, long_box, MouseButton::left, MouseMode::rotation, 330, 300);
    EXPECT_NEAR(transform(camera.turn, {1, 0, 0})[0], 0.1, 1e-9);
    EXPECT_NEAR(transform(camera.turn, {0, 0, 1})[1], 1, 1e-9);
}

class Projections : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Parallel, Projections, ::testing::Bool());

TEST_P(Projections, WheelKeepsWhatIsUnderTheCursor) {
    Camera camera = turned_camera();
    camera.orthographic = GetParam();
    const Ray before = unproject(camera, long_box, 150, 400);
    // where the ray meets the plane through the centre that faces the camera
    const Vec3 axis = unproject(camera, long_box, 400.5, 300).direction;
    const double along = dot(minus(long_box.centre(), before.origin), axis) / dot(before.direction, axis);
    const Vec3 held = plus(before.origin, times(along, before.direction));
    for (const double steps : {1.0, 3.0, -2.0}) {
        const double from = distance(camera, long_box);
        zoom_at(camera, long_box, steps, 150, 400);
        EXPECT_NEAR(distance(camera, long_box), from * std::pow(0.9, steps), 1e-9);
        const Vec3 pixel = project(camera, long_box, held).value();
        EXPECT_NEAR(std::hypot(pixel[0] - 150, pixel[1] - 400), 0, 1e-6);
    }
    for (int k = 0; k < 500; ++k) zoom_at(camera, long_box, 1, 150, 400);
    EXPECT_GT(distance(camera, long_box), long_box.max_length / 100);  // not through the near plane
    for (int k = 0; k < 500; ++k) zoom_at(camera, long_box, -1, 150, 400);
    EXPECT_LT(distance(camera, long_box), long_box.max_length * 100);
}

// The nearest distance at which every point lies within nine tenths of the room that the texts leave, and in
// its middle.
TEST_P(Projections, FitFillsTheRoomBesideTheTexts) {
    const Mesh mesh = hexa_box({{3, 2, 1}, {3, 1, 0.5}, [](double* x) { x[1] += 0.3 * x[0] * x[0] - 5; }});
    const Scene scene{mesh.size_info, mesh.max_length};
    const Margins right_and_foot{0, 250, 0, 60}, left_and_top{100, 0, 80, 0};
    for (const auto& [width, height, m] : {std::tuple{300, 900, Margins{}},
                                           {1600, 300, Margins{}},
                                           {800, 600, right_and_foot},
                                           {800, 600, left_and_top}})
        for (const ViewDirection direction : all_directions) {
            Camera camera = camera_from(direction, width, height);
            camera.orthographic = GetParam();
            fit_points(camera, scene, mesh.coordinates, m);
            std::vector<double> x, y;  // shares of the room
            for (std::int64_t n = 0; n < mesh.node_num(); ++n) {
                const Vec3 at = project(camera, scene, triple(mesh.coordinates, n)).value();
                EXPECT_LT(std::abs(at[2]), 1);
                x.push_back((at[0] - m.left) / (width - m.left - m.right));
                y.push_back((at[1] - m.top) / (height - m.top - m.bottom));
            }
            const auto [left, right] = std::ranges::minmax(x);
            const auto [top, foot] = std::ranges::minmax(y);
            EXPECT_NEAR(std::max(right - left, foot - top), 0.9, 1e-6);
            EXPECT_NEAR(std::max({right, foot, 1 - left, 1 - top}), 0.95, 1e-8);
        }
    Camera plain = camera_from(ViewDirection::x, 200, 100), squeezed = plain;
    fit_points(plain, scene, mesh.coordinates);
    fit_points(squeezed, scene, mesh.coordinates, {0, 190, 60, 30});  // margins that leave nothing
    fit_points(squeezed, scene, {});
    EXPECT_EQ(squeezed.shift, plain.shift);
}

TEST(Camera, FitKeepsClearOfTextsInTheCorners) {
    const Mesh mesh = hexa_box({{3, 2, 1}, {3, 1, 0.5}, [](double* x) { x[1] += 0.3 * x[0] * x[0] - 5; }});
    const Scene scene{mesh.size_info, mesh.max_length};
    const std::vector<PixelBox> wide{{0, 0, 250, 100}}, high{{0, 0, 120, 280}},
        both{{0, 0, 200, 90}, {600, 400, 800, 600}};
    int moved = 0;
    for (const auto& boxes : {wide, high, both})
        for (const ViewDirection direction : all_directions) {
            Camera free = camera_from(direction, 800, 600), camera = free, squeezed = free;
            fit_points(free, scene, mesh.coordinates);
            fit_beside(camera, scene, mesh.coordinates, {}, boxes);
            EXPECT_TRUE(in_free_view(camera, scene, mesh.coordinates, boxes));
            for (std::int64_t n = 0; n < mesh.node_num(); ++n) {
                const Vec3 at = project(camera, scene, triple(mesh.coordinates, n)).value();
                for (const PixelBox& box : boxes)
                    EXPECT_FALSE(box.meets({at[0], at[1], at[0] + 1e-9, at[1] + 1e-9}));
            }
            // no smaller than beside the whole height of the first box
            fit_points(squeezed, scene, mesh.coordinates,
                       {boxes[0].right, boxes.size() > 1 ? 200.0 : 0, 0, boxes.size() > 1 ? 200.0 : 0});
            EXPECT_LE(distance(camera, scene), distance(squeezed, scene) + 1e-9);
            const bool in_the_way = !in_free_view(free, scene, mesh.coordinates, boxes);
            EXPECT_EQ(camera.shift != free.shift, in_the_way);
            moved += in_the_way;
        }
    EXPECT_GE(moved, 6);
    Camera beside = camera_from(ViewDirection::x, 800, 600);
    fit_points(beside, scene, mesh.coordinates);
    beside.shift[0] += 0.5 * scene.max_length;
    EXPECT_FALSE(in_free_view(beside, scene, mesh.coordinates, {})) << "out of the view";
    beside.shift[2] += 100 * scene.max_length;
    EXPECT_FALSE(in_free_view(beside, scene, mesh.coordinates, {})) << "behind the camera";
}

// Texts in a corner and a bar that leave little beside each other: the bar stays clear all the same.
TEST(Camera, FitKeepsClearOfTheBarBesideAWideCorner) {
    const Mesh mesh = hexa_box({{1, 1, 1}, {1, 0.5, 2}});
    const Scene scene{mesh.size_info, mesh.max_length};
    const Margins bar{0, 237, 0, 47};
    const std::vector<PixelBox> corner{{0, 0, 215, 84}};
    Camera camera = camera_from(ViewDirection::isometric, 640, 455);
    fit_beside(camera, scene, mesh.coordinates, bar, corner);
    for (std::int64_t n = 0; n < mesh.node_num(); ++n)
        EXPECT_LT(project(camera, scene, triple(mesh.coordinates, n)).value()[0], 640 - 237);
}

// On a screen of twice the density the same movement of the hand is twice as many pixels.
TEST(Camera, MovesAsFarOnADenseScreen) {
    for (const MouseButton button : {MouseButton::left, MouseButton::right, MouseButton::middle})
        for (const MouseMode mode : {MouseMode::translation, MouseMode::rotation}) {
            Camera plain = camera_from(ViewDirection::isometric, 400, 300), dense = plain;
            resize(dense, 800, 600);
            dense.pixel_ratio = 2;
            mouse_press(plain, 50, 70);
            mouse_press(dense, 100, 140);
            mouse_move(plain, long_box, button, mode, 150, 100);
            mouse_move(dense, long_box, button, mode, 300, 200);
            expect_near(dense.shift, plain.shift, 1e-12);
            for (std::size_t k = 0; k < 16; ++k) EXPECT_NEAR(dense.turn[k], plain.turn[k], 1e-12);
            EXPECT_DOUBLE_EQ(pixel_slack(dense, 5), pixel_slack(plain, 5));
        }
}

TEST(Camera, SurvivesAModelAndAViewWithoutSize) {
    Camera camera = camera_from(ViewDirection::x, 0, -3);
    const Scene point{{}, 0};
    fit_points(camera, point, point.size_info);
    zoom_at(camera, point, 2, 0, 0);
    EXPECT_TRUE(std::isfinite(norm(project(camera, point, {0, 0, 0}).value())));
    for (const double value : projection(camera, point)) EXPECT_TRUE(std::isfinite(value));
}

std::vector<std::pair<ViewDirection, bool>> every_view() {
    std::vector<std::pair<ViewDirection, bool>> out;
    for (const ViewDirection direction : all_directions)
        for (const bool parallel : {false, true}) out.emplace_back(direction, parallel);
    return out;
}

class Picking : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Kinds, Picking, ::testing::ValuesIn(every_kind));

// Every node of the side that faces the viewer is picked at its own pixel, from all sides.
TEST_P(Picking, FindsTheNodeUnderThePixel) {
    const Mesh mesh = box_mesh({{4, 2, 3}, {4, 1, 2}}, GetParam());
    const Surface surface = build_surface(mesh, Faces::free);
    const Scene scene{mesh.size_info, mesh.max_length};
    for (const auto& [direction, parallel] : every_view()) {
        Camera camera = camera_from(direction, 900, 700);
        camera.orthographic = parallel;
        fit_points(camera, scene, mesh.coordinates);
        const Vec3 eye = unproject(camera, scene, 450, 350).origin;
        int tried = 0;
        for (const std::int32_t n : surface.nodes) {
            const Vec3 p = triple(mesh.coordinates, n);
            bool faces_viewer = false;  // the viewer stands beyond a side that holds the node
            for (std::size_t c = 0; c < 3; ++c)
                faces_viewer |= p[c] == mesh.size_info[(eye[c] > p[c] ? 3 : 0) + c];
            if (!faces_viewer) continue;
            ++tried;
            const Vec3 pixel = project(camera, scene, p).value();
            const auto pick = pick_node(unproject(camera, scene, pixel[0], pixel[1]), surface,
                                        mesh.coordinates, pixel_slack(camera, 3));
            ASSERT_TRUE(pick);
            EXPECT_EQ(pick->node, n + 1);
            const auto nodes = mesh.element(pick->element - 1);
            EXPECT_NE(std::find(nodes.begin(), nodes.end(), n + 1), nodes.end());
        }
        // beside the model: within the slack of two pixels or not
        const auto beside = [&](double pixels) {
            const Vec3 corner = triple(mesh.coordinates, 0);
            Surface one = surface;
            one.parts.clear();  // no faces to meet
            one.nodes = {0};
            const Vec3 pixel = project(camera, scene, corner).value();
            return pick_node(unproject(camera, scene, pixel[0] + pixels, pixel[1]), one, mesh.coordinates,
                             pixel_slack(camera, 3))
                .has_value();
        };
        EXPECT_TRUE(beside(2));
        EXPECT_FALSE(beside(4));
        EXPECT_GE(tried, 12);
    }
}

TEST(PickingOnABox, TakesTheFrontAndMissesBeside) {
    const Mesh mesh = hexa_box({{2, 2, 2}, {2, 2, 2}});
    const Surface surface = build_surface(mesh, Faces::free);
    const Pick front = pick_node({{1.1, 0.9, 9}, {0, 0, -1}}, surface, mesh.coordinates).value();
    EXPECT_EQ(front.place, (Vec3{1, 1, 2}));
    EXPECT_EQ(pick_text(front), "Element:6, Node:23, D.o.f.:66");
    EXPECT_FALSE(pick_node({{1, 1, 9}, {0, 0, 1}}, surface, mesh.coordinates));      // behind the viewer
    EXPECT_FALSE(pick_node({{2.01, 1, 9}, {0, 0, -1}}, surface, mesh.coordinates));  // just beside
    const Pick near = pick_node({{2.01, 1.01, 9}, {0, 0, -1}}, surface, mesh.coordinates, 0.01).value();
    EXPECT_EQ((std::array{near.place[0], near.place[1]}), (std::array{2.0, 1.0}));
    std::vector<double> u(mesh.coordinates.size(), 0.0), values(27, 7.5);
    u[3 * 22 + 1] = -0.25;
    EXPECT_EQ(status_text(front, mesh, u, values, 4),
              "Element:6, Node:23, D.o.f.:66   x:1 y:1 z:2 [m]   ux:0.000e+00 uy:-2.500e-01 uz:0.000e+00   "
              "Mises Stress:7.500e+00");
    EXPECT_EQ(status_text(front, mesh, {}, {}, 4), "Element:6, Node:23, D.o.f.:66   x:1 y:1 z:2 [m]");
}

}  // namespace
