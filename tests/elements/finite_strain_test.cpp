// Finite-strain points and elements: objectivity, limits, energy, and the tangent against differences.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "elements/finite_elements.h"
#include "elements/linear_element.h"
#include "support/box_mesh.h"
#include "support/eigenvalues.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

using testing::Tensor;

PlasticMaterial steel(double yield = 300e6, double hardening = 2e9, double kinematic = 0) {
    Material m{.young = 206e9, .poisson = 0.3, .yield_stress = yield, .hardening = hardening};
    m.kinematic = kinematic;
    if (kinematic > 0 && yield > 0) m.hardening_table = {{{0, yield}, {0.004, 1.2 * yield}, {1, 2 * yield}}};
    return j2_material(m, true);
}

FiniteResponse respond(const PlasticMaterial& m, Tensor F, const FinitePointState& from = {}) {
    for (int k = 0; k < 9; k += 4) F[k] -= 1;
    FiniteResponse out;
    EXPECT_TRUE(finite_response(m, F.data(), from, true, out));
    return out;
}

// Uniaxial stretch 1.3 with free sides: τ = E ln λ.
TEST(FinitePoint, IsHenckysLawForLargeStrains) {
    const double axial = std::log(1.3), across = std::exp(-0.3 * axial);
    const FiniteResponse large = respond(steel(0), {1.3, 0, 0, 0, across, 0, 0, 0, across});
    EXPECT_NEAR(large.tau[0], 206e9 * axial, 1e-4);
    EXPECT_NEAR(large.tau[1], 0, 1e-4);
}

TEST(FinitePoint, YieldsOnTheHardeningLineWithoutChangingItsVolume) {
    const auto m = steel(300e6, 5e9);
    FinitePointState state;
    for (int step = 1; step <= 10; ++step) {  // isochoric stretch: q = Sy + H α throughout
        const double e = 0.02 * step, a = std::exp(e), b = std::exp(-e / 2);
        const FiniteResponse r = respond(m, {a, 0, 0, 0, b, 0, 0, 0, b}, state);
        state = r.state;
        const double q = r.tau[0] - r.tau[1];
        EXPECT_NEAR(q, 300e6 + 5e9 * state.alpha, 1e-3);
        EXPECT_NEAR(state.alpha, e - q / (3 * m.shear), 1e-13);  // total minus elastic deviatoric strain
        EXPECT_NEAR((1 + state.P[0]) * (1 + state.P[1]) * (1 + state.P[2]), 1, 1e-12);
    }
}

// Hand-computed: Sy = 300 MPa and a kinematic modulus alone. Stretched to E ln λ = Sy + something and back,
// the bar yields again after 2 Sy; a table's cycle ends on its pairs.
TEST(FinitePoint, YieldsOnItsCurveAndAboutItsBackstress) {
    const double E = 206e9, Sy = 300e6;
    for (const bool isotropic : {false, true}) {
        Material record{.young = E, .poisson = 0.3, .yield_stress = Sy};
        record.kinematic = isotropic ? 0 : 10e9;
        if (isotropic) record.hardening_table = {{{0, Sy}, {0.001, 310e6}, {0.003, 350e6}}};
        const auto m = j2_material(record, true);
        // isochoric, so that q = σ - σ_lateral is Sy + H εp on the line: εp by hand from 3G (e - εp)
        const auto stretched = [&](double e, FinitePointState& state) {
            const double a = std::exp(e), b = std::exp(-e / 2);
            const FiniteResponse r = respond(m, {a, 0, 0, 0, b, 0, 0, 0, b}, state);
            state = r.state;
            return r.tau[0] - r.tau[1];
        };
        FinitePointState state;
        const double G3 = 3 * m.shear;
        if (isotropic) {  // one step over two pieces: 3G (e - 0.002) = 330 MPa; then behind the table's end
            EXPECT_NEAR(stretched(0.002 + 330e6 / G3, state), 330e6, 1);
            EXPECT_NEAR(state.alpha, 0.002, 1e-12);
            EXPECT_NEAR(stretched(0.01, state), 350e6, 1);
            EXPECT_NEAR(state.alpha, 0.01 - 350e6 / G3, 1e-12);
            continue;
        }
        const double strain = 0.01, eps = (G3 * strain - Sy) / (G3 + 10e9), top = Sy + 10e9 * eps;
        EXPECT_NEAR(stretched(strain, state), top, 1);
        const double back = strain - 2 * Sy / G3;  // Bauschinger: elastic over 2 Sy, not over 2 σ
        EXPECT_NEAR(stretched(back + 1e-6, state), top - 2 * Sy + G3 * 1e-6, 1);
        EXPECT_NEAR(state.alpha, eps, 1e-12);
        EXPECT_NEAR(stretched(back - 1e-3, state), top - 2 * Sy - 1e-3 * G3 * 10e9 / (G3 + 10e9), 1);
    }
}

