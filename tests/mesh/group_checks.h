// What the tests of the readers of mesh files share: a reading, what its groups enclose, damaged files.
#pragma once

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <tuple>

#include "mesh_checks.h"
#include "support/heap_count.h"
#include "support/text_damage.h"

namespace kestralum::testing {

// A reading of text: a mesh that can be used, or the one error and no mesh.
struct Reading {
    bool good = false;
    PartMesh mesh;
    Remarks remarks;
    std::string error() const { return good ? "" : remarks.errors.at(0); }
};
using Reader = bool(std::string_view, std::string_view, double, PartMesh&, Remarks&, const Progress&);
// Memory that a reading may take: an entry of a set is the worst, some 40 bytes for two in the file, in a
// list that grows by doubling.
inline std::int64_t most_bytes(const std::string& text) {
    return 64 * static_cast<std::int64_t>(text.size()) + 20000;
}
inline Reading read(Reader* reader, const std::string& text, double unit = 1) {
    Reading reading;
    const PartMesh& mesh = reading.mesh;
    const std::int64_t held = heap.live;
    heap.peak = held;
    reading.good = reader(text, "f", unit, reading.mesh, reading.remarks, SilentProgress());
    if (KESTRALUM_COUNTS_HEAP) {
        EXPECT_LE(heap.peak - held, most_bytes(text)) << text.substr(0, 1000);
    }
    EXPECT_EQ(reading.remarks.errors.size(), reading.good ? 0u : 1u) << text;
    EXPECT_TRUE(reading.good || mesh.node_num() + mesh.element_num() == 0) << text;
    const auto in = [](std::int64_t k, std::int64_t first, std::int64_t end) {
        return k >= first && k < end;
    };
    for (std::int32_t node : mesh.connectivity) EXPECT_TRUE(in(node, 1, mesh.node_num() + 1)) << text;
    for (double value : mesh.coordinates) EXPECT_TRUE(std::isfinite(value)) << text;
    for (const PartGroup& group : mesh.groups) {
        EXPECT_TRUE(!group.nodes.empty() && std::ranges::is_sorted(group.nodes)) << text;
        for (std::int32_t node : group.nodes) EXPECT_TRUE(in(node, 1, mesh.node_num() + 1)) << text;
        for (std::int32_t e : group.elements) EXPECT_TRUE(in(e, 0, mesh.element_num())) << text;
        for (const ElementFace& face : group.faces)
            EXPECT_TRUE(in(face.element, 0, mesh.element_num()) &&
                        in(face.face, 0, face_table(mesh.kind).faces));
    }
    return reading;
}

// What is replaced, by what, and the error that must come of it.
using Fault = std::array<std::string, 3>;
inline void expect_errors(Reader* reader, const std::string& text, std::initializer_list<Fault> faults) {
    for (const auto& [what, by, message] : faults) {
        const std::string error = read(reader, replaced(text, what, by)).error();
        EXPECT_TRUE(contains(error, message)) << by << ": " << error;
    }
}

// What stands where another number or word should.
inline std::string odd_word(std::mt19937& random) {
    static constexpr const char* words[] = {"4294967297",
                                            "-9223372036854775808",
                                            "9223372036854775807",
                                            "1e308",
                                            "-1e308",
                                            "1e-400",
                                            "1e400",
                                            "*ELEMENT,TYPE=C3D10",
                                            "$EndNodes",
                                            "endmesh",
                                            "endsolid",
                                            "facet",
                                            "points",
                                            "*NSET,NSET=A,GENERATE",
                                            "11.",
                                            "-0",
                                            "\n",
                                            "\""};
    switch (random() % 3) {
        case 0:
            return std::to_string(random() % 32);
        case 1:
            return words[random() % std::size(words)];
        default:
            return odd_tokens[random() % std::size(odd_tokens)];
    }
}
// A token taken out, doubled or put another in its place.
inline void damage_token(std::string& text, std::mt19937& random) {
    constexpr const char* between = " \n\r\t,=";
    const std::size_t at = text.find_first_not_of(between, random() % text.size());
    if (at == std::string::npos) return;
    const std::size_t before = text.find_last_of(between, at), begin = before + 1,  // npos + 1 is 0
        end = std::min(text.find_first_of(between, at), text.size());
    const auto kind = random() % 8;
    if (kind == 0)
        text.erase(begin, end - begin);
    else if (kind == 1)
        text.insert(begin, text.substr(begin, end - begin) + " ");
    else
        text.replace(begin, end - begin, odd_word(random));
}
// Four or eight bytes that become a number of a binary file.
inline void damage_number(std::string& text, std::mt19937& random) {
    static constexpr std::int64_t numbers[] = {0,
                                               -1,
                                               1,
                                               1 << 30,
                                               std::numeric_limits<std::int32_t>::max(),
                                               std::numeric_limits<std::int32_t>::min(),
                                               std::numeric_limits<std::int64_t>::max(),
                                               std::int64_t{1} << 40,
                                               0x7ff0000000000000,   // ∞
                                               0x7ff8000000000001,   // no number
                                               0x7fefffffffffffff};  // the largest
    const std::int64_t number = random() % 2 ? numbers[random() % std::size(numbers)] : random() % 32;
    const std::size_t bytes = random() % 2 ? 4 : 8;
    if (text.size() < bytes) return;
    std::memcpy(text.data() + random() % (text.size() - bytes + 1), &number, bytes);
}

// Reads every beginning of the text and the text with one to three changes, of single bytes or of whole
// numbers and words.
inline void damage(Reader* reader, const std::string& text, int changes) {
    for (std::size_t size = 0; size < text.size(); ++size) read(reader, text.substr(0, size));
    const bool binary = text.find('\0') != std::string::npos;
    std::mt19937 random(1);
    for (int k = 0; k < changes; ++k) {
        std::string damaged = text;
        for (int change = 0; change <= k % 3; ++change)
            if (random() % 3 == 0)
                damaged[random() % damaged.size()] = static_cast<char>(random() % 256);
            else if (binary && random() % 2)
                damage_number(damaged, random);
            else
                damage_token(damaged, random);
        read(reader, damaged);
    }
}

inline Mesh mesh_of(const PartMesh& part) {
    Mesh mesh;
    mesh.coordinates = part.coordinates;
    mesh.element_type = part.kind;
    mesh.connectivity = part.connectivity;
    return mesh;
}
inline double volume_of(const PartMesh& part) {
    return part.kind == ElementKind::hexahedron ? check_hexahedra(mesh_of(part)).volume
                                                : check_tetrahedra(mesh_of(part)).volume;
}

inline const PartGroup& group(const PartMesh& mesh, const std::string& name) {
    static const PartGroup none;
    for (const PartGroup& of : mesh.groups)
        if (of.name == name) return of;
    ADD_FAILURE() << "no group " << name;
    return none;
}
// Outward area vector of a group of faces, m².
inline Vec3 area_of(const PartMesh& mesh, const std::string& name) {
    Vec3 area{};
    const std::int64_t per = nodes_per_element(mesh.kind);
    for (const ElementFace& face : group(mesh, name).faces) {
        const auto local = outward_triangles(mesh.kind, face.face);
        const auto corner = [&](std::size_t k) {
            return triple(mesh.coordinates, node_index(mesh.connectivity[per * face.element + local[k]]));
        };
        for (std::size_t t = 0; t < local.size(); t += 3)
            area = plus(area,
                        times(0.5, cross(minus(corner(t + 1), corner(t)), minus(corner(t + 2), corner(t)))));
    }
    return area;
}

}  // namespace kestralum::testing
