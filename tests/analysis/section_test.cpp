// What planes carry in whole analyses, against what statics, beam theory and Newton's law say.
#include <cmath>

#include "analysis/frame_section.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "results/result_file.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

SectionPlane plane_at(const Vec3& point, const Vec3& normal) {
    return {"cut", point, unit(normal)};
}

class Sections : public ExplicitTest {
protected:
    // What acts beyond a plane at a place, of the nodal loads `share` times.
    Resultant loads_beyond(const SectionPlane& plane, const Vec3& about, double share = 1,
                           std::span<const double> u = {}) const {
        Resultant out;
        for (std::int32_t n = 0; n < result.mesh.node_num(); ++n) {
            Vec3 x = place_of(result.mesh, n);
            if (dot(minus(x, plane.point), plane.normal) <= 0) continue;
            if (!u.empty()) x = plus(x, triple(u, n));
            const Vec3 f = times(share, triple(result.load, n));
            out.force = plus(out.force, f);
            out.moment = plus(out.moment, cross(minus(x, about), f));
        }
        return out;
    }
    static void expect_near(const Resultant& got, const Resultant& exact, double force, double moment) {
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(got.force[c], exact.force[c], force);
            EXPECT_NEAR(got.moment[c], exact.moment[c], moment);
        }
    }
    static void expect_balance(const SectionSum& sum, double force, double moment) {
        const auto all = [](const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& less) {
            return minus(plus(a, plus(b, c)), less);
        };
        expect_near({all(sum.carried.force, sum.loads.force, sum.held.force, sum.inertia.force),
                     all(sum.carried.moment, sum.loads.moment, sum.held.moment, sum.inertia.moment)},
                    {}, force, moment);
    }
    static double size_of(const Vec3& a, const Vec3& b, const Vec3& c) {
        return std::max({norm(a), norm(b), norm(c)});
    }
    // A static run, and what frame_section() finds of its planes afterwards: the same.
    void analyse_and_look_again() {
        expect_done(analyse(analyse_static));
        for (const SectionSum& sum : result.sections) {
            const auto again = frame_section(model, result, sum.frame, options.sections[sum.plane]);
            ASSERT_TRUE(again && again->exact);
            const double size = size_of(sum.carried.force, sum.loads.force, sum.held.force),
                         turn = size_of(sum.carried.moment, sum.loads.moment, sum.held.moment),
                         force = 1e-9 * size, moment = 1e-9 * std::max(turn, size * result.mesh.max_length);
            expect_near(again->sum.carried, sum.carried, force, moment);
            expect_near(again->sum.loads, sum.loads, force, moment);
            expect_near(again->sum.held, sum.held, force, moment);
            ASSERT_EQ(again->sum.parts.size(), sum.parts.size());
            for (std::size_t k = 0; k < sum.parts.size(); ++k)
                expect_near(again->sum.parts[k].carried, sum.parts[k].carried, force, moment);
            EXPECT_EQ(again->sum.frame, sum.frame);
            EXPECT_EQ(again->sum.area, sum.area);
        }
    }
    // A cantilever of 1 × 0.2 × 0.1 with a force and a moment at its end and a pressure on its side.
    std::string cantilever(ElementKind kind, const std::string& load) {
        return ModelText{.parts = part_of(kind, {{5, 2, 2}, {1, 0.2, 0.1}}),
                         .supports = "ROOT plane x 0 0 0 0 0 0",
                         .rigid = "% load_info " + load + " %",
                         .others = "set_info TIP plane x 1 SIDE plane y 0.2 %\n"};
    }
};

