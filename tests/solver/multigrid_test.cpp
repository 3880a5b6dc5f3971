// Conjugate gradients with multigrid on small systems of elasticity: against the skyline factor, the same
// bytes on any number of threads, a symmetric cycle, iterations that do not grow, and how what cannot be
// solved ends.
#include "solver/multigrid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "model/format.h"
#include "solver/ldl.h"
#include "solver/level_kernel.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/heap_count.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum {
namespace {

using Held = std::function<bool(const double* x, int direction)>;

struct Body {
    Mesh mesh;
    std::vector<std::int32_t> dof;
    SparseKM km;
    EquationPlaces places() const { return {dof, mesh.coordinates}; }
    std::vector<double> load() const {
        std::vector<double> b;
        for (std::int32_t d : dof) b.push_back(1e3 * std::sin(1.0 + 0.37 * d));
        return b;
    }
};

Body make_body(Mesh mesh, const Held& held) {
    SilentProgress silent;
    const Material steel{.id = 0, .name = "M", .density = 7800, .young = 2e11, .poisson = 0.3};
    Body body{std::move(mesh), {}, {}};
    body.km = testing::assemble(body.mesh, steel, build_elasticity(std::span(&steel, 1), silent));
    std::vector<std::int32_t> map(body.mesh.dof_num(), -1);
    for (std::int32_t d = 0; d < body.mesh.dof_num(); ++d) {
        if (held(body.mesh.node(d / 3), d % 3)) continue;
        map[d] = static_cast<std::int32_t>(body.dof.size());
        body.dof.push_back(d);
    }
    keep_rows(map, body.km);
    return body;
}

bool at_foot(const double* x, int) {
    return x[2] < 1e-9;
}

// Two bodies of which nothing holds the one to the other.
Mesh beside(Mesh mesh, const Mesh& other, double distance) {
    const std::int32_t nodes = mesh.node_num();
    for (std::int32_t c : other.connectivity) mesh.connectivity.push_back(c + nodes);
    for (std::size_t k = 0; k < other.coordinates.size(); ++k)
        mesh.coordinates.push_back(other.coordinates[k] + (k % 3 == 0 ? distance : 0.0));
    mesh.p_ele_part_id.assign(mesh.element_num(), 0);
    return mesh;
}

std::vector<double> direct_solution(const Body& body) {
    testing::TempFolder folder;
    SilentProgress silent;
    const Profile profile = make_profile(body.km);
    SkylineFactor factor(profile, {{0, profile.Ls_num}, {0, body.km.rows()}},
                         {.threads = 2, .log_folder = folder.file("log")});
    EXPECT_EQ(factor.factor_ldl(body.km, body.km.K_value, silent), FactorStatus::ok) << factor.error();
    std::vector<double> x = body.load();
    EXPECT_TRUE(factor.solve_ldl(x));
    return x;
}

double largest(const std::vector<double>& x) {
    double most = 0;
    for (double v : x) most = std::max(most, std::abs(v));
    return most;
}

TEST(Multigrid, SolvesAsTheFactorDoesWithTheSameBytesOnAnyNumberOfThreads) {
    const testing::Grid block{{7, 6, 9}, {0.7, 0.6, 0.9}};
    // rollers: a node has one, two or three equations
    const Held rollers = [](const double* x, int c) { return x[c] < 1e-9; };
    const Body bodies[] = {
        make_body(testing::hexa_box(block), at_foot), make_body(testing::hexa_box(block), rollers),
        make_body(testing::box_mesh(block, ElementKind::tetrahedron4), rollers),
        make_body(testing::box_mesh({{3, 3, 5}, {0.3, 0.3, 0.5}}, ElementKind::tetrahedron10), at_foot),
        make_body(beside(testing::hexa_box(block), testing::hexa_box({{3, 3, 12}, {0.1, 0.1, 0.4}}), 5),
                  at_foot),
        // of the second body one equation is left
        make_body(beside(testing::hexa_box(block), testing::hexa_box({{1, 1, 1}, {1, 1, 1}}), 5),
                  [](const double* x, int c) {
                      return at_foot(x, c) || (x[0] > 4.9 && (c != 1 || x[0] < 5.5 || x[1] < 0.5));
                  })};
    for (const Body& body : bodies) {
        SCOPED_TRACE(formatted("%d equations", body.km.rows()));
        const std::vector<double> expected = direct_solution(body), b = body.load();
        std::vector<double> first;
        for (const std::int32_t coarsest : {60, 100000})
            for (const int threads : {1, 2, 5}) {
                Multigrid multigrid({.coarsest = coarsest});
                ASSERT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), threads),
                          SolveStatus::ok);
                EXPECT_EQ(multigrid.levels() > 1, coarsest == 60);
                std::vector<double> x = b, Ax(b.size());
                ASSERT_EQ(multigrid.solve(x, {.tolerance = 1e-12}), SolveStatus::ok) << multigrid.error();
                EXPECT_LE(multigrid.iterations(), coarsest == 60 ? 40 : 3);
                for (std::size_t i = 0; i < x.size(); ++i)
                    ASSERT_NEAR(x[i], expected[i], 1e-9 * largest(expected));
                multiply(body.km, body.km.K_value, x, Ax);
                double r = 0, whole = 0;
                for (std::size_t i = 0; i < x.size(); ++i)
                    r += (b[i] - Ax[i]) * (b[i] - Ax[i]), whole += b[i] * b[i];
                EXPECT_NEAR(multigrid.residual(), std::sqrt(r / whole), 1e-14);
                EXPECT_TRUE(multigrid.residual() <= 1e-12 || multigrid.rounded());
                if (threads == 1) first = x;
                EXPECT_TRUE(x == first) << threads << " threads";
            }
    }
}

