// The explicit analysis that the view steps: one output interval per repaint.
#pragma once

#include "model/run_report.h"

namespace kestralum {

// The calls that step it, on the process-wide store.
struct RealTimeDriver {
    bool (*begin)(RunReport& report);    // the set-up; false with report.remarks.errors
    bool (*advance)(RunReport& report);  // one output interval; false when the run has ended, with its report
    void (*drop)();                      // lets a run go without writing its results
    int (*frame)();                      // while it runs: the frame that holds the state reached, 1-based
    int pause;                           // ms after each interval: the pace of the picture
};

// The driver in force: the program's own explicit analysis unless a test has set another.
const RealTimeDriver* real_time_driver();
void set_real_time_driver(const RealTimeDriver* driver);

}  // namespace kestralum
