// The analyses of models that one process cannot hold: the same as analysis/ computes, with the rows of the
// matrices, the elements and their stresses on the ranks of a team. The mesh and vectors of nodal values are
// on every rank.
#pragma once

#include <string>

#include "large/team.h"
#include "model/run.h"

namespace kestralum {

struct LargeOptions {
    RunOptions run;
    bool pieces = false;  // a file for ParaView from every rank, and none of results
};

// Whether the batch word is one of these analyses, and their words as a list.
bool is_large_analysis(const std::string& word);
std::string large_analyses();

// Runs the analysis; every rank returns the report, the first one the results too. Writes the result file, or
// the pieces, from the options' log folder. `progress` of the other ranks prints nothing. Collective.
Run analyse_large(const Team& team, const std::string& word, const Model& model, const Settings& settings,
                  const LargeOptions& options, Progress& progress);

}  // namespace kestralum
