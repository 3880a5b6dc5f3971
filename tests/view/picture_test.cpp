// What is recomputed when.
#include "view/picture.h"

#include <gtest/gtest.h>

#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

class PictureOf : public ::testing::Test {
protected:
    PictureOf() {
        state.result_ready = true;
        state.contour = 1;
        results.resize(2, mesh.dof_num);
        for (std::size_t n = 0; n < static_cast<std::size_t>(mesh.node_num()); ++n)
            results.mode_vec[3 * n] = 0.5 * mesh.coordinates[3 * n];
    }
    SceneTables tables() const {
        return {.mesh = mesh,
                .results = results,
                .control = control,
                .ana_type = AnalysisType::linear_static,
                .parts = {},
                .parts_o = {},
                .forces = {},
                .rigid_elements = {},
                .rigid_forces = {},
                .walls = {},
                .contacts = {},
                .parameters = {},
                .fixed_nodes = {}};
    }
    // Which of faces, colours and shape have changed since the last call.
    std::string changed() {
        const std::array<std::uint64_t, 3> before = last;
        picture.update(tables(), state);
        last = {picture.faces_revision(), picture.color_revision(), picture.shape_revision()};
        std::string text;
        for (std::size_t k = 0; k < 3; ++k) text += last[k] != before[k] ? "fcs"[k] : '-';
        return text;
    }
    Mesh mesh = hexa_box({{2, 2, 2}, {2, 1, 1}});
    Results results;
    AnalysisControl control;
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
    state.result_ready = false;
    changed();
    EXPECT_FALSE(picture.contour());
    EXPECT_FALSE(picture.deformed());
    std::vector<double> places;
    picture.place(tables(), 0, places);
    EXPECT_EQ(places, mesh.coordinates);
}

}  // namespace
