// Camera of the view: trackball, pan, zoom, projection. The camera stands at (0, 0, max_length) and
// looks at the origin with +y up; the model is moved and turned about the centre of its box. Pixels
// count from the top left corner of the view.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "view/display_state.h"
#include "view/vector.h"

namespace kestralum::view {

using Matrix = std::array<double, 16>;  // 4 × 4 by columns, as OpenGL reads it

Matrix identity();
Matrix product(const Matrix& a, const Matrix& b);
Matrix translation(const Vec3& t);
Matrix rotation(const Vec3& axis, double angle);  // unit axis, radians
// Field of view over the height in degrees, aspect = width/height.
Matrix perspective(double field_of_view, double aspect, double z_near, double z_far);
// Half the width and the height of what is seen, m.
Matrix orthographic(double half_width, double half_height, double z_near, double z_far);
Vec3 transform(const Matrix& m, const Vec3& p);  // with the division by w

struct Ray {
    Vec3 origin, direction;  // unit direction
    // Of parallel rays: at which distance a slope from the ray is measured, m; 0: each at its own.
    double measured_at = 0;
};

enum class ViewDirection { x, y, z, minus_x, minus_y, minus_z, isometric };

// The sides of a model by name, z up: who looks at its front looks along +y, x to the right.
struct NamedView {
    const char* menu_text;
    const char* word;  // on the command line
    const char* axis;  // where the viewer stands
    ViewDirection direction;
};
inline constexpr std::array<NamedView, 7> named_views{{
    {"&Front", "front", "-y", ViewDirection::minus_y},
    {"&Back", "back", "+y", ViewDirection::y},
    {"&Left", "left", "-x", ViewDirection::minus_x},
    {"&Right", "right", "+x", ViewDirection::x},
    {"&Top", "top", "+z", ViewDirection::z},
    {"Botto&m", "bottom", "-z", ViewDirection::minus_z},
    {"&Isometric", "iso", "+x +y +z", ViewDirection::isometric},
}};

enum class MouseButton { left, middle, right };

inline constexpr double field_of_view = 30;  // degrees

// What of the mesh the camera needs.
struct Scene {
    std::array<double, 6> size_info{};  // xmin ymin zmin xmax ymax zmax, m
    double max_length = 1;
    Vec3 centre() const {
        return {0.5 * (size_info[0] + size_info[3]), 0.5 * (size_info[1] + size_info[4]),
                0.5 * (size_info[2] + size_info[5])};
    }
};

struct Camera {
    Vec3 shift{0, 0, 0};         // tx ty tz of the model, m
    Matrix turn = identity();    // rotation of the model
    int width = 4, height = 3;   // of the view, pixels
    int left = 0;                // where it begins in the window
    int last_x = 0, last_y = 0;  // mouse position of the last event
    // Pixels of the view per pixel that lengths on the screen are given in: 2 on a screen of twice the
    // density. Texts, marks and lines are drawn so many times larger; the mouse moves the model as far as it
    // would at 1.
    double pixel_ratio = 1;
    bool orthographic = false;  // parallel rays; what lies in the plane of the model's centre is as large

    bool operator==(const Camera&) const = default;
    double aspect() const { return 1.0 * width / height; }
};

// A side of 0 counts as 1: a collapsed view still has a projection.
void resize(Camera& camera, int width, int height);

double tangent();  // of half the field of view
// From the camera to the model's centre along the view axis, m; not positive where that lies behind.
double distance(const Camera& camera, const Scene& scene);
// Where half the view is tangent() times as high: distance(), but for a parallel view never less than 0.02
// of the model, as there one may look from within it.
double plane_distance(const Camera& camera, const Scene& scene);

// Moves the model away until a view of this aspect shows the width in the plane of its centre that one of
// the former aspect showed; a wider view leaves it.
void keep_width(Camera& camera, const Scene& scene, double former_aspect);

Matrix projection(const Camera& camera, const Scene& scene);
Matrix model_view(const Camera& camera, const Scene& scene);

void mouse_press(Camera& camera, int x, int y);

// Left button: moves the model, or turns it in rotation mode; right: moves it along the view axis;
// middle: moves it in either mode. A parallel view moves it as far as the mouse.
void mouse_move(Camera& camera, const Scene& scene, MouseButton button, MouseMode mode, int x, int y);

// Rotation that a drag from one pixel to another gives on a ball in the middle of the view, smaller
// side across; outside it the ball runs out into a hyperbola (Bell, 1988).
Matrix trackball(const Camera& camera, int x0, int y0, int x1, int y1);

// Wheel: `steps` forward (positive) brings the model nearer, a tenth of the distance each; what lies
// under the cursor in the plane of the model's centre stays there.
void zoom_at(Camera& camera, const Scene& scene, double steps, int x, int y);

// Room that texts take at the edges of the view, pixels.
struct Margins {
    double left = 0, right = 0, top = 0, bottom = 0;
};

// Brings a cloud of points (n × 3, model space) wholly into what the margins leave of the view: as near
// as it can come, in the middle. Margins that leave less than a third of a side do not count there.
void fit_points(Camera& camera, const Scene& scene, std::span<const double> points,
                const Margins& margins = {});

// A rectangle of the view, pixels.
struct PixelBox {
    double left = 0, top = 0, right = 0, bottom = 0;
    bool meets(const PixelBox& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

// The same, clear of some boxes as well: each keeps a side of the view for itself where the model would
// otherwise reach into it, so that the model is drawn as large as possible.
void fit_beside(Camera& camera, const Scene& scene, std::span<const double> points, const Margins& margins,
                std::span<const PixelBox> boxes);

// Whether all that spans the points (their convex hull) is drawn inside the view and clear of the boxes.
bool in_free_view(const Camera& camera, const Scene& scene, std::span<const double> points,
                  std::span<const PixelBox> boxes);

// Turns the model so that the viewer stands on the named side: z up for x and y, y up for z.
void look_from(Camera& camera, ViewDirection direction);

// Where a point of the model is drawn: pixel x, pixel y, depth -1 near … 1 far. None behind the camera,
// which a parallel view does not have.
std::optional<Vec3> project(const Camera& camera, const Scene& scene, const Vec3& point);

// The ray of the model's space that falls on a pixel, from the camera outwards.
Ray unproject(const Camera& camera, const Scene& scene, double pixel_x, double pixel_y);

// The place brought towards the viewer by a share of its distance.
Vec3 brought_nearer(const Camera& camera, const Scene& scene, const Vec3& place, double share);

}  // namespace kestralum::view
