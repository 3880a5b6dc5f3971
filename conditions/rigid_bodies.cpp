#include "conditions/rigid_bodies.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"
#include "model/free_faces.h"
#include "model/selection.h"

namespace kestralum {

namespace {

void add(Vec3& a, const Vec3& b, double s = 1) {
    for (std::size_t c = 0; c < 3; ++c) a[c] += s * b[c];
}
Vec3 force_of(const Vec6& f) {
    return {f[0], f[1], f[2]};
}
Vec3 moment_of(const Vec6& f) {
    return {f[3], f[4], f[5]};
}

// How nodes lie: at one point (0), on a line (1), or spread (2); the line's direction.
struct Spread {
    int rank = 0;
    Vec3 direction{};
};
Spread spread_of(const Mesh& mesh, std::span<const std::int32_t> nodes) {
    constexpr double tolerance = 1e-7;  // of the extent
    Spread out;
    if (nodes.empty()) return out;
    const Vec3 origin = place_of(mesh, nodes[0]);
    double farthest = 0;
    for (std::int32_t n : nodes) {
        const Vec3 r = minus(place_of(mesh, n), origin);
        if (norm(r) > farthest) {
            farthest = norm(r);
            out.direction = r;
        }
    }
    if (!(farthest > 0)) return out;
    out.rank = 1;
    out.direction = times(1 / farthest, out.direction);
    for (std::int32_t n : nodes)
        if (norm(cross(minus(place_of(mesh, n), origin), out.direction)) > tolerance * farthest) out.rank = 2;
    return out;
}

void add_translations(RigidBody& body) {
    for (std::size_t c = 0; c < 3; ++c) body.motions.add()[c] = 1;
}
void add_rotation(RigidBody& body, const Vec3& axis) {
    body.motions.add({0, 0, 0, axis[0], axis[1], axis[2]});
}
void add_rotations(RigidBody& body) {
    for (std::size_t c = 0; c < 3; ++c) body.motions.add()[3 + c] = 1;
}

// The motions that supports leave and that move a member.
void find_motions(RigidBody& body, const Mesh& mesh, const std::string& name,
                  std::vector<std::string>& notices) {
    const Spread all = spread_of(mesh, body.members), held = spread_of(mesh, body.fixed);
    body.pivot = {};
    for (std::int32_t n : body.members)
        add(body.pivot, place_of(mesh, n), 1.0 / static_cast<double>(body.members.size()));
    if (!body.fixed.empty()) body.pivot = place_of(mesh, body.fixed[0]);
    if (body.fixed.empty()) add_translations(body);
    const bool turns = body.fixed.empty() || held.rank == 0;
    if (all.rank == 0) {
        notices.push_back("rigid element " + name + ": its members lie at one point: its rotations are held");
    } else if (all.rank == 1) {
        notices.push_back("rigid element " + name +
                          ": its members lie on a line: the rotation about it is held");
        body.axes_turn = true;
        if (turns) {
            const Vec3 first = across(all.direction);
            add_rotation(body, first);
            add_rotation(body, cross(all.direction, first));
        }
    } else if (turns) {
        add_rotations(body);
    } else if (held.rank == 1) {
        add_rotation(body, held.direction);
    }
}

// Takes from the motions what the held directions do not allow: the null space of their rows, by elimination
// with the largest entry as pivot; lengths in parts of the body's size.
void hold_motions(RigidBody& body, const Mesh& mesh) {
    constexpr double nothing = 1e-9;
    for (std::int32_t n : body.members)
        body.size = std::max(body.size, norm(minus(place_of(mesh, n), body.pivot)));
    const double size = body.size > 0 ? body.size : 1;
    for (const HeldDirection& held : body.held) {
        const Vec3 arm = minus(place_of(mesh, held.node), body.pivot);
        const auto along = [&](const Vec6& m) {
            return dot(held.direction, plus(Vec3{m[0], m[1], m[2]}, cross({m[3], m[4], m[5]}, arm)));
        };
        const auto scale = [&](const Vec6& m) { return norm(force_of(m)) + size * norm(moment_of(m)); };
        std::size_t pivot = 0;
        for (std::size_t k = 1; k < body.motions.size(); ++k)
            if (std::abs(along(body.motions[k])) / scale(body.motions[k]) >
                std::abs(along(body.motions[pivot])) / scale(body.motions[pivot]))
                pivot = k;
        if (body.motions.size() == 0) return;
        const Vec6 taken = body.motions[pivot];
        const double by = along(taken);
        if (std::abs(by) <= nothing * scale(taken)) continue;
        Motions left;
        for (std::size_t k = 0; k < body.motions.size(); ++k) {
            if (k == pivot) continue;
            Vec6& m = left.add(body.motions[k]);
            const double share = along(body.motions[k]) / by;
            for (std::size_t c = 0; c < 6; ++c) m[c] -= share * taken[c];
        }
        body.motions = left;
    }
    for (std::size_t k = 0; k < body.motions.size() && !body.held.empty(); ++k)  // at right angles
        for (std::size_t j = 0; j < k; ++j) {
            const double share = body.amount(j, body.motions[k]);
            for (std::size_t c = 0; c < 6; ++c) body.motions[k][c] -= share * body.motions[j][c];
        }
}

}  // namespace

bool RigidBody::turns_far() const {
    constexpr double nothing = 1e-9;
    if (held.empty()) return true;
    const auto one_direction = [this](const HeldDirection& h) {
        return norm(cross(h.direction, held.front().direction)) < nothing;
    };
    const auto pure = [this](const Vec6& m) {
        const double moves = norm(force_of(m)), turns = size * norm(moment_of(m));
        return moves < nothing * turns || turns < nothing * moves;
    };
    return std::ranges::all_of(held, one_direction) && std::all_of(motions.begin(), motions.end(), pure);
}

double RigidBody::amount(std::size_t k, const Vec6& motion) const {
    const Vec6& own = motions[k];
    const double squared = size * size;
    double product = 0, square = 0;
    for (std::size_t c = 0; c < 6; ++c) {
        const double weight = c < 3 || held.empty() ? 1 : squared;
        product += weight * own[c] * motion[c];
        square += weight * own[c] * own[c];
    }
    return held.empty() ? product : product / square;
}

std::int32_t RigidSystem::common_body(const std::int32_t* nodes, int count) const {
    if (bodies.empty()) return -1;
    const std::int32_t body = body_of_node[nodes[0] - 1];
    for (int i = 1; i < count && body >= 0; ++i)
        if (body_of_node[nodes[i] - 1] != body) return -1;
    return body;
}

std::vector<char> RigidSystem::elements_inside(const Mesh& mesh) const {
    if (bodies.empty()) return {};
    const int nodes = mesh.node_per_element();
    std::vector<char> inside(mesh.element_num());
    for (std::size_t e = 0; e < inside.size(); ++e)
        inside[e] = common_body(mesh.element(e).data(), nodes) >= 0;
    return inside;
}

void find_normals(RigidSystem& system, const Mesh& mesh) {
    std::vector<double> area(system.bodies.size(), 0.0);
    for (const ElementFace& face : free_faces(mesh)) {
        const auto local = outward_triangles(mesh.element_type, face.face);
        std::vector<std::int32_t> nodes;
        for (int p : local) nodes.push_back(mesh.element(face.element)[p]);
        const std::int32_t b = system.common_body(nodes.data(), static_cast<int>(nodes.size()));
        if (b < 0) continue;
        for (std::size_t t = 0; t + 2 < nodes.size(); t += 3) {
            const Vec3 a = place_of(mesh, nodes[t] - 1),
                       n = times(0.5, cross(minus(place_of(mesh, nodes[t + 1] - 1), a),
                                            minus(place_of(mesh, nodes[t + 2] - 1), a)));
            add(system.bodies[b].normal, n);
            area[b] += norm(n);
        }
    }
    for (std::size_t b = 0; b < system.bodies.size(); ++b) {
        RigidBody& body = system.bodies[b];
        if (area[b] == 0)
            for (std::int32_t n : body.members) {
                const double* d = &mesh.node_n_dir[3 * n];
                add(body.normal, {d[0], d[1], d[2]});
                area[b] += 1;
            }
        const double size = norm(body.normal);
        body.normal = size > 1e-6 * area[b] ? times(1 / size, body.normal) : Vec3{};
    }
}

std::vector<std::int32_t> add_body(RigidSystem& system, const RigidElement& record, const Mesh& mesh,
                                   const NodeElements& node_elements) {
    if (system.empty()) system.body_of_node.assign(mesh.node_num(), -1);
    RigidBody body;
    body.record = static_cast<std::int32_t>(system.bodies.size());
    body.reference = record.reference;
    std::vector<std::int32_t> taken;
    for (std::int32_t n : select_nodes(record, mesh, node_elements)) {
        std::int32_t& owner = system.body_of_node[n];
        if (owner >= 0) {
            taken.push_back(n);
            continue;
        }
        owner = body.record;
        body.members.push_back(n);
    }
    system.bodies.push_back(std::move(body));
    return taken;
}

RigidSystem build_rigid_system(std::span<const RigidElement> records, const Mesh& mesh,
                               const NodeElements& node_elements, std::span<const std::int32_t> fixed_nodes,
                               std::span<const HeldDirection> held) {
    RigidSystem out;
    if (records.empty()) return out;
    std::vector<char> fixed(mesh.node_num(), 0);
    for (std::int32_t n : fixed_nodes) fixed[n] = 1;
    for (std::size_t k = 0; k < records.size(); ++k) {
        std::vector<std::vector<std::int32_t>> shared(k);
        for (std::int32_t n : add_body(out, records[k], mesh, node_elements))
            shared[out.body_of_node[n]].push_back(n);
        RigidBody& body = out.bodies.back();
        for (std::int32_t n : body.members)
            if (fixed[n]) body.fixed.push_back(n);
        for (std::size_t other = 0; other < k; ++other) {
            if (shared[other].empty()) continue;
            if (spread_of(mesh, shared[other]).rank == 2)
                out.error = "rigid elements " + records[other].name + " and " + records[k].name + " share " +
                            std::to_string(shared[other].size()) +
                            " nodes that are not on a line: they are one body, make them one element";
            else
                out.notices.push_back(formatted(
                    "rigid elements %s and %s share %zu node%s: %s has %s", records[other].name.c_str(),
                    records[k].name.c_str(), shared[other].size(), shared[other].size() == 1 ? "" : "s",
                    records[other].name.c_str(), shared[other].size() == 1 ? "it" : "them"));
        }
        if (body.members.empty() && out.error.empty())
            out.error = "rigid element " + records[k].name + ": no node of its own in its region";
        if (!out.error.empty()) return out;
        find_motions(body, mesh, records[k].name, out.notices);
        for (const HeldDirection& h : held)
            if (out.body_of_node[h.node] == body.record && !fixed[h.node]) body.held.push_back(h);
        hold_motions(body, mesh);
        body.first = out.equations;
        out.equations += body.count();
    }
    find_normals(out, mesh);
    return out;
}

Mat3 rotation_of(const Vec3& t) {
    const double angle2 = dot(t, t), angle = std::sqrt(angle2);
    // sin x / x and (1 - cos x)/x², smooth through 0
    const double a = angle > 1e-4 ? std::sin(angle) / angle : 1 - angle2 / 6;
    const double half = std::sin(angle / 2);
    const double b = angle > 1e-4 ? 2 * half * half / angle2 : 0.5 - angle2 / 24;
    Mat3 R;
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) R[3 * i + j] = b * t[i] * t[j] + (i == j ? 1 - b * angle2 : 0);
    R[1] -= a * t[2], R[2] += a * t[1], R[3] += a * t[2], R[5] -= a * t[0], R[6] -= a * t[1],
        R[7] += a * t[0];
    return R;
}