TEST_F(Sections, CarryTheLoadsBeyondThemInEveryForm) {
    options.sections = {plane_at({0.5, 0, 0}, {1, 0, 0}), plane_at({0.45, 0.1, 0.05}, {1, 0.3, -0.2}),
                        plane_at({0.31, 0.04, 0.035}, {2, -1, 1}), plane_at({0.52, 0.1, 0.05}, {1, 1, 1})};
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        ASSERT_TRUE(AnalysisTest::read(
            cantilever(kind, "F remote TIP 1 0.1 0.05 200 300 -1000 30 0 0 P pressure SIDE 2e4*x")));
        analyse_and_look_again();
        ASSERT_EQ(result.sections.size(), options.sections.size());
        for (const SectionSum& sum : result.sections) {
            const SectionPlane& plane = options.sections[sum.plane];
            expect_near(sum.carried, loads_beyond(plane, sum.centre), 1e-6 * 1000, 1e-6 * 500);
            expect_balance(sum, 1e-6 * 1000, 1e-6 * 500);
            ASSERT_EQ(sum.parts.size(), 1u);
            EXPECT_EQ(sum.parts[0].area, sum.area);
        }
        // of the force and the moment alone: the beam's normal force, shear, twist and bending
        ASSERT_TRUE(AnalysisTest::read(cantilever(kind, "F remote TIP 1 0.1 0.05 200 300 -1000 30 0 0")));
        analyse_and_look_again();
        const SectionSum& middle = result.sections[0];
        EXPECT_NEAR(middle.area, 0.02, 1e-12);
        expect_near(middle.carried, {{200, 300, -1000}, {30, 500, 150}}, 1e-3, 1e-3);
    }
}

TEST_F(Sections, OfABeamOnTwoSupportsAndOfARingUnderPressureAreThoseOfTheory) {
    options.sections = {plane_at({0.25, 0, 0}, {1, 0, 0}), plane_at({0.8, 0, 0}, {-1, 0, 0})};
    ASSERT_TRUE(AnalysisTest::read(
        ModelText{.parts = rect("b", "1 0.1 0.1", "20 2 4"),
                  .supports = "A set LEFT fix=z B set RIGHT fix=z C set LEFT fix=x D set MIDDLE fix=y",
                  .rigid = "% load_info P force TOP 0 0 -4000 %",
                  .others = "set_info LEFT box 0 0 0 0.1 0 0 RIGHT box 1 1 0 0.1 0 0 MIDDLE plane y 0.05 TOP "
                            "box 0.45 0.55 0 0.1 0.1 0.1 %\n"}));
    analyse_and_look_again();
    // at a quarter P/2 and P/2 · L/4, a fifth from the right P/2 · L/5
    expect_near(result.sections[0].carried, {{0, 0, -2000}, {0, -500, 0}}, 2e-3, 1e-3);
    expect_near(result.sections[1].carried, {{0, 0, -2000}, {0, 400, 0}}, 2e-3, 1e-3);
    expect_balance(result.sections[0], 4e-3, 4e-3);

    // a ring of inner radius r and width b under p is held together by 2 p r b across a diameter, to within
    // what the pressure does on half an element at either end of it
    const double p = 1e6, r = 0.1, b = 0.02;
    options.sections = {plane_at({0, 0, 0}, {0, 1, 0})};
    double error = 0;
    for (const int cells : {32, 64}) {
        ASSERT_TRUE(AnalysisTest::read(ModelText{
            .parts =
                formatted("ring red M HOLLOWCYLI 0.12 0.02 0.02 0 0 0 %d 2 2 0 0 0 0 0 0 0 0 0\n", cells),
            .supports = "Z plane z 0 0 0 0 0 0 fix=z X set FRONT fix=x Y set SIDE fix=y",
            .rigid = "% load_info P pressure BORE 1e6 %",
            .others =
                "set_info BORE cylinder z 0 0 0 0.1 FRONT where 1e-9-(x^2) SIDE where 1e-9-(y^2) %\n"}));
        analyse_and_look_again();
        const SectionSum& hoop = result.sections[0];
        expect_figure("hoop force", hoop.carried.force[1], 2 * p * r * b, 0.01);
        EXPECT_NEAR(hoop.area, 2 * 0.02 * b, 1e-9);
        const double missing = 1 - hoop.carried.force[1] / (2 * p * r * b);
        if (error > 0) {
            EXPECT_NEAR(error / missing, 4, 0.1);
        }  // of second order
        error = missing;
    }
}