TEST(Multigrid, TheCycleIsSymmetricPositiveAndTheSameForEveryColumn) {
    const Body body = make_body(testing::hexa_box({{7, 6, 9}, {0.7, 0.6, 0.9}}), at_foot);
    const std::size_t n = body.km.rows(), k = 6;
    const std::int64_t before = testing::heap.live;
    Multigrid multigrid({.coarsest = 60});
    ASSERT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), 2), SolveStatus::ok);
    const double taken = 1e-6 * static_cast<double>(testing::heap.live - before);
    if (KESTRALUM_COUNTS_HEAP) {
        EXPECT_NEAR(multigrid.megabytes(), taken, 0.02 * taken);
    }
    std::vector<double> columns(n * k);
    for (std::size_t i = 0; i < columns.size(); ++i) columns[i] = std::sin(0.3 + static_cast<double>(i * i));
    const std::vector<double> u = columns;
    ASSERT_EQ(multigrid.precondition(columns, k), SolveStatus::ok);
    const auto dot = [&](std::size_t a, std::size_t b) {
        double s = 0;
        for (std::size_t i = 0; i < n; ++i) s += u[a * n + i] * columns[b * n + i];
        return s;
    };
    for (std::size_t a = 0; a < k; ++a) {
        std::vector<double> alone(u.begin() + a * n, u.begin() + (a + 1) * n);
        ASSERT_EQ(multigrid.precondition(alone), SolveStatus::ok);
        for (std::size_t i = 0; i < n; ++i) ASSERT_NEAR(alone[i], columns[a * n + i], 1e-12 * largest(alone));
        EXPECT_GT(dot(a, a), 0);
        for (std::size_t b = 0; b < a; ++b)
            EXPECT_NEAR(dot(a, b), dot(b, a), 1e-6 * std::sqrt(dot(a, a) * dot(b, b)));
    }
}

// Random blocks through every kernel of both builds.
template <int B, int K>
void compare_kernels() {
    SCOPED_TRACE(formatted("blocks of %d, %d columns", B, K));
    constexpr std::int32_t rows = 7;
    RowTeam team(1, nullptr);
    const BlockPattern pattern = make_pattern(rows, rows, team, [](std::int32_t i, const auto& take) {
        for (std::int32_t c = 0; c < rows; ++c)
            if (i != 3 && (c == i || (i * c) % 3 == 1)) take(c);
    });
    const ColumnLists lists = list_columns(pattern);
    const auto filled = [](auto values, double f) {
        for (std::size_t k = 0; k < values.size(); ++k)
            values[k] =
                static_cast<typename decltype(values)::value_type>(std::sin(f * static_cast<double>(k)));
        return values;
    };
    const auto A = filled(std::vector<float>(pattern.blocks() * B * B + 1), 1.7);
    const auto inverse = filled(std::vector<float>(rows * B * B + 1), 2.3);
    const auto P = filled(std::vector<float>(pattern.blocks() * B * motions + 1), 3.1);
    const LevelArrays level{pattern.start.data(), pattern.col.data(), A.data(), inverse.data(),
                            pattern.start.data(), pattern.col.data(), P.data(), lists.start.data(),
                            lists.row.data(),     lists.entry.data()};
    const auto b = filled(std::vector<double>(rows * B * K), 0.9), x = filled(b, 0.7);
    const auto below = filled(std::vector<double>(rows * motions * K), 0.8);
    const auto run = [&](bool wide) {
        const LevelKernels& kernels = level_kernels(wide).of<B, K>();
        std::vector<std::vector<double>> out(6, b);
        out[4].resize(rows * motions * K);
        kernels.smooth(level, {0.3, 0.6, b.data(), x.data(), out[0].data(), out[1].data()}, 0, rows);
        kernels.residual(level, b.data(), x.data(), out[2].data(), 0, rows);
        kernels.prolong(level, below.data(), out[3].data(), 0, rows);
        kernels.restrict_to(level, x.data(), out[4].data(), 0, rows);
        kernels.scaled_product(level, x.data(), 0.4, out[5].data(), 0, rows);
        return out;
    };
    const auto base = run(false), wide = run(true);
    for (std::size_t k = 0; k < base.size(); ++k)
        for (std::size_t i = 0; i < base[k].size(); ++i) ASSERT_NEAR(base[k][i], wide[k][i], 1e-13) << k;
}

