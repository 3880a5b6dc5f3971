// `d_time auto`: steps that follow the stable step of the current shapes, and outputs by time.
//
// The lengths of two steps that follow each other differ: velocities live in their middles, so that they
// change over the mean of the two lengths (Belytschko, Liu and Moran, 2000, box 6.1).
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace kestralum {

struct ExplicitState;
struct Job;

struct AdaptiveStep {
    bool on = false;
    double share = 0.9;                // of the stable step
    double interval = 0, end = 0;      // between outputs; of the run, s
    double now = 0, next = 0;          // t_n and t_{n+1}, s
    double target = 0;                 // of the next output, s
    double limit = 0;                  // s: what the step may be at most until the next look
    std::int64_t outputs = 0;          // reached
    std::int64_t left = 0;             // steps to the next output
    bool at_output = false;            // t_n is one
    double height = 0;                 // m: least size of an element as the step sees it, at the last look
    double travelled = 0;              // m: what two nodes may have come closer since, at most
    std::int64_t looked = 0;           // step of that look
    std::array<double, 3> drift{};     // m/s: mean velocity at that look
    double smallest = 0, largest = 0;  // steps so far, s

    // What the steps change.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(now, next, target, limit, outputs, left, at_output, height, travelled, looked, drift,
                smallest, largest);
    }
};

// The first step's length into state.d_time, and the counts, which are estimates. False with the status set.
bool begin_adaptive(Job& job, ExplicitState& state);

// t_n has been reached, its forces not yet: the length of the next step. What keeps the run from going on,
// empty if nothing.
std::string adapt_step(const Job& job, ExplicitState& state);

}  // namespace kestralum