// Through the quaternion's largest component (Spurrier, J. Spacecraft 15, 1978), which keeps its digits at
// every angle.
Vec3 rotation_vector(const Mat3& R) {
    const double trace = R[0] + R[4] + R[8];
    double w;
    Vec3 v;
    const double largest = std::max({trace, R[0], R[4], R[8]});
    if (largest == trace) {
        w = 0.5 * std::sqrt(1 + trace);
        v = {(R[7] - R[5]) / (4 * w), (R[2] - R[6]) / (4 * w), (R[3] - R[1]) / (4 * w)};
    } else {
        const std::size_t i = largest == R[0] ? 0 : largest == R[4] ? 1 : 2, j = (i + 1) % 3, k = (i + 2) % 3;
        v[i] = std::sqrt(0.5 * R[4 * i] + 0.25 * (1 - trace));
        w = (R[3 * k + j] - R[3 * j + k]) / (4 * v[i]);
        v[j] = (R[3 * j + i] + R[3 * i + j]) / (4 * v[i]);
        v[k] = (R[3 * k + i] + R[3 * i + k]) / (4 * v[i]);
    }
    if (w < 0) {
        w = -w;
        v = times(-1, v);
    }
    const double size = norm(v);
    return times(size > 1e-8 ? 2 * std::atan2(size, w) / size : 2 / w, v);
}

