// What is recomputed when, and how a model is fitted into the room that the texts leave.
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
                .ana_type = type,
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
    AnalysisType type = AnalysisType::linear_static;
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

// The nearest distance at which every point lies within nine tenths of the room, and in its middle.
TEST(CameraFit, FillsTheRoomBesideTheTexts) {
    const Mesh mesh = hexa_box({{3, 2, 1}, {3, 1, 0.5}, [](double* x) { x[1] += 0.3 * x[0] * x[0]; }});
    const Scene scene{mesh.size_info, mesh.max_length};
    for (const ViewDirection direction :
         {ViewDirection::x, ViewDirection::y, ViewDirection::z, ViewDirection::isometric})
        for (const Margins& margins : {Margins{}, Margins{0, 250, 0, 60}, Margins{100, 0, 80, 0}}) {
            Camera camera;
            resize(camera, 800, 600);
            look_from(camera, direction);
            fit_points(camera, scene, mesh.coordinates, margins);
            double low[2] = {1e9, 1e9}, high[2] = {-1e9, -1e9};
            for (std::int64_t n = 0; n < mesh.node_num(); ++n) {
                const auto at = project(camera, scene, triple(mesh.coordinates, n));
                ASSERT_TRUE(at);
                for (std::size_t a = 0; a < 2; ++a) {
                    low[a] = std::min(low[a], (*at)[a]);
                    high[a] = std::max(high[a], (*at)[a]);
                }
            }
            const double room[2] = {800 - margins.left - margins.right, 600 - margins.top - margins.bottom};
            const double middle[2] = {margins.left + room[0] / 2, margins.top + room[1] / 2};
            double filled = 0;
            for (std::size_t a = 0; a < 2; ++a) {
                // where a side has room to spare the points' nearer end counts a little more
                EXPECT_GE(low[a], middle[a] - 0.45 * room[a] - 1e-6);
                EXPECT_LE(high[a], middle[a] + 0.45 * room[a] + 1e-6);
                filled = std::max(filled, (high[a] - low[a]) / room[a]);
            }
            EXPECT_NEAR(filled, 0.9, 1e-6);
        }
}

TEST(CameraFit, IgnoresMarginsThatLeaveNothing) {
    const Mesh mesh = hexa_box({{1, 1, 1}, {1, 1, 1}});
    const Scene scene{mesh.size_info, mesh.max_length};
    Camera plain, squeezed;
    for (Camera* camera : {&plain, &squeezed}) resize(*camera, 200, 100);
    fit_points(plain, scene, mesh.coordinates);
    fit_points(squeezed, scene, mesh.coordinates, {0, 190, 60, 30});
    EXPECT_EQ(squeezed.shift, plain.shift);
    const Vec3 before = plain.shift;
    fit_points(plain, scene, {});
    EXPECT_EQ(plain.shift, before) << "nothing to fit";
}

}  // namespace
