// The pressure of a pin in its bore, or of a bearing on its shaft.
#include <algorithm>
#include <cmath>
#include <limits>

#include "conditions/surface_loads.h"

namespace kestralum {

namespace {

struct Patch {
    Vec3 x, normal;  // place, m; outward normal times the area, m^2
};

std::vector<Patch> patches_of(const Mesh& mesh, std::span<const ElementFace> faces) {
    std::vector<Patch> patches;
    FacePoints face;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, {}, face);
        for (int p = 0; p < face.points; ++p) patches.push_back({face.point[p].x, face.point[p].normal});
    }
    return patches;
}

struct Axis {
    Vec3 point{}, direction{};
    Vec3 across[2]{};  // at right angles to it and to each other

    void set_direction(const Vec3& v) {
        direction = v;
        across[0] = kestralum::across(v);
        across[1] = cross(v, across[0]);
    }
    double radius_of(const Vec3& x) const {
        const Vec3 r = minus(x, point);
        return std::hypot(dot(r, across[0]), dot(r, across[1]));
    }
};

// The direction that the normals have least of: of ∫ n nᵀ dA the eigenvector of the smallest eigenvalue, that
// of the largest one of its adjugate. False where the normals point all one way.
bool first_direction(std::span<const Patch> patches, Vec3& direction) {
    Vec3 row[3]{};
    double area = 0;
    for (const Patch& patch : patches) {
        const double size = norm(patch.normal);
        area += size;
        for (std::size_t a = 0; a < 3 && size > 0; ++a)
            row[a] = plus(row[a], times(patch.normal[a] / size, patch.normal));
    }
    const Vec3 adjugate[3] = {cross(row[1], row[2]), cross(row[2], row[0]), cross(row[0], row[1])};
    std::size_t largest = 0;
    for (std::size_t k = 1; k < 3; ++k)
        if (adjugate[k][k] > adjugate[largest][largest]) largest = k;
    if (!(adjugate[largest][largest] > 1e-6 * area * area)) return false;
    direction = unit(adjugate[largest]);
    for (int turn = 0; turn < 20; ++turn)
        direction =
            unit({dot(adjugate[0], direction), dot(adjugate[1], direction), dot(adjugate[2], direction)});
    return true;
}

// Solves the symmetric positive definite system A x = b in place (Cholesky); false where it is none.
bool solve5(std::array<std::array<double, 5>, 5>& A, std::array<double, 5>& b) {
    for (std::size_t k = 0; k < 5; ++k) {
        const double least = 1e-13 * A[k][k];
        for (std::size_t m = 0; m < k; ++m) A[k][k] -= A[k][m] * A[k][m];
        if (!(A[k][k] > least)) return false;
        A[k][k] = std::sqrt(A[k][k]);
        for (std::size_t i = k + 1; i < 5; ++i) {
            for (std::size_t m = 0; m < k; ++m) A[i][k] -= A[i][m] * A[k][m];
            A[i][k] /= A[k][k];
        }
    }
    for (std::size_t k = 0; k < 5; ++k) {
        for (std::size_t m = 0; m < k; ++m) b[k] -= A[k][m] * b[m];
        b[k] /= A[k][k];
    }
    for (std::size_t k = 5; k-- > 0;) {
        for (std::size_t m = k + 1; m < 5; ++m) b[k] -= A[m][k] * b[m];
        b[k] /= A[k][k];
    }
    return true;
}

// On a cylinder x = c + z t + R n across the axis, z along it, n the unit normal: least squares over the area
// for the axis' place c, its tilt t and the radius R, negative in a bore.
bool improve(std::span<const Patch> patches, Axis& axis) {
    Vec3 centre{};
    double area = 0, length = 0;
    for (const Patch& patch : patches) {
        area += norm(patch.normal);
        centre = plus(centre, times(norm(patch.normal), patch.x));
    }
    centre = times(1 / area, centre);
    for (const Patch& patch : patches) length = std::max(length, norm(minus(patch.x, centre)));
    std::array<std::array<double, 5>, 5> A{};
    std::array<double, 5> b{};
    for (const Patch& patch : patches) {
        const double weight = norm(patch.normal);
        const Vec3 r = times(1 / length, minus(patch.x, centre)), n = unit(patch.normal);
        for (std::size_t c = 0; c < 2; ++c) {
            std::array<double, 5> g{};
            g[c] = 1;
            g[2 + c] = dot(r, axis.direction);
            g[4] = dot(n, axis.across[c]);
            for (std::size_t k = 0; k < 5; ++k) {
                b[k] += weight * g[k] * dot(r, axis.across[c]);
                for (std::size_t m = 0; m < 5; ++m) A[k][m] += weight * g[k] * g[m];
            }
        }
    }
    if (!solve5(A, b)) return false;
    Vec3 direction = axis.direction;
    axis.point = centre;
    for (std::size_t c = 0; c < 2; ++c) {
        axis.point = plus(axis.point, times(b[c] * length, axis.across[c]));
        direction = plus(direction, times(b[2 + c], axis.across[c]));
    }
    axis.set_direction(unit(direction));
    return true;
}

