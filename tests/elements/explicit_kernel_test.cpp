// The explicit internal forces against the linear stiffness, finite rotations, balance and yield.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "elements/elasticity.h"
#include "elements/explicit_blocks.h"
#include "elements/finite_elements.h"
#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

struct Case {
    ElementKind kind;
    bool plastic;
    bool once_yielded = false;
    HexahedronForm form = HexahedronForm::full;
};

std::vector<Case> cases(bool elastic) {
    std::vector<Case> all;
    for (auto kind : testing::every_kind) {
        if (elastic) all.push_back({kind, false});
        all.push_back({kind, true});
    }
    all.push_back({ElementKind::hexahedron, true, true});
    for (auto form : {HexahedronForm::enhanced, HexahedronForm::mean_dilatation}) {
        if (elastic) all.push_back({ElementKind::hexahedron, false, false, form});
        all.push_back({ElementKind::hexahedron, true, false, form});
    }
    return all;
}

// Every test runs once for each width of the vectors that this processor has.
class ExplicitKernel : public ::testing::TestWithParam<Case> {
protected:
    template <typename Body>
    void each_width(Body body) {
        for (int widest : {2, 4, 8}) {
            if (kernel_set(widest).lanes != widest) continue;
            SCOPED_TRACE(kernel_set(widest).name);
            lanes = widest;
            make_blocks();
            body();
        }
    }
    void make_blocks() {
        const Case& c = GetParam();
        blocks.emplace(
            mesh, parts, std::span(&material, 1),
            BlockOptions{c.plastic, c.once_yielded, lanes, {}, c.form, false, 8});  // several chunks
        x.assign(4 * nodes, 0.0);
        du = u = R = x;
        for (int d = 0; d < 3 * nodes; ++d) x[4 * (d / 3) + d % 3] = mesh.coordinates[d];
    }
    // Moves every node to to(X), where X are its coordinates of the start.
    template <typename Map>
    void move(Map to) {
        for (int n = 0; n < nodes; ++n) {
            double at[3];
            to(&mesh.coordinates[3 * n], at);
            for (int c = 0; c < 3; ++c) {
                du[4 * n + c] = at[c] - x[4 * n + c];
                x[4 * n + c] = at[c];
                u[4 * n + c] = at[c] - mesh.coordinates[3 * n + c];
            }
        }
        EXPECT_TRUE(blocks->evaluate(x.data(), du.data(), R.data(), threads));
    }
    void wave(double size, double shear) {
        move([&](const double* X, double* at) {
            for (int c = 0; c < 3; ++c)
                at[c] = X[c] + size * std::sin(3 * X[(c + 1) % 3] + 5 * X[(c + 2) % 3] + c) +
                        shear * X[(c + 1) % 3];
        });
    }
    void deform(const testing::Tensor& F) {
        move([&](const double* X, double* at) { testing::apply(F, X, at); });
    }
    std::vector<double> stresses() {
        std::vector<double> stress;
        blocks->copy_stresses(stress, alpha);
        return stress;
    }
    std::vector<double> displacements() const {
        std::vector<double> u3;
        for (int d = 0; d < 3 * nodes; ++d) u3.push_back(u[4 * (d / 3) + d % 3]);
        return u3;
    }
    double volume(const std::vector<double>& u3, PointResults& points) const {
        logarithmic_strains(mesh, u3, 2, points);
        return std::accumulate(points.volume.begin(), points.volume.end(), 0.0);
    }

    // a skew mesh, so that no sum vanishes by symmetry
    static void skew(double* p) {
        const double a = p[0], b = p[1], c = p[2];
        p[0] += 0.2 * b * c + 0.03 * std::sin(9 * c);
        p[1] += 0.3 * a * c;
        p[2] += 0.1 * a * b + 0.02 * std::sin(11 * a);
    }
    Mesh mesh = testing::box_mesh({{3, 2, 2}, {0.3, 0.21, 0.19}, skew}, GetParam().kind);
    Material material{
        .id = 0, .name = "M", .density = 1000, .young = 2e11, .poisson = 0.3, .yield_stress = 1e30};
    std::vector<Part> parts{1};
    int nodes = mesh.node_num(), lanes = 0, threads = 2;
    LineDoubles x, du, u, R;
    std::vector<double> alpha;
    std::optional<ElementBlocks> blocks;
};

