// One analysis under way: what it was given and the run that it fills.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "model/run.h"
#include "system/stage_clock.h"

namespace kestralum {

// Begins the record of what a run is made from.
void begin_run(Run& run, const Model& model, const Settings& settings, const RunOptions& options,
               AnalysisType type, const char* batch_word);

// The run's mesh with its nodes in the order in which an analysis goes through them.
struct StepMesh {
    Mesh mesh;
    std::vector<std::int32_t> number;  // per node of the run's mesh: its node here, 0-based
    std::vector<std::int32_t> of_run;  // per node here: that of the run's mesh
};

struct Job {
    const Model& model;
    const Settings& settings;
    const RunOptions& options;
    Progress& progress;
    Run& run;
    StageClock clock{run.report.stages, progress};
    const StepMesh* steps = nullptr;  // null: run.mesh itself

    RunReport& report() { return run.report; }
    // What the analysis works on; node numbers and nodal values that leave it are those of run.mesh.
    const Mesh& mesh() const { return steps ? steps->mesh : run.mesh; }
    HexahedronForm hexahedra() const { return hexahedron_form(model, options); }
    int threads() const { return settings.threads(); }

    // Why the run cannot go on; returns false, so that a stage can end with it.
    bool fail(RunStatus why, std::string text) {
        run.report.fail(why, std::move(text));
        return false;
    }
    // A file of results is not whole; returns false. A stop that was asked for while it was written is the
    // cause, one that had ended the run before is not.
    bool fail_to_write(const std::string& text) {
        const bool stopped = progress.cancelled() && run.report.status != RunStatus::cancelled;
        return stopped ? goes_on() : fail(RunStatus::failed, text);
    }
    void note(const std::string& text) { run.report.remarks.notices.push_back(text); }
    // Sees to a cancel: false with the status set.
    bool goes_on() {
        if (!progress.cancelled()) return true;
        return run.report.status != RunStatus::cancelled && fail(RunStatus::cancelled, "stopped on request");
    }
};

}  // namespace kestralum
