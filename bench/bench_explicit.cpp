// Element-steps a second of the explicit analysis: whole steps (internal forces, gathering, motion) of a free
// body under large displacements, beside what the kernel's operations and bytes allow on this machine.
// A rate is the best of windows of 0.2 s; set-up is that of the run up to its first step, and how many steps
// at that rate take as long.
// Usage: bench_explicit [THREADS] [SECONDS] [ELEMENTS [TRIAL]]   1 to THREADS threads; about so many elements
// of each kind, 20 000 and 200 000 unless given; TRIAL: 0 to 3, only that row
#include <omp.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "analysis/explicit/explicit_state.h"
#include "support/box_mesh.h"

namespace {

using namespace kestralum;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Sustained bytes a second of a = b + s c over arrays that no cache holds.
double measure_bandwidth(int threads) {
    const std::int64_t n = 40'000'000;
    std::vector<double> a(n), b(n, 1.0), c(n, 2.0);
    double best = 0;
    for (int round = 0; round < 4; ++round) {
        const auto start = Clock::now();
#pragma omp parallel for schedule(static) num_threads(threads)
        for (std::int64_t k = 0; k < n; ++k) a[k] = b[k] + 0.5 * c[k];
        best = std::max(best, 24.0 * static_cast<double>(n) / seconds_since(start));
    }
    return best;
}

// Sustained operations a second of independent multiply-adds in registers, AVX-512 where there is one.
__attribute__((target_clones("avx512f", "avx2,fma", "default"))) double multiply_add(std::int64_t rounds) {
    constexpr int streams = 12;
    typedef double Lanes __attribute__((vector_size(64)));
    Lanes x[streams];
    for (int s = 0; s < streams; ++s) x[s] = Lanes{} + s;
    const Lanes f = Lanes{} + 0.999999, g = Lanes{} + 1e-6;
    for (std::int64_t k = 0; k < rounds; ++k)
        for (int s = 0; s < streams; ++s) x[s] = x[s] * f + g;
    double sum = 0;
    for (int s = 0; s < streams; ++s) sum += x[s][0];
    return sum;
}
double measure_operations(int threads) {
    const std::int64_t rounds = 20'000'000;
    double best = 0, keep = 0;
    for (int repeat = 0; repeat < 3; ++repeat) {
        const auto start = Clock::now();
#pragma omp parallel num_threads(threads) reduction(+ : keep)
        keep += multiply_add(rounds);
        best = std::max(best, 2.0 * 12 * 8 * static_cast<double>(rounds) * threads / seconds_since(start));
    }
    return keep == 1e300 ? 0 : best;
}

// Additions, multiplications and divisions of an element's step, counted in the kernel's source, and the
// bytes that it has to move: stresses and energies in and out, lists, and its share of the nodes' arrays.
struct Trial {
    ElementKind kind;
    bool plastic;
    double operations, bytes;
    int elements_per_cell;
};
constexpr double point = 339, return_map = 45;

void run(const Trial& work, double elements, int threads, double seconds, double operations,
         double bandwidth) {
    Model model = placeholder_model();
    Material material{.id = 0, .name = "M", .density = 7800, .young = 2e11, .poisson = 0.3};
    material.yield_stress = 1e6;
    material.hardening = 1e9;
    model.materials = {material};
    model.parts.assign(1, {});
    const double size = 1.0;
    const int cells = static_cast<int>(std::lround(std::cbrt(elements / work.elements_per_cell)));
    model.mesh = testing::box_mesh({{cells, cells, cells}, {size, size, size}}, work.kind);
    model.control.plastic = work.plastic;
    model.control.end_time = 1e-9;
    model.control.output_frequency = 1'000'000;
    Settings settings;
    settings.n_threads = threads;
    ExplicitState state;
    SilentProgress silent;
    const RunOptions options;
    Run result;
    Job job{model, settings, options, silent, result};
    const auto begin = Clock::now();
    if (!set_up_explicit(job, state)) {
        std::printf("%s\n", result.report.remarks.errors.front().c_str());
        return;
    }
    const double set_up = seconds_since(begin);
    state.team = threads;
    // a twist that strains every element well past yield
    for (std::size_t k = 0; k < state.x.size() / 4; ++k) {
        state.v[4 * k] = -300 * state.x[4 * k + 2] * state.x[4 * k + 1];
        state.v[4 * k + 1] = 300 * state.x[4 * k + 2] * state.x[4 * k];
        state.v[4 * k + 2] = 100 * state.x[4 * k + 2];
    }
    state.velocities_known = false;
    state.step_warned = true;
    const int warm_up = work.plastic ? 200 : 5;
    for (int s = 0; s < warm_up && !state.diverged; ++s) explicit_step(job, state);
    // the best of windows of a fifth of a second and at least two steps: what else runs here shows less
    const auto start = Clock::now();
    double rate = 0;
    while (seconds_since(start) < seconds && !state.diverged) {
        const auto window = Clock::now();
        int steps = 0;
        for (; (steps < 2 || seconds_since(window) < 0.2) && !state.diverged; ++steps)
            explicit_step(job, state);
        rate = std::max(rate, static_cast<double>(result.mesh.element_num()) * steps / seconds_since(window));
    }
    std::vector<double> stress, plastic_strain;
    state.blocks->copy_stresses(stress, plastic_strain);
    std::size_t yielded = 0;
    for (double a : plastic_strain) yielded += a > 0;
    const double bound = std::min(operations / work.operations, bandwidth / work.bytes);
    std::printf("%-21s %8d %-8s %2d   %8.3f   %8.2f  %8.2f   %4.0f %%   %6.2f s %5.0f%s",
                element_type(work.kind).name, result.mesh.element_num(), work.plastic ? "plastic" : "elastic",
                threads, rate / 1e6, operations / work.operations / 1e6, bandwidth / work.bytes / 1e6,
                100 * rate / bound, set_up, set_up * rate / result.mesh.element_num(),
                state.diverged ? "  diverged" : "");
    if (work.plastic)
        std::printf("   %.0f %% of the points yielded",
                    100.0 * static_cast<double>(yielded) / static_cast<double>(plastic_strain.size()));
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const int most_threads = argc > 1 ? std::atoi(argv[1]) : 2;
    const double seconds = argc > 2 ? std::atof(argv[2]) : 3;
    std::vector<double> sizes{20'000, 200'000};
    if (argc > 3) sizes = {std::atof(argv[3])};
    const int only = argc > 4 ? std::atoi(argv[4]) : -1;
    // the nodes' rows: x, du in and R out; R, v, a factor in and v out; v, u, the place at rest in and u, du,
    // x out
    const double node = 13 * 4 * 8, list = 4 + 2, energies = 4 * 8, material = 32;
    const double hexahedron = 768 + 8 * list + energies + material + node;
    const Trial works[] = {
        {ElementKind::hexahedron, false, 792 + 8 * point, hexahedron, 1},
        {ElementKind::hexahedron, true, 792 + 8 * (point + return_map), hexahedron + 128, 1},
        {ElementKind::tetrahedron4, false, 36 + point, 96 + 4 * list + energies + material + node / 6, 6},
        {ElementKind::tetrahedron10, false, 220 + 4 * (point + 108),
         384 + 10 * list + energies + material + 8 * node / 6, 6},
    };
    std::printf("kernels: %s\n", kernel_set().name);
    for (int threads = 1; threads <= most_threads; ++threads) {
        const double operations = measure_operations(threads), bandwidth = measure_bandwidth(threads);
        std::printf("\n%d thread%s: %.1f Gflop/s of multiply-adds, %.1f GB/s\n", threads,
                    threads == 1 ? "" : "s", operations / 1e9, bandwidth / 1e9);
        std::printf("%-21s %8s %-8s %2s   %8s   %8s  %8s   %s   %8s %s\n", "element", "elements", "law", "T",
                    "M el/s", "by flops", "by bytes", "of it", "set-up", "steps");
        for (const double elements : sizes)
            for (int w = 0; w < 4; ++w)
                if (only < 0 || w == only) run(works[w], elements, threads, seconds, operations, bandwidth);
    }
    return 0;
}