// Two bars side by side of E and E/2 that are stretched together share the force as their stiffness.
TEST_F(Sections, TellWhatEachPartCarries) {
    options.sections = {plane_at({0.3, 0, 0}, {1, 0, 0})};
    ASSERT_TRUE(AnalysisTest::read(
        ModelText{.material = "7800 2e11 0 N 7800 1e11 0",
                  .parts = rect("hard", "1 0.1 0.1", "5 2 2") +
                           replaced(rect("soft", "1 0.1 0.1", "5 2 2", "0 0.1 0"), " M ", " N "),
                  .supports = "A plane x 0 0 0 0 0 0 B plane x 1 1 0 0 0 0 fix=x ux=1e-4"}));
    analyse_and_look_again();
    const SectionSum& sum = result.sections[0];
    ASSERT_EQ(sum.parts.size(), 2u);
    EXPECT_NEAR(sum.parts[0].carried.force[0], 2e11 * 1e-4 * 0.01, 1);
    EXPECT_NEAR(sum.parts[1].carried.force[0], 1e11 * 1e-4 * 0.01, 1);
    EXPECT_NEAR(sum.parts[1].area, 0.01, 1e-12);
    EXPECT_NEAR(sum.carried.force[0], 3e5, 2);
    expect_balance(sum, 0.1, 0.1);
}

// What holds the side cut off, and stresses without loads.
TEST_F(Sections, CountSpringsTiesRigidElementsAndHeat) {
    const auto carried_of = [&](const SectionPlane& plane, const std::string& text) {
        options.sections = {plane};
        if (!AnalysisTest::read(text)) return SectionSum{};
        analyse_and_look_again();
        const SectionSum sum = result.sections.at(0);
        const double size = norm(sum.carried.force);
        expect_balance(sum, 1e-6 * size, 1e-6 * size);
        return sum;
    };
    // a block on springs
    SectionSum sum = carried_of(plane_at({0, 0, 0.05}, {0.01, 0, 1}),
                                ModelText{.parts = rect("b", "1 0.5 0.1", "4 2 1"),
                                          .supports = "BED plane z 0 0 0 0 0 0 spring=1e8",
                                          .rigid = "% load_info W force TOP 0 0 -1000 %",
                                          .others = "set_info TOP plane z 0.1 % "});
    EXPECT_NEAR(sum.held.force[2], 1000, 1e-3);
    // a block tied onto another that does not fit it: below and above the tie the pressure is carried
    for (const double z : {0.6, 1.6}) {
        sum = carried_of(
            plane_at({0, 0, z}, {0, 0, 1}),
            ModelText{.parts = rect("a", "1 1 1", "2 2 2") + rect("b", "1 1 1", "3 3 2", "0 0 1.001"),
                      .supports = "Z plane z 0 0 0 0 0 0",
                      .rigid = "% load_info P pressure TOP 1e8 % tie_info T B.FOOT A.ROOF tolerance=0.01 %",
                      .others = "set_info A_ALL part a B_ALL part b ZONE plane z 1 tol=0.0005 FOOT_Z plane z "
                                "1.001 tol=0.0005 A.ROOF intersection A_ALL,ZONE B.FOOT intersection "
                                "B_ALL,FOOT_Z TOP plane z 2.001 %\n"});
        EXPECT_NEAR(sum.carried.force[2], -1e8, 1e-6 * 1e8);
    }
    // a bar with a rigid end under a force and a moment
    sum = carried_of(plane_at({0.45, 0.1, 0.05}, {1, 0.2, 0.1}),
                     ModelText{.parts = rect("b", "1 0.2 0.1", "6 2 2"),
                               .supports = "A plane x 0 0 0 0 0 0",
                               .rigid = "E area 1 0.1 0.05 1 1 0 0.2 0 0.1 % rigid_force F E z -500 %"});
    EXPECT_NEAR(sum.carried.force[2], -500, 1e-3);
    // a heated bar between two walls: E α ΔT A
    sum = carried_of(
        plane_at({0.45, 0.1, 0.05}, {1, 0, 0}),
        ModelText{.material = "7800 2e11 0 alpha=1e-5",
                  .parts = rect("b", "1 0.2 0.1", "6 2 2"),
                  .supports = "A plane x 0 0 0 0 0 0 fix=x B plane x 1 1 0 0 0 0 fix=x C plane y 0 "
                              "0 0 0 0 0 fix=y D plane z 0 0 0 0 0 0 fix=z",
                  .rigid = "% load_info H temperature all 50 %"});
    EXPECT_NEAR(sum.carried.force[0], -2e11 * 1e-5 * 50 * 0.02, 1e-6 * 2e6);
}

