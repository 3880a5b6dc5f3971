#include "analysis/eigen/lanczos.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "analysis/eigen/recurrence.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::int32_t printed_steps = 100;  // at least: the steps that the console shows
constexpr std::int32_t guard_modes = 4;
constexpr std::int32_t preliminary_steps = 30;
constexpr int most_restarts = 30;

// The modes found so far, M-orthonormal, with their values.
struct Found {
    std::vector<double> modes;  // n × count
    std::vector<double> lambda;

    std::vector<double> sorted() const {
        std::vector<double> values = lambda;
        std::sort(values.begin(), values.end());
        return values;
    }
    std::int64_t below(double limit) const {
        return std::count_if(lambda.begin(), lambda.end(), [&](double l) { return l < limit; });
    }
};

class Lanczos {
public:
    Lanczos(EigenProblem& problem, const EigenOptions& options)
        : problem_(problem), options_(options), random_(19500101) {
        wanted_ = std::min(problem.n(), options.n_mode + guard_modes);
        shown_ = std::max(printed_steps, options.n_mode);
        shift_ = problem.sigma();
        width_ = block_width(problem);
    }

    // A short run with the 0.1 Hz factor, beside the body's rigid motions: the first frequencies, until the
    // one that the second shift is taken from has converged.
    bool preliminary(double& reference) {
        Basis rigid(problem_, 6);
        std::vector<double> motions;  // their λ
        if (!add_rigid_motions(rigid, motions)) return false;
        Recurrence run(problem_, rigid.vectors(), preliminary_steps, width_);
        Estimates found = estimates(run, motions);
        if (run.start(random_vectors(width_))) {
            const std::int32_t steps = std::max(preliminary_steps, 2 * std::min(options_.n_mode, 20));
            while (!run.exhausted() && run.steps() < steps && !reference_settled(found)) {
                if (!run.step()) return false;
                found = estimates(run, motions);
            }
        }
        if (!problem_.job().goes_on()) return false;
        for (std::size_t j = 0; j < std::min<std::size_t>(found.lambda.size(), options_.n_mode); ++j)
            problem_.progress().print("n_freq=%lf,[%.5e]\n", frequency_of(found.lambda[j]),
                                      found.residual[j]);
        found.lambda.resize(found.fair);
        reference = reference_frequency(found.lambda, options_, problem_.rounding());
        std::vector<Ritz> lowest = run.ritz();
        std::erase_if(lowest, [](const Ritz& ritz) { return !(ritz.theta > 0); });
        std::ranges::sort(lowest, std::greater(), &Ritz::theta);
        lowest.resize(std::min<std::size_t>(lowest.size(), width_ - 1));
        return run.vectors(lowest, estimate_);
    }

    // The run that the console shows, from the start vector given, in a block beside the estimates of the
    // preliminary run; goes on until enough has converged.
    bool main_run(std::vector<double> start) {
        problem_.progress().print("Lanczos Start:\n");
        shift_ = problem_.sigma();
        Recurrence run(problem_, found_.modes, shown_, width_);
        start.insert(start.end(), estimate_.begin(), estimate_.end());
        estimate_ = {};
        const auto columns = static_cast<std::int32_t>(start.size() / problem_.n());
        const std::vector<double> others = random_vectors(width_ - columns);
        start.insert(start.end(), others.begin(), others.end());
        if (!run.start(start)) return problem_.job().goes_on();
        const std::int32_t most = std::min(problem_.n(), 4 * shown_);
        std::int32_t next_look = shown_;
        bool printed = false;
        while (!run.exhausted() && run.steps() < most) {
            if (!run.step()) return false;
            if (width_ == 1 && run.steps() <= shown_) print_coefficients(run.tridiagonal(), run.steps() - 1);
            if (run.exhausted())
                note(
                    "the Lanczos vectors span an invariant subspace after %d steps: the recurrence ends "
                    "there",
                    run.steps());
            if (!printed && (run.steps() >= shown_ || run.exhausted())) {
                print_tridiagonal(run);
                printed = true;
            }
            if (run.steps() < next_look) continue;
            next_look += 20;
            if (!problem_.job().goes_on()) return false;
            if (count_converged(run.ritz()) >= wanted_) break;
        }
        problem_.progress().print("Calculate mode_vec from Tmat\n");
        if (!keep_converged(run, wanted_)) return false;
        problem_.progress().print("Calculate mode_vec\n");
        return true;
    }

