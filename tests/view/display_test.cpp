// Scales of colour, units, factors, planes under the mouse, glyphs; what the picture makes of them.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "support/box_mesh.h"
#include "support/near.h"
#include "view/aim.h"
#include "view/deformation.h"
#include "view/glyphs.h"
#include "view/legend.h"
#include "view/picture.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

TEST(Scale, HasItsBandsEndsAndColoursOutside) {
    for (const Palette palette : {Palette::rainbow, Palette::perceptual, Palette::diverging}) {
        ColorScale scale{palette, 7};
        std::set<Color> colors;
        for (int k = 0; k <= 700; ++k) colors.insert(scale_color(scale, k / 700.0, 1));
        EXPECT_EQ(colors.size(), 7u);
        const ColorScale smooth{palette};
        EXPECT_EQ(scale_color(scale, 0, 1), scale_color(smooth, 0, 1));
        EXPECT_EQ(scale_color(scale, 1, 1), scale_color(smooth, 1, 1));
        EXPECT_EQ(scale_color(scale, -5, 1), scale_color(scale, 0, 1));
        scale.mark_outside = true;
        EXPECT_FALSE(colors.contains(scale_color(scale, 1.01, 1)) ||
                     colors.contains(scale_color(scale, -0.01, 1)));
        const auto texels = scale_texels(scale);
        const auto third = texels.size() / 3;
        EXPECT_EQ(std::set(texels.begin() + third, texels.end() - third).size(), 7u);
        EXPECT_EQ(std::set(texels.begin(), texels.begin() + third).size(), 1u);
    }
    // lightness of the perceptual palette grows, of the diverging one it is largest in the middle
    const auto light = [](Palette palette, double v) {
        const Color c = scale_color({palette}, v, 1);
        return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];  // relative luminance, Rec. 709
    };
    for (double v = 0.05; v <= 1.001; v += 0.05) {
        EXPECT_GT(light(Palette::perceptual, v), light(Palette::perceptual, v - 0.05));
        EXPECT_LT(light(Palette::diverging, v), light(Palette::diverging, 0.5) + 1e-12);
    }
}

