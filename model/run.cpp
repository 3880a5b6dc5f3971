#include "model/run.h"

namespace kestralum {

HexahedronForm hexahedron_form(const Model& model, const RunOptions& options) {
    if (model.mesh.element_type != ElementKind::hexahedron) return HexahedronForm::full;
    if (options.hexahedra) return *options.hexahedra;
    return options.mean_dilatation ? HexahedronForm::mean_dilatation : model.hexahedra;
}

}  // namespace kestralum