class Yielding : public ExplicitKernel {};
INSTANTIATE_TEST_SUITE_P(All, ExplicitKernel, ::testing::ValuesIn(cases(true)));
INSTANTIATE_TEST_SUITE_P(All, Yielding, ::testing::ValuesIn(cases(false)));

TEST_P(ExplicitKernel, SmallDisplacementsGiveTheForcesOfTheLinearStiffness) {
    SilentProgress silent;
    const SparseKM km =
        testing::assemble(mesh, material, build_elasticity(std::span(&material, 1), silent), GetParam().form);
    each_width([&] {
        // on skew elements the internal strains of the enhanced one settle in some steps
        for (int step = 0; step < 60; ++step) wave(1e-10, 0);
        std::vector<double> expected(3 * nodes);
        multiply(km, km.K_value, displacements(), expected);
        double largest = 0;
        for (double f : expected) largest = std::max(largest, std::abs(f));
        // coordinates carry the displacements to 1e-16 / 1e-10, strains are off by their own size
        for (int d = 0; d < 3 * nodes; ++d)
            EXPECT_NEAR(R[4 * (d / 3) + d % 3], expected[d], 1e-5 * largest) << d;
    });
}

// Nodes on the border of several chunks too.
TEST_P(ExplicitKernel, AnyNumberOfThreadsGivesTheSameBytes) {
    each_width([&] {
        const auto forces = [&](int of) {
            threads = of;
            make_blocks();
            R.assign(R.size(), -1);
            for (int step = 0; step < 3; ++step) wave(1e-3, 0.1 * step);
            return R;
        };
        const LineDoubles one = forces(1);
        for (int of : {2, 3}) EXPECT_EQ(forces(of), one) << of << " threads";
        for (int n = 0; n < nodes; ++n) EXPECT_EQ(one[4 * n + 3], 0);
    });
}

// A quarter turn in one step and many small ones: no strain, and an initial stress turns with the body.
TEST_P(ExplicitKernel, RigidRotationLeavesNoStressAndTurnsWhatThereIs) {
    each_width([&] {
        double angle = 0;
        for (double by : {1.5, 0.3, 1e-3, 1e-6}) deform(testing::rotation(angle += by));
        // strains round at 1e-16 times the ratio of body to element
        for (double s : stresses()) EXPECT_LT(std::abs(s), 2e-14 * material.young);

        std::vector<double> initial(stresses().size());
        const double tensor[6] = {3e8, -1e8, 2e8, 0.5e8, -0.7e8, 1.1e8};
        for (std::size_t k = 0; k < initial.size(); ++k) initial[k] = tensor[k % 6];
        blocks->set_stresses(initial);
        // the exact rotation differs from the Cayley form's, which the displacements define, by angle³/12:
        // small steps
        for (int step = 0; step < 200; ++step) deform(testing::rotation(angle += 0.005));
        const std::vector<double> reached = stresses();
        const testing::Tensor expected = testing::turned(testing::rotation(200 * 0.005), tensor),
                              got = testing::full(reached.data());
        for (int k = 0; k < 9; ++k) EXPECT_NEAR(got[k], expected[k], 1e-10 * 3e8) << k;
    });
}