    // Runs that start orthogonal to what was found: from the rigid motions of a free body, then from
    // random vectors until the number below the gap is the number counted there.
    bool complete(SpectrumGap& gap) {
        if (!restart_from_rigid_motions()) return false;
        for (int restart = 0;
             static_cast<std::int32_t>(found_.lambda.size()) < wanted_ && restart < most_restarts; ++restart)
            if (!restart_at_random(wanted_ - static_cast<std::int32_t>(found_.lambda.size()))) return false;
        const std::vector<double> lambda = found_.sorted();
        const auto usable = static_cast<std::int32_t>(lambda.size());
        gap = find_gap(lambda, std::min(options_.n_mode, usable), usable, problem_.rounding(),
                       usable == problem_.n());
        if (gap.below == 0) return true;
        const std::int64_t counted = problem_.count_below(gap.lambda, gap.slack);
        if (counted == EigenProblem::unsound_count) {
            gap.below = 0;
            return true;
        }
        if (counted < 0) return false;
        RunReport& report = problem_.report();
        // the factor at hand serves: beside what is found, what is missing is all that lies below its shift
        shift_ = gap.lambda;
        for (int run = 0; counted > found_.below(gap.lambda) && run < most_restarts; ++run) {
            note(
                "%lld modes are found where %lld are counted: a run orthogonal to the former ones looks for "
                "the others",
                static_cast<long long>(found_.below(gap.lambda)), static_cast<long long>(counted));
            const auto missing = static_cast<std::int32_t>(counted - found_.below(gap.lambda));
            if (!restart(random_vectors(1), missing, true)) return false;
        }
        report.modes_found = found_.below(gap.lambda);
        report.modes_counted = counted;
        report.check_frequency = frequency_of(gap.lambda);
        return true;
    }

    void hand_over(EigenPairs& out) {
        const std::size_t n = problem_.n();
        std::vector<std::size_t> order(found_.lambda.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return found_.lambda[a] < found_.lambda[b]; });
        for (std::size_t j : order) {
            out.lambda.push_back(found_.lambda[j]);
            const auto v = found_.modes.begin() + std::ptrdiff_t(j * n);
            out.vectors.insert(out.vectors.end(), v, v + std::ptrdiff_t(n));
        }
    }

