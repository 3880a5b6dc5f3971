#include "view/camera.h"

#include <algorithm>
#include <limits>
#include <numbers>
#include <vector>

namespace kestralum::view {

double tangent() {
    return std::tan(0.5 * field_of_view * std::numbers::pi / 180);
}

double distance(const Camera& camera, const Scene& scene) {
    return extent_of(scene.max_length) - camera.shift[2];
}

double plane_distance(const Camera& camera, const Scene& scene) {
    const double away = distance(camera, scene);
    return camera.orthographic ? std::max(away, 0.02 * extent_of(scene.max_length)) : away;
}

void keep_width(Camera& camera, const Scene& scene, double former_aspect) {
    const double away = plane_distance(camera, scene);
    if (!(camera.aspect() < former_aspect) || !(away > 0)) return;
    camera.shift[2] = extent_of(scene.max_length) - away * former_aspect / camera.aspect();
}

namespace {

constexpr double parallel_reach = 50;  // of a parallel view, model lengths before and behind the centre

// Model turned about its centre, then moved; the camera's own place comes on top.
Vec3 turned(const Matrix& turn, const Vec3& p) {
    Vec3 q{};
    for (std::size_t r = 0; r < 3; ++r) q[r] = turn[r] * p[0] + turn[4 + r] * p[1] + turn[8 + r] * p[2];
    return q;
}
Vec3 turned_back(const Matrix& turn, const Vec3& p) {
    Vec3 q{};
    for (std::size_t c = 0; c < 3; ++c)
        q[c] = turn[4 * c] * p[0] + turn[4 * c + 1] * p[1] + turn[4 * c + 2] * p[2];
    return q;
}

Vec3 eye_point(const Camera& camera, const Scene& scene, const Vec3& point) {
    const Vec3 moved = plus(turned(camera.turn, minus(point, scene.centre())), camera.shift);
    return {moved[0], moved[1], moved[2] - extent_of(scene.max_length)};
}

// Directions in eye space per unit of depth at a pixel.
std::array<double, 2> slopes(const Camera& camera, double pixel_x, double pixel_y) {
    return {(2 * pixel_x / camera.width - 1) * tangent() * camera.aspect(),
            (1 - 2 * pixel_y / camera.height) * tangent()};
}

Matrix from_rows(const Vec3& right, const Vec3& up, const Vec3& toward) {
    Matrix m = identity();
    for (std::size_t c = 0; c < 3; ++c) {
        m[4 * c] = right[c];
        m[4 * c + 1] = up[c];
        m[4 * c + 2] = toward[c];
    }
    return m;
}

// A product of many small rotations drifts; Gram and Schmidt make it a pure rotation again.
Matrix orthonormal(const Matrix& m) {
    const Vec3 right = unit({m[0], m[4], m[8]}, {1, 0, 0});
    Vec3 up{m[1], m[5], m[9]};
    up = unit(minus(up, times(dot(up, right), right)), {0, 1, 0});
    return from_rows(right, up, cross(right, up));
}

Vec3 on_ball(const Camera& camera, int x, int y) {
    const double radius = 0.5 * std::min(camera.width, camera.height);
    const double u = (x - 0.5 * camera.width) / radius, v = (0.5 * camera.height - y) / radius;
    const double r2 = u * u + v * v;
    return unit({u, v, r2 <= 0.5 ? std::sqrt(1 - r2) : 0.5 / std::sqrt(r2)});
}

}  // namespace

Matrix identity() {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c{};
    for (std::size_t j = 0; j < 4; ++j)
        for (std::size_t k = 0; k < 4; ++k)
            for (std::size_t i = 0; i < 4; ++i) c[4 * j + i] += a[4 * k + i] * b[4 * j + k];
    return c;
}

Matrix translation(const Vec3& t) {
    Matrix m = identity();
    for (std::size_t k = 0; k < 3; ++k) m[12 + k] = t[k];
    return m;
}

// Rodrigues: R = cosθ·I + (1 - cosθ)·aaᵀ + sinθ·[a]×.
Matrix rotation(const Vec3& a, double angle) {
    const double c = std::cos(angle), s = std::sin(angle);
    Matrix m = identity();
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) m[4 * j + i] = (i == j ? c : 0) + (1 - c) * a[i] * a[j];
    for (std::size_t k = 0; k < 3; ++k) {
        const std::size_t i = (k + 1) % 3, j = (k + 2) % 3;
        m[4 * i + j] += s * a[k];
        m[4 * j + i] -= s * a[k];
    }
    return m;
}