// Stretched to λ in small steps with the sides held: σ = (λ' + 2G) ln λ along it, the strains are
// logarithmic.
TEST_P(ExplicitKernel, UniaxialStrainAddsUpToTheLogarithm) {
    each_width([&] {
        const double stretch = 1.5, a = material.young * (1 - material.poisson) /
                                        ((1 + material.poisson) * (1 - 2 * material.poisson));
        for (int step = 1; step <= 100; ++step)
            deform({1, 0, 0, 0, 1 + (stretch - 1) * step / 100, 0, 0, 0, 1});
        const std::vector<double> stress = stresses();
        for (std::size_t k = 0; k < stress.size(); k += 6)
            EXPECT_NEAR(stress[k + 1], a * std::log(stretch), 1e-4 * a);
        PointResults points;
        const double V = volume(displacements(), points) / stretch;
        for (std::size_t k = 0; k < points.strain.size(); ++k)
            EXPECT_NEAR(points.strain[k], k % 6 == 1 ? std::log(stretch) : 0.0, 1e-12);
        // the work of the stress over the volume as it is: ∫ a ln λ dλ V0
        EXPECT_NEAR(blocks->internal_energy(), a * V * (stretch * std::log(stretch) - stretch + 1),
                    1e-4 * blocks->internal_energy());
    });
}

// Simple shear past yield: every point stands on the surface Sy + H α, and what is dissipated is its area.
TEST_P(Yielding, HoldsTheStressOnItsSurface) {
    each_width([&] {
        for (double H : {0.0, 5e9}) {
            material.yield_stress = 3e8;
            material.hardening = H;
            make_blocks();
            const double shear = 0.01;
            for (int step = 1; step <= 50; ++step) deform({1, shear * step / 50, 0, 0, 1, 0, 0, 0, 1});
            const std::vector<double> stress = stresses();
            const double G = material.young / (2 * (1 + material.poisson));
            // γ = τ/G + √3 α, √3 τ = Sy + H α
            const double exact = (shear - material.yield_stress / std::sqrt(3.0) / G) /
                                 (std::sqrt(3.0) + H / std::sqrt(3.0) / G);
            for (std::size_t k = 0; k < stress.size() / 6; ++k) {
                EXPECT_NEAR(mises(&stress[6 * k]), material.yield_stress + H * alpha[k],
                            1e-9 * material.yield_stress);
                EXPECT_NEAR(alpha[k], exact, 2e-3 * exact);
            }
            PointResults points;
            const double V = volume(std::vector<double>(3 * nodes, 0.0), points);
            EXPECT_NEAR(blocks->plastic_energy(), V * exact * (material.yield_stress + 0.5 * H * exact),
                        0.01 * blocks->plastic_energy());
        }
    });
}

// A shear that goes to and fro, by hand: τ = G γ up to k = Sy/√3, from there on with the slope of hardening
// in shear, G h/(3 G + h) with h the curve's or the kinematic modulus. About a backstress, which turns with
// the body, the way back is elastic over 2 k; on a curve it is over twice what was reached.
TEST_P(Yielding, HardensOnItsCurveAndAboutItsBackstress) {
    each_width([&] {
        const double G = material.young / (2 * (1 + material.poisson)), Sy = 3e6, h = 40e9,
                     k = Sy / std::sqrt(3.0);
        const double slope = G * h / (3 * G + h);
        for (const bool kinematic : {true, false}) {
            material.yield_stress = kinematic ? Sy : 0;
            material.kinematic = kinematic ? h : 0;
            material.hardening_table.clear();
            if (!kinematic)
                material.hardening_table = {{{0, Sy}, {1e-4, Sy + 1e-4 * h}, {2e-4, Sy + 1e-4 * h}}};
            make_blocks();
            double shear = 0;
            testing::Tensor turn{1, 0, 0, 0, 1, 0, 0, 0, 1};
            const auto go = [&](double to) {
                const double from = shear;
                for (int step = 1; step <= 10; ++step) {
                    shear = from + (to - from) * step / 10;
                    deform(multiply3(turn, testing::Tensor{1, shear, 0, 0, 1, 0, 0, 0, 1}));
                }
                // the stress in the axes that turn with the body
                const std::vector<double> stress = stresses();
                return testing::turned(transposed(turn), stress.data())[1];
            };
            const double first = 1e-4, top = k + slope * (first - k / G);
            EXPECT_NEAR(go(first), top, 1e-3 * k);
            const double reach = kinematic ? 2 * k : 2 * top;
            for (int step = 1; step <= 80; ++step)  // a quarter turn in between
                deform(multiply3(turn = testing::rotation(step * 0.02),
                                 testing::Tensor{1, shear, 0, 0, 1, 0, 0, 0, 1}));
            EXPECT_NEAR(go(first - 0.99 * reach / G), top - 0.99 * reach, 2e-3 * k);
            EXPECT_NEAR(go(first - reach / G - first), top - reach - slope * first, 2e-3 * k);
            if (!kinematic) {  // past its end
                EXPECT_NEAR(go(-3e-3), -(k + 1e-4 * h / std::sqrt(3.0)), 2e-3 * k);
            }
        }
        material = {
            .id = 0, .name = "M", .density = 1000, .young = 2e11, .poisson = 0.3, .yield_stress = 1e30};
    });
}