// Heat and force in cases of their own, and together: each frame has its own strains and loads.
TEST_F(Sections, OfEachLoadCaseAreFoundAgain) {
    options.sections = {plane_at({0.45, 0.1, 0.05}, {-1, 0.2, 0.1})};
    ASSERT_TRUE(AnalysisTest::read(
        ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                  .parts = rect("b", "1 0.2 0.1", "6 2 2"),
                  .supports = "A plane x 0 0 0 0 0 0 B plane x 1 1 0 0 0 0 fix=x",
                  .rigid = "% load_info H temperature all 50*x case=heat F force TOP 0 0 -1e5 case=push % "
                           "load_combination both 2*heat-0.5*push %",
                  .others = "set_info TOP box 0.4 1 0 0.2 0.1 0.1 %\n"}));
    analyse_and_look_again();
    ASSERT_EQ(result.sections.size(), 3u);
    EXPECT_GT(norm(minus(result.sections[2].carried.force, result.sections[0].carried.force)), 1e4);
    EXPECT_FALSE(frame_section(model, result, 3, options.sections[0])) << "there are three frames";
}

// Without points' stresses, in other analyses and from files, the nodes' averages are taken, and it is said.
TEST_F(Sections, OfAveragedStressesAreNotCalledExact) {
    const SectionPlane plane = plane_at({0.51, 0, 0}, {1, 0, 0});
    options.sections = {plane};
    options.log_folder = folder.file("log");
    ASSERT_TRUE(AnalysisTest::read(ModelText{.parts = rect("b", "1 0.2 0.1", "40 8 4"),
                                             .supports = "ROOT plane x 0 0 0 0 0 0",
                                             .rigid = "% load_info F force TIP 2e4 0 -2e4 %",
                                             .others = "set_info TIP plane x 1 %\n"}));
    analyse_and_look_again();
    const auto stored = read_result_file("log\\result_model.txt", options.log_folder, said);
    ASSERT_TRUE(stored) << said.errors;
    const auto of_file = frame_section(stored->model, stored->run, 0, plane);
    ASSERT_TRUE(of_file && !of_file->exact);
    EXPECT_NEAR(of_file->sum.carried.force[0], 2e4, 0.01 * 2e4);
    EXPECT_NEAR(of_file->sum.carried.moment[1], 2e4 * 0.49, 0.02 * 2e4 * 0.49);
    EXPECT_EQ(of_file->sum.loads.force, Vec3{});
    expect_done(analyse(analyse_nonlinear));
    const auto bent = frame_section(model, result, result.results.size() - 1, plane);
    ASSERT_TRUE(bent && !bent->exact);
    EXPECT_NEAR(bent->sum.carried.force[0], 2e4, 0.01 * 2e4);
    Frame torn = *result.results.back();
    for (std::int32_t e = 0; e < result.mesh.element_num(); ++e) torn.removed.push_back(e);
    result.results = {std::make_shared<const Frame>(torn)};
    EXPECT_EQ(frame_section(model, result, 0, plane)->sum.carried.force, Vec3{}) << "all elements are out";
}

// Bent far and beyond its yield stress the beam's moments are those about the displaced section.
TEST_F(Sections, BalanceTheDisplacedBodyOfANonlinearRun) {
    options.sections = {plane_at({0.45, 0.1, 0.05}, {1, 0.3, -0.2})};
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        ASSERT_TRUE(AnalysisTest::read(cantilever(kind, "F force TIP 0 1e5 -2e5")));
        model.mode_count = 2;
        model.materials[0].yield_stress = 1.2e8;
        model.materials[0].hardening = 5e10;
        expect_done(analyse(analyse_nonlinear));
        ASSERT_EQ(result.sections.size(), 2u);
        EXPECT_GT(result.report.nonlinear.increments[1].largest_displacement, 0.004);
        EXPECT_GT(result.report.nonlinear.increments[1].plastic_share, 0.01);
        for (const SectionSum& sum : result.sections) {
            const Resultant exact = loads_beyond(options.sections[0], sum.centre, 0.5 * (sum.frame + 1),
                                                 result.results[sum.frame]->mode_vec);
            expect_near(sum.carried, exact, 1e-6 * 2e5, 1e-6 * 2e5);
            expect_balance(sum, 1e-6 * 2e5, 1e-6 * 2e5);
        }
    }
}

