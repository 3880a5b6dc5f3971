#include "analysis/explicit/explicit_rigid.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/format.h"
#include "model/symmetric3.h"
#include "solver/dense_eigen.h"
#include "system/load_set.h"

namespace kestralum {

namespace {

// a + s b
Vec3 plus(const Vec3& a, const Vec3& b, double s) {
    return {a[0] + s * b[0], a[1] + s * b[1], a[2] + s * b[2]};
}
// R I Rᵀ
Mat3 turned_inertia(const Mat3& R, const Mat3& I) {
    return multiply3(multiply3(R, I), transposed(R));
}

// A matrix of the body's frame acts on a vector of space.
Vec3 act(const Mat3& in_body, const Mat3& R, const Vec3& v) {
    return turned(R, turned(in_body, turned(transposed(R), v)));
}

// ω of I ω = L in the rotations that the body has.
Vec3 angular_velocity(const ExplicitBody& body, const Mat3& R, const Vec3& L) {
    return act(body.mobility, R, L);
}

// A symmetric matrix of at most six rows, and up to six columns of its inverse root; no memory of their own.
struct Matrix6 {
    int n = 0;
    std::array<double, 36> a{};
    double* operator[](int i) { return &a[i * n]; }
};
struct Columns6 {
    int count = 0;
    std::array<std::array<double, 6>, 6> column{};
    auto begin() const { return column.begin(); }
    auto end() const { return column.begin() + count; }
};

// With A Aᵀ = S⁺ of a symmetric S >= 0: its columns, one per eigenvalue above `cut` times the largest; none
// where S is not finite.
Columns6 inverse_root(Matrix6 S, double cut) {
    Columns6 out;
    std::array<double, 6> values{};
    std::array<double, 256> work{};
    const int n = S.n;
    if (n == 0 || !symmetric_eigen(n, {S.a.data(), std::size_t(n * n)}, values, work, true)) return out;
    for (int k = 0; k < n; ++k) {
        if (!(values[k] > cut * values[n - 1])) continue;
        auto& column = out.column[out.count++];
        for (int i = 0; i < n; ++i) column[i] = S[k][i] / std::sqrt(values[k]);
    }
    return out;
}

constexpr double rounding = 1e-14;     // of inertia: the motions of a body all have some
constexpr double undetermined = 1e-9;  // motions that prescribed velocities hardly see

// The rotations of the body: what a moment can turn, and ω by L there. Both are constant in the body's frame:
// an axis that is held in space lies still in the body too.
void find_mobility(ExplicitBody& body) {
    std::vector<Vec3> axes;  // orthogonal unit vectors
    for (const Vec6& m : body.geometry.motions)
        if (m[3] != 0 || m[4] != 0 || m[5] != 0) axes.push_back({m[3], m[4], m[5]});
    const int n = static_cast<int>(axes.size());
    const auto axis = [&](int k) { return axes[k]; };
    Matrix6 I{n};
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) I[i][j] = dot(axis(i), turned(body.inertia, axis(j)));
    const auto add_square = [](Mat3& sum, const Vec3& a) {
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) sum[3 * i + j] += a[i] * a[j];
    };
    for (const Vec3& a : axes) add_square(body.turnable, a);
    body.turns_freely = n == 3;
    for (const auto& column : inverse_root(I, rounding)) {
        Vec3 a{};
        for (int k = 0; k < n; ++k) a = plus(a, axis(k), column[k]);
        add_square(body.mobility, a);
    }
}

// Of a body that is held along a direction: where its mass centre can go.
void find_plane(ExplicitBody& body) {
    if (!body.moves || body.geometry.held.empty()) return;
    body.moves_freely = false;
    body.movable = {};
    for (const Vec6& m : body.geometry.motions) {
        const Vec3 t{m[0], m[1], m[2]};
        for (std::size_t i = 0; i < 3 && dot(t, t) > 0; ++i)
            for (std::size_t j = 0; j < 3; ++j) body.movable[3 * i + j] += t[i] * t[j] / dot(t, t);
    }
}

}  // namespace

