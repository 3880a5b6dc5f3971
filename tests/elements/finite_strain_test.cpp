// Finite-strain points and elements: objectivity, limits, energy, and the tangent against differences.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "elements/finite_elements.h"
#include "support/box_mesh.h"

namespace kestralum {
namespace {

using testing::Grid;

J2Material<double> steel(double yield = 300e6, double hardening = 2e9) {
    Material m;
    m.young = 206e9;
    m.poisson = 0.3;
    m.yield_stress = yield;
    m.hardening = hardening;
    return j2_material(m, true);
}

using Matrix = std::array<double, 9>;

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}

// Rotation by `angle` about a skew axis (Rodrigues).
Matrix rotation(double angle) {
    const double n[3] = {2.0 / 3, -1.0 / 3, 2.0 / 3};
    Matrix r;
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) r[3 * i + j] = (1 - std::cos(angle)) * n[i] * n[j] + (i == j ? std::cos(angle) : 0);
    const double s = std::sin(angle);
    r[1] -= s * n[2], r[2] += s * n[1], r[3] += s * n[2], r[5] -= s * n[0], r[6] -= s * n[1], r[7] += s * n[0];
    return r;
}

Matrix gradient(const Matrix& F) {
    Matrix H = F;
    for (std::size_t k = 0; k < 9; k += 4) H[k] -= 1;
    return H;
}

Matrix random_deformation(double size, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-size, size);
    Matrix F;
    for (std::size_t k = 0; k < 9; ++k) F[k] = value(random) + (k % 4 == 0 ? 1 : 0);
    return F;
}

Matrix full(const std::array<double, 6>& s) { return {s[0], s[3], s[5], s[3], s[1], s[4], s[5], s[4], s[2]}; }

FiniteResponse respond(const J2Material<double>& m, const Matrix& F, const FinitePointState& from = {}) {
    FiniteResponse out;
    EXPECT_TRUE(finite_response(m, gradient(F).data(), from, true, out));
    return out;
}

TEST(FinitePoint, RotatesItsStressWithTheBodyBeforeAndAfterYield) {
    const auto m = steel();
    for (const double size : {5e-4, 0.15}) {  // elastic; far beyond yield, in two steps
        const Matrix F1 = random_deformation(size, 1), F2 = product(random_deformation(size, 2), F1), R = rotation(1.9);
        const FiniteResponse first = respond(m, F1);
        const FiniteResponse plain = respond(m, F2, first.state), turned = respond(m, product(R, F2), first.state);
        Matrix Rt;
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) Rt[3 * i + j] = R[3 * j + i];
        const Matrix expected = product(product(R, full(plain.tau)), Rt), got = full(turned.tau);
        for (std::size_t k = 0; k < 9; ++k) EXPECT_NEAR(got[k], expected[k], 1e-9 * 206e9 * size);
        EXPECT_NEAR(turned.state.alpha, plain.state.alpha, 1e-13);
        EXPECT_EQ(plain.state.alpha > 0, size > 0.1);
        for (std::size_t k = 0; k < 6; ++k) EXPECT_NEAR(turned.state.P[k], plain.state.P[k], 1e-12);
    }
}

TEST(FinitePoint, IsHookesLawForSmallStrainsAndHenckysForLargeOnes) {
    const auto m = steel(0);
    const double strain = 1e-9;  // a millionth of a micron in a millimetre keeps ten digits
    const Matrix F{1 + strain, 0.4 * strain, 0, 0, 1 - 2 * strain, 0.6 * strain, 0, 0, 1 + 3 * strain};
    const FiniteResponse r = respond(m, F);
    const double lambda = m.bulk - 2 * m.shear / 3, trace = 2 * strain;
    EXPECT_NEAR(r.tau[0], lambda * trace + 2 * m.shear * strain, 1e-7 * 206);
    EXPECT_NEAR(r.tau[1], lambda * trace - 4 * m.shear * strain, 1e-7 * 206);
    EXPECT_NEAR(r.tau[3], 0.4 * m.shear * strain, 1e-7 * 206);
    EXPECT_NEAR(r.tau[4], 0.6 * m.shear * strain, 1e-7 * 206);
    // uniaxial stretch 1.3 with free sides: τ = E ln λ
    const double axial = std::log(1.3), across = std::exp(-0.3 * axial);
    const FiniteResponse large = respond(m, {1.3, 0, 0, 0, across, 0, 0, 0, across});
    EXPECT_NEAR(large.tau[0], 206e9 * axial, 1e-4);
    EXPECT_NEAR(large.tau[1], 0, 1e-4);
}

TEST(FinitePoint, YieldsOnTheHardeningLineWithoutChangingItsVolume) {
    const auto m = steel(300e6, 5e9);
    // isochoric stretch in ten steps: q = Sy + H α throughout, α = ε - q/3G·(3/2·2/3)
    FinitePointState state;
    for (int step = 1; step <= 10; ++step) {
        const double e = 0.02 * step, a = std::exp(e), b = std::exp(-e / 2);
        const FiniteResponse r = respond(m, {a, 0, 0, 0, b, 0, 0, 0, b}, state);
        state = r.state;
        const double q = r.tau[0] - r.tau[1];
        EXPECT_NEAR(q, 300e6 + 5e9 * state.alpha, 1e-3);
        EXPECT_NEAR(state.alpha, e - q / (3 * m.shear), 1e-13);  // total minus elastic deviatoric strain
        const double det = (1 + state.P[0]) * (1 + state.P[1]) * (1 + state.P[2]);
        EXPECT_NEAR(det, 1, 1e-12);
    }
}