TEST(Multigrid, KernelsOfEveryWidthAgree) {
    compare_kernels<3, 1>();
    compare_kernels<3, 4>();
    compare_kernels<6, 1>();
    compare_kernels<6, 4>();
}

TEST(Multigrid, StepsDoNotGrowWithRefinementAndComplexityIsBounded) {
    const auto steps = [](const Body& body, const MultigridOptions& options) {
        Multigrid multigrid(options);
        EXPECT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), 2), SolveStatus::ok);
        std::vector<double> x = body.load();
        EXPECT_EQ(multigrid.solve(x, {.tolerance = 1e-8}), SolveStatus::ok) << multigrid.error();
        EXPECT_LE(multigrid.operator_complexity(), options.most_complexity);
        return multigrid.iterations();
    };
    const int coarse = steps(make_body(testing::hexa_box({{10, 10, 10}, {1, 1, 1}}), at_foot), {});
    const int fine = steps(make_body(testing::hexa_box({{20, 20, 20}, {1, 1, 1}}), at_foot), {});
    EXPECT_LE(fine, coarse + 2);
    EXPECT_LE(fine, 14);
    // a threshold that would leave aggregates of a few nodes each
    const Body beam = make_body(testing::hexa_box({{4, 4, 60}, {0.04, 0.04, 0.6}}), at_foot);
    EXPECT_LE(steps(beam, {.threshold = 0.4, .most_complexity = 1.5}), 25);
}

TEST(Multigrid, AMatrixThatIsNotPositiveEndsWithItsStatus) {
    const testing::Grid cube{{6, 6, 7}, {1, 1, 1}};
    const Body held = make_body(testing::hexa_box(cube), at_foot);
    const Body loose = make_body(testing::hexa_box(cube), [](const double*, int) { return false; });
    const auto end = [](const Body& body, std::span<const double> values, std::int32_t coarsest) {
        Multigrid multigrid({.coarsest = coarsest});
        SolveStatus status = multigrid.set_up(body.km, values, body.places(), 2);
        std::vector<double> x = body.load();
        if (status == SolveStatus::ok) status = multigrid.solve(x);
        EXPECT_EQ(multigrid.error(), "the matrix is not positive definite");
        return status;
    };
    for (const std::int32_t coarsest : {60, 800, 100000}) {
        EXPECT_EQ(end(loose, loose.km.K_value, coarsest), SolveStatus::not_positive);
        // K - (2πf)² M at 1500 Hz, above the first modes, and far above all
        for (const double frequency : {1500.0, 1e6}) {
            std::vector<double> shifted = held.km.K_value;
            const double square = std::pow(2 * M_PI * frequency, 2);
            for (std::size_t k = 0; k < shifted.size(); ++k) shifted[k] -= square * held.km.M_value[k];
            EXPECT_EQ(end(held, shifted, coarsest), SolveStatus::not_positive) << frequency;
        }
    }
}