ExplicitBodies::ExplicitBodies(const RigidSystem& system, const Mesh& mesh, std::span<const double> lumped,
                               std::span<const RigidForce> forces, std::span<const RigidCombine> combines)
    : system_(system),
      mesh_(mesh),
      own_mesh_(&mesh),
      forces_(forces.begin(), forces.end()),
      combines_(combines.begin(), combines.end()),
      turns_(combines.size()) {
    for (RigidForce& force : forces_) {
        whole_forces_.push_back(force.value);
        forces_vary_ = forces_vary_ || force.options.factor.varies;
        if (force.options.factor.given()) force.value *= load_factor(force.options, 0, Growth::whole);
    }
    for (RigidBody& geometry : system_.bodies) {
        ExplicitBody body;
        Vec3 centre{};
        for (std::int32_t n : geometry.members) {
            const double m = lumped[3 * n];
            body.mass += m;
            centre = plus(centre, place_of(mesh, n), m);
        }
        body.moves = geometry.fixed.empty();
        centre = body.mass > 0 ? times(1 / body.mass, centre) : geometry.pivot;
        if (body.moves) geometry.pivot = centre;
        body.centre = minus(centre, geometry.pivot);
        for (std::int32_t n : geometry.members) {
            const double m = lumped[3 * n];
            const Vec3 r = minus(place_of(mesh, n), geometry.pivot);
            for (std::size_t i = 0; i < 3; ++i)
                for (std::size_t j = 0; j < 3; ++j)
                    body.inertia[3 * i + j] += m * ((i == j ? dot(r, r) : 0) - r[i] * r[j]);
        }
        body.geometry = geometry;
        find_mobility(body);
        find_plane(body);
        bodies_.push_back(std::move(body));
    }
    states_.resize(bodies_.size());
    resist_.resize(bodies_.size());
    pushes_.resize(bodies_.size());
    damped_ = std::ranges::any_of(combines_, &RigidCombine::damped);
    for (std::vector<Vec6>* room : {&springs_, &dashpots_, &velocities_, &former_})
        room->resize(bodies_.size());
}

bool ExplicitBodies::set_time(double time) {
    for (std::size_t k = 0; k < forces_.size() && forces_vary_; ++k) {
        RigidForce& force = forces_[k];
        const double factor = load_factor(force.options, time, Growth::whole);
        force.value = whole_forces_[k] * factor;
        if (std::isfinite(force.value) || !trouble_.empty()) continue;
        trouble_ = formatted("rigid force %s: its factor '%s' is %g at time %.6g", force.name.c_str(),
                             force.options.factor.text.c_str(), factor, time);
    }
    return trouble_.empty();
}

std::span<const RigidState> ExplicitBodies::states() const {
    for (std::size_t b = 0; b < bodies_.size(); ++b) states_[b] = bodies_[b].state;
    return states_;
}

// The next place from p_new and L_new: the implicit equation of the middle is solved by iteration, which
// contracts by half the angle of a step.
void ExplicitBodies::turn(ExplicitBody& body, double d_time) const {
    body.next = body.state;
    if (body.moves) body.next.u = plus(body.state.u, body.p_new, d_time / body.mass);
    Vec3 omega = angular_velocity(body, body.state.R, body.L_new);
    for (int k = 0; k < 50; ++k) {
        const Vec3 better = angular_velocity(
            body, multiply3(rotation_of(times(0.5 * d_time, omega)), body.state.R), body.L_new);
        const Vec3 change = minus(better, omega);
        omega = better;
        if (dot(change, change) <= 1e-30 * dot(omega, omega)) break;
    }
    body.omega_new = omega;
    if (!body.moves) {
        const Vec3 arm =
            turned(multiply3(rotation_of(times(0.5 * d_time, omega)), body.state.R), body.centre);
        body.p_new = times(body.mass, cross(omega, arm));
    }
    body.next.R = multiply3(rotation_of(times(d_time, omega)), body.state.R);
}

