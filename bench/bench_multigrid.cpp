// Conjugate gradients with multigrid: seconds of set-up and solve (of the wall and of the processors),
// iterations, complexity and memory. Usage: bench_multigrid [CASE [THREADS [TOLERANCE [THRESHOLD]]]]
#include "bench/elastic_system.h"
#include "solver/multigrid.h"

using namespace kestralum;
using namespace kestralum::bench;

int main(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "30x30x30";
    const int threads = argc > 2 ? std::atoi(argv[2]) : 1;
    const double tolerance = argc > 3 ? std::atof(argv[3]) : 1e-8;
    MultigridOptions options;
    const bool file = name.ends_with(".vol");
    const Mesh mesh = file ? read_volume(name) : box_of(name);
    if (mesh.element_type == ElementKind::tetrahedron10) options.threshold = 0.05;
    if (argc > 4) options.threshold = std::atof(argv[4]);
    if (mesh.node_num() == 0) {
        std::printf("%s is no case\n", name.c_str());
        return 1;
    }
    Watch watch;
    const System system = assemble(mesh, file ? 0 : 2, threads);
    watch.report("assembly");
    const double before = peak_megabytes();
    std::vector<double> x = system.load;
    watch = Watch();
    Multigrid multigrid(options);
    SolveStatus status =
        multigrid.set_up(system.km, system.km.K_value, {system.dof, mesh.coordinates}, threads);
    watch.report("set-up");
    if (status == SolveStatus::ok) status = multigrid.solve(x, {.tolerance = tolerance});
    watch.report("solve");
    if (status != SolveStatus::ok) std::printf("%s\n", multigrid.error().c_str());
    std::uint64_t hash = 14695981039346656037u;  // of the solution's bytes (Fowler, Noll and Vo, 1991)
    for (std::size_t k = 0; k < 8 * x.size(); ++k)
        hash = (hash ^ reinterpret_cast<const unsigned char*>(x.data())[k]) * 1099511628211u;
    std::printf(
        "%s: %d equations, %d iterations, residual %.2e%s, %d levels, complexity %.2f, %.0f MB, peak %.0f MB "
        "after %.0f, solution %016lx\n",
        name.c_str(), system.km.rows(), multigrid.iterations(), multigrid.residual(),
        multigrid.rounded() ? " (rounding)" : "", multigrid.levels(), multigrid.operator_complexity(),
        multigrid.megabytes(), peak_megabytes(), before, static_cast<unsigned long>(hash));
    return status == SolveStatus::ok ? 0 : 1;
}
