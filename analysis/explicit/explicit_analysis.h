// The explicit analysis: the whole run at once, or output by output while a window draws.
#pragma once

#include <memory>

#include "analysis/analysis_table.h"

namespace kestralum {

// The whole analysis: set-up, every step, result file, displacement file and history. A cancel ends it after
// the step under way; the files then hold what was reached.
Run analyse_explicit(const Model& model, const Settings& settings, const RunOptions& options,
                     Progress& progress);

// The same in pieces. All that it borrows must outlive it; one thread at a time.
class ExplicitAnalysis {
public:
    ExplicitAnalysis(const Model& model, const Settings& settings, const RunOptions& options,
                     Progress& progress);
    ~ExplicitAnalysis();

    // The set-up; frame 1, the start, is then in run().results. False: run().report says why, and nothing can
    // be advanced.
    bool begin();

    // One output interval: steps (k - 1)·output_frequency + 1 up to, exclusively,
    // min(k·output_frequency + 1, time_num), k the frames so far, with d_time auto those up to the next
    // output; then the line " ti_current = %d\n". A frame is added when the interval is whole. False when the
    // run has ended: at its last frame, by divergence (report failed) or a cancel (report cancelled).
    bool advance();

    // Every step that is left, in one go.
    void run_to_end();

    // Writes result file, displacement file and history with the frames so far and prints the analysis time.
    void finish();

    // Frames are added to results, and their rows to history, by begin(), advance() and run_to_end() only.
    const Run& run() const;
    Run take();  // after finish(): the run, out of the object

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace kestralum
