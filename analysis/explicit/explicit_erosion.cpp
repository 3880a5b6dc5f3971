#include "analysis/explicit/explicit_erosion.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "analysis/explicit/explicit_state.h"
#include "elements/element_type.h"
#include "model/free_faces.h"

namespace kestralum {

namespace {

constexpr double thinnest = 0.05;  // volume of a point over that at rest

// Coordinates of the element's nodes, of x - du where du is given.
void gather(const Mesh& mesh, std::int32_t e, const double* x4, const double* du4, double* out) {
    for (const std::int32_t number : mesh.element(e)) {
        const auto n = static_cast<std::ptrdiff_t>(node_index(number));
        for (std::ptrdiff_t c = 0; c < 3; ++c) *out++ = x4[4 * n + c] - (du4 ? du4[4 * n + c] : 0);
    }
}

}  // namespace

bool some_erode(const Model& model) {
    return std::ranges::any_of(model.mesh.p_ele_part_id, [&](std::int32_t p) {
        return model.materials[model.parts[p].material_id].erode > 0;
    });
}

Erosion::Erosion(const Model& model, const Mesh& mesh, std::span<const char> rigid)
    : mesh_(mesh), parts_(model.parts) {
    const ElementType& type = element_type(mesh.element_type);
    taken_up_.assign(mesh.element_num(), 0);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const Material& m = model.materials[model.parts[mesh.p_ele_part_id[e]].material_id];
        const bool stays = !(m.erode > 0) || (!rigid.empty() && rigid[e]);
        limit_.push_back(stays ? std::numeric_limits<double>::infinity() : m.erode);
        ElementPoints points;
        evaluate_points(type, mesh, e, points);
        mass_.push_back(m.density * element_volume(type, points));
        whole_ += mass_.back();
    }
}

bool Erosion::is_thin(const ExplicitState& s, std::int32_t e) const {
    const ElementType& type = element_type(mesh_.element_type);
    ElementPoints now, rest;
    gather(mesh_, e, s.x.data(), nullptr, now.x.data());
    gather(mesh_, e, s.X.data(), nullptr, rest.x.data());
    type.gradients(now.x.data(), now.dN.data(), now.weight.data());
    type.gradients(rest.x.data(), rest.dN.data(), rest.weight.data());
    for (int p = 0; p < type.points; ++p)
        if (!(now.weight[p] > thinnest * rest.weight[p])) return true;
    return false;
}

// What goes with the element: ½ ∫ σ:∇du over the former configuration comes to what is stored.
void Erosion::book(ExplicitState& s, std::int32_t e) {
    const ElementType& type = element_type(mesh_.element_type);
    double at[3 * most_nodes], du[3 * most_nodes];
    gather(mesh_, e, s.x.data(), s.du.data(), at);
    gather(mesh_, e, s.du.data(), nullptr, du);
    ElementPoints former;
    type.gradients(at, former.dN.data(), former.weight.data());
    double stress[6 * most_points], pressure[most_points], work = 0, viscous = 0;
    s.blocks->copy_element(e, stress, pressure);
    for (int p = 0; p < type.points; ++p) {
        double G[3][3] = {};
        for (int i = 0; i < type.nodes; ++i)
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    G[r][c] += du[3 * i + r] * former.dN[3 * (type.nodes * p + i) + c];
        const double* t = stress + 6 * p;
        const double power = t[0] * G[0][0] + t[1] * G[1][1] + t[2] * G[2][2] + t[3] * (G[0][1] + G[1][0]) +
                             t[4] * (G[1][2] + G[2][1]) + t[5] * (G[2][0] + G[0][2]);
        work += 0.5 * former.weight[p] * power;
        viscous -= 0.5 * former.weight[p] * pressure[p] * (G[0][0] + G[1][1] + G[2][2]);
    }
    energy_ += s.blocks->take_energy(e, viscous) + work;
    gone_ += mass_[e];
    ++count_;
}

