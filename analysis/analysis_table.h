// The analyses that can be started: one row each, read by the menu and the batch command.
#pragma once

#include <span>
#include <string_view>

#include "model/model_store.h"
#include "model/run_report.h"

namespace kestralum {

struct AnalysisEntry {
    const char* batch_word;  // on the command line
    const char* menu_text;   // in the "&Analysis" menu
    AnalysisType type;
    RunReport (*run)();  // on the process-wide store; null while it is not built yet
};

std::span<const AnalysisEntry> analysis_table();

// The entry of a batch word; null when there is none.
const AnalysisEntry* find_analysis(std::string_view batch_word);

}  // namespace kestralum
