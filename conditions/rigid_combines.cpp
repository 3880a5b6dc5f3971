#include "conditions/rigid_combines.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestralum {

namespace {

Vec3 force_of(const Vec6& f) {
    return {f[0], f[1], f[2]};
}
Vec3 moment_of(const Vec6& f) {
    return {f[3], f[4], f[5]};
}

// J v = v + (1 - cos x)/x² φ × v + (x - sin x)/x³ φ × (φ × v), x = |φ|.
Vec3 left_jacobian(const Vec3& phi, const Vec3& v) {
    const double angle = norm(phi), square = angle * angle;
    const bool small = angle < 1e-3;
    const Vec3 first = cross(phi, v), second = cross(phi, first);
    const double a = small ? 0.5 - square / 24 : (1 - std::cos(angle)) / square,
                 b = small ? 1.0 / 6 - square / 120 : (angle - std::sin(angle)) / (square * angle);
    return plus(plus(v, times(a, first)), times(b, second));
}

// Jᵀ⁻¹ of the left Jacobian of the rotation vector φ applied to v (Barfoot, State Estimation for Robotics,
// 2017, 7.1.5): the moment whose power with the spatial spin is v·φ'. The right Jacobian's is that of -φ.
Vec3 inverse_left_jacobian_transposed(const Vec3& phi, const Vec3& v) {
    const double angle = norm(phi), half = angle / 2;
    // J⁻¹ = 1 - ½[φ] + b [φ]², b = (1 - (x/2) cot(x/2))/x²
    const double b =
        angle > 1e-3 ? (1 - half / std::tan(half)) / (angle * angle) : 1.0 / 12 + angle * angle / 720;
    const Vec3 first = cross(phi, v), second = cross(phi, first);
    return plus(plus(v, times(0.5, first)), times(b, second));  // transposed: the sign of [φ] turns
}

// The rotation between two bodies; swing and twist where its turns are counted.
struct Relative {
    Vec3 rotation{}, swing{};
    double twist = 0;
};

// The nearest to `last` of the angles that are whole turns apart from `angle`.
double unwound(double angle, double last) {
    constexpr double turn = 2 * std::numbers::pi;
    return angle + turn * std::round((last - angle) / turn);
}

Relative relative_rotation(const Mat3& Q, const CombineTurn& last) {
    const Vec3 phi = rotation_vector(Q);
    const double size = norm(phi);
    if (!last.counted) {
        // the same rotation the other way round
        const Vec3 other = size > 0 ? times(1 - 2 * std::numbers::pi / size, phi) : phi;
        const bool goes_on = norm(minus(other, last.rotation)) < norm(minus(phi, last.rotation));
        return {goes_on ? other : phi, {}, 0};
    }
    // the quaternion (w, v) of Q; that of the twist is (w, (v·a) a) but for its size
    const Vec3 v = size > 0 ? times(std::sin(size / 2) / size, phi) : Vec3{};
    const double w = std::cos(size / 2), along = dot(v, last.axis);
    const double twist = unwound(2 * std::atan2(along, w), last.twist);
    const Mat3 back = rotation_of(times(-twist, last.axis));
    const Vec3 swing = rotation_vector(multiply3(Q, back));
    return {plus(swing, times(twist, last.axis)), swing, twist};
}

// The moment whose power with the spatial spin of Q = S T is m · (swing' + twist' a): the spin is J(s) s' + S
// a twist', J the left Jacobian and s' across a.
Vec3 counted_moment(const Relative& relative, const CombineTurn& turn, const Vec3& m) {
    const Vec3& a = turn.axis;
    const std::size_t least = std::abs(a[0]) < std::abs(a[1]) ? (std::abs(a[0]) < std::abs(a[2]) ? 0 : 2)
                                                              : (std::abs(a[1]) < std::abs(a[2]) ? 1 : 2);
    Vec3 other{};
    other[least] = 1;
    const Vec3 across = cross(a, other), e1 = times(1 / norm(across), across), e2 = cross(a, e1);
    const std::array<Vec3, 3> spin{left_jacobian(relative.swing, e1), left_jacobian(relative.swing, e2),
                                   turned(rotation_of(relative.swing), a)};
    // spinₖ · out = the power of m on each: by Cramer's rule
    const double det = dot(spin[0], cross(spin[1], spin[2]));
    const std::array<double, 3> power{dot(m, e1), dot(m, e2), dot(m, a)};
    Vec3 out{};
    for (std::size_t k = 0; k < 3; ++k)
        out = plus(out, times(power[k] / det, cross(spin[(k + 1) % 3], spin[(k + 2) % 3])));
    return out;
}

const CombineTurn& turn_of(std::span<const CombineTurn> turns, std::size_t record) {
    static const CombineTurn none{};
    return turns.empty() ? none : turns[record];
}

}  // namespace

