#include "mesh/gmsh_elements.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace kestralum {

struct GmshElementType {
    enum class Use : char { refused, solid, face, edge };
    std::int64_t type;  // the files' number
    const char* words;
    Use use = Use::refused;
    int dimension = 3, nodes = 0, corners = 0;
};

namespace {

using Use = GmshElementType::Use;

constexpr GmshElementType element_types[] = {
    {1, "a 2-node line", Use::edge, 1, 2, 2},
    {2, "a 3-node triangle", Use::face, 2, 3, 3},
    {3, "a 4-node quadrangle", Use::face, 2, 4, 4},
    {4, "a 4-node tetrahedron", Use::solid, 3, 4, 4},
    {5, "an 8-node hexahedron", Use::solid, 3, 8, 8},
    {6, "a 6-node wedge"},
    {7, "a 5-node pyramid"},
    {8, "a 3-node line", Use::edge, 1, 3, 2},
    {9, "a 6-node triangle", Use::face, 2, 6, 3},
    {10, "a 9-node quadrangle", Use::face, 2, 9, 4},
    {11, "a 10-node tetrahedron", Use::solid, 3, 10, 4},
    {12, "a 27-node hexahedron"},
    {13, "an 18-node wedge"},
    {14, "a 14-node pyramid"},
    {15, "a point", Use::edge, 0, 1, 1},
    {16, "an 8-node quadrangle", Use::face, 2, 8, 4},
    {17, "a 20-node hexahedron"},
    {18, "a 15-node wedge"},
    {19, "a 13-node pyramid"},
    {20, "a 9-node triangle"},
    {21, "a 10-node triangle"},
    {26, "a 4-node line"},
    {29, "a 20-node tetrahedron"},
    {92, "a 64-node hexahedron"},
};
constexpr std::size_t most_nodes = 10;  // of the types that are used

// File position of each node of the program's order. The hexahedron's corners 0 … 3 go round the bottom and
// 4 … 7 round the top; the tetrahedron's mid-side nodes stand on the edges 01 12 02 03 23 13.
constexpr std::array<int, 10> tetra_order{0, 1, 2, 3, 4, 5, 6, 7, 9, 8};
constexpr std::array<int, 8> hexa_order{4, 0, 3, 7, 5, 1, 2, 6};

// Elements `first` to before `end`, which may be the last ones once more, belong to the entity.
void add_to_run(std::vector<GmshRun>& runs, std::size_t first, std::size_t end, std::int32_t entity) {
    const auto from = static_cast<std::int32_t>(first), to = static_cast<std::int32_t>(end);
    if (!runs.empty() && runs.back().entity == entity && runs.back().end >= from)
        runs.back().end = to;
    else
        runs.push_back({from, to, entity});
}

}  // namespace

bool GmshElements::read2() {
    std::int64_t count = 0;
    if (!in_.text_count(count, "the number of elements", 8, 8)) return false;
    if (in_.binary()) in_.rest_of_line();
    for (std::int64_t done = 0, following = 1; done < count; done += following) {
        if (done % GmshInput::look == 0 && in_.stopped()) return false;
        std::int64_t number = 0, type = 0, tags = 0;
        if (!in_.binary() && !in_.whole4(number)) return in_.fail("an element number");
        if (!in_.whole4(type)) return in_.fail("an element type");
        if (in_.binary() && (!in_.whole4(following) || following < 1 || following > count - done))
            return in_.fail("a number of elements");
        if (!in_.whole4(tags) || tags < 0 || tags > GmshInput::most) return in_.fail("the number of tags");
        for (std::int64_t k = 0; k < following; ++k) {
            if (k % GmshInput::look == GmshInput::look - 1 && in_.stopped()) return false;
            if (in_.binary() && !in_.whole4(number)) return in_.fail("an element number");
            if (!read_tagged(type, number, tags)) return false;
        }
    }
    return true;
}

// An element of format 2.2 from its tags on: physical group, entity, then partitions.
bool GmshElements::read_tagged(std::int64_t type, std::int64_t number, std::int64_t tags) {
    const GmshElementType* found = usable_type(type, number);
    if (!found) return false;
    std::array<std::int64_t, 2> tag{};
    for (std::int64_t k = 0; k < std::min<std::int64_t>(tags, 2); ++k) {
        if (!in_.whole4(tag[k]) || !GmshInput::is_tag(tag[k])) return in_.fail("a tag of an element");
        tag[k] = std::abs(tag[k]);
    }
    if (!in_.skip4(tags - 2, "a tag of an element")) return false;
    return read_element(*found, number, entity_index(found->dimension, tag[1], tag[0]));
}

bool GmshElements::read4() {
    format4_ = true;
    std::int64_t blocks = 0, count = 0, in_block = 0, done = 0;
    if (!in_.count8(blocks, "the number of element blocks", 8, 20)) return false;
    if (!in_.count8(count, "the number of elements", 4, 16)) return false;
    if (!in_.skip8(2, "the smallest and the largest element number")) return false;
    for (std::int64_t b = 0; b < blocks; ++b) {
        if (in_.stopped()) return false;
        std::int64_t dimension = 0, tag = 0, type = 0;
        if (!in_.whole4(dimension) || dimension < 0 || dimension > 3) return in_.fail("a dimension, 0 to 3,");
        if (!in_.whole4(tag) || !GmshInput::is_tag(tag)) return in_.fail("an entity's number");
        if (!in_.whole4(type)) return in_.fail("an element type");
        if (!in_.count8(in_block, "the number of elements in a block", 4, 16)) return false;
        if (in_block > count - done) return in_.fail("no more elements than the section's");
        done += in_block;
        const int of = static_cast<int>(dimension);
        if (!read_block(of, type, in_block, entity_index(of, tag, 0))) return false;
    }
    return done == count || in_.fault(in_.place() + ": the section's blocks have " + std::to_string(done) +
                                      " elements, " + std::to_string(count) + " expected");
}