TEST(Multigrid, TellsBadInputAndWhatItCannotReach) {
    Body body = make_body(testing::hexa_box({{6, 6, 6}, {1, 1, 1}}), at_foot);
    double nothing = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> b = body.load(), zero(b.size(), 0.0);
    Multigrid multigrid({.coarsest = 60});
    EXPECT_EQ(multigrid.solve(b), SolveStatus::bad_input) << "without levels";
    ASSERT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), 1), SolveStatus::ok);
    EXPECT_EQ(multigrid.solve(zero), SolveStatus::ok);
    EXPECT_EQ(largest(zero), 0.0);
    EXPECT_EQ(multigrid.solve(std::span(b).first(5)), SolveStatus::bad_input);
    b = body.load();
    b[7] = nothing;
    EXPECT_EQ(multigrid.solve(b), SolveStatus::bad_input);
    EXPECT_TRUE(testing::contains(multigrid.error(), "right-hand side")) << multigrid.error();
    const auto refused = [&](const char* why) {
        EXPECT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), 1), SolveStatus::bad_input);
        EXPECT_TRUE(testing::contains(multigrid.error(), why)) << multigrid.error();
        EXPECT_EQ(multigrid.solve(zero), SolveStatus::bad_input);
    };
    std::swap(body.dof[3], body.dof[4]);
    refused("equation 4 has no place");
    std::swap(body.dof[3], body.dof[4]);
    body.dof.back() += 3;
    refused("no place");
    body.dof.back() -= 3;
    std::swap(body.mesh.coordinates[5], nothing);
    refused("coordinates");
    std::swap(body.mesh.coordinates[5], nothing);
    std::swap(body.km.K_value[11], nothing);
    refused("entries that are no numbers");
    body.km.K_value[11] = 1e60;
    refused("single precision");
    // two cubes hinged on one edge: it turns at no cost, which the parts as a whole do not show
    Mesh hinged = testing::hexa_box({{8, 4, 4}, {2, 1, 1}});
    const std::int32_t nodes = hinged.node_num();
    std::vector<std::int32_t> twin(nodes);
    for (std::int32_t n = 0; n < nodes; ++n) {
        const std::array<double, 3> x{hinged.node(n)[0], hinged.node(n)[1], hinged.node(n)[2]};
        const bool parted = std::abs(x[0] - 1) < 1e-9 && x[2] < 1 - 1e-9;
        if (parted) hinged.coordinates.insert(hinged.coordinates.end(), x.begin(), x.end());
        twin[n] = parted ? hinged.node_num() : n + 1;
    }
    for (std::size_t c = 0; c < hinged.connectivity.size(); ++c)
        if (c / 8 % 8 >= 4) hinged.connectivity[c] = twin[hinged.connectivity[c] - 1];
    const Body hinge = make_body(hinged, [](const double* x, int) { return x[0] < 1e-9; });
    ASSERT_EQ(multigrid.set_up(hinge.km, hinge.km.K_value, hinge.places(), 2), SolveStatus::ok);
    std::vector<double> y = hinge.load();
    const SolveStatus turning = multigrid.solve(y);
    EXPECT_TRUE(turning == SolveStatus::stalled || turning == SolveStatus::not_positive);
    // cells so flat that the cycle serves badly
    const Body flat = make_body(testing::hexa_box({{12, 12, 12}, {1, 1, 0.01}}), at_foot);
    ASSERT_EQ(multigrid.set_up(flat.km, flat.km.K_value, flat.places(), 1), SolveStatus::ok);
    std::vector<double> x = flat.load();
    EXPECT_EQ(multigrid.solve(x, {.iterations = 5}), SolveStatus::stalled);
    EXPECT_TRUE(testing::contains(multigrid.error(), "after 5 steps")) << multigrid.error();
}

// At every look for a cancel, in the threads as well.
TEST(Multigrid, ACancelAndMissingMemoryEndIt) {
    const Body body = make_body(testing::hexa_box({{6, 6, 7}, {1, 1, 1}}), at_foot);
    Multigrid multigrid({.coarsest = 60});
    testing::StopsAtLook never;
    ASSERT_EQ(multigrid.set_up(body.km, body.km.K_value, body.places(), 2, &never), SolveStatus::ok);
    const std::int64_t set_up_looks = never.looks;
    std::vector<double> x = body.load();
    ASSERT_EQ(multigrid.solve(x, {}, &never), SolveStatus::ok);
    const std::int64_t solve_looks = never.looks - set_up_looks;
    for (const bool no_memory : {false, true}) {
        const SolveStatus expected = no_memory ? SolveStatus::out_of_memory : SolveStatus::cancelled;
        const char* said = no_memory ? "not enough memory for the iteration" : "stopped by the user";
        for (std::int64_t look = 1; look <= set_up_looks; look += 1 + set_up_looks / 40) {
            Multigrid stopped({.coarsest = 60});
            testing::StopsAtLook ending(look, no_memory);
            EXPECT_EQ(stopped.set_up(body.km, body.km.K_value, body.places(), 2, &ending), expected) << look;
            EXPECT_EQ(stopped.error(), said);
        }
        for (std::int64_t look = 1; look <= solve_looks; look += 1 + solve_looks / 20) {
            testing::StopsAtLook ending(look, no_memory);
            x = body.load();
            EXPECT_EQ(multigrid.solve(x, {}, &ending), expected) << look;
            EXPECT_EQ(multigrid.error(), said);
            testing::StopsAtLook again(1 + look % 10, no_memory);
            EXPECT_EQ(multigrid.precondition(x, 1, &again), expected) << look;
        }
    }
}

}  // namespace
}  // namespace kestralum