namespace {

Mat3 relative_matrix(const RigidCombine& record, const RigidState& s1, const RigidState& s2) {
    return record.body_axes ? multiply3(transposed(s1.R), s2.R) : multiply3(s2.R, transposed(s1.R));
}

// Where the springs of a record act: the middle between the reference points, on either body.
struct CombinePlaces {
    Vec3 arm1, arm2, w;  // from the pivots; the second place against the first
};
CombinePlaces places_of(const RigidCombine& record, const RigidSystem& system,
                        std::span<const RigidState> states) {
    const std::size_t i1 = record.element[0], i2 = record.element[1];
    const RigidBody &b1 = system.bodies[i1], &b2 = system.bodies[i2];
    const RigidState &s1 = states[i1], &s2 = states[i2];
    const Vec3 d = minus(b2.reference, b1.reference);
    const Vec3 middle = plus(b1.reference, times(0.5, d));
    CombinePlaces out{turned(s1.R, minus(middle, b1.pivot)), turned(s2.R, minus(middle, b2.pivot)),
                      minus(displacement_of(b2, s2, middle), displacement_of(b1, s1, middle))};
    return out;
}

// The force f on the second place and the moments m1 and m2 as resistance of the bodies, added. In axes of
// the first body the force acts on it at the second place too.
void add_resistance(const CombinePlaces& at, bool body_axes, const Vec3& f, const Vec3& m1, const Vec3& m2,
                    Vec6& first, Vec6& second) {
    const Vec3 t1 = cross(body_axes ? plus(at.arm1, at.w) : at.arm1, f), t2 = cross(at.arm2, f);
    for (std::size_t c = 0; c < 3; ++c) {
        first[c] += -f[c];
        first[3 + c] += -t1[c] - m1[c];
        second[c] += f[c];
        second[3 + c] += t2[c] + m2[c];
    }
}

}  // namespace

double combine_forces(const RigidCombine& record, const RigidSystem& system,
                      std::span<const RigidState> states, const CombineTurn& turn,
                      std::array<Vec6, 2>& force) {
    const RigidState &s1 = states[record.element[0]], &s2 = states[record.element[1]];
    const CombinePlaces at = places_of(record, system, states);
    const Vec3 w = record.body_axes ? turned(transposed(s1.R), at.w) : at.w;
    const Mat3 Q = relative_matrix(record, s1, s2);
    const Relative relative = relative_rotation(Q, turn);
    const Vec3& phi = relative.rotation;
    Vec3 f, m;
    double energy = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        f[c] = record.stiffness[c] * w[c];
        m[c] = record.stiffness[3 + c] * phi[c];
        energy += 0.5 * (f[c] * w[c] + m[c] * phi[c]);
    }
    Vec3 m2 = turn.counted ? counted_moment(relative, turn, m) : inverse_left_jacobian_transposed(phi, m),
         m1 = turn.counted ? turned(transposed(Q), m2) : inverse_left_jacobian_transposed(times(-1, phi), m);
    if (record.body_axes) {
        f = turned(s1.R, f);
        m1 = m2 = turned(s1.R, m2);
    }
    force = {};
    add_resistance(at, record.body_axes, f, m1, m2, force[0], force[1]);
    return energy;
}

