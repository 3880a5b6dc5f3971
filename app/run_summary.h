// What the batch command prints when it ends.
#pragma once

#include <string>

#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/model_store.h"
#include "model/run_report.h"
#include "system/model_check.h"

namespace kestralum {

// Remarks of reading and control file: notices, and the token where the reading ended when it was not END.
void print_input_summary(const ModelReadReport& model, const AnalysisInfoReport& control);

// Results, balance and stage table of an analysis, and where its files lie; `vtu`: the stored name of the one
// for ParaView, empty where there is none.
void print_run_summary(const ModelStore& store, const RunReport& report, const std::string& vtu = {});

void print_check(const ModelStore& store, const ModelCheck& check);

}  // namespace kestralum
