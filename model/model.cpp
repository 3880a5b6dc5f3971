#include "model/model.h"

namespace kestralum {

Model placeholder_model() {
    Model model;
    model.mesh.coordinates.assign(3, 0.0);
    model.mesh.node_n_dir.assign(3, 0.0);
    model.materials.push_back({.id = 0, .name = "STEEL", .density = 7800, .young = 2.06e11, .poisson = 0.3});
    model.parameters.push_back({.id = 0, .name = "mm", .value = 0.001, .expression = "0.001"});
    return model;
}

}  // namespace kestralum