bool GmshElements::read_block(int dimension, std::int64_t type, std::int64_t count, std::int32_t entity) {
    for (std::int64_t k = 0; k < count; ++k) {
        if (k % GmshInput::look == GmshInput::look - 1 && in_.stopped()) return false;
        std::int64_t number = 0;
        if (!in_.whole8(number)) return in_.fail("an element number");
        const GmshElementType* found = usable_type(type, number);
        if (!found) return false;
        if (found->dimension != dimension)
            return in_.fault(in_.place() + ": element " + std::to_string(number) + " is " + found->words +
                             ": elements of dimension " + std::to_string(dimension) + " are expected");
        if (!read_element(*found, number, entity)) return false;
    }
    return true;
}

// Row of the type of element `number`; null, with an error, for those that cannot be read.
const GmshElementType* GmshElements::usable_type(std::int64_t type, std::int64_t number) {
    if (type_ && type_->type == type) return type_;
    const auto row = std::find_if(std::begin(element_types), std::end(element_types),
                                  [&](const GmshElementType& r) { return r.type == type; });
    const bool known = row != std::end(element_types);
    if (known && row->use != Use::refused) return type_ = row;
    in_.fault(in_.place() + ": element " + std::to_string(number) + " is " +
              (known ? row->words : "of type " + std::to_string(type)) +
              ": 4-node or 10-node tetrahedra or 8-node hexahedra are expected");
    return nullptr;
}

bool GmshElements::read_element(const GmshElementType& type, std::int64_t number, std::int32_t entity) {
    std::array<std::int32_t, most_nodes> nodes{};
    for (int k = 0; k < type.nodes; ++k) {
        std::int64_t node = 0;
        if (!(format4_ ? in_.whole8(node) : in_.whole4(node))) return in_.fail("a node number");
        nodes[k] = nodes_.find(node);
        if (nodes[k] < 0) return in_.fail("a node of section \"$Nodes\"");
    }
    if (type.use == Use::solid)
        return add_solid(type, number, entity, {nodes.data(), std::size_t(type.nodes)});
    if (type.use == Use::face) {
        if (type.corners == 3) nodes[3] = -1;
        add_to_run(mesh_.face_runs, mesh_.faces.size(), mesh_.faces.size() + 1, entity);
        mesh_.faces.push_back({nodes[0], nodes[1], nodes[2], nodes[3]});
        return true;
    }
    const std::size_t first = mesh_.edge_nodes.size();
    mesh_.edge_nodes.insert(mesh_.edge_nodes.end(), nodes.begin(), nodes.begin() + type.nodes);
    if (mesh_.edge_nodes.size() > std::size_t{GmshInput::most}) return in_.fail("fewer elements");
    add_to_run(mesh_.edge_runs, first, mesh_.edge_nodes.size(), entity);
    return true;
}

bool GmshElements::add_solid(const GmshElementType& type, std::int64_t number, std::int32_t entity,
                             std::span<const std::int32_t> nodes) {
    if (!is_solid_type(type, number)) return false;
    for (std::size_t k = 1; k < nodes.size(); ++k)
        if (std::find(nodes.begin(), nodes.begin() + k, nodes[k]) != nodes.begin() + k)
            return in_.fault(in_.place() + ": element " + std::to_string(number) +
                             " has a node twice: different nodes are expected");
    const int* order = nodes.size() == 8 ? hexa_order.data() : tetra_order.data();
    std::array<std::int32_t, most_nodes> own{};
    for (std::size_t k = 0; k < nodes.size(); ++k) own[k] = nodes[order[k]];
    std::vector<std::int32_t>& solids = mesh_.solids;
    // Format 2.2 has an element of several physical groups once for each of them, one after the other.
    const bool again = !format4_ && !solids.empty() &&
                       std::equal(solids.end() - std::ptrdiff_t(nodes.size()), solids.end(), own.begin());
    if (!again) {
        solids.insert(solids.end(), own.begin(), own.begin() + nodes.size());
        mesh_.solid_numbers.push_back(number);
    }
    const std::size_t elements = mesh_.solid_numbers.size();
    add_to_run(mesh_.solid_runs, elements - 1, elements, entity);
    return true;
}

// The first solid decides.
bool GmshElements::is_solid_type(const GmshElementType& type, std::int64_t number) {
    if (!solid_type_) {
        solid_type_ = &type;
        mesh_.kind = type.nodes == 8    ? ElementKind::hexahedron
                     : type.nodes == 10 ? ElementKind::tetrahedron10
                                        : ElementKind::tetrahedron4;
    }
    return solid_type_ == &type ||
           in_.fault(in_.place() + ": element " + std::to_string(number) + " is " + type.words +
                     ", one before is " + solid_type_->words + ": elements of one kind are expected");
}

std::int32_t GmshElements::entity_index(int dimension, std::int64_t tag, std::int64_t physical) {
    const std::array<std::int64_t, 3> key{dimension, tag, physical};
    if (mesh_.entities.empty() || key != last_key_) {
        const auto next = static_cast<std::int32_t>(mesh_.entities.size());
        const auto at = entity_of_.try_emplace(key, next);
        if (at.second)
            mesh_.entities.push_back(
                {dimension, static_cast<std::int32_t>(tag), static_cast<std::int32_t>(physical)});
        last_key_ = key;
        last_entity_ = at.first->second;
    }
    return last_entity_;
}

}  // namespace kestralum
