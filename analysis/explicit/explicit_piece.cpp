#include "analysis/explicit/explicit_piece.h"

#include <algorithm>
#include <utility>

#include "analysis/explicit/explicit_state.h"

namespace kestralum {

std::vector<std::int32_t> order_of_use(const Mesh& mesh) {
    std::vector<std::int32_t> number(mesh.node_num(), -1);
    std::int32_t next = 0;
    const auto take = [&](std::size_t node) {
        if (number[node] < 0) number[node] = next++;
    };
    for (const std::int32_t e : element_order(mesh))
        for (const std::int32_t n : mesh.element(e)) take(node_index(n));
    for (std::size_t n = 0; n < number.size(); ++n) take(n);  // of no element
    return number;
}

namespace {

// The places of those that are here, ascending.
std::vector<std::int32_t> taken_over(std::span<const std::int32_t> from,
                                     std::span<const std::int32_t> place_of) {
    std::vector<std::int32_t> out;
    for (const std::int32_t k : from)
        if (place_of[k] >= 0) out.push_back(place_of[k]);
    std::ranges::sort(out);
    return out;
}

// Elements and sets of the mesh, with the nodes' numbers of the mesh.
Mesh elements_alone(const Mesh& mesh, std::span<const std::int32_t> elements) {
    Mesh out;
    out.element_type = mesh.element_type;
    out.size_info = mesh.size_info;
    out.max_length = mesh.max_length;
    for (const std::int32_t e : elements) {
        const auto nodes = mesh.element(e);
        out.connectivity.insert(out.connectivity.end(), nodes.begin(), nodes.end());
        out.p_ele_part_id.push_back(mesh.p_ele_part_id[e]);
    }
    std::vector<std::int32_t> place(mesh.element_num(), -1);
    for (std::size_t k = 0; k < elements.size(); ++k) place[elements[k]] = static_cast<std::int32_t>(k);
    for (const MeshSet& set : mesh.sets) {
        MeshSet& own = out.sets.emplace_back(MeshSet{set.name, set.nodes, {}, {}});
        own.elements = taken_over(set.elements, place);
        for (const ElementFace& face : set.faces)
            if (place[face.element] >= 0) own.faces.push_back({place[face.element], face.face});
    }
    return out;
}

// The nodes that have a place take it, with their coordinates. place: per node of `from`.
void number_nodes(const Mesh& from, Mesh& mesh, std::vector<std::int32_t>& place) {
    for (std::int32_t& node : mesh.connectivity) node = place[node_index(node)] + 1;
    for (MeshSet& set : mesh.sets) set.nodes = taken_over(set.nodes, place);
    const auto count = std::ranges::count_if(place, [](std::int32_t k) { return k >= 0; });
    mesh.coordinates.resize(3 * static_cast<std::size_t>(count));
    for (std::size_t n = 0; n < place.size(); ++n)
        if (place[n] >= 0)
            std::copy_n(from.node(static_cast<std::int64_t>(n)), 3, &mesh.coordinates[3 * place[n]]);
    mesh.node_n_dir.assign(mesh.coordinates.size(), 0.0);
}

}  // namespace

ExplicitPiece cut_piece(const StepMesh& whole, std::span<const std::int32_t> elements,
                        std::span<const char> owned, std::span<const std::int32_t> bound) {
    ExplicitPiece out;
    out.elements.assign(elements.begin(), elements.end());
    Mesh loose = elements_alone(whole.mesh, elements);
    std::vector<std::int32_t> place(whole.mesh.node_num(), -1), used;
    const auto use_node = [&](std::size_t node) {
        if (std::exchange(place[node], 0) < 0) used.push_back(static_cast<std::int32_t>(node));
    };
    for (const std::int32_t node : loose.connectivity) use_node(node_index(node));
    for (const std::int32_t node : bound) use_node(static_cast<std::size_t>(node));
    std::ranges::sort(used);
    for (std::size_t k = 0; k < used.size(); ++k) place[used[k]] = static_cast<std::int32_t>(k);
    number_nodes(whole.mesh, loose, place);
    // owned nodes first, in the order of use both
    const std::vector<std::int32_t> use = order_of_use(loose);
    std::vector<std::int32_t> by_use(use.size()), number(use.size());
    for (std::size_t k = 0; k < use.size(); ++k) by_use[use[k]] = static_cast<std::int32_t>(k);
    std::int32_t next = 0;
    for (const bool wanted : {true, false}) {
        for (const std::int32_t k : by_use)
            if ((owned[whole.of_run[used[k]]] != 0) == wanted) number[k] = next++;
        if (wanted) out.owned = next;
    }
    out.steps.mesh = elements_alone(whole.mesh, elements);
    out.node_of.assign(place.size(), -1);
    out.steps.of_run.resize(used.size());
    out.steps.number.assign(place.size(), -1);
    for (std::size_t k = 0; k < used.size(); ++k) {
        out.node_of[used[k]] = number[k];
        out.steps.of_run[number[k]] = whole.of_run[used[k]];
        out.steps.number[whole.of_run[used[k]]] = number[k];
    }
    number_nodes(whole.mesh, out.steps.mesh, out.node_of);
    return out;
}

std::vector<std::int32_t> contact_surface(const Job& job, const ExplicitState& s) {
    if (!s.contacts) return {};
    if (!some_erode(job.model)) return s.contacts->nodes();
    std::vector<std::int32_t> nodes = s.contact_nodes;
    const Mesh& mesh = s.mesh->mesh;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        if (!(job.model.materials[job.model.parts[mesh.p_ele_part_id[e]].material_id].erode > 0)) continue;
        for (const std::int32_t node : mesh.element(e))
            nodes.push_back(static_cast<std::int32_t>(node_index(node)));
    }
    std::ranges::sort(nodes);
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    return nodes;
}

