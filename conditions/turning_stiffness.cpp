#include "conditions/turning_stiffness.h"

namespace kestralum {

std::vector<ForceAt> forces_on_members(const RigidBody& body, const Mesh& mesh,
                                       std::span<const double> nodal) {
    std::vector<ForceAt> out;
    for (const std::int32_t n : body.members) out.push_back({place_of(mesh, n), triple(nodal, n)});
    return out;
}

void add_turning_stiffness(const RigidBody& body, const RigidState& state, std::span<const ForceAt> forces,
                           std::int32_t equations, std::span<double> K_rr) {
    Mat3 G{};
    for (const ForceAt& at : forces) {
        const Vec3 r = turned(state.R, minus(at.place, body.pivot)), &f = at.force;
        const double rf = dot(r, f);
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) G[3 * i + j] += r[i] * f[j] - (i == j ? rf : 0);
    }
    const Motions motions = current_motions(body, state);
    for (std::size_t i = 0; i < motions.size(); ++i)
        for (std::size_t j = 0; j < motions.size(); ++j) {
            const std::size_t to = (body.first + i) * std::size_t(equations) + body.first + j;
            const Vec3 turn = turned(G, triple(motions[j], 1));
            for (std::size_t c = 0; c < 3; ++c) K_rr[to] += motions[i][3 + c] * turn[c];
        }
}

}  // namespace kestralum