TEST(Scale, TicksAreRoundAndInside) {
    EXPECT_EQ(round_values(0, 10, 5), (std::vector<double>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(round_values(-0.013, 0.012, 5), (std::vector<double>{-0.01, -0.005, 0, 0.005, 0.01}));
    EXPECT_EQ(round_values(3, 3, 5), std::vector<double>{3});
    for (const auto& [low, high] : {std::pair{1e-12, 7.3e-12}, {-2e8, 3.1e9}, {1e300, 1.5e300}}) {
        const auto values = round_values(low, high, 8);
        EXPECT_TRUE(values.size() >= 4 && values.size() <= 12) << low;
        for (const double v : values) EXPECT_TRUE(v >= low - 1e-9 * std::abs(low) && v <= high * (1 + 1e-9));
    }
    BarStyle style{{}, {StressUnit::megapascal, LengthUnit::millimetre}, std::array{0.0, 4e6}};
    style.scale.bands = 20;
    const ContourBar bar = contour_bar(4, AnalysisType::linear_static, {{1e6, 3, 0}, {5e6, 7, 0}}, style);
    EXPECT_EQ(bar.title + bar.largest + bar.ticks.back().text,
              "Mises Stress [MPa]Max 5.000e+00 Node:74.000e+00");
    EXPECT_EQ(bar.colors.size(), 20u);
    EXPECT_EQ(bar.ticks.size(), 11u);
    EXPECT_EQ(contour_bar(0, AnalysisType::linear_static, {{0, 1, 0}, {1e-3, 2, 0}}, style).largest,
              "Max 1.000e+00 Node:2");
    EXPECT_EQ(contour_bar(0, AnalysisType::eigen, {{0, 1, 0}, {1e-3, 2, 0}}, style).title,
              "Displacement Mag. [mode amplitude]");
    EXPECT_EQ(shown_unit("m/s^2", style.units).text, "mm/s^2");
}

TEST(DeformationFactor, IsFixedOrOfAllSteps) {
    const std::vector<double> u{0, 3e-4, 4e-4};
    ScaleRule rule{2, 1.5, true, Deformation::fixed, 7};
    for (const auto type :
         {AnalysisType::eigen, AnalysisType::linear_static, AnalysisType::explicit_dynamics})
        EXPECT_EQ(scale_factor(type, u, rule), 7);
    rule.deformation = Deformation::automatic;
    rule.largest_of_steps = 1e-3;
    EXPECT_DOUBLE_EQ(scale_factor(AnalysisType::nonlinear_static, u, rule), 1.5 * 0.2 / 1e-3);
    rule.largest_of_steps = 0.1;
    EXPECT_EQ(scale_factor(AnalysisType::nonlinear_static, u, rule), 1.5) << "seen as it is";
    EXPECT_DOUBLE_EQ(scale_factor(AnalysisType::linear_static, u, {2}), 0.2 / 5e-4);
}

// Where the plane's point is drawn goes with the mouse, as far as the normal lets it.
TEST(Aim, ThePlaneFollowsTheMouse) {
    const Scene scene{{0, 0, 0, 1, 0.5, 0.4}, 1};
    Camera camera;
    resize(camera, 800, 600);
    look_from(camera, ViewDirection::isometric);
    ShownSection section{scene.centre(), {1, 0, 0}, true};
    const Vec3 before = *project(camera, scene, section.point);
    const Vec3 ahead = *project(camera, scene, plus(section.point, {1e-4, 0, 0}));
    const double dx = 4e4 * (ahead[0] - before[0]) / 1e3, dy = 4e4 * (ahead[1] - before[1]) / 1e3;
    const double along = drag_along(camera, scene, section.point, section.normal, dx, dy);
    move_to(section, dot(section.normal, section.point) + along);
    const Vec3 after = *project(camera, scene, section.point);
    EXPECT_NEAR(after[0] - before[0], dx, 0.02 * std::hypot(dx, dy));
    EXPECT_NEAR(after[1] - before[1], dy, 0.02 * std::hypot(dx, dy));
    look_from(camera, ViewDirection::x);
    EXPECT_GT(drag_along(camera, scene, section.point, section.normal, 0, -10), 0)
        << "up, towards the viewer";
    centre_on(camera, {0.9, 0.1, 0.3}, scene);
    const Vec3 centred = *project(camera, scene, {0.9, 0.1, 0.3});
    EXPECT_NEAR(centred[0], 400, 1e-9);
    EXPECT_NEAR(centred[1], 300, 1e-9);
    EXPECT_EQ(reach_along(scene, {0, -1, 0}), (std::array{-0.5, -0.0}));
    const auto through = section_through({{{0, 0, 0.2}, {1, 0, 0.2}, {0, 1, 0.2}}});
    ASSERT_TRUE(through);
    expect_near(through->normal, {0, 0, 1});
    EXPECT_FALSE(section_through({{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}}));
    const SectionFrame frame = section_frame(scene, {scene.centre(), unit({1, 1, 1}), true});
    EXPECT_EQ(frame.rim.size(), 6u) << "a hexagon through the middle";
    for (const Line& line : frame.rim)
        EXPECT_NEAR(dot(minus(line.from, scene.centre()), {1, 1, 1}), 0, 1e-12);
}

// A bar under tension σ along x, turned in its picture by nothing; u = 1e-3 x.
struct Bar : ::testing::Test {
    Bar() {
        model.materials.resize(1);
        model.parts.resize(1);
        run.mesh = box_mesh({{4, 1, 1}, {4, 1, 1}}, ElementKind::hexahedron);
        run.mesh.size_info = {0, 0, 0, 4, 1, 1};
        run.mesh.max_length = 4;
        run.mesh.p_ele_part_id.assign(4, 0);
        run.ana_type = AnalysisType::linear_static;
        Frame frame(run.mesh.dof_num());
        for (std::int32_t n = 0; n < run.mesh.node_num(); ++n) {
            const double x = run.mesh.node(n)[0];
            frame.mode_vec[3 * n] = 1e-3 * x;
            frame.node_stress[3 * n] = x < 1.5 ? -1e6 * x : 2e6;
            frame.node_stress[4 * frame.mode_vec.size() + 3 * n] = std::abs(frame.node_stress[3 * n]);
        }
        run.results.push_back(std::make_shared<const Frame>(frame));
        state.result_ready = true;
        state.contour = 5;
    }
    void update() { picture.update(tables, state); }
    Model model;
    kestralum::Run run;
    SceneTables tables{model, &run, {}, {}};
    DisplayState state;
    Picture picture;
};

TEST_F(Bar, RangesFurtherQuantitiesAndDifferences) {
    update();
    EXPECT_EQ(picture.color_ends(state.scale), (std::array{-1e6, 2e6}));
    state.scale.range = RangeKind::symmetric;
    EXPECT_EQ(picture.color_ends(state.scale), (std::array{-2e6, 2e6}));
    state.scale = {.range = RangeKind::fixed, .low = 1, .high = 2};
    EXPECT_EQ(picture.color_ends(state.scale), (std::array{1.0, 2.0}));
    state.further = 102;  // the largest principal stress
    update();
    EXPECT_EQ(picture.range()->low.value, 0);
    EXPECT_EQ(picture.range()->high.value, 2e6);
    state.further = 104;
    update();
    EXPECT_EQ(picture.range()->low.value, -1e6);
    state.further = 0;
    // the other run has its nodes in the opposite order
    Subtracted other{std::make_shared<Model>(model), nullptr, nullptr, {}, node_materials(model, run.mesh)};
    auto reversed = std::make_shared<kestralum::Run>(run);
    Frame frame = *run.results[0];
    const std::int32_t last = run.mesh.node_num() - 1;
    for (std::int32_t n = 0; n <= last; ++n) {
        other.node_of.push_back(last - n);
        for (std::size_t g = 0; g < stress_groups; ++g)
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t at = g * frame.mode_vec.size() + c;
                frame.node_stress[at + 3 * (last - n)] = 0.75 * run.results[0]->node_stress[at + 3 * n];
            }
    }
    other.run = reversed;
    other.frame = std::make_shared<const Frame>(frame);
    tables.minus = &other;
    picture.results_changed();
    update();
    EXPECT_DOUBLE_EQ(picture.range()->high.value, 0.5e6);
    tables.minus = nullptr;
    state.look.element_values = true;
    tables.element_stress = [&](const Frame&) {
        std::vector<double> table(stress_groups * 12, 0.0);
        for (std::size_t e = 0; e < 4; ++e) table[3 * e] = double(e);
        return table;
    };
    picture.results_changed();
    update();
    EXPECT_EQ(picture.element_values(), (std::vector<double>{0, 1, 2, 3}));
    EXPECT_TRUE(picture.range()->high.of_element && picture.range()->high.node == 4);
}

TEST_F(Bar, CutsMoveFacesNotRangesAndFollowTheFrame) {
    update();
    const auto faces = picture.faces_revision();
    const ValueRange whole = *picture.range();
    state.sections = {{{1.3, 0, 0}, {1, 0, 0}, true}};
    update();
    EXPECT_GT(picture.faces_revision(), faces);
    EXPECT_EQ(picture.range()->high.value, whole.high.value) << "of the whole body";
    std::vector<double> places;
    picture.place(tables, 0, places);
    EXPECT_EQ(places.size(), 3 * (run.mesh.node_num() + picture.further().size()));
    EXPECT_EQ(picture.vertex_values().size(), places.size() / 3);
    const double factor = picture.factor();
    for (std::size_t v = 0; v < picture.further().size(); ++v)
        EXPECT_NEAR(places[3 * (run.mesh.node_num() + v)], 1.3 * (1 + 1e-3 * factor), 1e-9);
    const auto cut = picture.faces_revision();
    state.threshold.above = 5e5;
    state.sections[0].on = false;
    update();
    EXPECT_GT(picture.faces_revision(), cut);
    for (const std::int32_t n : picture.outside().nodes) EXPECT_LT(run.mesh.node(n)[0], 1.6);
    state.threshold = {};
    update();
    EXPECT_FALSE(picture.trimmed());
    EXPECT_EQ(picture.outside().triangle_num(), picture.whole().triangle_num());
}

TEST_F(Bar, GlyphsHaveTheirDirectionsAndLengths) {
    std::vector<std::int32_t> nodes(run.mesh.node_num());
    for (std::int32_t n = 0; n < run.mesh.node_num(); ++n) nodes[n] = n;
    const std::vector<std::int32_t> material = node_materials(model, run.mesh);
    const FieldBase base{model, material};
    GlyphRequest request{run.mesh, *run.results[0], base, nodes, run.mesh.coordinates, Glyphs::principal};
    const GlyphSigns stresses = glyph_signs(request);
    EXPECT_EQ(stresses.longest, 2e6);
    double longest = 0;
    for (const Line& line : stresses.lines) {
        const Vec3 along = minus(line.to, line.from);
        EXPECT_NEAR(along[1], 0, 1e-12);
        longest = std::max(longest, norm(along));
        const bool tension = middle(std::array{line.from, line.to})[0] > 1.5;
        EXPECT_EQ(line.color[0] > line.color[2], tension);
    }
    EXPECT_NEAR(longest, 2 * 0.08 * 4, 1e-12);
    request.what = Glyphs::displacement;
    request.scale = 2;
    const GlyphSigns arrows = glyph_signs(request);
    EXPECT_DOUBLE_EQ(arrows.longest, 4e-3);
    double farthest = 0;
    for (const Arrow& arrow : arrows.arrows)
        farthest = std::max(farthest, norm(minus(arrow.tip, arrow.tail)));
    EXPECT_NEAR(farthest, 2 * 0.1 * 4, 1e-12);
    request.what = Glyphs::velocity;
    EXPECT_TRUE(glyph_signs(request).arrows.empty()) << "of a static frame";
}

}  // namespace