Motions current_motions(const RigidBody& body, const RigidState& state) {
    Motions motions = body.motions;
    if (body.axes_turn)
        for (Vec6& m : motions) {
            const Vec3 w = turned(state.R, moment_of(m));
            std::copy(w.begin(), w.end(), m.begin() + 3);
        }
    return motions;
}

Vec3 displacement_of(const RigidBody& body, const RigidState& state, const Vec3& X) {
    const Vec3 arm = minus(X, body.pivot);
    Vec3 u = minus(turned(state.R, arm), arm);
    add(u, state.u);
    return u;
}

RigidState advanced(const RigidBody& body, const RigidState& state, const double* q) {
    RigidState out = state;
    Vec3 theta{};
    const Motions motions = current_motions(body, state);
    for (std::size_t k = 0; k < motions.size(); ++k) {
        add(out.u, force_of(motions[k]), q[k]);
        add(theta, moment_of(motions[k]), q[k]);
    }
    out.R = multiply3(rotation_of(theta), state.R);
    return out;
}

void expand_members(const RigidSystem& system, const Mesh& mesh, std::span<const double> q,
                    std::span<double> u) {
    for (const RigidBody& body : system.bodies) {
        Vec3 v{}, w{};
        for (std::int32_t k = 0; k < body.count(); ++k) {
            const double amount = q[body.first + k];
            add(v, force_of(body.motions[k]), amount);
            add(w, moment_of(body.motions[k]), amount);
        }
        for (std::int32_t n : body.members) {
            const Vec3 turn = cross(w, minus(place_of(mesh, n), body.pivot));
            for (std::size_t c = 0; c < 3; ++c) u[3 * n + c] = v[c] + turn[c];
        }
        for (std::int32_t n : body.fixed) std::fill_n(u.begin() + 3 * n, 3, 0.0);
    }
}