// Prescribed velocities take the motions that they say something about, as least squares; the rest is what
// the momenta give, in the metric of the kinetic energy: Δq = A (AᵀBA)⁺ Aᵀ Σ cᵀ(d - c q) with B = Σ cᵀc and A
// Aᵀ = M⁻¹ on the motions that the body has.
void ExplicitBodies::drive(ExplicitBody& body, std::span<const DrivenMembers> driven, double d_time,
                           std::size_t b) {
    const auto rules = [&](const DrivenMembers& record) {
        return record.body == static_cast<std::int32_t>(b);
    };
    if (std::none_of(driven.begin(), driven.end(), rules)) return;
    Motions motions = current_motions(body.geometry, body.state);
    const int count = static_cast<int>(motions.size());
    // rotations by the radius of gyration: all motions of one unit
    const double trace = body.inertia[0] + body.inertia[4] + body.inertia[8];
    const double radius = trace > 0 ? std::sqrt(trace / (2 * body.mass)) : 1;
    for (Vec6& m : motions)
        for (std::size_t c = 3; c < 6; ++c) m[c] /= radius;
    const auto force_part = [](const Vec6& m) { return Vec3{m[0], m[1], m[2]}; };
    const auto turn_part = [](const Vec6& m) { return Vec3{m[3], m[4], m[5]}; };
    const Mat3 I = turned_inertia(body.state.R, body.inertia);
    Matrix6 M{count};
    for (int i = 0; i < count; ++i)
        for (int j = 0; j < count; ++j) {
            const Vec6 &x = motions[i], &y = motions[j];
            M[i][j] =
                body.mass * dot(force_part(x), force_part(y)) + dot(turn_part(x), turned(I, turn_part(y)));
        }
    // motions of unit kinetic energy, velocity of the pivot and ω
    Motions unit;
    for (const auto& column : inverse_root(M, rounding)) {
        Vec6& m = unit.add();
        for (int k = 0; k < count; ++k)
            for (std::size_t c = 0; c < 6; ++c) m[c] += column[k] * motions[k][c];
    }
    Vec3 v = body.moves ? times(1 / body.mass, body.p_new) : Vec3{}, omega = body.omega_new;
    const int n = static_cast<int>(unit.size());
    Matrix6 B{n};
    std::array<double, 6> g{}, c{};
    for (const DrivenMembers& record : driven) {
        if (!rules(record)) continue;
        const std::size_t axis = record.axis;
        for (std::int32_t node : record.nodes) {
            const Vec3 r = turned(body.state.R, minus(place_of(mesh_, node), body.geometry.pivot));
            const auto along = [&](const Vec3& velocity, const Vec3& spin) {
                return velocity[axis] + cross(spin, r)[axis];
            };
            for (std::size_t k = 0; k < unit.size(); ++k)
                c[k] = along(force_part(unit[k]), turn_part(unit[k]));
            const double gap = record.velocity - along(v, omega);
            for (int i = 0; i < n; ++i) {
                g[i] += c[i] * gap;
                for (int j = 0; j < n; ++j) B[i][j] += c[i] * c[j];
            }
        }
    }
    if (n == 0) return;
    for (const auto& column : inverse_root(B, undetermined)) {
        double size = 0;
        for (int k = 0; k < n; ++k) size += column[k] * g[k];
        for (int k = 0; k < n; ++k) {
            v = plus(v, force_part(unit[k]), size * column[k]);
            omega = plus(omega, turn_part(unit[k]), size * column[k]);
        }
    }
    if (body.moves) body.p_new = times(body.mass, v);
    const Mat3 middle = multiply3(rotation_of(times(0.5 * d_time, omega)), body.state.R);
    body.L_new = turned(turned_inertia(middle, body.inertia), omega);
}

void ExplicitBodies::start(std::span<const DrivenMembers> given, double d_time) {
    for (std::size_t b = 0; b < bodies_.size(); ++b) {
        ExplicitBody& body = bodies_[b];
        drive(body, given, d_time, b);
        // velocities of half a step before the start: the middle of that step is half a step behind
        body.p = body.p_new;
        body.omega_new = angular_velocity(body, body.state.R, body.L_new);
        body.omega = body.omega_new;
        body.L = body.L_new;
    }
}

void ExplicitBodies::add_nodal(std::size_t b, const double* force, Vec3& f, Vec3& m) const {
    const ExplicitBody& body = bodies_[b];
    for (std::int32_t n : body.geometry.members) {
        if (n >= owned_) continue;
        const double* at = force + 4 * std::ptrdiff_t(n);
        const Vec3 nodal{at[0], at[1], at[2]};
        f = plus(f, nodal);
        m = plus(m, cross(turned(body.state.R, minus(place_of(*own_mesh_, n), body.geometry.pivot)), nodal));
    }
}