Matrix perspective(double angle, double aspect, double z_near, double z_far) {
    const double f = 1 / std::tan(0.5 * angle * std::numbers::pi / 180);
    Matrix m{};
    m[0] = f / aspect;
    m[5] = f;
    m[10] = (z_far + z_near) / (z_near - z_far);
    m[11] = -1;
    m[14] = 2 * z_far * z_near / (z_near - z_far);
    return m;
}

Matrix orthographic(double half_width, double half_height, double z_near, double z_far) {
    Matrix m{};
    m[0] = 1 / half_width;
    m[5] = 1 / half_height;
    m[10] = 2 / (z_near - z_far);
    m[14] = (z_far + z_near) / (z_near - z_far);
    m[15] = 1;
    return m;
}

Vec3 transform(const Matrix& m, const Vec3& p) {
    std::array<double, 4> q{};
    for (std::size_t i = 0; i < 4; ++i) q[i] = m[i] * p[0] + m[4 + i] * p[1] + m[8 + i] * p[2] + m[12 + i];
    return {q[0] / q[3], q[1] / q[3], q[2] / q[3]};
}

void resize(Camera& camera, int width, int height) {
    camera.width = std::max(width, 1);
    camera.height = std::max(height, 1);
}

Matrix projection(const Camera& camera, const Scene& scene) {
    const double L = extent_of(scene.max_length);
    if (camera.orthographic) {
        const double away = distance(camera, scene), half = tangent() * plane_distance(camera, scene);
        return orthographic(half * camera.aspect(), half, away - parallel_reach * L,
                            away + parallel_reach * L);
    }
    return perspective(field_of_view, camera.aspect(), L / 100, L * 100);
}

Matrix model_view(const Camera& camera, const Scene& scene) {
    const Vec3 camera_place{0, 0, -extent_of(scene.max_length)};
    return product(translation(plus(camera.shift, camera_place)),
                   product(camera.turn, translation(times(-1, scene.centre()))));
}

void mouse_press(Camera& camera, int x, int y) {
    camera.last_x = x;
    camera.last_y = y;
}

void mouse_move(Camera& camera, const Scene& scene, MouseButton button, MouseMode mode, int x, int y) {
    const double L = extent_of(scene.max_length);
    const double dx = (x - camera.last_x) / camera.pixel_ratio, dy = (y - camera.last_y) / camera.pixel_ratio;
    if (button == MouseButton::right) {
        camera.shift[2] -= dy * L / 600;
    } else if (button == MouseButton::left && mode == MouseMode::rotation) {
        camera.turn =
            orthonormal(product(trackball(camera, camera.last_x, camera.last_y, x, y), camera.turn));
    } else if (camera.orthographic) {
        const double pixel = 2 * tangent() * plane_distance(camera, scene) / camera.height;
        camera.shift[0] += (x - camera.last_x) * pixel;
        camera.shift[1] -= (y - camera.last_y) * pixel;
    } else {
        camera.shift[0] += dx * L / 800;
        camera.shift[1] -= dy * L / 600;
    }
    mouse_press(camera, x, y);
}

Matrix trackball(const Camera& camera, int x0, int y0, int x1, int y1) {
    const Vec3 a = on_ball(camera, x0, y0), b = on_ball(camera, x1, y1);
    const Vec3 axis = cross(a, b);
    const double sine = norm(axis);
    if (!(sine > 0)) return identity();
    return rotation(times(1 / sine, axis), std::atan2(sine, dot(a, b)));
}

void zoom_at(Camera& camera, const Scene& scene, double steps, int x, int y) {
    const double L = extent_of(scene.max_length);
    const double from = plane_distance(camera, scene);
    if (!(from > 0)) {  // the right button may have moved the centre behind the camera
        if (steps < 0) camera.shift[2] -= 0.1 * L;
        return;
    }
    const double to = std::clamp(from * std::pow(0.9, steps), 0.02 * L, 90 * L);
    const auto [sx, sy] = slopes(camera, x, y);
    camera.shift[0] += sx * (to - from);
    camera.shift[1] += sy * (to - from);
    camera.shift[2] = L - to;
}

namespace {

// The part of one axis of the picture (-1 … 1 over the view) that a model may fill.
std::array<double, 2> room(double low_margin, double high_margin, double pixels) {
    constexpr double filled = 0.9;
    double low = -1 + 2 * low_margin / pixels, high = 1 - 2 * high_margin / pixels;
    if (high - low < 2.0 / 3) low = -1, high = 1;
    const double middle = 0.5 * (low + high), half = 0.5 * filled * (high - low);
    return {middle - half, middle + half};
}

}  // namespace

