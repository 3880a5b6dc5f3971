#include "mesh/inp_mesh.h"

#include <algorithm>
#include <cmath>

#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

// File of the item at an index.
std::int32_t file_of(const std::vector<InpBody::Block>& blocks, std::size_t index) {
    for (const InpBody::Block& block : blocks)
        if (std::int64_t(index) < block.last) return block.file;
    return 0;
}

InpPlace node_place(const InpBody& body, std::size_t node) {
    return {file_of(body.node_blocks, node), body.node_line[node]};
}

// Solids first, then flats.
InpPlace element_place(const InpBody& body, std::size_t element) {
    const std::size_t solids = body.element_number.size();
    if (element < solids) return {file_of(body.element_blocks, element), body.element_line[element]};
    return {file_of(body.flat_blocks, element - solids), body.flats[element - solids].line};
}

// R = cos I + (1 - cos) n nᵀ + sin [n]× about the unit vector n (Rodrigues 1840).
Mat3 rotation(const InpInstance& instance) {
    const Vec3 n = unit(minus(instance.axis_end, instance.axis_begin));
    const auto turn = direction(instance.angle);
    const double cos = turn[0], sin = turn[1];
    Mat3 R{};
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
        R[3 * k + j] += sin * n[i];
        R[3 * j + k] -= sin * n[i];
        for (std::size_t m = 0; m < 3; ++m) R[3 * i + m] += (1 - cos) * n[i] * n[m];
        R[3 * i + i] += cos;
    }
    return R;
}

class InpBuilder {
public:
    InpBuilder(InpLines& lines, InpDeck& deck, InpLayout& layout, const Progress& progress)
        : lines_(lines), deck_(deck), layout_(layout), progress_(progress) {}

    bool build(double unit_factor, const MeshCounts& most, PartMesh& mesh) {
        layout_.numbers.resize(deck_.bodies.size());
        for (std::size_t b = 0; b < deck_.bodies.size(); ++b)
            if (!find_numbers(deck_.bodies[b], layout_.numbers[b]) ||
                !find_element_nodes(deck_.bodies[b], layout_.numbers[b]))
                return false;
        MeshCounts counts;
        if (!lay_out(most, counts)) return false;
        mesh.kind = deck_.type.kind;
        mesh.coordinates.reserve(3 * counts.nodes);
        mesh.connectivity.reserve(counts.elements * deck_.type.nodes);
        for (std::size_t p = 0; p < layout_.pieces.size(); ++p)
            if (!copy_piece(layout_.pieces[p], p == 0 ? nullptr : &deck_.instances[p - 1], unit_factor, mesh))
                return false;
        return true;
    }

private:
    bool find_numbers(const InpBody& body, InpNumbers& numbers) {
        std::vector<std::int64_t> list(body.node_number.begin(), body.node_number.end());
        std::int64_t repeated = -1;
        if (!numbers.nodes.build(list, progress_, repeated)) return false;
        if (repeated >= 0)
            return lines_.fail_at(node_place(body, repeated), std::to_string(list[repeated]),
                                  "a node number that did not come before");
        list.assign(body.element_number.begin(), body.element_number.end());
        for (const InpBody::Flat& flat : body.flats) list.push_back(flat.number);
        if (!numbers.elements.build(list, progress_, repeated)) return false;
        return repeated < 0 || lines_.fail_at(element_place(body, repeated), std::to_string(list[repeated]),
                                              "an element number that did not come before");
    }
    bool find_element_nodes(InpBody& body, InpNumbers& numbers) {
        const std::size_t per = deck_.type.nodes;
        numbers.kept.assign(body.node_number.size(), 0);
        for (std::size_t e = 0; e < body.element_number.size(); ++e) {
            if (e % 4096 == 0 && progress_.cancelled()) return false;
            for (std::size_t k = 0; k < per; ++k) {
                std::int32_t& node = body.element_nodes[per * e + k];
                const std::int32_t place = numbers.nodes.find(node);
                if (place < 0)
                    return lines_.refuse(element_place(body, e),
                                         "element " + std::to_string(body.element_number[e]) + " has node " +
                                             std::to_string(node) + ", which is not defined");
                numbers.kept[place] = 1;
                node = place + 1;
            }
        }
        for (std::int32_t& kept : numbers.kept)
            if (kept > 0) kept = ++numbers.kept_num;
        return true;
    }
    bool lay_out(const MeshCounts& most, MeshCounts& counts) {
        std::vector<std::int32_t> bodies{0};
        for (const InpInstance& instance : deck_.instances) bodies.push_back(instance.body);
        for (const std::int32_t body : bodies) {
            layout_.pieces.push_back(
                {body, static_cast<std::int32_t>(counts.nodes), static_cast<std::int32_t>(counts.elements)});
            counts.nodes += layout_.numbers[body].kept_num;
            counts.elements += static_cast<std::int64_t>(deck_.bodies[body].element_number.size());
            if (counts.nodes > most.nodes || counts.elements > most.elements)
                return lines_.refuse(
                    lines_.place(),
                    formatted("its parts and instances have more than the %.4g nodes and "
                              "%.4g elements that this machine has room for",
                              static_cast<double>(most.nodes), static_cast<double>(most.elements)));
        }
        return counts.elements > 0 ||
               lines_.refuse(lines_.place(),
                             "no solid elements (*ELEMENT with TYPE=C3D4, C3D8 or C3D10)" +
                                 std::string(deck_.bodies.size() > 1 && deck_.instances.empty()
                                                 ? ": its parts have no *INSTANCE"
                                                 : ""));
    }
    // x' = a + R (x + t - a): shifted, then turned about the axis through a.
    bool copy_piece(const InpPiece& piece, const InpInstance* instance, double unit_factor,
                    PartMesh& mesh) const {
        const InpBody& body = deck_.bodies[piece.body];
        const InpNumbers& numbers = layout_.numbers[piece.body];
        const Mat3 R = instance ? rotation(*instance) : Mat3{};
        for (std::size_t n = 0; n < numbers.kept.size(); ++n) {
            if (n % 4096 == 0 && progress_.cancelled()) return false;
            if (numbers.kept[n] == 0) continue;
            Vec3 x = triple(body.coordinates, static_cast<std::int64_t>(n));
            if (instance) x = plus(x, instance->shift);
            if (instance && instance->angle != 0)
                x = plus(instance->axis_begin, turned(R, minus(x, instance->axis_begin)));
            for (const double value : x) mesh.coordinates.push_back(value * unit_factor);
            if (!std::all_of(mesh.coordinates.end() - 3, mesh.coordinates.end(),
                             [](double value) { return std::isfinite(value); }))
                return lines_.refuse(node_place(body, n), "coordinates that are too large for numbers");
        }
        for (std::size_t k = 0; k < body.element_nodes.size(); ++k) {
            if (k % 4096 == 0 && progress_.cancelled()) return false;
            mesh.connectivity.push_back(piece.first_node + numbers.kept[node_index(body.element_nodes[k])]);
        }
        return true;
    }

    InpLines& lines_;
    InpDeck& deck_;
    InpLayout& layout_;
    const Progress& progress_;
};

}  // namespace

bool build_inp_mesh(InpLines& lines, InpDeck& deck, double unit_factor, const MeshCounts& most,
                    PartMesh& mesh, InpLayout& layout, const Progress& progress) {
    return InpBuilder(lines, deck, layout, progress).build(unit_factor, most, mesh);
}

}  // namespace kestralum
