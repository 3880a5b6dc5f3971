// What is told of the elements of a body under finite deformation.
#pragma once

#include <string>
#include <vector>

#include "elements/finite_elements.h"
#include "model/progress.h"

namespace kestralum {

// "element 12 at (x, y, z) is flat or inverted"; e 0-based.
std::string flat_element(const Mesh& mesh, std::int32_t e);
std::string inverted_element(const Mesh& mesh, std::int32_t e);

// Nodal stresses and strains as in Frame, and means over the points of each element: stress and strain (6 per
// element), equivalent plastic strain (1).
struct BodyResults {
    std::vector<double> nodal;
    std::vector<float> stress, strain, plastic;
};
BodyResults results_of(const FiniteBody& body, const NodeElements& node_elements, Progress& progress);

// Mises stress of the points, N/m^2.
std::vector<double> mises_of(const FiniteBody& body);

}  // namespace kestralum