// A body that turns by any angle and shrinks or swells alike everywhere: the forces of a pressure q on it, Σ
// F·x = -3 q V, nothing inside, and its work.
TEST_P(ExplicitKernel, BulkViscosityIsAPressureAgainstTheChangeOfVolume) {
    each_width([&] {
        const double dt = 1e-6, linear = 3e3, quadratic = 2;
        const std::vector<double> A(mesh.element_num(), linear), B(mesh.element_num(), quadratic),
            one(mesh.element_num(), 1.0);
        PointResults points;
        const double V0 = volume(std::vector<double>(3 * nodes, 0.0), points);
        std::vector<LineDoubles> forces[2];
        double q = 0, work = 0;
        for (const bool viscous : {false, true}) {
            make_blocks();
            blocks->set_step(dt);
            if (viscous) blocks->set_viscosity(A, B);
            double size = 1;
            for (const double by : {1 - 1e-3, 1 + 2e-3}) {
                const double V = V0 * std::pow(size, 3);
                size *= by;
                testing::Tensor F = testing::rotation(0.8 * size);
                for (double& f : F) f *= size;
                deform(F);
                forces[viscous].push_back(R);
                if (!viscous) continue;
                const double r = std::pow(by, 3), rate = 2 * (r - 1) / (r + 1) / dt;
                const double former = q;
                q = -linear * rate + (rate < 0 ? quadratic * rate * rate : 0);
                work -= 0.5 * (former + q) * V * (r - 1);
                EXPECT_NEAR(blocks->viscous_energy(), work, 1e-9 * std::abs(work));
                EXPECT_NEAR(blocks->largest_compression(one), std::max(0.0, -rate), 1e-6 * std::abs(rate));
                double virial = 0, total = 0;
                for (int k = 0; k < 4 * nodes; ++k) {
                    const double f = R[k] - forces[0][forces[1].size() - 1][k];
                    virial += f * x[k];
                    total += f;
                }
                EXPECT_NEAR(virial, -3 * q * V * r, 1e-6 * std::abs(virial));
                EXPECT_NEAR(total, 0, 1e-6 * std::abs(q) * std::pow(V0, 2.0 / 3.0));
            }
        }
    });
}

TEST_P(ExplicitKernel, AnElementTurnedInsideOutIsNamed) {
    each_width([&] {
        for (int n = 0; n < nodes; ++n) {
            du[4 * n] = -2 * x[4 * n];
            x[4 * n] = -x[4 * n];
        }
        EXPECT_EQ(blocks->first_inverted(), -1);
        EXPECT_FALSE(blocks->evaluate(x.data(), du.data(), R.data(), 2));
        EXPECT_EQ(blocks->first_inverted(), 0);
    });
}

}  // namespace
}  // namespace kestralum
