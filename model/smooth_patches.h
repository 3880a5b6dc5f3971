// Outer faces that run into each other smoothly: a side of a body, a bore, a fillet.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "model/free_faces.h"
#include "model/mesh.h"
#include "model/progress.h"

namespace kestralum {

class SmoothPatches {
public:
    // `free`: free_faces(mesh). Both must outlive this.
    SmoothPatches(const Mesh& mesh, std::span<const ElementFace> free) : mesh_(mesh), free_(free) {}

    // The outer face nearest to a place (m; of several the first), and on from face to face over edges whose
    // faces' normals differ by no more than `degrees`; ascending. Empty without outer faces and where
    // `progress` asks to stop. O(faces); the first call also finds which faces are neighbours.
    std::vector<ElementFace> around(const Vec3& place, double degrees, const Progress* progress = nullptr);

private:
    std::size_t nearest_face(const Vec3& place, const Progress* progress) const;
    void find_neighbours();

    const Mesh& mesh_;
    std::span<const ElementFace> free_;
    std::vector<Vec3> normal_;              // per free face, unit
    std::vector<std::int64_t> start_;       // per free face and one more: its neighbours begin here
    std::vector<std::int32_t> neighbours_;  // free faces that share an edge with it
};

// The nodes of faces, those in the middle of edges too: 0-based, ascending.
std::vector<std::int32_t> nodes_of_faces(const Mesh& mesh, std::span<const ElementFace> faces);

}  // namespace kestralum