void keep_turns(std::span<const RigidCombine> records, std::span<const RigidState> states,
                std::span<CombineTurn> turns) {
    for (std::size_t r = 0; r < turns.size(); ++r) {
        CombineTurn& turn = turns[r];
        const Mat3 Q =
            relative_matrix(records[r], states[records[r].element[0]], states[records[r].element[1]]);
        const Relative relative = relative_rotation(Q, turn);
        turn.rotation = relative.rotation;
        turn.twist = relative.twist;
        const double size = norm(relative.rotation);
        if (turn.counted || size <= std::numbers::pi) continue;
        turn.counted = true;
        turn.axis = times(1 / size, relative.rotation);
        turn.twist = size;
    }
}

void combine_resistance(std::span<const RigidCombine> records, const RigidSystem& system,
                        std::span<const RigidState> states, std::span<const CombineTurn> turns,
                        std::span<Vec6> out) {
    std::fill(out.begin(), out.end(), Vec6{});
    for (std::size_t r = 0; r < records.size(); ++r) {
        const RigidCombine& record = records[r];
        std::array<Vec6, 2> force{};
        combine_forces(record, system, states, turn_of(turns, r), force);
        for (std::size_t side = 0; side < 2; ++side)
            for (std::size_t c = 0; c < 6; ++c) out[record.element[side]][c] += force[side][c];
    }
}

void add_dashpot_resistance(std::span<const RigidCombine> records, const RigidSystem& system,
                            std::span<const RigidState> states, std::span<const Vec6> velocities,
                            std::span<Vec6> out) {
    for (const RigidCombine& record : records) {
        if (!record.damped()) continue;
        const std::size_t i1 = record.element[0], i2 = record.element[1];
        const Mat3& R = states[i1].R;
        const CombinePlaces at = places_of(record, system, states);
        const Vec3 spin1 = moment_of(velocities[i1]), spin2 = moment_of(velocities[i2]);
        Vec3 rate = minus(plus(force_of(velocities[i2]), cross(spin2, at.arm2)),
                          plus(force_of(velocities[i1]), cross(spin1, at.arm1)));
        Vec3 spin = minus(spin2, spin1);
        if (record.body_axes) {
            rate = turned(transposed(R), minus(rate, cross(spin1, at.w)));
            spin = turned(transposed(R), spin);
        }
        for (std::size_t c = 0; c < 3; ++c) {
            rate[c] *= record.damping[c];
            spin[c] *= record.damping[3 + c];
        }
        if (record.body_axes) {
            rate = turned(R, rate);
            spin = turned(R, spin);
        }
        add_resistance(at, record.body_axes, rate, spin, spin, out[i1], out[i2]);
    }
}

void add_combine_forces(std::span<const RigidCombine> records, const RigidSystem& system,
                        std::span<const RigidState> states, std::span<const CombineTurn> turns,
                        std::span<double> Q) {
    for (std::size_t r = 0; r < records.size(); ++r) {
        const RigidCombine& record = records[r];
        std::array<Vec6, 2> force{};
        combine_forces(record, system, states, turn_of(turns, r), force);
        for (std::size_t side = 0; side < 2; ++side) {
            const std::size_t b = record.element[side];
            const RigidBody& body = system.bodies[b];
            project(body, states[b], force[side], 1, Q.data() + body.first);
        }
    }
}

namespace {

bool at_rest(const RigidState& state) {
    return state.u == Vec3{} && state.R == RigidState{}.R;
}

// One record at rest: Gᵀ k G, G the relative displacement at the middle and the relative rotation.
void add_at_rest(const RigidCombine& record, const RigidSystem& system, std::span<double> K) {
    const std::size_t n = system.equations;
    std::array<std::size_t, 12> columns;
    std::array<Vec6, 12> G;
    std::size_t count = 0;
    Vec3 middle{};
    for (std::int32_t e : record.element) middle = plus(middle, times(0.5, system.bodies[e].reference));
    for (std::size_t side = 0; side < 2; ++side) {
        const RigidBody& body = system.bodies[record.element[side]];
        const double sign = side == 0 ? -1 : 1;
        for (std::int32_t k = 0; k < body.count(); ++k) {
            const Vec6& motion = body.motions[k];
            const Vec3 turn = cross(moment_of(motion), minus(middle, body.pivot));
            Vec6& g = G[count];
            for (std::size_t c = 0; c < 3; ++c) {
                g[c] = sign * (motion[c] + turn[c]);
                g[3 + c] = sign * motion[3 + c];
            }
            columns[count++] = body.first + k;
        }
    }
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j < count; ++j)
            for (std::size_t c = 0; c < 6; ++c)
                K[columns[i] * n + columns[j]] += record.stiffness[c] * G[i][c] * G[j][c];
}

}  // namespace