// Of all processes.
void ExplicitBodies::sum_nodal(const double* force) {
    nodal_.clear();
    for (std::size_t b = 0; b < bodies_.size(); ++b) {
        Vec3 f{}, m{};
        add_nodal(b, force, f, m);
        nodal_.insert(nodal_.end(), {f[0], f[1], f[2], m[0], m[1], m[2]});
    }
    sum_(nodal_);
}

void ExplicitBodies::keep(std::span<const std::int32_t> place_of, std::int64_t owned, const Mesh& mesh,
                          Sum sum) {
    own_mesh_ = &mesh;
    owned_ = owned;
    sum_ = std::move(sum);
    std::vector<std::int32_t> body_of_node(mesh.node_num(), -1);
    for (std::size_t n = 0; n < place_of.size(); ++n)
        if (place_of[n] >= 0) body_of_node[place_of[n]] = system_.body_of_node[n];
    system_.body_of_node = std::move(body_of_node);
    for (ExplicitBody& body : bodies_) {
        std::vector<std::int32_t>& members = body.geometry.members;
        std::erase_if(members, [&](std::int32_t n) { return place_of[n] < 0; });
        for (std::int32_t& n : members) n = place_of[n];
    }
}

void ExplicitBodies::push(std::size_t b, const MemberArrays& arrays, std::span<const DrivenMembers> driven,
                          const StepLengths& dt) {
    ExplicitBody& body = bodies_[b];
    Push& pushed = pushes_[b];
    const std::vector<Vec6>& resist = resist_;
    const Vec6 own = pushed.own =
        rigid_force_resultant(system_, static_cast<std::int32_t>(b), body.state, forces_);
    Vec3 f{own[0] - resist[b][0], own[1] - resist[b][1], own[2] - resist[b][2]};
    Vec3 m{own[3] - resist[b][3], own[4] - resist[b][4], own[5] - resist[b][5]};
    if (sum_) {
        const double* of_all = &nodal_[6 * b];
        f = plus(f, {of_all[0], of_all[1], of_all[2]});
        m = plus(m, {of_all[3], of_all[4], of_all[5]});
    } else {
        add_nodal(b, arrays.force, f, m);
    }
    pushed.force = f;
    if (body.moves) body.p_new = plus(body.p, f, dt.mean);
    if (!body.moves_freely) body.p_new = turned(body.movable, body.p_new);
    // what acts about directions that the body cannot turn in goes to what holds it
    body.L_new = plus(body.L, m, dt.mean);
    if (!body.turns_freely) body.L_new = act(body.turnable, body.state.R, body.L_new);
    turn(body, dt.step);
    pushed.p = body.p_new;
    pushed.L = body.L_new;
    drive(body, driven, dt.step, b);
    if (pushed.p != body.p_new || pushed.L != body.L_new) turn(body, dt.step);
}

// The dashpots at the mean of the velocities before and after, which they change: by iteration, from those
// before. It contracts by half the rate times the step. True when the forces have settled.
bool ExplicitBodies::find_dashpots(int round) {
    constexpr double settled = 1e-14;
    for (std::size_t b = 0; b < bodies_.size(); ++b) {
        const ExplicitBody& body = bodies_[b];
        const double share = round == 0 ? 0 : 0.5;
        for (std::size_t c = 0; c < 3; ++c) {
            velocities_[b][c] =
                body.moves ? (body.p[c] + share * (body.p_new[c] - body.p[c])) / body.mass : 0;
            velocities_[b][3 + c] = body.omega[c] + share * (body.omega_new[c] - body.omega[c]);
        }
    }
    former_.swap(dashpots_);
    std::ranges::fill(dashpots_, Vec6{});
    add_dashpot_resistance(combines_, system_, states(), velocities_, dashpots_);
    double change = 0, size = 0;
    for (std::size_t b = 0; b < bodies_.size(); ++b)
        for (std::size_t c = 0; c < 6; ++c) {
            change = std::max(change, std::abs(dashpots_[b][c] - former_[b][c]));
            size = std::max(size, std::abs(dashpots_[b][c]));
            resist_[b][c] = springs_[b][c] + dashpots_[b][c];
        }
    return round > 0 && !(change > settled * size);
}

