#include "analysis/analysis_table.h"

#include "analysis/buckling/buckling_analysis.h"
#include "analysis/eigen/eigen_analysis.h"
#include "analysis/explicit/explicit_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"

namespace kestralum {

std::span<const AnalysisEntry> analysis_table() {
    static constexpr AnalysisEntry table[] = {
        {"static", "&Static", AnalysisType::linear_static, analyse_static},
        {"eigen-subspace", "&Eigen(Subspace)", AnalysisType::eigen, analyse_eigen_subspace},
        {"eigen-lanczos", "&Eigen(Lanczos)", AnalysisType::eigen, analyse_eigen_lanczos},
        {"nonlinear", "&Nonlinear Static", AnalysisType::nonlinear_static, analyse_nonlinear},
        {"explicit", "&Explicit", AnalysisType::explicit_dynamics, analyse_explicit},
        {"buckling", "&Buckling", AnalysisType::buckling, analyse_buckling},
    };
    return table;
}

const AnalysisEntry* find_analysis(std::string_view batch_word) {
    for (const AnalysisEntry& entry : analysis_table())
        if (batch_word == entry.batch_word) return &entry;
    return nullptr;
}

}  // namespace kestralum
