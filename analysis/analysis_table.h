// The analyses that can be started: one row each, read by the menu and the batch command.
#pragma once

#include <span>
#include <string_view>

#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

// An analysis of a model: prints its lines, writes its files into options.log_folder and returns what it
// computed. Never alters the model. run.report.status tells how it ended: `bad_input` before anything was
// touched; `failed` and `cancelled` with an earlier result file as it was, unless report.has_results().
using Analyse = Run (*)(const Model& model, const Settings& settings, const RunOptions& options,
                        Progress& progress);

struct AnalysisEntry {
    const char* batch_word;  // on the command line
    const char* menu_text;   // in the "&Analysis" menu
    AnalysisType type;
    Analyse analyse;
};

std::span<const AnalysisEntry> analysis_table();

// The entry of a batch word; null when there is none.
const AnalysisEntry* find_analysis(std::string_view batch_word);

}  // namespace kestralum