void ExplicitBodies::advance(const MemberArrays& arrays, std::span<const DrivenMembers> driven,
                             const StepLengths& dt, std::array<double, 2>& driving,
                             std::array<double, 2>& loads) {
    constexpr int most_rounds = 60;
    combine_resistance(combines_, system_, states(), turns_, resist_);
    if (damped_) springs_ = resist_;
    if (sum_) sum_nodal(arrays.force);
    for (int round = 0; round < most_rounds; ++round) {
        if (damped_ && find_dashpots(round)) break;
        for (std::size_t b = 0; b < bodies_.size(); ++b) push(b, arrays, driven, dt);
        if (!damped_) break;
    }
    reaction_ = {};
    dashpot_power_ = {};
    for (std::size_t b = 0; b < bodies_.size(); ++b) {
        book(b, dt, driving, loads);
        const ExplicitBody& body = bodies_[b];
        for (std::int32_t n : body.geometry.members) {
            const Vec3 next = displacement_of(body.geometry, body.next, place_of(*own_mesh_, n));
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t k = 4 * n + c;
                arrays.v_new[k] = (next[c] - arrays.u[k]) / dt.step;
            }
        }
    }
}

// What the forces of the step have done, and what holds the body.
void ExplicitBodies::book(std::size_t b, const StepLengths& dt, std::array<double, 2>& driving,
                          std::array<double, 2>& loads) {
    ExplicitBody& body = bodies_[b];
    const auto& [own, f, p_free, L_free] = pushes_[b];
    const Vec3 v = body.moves ? times(1 / body.mass, body.p) : Vec3{},
               v_new = body.moves ? times(1 / body.mass, body.p_new) : Vec3{};
    const Vec3 f_drive = times(1 / dt.mean, minus(body.p_new, p_free)),
               m_drive = times(1 / dt.mean, minus(body.L_new, L_free));
    driving[0] += dot(f_drive, v) + dot(m_drive, body.omega);
    driving[1] += dot(f_drive, v_new) + dot(m_drive, body.omega_new);
    const Vec3 own_f{own[0], own[1], own[2]}, own_m{own[3], own[4], own[5]};
    loads[0] += dot(own_f, v) + dot(own_m, body.omega);
    loads[1] += dot(own_f, v_new) + dot(own_m, body.omega_new);
    if (damped_)
        for (std::size_t c = 0; c < 3; ++c) {
            dashpot_power_[0] += dashpots_[b][c] * v[c] + dashpots_[b][3 + c] * body.omega[c];
            dashpot_power_[1] += dashpots_[b][c] * v_new[c] + dashpots_[b][3 + c] * body.omega_new[c];
        }
    if (!body.moves) reaction_ = plus(reaction_, minus(times(1 / dt.mean, minus(body.p_new, body.p)), f));
    if (!body.moves_freely) reaction_ = plus(reaction_, minus(turned(body.movable, f), f));
    const Vec3 p_rate = times(1 / dt.mean, minus(body.p_new, body.p)),
               L_rate = times(1 / dt.mean, minus(body.L_new, body.L));
    for (std::size_t c = 0; c < 3; ++c) {
        body.held[c] = p_rate[c] + resist_[b][c] - own[c];
        body.held[3 + c] = L_rate[c] + resist_[b][3 + c] - own[3 + c];
    }
}

void ExplicitBodies::arrive(std::span<double> u, std::span<double> du, std::span<double> x,
                            std::span<const double> X) {
    for (ExplicitBody& body : bodies_) {
        for (std::int32_t n : body.geometry.members) {
            const Vec3 next = displacement_of(body.geometry, body.next, place_of(*own_mesh_, n));
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t k = 4 * n + c;
                du[k] += next[c] - u[k];
                u[k] = next[c];
                x[k] = X[k] + next[c];
            }
        }
        body.state = body.next;
        body.p = body.p_new;
        body.L = body.L_new;
        body.omega = body.omega_new;
    }
    keep_turns(combines_, states(), turns_);
}

double ExplicitBodies::kinetic() const {
    double sum = 0;
    for (const ExplicitBody& body : bodies_) {
        if (body.moves) sum += 0.5 * dot(body.p, body.p_new) / body.mass;
        sum += 0.25 * (dot(body.omega, body.L_new) + dot(body.omega_new, body.L));
    }
    return sum;
}

double ExplicitBodies::spring_energy() const {
    const std::span<const RigidState> now = states();
    std::array<Vec6, 2> unused{};
    double sum = 0;
    for (std::size_t k = 0; k < combines_.size(); ++k)
        sum += combine_forces(combines_[k], system_, now, turns_[k], unused);
    return sum;
}

