// The factorization against LAPACK's band Cholesky (dpbtrf) on the stiffness-like band of cubes and
// a slender beam of hexahedra clamped at one face: same number of rows, same half band. factor_ldl
// takes the sparse matrix and writes the factor to its file within its time; dpbtrf is timed alone
// and with the filling of its band from the same sparse matrix. The memory of both is warm: freed
// blocks stay with the process, so that no run pays for fresh pages.
// Usage: bench_factor [CASE] [RUNS] [PANEL_ROWS]   CASE: 10 20 30 beam or all
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "model/progress.h"
#include "solver/ldl.h"
#include "solver/ordering.h"

extern "C" void dpbtrf_(const char* uplo, const int* n, const int* kd, double* ab, const int* ldab,
                        int* info);

namespace {

using namespace kestralum;
using Clock = std::chrono::steady_clock;

struct Case {
    const char* name;
    int across, along;
};

// The neighbour pattern of a grid of across × across × along cells with its first layer of nodes
// removed, three unknowns per node, and a diagonally dominant matrix on it.
SparseKM grid_matrix(const Case& c) {
    const int side = c.across + 1;
    const int nodes = side * side * c.along;
    SparseKM km;
    km.row_start.push_back(0);
    for (int node = 0; node < nodes; ++node) {
        const int x = node % side, y = node / side % side, z = node / (side * side);
        std::vector<int> near;
        for (int dz = -1; dz <= 1; ++dz)
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    if (x + dx >= 0 && x + dx < side && y + dy >= 0 && y + dy < side && z + dz >= 0 &&
                        z + dz < c.along)
                        near.push_back((x + dx) + side * (y + dy) + side * side * (z + dz));
        for (int a = 0; a < 3; ++a) {
            for (int other : near)
                for (int b = 0; b < 3; ++b) {
                    km.col_index.push_back(3 * other + b);
                    km.K_value.push_back(
                        other == node && a == b ? 100.0 : -1.0 + 0.01 * ((3 * other + b + 3 * node + a) % 7));
                }
            km.row_count.push_back(static_cast<std::int32_t>(3 * near.size()));
            km.row_start.push_back(static_cast<std::int64_t>(km.col_index.size()));
        }
    }
    find_diagonals(km);
    return km;
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct BandTime {
    double alone, with_assembly;
};

BandTime time_dpbtrf(const SparseKM& km, int half_band) {
    const auto whole = Clock::now();
    const int n = km.rows(), kd = half_band, ldab = kd + 1;
    std::vector<double> band(std::size_t(n) * ldab, 0.0);
    for (int r = 0; r < n; ++r)
        for (std::int64_t k = km.row_start[r]; k < km.row_start[r + 1]; ++k) {
            const int column = km.col_index[k];
            if (column <= r) band[std::int64_t{column} * ldab + (r - column)] = km.K_value[k];
        }
    int info = 0;
    const auto start = Clock::now();
    dpbtrf_("L", &n, &kd, band.data(), &ldab, &info);
    if (info != 0) std::printf("dpbtrf info %d\n", info);
    return {seconds_since(start), seconds_since(whole)};
}

extern "C" void openblas_set_num_threads(int);

}  // namespace

int main(int argc, char** argv) {
    const std::vector<Case> cases{{"10", 10, 10}, {"20", 20, 20}, {"30", 30, 30}, {"beam", 8, 400}};
    const char* only = argc > 1 ? argv[1] : nullptr;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const int panel_rows = argc > 3 ? std::atoi(argv[3]) : 0;
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    SilentProgress quiet;
    mkdir("log", 0777);
    for (const Case& c : cases) {
        if (only && std::strcmp(only, "all") != 0 && std::strcmp(only, c.name) != 0) continue;
        const SparseKM km = grid_matrix(c);
        const Profile profile = make_profile(km);
        std::vector<double> ours, theirs, theirs_whole;
        for (int run = 0; run < runs; ++run) {
            openblas_set_num_threads(2);
            const BandTime band = time_dpbtrf(km, profile.max_height - 1);
            theirs.push_back(band.alone);
            theirs_whole.push_back(band.with_assembly);
            SkylineFactor factor(profile, plan_divisions(profile, 1e9, 1, profile.max_height, quiet),
                                 {.threads = 2, .panel_rows = panel_rows});
            const auto start = Clock::now();
            if (factor.factor_ldl(km, km.K_value, quiet) != FactorStatus::ok) {
                std::printf("%s\n", factor.error().c_str());
                return 1;
            }
            ours.push_back(seconds_since(start));
        }
        const double a = median(ours), b = median(theirs), c_whole = median(theirs_whole);
        std::printf(
            "%-5s n=%d half band=%d  factor_ldl %.3f s  dpbtrf %.3f s, ratio %.2f  with its assembly %.3f s, "
            "ratio %.2f\n",
            c.name, km.rows(), profile.max_height - 1, a, b, a / b, c_whole, a / c_whole);
        std::fflush(stdout);
    }
    return 0;
}
