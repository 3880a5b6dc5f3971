// What is recomputed when.
#include "view/picture.h"

#include <gtest/gtest.h>

#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

struct PictureOf : ::testing::Test {
    PictureOf() {
        state.result_ready = true;
        state.contour = 1;
        run.mesh = model.mesh = hexa_box({{2, 2, 2}, {2, 1, 1}});
        run.ana_type = AnalysisType::linear_static;
        Frame frame(run.mesh.dof_num());
        for (std::int32_t n = 0; n < run.mesh.node_num(); ++n)
            frame.mode_vec[3 * n] = 0.5 * run.mesh.node(n)[0];
        run.results.assign(2, std::make_shared<const Frame>(frame));
    }
    // Which of faces, colours and shape have changed since the last call.
    std::string changed() {
        const std::array<std::uint64_t, 3> before = last;
        picture.update(tables, state);
        last = {picture.faces_revision(), picture.color_revision(), picture.shape_revision()};
        std::string text;
        for (std::size_t k = 0; k < 3; ++k) text += last[k] != before[k] ? "fcs"[k] : '-';
        return text;
    }
    Model model;
    kestralum::Run run;
    SceneTables tables{model, &run, {}, {}};
    DisplayState state;
    Picture picture;
    std::array<std::uint64_t, 3> last{};
};

TEST_F(PictureOf, RecomputesWhatDependsOnTheChange) {
    EXPECT_EQ(changed(), "fcs");
    EXPECT_EQ(changed(), "---");
    state.phase = 7;
    state.light = {9, 9, 9};
    EXPECT_EQ(changed(), "---");
    state.contour = 2;
    EXPECT_EQ(changed(), "-c-");
    state.mode_scale = 3;
    EXPECT_EQ(changed(), "--s");
    state.frame = 2;
    EXPECT_EQ(changed(), "-cs");
    state.all_frames_range = true;
    EXPECT_EQ(changed(), "-c-");
    state.transparency = 0.5;
    EXPECT_EQ(changed(), "fcs");
    EXPECT_TRUE(picture.translucent());
    EXPECT_GT(picture.faces().triangle_num(), picture.outside().triangle_num());
    state.contour = 17;  // lit parts are opaque
    EXPECT_EQ(changed(), "fcs");
    EXPECT_FALSE(picture.translucent());
    picture.results_changed();
    EXPECT_EQ(changed(), "-cs");
    picture.mesh_changed();
    EXPECT_EQ(changed(), "fcs");
}

TEST_F(PictureOf, ShowsNoValuesWithoutResults) {
    changed();
    ASSERT_TRUE(picture.contour());
    EXPECT_EQ(picture.range()->high.value, 1);
    EXPECT_TRUE(picture.deformed());
    run.results.clear();  // the frame shown stays until the picture is brought up to date
    EXPECT_EQ(picture.vector()[3], 0.5);
    for (const bool ready : {true, false}) {  // no frames; a model that no run belongs to
        state.result_ready = ready;
        SceneTables alone{model, ready ? &run : nullptr, {}, {}};
        picture.results_changed();
        picture.update(alone, state);
        EXPECT_FALSE(picture.contour());
        EXPECT_FALSE(picture.deformed());
        std::vector<double> places;
        picture.place(alone, 0, places);
        EXPECT_EQ(places, model.mesh.coordinates);
    }
}

}  // namespace
