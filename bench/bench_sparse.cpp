// The multifrontal factor: seconds of the analysis of the pattern, of the factorization and of solves with 1
// and 16 columns, medians; residual and memory. Usage: bench_sparse [CASE [THREADS [RUNS]]], cases as in
// elastic_system.h.
#include <algorithm>
#include <cmath>

#include "bench/elastic_system.h"
#include "solver/multifrontal.h"

using namespace kestralum;
using namespace kestralum::bench;

int main(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "20x20x20";
    const int threads = argc > 2 ? std::atoi(argv[2]) : 2, runs = argc > 3 ? std::atoi(argv[3]) : 3;
    const bool file = name.ends_with(".vol");
    const System system = assemble(file ? read_volume(name) : box_of(name), file ? 0 : 2, threads);
    const double before = peak_megabytes();
    SilentProgress silent;
    std::vector<double> analysis, factorization, one, many, x;
    FrontTree tree;
    double peak = 0;  // of the first factorization and solve
    for (int run = 0; run < runs; ++run) {
        Watch watch;
        tree = analyse_pattern(system.km);
        analysis.push_back(watch.seconds());
        MultifrontalFactor factor(tree, {.threads = threads});
        watch = Watch();
        if (factor.factor(system.km, system.km.K_value, silent) != FactorStatus::ok) {
            std::printf("%s\n", factor.error().c_str());
            return 1;
        }
        factorization.push_back(watch.seconds());
        x = system.load;
        watch = Watch();
        if (!factor.solve(x)) return 1;
        one.push_back(watch.seconds());
        if (run == 0) peak = peak_megabytes();
        std::vector<double> columns;
        for (int c = 0; c < 16; ++c) columns.insert(columns.end(), x.begin(), x.end());
        watch = Watch();
        if (!factor.solve(columns, 16)) return 1;
        many.push_back(watch.seconds());
    }
    std::vector<double> Kx(x.size());
    multiply(system.km, system.km.K_value, x, Kx);
    double residual = 0, load = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        residual += (Kx[i] - system.load[i]) * (Kx[i] - system.load[i]);
        load += system.load[i] * system.load[i];
    }
    std::printf(
        "%s n %d entries %.4g work %.4g analyse_s %.3f factor_s %.3f solve_s %.3f solve16_s %.3f residual "
        "%.1e peak_mb "
        "%.0f before_mb %.0f panels_mb %.0f stack_mb %.0f\n",
        name.c_str(), system.km.rows(), static_cast<double>(tree.entries), tree.work, median(analysis),
        median(factorization), median(one), median(many), std::sqrt(residual / load), peak, before,
        8e-6 * static_cast<double>(tree.panel_doubles), 8e-6 * static_cast<double>(tree.stack_doubles));
    return 0;
}
