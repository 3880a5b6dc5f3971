// CHOLMOD with METIS on the same systems, the reference of bench_sparse: supernodal L Lᵀ, ordered on the
// graph of the nodes. To be run with the pthread build of OpenBLAS, on whose OpenMP build CHOLMOD is several
// times slower. Usage: bench_cholmod [CASE [RUNS]]
#include <cholmod.h>

#include <algorithm>

#include "bench/elastic_system.h"

using namespace kestralum;
using namespace kestralum::bench;

namespace {

// The lower triangle of K by columns.
cholmod_sparse* lower_triangle(const SparseKM& km, cholmod_common* common) {
    const long n = km.rows();
    cholmod_sparse* a =
        cholmod_l_allocate_sparse(n, n, (km.entries() + n) / 2, 1, 1, -1, CHOLMOD_REAL, common);
    long *start = static_cast<long*>(a->p), *row = static_cast<long*>(a->i), at = 0;
    double* value = static_cast<double*>(a->x);
    for (long c = 0; c < n; ++c) {
        start[c] = at;
        for (std::int64_t e = km.diag_pos[c]; e < km.row_start[c + 1]; ++e, ++at) {
            row[at] = km.col_index[e];
            value[at] = km.K_value[e];
        }
    }
    start[n] = at;
    return a;
}

// The order of the equations from that of their nodes.
std::vector<long> order_by_nodes(const System& system, cholmod_common* common) {
    std::vector<std::int32_t> node_of(system.dof.size());
    std::vector<long> first;
    for (std::size_t e = 0; e < system.dof.size(); ++e) {
        if (e == 0 || system.dof[e] / 3 != system.dof[e - 1] / 3) first.push_back(static_cast<long>(e));
        node_of[e] = static_cast<std::int32_t>(first.size()) - 1;
    }
    const long nodes = static_cast<long>(first.size());
    first.push_back(static_cast<long>(system.dof.size()));
    cholmod_sparse* graph = cholmod_l_allocate_sparse(nodes, nodes, system.km.entries() / 9 + nodes, 1, 1, -1,
                                                      CHOLMOD_PATTERN, common);
    long *start = static_cast<long*>(graph->p), *row = static_cast<long*>(graph->i), at = 0;
    for (long v = 0; v < nodes; ++v) {
        start[v] = at;
        const std::int32_t r = static_cast<std::int32_t>(first[v]);
        for (std::int64_t e = system.km.row_start[r]; e < system.km.row_start[r + 1]; ++e) {
            const std::int32_t w = node_of[system.km.col_index[e]];
            if (w >= v && (at == start[v] || row[at - 1] != w)) row[at++] = w;
        }
    }
    start[nodes] = at;
    std::vector<long> of_nodes(nodes), order;
    cholmod_l_metis(graph, nullptr, 0, 1, of_nodes.data(), common);
    for (const long v : of_nodes)
        for (long e = first[v]; e < first[v + 1]; ++e) order.push_back(e);
    cholmod_l_free_sparse(&graph, common);
    return order;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string name = argc > 1 ? argv[1] : "20x20x20";
    const int runs = argc > 2 ? std::atoi(argv[2]) : 3;
    const bool file = name.ends_with(".vol");
    System system = assemble(file ? read_volume(name) : box_of(name), file ? 0 : 2, 2);
    find_diagonals(system.km);
    cholmod_common common;
    cholmod_l_start(&common);
    common.supernodal = CHOLMOD_SUPERNODAL;
    common.nmethods = 1;
    common.postorder = 1;
    common.method[0].ordering = CHOLMOD_GIVEN;
    cholmod_sparse* a = lower_triangle(system.km, &common);
    const long n = system.km.rows();
    const double before = peak_megabytes();
    cholmod_dense* b = cholmod_l_allocate_dense(n, 1, n, CHOLMOD_REAL, &common);
    std::copy(system.load.begin(), system.load.end(), static_cast<double*>(b->x));
    std::vector<double> analysis, factorization, one;
    for (int run = 0; run < runs; ++run) {
        Watch watch;
        std::vector<long> order = order_by_nodes(system, &common);
        cholmod_factor* f = cholmod_l_analyze_p(a, order.data(), nullptr, 0, &common);
        analysis.push_back(watch.seconds());
        watch = Watch();
        cholmod_l_factorize(a, f, &common);
        factorization.push_back(watch.seconds());
        watch = Watch();
        cholmod_dense* x = cholmod_l_solve(CHOLMOD_A, f, b, &common);
        one.push_back(watch.seconds());
        cholmod_l_free_dense(&x, &common);
        cholmod_l_free_factor(&f, &common);
    }
    std::printf(
        "%s n %ld entries %.4g analyse_s %.3f factor_s %.3f solve_s %.3f peak_mb %.0f before_mb %.0f\n",
        name.c_str(), n, common.lnz, median(analysis), median(factorization), median(one), peak_megabytes(),
        before);
    return common.status < 0;
}
