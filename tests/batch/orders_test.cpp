// Observed orders of convergence, on few and small meshes, and what they are measured with.
#include "app/orders/orders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "app/orders/cube_mesh.h"
#include "app/orders/element_rule.h"
#include "app/orders/exact_field.h"
#include "support/analysis_run.h"
#include "support/collected.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

using testing::Collected;
using testing::TempFolder;

class Orders : public ::testing::TestWithParam<const char*> {};

// Nothing here is taken from the program: the exact answers and the slopes are those of theory.
TEST_P(Orders, AreThoseOfTheory) {
    TempFolder folder;
    Collected said;
    std::vector<OrdersRow> rows;
    const OrdersOptions options{(folder.path() / "log").string(), true, GetParam()};
    ASSERT_TRUE(find_orders(options, testing::analysis_settings(), said, rows));
    EXPECT_GE(rows.size(), 5u);  // one of each element and formulation at least
    // a line each, as they come
    EXPECT_EQ(std::ranges::count(said.summaries, '\n'), std::ssize(rows)) << said.summaries;
    for (const OrdersRow& row : rows) {
        const std::string what = row.element + " " + row.formulation + " " + row.mesh + " " + row.quantity;
        EXPECT_TRUE(reaches_theory(row)) << what << " " << (row.order.empty() ? 0 : row.order.back());
        if (row.expected == 0) continue;
        ASSERT_GE(row.order.size(), 1u) << what;
        EXPECT_LT(row.error.back(), 0.4) << what;  // a slope far from the answer says nothing
        EXPECT_LT(row.order.back(), row.expected + 0.8) << what << ": faster than the measure can be";
    }
}

INSTANTIATE_TEST_SUITE_P(Analyses, Orders, ::testing::Values("static", "eigen", "nonlinear", "explicit"),
                         [](const auto& of) { return std::string(of.param); });

TEST(OrdersTools, MeshesFillTheCubeWithSoundElements) {
    for (const ElementKind kind :
         {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10})
        for (const Distortion distortion : {Distortion::smooth, Distortion::random})
            for (const int n : {2, 5}) {
                const Mesh mesh = cube_mesh(kind, n, distortion);
                // ∫ xᵏ dV = 1/(k + 1) of polynomials that the rule has exactly, on elements that are no boxes
                double volume = 0, first = 0, second = 0;
                for_points(mesh, [&](const RulePoint& p) {
                    ASSERT_GT(p.weight, 0) << n;
                    volume += p.weight;
                    first += p.weight * p.x[1];
                    second += p.weight * p.x[0] * p.x[2];
                });
                EXPECT_NEAR(volume, 1, 1e-12);
                EXPECT_NEAR(first, 0.5, 1e-12);
                // curved tetrahedra have a Jacobian of degree 3 and places of degree 2
                EXPECT_NEAR(second, 0.25, kind == ElementKind::tetrahedron10 ? 1e-5 : 1e-12);
                ElementPoints points;
                double own = 0;
                for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
                    ASSERT_TRUE(evaluate_points(element_type(kind), mesh, e, points));
                    own += element_volume(element_type(kind), points);
                }
                EXPECT_NEAR(own, 1, kind == ElementKind::tetrahedron10 ? 1e-3 : 1e-12);
            }
}

