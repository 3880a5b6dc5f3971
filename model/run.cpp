#include "model/run.h"

#include <algorithm>
#include <limits>

namespace kestralum {

HexahedronForm hexahedron_form(const Model& model, const RunOptions& options) {
    if (model.mesh.element_type != ElementKind::hexahedron) return HexahedronForm::full;
    if (options.hexahedra) return *options.hexahedra;
    return options.mean_dilatation ? HexahedronForm::mean_dilatation : model.hexahedra;
}

double HistoryRows::value(std::size_t row, std::string_view name) const {
    const auto at = std::find(columns.begin(), columns.end(), name);
    if (at == columns.end() || row >= rows()) return std::numeric_limits<double>::quiet_NaN();
    return values[row * columns.size() + static_cast<std::size_t>(at - columns.begin())];
}

}  // namespace kestralum