private:
    template <typename... Arguments>
    void note(const char* format, Arguments... arguments) {
        const std::string line = formatted(format, arguments...);
        problem_.job().note(line);
        problem_.progress().notice("%s", line.c_str());
    }

    // Values of a run, those with a fair residual first, each part ascending.
    struct Estimates {
        std::vector<double> lambda, residual;
        std::size_t fair = 0;
    };

    Estimates estimates(const Recurrence& run, const std::vector<double>& motions) const {
        constexpr double fair = 0.1;
        std::vector<std::array<double, 3>> values;  // 0 or 1: fair or not; λ; residual
        for (double l : motions) values.push_back({0, l, 0});
        for (const Ritz& ritz : run.ritz())
            if (ritz.residual < fair || ritz.theta > 0)
                values.push_back({ritz.residual < fair ? 0.0 : 1.0, lambda_from(ritz), ritz.residual});
        std::sort(values.begin(), values.end());
        Estimates out;
        for (const auto& [rough, lambda, residual] : values) {
            out.lambda.push_back(lambda);
            out.residual.push_back(residual);
            out.fair += rough == 0;
        }
        return out;
    }

    // There are as many values as modes, and the reference and what is below it have converged.
    bool reference_settled(const Estimates& found) const {
        constexpr double good = 1e-3;  // the square of it is the error of the value
        const std::size_t needed = options_.rigid + 1;
        return found.lambda.size() >= std::size_t(options_.n_mode) && found.fair >= needed &&
               std::all_of(found.residual.begin(), found.residual.begin() + std::ptrdiff_t(needed),
                           [](double residual) { return residual < good; });
    }

    std::vector<double> random_vectors(std::int32_t columns) {
        std::vector<double> v(std::size_t(problem_.n()) * columns);
        for (double& x : v) x = random_.next();
        return v;
    }

    double lambda_from(const Ritz& ritz) const { return shift_ + 1 / ritz.theta; }

    bool converged(const Ritz& ritz) const {
        return ritz.residual < problem_.job().options.lanczos_tolerance;
    }

    // Converged pairs below the lowest one that is not.
    std::int32_t count_converged(const std::vector<Ritz>& all) const {
        double limit = 1e300;
        for (const Ritz& ritz : all)
            if (!converged(ritz) && ritz.theta > 0) limit = std::min(limit, lambda_from(ritz));
        return static_cast<std::int32_t>(std::count_if(all.begin(), all.end(), [&](const Ritz& ritz) {
            return converged(ritz) && lambda_from(ritz) < limit;
        }));
    }

    // Converged pairs below the shift.
    std::int32_t count_below(const std::vector<Ritz>& all) const {
        return static_cast<std::int32_t>(std::count_if(
            all.begin(), all.end(), [&](const Ritz& ritz) { return converged(ritz) && ritz.theta < 0; }));
    }

    // Keeps the lowest `most` converged pairs.
    bool keep_converged(Recurrence& run, std::int32_t most) {
        std::vector<Ritz> all = run.ritz();
        std::erase_if(all, [&](const Ritz& ritz) { return !converged(ritz); });
        std::sort(all.begin(), all.end(),
                  [&](const Ritz& a, const Ritz& b) { return 1 / a.theta < 1 / b.theta; });
        if (all.size() > std::size_t(most)) all.resize(most);
        for (const Ritz& ritz : all) found_.lambda.push_back(lambda_from(ritz));
        std::vector<double> modes;
        if (!run.vectors(all, modes)) return false;
        found_.modes.insert(found_.modes.end(), modes.begin(), modes.end());
        return true;
    }

    // A run for `missing` more modes: the lowest, or those below the shift.
    bool restart(const std::vector<double>& start, std::int32_t missing, bool below) {
        Recurrence run(problem_, found_.modes, 0, 1);
        if (!run.start(start)) return problem_.job().goes_on();
        const std::int32_t most = std::min(problem_.n(), 2 * shown_);
        std::int32_t next_look = 10;
        while (!run.exhausted() && run.steps() < most) {
            if (!run.step()) return false;
            if (run.steps() < next_look) continue;
            next_look += 10;
            if (!problem_.job().goes_on()) return false;
            if ((below ? count_below(run.ritz()) : count_converged(run.ritz())) >= missing) break;
        }
        return keep_converged(run, missing);
    }

    bool restart_at_random(std::int32_t missing) { return restart(random_vectors(1), missing, false); }

    bool restart_from_rigid_motions() {
        const std::size_t n = problem_.n();
        for (std::size_t c = 0; c * n < options_.rigid_motions.size(); ++c) {
            const auto first = options_.rigid_motions.begin() + std::ptrdiff_t(c * n);
            if (!restart({first, first + std::ptrdiff_t(n)}, 1, false)) return false;
        }
        return true;
    }

    // The rigid motions, M-orthonormal, with their Rayleigh quotients.
    bool add_rigid_motions(Basis& rigid, std::vector<double>& lambda) {
        if (!rigid.add(options_.rigid_motions)) return false;
        std::vector<double> K_motions(rigid.vectors().size()), C;
        problem_.multiply_k(rigid.vectors(), K_motions, rigid.count());
        if (!rigid.products(0, K_motions, C)) return false;
        for (std::int32_t j = 0; j < rigid.count(); ++j) lambda.push_back(C[j * (rigid.count() + 1)]);
        return true;
    }

    void print_coefficients(const Tridiagonal& t, std::int32_t j) {
        problem_.progress().print("%d: %.3e\n", j, t.alpha[j]);
        problem_.progress().print("%d: %.3e, %.3e\n", j, t.alpha[j], t.beta[j]);
    }

    void print_tridiagonal(const Recurrence& run) {
        const std::int32_t m = std::min(run.steps(), shown_);
        const Tridiagonal t = run.tridiagonal();
        for (std::int32_t j = 0; width_ > 1 && j < m; ++j) print_coefficients(t, j);
        problem_.progress().print("Tmat\n");
        if (problem_.progress().lines_wanted()) {
            std::string text;
            for (std::int32_t i = 0; i < m; ++i) {
                for (std::int32_t j = 0; j < m; ++j) {
                    const double entry = i == j                 ? t.alpha[i]
                                         : std::abs(i - j) == 1 ? t.beta[std::min(i, j)]
                                                                : 0.0;
                    text += formatted("%.3e ", entry);
                }
                text += "\n";
            }
            problem_.progress().write(text);
        }
        problem_.progress().print("eig\n");
        std::vector<Ritz> all = run.ritz();
        problem_.progress().print("getV\n");
        problem_.progress().print("getD\n");
        problem_.progress().print("Calculate eigen values and vectors\n");
        problem_.progress().print("Natural Frequency\n");
        for (std::int32_t j = 0; j < m; ++j)
            problem_.progress().print("%d:%e\n", j, frequency_of(lambda_from(all[j])));
    }

    EigenProblem& problem_;
    const EigenOptions& options_;
    Found found_;
    FixedRandom random_;
    std::int32_t wanted_, shown_, width_;
    double shift_;  // of the factor that the runs use
    std::vector<double>
        estimate_;  // the lowest modes as the preliminary run leaves them, n × at most width_ - 1
};

}  // namespace

bool lanczos(EigenProblem& problem, const EigenOptions& options, EigenPairs& out, SpectrumGap& gap) {
    std::vector<double> start;
    if (!problem.start_vector_through_w(start)) return false;
    Lanczos method(problem, options);
    double reference = 0;
    if (!method.preliminary(reference)) return false;
    const double shift = reference * options.c_eigen_shift;
    if (shift > 0 || (options.rigid == 0 && options.c_eigen_shift == 0)) {
        if (!problem.shift(lambda_of(shift), true)) return false;
    } else {
        problem.keep_shift();
    }
    if (!method.main_run(std::move(start)) || !method.complete(gap)) return false;
    method.hand_over(out);
    return true;
}

}  // namespace kestralum