// The closed derivatives against differences; at small strain the finite law is the linear one.
TEST(OrdersTools, TheFieldIsInBalanceWithItsBodyForce) {
    const SineField field = sine_field(0.06), tiny = sine_field(1e-7);
    const Lame moduli{3, 2};
    const Vec3 at{0.3, 0.6, 0.45};
    constexpr double step = 1e-4;
    Vec3 force{};
    const Mat3 H = field.gradient(at);
    for (std::size_t d = 0; d < 3; ++d) {
        Vec3 ahead = at, behind = at;
        ahead[d] += step;
        behind[d] -= step;
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(H[3 * c + d], (field.value(c, ahead) - field.value(c, behind)) / (2 * step), 1e-8);
        const Strain6 more = stress_of(strain_of(field.gradient(ahead)), moduli),
                      less = stress_of(strain_of(field.gradient(behind)), moduli);
        constexpr std::size_t place[3][3] = {{0, 3, 5}, {3, 1, 4}, {5, 4, 2}};
        for (std::size_t c = 0; c < 3; ++c) force[c] -= (more[place[c][d]] - less[place[c][d]]) / (2 * step);
    }
    const Vec3 exact = field.body_force(at, moduli), finite = finite_body_force(tiny, at, moduli),
               small = tiny.body_force(at, moduli);
    for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(exact[c], force[c], 1e-6);
        EXPECT_NEAR(finite[c], small[c], 1e-5 * std::abs(small[c]));
    }
    // a rod pulled to twice its length: ln V = (ln 2, 0, 0)
    const Strain6 pulled = cauchy_stress({1, 0, 0, 0, 0, 0, 0, 0, 0}, moduli);
    EXPECT_NEAR(pulled[0], 7 * std::log(2) / 2, 1e-14);
    EXPECT_NEAR(pulled[1], 3 * std::log(2) / 2, 1e-14);
    // turned by 90 degrees about z the stress turns with it
    const Strain6 turned = cauchy_stress({-1, -1, 0, 2, -1, 0, 0, 0, 0}, moduli);
    EXPECT_NEAR(turned[1], pulled[0], 1e-14);
    EXPECT_NEAR(turned[0], pulled[1], 1e-14);
    EXPECT_NEAR(turned[3], 0, 1e-14);
}

TEST(OrdersTools, ARowIsJudgedByItsLastOrderAndDrawn) {
    OrdersRow row{"static",    "hexahedron", "full", "smooth", "displacement",
                  {0.5, 0.25}, {0.1, 0.03},  {1.74}, 2};
    EXPECT_FALSE(reaches_theory(row));
    row.order = {1.2, 1.81};
    EXPECT_TRUE(reaches_theory(row));
    EXPECT_FALSE(reaches_theory({}));
    OrdersRow nan = row;
    nan.order = {std::nan("")};
    EXPECT_FALSE(reaches_theory(nan));
    const OrdersRow exact{"nonlinear", "tetrahedron4", "full", "random", "uniform stress",
                          {0.5},       {1e-3},         {},     0};
    EXPECT_FALSE(reaches_theory(exact));
    Collected said;
    print_orders_totals({row, exact, nan}, said);
    EXPECT_NE(said.summaries.find("3 rows, 2 below theory"), std::string::npos) << said.summaries;
    const std::string chapter = orders_chapter({row, exact});
    EXPECT_NE(chapter.find("<figcaption>static, smooth meshes: displacement"), std::string::npos);
    EXPECT_NE(chapter.find(">order 2<"), std::string::npos);
    EXPECT_EQ(chapter.find("<figcaption>nonlinear"), std::string::npos);
    EXPECT_EQ(orders_chapter({}), "");
}

// Whoever waits for minutes sees the rows that are done.
TEST(OrdersTools, RowsAreToldBeforeTheNextAreComputed) {
    struct StopsAtFirstRow : Collected {
        void take(Kind kind, std::string_view text) override {
            Collected::take(kind, text);
            if (kind == Kind::summary) cancel();
        }
    } said;
    TempFolder folder;
    std::vector<OrdersRow> rows;
    EXPECT_FALSE(find_orders({(folder.path() / "log").string(), true, "explicit"},
                             testing::analysis_settings(), said, rows));
    EXPECT_TRUE(said.summaries.starts_with("explicit   hexahedron ")) << said.summaries;
    EXPECT_LT(rows.size(), 4u);
}

TEST(OrdersTools, AnUnknownAnalysisAndAStopAreTold) {
    TempFolder folder;
    Collected said;
    std::vector<OrdersRow> rows;
    const std::string log = (folder.path() / "log").string();
    EXPECT_FALSE(find_orders({log, true, "modal"}, testing::analysis_settings(), said, rows));
    EXPECT_NE(said.errors.find("'modal'"), std::string::npos);
    said.cancel();
    EXPECT_FALSE(find_orders({log, true, "static"}, testing::analysis_settings(), said, rows));
    EXPECT_TRUE(rows.empty());
}

}  // namespace
}  // namespace kestralum
