// What the tests of the readers of mesh files share: a reading, what its groups enclose, damaged files.
#pragma once

#include <cmath>
#include <random>
#include <tuple>

#include "mesh_checks.h"

namespace kestralum::testing {

// A reading of text: a mesh that can be used, or the one error and no mesh.
struct Reading {
    bool good = false;
    PartMesh mesh;
    Remarks remarks;
    std::string error() const { return good ? "" : remarks.errors.at(0); }
};
using Reader = bool(std::string_view, std::string_view, double, PartMesh&, Remarks&, const Progress&);
inline Reading read(Reader* reader, const std::string& text, double unit = 1) {
    Reading reading;
    const PartMesh& mesh = reading.mesh;
    reading.good = reader(text, "f", unit, reading.mesh, reading.remarks, SilentProgress());
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

// Every beginning of the text, and the text with one to three bytes changed.
inline void damage_bytes(Reader* reader, const std::string& text, int changes) {
    for (std::size_t size = 0; size < text.size(); ++size) read(reader, text.substr(0, size));
    std::mt19937 random(1);
    for (int k = 0; k < changes; ++k) {
        std::string damaged = text;
        for (int byte = 0; byte <= k % 3; ++byte)
            damaged[random() % text.size()] = static_cast<char>(random() % 256);
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
