// Tied contact: nodes of one set of faces follow the faces of another (node to surface, by the shape
// functions of the face at the foot of the node's perpendicular).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "model/mesh.h"
#include "model/progress.h"

namespace kestralum {

struct TiedNode {
    std::int32_t node = 0;                                 // 0-based
    std::int32_t record = 0;                               // index into the ties
    double distance = 0;                                   // from the master face, m
    std::vector<std::pair<std::int32_t, double>> weights;  // master nodes (0-based), sum 1
};

struct TiedNodes {
    std::vector<TiedNode> tied;        // each node once: the first record of the file takes it
    std::vector<std::string> notices;  // nodes too far from any master face
    std::string error;                 // a record none of whose nodes is near a master face
};

// Slave nodes that are master nodes of the same record (they are common already) stay as they are. tolerance
// < 0: a tenth of the mean edge of the master faces. Ends early where `progress` asks to stop.
TiedNodes find_tied_nodes(std::span<const TieRecord> records, const Mesh& mesh, const Progress& progress);

}  // namespace kestralum