// A distorted cell, its stresses and forces from its nodes' displacements.
class FiniteElement : public ::testing::TestWithParam<testing::ElementForm> {
protected:
    struct OneBody {
        OneBody(const testing::ElementForm& of, double yield, double kinematic = 0)
            : mesh(testing::box_mesh({{1, 1, 1}, {1.0, 0.8, 1.3}, distort}, of.kind)),
              materials{steel(yield, 2e9, kinematic)},
              material(mesh.element_num(), 0),
              body{mesh, material, materials, 1} {
            body.form = of.form;
            body.start();
        }
        static void distort(double* x) {
            x[0] += 0.1 * x[1] * x[2];
            x[2] += 0.07 * x[0];
        }
        void deform(const Tensor& F) {
            for (std::size_t d = 0; d < body.u.size(); d += 3) {
                testing::apply(F, &mesh.coordinates[d], &body.u[d]);
                for (std::size_t c = d; c < d + 3; ++c) body.u[c] -= mesh.coordinates[c];
            }
            EXPECT_EQ(update_stresses(body), -1);
        }
        Mesh mesh;
        std::vector<PlasticMaterial> materials;
        std::vector<std::int32_t> material;
        FiniteBody body;
    };
};

TEST_P(FiniteElement, HasTheExactSymmetricTangent) {
    for (const double kinematic : {-1.0, 0.0, 20e9}) {
        const bool plastic = kinematic >= 0;
        OneBody one(GetParam(), plastic ? 300e6 : 0, kinematic);
        FiniteBody& body = one.body;
        std::mt19937 random(7);
        std::uniform_real_distribution<double> value(-0.03, 0.03);
        for (const int stage : {1, 2}) {  // the second starts from a plastic state
            for (double& u : body.u) u += value(random);
            ASSERT_EQ(update_stresses(body), -1);
            if (stage == 1) body.commit();
        }
        EXPECT_EQ(body.current[0].alpha > body.committed[0].alpha, plastic);
        const int n = 3 * one.mesh.node_per_element();
        std::vector<double> ke(n * n);
        ASSERT_TRUE(finite_stiffness(body, 0, ke.data()));
        const double largest = *std::max_element(ke.begin(), ke.end());
        constexpr double h = 1e-6;
        for (int c = 0; c < n; ++c) {
            double& u = body.u[3 * node_index(one.mesh.connectivity[c / 3]) + c % 3];
            const double kept = u;
            u = kept + h;
            update_stresses(body);
            const auto plus = body.element_force;
            u = kept - h;
            update_stresses(body);
            for (int r = 0; r < n; ++r)
                EXPECT_NEAR(ke[n * r + c], (plus[r] - body.element_force[r]) / (2 * h), 2e-7 * largest)
                    << r << ' ' << c << (plastic ? " plastic" : "");
            u = kept;
        }
    }
}

TEST_P(FiniteElement, OnlyTurnsItsStressWhenTheBodyTurns) {
    const Tensor F1{1.02, 0.04, -0.03, 0.01, 0.97, 0.05, -0.02, 0.03, 1.04};
    const Tensor F2 = multiply3(Tensor{0.97, -0.02, 0.05, 0.04, 1.05, -0.01, 0.03, -0.04, 0.98}, F1);
    const Tensor R = testing::rotation(2.5);
    for (const auto& [yield, kinematic] : {std::pair{0.0, 0.0}, {300e6, 0.0}, {300e6, 20e9}}) {
        OneBody one(GetParam(), yield, kinematic);
        FiniteBody& body = one.body;
        one.deform(F1);
        body.commit();
        one.deform(F2);
        const auto stress = body.stress;
        const auto state = body.current[0];
        EXPECT_EQ(state.alpha > body.committed[0].alpha, yield > 0);
        one.deform(multiply3(R, F2));
        EXPECT_NEAR(body.current[0].alpha, state.alpha, 1e-12);
        for (int k = 0; k < 6; ++k) EXPECT_NEAR(body.current[0].P[k], state.P[k], 1e-12);
        for (std::size_t p = 0; p < stress.size(); p += 6) {
            const Tensor expected = testing::turned(R, &stress[p]), got = testing::full(&body.stress[p]);
            for (int k = 0; k < 9; ++k) EXPECT_NEAR(got[k], expected[k], 1e-9 * 1e10);
        }
        for (std::size_t c = 0; c < 3; ++c) {  // in balance
            double sum = 0;
            for (std::size_t k = c; k < body.element_force.size(); k += 3) sum += body.element_force[k];
            EXPECT_NEAR(sum, 0, 1e-3);
        }
    }
}

