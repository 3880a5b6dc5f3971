// Bulk viscosity: waves that fade, shocks that do not ring, the step that it leaves, its energy.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "support/explicit_run.h"

namespace kestralum {
namespace {

using testing::contains;
using testing::joined;
using testing::ModelText;
using testing::rect;

class ExplicitViscosity : public testing::ExplicitTest {};

// The first mode of a bar that is held at one end fades with ζ = b1 l ω/(2 c); l is c times the undamped
// stable step.
TEST_F(ExplicitViscosity, AWaveFadesAtTheRateOfItsFrequency) {
    for (const bool tetrahedra : {false, true}) {
        const auto kind = tetrahedra ? ElementKind::tetrahedron4 : ElementKind::hexahedron;
        const double c = std::sqrt(2e11 / 7800), length = 0.2, h = 0.01, b1 = 0.4;
        auto material = testing::steel;
        material.poisson = 0;
        make(testing::box_mesh({{20, 1, 1}, {length, h, h}}, kind), material);
        model.control.linear_viscosity = b1;
        model.control.end_time = 1;
        model.control.output_frequency = 10000000;
        model.control.d_time = 2e-7;
        BoundaryCondition held;
        held.name = "S";
        held.kind = Selection::plane;
        held.axis = 0;
        model.boundary_conditions = {held};
        ASSERT_TRUE(begin());
        const double k = std::numbers::pi / (2 * length), omega = 2 * c / h * std::sin(k * h / 2);
        for (std::size_t n = 0; n < state->v.size() / 4; ++n) state->v[4 * n] = std::sin(k * state->X[4 * n]);
        state->velocities_known = false;
        const std::int64_t period = std::llround(2 * std::numbers::pi / omega / state->d_time);
        double kinetic[2] = {};
        for (const int late : {0, 1}) {
            run_to(late * 5 * period);
            store_frame(*job, *state);
            kinetic[late] = last("kinetic");
        }
        // the mean over the elements, whose lengths differ where they are tetrahedra
        double l = 0;
        const std::vector<double> squared = state->bound->estimates_at(nullptr, 1);
        for (const double w : squared) l += 2 * c / std::sqrt(w) / static_cast<double>(squared.size());
        const double zeta = 0.5 * b1 * l * omega / c, time = 5 * static_cast<double>(period) * state->d_time,
                     found = std::log(kinetic[0] / kinetic[1]) / (2 * omega * time);
        std::printf("    damping ratio %.5f, of the theory %.5f\n", found, zeta);
        EXPECT_NEAR(found, zeta, (tetrahedra ? 0.1 : 0.01) * zeta);
        EXPECT_LT(largest_drift(), 1e-4);
        EXPECT_NEAR(last("viscous"), kinetic[0] - kinetic[1], 0.01 * kinetic[0]);
    }
}

// The front of a step wave: without viscosity it rings by a quarter, with it hardly. It spreads as that of a
// Kelvin-Voigt body does, a normal distribution of variance b1 l c t.
TEST_F(ExplicitViscosity, AShockDoesNotRing) {
    const double c = 5000, driven = 100;
    const auto shock = [&](const std::string& keys) {
        run(ModelText{.material = "8000 2e11 0", .parts = rect("b", "1 0.01 0.01", "100 1 1")},
            "end_time 120e-6 output_frequency 10 " + keys + " VELOCITY_INPUT IN plane x 100 0 0 0 0 0 0 %");
        EXPECT_LT(largest_drift(), 1e-4) << keys;
        struct Front {
            double overshoot = 0, width = 0;
        } front;
        double high = 0, low = 1;
        for (int i = 0; i <= 100; ++i) {
            const double x = 0.01 * i, v = state->v[4 * node_at(x, 0, 0)] / driven;
            front.overshoot = std::max(front.overshoot, v - 1);
            if (v > 0.9) high = std::max(high, x);
            if (v > 0.1) low = x;
        }
        front.width = (low - high) / 0.01;
        EXPECT_NEAR(0.5 * (low + high), c * 120e-6, 0.03) << keys;
        std::printf("    %-45s overshoot %4.1f %%, front over %.0f elements\n", keys.c_str(),
                    100 * front.overshoot, front.width);
        return front;
    };
    EXPECT_GT(shock("d_time 5e-7").overshoot, 0.2);
    const auto damped = shock("linear_viscosity 0.5 quadratic_viscosity 1.2");
    EXPECT_LT(damped.overshoot, 0.06);
    EXPECT_NEAR(damped.width, 2.563 * std::sqrt(0.5 * 0.01 * c * 120e-6) / 0.01, 2) << "from 10 to 90 %";
    // what it dissipates does not hang on the step
    double viscous[2] = {};
    for (const int fine : {0, 1}) {
        shock(formatted("linear_viscosity 0.5 quadratic_viscosity 1.2 d_time %g", fine ? 2e-7 : 4e-7));
        viscous[fine] = last("viscous");
        EXPECT_GT(viscous[fine], 0);
    }
    EXPECT_NEAR(viscous[1], viscous[0], 0.01 * viscous[0]);
    shock("linear_viscosity 0.5 quadratic_viscosity 1.2 d_time auto output_time 40e-6");
    EXPECT_LE(state->adaptive.largest, 0.9 * state->stable_step * (1 + 1e-9));
}

// A cube that swells and shrinks has the largest damping: it stays at the step that is printed, and not
// above.
TEST_F(ExplicitViscosity, TheStepThatIsPrintedIsTheStableOne) {
    for (const double nu : {0.0, 0.3})
        for (const double b1 : {0.1, 0.6}) {
            double step = 0;
            for (const double share : {0.0, 0.98, 1.03}) {
                read(ModelText{.material = formatted("8000 2e11 %g", nu),
                               .parts = rect("b", "1 1 1", "1 1 1")},
                     formatted("linear_viscosity %g end_time 1 output_frequency 1000000 d_time %.17g", b1,
                               share * step));
                ASSERT_TRUE(begin());
                step = state->stable_step;
                const double xi = b1 * 3 * (1 - nu) / (1 + nu);
                EXPECT_NEAR(step, state->bound->undeformed().step * (std::sqrt(1 + xi * xi) - xi),
                            1e-12 * step);
                if (share == 0) continue;
                double most = 0;
                for (std::size_t k = 0; k < state->v.size(); ++k)
                    if (k % 4 < 3) state->v[k] = 1e-6 * (2 * state->X[k] - 1);
                state->velocities_known = false;
                run_to(200);
                for (std::size_t k = 0; k < state->v.size(); ++k)
                    most = std::max(most, std::abs(state->v[k]));
                EXPECT_EQ(most > 1e-6, share > 1) << nu << " " << b1 << " " << share << ": " << most;
            }
        }
}

TEST_F(ExplicitViscosity, ItIsReadAndToldAndOffWithoutItsKeys) {
    const std::string block = ModelText{.parts = rect("b", "0.1 0.1 0.1", "2 2 2")};
    read(block, "end_time 1e-5 linear_viscosity 0.06 quadratic_viscosity 6/5");
    EXPECT_EQ(model.control.linear_viscosity, 0.06);
    EXPECT_EQ(model.control.quadratic_viscosity, 1.2);
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.lines, "with the bulk viscosity"));
    EXPECT_EQ(state->history.columns.back(), "viscous");
    read(block, "end_time 1e-5 linear_viscosity 0 quadratic_viscosity 0");
    ASSERT_TRUE(begin());
    EXPECT_EQ(state->stable_step, state->bound->undeformed().step);
    EXPECT_EQ(std::ranges::count(state->history.columns, "viscous"), 0);
    for (const char* key : {"linear_viscosity", "quadratic_viscosity"}) {
        folder.write("model.ana", std::string("x explicit ") + key + " -0.1 END");
        const AnalysisInfoReport refused = read_analysis_info_file(model, said);
        EXPECT_TRUE(contains(refused.remarks.errors, "a coefficient of at least 0"))
            << joined(refused.remarks.errors);
    }
}

}  // namespace
}  // namespace kestralum