void Erosion::erode(ExplicitState& s) {
    std::vector<std::int32_t> gone, endangered;
    s.blocks->find_worn(limit_, s.team, gone, endangered);
    for (const std::int32_t e : endangered)
        if (is_thin(s, e)) gone.push_back(e);
    std::sort(gone.begin(), gone.end());
    for (const std::int32_t e : gone) book(s, e);
    if (!gone.empty()) s.blocks->remove(gone);
    take_up(s);
}

std::vector<std::int32_t> Erosion::removed(const ExplicitState& s) const {
    std::vector<std::int32_t> out;
    for (std::int32_t e = 0; e < mesh_.element_num() && std::ssize(out) < count_; ++e)
        if (s.blocks->is_removed(e)) out.push_back(e);
    return out;
}

Eroded Erosion::total(const ExplicitTeam* ranks) const {
    std::array<double, 3> sums{static_cast<double>(count_), gone_, whole_};
    if (ranks) ranks->sum(sums);
    return {static_cast<std::int64_t>(sums[0]), sums[1] / sums[2]};
}

NodeElements live_elements(const NodeElements& all, std::span<const char> gone) {
    NodeElements live;
    live.start.push_back(0);
    for (std::int32_t n = 0; n + 1 < std::ssize(all.start); ++n) {
        std::ranges::copy_if(all.of(n), std::back_inserter(live.elements),
                             [&](std::int32_t e) { return !gone[e]; });
        live.start.push_back(std::ssize(live.elements));
    }
    return live;
}

void Erosion::take_up(ExplicitState& s) {
    const bool meets = s.contacts || s.walls;
    std::vector<std::int32_t> fresh;  // of the whole run's steps
    for (std::int32_t e = 0; e < mesh_.element_num() && taken_ < count_; ++e) {
        if (taken_up_[e] || !s.blocks->is_removed(e)) continue;
        taken_up_[e] = 1;
        ++taken_;
        s.bound->leave_out(e);
        fresh.push_back(s.piece ? s.piece->elements[e] : e);
    }
    if (s.ranks && meets) fresh = s.ranks->everywhere(fresh);
    if (fresh.empty()) return;
    out_.resize(s.mesh->mesh.element_num());
    for (const std::int32_t e : fresh) out_[e] = 1;
    if (!s.ranks) live_ = live_elements(s.freedoms.node_elements, out_);
    if (meets) lay_bare(s);
}

// Nodes here of elements that are out, whatever order they went in and whichever process had them.
std::vector<std::int32_t> Erosion::bared_nodes(const ExplicitState& s) const {
    const Mesh& whole = s.mesh->mesh;
    std::vector<char> bared(s.u.size() / 4, 0);
    for (std::int32_t e = 0; e < whole.element_num(); ++e) {
        if (!out_[e]) continue;
        for (const std::int32_t node : whole.element(e)) {
            const auto n = static_cast<std::int32_t>(node_index(node));
            if (const std::int32_t here = s.piece ? s.piece->node_of[n] : n; here >= 0) bared[here] = 1;
        }
    }
    std::vector<std::int32_t> out;
    for (std::size_t n = 0; n < bared.size(); ++n)
        if (bared[n]) out.push_back(static_cast<std::int32_t>(n));
    return out;
}

// What has come to light meets walls and contact.
void Erosion::lay_bare(ExplicitState& s) {
    const std::vector<std::int32_t> bared = bared_nodes(s);
    std::vector<std::int32_t> touched;
    std::ranges::set_union(s.contact_nodes, bared, std::back_inserter(touched));
    s.contact_nodes = std::move(touched);
    begin_sweep(s);
    if (s.walls) s.walls->add_nodes(bared, mesh_);
    if (!s.contacts) return;
    const Mesh& whole = s.mesh->mesh;
    Mesh live;
    live.element_type = whole.element_type;
    live.coordinates = whole.coordinates;
    for (std::int32_t e = 0; e < whole.element_num(); ++e) {
        if (out_[e]) continue;
        std::ranges::copy(whole.element(e), std::back_inserter(live.connectivity));
        live.p_ele_part_id.push_back(whole.p_ele_part_id[e]);
    }
    s.contacts->renew(parts_, whole, surface_triangles(live));
}

}  // namespace kestralum
