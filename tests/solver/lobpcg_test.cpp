// The lowest modes of small blocks by LOBPCG: against LAPACK's dense solution, with preconditioners good and
// poor, supported and free, with multiple modes, the same bytes on any number of threads, and how it ends
// where there is nothing to find.
#include "solver/lobpcg.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

#include "model/format.h"
#include "solver/multigrid.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/collected.h"

extern "C" void dsygv_(const int* type, const char* vectors, const char* triangle, const int* n, double* a,
                       const int* lda, double* b, const int* ldb, double* values, double* work,
                       const int* lwork, int* info, std::size_t, std::size_t);

namespace kestralum {
namespace {

struct Body {
    Mesh mesh;
    std::vector<std::int32_t> dof;
    SparseKM km;
    bool loose;
    double sigma() const { return loose ? 1e7 : 0; }  // 1/s², about the first elastic eigenvalue
    // Of a body that nothing holds: three translations and three turns.
    std::vector<double> null_space() const {
        std::vector<double> N(loose ? 6 * dof.size() : 0);
        for (std::size_t i = 0; i < dof.size() && loose; ++i) {
            const std::size_t c = dof[i] % 3, a = (c + 1) % 3, b = (c + 2) % 3;
            N[c * dof.size() + i] = 1;
            N[(3 + a) * dof.size() + i] = mesh.node(dof[i] / 3)[b];
            N[(3 + b) * dof.size() + i] = -mesh.node(dof[i] / 3)[a];
        }
        return N;
    }
};

Body make_body(const testing::Grid& grid, bool loose) {
    SilentProgress silent;
    const Material steel{.id = 0, .name = "M", .density = 7800, .young = 2e11, .poisson = 0.3};
    Body body{testing::hexa_box(grid), {}, {}, loose};
    body.km = testing::assemble(body.mesh, steel, build_elasticity(std::span(&steel, 1), silent));
    std::vector<std::int32_t> map(body.mesh.dof_num(), -1);
    for (std::int32_t d = 0; d < body.mesh.dof_num(); ++d) {
        if (!loose && body.mesh.node(d / 3)[2] < 1e-9) continue;
        map[d] = static_cast<std::int32_t>(body.dof.size());
        body.dof.push_back(d);
    }
    keep_rows(map, body.km);
    return body;
}

// values · x for any number of columns.
BlockOperator product_with(const SparseKM& km, const std::vector<double>& values) {
    return [&, n = std::size_t(km.rows())](std::span<const double> x, std::span<double> y, std::int32_t) {
        for (std::size_t c = 0; c < x.size(); c += n) multiply(km, values, x.subspan(c, n), y.subspan(c, n));
        return SolveStatus::ok;
    };
}

BlockInverse diagonal(const Body& body) {
    return [&](std::span<double> x, std::int32_t) {
        for (std::size_t i = 0; i < x.size(); ++i) {
            const std::int64_t at = body.km.diag_pos[i % body.dof.size()];
            x[i] /= body.km.K_value[at] + body.sigma() * body.km.M_value[at];
        }
        return SolveStatus::ok;
    };
}

LobpcgProblem problem_of(const Body& body, std::span<const double> N, BlockInverse precondition) {
    return {body.km.rows(), product_with(body.km, body.km.K_value), product_with(body.km, body.km.M_value),
            std::move(precondition), N};
}

std::vector<double> dense_eigenvalues(const SparseKM& km) {
    const int n = km.rows(), type = 1, room = 64 * n;
    std::vector<double> K(std::size_t(n) * n), M(K), values(n), work(room);
    for (int r = 0; r < n; ++r)
        for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k) {
            K[std::size_t(n) * r + km.col_index[k]] = km.K_value[k];
            M[std::size_t(n) * r + km.col_index[k]] = km.M_value[k];
        }
    int info = 1;
    dsygv_(&type, "N", "L", &n, K.data(), &n, M.data(), &n, values.data(), work.data(), &room, &info, 1, 1);
    EXPECT_EQ(info, 0);
    return values;
}

// That the vectors are orthonormal in M and to N, and the residuals what they are said to be.
void check_vectors(const Body& body, const LobpcgResult& found) {
    const std::vector<double> N = body.null_space();
    const std::size_t n = body.dof.size(), modes = found.lambda.size();
    std::vector<double> KX(n * modes), MX(KX), MN(N.size());
    product_with(body.km, body.km.K_value)(found.vectors, KX, 0);
    product_with(body.km, body.km.M_value)(found.vectors, MX, 0);
    product_with(body.km, body.km.M_value)(N, MN, 0);
    for (std::size_t j = 0; j < modes; ++j) {
        const auto product = [x = &found.vectors[j * n], n](const double* y) {
            return std::inner_product(x, x + n, y, 0.0);
        };
        for (std::size_t i = 0; i <= j; ++i) ASSERT_NEAR(product(&MX[i * n]), i == j, 1e-10);
        for (std::size_t i = 0; i < N.size(); i += n) ASSERT_NEAR(product(&MN[i]), 0, 1e-9);
        double error = 0, size = 0;
        for (std::size_t i = j * n; i < (j + 1) * n; ++i) {
            error += std::pow(KX[i] - found.lambda[j] * MX[i], 2);
            size += std::pow(KX[i] + found.lambda[0] * MX[i], 2);
        }
        EXPECT_NEAR(found.residual[j], std::sqrt(error / size), 1e-10);
    }
}

void expect_modes(const Body& body, const BlockInverse& precondition, const LobpcgOptions& options) {
    SCOPED_TRACE(formatted("%d equations, %d modes", body.km.rows(), options.n_mode));
    const std::vector<double> N = body.null_space(), expected = dense_eigenvalues(body.km);
    const LobpcgResult found = lobpcg(problem_of(body, N, precondition), options);
    ASSERT_EQ(found.status, SolveStatus::ok);
    ASSERT_EQ(found.lambda.size(), options.n_mode);
    for (std::int32_t j = 0; j < options.n_mode; ++j) {
        EXPECT_NEAR(found.lambda[j] / expected[j + (body.loose ? 6 : 0)], 1, 1e-9) << j;
        EXPECT_LE(found.residual[j], options.tolerance) << j;
    }
    check_vectors(body, found);
}

TEST(Lobpcg, FindsTheModesOfTheDenseProblem) {
    // the square ones have double modes
    const testing::Grid block{{3, 4, 5}, {0.3, 0.4, 0.5}}, column{{4, 4, 6}, {0.2, 0.2, 0.6}},
        plate{{7, 7, 1}, {0.7, 0.7, 0.1}};
    for (const Body& body : {make_body(block, false), make_body(column, false), make_body(block, true),
                             make_body(plate, true)}) {
        std::vector<double> shifted = body.km.K_value;
        for (std::size_t k = 0; k < shifted.size(); ++k) shifted[k] += body.sigma() * body.km.M_value[k];
        Multigrid multigrid({.coarsest = 60});
        ASSERT_EQ(multigrid.set_up(body.km, shifted, {body.dof, body.mesh.coordinates}, 2), SolveStatus::ok);
        const auto cycle = [&](std::span<double> x, std::int32_t k) { return multigrid.precondition(x, k); };
        expect_modes(body, cycle, {.n_mode = 10, .tolerance = 1e-8, .most_iterations = 30});
        expect_modes(body, diagonal(body), {.n_mode = 10, .tolerance = 1e-8, .most_iterations = 200});
    }
}

TEST(Lobpcg, FindsEveryModeThereIsInOneBlockOrOneAfterTheOther) {
    const Body small = make_body({{1, 1, 2}, {0.1, 0.1, 0.2}}, false),
               loose = make_body({{4, 4, 6}, {0.2, 0.2, 0.6}}, true);
    expect_modes(small, diagonal(small), {.n_mode = small.km.rows()});
    expect_modes(small, diagonal(small), {.n_mode = small.km.rows(), .most_columns = 9});
    expect_modes(loose, diagonal(loose), {.n_mode = 40, .most_columns = 14});
}

TEST(Lobpcg, FindsMoreCopiesOfAModeThanTheBlockHasWithTheSameBytesOnAnyNumberOfThreads) {
    // nine bodies alike: every mode nine times, of which the block holds eight
    const Body one = make_body({{4, 4, 5}, {0.2, 0.3, 0.3}}, false);
    const std::vector<double> modes = dense_eigenvalues(one.km);
    std::vector<double> first;
    for (const int threads : {1, 2, 5}) {
        Multigrid multigrid({.coarsest = 60});
        ASSERT_EQ(multigrid.set_up(one.km, one.km.K_value, {one.dof, one.mesh.coordinates}, threads),
                  SolveStatus::ok);
        LobpcgProblem nine = problem_of(
            one, {}, [&](std::span<double> x, std::int32_t k) { return multigrid.precondition(x, 9 * k); });
        nine.n *= 9;
        const LobpcgResult found = lobpcg(nine, {.n_mode = 7, .guards = 1, .threads = threads});
        ASSERT_EQ(found.status, SolveStatus::ok);
        for (const double lambda : found.lambda) EXPECT_NEAR(lambda, modes[0], 1e-9 * modes[0]);
        if (threads == 1) first = found.vectors;
        EXPECT_TRUE(found.vectors == first) << threads << " threads";
    }
}

TEST(Lobpcg, EndsWithItsStatusWhereItCannotGoOn) {
    const Body body = make_body({{3, 4, 5}, {0.3, 0.4, 0.5}}, false),
               loose = make_body({{3, 4, 5}, {0.3, 0.4, 0.5}}, true);
    LobpcgProblem problem = problem_of(body, {}, diagonal(body));
    const LobpcgResult early = lobpcg(problem, {.n_mode = 5, .most_iterations = 2});
    EXPECT_EQ(early.status, SolveStatus::stalled);
    EXPECT_EQ(early.iterations, 2);
    ASSERT_EQ(early.vectors.size(), 5 * body.dof.size());
    check_vectors(body, early);
    // what rounding does not let it reach
    const LobpcgResult rounded = lobpcg(problem, {.n_mode = 5, .tolerance = 0});
    EXPECT_EQ(rounded.status, SolveStatus::ok);
    EXPECT_TRUE(rounded.rounded);
    for (const double residual : rounded.residual) EXPECT_LE(residual, 1e-10);
    const auto end = [&](std::int32_t modes) { return lobpcg(problem, {.n_mode = modes}).status; };
    EXPECT_EQ(end(body.km.rows() + 1), SolveStatus::bad_input);
    std::vector<double> negative = body.km.M_value;
    for (double& m : negative) m = -m;
    problem.null_space = std::span(negative).first(body.dof.size() + 1);
    EXPECT_EQ(end(5), SolveStatus::bad_input);
    problem.null_space = {};
    problem.multiply_m = product_with(body.km, negative);
    EXPECT_EQ(end(5), SolveStatus::not_positive);
    problem = problem_of(loose, {}, diagonal(loose));
    EXPECT_EQ(end(5), SolveStatus::not_positive);
    problem.precondition = [](std::span<double>, std::int32_t) { return SolveStatus::out_of_memory; };
    EXPECT_EQ(end(5), SolveStatus::out_of_memory);
    problem.precondition = [](std::span<double> x, std::int32_t) {
        x[7] = std::numeric_limits<double>::quiet_NaN();
        return SolveStatus::ok;
    };
    EXPECT_EQ(end(5), SolveStatus::bad_input);
}

TEST(Lobpcg, ACancelEndsItAtEveryLook) {
    const Body body = make_body({{3, 4, 5}, {0.3, 0.4, 0.5}}, false);
    const auto run = [&, problem = problem_of(body, {}, diagonal(body))](const Progress& progress) {
        return lobpcg(problem, {.n_mode = 3, .tolerance = 1e-4, .threads = 2}, &progress).status;
    };
    testing::StopsAtLook never;
    ASSERT_EQ(run(never), SolveStatus::ok);
    for (std::int64_t look = 1; look <= never.looks; look += 1 + never.looks / 60) {
        testing::StopsAtLook ending(look);
        EXPECT_EQ(run(ending), SolveStatus::cancelled) << look;
    }
}

}  // namespace
}  // namespace kestralum