TEST_P(FiniteElement, AnInvertedElementIsNamed) {
    OneBody one(GetParam(), 0);
    for (std::int32_t d = 2; d < one.mesh.dof_num(); d += 3) one.body.u[d] = -2 * one.mesh.coordinates[d];
    EXPECT_EQ(update_stresses(one.body), 0);
    std::vector<double> ke(30 * 30);
    EXPECT_FALSE(finite_stiffness(one.body, 0, ke.data()));
    one.body.u[2] = std::nan("");
    EXPECT_EQ(update_stresses(one.body), 0);
}

// At rest the tangent is the linear element's of the same form, to rounding.
TEST_P(FiniteElement, IsTheLinearElementAtRest) {
    OneBody one(GetParam(), 300e6);
    const ElementType& type = element_type(GetParam().kind);
    const PlasticMaterial& m = one.materials[0];
    const double lambda = m.bulk - 2.0 / 3.0 * m.shear;
    const int n = 3 * type.nodes;
    ElementPoints points;
    std::vector<double> ke(n * n), finite(ke);
    ASSERT_TRUE(evaluate_points(type, one.mesh, 0, points));
    element_stiffness(type, points, {lambda + 2 * m.shear, lambda, m.shear}, GetParam().form, ke.data());
    ASSERT_TRUE(finite_stiffness(one.body, 0, finite.data()));
    const double largest = *std::max_element(ke.begin(), ke.end());
    for (int k = 0; k < n * n; ++k) EXPECT_NEAR(finite[k], ke[k], 1e-13 * largest);
}

// Pressed to 0.4 and pulled to 2 of its length with free sides, a cube of either form has as many unstable
// motions as the plain one: the internal strains add no hourglass.
TEST(FiniteHexahedron, TheFormsAddNoUnstableMotion) {
    for (const double yield : {0.0, 300e6})
        for (const double target : {0.4, 2.0}) {
            std::vector<int> unstable;
            for (const auto& [kind, form] : testing::every_form) {
                if (kind != ElementKind::hexahedron) continue;
                Mesh mesh = testing::hexa_box({{1, 1, 1}, {1, 1, 1}});
                const std::vector materials{steel(yield)};
                const std::vector<std::int32_t> material{0};
                FiniteBody body{mesh, material, materials};
                body.form = form;
                body.start();
                double across = 1, ke[24 * 24];
                for (int step = 1; step <= 20; ++step) {
                    const double along = std::pow(target, step / 20.0);
                    double low = 0.8 * across, high = 1.25 * across;
                    while (high - low > 1e-14) {  // no stress on the sides
                        across = 0.5 * (low + high);
                        const Tensor F{across, 0, 0, 0, across, 0, 0, 0, along};
                        (respond(materials[0], F, body.committed[0]).tau[0] > 0 ? high : low) = across;
                    }
                    for (std::size_t d = 0; d < 24; ++d)
                        body.u[d] = ((d % 3 == 2 ? along : across) - 1) * mesh.coordinates[d];
                    ASSERT_EQ(update_stresses(body), -1);
                    body.commit();
                }
                ASSERT_TRUE(finite_stiffness(body, 0, ke));
                const auto values = testing::eigenvalues(ke, 24);
                unstable.push_back(0);
                for (int k = 0; k < 24; ++k) unstable.back() += values[k] < -1e-9 * values[23];
            }
            EXPECT_EQ(unstable[1], unstable[0]) << "enhanced, " << yield << ' ' << target;
            EXPECT_EQ(unstable[2], unstable[0]) << "mean dilatation, " << yield << ' ' << target;
        }
}

INSTANTIATE_TEST_SUITE_P(Forms, FiniteElement, ::testing::ValuesIn(testing::every_form));

}  // namespace
}  // namespace kestralum
