// Named groups of an imported mesh: bodies, faces, edges and nodes as the file names them.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/free_faces.h"
#include "model/progress.h"

namespace kestralum {

struct PartMesh;

struct PartGroup {
    std::string name;                    // without blanks, unlike every other group's of the part
    std::vector<std::int32_t> elements;  // 0-based within the part, ascending: of a group of bodies
    std::vector<ElementFace> faces;      // element 0-based within the part: of a group of faces
    std::vector<std::int32_t> nodes;     // 1-based within the part, ascending: all that the group touches
};

// A group as a file tells it, before faces are found in the elements.
struct RawGroup {
    std::string name;
    std::vector<std::int32_t> elements;  // 0-based within the part
    std::vector<ElementFace> faces;      // of files that name element and side
    std::vector<std::array<std::int32_t, 4>>
        corners;                      // of files that list faces by their corner nodes, 1-based
                                      // within the part; triangles have 0 in the last place
    std::vector<std::int32_t> nodes;  // 1-based within the part: of edges, points, node sets
};

// Makes the part's groups: blanks in names become '_', a name that came before gets "_2", "_3" …, each with a
// notice that names the file; faces by corners are found in the elements, those that no element has are left
// out and counted in a notice; a face between two elements is that of the first one; nodes are completed from
// elements and faces. All lists ascend, without an entry twice. Empty groups are left out with a notice. None
// where `progress` asks to stop. O(elements + groups' entries) and a sort of the entries.
std::vector<PartGroup> make_part_groups(std::span<const RawGroup> raw, const PartMesh& mesh,
                                        std::string_view file_name, std::vector<std::string>& notices,
                                        const Progress* progress = nullptr);

}  // namespace kestralum
