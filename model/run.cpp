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

std::int32_t first_elastic_mode(const Run& run) {
    if (!has_shapes(run.ana_type) || run.results.empty()) return 0;
    if (run.ana_type == AnalysisType::buckling) return 1;
    const std::vector<ModeReport>& modes = run.report.modes;
    if (!modes.empty()) {
        const auto elastic = std::ranges::find(modes, false, &ModeReport::zero);
        const auto at = elastic - modes.begin();
        return at < run.mode_num() ? static_cast<std::int32_t>(at) + 1 : 1;
    }
    constexpr double step = 1e3;
    int first = 1;
    const auto hertz = [&](int mode) { return std::abs(run.results[mode - 1]->n_freq); };
    for (int mode = 2; mode <= run.mode_num(); ++mode)
        if (hertz(mode) > step * hertz(mode - 1)) first = mode;
    return first;
}

}  // namespace kestralum