namespace {

template <typename Values>
void keep_rows(Values& values, std::span<const std::int32_t> node_of, std::size_t nodes) {
    Values out(4 * nodes);
    for (std::size_t n = 0; n < node_of.size(); ++n)
        if (node_of[n] >= 0) std::copy_n(&values[4 * n], 4, &out[4 * std::size_t(node_of[n])]);
    values = std::move(out);
}

}  // namespace

void keep_piece(Job& job, ExplicitState& s) {
    ExplicitPiece& piece = *s.piece;
    const std::size_t nodes = piece.steps.mesh.node_num();
    for (LineDoubles* array : {&s.X, &s.x, &s.u, &s.du, &s.v, &s.v_new, &s.R, &s.F, &s.F_contact, &s.mass,
                               &s.damping, &s.a, &s.b, &s.contact_mass, &s.contact_b, &s.acting})
        if (!array->empty()) keep_rows(*array, piece.node_of, nodes);
    keep_rows(s.supported, piece.node_of, nodes);
    s.owned = piece.owned;
    s.contact_nodes = taken_over(s.contact_nodes, piece.node_of);
    for (DrivenDofs& driven : s.driven) {
        piece.driven.push_back(driven.places);
        std::vector<std::int32_t> here;
        for (const std::int32_t place : driven.places)
            if (piece.node_of[place / 4] >= 0) here.push_back(4 * piece.node_of[place / 4] + place % 4);
        driven.places = std::move(here);
    }
    if (s.contacts) s.mirror.emplace(piece.contact_nodes, piece.node_of);
    if (s.walls) s.walls->keep(piece.node_of, piece.owned);
    if (s.supports) s.supports->keep(piece.node_of, piece.owned);
    s.springs.keep(piece.node_of, piece.owned);
    if (s.bodies)
        s.bodies->keep(piece.node_of, piece.owned, piece.steps.mesh,
                       [&ranks = *s.ranks](std::span<double> values) { ranks.sum(values); });
    if (s.loads) s.loads->keep(piece.node_of);
    if (s.heat) s.heat->keep(piece.elements);
    if (s.viscosity) s.viscosity->keep(piece.elements);
    s.bound = std::make_unique<StepBound>(*s.bound, piece.steps.mesh, piece.elements);
    job.steps = &piece.steps;
}

}  // namespace kestralum