void add_combine_stiffness(std::span<const RigidCombine> records, const RigidSystem& system,
                           std::span<const RigidState> states, std::span<const CombineTurn> turns,
                           std::span<double> K) {
    constexpr double h = 1e-6;  // m or rad
    const std::size_t n = system.equations;
    std::vector<RigidState> moved(states.begin(), states.end());
    for (std::size_t r = 0; r < records.size(); ++r) {
        const RigidCombine& record = records[r];
        if (at_rest(states[record.element[0]]) && at_rest(states[record.element[1]])) {
            add_at_rest(record, system, K);
            continue;
        }
        // forces on the motions of both bodies, six each, where motion k of body b has gone a step on
        const auto forces_at = [&](std::int32_t b, std::int32_t k, double step) {
            std::array<double, 6> q{};
            q[k] = step;
            moved[b] = advanced(system.bodies[b], states[b], q.data());
            std::array<Vec6, 2> force{};
            combine_forces(record, system, moved, turn_of(turns, r), force);
            std::array<double, 12> out{};
            for (std::size_t side = 0; side < 2; ++side) {
                const std::int32_t e = record.element[side];
                project(system.bodies[e], moved[e], force[side], 1, out.data() + 6 * side);
            }
            moved[b] = states[b];
            return out;
        };
        for (std::int32_t b : record.element)
            for (std::int32_t k = 0; k < system.bodies[b].count(); ++k) {
                const auto forward = forces_at(b, k, h), backward = forces_at(b, k, -h);
                for (std::size_t side = 0; side < 2; ++side) {
                    const RigidBody& body = system.bodies[record.element[side]];
                    for (std::int32_t i = 0; i < body.count(); ++i)
                        K[(body.first + i) * n + system.bodies[b].first + k] +=
                            (forward[6 * side + i] - backward[6 * side + i]) / (2 * h);
                }
            }
    }
}

Vec6 spring_resistance(std::span<const RigidCombine> records, const RigidSystem& system, std::int32_t b,
                       std::span<const double> q) {
    const auto motion_of = [&](std::int32_t e, const Vec3& at,
                               Vec3& w) {  // displacement of the body's point, and its rotation
        const RigidBody& body = system.bodies[e];
        Vec3 v{};
        w = {};
        for (std::int32_t k = 0; k < body.count(); ++k) {
            v = plus(v, times(q[body.first + k], force_of(body.motions[k])));
            w = plus(w, times(q[body.first + k], moment_of(body.motions[k])));
        }
        return plus(v, cross(w, minus(at, body.pivot)));
    };
    Vec6 sum{};
    for (const RigidCombine& record : records) {
        if (record.element[0] != b && record.element[1] != b) continue;
        Vec3 middle{}, w1, w2;
        for (std::int32_t e : record.element) middle = plus(middle, times(0.5, system.bodies[e].reference));
        const Vec3 u1 = motion_of(record.element[0], middle, w1),
                   u2 = motion_of(record.element[1], middle, w2);
        const double sign = record.element[1] == b ? 1 : -1;
        Vec3 f;
        for (std::size_t c = 0; c < 3; ++c) f[c] = sign * record.stiffness[c] * (u2[c] - u1[c]);
        const Vec3 m = cross(minus(middle, system.bodies[b].pivot), f);
        for (std::size_t c = 0; c < 3; ++c) {
            sum[c] += f[c];
            sum[3 + c] += m[c] + sign * record.stiffness[3 + c] * (w2[c] - w1[c]);
        }
    }
    return sum;
}

}  // namespace kestralum
