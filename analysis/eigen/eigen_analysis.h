// The driver of the eigen analyses: the lowest natural frequencies and mode shapes.
#pragma once

#include "model/model_store.h"
#include "model/run_report.h"
#include "model/settings.h"

namespace kestralum {

enum class EigenMethod : std::int32_t { subspace = 2, lanczos = 3 };

struct EigenTolerances {
    double subspace = 1e-6;  // relative change of the frequencies in one round
    double lanczos = 1e-9;   // |β s| / |θ| of the inverted operator
};

// Eigen analysis of the process-wide store; the store keeps the renumbered mesh, n_freq (Hz), the
// modes scaled to φᵀ M φ = 1 and their nodal stresses.
RunReport exec_eigen_subspace();
RunReport exec_eigen_lanczos();

// The same on one store.
RunReport run_eigen(ModelStore& store, const Settings& settings, EigenMethod method,
                    EigenTolerances tolerances = {});

}  // namespace kestralum