// At distance d a point q appears at (q_x + s)/(T (d - q_z)), s the shift and T the tangent of half the
// view. Within low … high: T low d + max(-q_x - T low q_z) ≤ s ≤ T high d - max(q_x + T high q_z). A parallel
// view draws it as if it had q_z = 0.
void fit_points(Camera& camera, const Scene& scene, std::span<const double> points, const Margins& margins) {
    const double L = extent_of(scene.max_length);
    const std::array<std::array<double, 2>, 2> rooms{room(margins.left, margins.right, camera.width),
                                                     room(margins.bottom, margins.top, camera.height)};
    const std::array<double, 2> T{tangent() * camera.aspect(), tangent()};
    constexpr double none = -std::numeric_limits<double>::infinity();
    std::array<double, 2> below{none, none}, above{none, none};
    double nearest = none;
    for (std::size_t n = 0; n + 2 < points.size(); n += 3) {
        Vec3 q = turned(camera.turn, minus(Vec3{points[n], points[n + 1], points[n + 2]}, scene.centre()));
        if (camera.orthographic) q[2] = 0;
        if (!std::isfinite(norm(q))) continue;
        nearest = std::max(nearest, q[2]);
        for (std::size_t a = 0; a < 2; ++a) {
            below[a] = std::max(below[a], -q[a] - T[a] * rooms[a][0] * q[2]);
            above[a] = std::max(above[a], q[a] + T[a] * rooms[a][1] * q[2]);
        }
    }
    if (nearest == none) return;
    double d = std::max(0.05 * L, nearest + 0.02 * L);
    for (std::size_t a = 0; a < 2; ++a)
        d = std::max(d, (below[a] + above[a]) / (T[a] * (rooms[a][1] - rooms[a][0])));
    d = std::min(d, 90 * L);
    for (std::size_t a = 0; a < 2; ++a)
        camera.shift[a] = 0.5 * (T[a] * (rooms[a][0] + rooms[a][1]) * d + below[a] - above[a]);
    camera.shift[2] = L - d;
}

void look_from(Camera& camera, ViewDirection direction) {
    constexpr Vec3 x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1};
    auto turn = [&](const Vec3& toward, const Vec3& up) {
        camera.turn = from_rows(cross(up, toward), up, toward);
    };
    switch (direction) {
        case ViewDirection::x:
            turn(x, z);
            break;
        case ViewDirection::y:
            turn(y, z);
            break;
        case ViewDirection::z:
            turn(z, y);
            break;
        case ViewDirection::minus_x:
            turn({-1, 0, 0}, z);
            break;
        case ViewDirection::minus_y:
            turn({0, -1, 0}, z);
            break;
        case ViewDirection::minus_z:
            turn({0, 0, -1}, y);
            break;
        case ViewDirection::isometric:
            turn(unit({1, 1, 1}), unit({-1, -1, 2}));
            break;
    }
}

std::optional<Vec3> project(const Camera& camera, const Scene& scene, const Vec3& point) {
    const Vec3 eye = eye_point(camera, scene, point);
    if (!(eye[2] < 0) && !camera.orthographic) return std::nullopt;
    const Vec3 device = transform(projection(camera, scene), eye);
    return Vec3{0.5 * (device[0] + 1) * camera.width, 0.5 * (1 - device[1]) * camera.height, device[2]};
}

Ray unproject(const Camera& camera, const Scene& scene, double pixel_x, double pixel_y) {
    const auto [sx, sy] = slopes(camera, pixel_x, pixel_y);
    const double L = extent_of(scene.max_length);
    if (camera.orthographic) {
        const double away = plane_distance(camera, scene);
        const Vec3 on_screen{sx * away, sy * away, camera.shift[2] + parallel_reach * L};
        return {plus(turned_back(camera.turn, minus(on_screen, camera.shift)), scene.centre()),
                turned_back(camera.turn, {0, 0, -1}), away};
    }
    // the camera's place in the turned model's space, then back through the rotation
    const Vec3 place = minus(Vec3{0, 0, L}, camera.shift);
    return {plus(turned_back(camera.turn, place), scene.centre()),
            unit(turned_back(camera.turn, {sx, sy, -1}))};
}

Vec3 brought_nearer(const Camera& camera, const Scene& scene, const Vec3& place, double share) {
    const Ray axis = unproject(camera, scene, 0.5 * camera.width, 0.5 * camera.height);
    if (camera.orthographic)
        return minus(place, times(share * plane_distance(camera, scene), axis.direction));
    return plus(place, times(share, minus(axis.origin, place)));
}

}  // namespace kestralum::view