// Element forces of one distorted element as a function of its nodes' displacements.
struct OneBody {
    explicit OneBody(ElementKind kind, double yield)
        : mesh(testing::box_mesh({{1, 1, 1}, {1.0, 0.8, 1.3}, [](double* x) { x[0] += 0.1 * x[1] * x[2]; x[2] += 0.07 * x[0]; }}, kind)),
          materials{steel(yield)}, material(static_cast<std::size_t>(mesh.element_num()), 0), body{mesh, material, materials, 1} {
        body.start();
    }
    Mesh mesh;
    std::vector<J2Material<double>> materials;
    std::vector<std::int32_t> material;
    FiniteBody body;
};

class FiniteElement : public ::testing::TestWithParam<ElementKind> {};

TEST_P(FiniteElement, HasTheExactSymmetricTangent) {
    for (const bool plastic : {false, true}) {
        OneBody one(GetParam(), plastic ? 300e6 : 0);
        FiniteBody& body = one.body;
        std::mt19937 random(7);
        std::uniform_real_distribution<double> value(-0.03, 0.03);
        for (const int stage : {1, 2}) {  // the second starts from a plastic state
            for (double& u : body.u) u += value(random);
            ASSERT_EQ(update_stresses(body), -1);
            if (stage == 1) body.committed = body.current;
        }
        EXPECT_EQ(body.current[0].alpha > body.committed[0].alpha, plastic);
        const int size = 3 * one.mesh.node_per_element();
        const auto n = static_cast<std::size_t>(size);
        std::vector<double> ke(n * n);
        ASSERT_TRUE(finite_stiffness(body, 0, ke.data()));
        double largest = 0;
        for (double k : ke) largest = std::max(largest, std::abs(k));
        constexpr double h = 1e-6;
        for (std::size_t c = 0; c < n; ++c) {
            double& u = body.u[3 * node_index(one.mesh.connectivity[c / 3]) + c % 3];
            const double kept = u;
            u = kept + h;
            update_stresses(body);
            const std::vector<double> plus(body.element_force.begin(), body.element_force.begin() + size);
            u = kept - h;
            update_stresses(body);
            for (std::size_t r = 0; r < n; ++r)
                EXPECT_NEAR(ke[n * r + c], (plus[r] - body.element_force[r]) / (2 * h), 2e-7 * largest) << r << ' ' << c << (plastic ? " plastic" : "");
            u = kept;
        }
    }
}

TEST_P(FiniteElement, OnlyTurnsItsStressWhenTheBodyTurns) {
    OneBody one(GetParam(), 300e6);
    FiniteBody& body = one.body;
    const Matrix F = random_deformation(0.05, 3), RF = product(rotation(2.5), F), R = rotation(2.5);
    const auto deform = [&](const Matrix& by) {
        for (std::size_t k = 0; k < body.u.size(); ++k) {
            const double* X = &one.mesh.coordinates[k / 3 * 3];
            body.u[k] = by[3 * (k % 3)] * X[0] + by[3 * (k % 3) + 1] * X[1] + by[3 * (k % 3) + 2] * X[2] - X[k % 3];
        }
        EXPECT_EQ(update_stresses(body), -1);
    };
    deform(F);
    const std::vector<double> before = body.stress, force = body.element_force;
    body.committed = body.current;
    const double alpha = body.current[0].alpha;
    deform(RF);
    EXPECT_GT(alpha, 0);
    EXPECT_NEAR(body.current[0].alpha, alpha, 1e-12);
    for (std::size_t p = 0; p < before.size() / 6; ++p) {
        std::array<double, 6> s{}, t{};
        std::copy_n(&before[6 * p], 6, s.begin());
        std::copy_n(&body.stress[6 * p], 6, t.begin());
        Matrix Rt;
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j) Rt[3 * i + j] = R[3 * j + i];
        const Matrix expected = product(product(R, full(s)), Rt), got = full(t);
        for (std::size_t k = 0; k < 9; ++k) EXPECT_NEAR(got[k], expected[k], 1e-9 * 1e10);
    }
    // in balance: no net force, no net moment about the turned nodes
    for (std::size_t c = 0; c < 3; ++c) {
        double sum = 0;
        for (std::size_t k = c; k < body.element_force.size(); k += 3) sum += body.element_force[k];
        EXPECT_NEAR(sum, 0, 1e-3);
    }
}

TEST(FiniteElementErrors, AnInvertedElementIsNamed) {
    OneBody one(ElementKind::hexahedron, 0);
    one.body.u[2] = 5;  // a corner pushed through the opposite face
    EXPECT_EQ(update_stresses(one.body), 0);
    std::vector<double> ke(24 * 24);
    EXPECT_FALSE(finite_stiffness(one.body, 0, ke.data()));
    one.body.u[2] = std::nan("");
    EXPECT_EQ(update_stresses(one.body), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, FiniteElement,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10));

}  // namespace
}  // namespace kestralum