// The elements' own forces across the plane are what the nodes' sums say, and leave the inertia of the side
// that is cut off.
TEST_F(Sections, OfAnExplicitRunLeaveTheInertiaOfWhatIsCutOff) {
    options.sections = {plane_at({0.45, 0.1, 0.05}, {1, 0.3, -0.2})};
    for (const auto& [kind, form] : every_form)
        for (const bool plastic : {false, true}) {
            options.hexahedra = form;
            read(cantilever(kind, "F force TIP 0 1e5 -3e5"),
                 "end_time 1e-3 output_frequency 20" +
                     std::string(plastic ? " Plastic on MATERIAL_EXTRA_INFO M 0 2e8 1e9 %" : ""));
            run();
            ASSERT_GT(result.sections.size(), 4u);
            double largest = 0;
            for (const SectionSum& sum : result.sections) {
                expect_balance(sum, 1e-6, 1e-6);
                expect_near(sum.parts.at(0).carried, sum.carried, 1e-4, 1e-4);
                largest = std::max(largest, norm(sum.inertia.force));
            }
            EXPECT_GT(largest, 1e4);
        }
}

// Two blocks that fly apart tear the neck between them: it carries until its elements are gone.
TEST_F(Sections, OfATornNeckCarryNothing) {
    options.sections = {plane_at({0.111, 0, 0}, {1, 0, 0})};
    options.mean_dilatation = true;  // of the elements that have yielded
    read(ModelText{.material = "7800 2e11 0.3",
                   .parts = rect("A", "0.1 0.04 0.04", "5 4 4") +
                            rect("N", "0.02 0.02 0.02", "4 2 2", "0.1 0.01 0.01") +
                            rect("B", "0.1 0.04 0.04", "5 4 4", "0.12 0 0")},
         "end_time 400e-6 output_frequency 10 Plastic on MATERIAL_EXTRA_INFO M 0 3e8 1e9 erode=0.2 % "
         "INITIAL_VELOCITY A part x -80 0 0 0 0 0 0 B part x 80 0 0 0 0 0 0 %");
    run();
    double largest = 0;
    for (const SectionSum& sum : result.sections) {
        ASSERT_EQ(sum.parts.size(), 1u);
        EXPECT_EQ(sum.parts[0].part, 1);
        expect_near(sum.parts[0].carried, sum.carried, 1e-3, 1e-4);
        expect_balance(sum, 1e-4, 1e-5);
        largest = std::max(largest, sum.carried.force[0]);
    }
    EXPECT_GT(largest, 3e8 * 4e-4) << "the yield stress on the neck's area";
    EXPECT_LT(norm(result.sections.back().carried.force), 1e-9 * largest);
}

// A free bar pulled at one end: of the force the share of the length that is cut off accelerates it, on the
// mean.
TEST_F(Sections, OfAFreeBarCarryTheirShareOfWhatAcceleratesIt) {
    options.sections = {plane_at({0.105, 0, 0}, {1, 0, 0})};  // through the middle of an element
    read(ModelText{.material = "8000 2e11 0",
                   .parts = rect("BAR", "0.2 0.02 0.02", "20 1 1"),
                   .forces = "pull area x 4000 0.2 0.2 0 0.02 0 0.02"},
         "end_time 4e-3 output_frequency 1");  // fifty times there and back
    run();
    double carried = 0, inertia = 0;
    for (const SectionSum& sum : result.sections) {
        carried += sum.carried.force[0] / static_cast<double>(result.sections.size());
        inertia += sum.inertia.force[0] / static_cast<double>(result.sections.size());
    }
    expect_figure("mean force", carried, 4000 * 0.105 / 0.2, 0.01);
    EXPECT_NEAR(inertia, carried, 1e-6);
}

}  // namespace
}  // namespace kestralum
