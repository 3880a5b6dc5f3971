#include "analysis/eigen/rigid_motions.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "solver/dense_eigen.h"
#include "system/support_springs.h"

namespace kestralum {

namespace {

using Six = std::array<double, 6>;

Vec3 centre_of(const Mesh& mesh) {
    Vec3 out;
    for (std::size_t c = 0; c < 3; ++c) out[c] = 0.5 * (mesh.size_info[c] + mesh.size_info[c + 3]);
    return out;
}

Vec3 axis_vector(std::size_t a) {
    Vec3 out{};
    out[a] = 1;
    return out;
}

// Displacements along `direction` at x in the six motions: translations, then rotations about the axes
// through the centre.
Six along(const Vec3& direction, const Vec3& x, const Vec3& centre) {
    const Vec3 turn = cross(minus(x, centre), direction);
    return {direction[0], direction[1], direction[2], turn[0], turn[1], turn[2]};
}

// The six motions on the free places of q and on the rigid bodies: n × 6.
std::vector<double> six_motions(const Mesh& mesh, const Freedoms& freedoms) {
    const std::vector<std::int32_t>& free_dofs = freedoms.numbering.free_dofs;
    const RigidSystem& rigid = freedoms.rigid;
    const std::size_t nf = free_dofs.size(), n = nf + rigid.equations;
    const Vec3 centre = centre_of(mesh);
    std::vector<double> out(6 * n, 0.0);
    for (const RigidBody& body : rigid.bodies)
        for (std::size_t k = 0; k < body.motions.size(); ++k)
            for (std::size_t a = 0; a < 3; ++a) {
                const Vec3 axis = axis_vector(a), v = cross(axis, minus(body.pivot, centre));
                const std::size_t row = nf + body.first + k;
                out[a * n + row] = body.amount(k, {axis[0], axis[1], axis[2], 0, 0, 0});
                out[(3 + a) * n + row] = body.amount(k, {v[0], v[1], v[2], axis[0], axis[1], axis[2]});
            }
    for (std::size_t k = 0; k < nf; ++k) {
        const Six row =
            along(freedoms.constraints.map.axis(free_dofs[k]), place_of(mesh, free_dofs[k] / 3), centre);
        for (std::size_t m = 0; m < 6; ++m) out[m * n + k] = row[m];
    }
    return out;
}

// What resists the six motions: Σ r rᵀ over the held directions, lengths in parts of the body's, and the
// energy of the springs, each scaled to a trace of one.
class Resistance {
public:
    explicit Resistance(double length) : length_(length) {}

    void add(Six row) {
        for (std::size_t m = 3; m < 6; ++m) row[m] /= length_;
        for (std::size_t i = 0; i < 6; ++i)
            for (std::size_t j = 0; j < 6; ++j) sum_[6 * i + j] += row[i] * row[j];
    }
    void finish_part() {
        double trace = 0;
        for (std::size_t i = 0; i < 6; ++i) trace += sum_[7 * i];
        for (std::size_t k = 0; k < 36 && trace > 0; ++k) all_[k] += sum_[k] / trace;
        sum_ = {};
    }
    // The combinations of the six that nothing resists.
    std::vector<Six> free() const {
        constexpr double nothing = 1e-10;
        std::vector<double> a(all_.begin(), all_.end()), values;
        symmetric_eigen(6, a, values);
        std::vector<Six> out;
        for (std::size_t k = 0; k < 6; ++k) {
            if (values[k] > nothing) continue;
            Six& motion = out.emplace_back();
            for (std::size_t m = 0; m < 6; ++m) motion[m] = a[6 * k + m] / (m < 3 ? 1 : length_);
        }
        return out;
    }

private:
    double length_;
    std::array<double, 36> sum_{}, all_{};
};

void add_springs_to(Resistance& resistance, const Model& model, const Mesh& mesh, const Freedoms& freedoms) {
    const Vec3 centre = centre_of(mesh);
    for (const BoundaryCondition& record : model.boundary_conditions)
        support_springs(record, mesh, freedoms.node_elements,
                        [&](std::span<const std::int32_t> nodes, std::span<const double> block) {
                            // of a positive semidefinite block the rows span what it resists
                            const std::size_t size = 3 * nodes.size();
                            for (std::size_t i = 0; i < size; ++i) {
                                Six row{};
                                for (std::size_t j = 0; j < size; ++j) {
                                    const Six at =
                                        along(axis_vector(j % 3), place_of(mesh, nodes[j / 3]), centre);
                                    for (std::size_t m = 0; m < 6; ++m) row[m] += block[i * size + j] * at[m];
                                }
                                resistance.add(row);
                            }
                        });
    resistance.finish_part();
}

std::vector<Six> motions_left(const Model& model, const Mesh& mesh, const Freedoms& freedoms) {
    Resistance resistance(mesh.max_length);
    const Vec3 centre = centre_of(mesh);
    const auto hold = [&](std::int32_t n, const Vec3& direction) {
        resistance.add(along(direction, place_of(mesh, n), centre));
    };
    for (const HeldDof& held : freedoms.constraints.held)
        hold(held.dof / 3, freedoms.constraints.map.axis(held.dof));
    for (const RigidBody& body : freedoms.rigid.bodies)
        for (const HeldDirection& held : body.held) hold(held.node, held.direction);
    resistance.finish_part();
    add_springs_to(resistance, model, mesh, freedoms);
    return resistance.free();
}

}  // namespace

std::vector<double> free_rigid_motions(const Job& job, const AssembledSystem& system) {
    const auto& records = job.model.boundary_conditions;
    const Freedoms& freedoms = system.freedoms;
    if (std::ranges::any_of(records, [](const BoundaryCondition& r) { return !r.options.given; })) return {};
    std::vector<double> six = six_motions(job.mesh(), freedoms);
    if (records.empty()) return six;
    const std::size_t n = six.size() / 6;
    std::vector<double> out;
    for (const Six& motion : motions_left(job.model, job.mesh(), freedoms)) {
        const std::size_t first = out.size();
        out.resize(first + n, 0.0);
        for (std::size_t m = 0; m < 6; ++m)
            for (std::size_t k = 0; k < n; ++k) out[first + k] += motion[m] * six[m * n + k];
    }
    return out;
}

std::vector<double> translations(const AssembledSystem& system) {
    const std::vector<std::int32_t>& free_dofs = system.freedoms.numbering.free_dofs;
    const std::size_t n = system.equations(), nf = free_dofs.size();
    std::vector<double> all(3 * n, 0.0);
    for (std::size_t k = 0; k < nf; ++k) {
        const Vec3 axis = system.freedoms.constraints.map.axis(free_dofs[k]);
        for (std::size_t d = 0; d < 3; ++d) all[d * n + k] = axis[d];
    }
    for (const RigidBody& body : system.freedoms.rigid.bodies)
        for (std::size_t k = 0; k < body.motions.size(); ++k)
            for (std::size_t d = 0; d < 3; ++d) {
                const Vec3 axis = axis_vector(d);
                all[d * n + nf + body.first + k] = body.amount(k, {axis[0], axis[1], axis[2], 0, 0, 0});
            }
    return all;
}

}  // namespace kestralum
