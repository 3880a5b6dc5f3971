#include "analysis/analysis_table.h"

#include "analysis/linear_driver.h"

namespace kestralum {

std::span<const AnalysisEntry> analysis_table() {
    static constexpr AnalysisEntry table[] = {
        {"static", "&Static", AnalysisType::linear_static, exec_static},
    };
    return table;
}

const AnalysisEntry* find_analysis(std::string_view batch_word) {
    for (const AnalysisEntry& entry : analysis_table())
        if (batch_word == entry.batch_word) return &entry;
    return nullptr;
}

}  // namespace kestralum
