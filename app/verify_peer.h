// Verification cases computed once more by another program, node by node.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "app/verify_cases.h"
#include "model/progress.h"
#include "model/settings.h"

namespace kestralum {

// A case in both programs.
struct PeerOutcome {
    std::string elements;      // "full hexahedra"
    std::size_t compared = 0;  // nodes of all load cases, or frequencies
    double difference =
        0;              // largest: of displacements over the largest one, of frequencies each over its own
    double limit = 0;   // above which the case is missed; 0: not judged
    std::string note;   // why it is not judged
    std::string fault;  // why it could not be computed; empty: it was
    bool left_out = false;  // `fault` says why it is not a case for the peer
};

// CalculiX, the program ccx on the path; empty where there is none.
std::string find_ccx();

// Writes the deck of a static or eigen case into a folder in `log_folder`, runs ccx on it and compares with
// this program. The limits are 1e-6 of the displacements, of which ccx prints seven digits, and 1e-5 of
// frequencies; what ccx has no element or load for, as the notes of `export` tell it, is not judged.
PeerOutcome compare_with_ccx(const std::string& ccx, const VerifyCase& one, const Settings& settings,
                             const std::string& log_folder, Progress& progress);

// What ccx prints into its .dat file: per static step, per node (1-based) ux uy uz, m; frequencies, Hz.
struct CcxResults {
    std::vector<std::vector<std::pair<std::int32_t, std::array<double, 3>>>> steps;
    std::vector<double> frequencies;
};
CcxResults read_ccx_dat(const std::string& text);

}  // namespace kestralum