void place_members(const RigidSystem& system, std::span<const RigidState> states, const Mesh& mesh,
                   std::span<double> u) {
    for (std::size_t b = 0; b < system.bodies.size(); ++b) {
        const RigidBody& body = system.bodies[b];
        for (std::int32_t n : body.members) {
            const Vec3 d = displacement_of(body, states[b], place_of(mesh, n));
            std::copy(d.begin(), d.end(), u.begin() + 3 * n);
        }
        for (std::int32_t n : body.fixed) std::fill_n(u.begin() + 3 * n, 3, 0.0);
    }
}

Vec6 resultant(const RigidBody& body, const RigidState& state, const Mesh& mesh,
               std::span<const double> nodal) {
    Vec6 sum{};
    for (std::int32_t n : body.members) {
        const auto k = 3 * n;
        const Vec3 f{nodal[k], nodal[k + 1], nodal[k + 2]};
        const Vec3 m = cross(turned(state.R, minus(place_of(mesh, n), body.pivot)), f);
        for (std::size_t c = 0; c < 3; ++c) {
            sum[c] += f[c];
            sum[3 + c] += m[c];
        }
    }
    return sum;
}

Vec6 rigid_force_resultant(const RigidSystem& system, std::int32_t b, const RigidState& state,
                           std::span<const RigidForce> forces) {
    const RigidBody& body = system.bodies[b];
    Vec6 sum{};
    for (const RigidForce& force : forces) {
        if (force.element != b) continue;
        const auto direction = static_cast<std::size_t>(force.direction);
        if (direction >= 3 && direction < 6) {
            sum[direction] += force.value;
            continue;
        }
        Vec3 f{};
        if (direction < 3)
            f[direction] = force.value;
        else
            f = times(force.value, body.normal);
        const Vec3 m = cross(turned(state.R, minus(body.reference, body.pivot)), f);
        for (std::size_t c = 0; c < 3; ++c) {
            sum[c] += f[c];
            sum[3 + c] += m[c];
        }
    }
    return sum;
}

void project(const RigidBody& body, const RigidState& state, const Vec6& force, double factor, double* out) {
    const Motions motions = current_motions(body, state);
    for (std::size_t k = 0; k < motions.size(); ++k)
        for (std::size_t c = 0; c < 6; ++c) out[k] += factor * motions[k][c] * force[c];
}

}  // namespace kestralum
