// What can be said of a meshed model before it is analysed.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "model/model.h"
#include "model/progress.h"
#include "model/remarks.h"
#include "model/settings.h"
#include "model/unjoined_nodes.h"
#include "system/load_set.h"

namespace kestralum {

struct ElementPlace {
    std::int32_t element = -1;  // 0-based, -1 = none
    double volume = 0;          // m^3
    std::array<double, 3> centre{};
};

struct Body {
    std::int32_t elements = 0;
    std::vector<std::int32_t> parts;  // indices, ascending
    bool supported = false;           // some node of it is fixed
};

// One measure of shape over all elements.
struct ShapeMeasure {
    struct Worst {
        std::int32_t element;  // 0-based
        double value;
        std::array<double, 3> centre;
    };
    std::vector<Worst> worst;  // the three worst, the worst first
    std::int64_t beyond = 0;   // elements beyond `limit`
    double limit = 0;
};

struct ModelCheck {
    double mass = 0;                             // kg
    double volume = 0;                           // m^3
    std::vector<double> part_mass, part_volume;  // of them, per part of the model
    ElementPlace smallest, largest;
    std::vector<ElementPlace> bad;  // elements with a non-positive Jacobian; the first hundred
    std::int64_t bad_count = 0;
    ShapeMeasure angle{{}, 0, 10};       // smallest angle, degrees (model/element_quality.h); beyond: smaller
    ShapeMeasure jacobian{{}, 0, 0.2};   // smallest over largest determinant; beyond: smaller
    ShapeMeasure edge_ratio{{}, 0, 10};  // longest over shortest edge; beyond: larger
    std::vector<LoadFigures> loads;      // of load_info
    std::int32_t tied_nodes = 0;
    std::int32_t hanging_nodes = 0;  // on no solid element, facets of STL parts included
    std::vector<Body>
        bodies;  // by first element; elements that share a node, a rigid element or springs are one
    std::vector<UnjoinedContact> unjoined;    // parts that touch at nodes that are not joined
    std::vector<std::int32_t> support_nodes;  // per boundary condition: nodes selected
    std::vector<std::int32_t> force_nodes;    // per force: nodes reached
    std::vector<std::int32_t>
        rigid_members;  // per rigid element: nodes that move with it; empty where the records contradict
    std::int64_t free_dofs = 0;
    std::int32_t diag_num = 0;    // band in the ordering of the settings
    double factor_megabytes = 0;  // disk for the factor
    double memory_megabytes = 0;  // [K], [M] and the factor's share in memory
    std::int32_t divisions = 0;   // files of the factor
    std::string solver;           // what the ways to factor are expected to cost, and which is taken
    Remarks remarks;  // notices: supports and loads that select nothing, loose bodies, bad elements
};

// The bodies of a run's mesh, whatever joins them, and whether something holds each.
std::vector<Body> bodies_of(const Model& model, const Mesh& mesh, const Freedoms& freedoms);

// Prints nothing; a cancel of `progress` ends it early with what is known.
ModelCheck check_model(const Model& model, const Settings& settings, const Progress& progress);

}  // namespace kestralum
