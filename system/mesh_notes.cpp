#include "system/mesh_notes.h"

#include <algorithm>
#include <array>

#include "elements/element_type.h"
#include "model/element_quality.h"
#include "model/format.h"
#include "model/free_faces.h"

namespace kestralum {

namespace {

constexpr double sliver_angle = 2;     // degrees
constexpr double bending_share = 0.2;  // of an element's energy, that of the varying part
constexpr double worth_a_note = 0.05;  // of the model's energy
constexpr std::array<std::array<int, 2>, 3> sides{
    {{0, 1}, {2, 4}, {3, 5}}};  // opposite faces of a hexahedron

// Which faces of which elements are free: six flags an element.
std::vector<std::array<char, 6>> free_flags(const Mesh& mesh) {
    std::vector<std::array<char, 6>> flags(mesh.element_num());
    for (const ElementFace& face : free_faces(mesh)) flags[face.element][face.face] = 1;
    return flags;
}

// The other element on a face, with its face; -1 where there is none.
ElementFace neighbour(const Mesh& mesh, const NodeElements& around, std::int32_t e, int face) {
    std::array<std::int32_t, 4> nodes;
    for (std::size_t k = 0; k < 4; ++k) nodes[k] = mesh.element(e)[hexa_face[face][k]];
    for (const std::int32_t other : around.of(node_index(nodes[0]))) {
        if (other == e) continue;
        const auto element = mesh.element(other);
        for (int f = 0; f < 6; ++f)
            if (std::ranges::all_of(hexa_face[f], [&](int local) {
                    return std::ranges::find(nodes, element[local]) != nodes.end();
                }))
                return {other, f};
    }
    return {-1, 0};
}

int opposite(int face) {
    for (const auto& [a, b] : sides)
        if (face == a || face == b) return face == a ? b : a;
    return face;
}

// Elements from one free side to the other along a direction: 1 or 2, else 0.
int layers(const Mesh& mesh, const NodeElements& around, const std::vector<std::array<char, 6>>& free,
           std::int32_t e, const std::array<int, 2>& side) {
    const bool a = free[e][side[0]] != 0, b = free[e][side[1]] != 0;
    if (a && b) return 1;
    if (!a && !b) return 0;
    const ElementFace other = neighbour(mesh, around, e, a ? side[1] : side[0]);
    return other.element >= 0 && free[other.element][opposite(other.face)] ? 2 : 0;
}

double energy(const double* s, double poisson) {
    double sum = 0;
    for (int c = 0; c < 6; ++c) sum += (c < 3 ? 1 : 2) * s[c] * s[c];
    const double trace = s[0] + s[1] + s[2];
    return (1 + poisson) * sum - poisson * trace * trace;
}

// The energy of an element's stresses, and of what changes its sign from one side to the other of a
// direction.
struct Varying {
    double all = 0, part = 0;
};
Varying varying_energy(const double* stress, const std::array<int, 2>& side, double poisson) {
    constexpr int points = 8;
    std::array<double, points> sign;  // point p lies nearest to local node p
    for (int p = 0; p < points; ++p)
        sign[p] = std::ranges::find(hexa_face[side[0]], p) != hexa_face[side[0]].end() ? 1.0 : -1.0;
    double slope[6] = {};
    Varying out;
    for (int p = 0; p < points; ++p) {
        out.all += energy(stress + 6 * p, poisson) / points;
        for (int c = 0; c < 6; ++c) slope[c] += sign[p] * stress[6 * p + c] / points;
    }
    out.part = energy(slope, poisson);
    return out;
}

}  // namespace

void note_slivers(Job& job) {
    const Mesh& mesh = job.mesh();
    std::int64_t count = 0;
    double worst = sliver_angle;
    std::int32_t at = -1;
    std::array<double, 3 * most_nodes> x;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto nodes = mesh.element(e);
        for (std::size_t i = 0; i < nodes.size(); ++i)
            std::copy_n(mesh.node(node_index(nodes[i])), 3, x.data() + 3 * i);
        const double angle = element_quality(mesh.element_type, std::span(x).first(3 * nodes.size())).angle;
        if (angle >= sliver_angle) continue;
        ++count;
        if (angle < worst || at < 0) {
            worst = angle;
            at = e;
        }
    }
    if (count > 0)
        job.note(formatted(
            "%lld element%s an angle under %g degrees, the smallest %.2g in %s: stresses around such "
            "slivers are poor",
            static_cast<long long>(count), count == 1 ? " has" : "s have", sliver_angle, worst,
            place_of_element(job, at).c_str()));
}

void note_thin_bending(Job& job, const NodeElements& node_elements, const PointResults& points) {
    const Mesh& mesh = job.mesh();
    if (mesh.element_type != ElementKind::hexahedron || job.hexahedra() != HexahedronForm::full) return;
    const std::vector<std::array<char, 6>> free = free_flags(mesh);
    double all = 0, bending = 0, largest = 0;
    std::int64_t count = 0;
    std::int32_t worst = -1;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const Material& material = job.model.materials[job.model.parts[mesh.p_ele_part_id[e]].material_id];
        const double* stress = points.stress.data() + std::size_t(48) * e;
        const double weight = points.volume[e] / material.young;
        double own = 0, most = 0;
        for (const auto& side : sides) {
            const Varying v = varying_energy(stress, side, material.poisson);
            own = weight * v.all;
            if (v.part > bending_share * v.all && layers(mesh, node_elements, free, e, side) > 0)
                most = std::max(most, own);
        }
        all += own;
        bending += most;
        count += most > 0;
        if (most > largest) {
            largest = most;
            worst = e;
        }
    }
    if (worst < 0 || bending < worth_a_note * all) return;
    job.note(formatted(
        "%lld full hexahedra bend with one or two of them through the thickness, with %.0f %% of the "
        "strain energy, the most in %s: they are too stiff; hexahedra enhanced bend rightly",
        static_cast<long long>(count), 100 * bending / all, place_of_element(job, worst).c_str()));
}

}  // namespace kestralum