Vec3 ExplicitBodies::momentum() const {
    Vec3 sum{};
    for (const ExplicitBody& body : bodies_) sum = plus(sum, plus(body.p, body.p_new), 0.5);
    return sum;
}

Vec3 ExplicitBodies::angular_momentum() const {
    Vec3 sum{};
    for (const ExplicitBody& body : bodies_) {
        const Vec3 x = plus(body.geometry.pivot, body.state.u);
        sum = plus(sum, plus(cross(x, plus(body.p, body.p_new)), plus(body.L, body.L_new)), 0.5);
    }
    return sum;
}

double ExplicitBodies::dashpot_rate() const {
    std::vector<RigidCombine> dashpots = combines_;
    for (RigidCombine& record : dashpots) record.stiffness = record.damping;
    return damped_ ? largest_rate(dashpots) : 0;
}

double ExplicitBodies::largest_rate(std::span<const RigidCombine> records) const {
    if (records.empty() || system_.equations == 0) return 0;
    const int n = system_.equations;
    std::vector<double> K(std::size_t(n) * n, 0.0);
    add_combine_stiffness(records, system_, states(), turns_, K);
    // each body's mass on its motions, then M^-½ K M^-½ bounded by its largest row sum
    double rate = 0;
    std::vector<double> root(n, 0.0);
    for (const ExplicitBody& body : bodies_)
        for (std::int32_t k = 0; k < body.geometry.count(); ++k) {
            const Vec6& motion = body.geometry.motions[k];
            const Vec3 w{motion[3], motion[4], motion[5]};
            // the smallest inertia that the motion can meet bounds the rate from above
            double smallest = body.mass;
            if (dot(w, w) > 0) {
                double values[3];
                const double packed[6] = {body.inertia[0], body.inertia[4], body.inertia[8],
                                          body.inertia[1], body.inertia[5], body.inertia[2]};
                symmetric_eigen3(packed, values, nullptr);
                smallest = std::max({values[0], values[1], values[2]});
                for (double v : values)
                    if (v > 1e-9 * smallest) smallest = std::min(smallest, v);
            }
            root[body.geometry.first + k] = 1 / std::sqrt(smallest);
        }
    for (int i = 0; i < n; ++i) {
        double sum = 0;
        for (int j = 0; j < n; ++j) sum += std::abs(K[i * n + j]) * root[i] * root[j];
        rate = std::max(rate, sum);
    }
    return rate;
}

void ExplicitBodies::print_masses(std::int32_t free_equations, Progress& progress) const {
    progress.print("fn=%d (fn_rigid=%d)\n", free_equations + system_.equations, system_.equations);
    std::int32_t first = 0;
    for (const ExplicitBody& body : bodies_) {
        const auto last = first + 3 * static_cast<std::int32_t>(body.geometry.members.size());
        progress.print("j_s=%d, j_e=%d\n", first, last);
        progress.print(" Mx=%.3e, My=%.3e, Mz=%.3e\n", body.mass, body.mass, body.mass);
        // about the reference point (Steiner)
        const Vec3 r = minus(body.geometry.pivot, body.geometry.reference);
        double I[3];
        for (std::size_t c = 0; c < 3; ++c)
            I[c] = body.inertia[4 * c] + (body.moves ? body.mass * (dot(r, r) - r[c] * r[c]) : 0);
        progress.print("Ixx=%.3e, Iyy=%.3e, Izz=%.3e\n", I[0], I[1], I[2]);
        first = last;
    }
}

void ExplicitBodies::print_velocities(Progress& progress) const {
    if (!progress.lines_wanted()) return;
    for (const ExplicitBody& body : bodies_) {
        const Vec3 v = body.moves ? times(1 / body.mass, body.p_new) : Vec3{};
        const Vec3 arm = turned(body.state.R, minus(body.geometry.reference, body.geometry.pivot));
        const Vec3 at = plus(v, cross(body.omega_new, arm));
        progress.print("Vr:%.3e,%.3e,%.3e,%.3e,%.3e,%.3e\n", at[0], at[1], at[2], body.omega_new[0],
                       body.omega_new[1], body.omega_new[2]);
    }
}

}  // namespace kestralum
