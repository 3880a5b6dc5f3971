#include "large/large_eigen.h"

#include <slepceps.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/eigen/eigen_problem.h"
#include "analysis/eigen/rigid_motions.h"
#include "large/large_job.h"
#include "model/format.h"

namespace kestralum {

namespace {

using PetscEps = PetscOwner<EPS, EPSDestroy>;

// Shift of a free body, as a share of what its elastic eigenvalues are like.
constexpr double free_shift = 1e-3;

struct Pencil {
    PetscMat K, M;
    double heaviest = 0;            // mean of the diagonal of M
    double elastic = 0;             // 1/s²: E/(ρL²), as EigenProblem::elastic_scale()
    std::int32_t rigid = 0;         // motions that nothing resists
    std::vector<PetscVec> motions;  // they, on the owned rows
};

struct Modes {
    std::vector<double> lambda;     // ascending
    std::vector<PetscVec> vectors;  // per eigenvalue
};

double elastic_scale(const Model& model) {
    double out = 0;
    for (const std::int32_t part : model.mesh.p_ele_part_id) {
        const Material& material = model.materials[model.parts[part].material_id];
        out = std::max(out, material.young / material.density / std::pow(model.mesh.max_length, 2));
    }
    return out;
}

PetscVec vector_of(const LargeJob& large, Mat like, std::span<const double> equations) {
    PetscVec out;
    must(MatCreateVecs(like, out.reset(), nullptr));
    std::vector<double> rows = rows_of(large, equations);
    if (large.team.rank() == large.team.size() - 1)  // the bodies' equations stand behind all others
        rows.insert(rows.end(), equations.end() - large.border.nr, equations.end());
    set_values(out, rows);
    return out;
}

// Mean and largest k/m of the diagonals of the rows that are free.
struct Diagonals {
    double mass = 0, highest = 0;
};
Diagonals diagonals_of(const LargeJob& large, const PieceRows& rows) {
    const std::vector<char> free = free_rows(large.system.freedoms, large.piece);
    Diagonals out;
    std::int64_t count = 0;
    for (std::int32_t row = 0; row < large.piece.owned_dofs(); ++row) {
        if (!free[row]) continue;
        const SparseKM& km = rows.km;
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k) {
            if (km.col_index[k] != row) continue;
            out.mass += km.M_value[k];
            out.highest = std::max(out.highest, km.K_value[k] / km.M_value[k]);
            ++count;
        }
    }
    out.mass =
        large.team.sum(out.mass) / static_cast<double>(std::max<std::int64_t>(large.team.sum(count), 1));
    out.highest = large.team.largest(out.highest);
    return out;
}

// The rows that are not free have eigenvalues far above all others.
Pencil make_pencil(LargeJob& large) {
    constexpr double far_above = 1e3;
    Pencil out;
    PieceRows rows;
    if (!make_rows(large, true, rows, nullptr)) return out;
    const Freedoms& freedoms = large.system.freedoms;
    const Diagonals diagonals = diagonals_of(large, rows);
    const PieceBorder& border = large.border;
    out.heaviest = diagonals.mass;
    out.elastic = elastic_scale(large.job.model);
    out.K = make_matrix(large.team, freedoms, large.piece,
                        {rows.km, rows.km.K_value, border.K_fr, border.K_rr, border.nr}, large.scale);
    rows.km.K_value = {};
    const double highest = diagonals.highest > 0 ? diagonals.highest : 1;
    out.M = make_matrix(large.team, freedoms, large.piece,
                        {rows.km, rows.km.M_value, border.M_fr, border.M_rr, border.nr},
                        large.scale / (far_above * highest));
    const std::vector<double> rigid = free_rigid_motions(large.job, large.system);
    const std::size_t n = large.system.equations();
    out.rigid = static_cast<std::int32_t>(rigid.size() / n);
    for (std::int32_t k = 0; k < out.rigid; ++k)
        out.motions.push_back(vector_of(large, out.K, std::span(rigid).subspan(k * n, n)));
    return out;
}

// The residual of a mode of unit mass against |λ| ‖Mφ‖, whose size follows from the mass of a row.
PetscErrorCode relative_residual(EPS, PetscScalar lambda, PetscScalar, PetscReal residual, PetscReal* error,
                                 void* context) {
    const auto& pencil = *static_cast<const Pencil*>(context);
    const double floor = 1e-6 * pencil.elastic;
    *error = residual / (std::max(std::abs(lambda), floor) * std::sqrt(pencil.heaviest));
    return 0;
}

struct Watch {
    const Team& team;
    Job& job;
    std::int32_t wanted;
};

PetscErrorCode test_stop(EPS eps, PetscInt iterations, PetscInt most, PetscInt converged, PetscInt wanted,
                         EPSConvergedReason* reason, void* context) {
    auto& watch = *static_cast<Watch*>(context);
    watch.job.progress.print("eigen %d: %d of %d modes\n", static_cast<int>(iterations),
                             static_cast<int>(converged), watch.wanted);
    watch.job.progress.set_count(converged, watch.wanted);
    must(EPSStoppingBasic(eps, iterations, most, converged, wanted, reason, nullptr));
    if (!watch.team.any(watch.job.progress.cancelled())) return 0;
    watch.job.progress.cancel();
    *reason = EPS_CONVERGED_USER;
    return 0;
}

// How the spectral transformation solves, once per step: by `solver` alone.
PC transform_by(EPS eps, STType transformation, PCType solver) {
    ST st = nullptr;
    must(EPSGetST(eps, &st));
    must(STSetType(st, transformation));
    KSP ksp = nullptr;
    must(STGetKSP(st, &ksp));
    must(KSPSetType(ksp, KSPPREONLY));
    PC pc = nullptr;
    must(KSPGetPC(ksp, &pc));
    must(PCSetType(pc, solver));
    return pc;
}

// Krylov-Schur on (K - σM)⁻¹ M; σ is below every eigenvalue, so that the factored matrix is positive.
void set_inverted(const Pencil& pencil, EPS eps) {
    must(EPSSetType(eps, EPSKRYLOVSCHUR));
    const double sigma = pencil.rigid > 0 ? -free_shift * pencil.elastic : 0;
    must(EPSSetWhichEigenpairs(eps, EPS_TARGET_MAGNITUDE));
    must(EPSSetTarget(eps, sigma));
    must(EPSSetTolerances(eps, 1e-12, 500));
    must(PCFactorSetMatSolverType(transform_by(eps, STSINVERT, PCCHOLESKY), MATSOLVERMUMPS));
}

// Davidson's method with one cycle of the multigrid of K, or of K + σM of a free body, as the preconditioner.
void set_iterated(const LargeJob& large, Pencil& pencil, EPS eps) {
    must(EPSSetType(eps, EPSGD));
    must(EPSSetWhichEigenpairs(eps, EPS_SMALLEST_REAL));
    must(EPSSetTolerances(eps, 1e-6, 5000));
    must(EPSSetConvergenceTestFunction(eps, relative_residual, &pencil, nullptr));
    transform_by(eps, STPRECOND, PCGAMG);
    PetscMat shifted;
    must(MatDuplicate(pencil.K, MAT_COPY_VALUES, shifted.reset()));
    if (pencil.rigid > 0) must(MatAXPY(shifted, free_shift * pencil.elastic, pencil.M, SAME_NONZERO_PATTERN));
    set_rigid_motions(large.team, large.job.mesh(), large.system.freedoms, large.piece, shifted);
    ST st = nullptr;
    must(EPSGetST(eps, &st));
    must(STSetPreconditionerMat(st, shifted));
    if (pencil.rigid == 0) return;
    std::vector<Vec> motions(pencil.motions.begin(), pencil.motions.end());
    must(EPSSetDeflationSpace(eps, pencil.rigid, motions.data()));
}

// vᵀ M w
double mass_product(const Pencil& pencil, Vec v, Vec w) {
    PetscVec Mw;
    must(VecDuplicate(w, Mw.reset()));
    must(MatMult(pencil.M, w, Mw));
    double out = 0;
    must(VecDot(v, Mw, &out));
    return out;
}

// The rigid motions, M-orthonormal, are the first modes of what deflation has left out.
void add_rigid(Pencil& pencil, Modes& modes) {
    for (std::size_t k = 0; k < pencil.motions.size(); ++k) {
        for (std::size_t j = 0; j < k; ++j)
            must(VecAXPY(pencil.motions[k], -mass_product(pencil, pencil.motions[k], pencil.motions[j]),
                         pencil.motions[j]));
        must(VecScale(pencil.motions[k],
                      1 / std::sqrt(mass_product(pencil, pencil.motions[k], pencil.motions[k]))));
        modes.lambda.push_back(0);
        PetscVec copy;
        must(VecDuplicate(pencil.motions[k], copy.reset()));
        must(VecCopy(pencil.motions[k], copy));
        modes.vectors.push_back(std::move(copy));
    }
}

bool find_modes(LargeJob& large, Pencil& pencil, LargeMethod method, std::int32_t wanted, Modes& modes) {
    Job& job = large.job;
    const bool iterated = method == LargeMethod::multigrid;
    if (iterated) add_rigid(pencil, modes);
    const std::int32_t missing = wanted - static_cast<std::int32_t>(modes.lambda.size());
    if (missing <= 0) return true;
    PetscEps eps;
    must(EPSCreate(large.team.comm(), eps.reset()));
    must(EPSSetOperators(eps, pencil.K, pencil.M));
    must(EPSSetProblemType(eps, EPS_GHEP));
    Watch watch{large.team, job, missing};
    must(EPSSetDimensions(eps, missing, PETSC_DEFAULT, PETSC_DEFAULT));
    must(EPSSetStoppingTestFunction(eps, test_stop, &watch, nullptr));
    if (iterated)
        set_iterated(large, pencil, eps);
    else
        set_inverted(pencil, eps);
    must(EPSSetFromOptions(eps));
    must(EPSSolve(eps));
    if (!large.team.goes_on(job)) return false;
    PetscInt found = 0, rounds = 0;
    must(EPSGetConverged(eps, &found));
    must(EPSGetIterationNumber(eps, &rounds));
    job.report().rounds = rounds;
    std::vector<std::pair<double, PetscVec>> all;
    for (PetscInt k = 0; k < found; ++k) {
        PetscVec vector;
        must(MatCreateVecs(pencil.K, vector.reset(), nullptr));
        double lambda = 0;
        must(EPSGetEigenpair(eps, k, &lambda, nullptr, vector, nullptr));
        all.emplace_back(lambda, std::move(vector));
    }
    std::ranges::sort(all, {}, [](const auto& pair) { return pair.first; });
    for (auto& [lambda, vector] : all) {
        modes.lambda.push_back(lambda);
        modes.vectors.push_back(std::move(vector));
    }
    return true;
}

// One mode of unit mass: its report, with translations of which M has made `M_all`.
ModeReport report_mode(const Pencil& pencil, Vec phi, double lambda, double first_elastic,
                       const std::vector<PetscVec>& M_all) {
    must(VecScale(phi, 1 / std::sqrt(mass_product(pencil, phi, phi))));
    PetscVec K, M;
    must(VecDuplicate(phi, K.reset()));
    must(VecDuplicate(phi, M.reset()));
    must(MatMult(pencil.K, phi, K));
    must(MatMult(pencil.M, phi, M));
    ModeReport out;
    out.lambda = lambda;
    out.frequency = frequency_of(lambda);
    out.zero = std::abs(lambda) < 1e-6 * first_elastic;
    for (std::size_t d = 0; d < 3; ++d) {
        double participation = 0;
        must(VecDot(phi, M_all[d], &participation));
        out.effective_mass[d] = participation * participation;
    }
    double size = 0, error = 0;
    must(VecAXPY(K, first_elastic, M));
    must(VecNorm(K, NORM_2, &size));
    must(VecAXPY(K, -first_elastic - lambda, M));
    must(VecNorm(K, NORM_2, &error));
    out.residual = error / size;
    return out;
}

// What rounding leaves of an eigenvalue that is zero, 1/s².
double rounding_of(const Pencil& pencil, const Modes& modes) {
    return 1e-9 * std::max(pencil.elastic, std::abs(modes.lambda.back()));
}

void report_modes(LargeJob& large, const Pencil& pencil, std::int32_t wanted, const Modes& modes) {
    std::vector<PetscVec> M_all;
    const std::vector<double> all = translations(large.system);
    const std::size_t n = large.system.equations();
    for (std::size_t d = 0; d < 3; ++d) {
        const PetscVec motion = vector_of(large, pencil.K, std::span(all).subspan(d * n, n));
        PetscVec& M = M_all.emplace_back();
        must(VecDuplicate(motion, M.reset()));
        must(MatMult(pencil.M, motion, M));
    }
    const double rounding = rounding_of(pencil, modes);
    double first_elastic = pencil.elastic;
    for (const double lambda : modes.lambda)
        if (lambda > rounding) {
            first_elastic = lambda;
            break;
        }
    for (std::int32_t k = 0; k < wanted; ++k)
        large.job.report().modes.push_back(
            report_mode(pencil, modes.vectors[k], modes.lambda[k], first_elastic, M_all));
}

// Counts the eigenvalues below a gap behind the modes by the pivots of K - σM there (Sylvester's law of
// inertia).
bool check_complete(LargeJob& large, const Pencil& pencil, LargeMethod method, std::int32_t wanted,
                    const Modes& modes) {
    Job& job = large.job;
    if (method == LargeMethod::multigrid) {
        job.note("the modes were found by iteration: without a factor their number could not be checked");
        return true;
    }
    constexpr double clear_gap = 1e-3;
    const double rounding = rounding_of(pencil, modes);
    std::size_t below = 0;
    for (std::size_t k = wanted; k < modes.lambda.size() && below == 0; ++k)
        if (modes.lambda[k] - modes.lambda[k - 1] >
            std::max(clear_gap * std::abs(modes.lambda[k]), 100 * rounding))
            below = k;
    if (below == 0) {
        job.note("no clear gap in the spectrum above the modes asked for: their number could not be checked");
        return true;
    }
    const double sigma = 0.5 * (modes.lambda[below - 1] + modes.lambda[below]);
    PetscMat shifted;
    must(MatDuplicate(pencil.K, MAT_COPY_VALUES, shifted.reset()));
    must(MatAXPY(shifted, -sigma, pencil.M, SAME_NONZERO_PATTERN));
    LargeSolver factor(large.team, job, LargeMethod::direct, 1e-10);
    if (!factor.set_up(shifted)) return false;
    RunReport& report = job.report();
    report.check_frequency = frequency_of(sigma);
    report.modes_found = static_cast<std::int64_t>(below);
    report.modes_counted = factor.negative_pivots();
    return report.modes_found == report.modes_counted ||
           job.fail(RunStatus::failed,
                    formatted("modes below %.6g Hz: %ld found, %ld counted: the result is not complete",
                              report.check_frequency, report.modes_found, report.modes_counted));
}

void store_modes(LargeJob& large, std::int32_t wanted, const Modes& modes) {
    Job& job = large.job;
    job.clock.begin("recover");
    const bool last = large.team.rank() == large.team.size() - 1;
    for (std::int32_t k = 0; k < wanted && large.team.goes_on(job); ++k) {
        std::vector<double> rows(large.piece.owned_dofs() + (last ? large.border.nr : 0));
        get_values(modes.vectors[k], rows);
        std::vector<double> bodies(large.border.nr, 0.0);
        if (last) std::copy(rows.end() - large.border.nr, rows.end(), bodies.begin());
        large.team.sum(bodies);
        rows.resize(large.piece.owned_dofs());
        const auto frame = std::make_shared<Frame>();
        frame->n_freq = job.report().modes[k].frequency;
        frame->mode_vec.assign(job.mesh().dof_num(), 0.0);
        expand_solution(job.mesh(), large.system.freedoms, equations_of(large, rows, bodies),
                        frame->mode_vec);
        store_large_frame(large, frame,
                          piece_stresses(job, large.system.elasticity, large.piece, frame->mode_vec, {}));
    }
}

bool work(LargeJob& large) {
    Job& job = large.job;
    if (!large.team.stage(job, [&] { return check_densities(job); }) || !prepare_pieces(large)) return false;
    Pencil pencil = make_pencil(large);
    if (!large.team.goes_on(job)) return false;
    const std::int32_t most = large.system.equations();
    const std::int32_t wanted = std::min(job.model.mode_count, most);
    if (pencil.rigid > 0 && !job.model.boundary_conditions.empty())
        job.note(formatted("the supports leave %d rigid motion%s: as many modes are zero", pencil.rigid,
                           pencil.rigid == 1 ? "" : "s"));
    LargeMethod method =
        chosen_method(job.settings, most > direct_equations ? LargeMethod::multigrid : LargeMethod::direct);
    if (method == LargeMethod::multigrid && large.border.nr > 0) {
        job.note("rigid elements stand beside the sparse matrix: the direct factor takes over");
        method = LargeMethod::direct;
    }
    job.clock.begin("iterate");
    constexpr std::int32_t beyond = 2;  // modes to find a gap behind those asked for
    Modes modes;
    const bool direct = method == LargeMethod::direct;
    if (!find_modes(large, pencil, method, direct ? std::min(wanted + beyond, most) : wanted, modes))
        return false;
    if (std::ssize(modes.lambda) < wanted)
        return job.fail(RunStatus::failed, formatted("%zu of %d modes were found: the result is not complete",
                                                     modes.lambda.size(), wanted));
    job.report().solver = direct ? "Krylov-Schur with the direct factor (MUMPS)"
                                 : formatted("generalized Davidson with multigrid, %ld iterations",
                                             static_cast<long>(job.report().rounds));
    job.clock.begin("check");
    if (!check_complete(large, pencil, method, wanted, modes)) return false;
    report_modes(large, pencil, wanted, modes);
    if (!check_resolved(job)) return false;
    store_modes(large, wanted, modes);
    return job.report().status == RunStatus::done;
}

}  // namespace

void analyse_eigen_large(const Team& team, Job& job, bool pieces) {
    LargeJob large{team, job, pieces, {}, {}, {}, {}, 1, {}};
    if (!work(large)) {
        job.run.results.clear();
        return;
    }
    write_large(large, 0);
}

}  // namespace kestralum
