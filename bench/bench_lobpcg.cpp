// The lowest modes by LOBPCG with a cycle of multigrid: seconds, iterations, columns preconditioned, memory.
// Usage: bench_lobpcg [CASE [MODES [THREADS [TOLERANCE [GUARDS]]]]]
#include "bench/elastic_system.h"
#include "solver/lobpcg.h"
#include "solver/multigrid.h"

using namespace kestralum;
using namespace kestralum::bench;

namespace {

// The entries of a matrix that are not zero, for products with four columns at a time.
struct Rows {
    std::vector<std::int64_t> start = {0};
    std::vector<std::int32_t> col;
    std::vector<double> value;

    Rows(const SparseKM& km, const std::vector<double>& values) {
        for (std::int32_t r = 0; r < km.rows(); ++r) {
            for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k)
                if (values[k] != 0) col.push_back(km.col_index[k]), value.push_back(values[k]);
            start.push_back(static_cast<std::int64_t>(col.size()));
        }
    }

    template <int C>
    void multiply(const double* x, double* y, std::int64_t first, std::int64_t last) const {
        const std::int64_t n = static_cast<std::int64_t>(start.size()) - 1;
        for (std::int64_t r = first; r < last; ++r) {
            double sum[C] = {};
            for (std::int64_t k = start[r]; k < start[r + 1]; ++k)
                for (int c = 0; c < C; ++c) sum[c] += value[k] * x[c * n + col[k]];
            for (int c = 0; c < C; ++c) y[c * n + r] = sum[c];
        }
    }

    BlockOperator product(int threads, double& seconds) const {
        return [this, threads, &seconds](std::span<const double> x, std::span<double> y, std::int32_t k) {
            const Watch own;
            RowTeam team(threads, nullptr);
            const std::int64_t n = static_cast<std::int64_t>(start.size()) - 1;
            team.rows(n, [&](std::int64_t first, std::int64_t last, int) {
                std::int32_t c = 0;
                for (; c + 4 <= k; c += 4) multiply<4>(&x[c * n], &y[c * n], first, last);
                for (; c < k; ++c) multiply<1>(&x[c * n], &y[c * n], first, last);
            });
            seconds += own.seconds();
            return SolveStatus::ok;
        };
    }
};

}  // namespace

int main(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "20x20x20";
    LobpcgOptions options{.n_mode = argc > 2 ? std::atoi(argv[2]) : 10,
                          .threads = argc > 3 ? std::atoi(argv[3]) : 1};
    if (argc > 4) options.tolerance = std::atof(argv[4]);
    if (argc > 5) options.guards = std::atoi(argv[5]);
    const bool file = name.ends_with(".vol");
    const Mesh mesh = file ? read_volume(name) : box_of(name);
    if (mesh.node_num() == 0) {
        std::printf("%s is no case\n", name.c_str());
        return 1;
    }
    Watch watch;
    const System system = assemble(mesh, file ? 0 : 2, options.threads, MassStorage::pattern);
    const SparseKM& km = system.km;
    watch.report("assembly");
    const double before = peak_megabytes();
    Multigrid multigrid;
    if (multigrid.set_up(km, km.K_value, {system.dof, mesh.coordinates}, options.threads) !=
        SolveStatus::ok) {
        std::printf("%s\n", multigrid.error().c_str());
        return 1;
    }
    watch.report("set-up");
    double seconds_k = 0, seconds_m = 0, seconds_t = 0;
    const Rows K(km, km.K_value), M(km, km.M_value);
    const LobpcgProblem problem{km.rows(), K.product(options.threads, seconds_k),
                                M.product(options.threads, seconds_m),
                                [&](std::span<double> x, std::int32_t k) {
                                    const Watch own;
                                    const SolveStatus status = multigrid.precondition(x, k);
                                    seconds_t += own.seconds();
                                    return status;
                                }};
    watch = Watch();
    const LobpcgResult found = lobpcg(problem, options);
    watch.report("modes");
    std::printf("of these in products with K %.3f s, with M %.3f s, in cycles %.3f s\n", seconds_k, seconds_m,
                seconds_t);
    double worst = 0;
    for (const double r : found.residual) worst = std::max(worst, r);
    std::printf(
        "%s: %d equations, status %d, %d iterations, %ld cycles, residual %.1e%s, peak %.0f MB after %.0f\n",
        name.c_str(), km.rows(), static_cast<int>(found.status), found.iterations,
        static_cast<long>(found.preconditioned), worst, found.rounded ? " (rounding)" : "", peak_megabytes(),
        before);
    for (const double lambda : found.lambda) std::printf(" %.9g", lambda);
    std::printf("\n");
    return found.status == SolveStatus::ok ? 0 : 1;
}
