// Faces of the mesh that the user has clicked on, and the set_info records that select them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/mesh.h"
#include "model/mesh_sets.h"
#include "model/smooth_patches.h"
#include "view/picking.h"
#include "view/surface.h"

namespace kestralum::view {

inline constexpr double patch_angle = 20;  // degrees that a patch bends by at an edge

// The place on the undeformed mesh (m) where a pick met a face; close to an edge a little inside of it, and
// in digits that a file keeps, so that a record with it finds the same face.
Vec3 patch_place(const Mesh& mesh, const Surface& surface, const Pick& pick);

// The set with the fewest faces of those that have this one; null where none has it.
const MeshSet* smallest_set_with(const Mesh& mesh, const ElementFace& face);

// What one click has selected.
struct SelectedFaces {
    MeshSet set;                    // its name is what the picture calls it
    std::string record;             // of set_info, without the name in front
    std::vector<std::string> also;  // other sets that the clicked face or its element belongs to
};

// The faces around a pick: those of the smallest set that has the face, without one the smooth patch. None
// for a pick beside the solids. `definitions`: the model file's sets; `patches` is called where one is
// needed.
std::optional<SelectedFaces> select_faces(const Mesh& mesh, std::span<const SetDefinition> definitions,
                                          const Surface& surface, const Pick& pick,
                                          const std::function<SmoothPatches&()>& patches);

class FaceSelection {
public:
    bool empty() const { return items_.empty(); }
    const MeshSet& all() const { return all_; }  // without a name

    void clear();
    // Beside what is selected already.
    void add(SelectedFaces faces);

    // What the picture tells, a line each: names; area, faces and nodes; box; where one click has selected,
    // the other sets there.
    std::vector<std::string> text(const Mesh& mesh) const;
    // Corners of the triangles of all faces, 0-based nodes × 3.
    std::vector<std::int32_t> triangles(const Mesh& mesh) const;
    // The records to paste into set_info, a line each, the union of several last; names face_1, face_2, …
    // that neither the model's sets nor `given` have. The names are added to `given`.
    std::string records(std::span<const SetDefinition> definitions, std::vector<std::string>& given) const;

private:
    std::vector<SelectedFaces> items_;
    MeshSet all_;
};

}  // namespace kestralum::view