// Whether the faces' corners are all equally far from the axis, within a fiftieth.
bool is_cylinder(const Mesh& mesh, std::span<const ElementFace> faces, const Axis& axis) {
    double least = std::numeric_limits<double>::infinity(), most = 0;
    for (const ElementFace& face : faces)
        for (const int corner : face_corners(mesh.element_type, face.face)) {
            const double r = axis.radius_of(place_of(mesh, node_index(mesh.element(face.element)[corner])));
            least = std::min(least, r);
            most = std::max(most, r);
        }
    return most - least < 0.02 * (most + least);
}

using Vec2 = std::array<double, 2>;

// g such that the pressure max(0, -n·g) has the resultant F across the axis: the minimum of the convex
// ½ ∫ max(0, -n·g)² dA - F·g by Newton's method, whose matrix is ∫ n nᵀ dA over the faces with n·g < 0.
// normals: across the axis, times the area.
bool balance(std::span<const Vec2> normals, std::span<const double> area, const Vec2& F, Vec2& g) {
    struct State {
        double value = 0;
        Vec2 rest{};  // F - resultant
        double xx = 0, xy = 0, yy = 0;
    };
    const auto at = [&](const Vec2& v) {
        State s{-(F[0] * v[0] + F[1] * v[1]), F};
        for (std::size_t k = 0; k < normals.size(); ++k) {
            const Vec2& n = normals[k];
            const double along = n[0] * v[0] + n[1] * v[1];
            if (!(along < 0)) continue;
            s.value += along * along / area[k] / 2;
            for (std::size_t c = 0; c < 2; ++c) s.rest[c] -= along / area[k] * n[c];
            s.xx += n[0] * n[0] / area[k];
            s.xy += n[0] * n[1] / area[k];
            s.yy += n[1] * n[1] / area[k];
        }
        return s;
    };
    const double size = std::hypot(F[0], F[1]);
    g = F;
    State now = at(g);
    const double met = now.xx * F[0] * F[0] + 2 * now.xy * F[0] * F[1] + now.yy * F[1] * F[1];
    if (!(met > 0)) return false;
    for (double& c : g) c *= size * size / met;
    now = at(g);
    for (int turn = 0; turn < 100 && std::hypot(now.rest[0], now.rest[1]) > 1e-13 * size; ++turn) {
        const double trace = now.xx + now.yy, least = 1e-12 * trace;  // one normal only: one direction
        const double xx = now.xx + least, yy = now.yy + least, det = xx * yy - now.xy * now.xy;
        Vec2 step{(yy * now.rest[0] - now.xy * now.rest[1]) / det,
                  (xx * now.rest[1] - now.xy * now.rest[0]) / det};
        const double slope = now.rest[0] * step[0] + now.rest[1] * step[1];
        double part = 1;
        State next = at({g[0] + step[0], g[1] + step[1]});
        for (; part > 1e-6 && next.value > now.value - 1e-4 * part * slope + 1e-15 * std::abs(now.value);
             next = at({g[0] + part * step[0], g[1] + part * step[1]}))
            part /= 2;
        for (std::size_t c = 0; c < 2; ++c) g[c] += part * step[c];
        now = next;
    }
    return std::hypot(now.rest[0], now.rest[1]) < 1e-9 * size;
}

}  // namespace

std::string add_bearing(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& force,
                        std::span<double> nodal) {
    const std::vector<Patch> patches = patches_of(mesh, faces);
    Axis axis;
    Vec3 direction;
    if (!first_direction(patches, direction)) return "its faces are flat, not on a cylinder";
    axis.set_direction(direction);
    for (int turn = 0; turn < 3; ++turn)
        if (!improve(patches, axis)) return "its faces are not on a cylinder";
    if (!is_cylinder(mesh, faces, axis)) return "its faces are not on a cylinder";

    std::vector<Vec2> normals;
    std::vector<double> area;
    for (const Patch& patch : patches) {
        normals.push_back({dot(patch.normal, axis.across[0]), dot(patch.normal, axis.across[1])});
        area.push_back(norm(patch.normal));
    }
    const Vec2 F{dot(force, axis.across[0]), dot(force, axis.across[1])};
    Vec2 g{};
    const bool presses = std::hypot(F[0], F[1]) > 1e-12 * norm(force);
    if (presses && !balance(normals, area, F, g)) return "none of its faces looks against the force";

    Vec3 rest = force;
    FacePoints face;
    std::size_t k = 0;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, {}, face);
        for (int p = 0; p < face.points; ++p, ++k) {
            const double along = (normals[k][0] * g[0] + normals[k][1] * g[1]) / area[k];
            if (!(along < 0)) continue;
            const Vec3 at_point = times(along, face.point[p].normal);
            rest = minus(rest, at_point);
            for (int i = 0; i < face.nodes.count; ++i)
                for (int c = 0; c < 3; ++c)
                    nodal[3 * face.nodes.node[i] + c] += face.point[p].shape.N[i] * at_point[c];
        }
    }
    const double along_axis = dot(rest, axis.direction);
    if (std::abs(along_axis) > 1e-12 * norm(force))
        add_force(mesh, faces, times(along_axis, axis.direction), nodal);
    return {};
}

}  // namespace kestralum
