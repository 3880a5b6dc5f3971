// What is printed when a run or a check ends.
#pragma once

#include <string>
#include <string_view>

#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "solver/factor_files.h"
#include "system/model_check.h"

namespace kestralum {

// Keeps what is printed as a summary.
class SummaryText : public Progress {
public:
    SummaryText() : Progress(false) {}
    std::string text;

protected:
    void take(Kind kind, std::string_view piece) override {
        if (kind == Kind::summary) text += piece;
    }
};

struct RunSummary {
    const Model& model;
    const Run& run;
    const ModelReadReport* read = nullptr;        // null: what reading had to say is left out
    const AnalysisInfoReport* control = nullptr;  // the same
    std::string vtu;              // stored name of the file for ParaView; empty: there is none
    FactorFileList factor_files;  // left in the log folder
};

// Notes, results, balance and stage table of an analysis, and where its files lie. A static or eigen run
// tells what its probes met.
void print_run_summary(const RunSummary& summary, Progress& progress);

// Notes of reading and of the control file, and the token where the reading ended when it was not END.
void print_input_summary(const ModelReadReport& model, const AnalysisInfoReport& control, Progress& progress);

void print_check(const Model& model, const ModelCheck& check, Progress& progress);

}  // namespace kestralum
