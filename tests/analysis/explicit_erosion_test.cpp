// Elements that are taken out at a plastic strain: what their going costs, what it lays bare.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "model/removed_elements.h"
#include "model/topology.h"
#include "results/result_file.h"
#include "support/explicit_run.h"
#include "view/picture.h"

namespace kestralum {
namespace {

using testing::contains;
using testing::joined;
using testing::ModelText;
using testing::rect;

class ExplicitErosion : public testing::ExplicitTest {
protected:
    // Two blocks on a neck of half their width, in merged parts.
    const std::string bar = ModelText{.material = "7800 2e11 0.3",
                                      .parts = rect("A", "0.1 0.04 0.04", "5 4 4") +
                                               rect("N", "0.02 0.02 0.02", "4 2 2", "0.1 0.01 0.01") +
                                               rect("B", "0.1 0.04 0.04", "5 4 4", "0.12 0 0")};
    static std::string torn(const std::string& keys, double limit = 0.2) {
        return formatted(
                   "end_time 400e-6 output_frequency 10 Plastic on MATERIAL_EXTRA_INFO M 0 3e8 1e9 "
                   "erode=%g %% INITIAL_VELOCITY A part x -80 0 0 0 0 0 0 B part x 80 0 0 0 0 0 0 %% ",
                   limit) +
               keys;
    }
    std::int32_t bodies_left() const {
        Mesh live;
        live.coordinates = result.mesh.coordinates;
        live.element_type = result.mesh.element_type;
        for (std::int32_t e = 0; e < result.mesh.element_num(); ++e)
            if (!state->blocks->is_removed(e))
                live.connectivity.insert(live.connectivity.end(), result.mesh.element(e).begin(),
                                         result.mesh.element(e).end());
        const std::vector<std::int32_t> body = connected_nodes(live);
        std::vector<std::int32_t> lowest;
        for (const std::int32_t n : live.connectivity) lowest.push_back(body[n - 1]);
        std::ranges::sort(lowest);
        return static_cast<std::int32_t>(std::unique(lowest.begin(), lowest.end()) - lowest.begin());
    }
    // Elements of a part that are out.
    int gone_of(const std::string& part, double above = -1e300) const {
        int count = 0;
        for (std::int32_t e = 0; e < result.mesh.element_num(); ++e)
            count += state->blocks->is_removed(e) && model.parts[result.mesh.p_ele_part_id[e]].name == part &&
                     element_centre(result.mesh, e)[2] > above;
        return count;
    }
};

// A neck that is torn through: the halves fly apart, and no momentum and no energy is lost; with any step,
// form of elements and viscosity.
TEST_F(ExplicitErosion, ABarThatBreaksKeepsMomentumAndEnergy) {
    for (const std::string keys : {"", "d_time auto output_time 40e-6", "linear_viscosity 0.1"})
        for (const auto form : {HexahedronForm::full, HexahedronForm::mean_dilatation}) {
            read(bar, torn(keys));
            model.hexahedra = form;
            run();
            EXPECT_EQ(bodies_left(), 2) << keys;
            EXPECT_GT(gone_of("N"), 0);
            EXPECT_EQ(gone_of("N"), state->erosion->count()) << "the blocks stay whole";
            EXPECT_EQ(last("eroded_elements"), static_cast<double>(state->erosion->count()));
            EXPECT_GT(last("eroded"), 10) << "J";
            // where steps change their length the balance is one of second order
            EXPECT_LT(largest_drift(), keys.starts_with("d_time auto") ? 4e-4 : 1e-4) << keys;
            EXPECT_LT(most("momentum_x"), 1e-9 * 1.25 * 80);
            EXPECT_NEAR(report.total_mass, 7800 * (2 * 1.6e-4 + 8e-6), 1e-9);
            double left = 0, right = 0;  // momenta of the halves
            for (std::size_t k = 0; k < state->v.size(); k += 4)
                (state->X[k] < 0.11 ? left : right) += state->mass[k] * state->v[k];
            EXPECT_TRUE(left < -1.25 * 40 && right > 1.25 * 40) << left << " " << right;
            std::printf("    %2.0f elements, %.1f J, drift %.1e\n", last("eroded_elements"), last("eroded"),
                        largest_drift());
        }
    // what is not reached takes nothing out
    read(bar, torn("", 5));
    run();
    const std::vector<double> kept = result.results.back()->mode_vec;
    EXPECT_EQ(last("eroded_elements"), 0);
    std::string without = torn("", 5);
    without.replace(without.find("erode=5"), 7, "");
    read(bar, without);
    run();
    EXPECT_EQ(result.results.back()->mode_vec, kept);
    EXPECT_EQ(std::ranges::count(state->history.columns, "eroded"), 0);
}

// A cube goes through a plate of two layers: the second one is met when the first has gone.
TEST_F(ExplicitErosion, FacesLaidBareAreMet) {
    read(ModelText{.material = "7800 2e11 0.3 HARD 7800 2e11 0.3",
                   .parts = rect("PLATE", "0.06 0.06 0.004", "15 15 2") +
                            "CUBE red HARD RECT 0.02 0.02 0.02 0 0 0 3 3 3 0 0 0 0.021 0.019 0.0045 0 0 0\n",
                   .supports = "S plane x 0 0 0 0 0 0 T plane x 0.06 0.06 0 0 0 0"},
         "end_time 120e-6 output_frequency 50 Plastic on Element_contact on MATERIAL_EXTRA_INFO M 0 "
         "3e8 1e9 erode=0.3 % INITIAL_VELOCITY CUBE part z -300 0 0 0 0 0 0 % "
         "ELEMENT_CONTACT HIT CUBE PLATE 1 0 0 0 0 0 0 0 0 0 0 %");
    run();
    const int upper = gone_of("PLATE", 0.002), all = gone_of("PLATE");
    std::printf("    %d elements of the upper layer and %d of the lower one, drift %.1e\n", upper,
                all - upper, largest_drift());
    EXPECT_GE(upper, 12);
    EXPECT_GE(all - upper, 12);
    EXPECT_LT(largest_drift(), 0.01);
    // it is through, and slower by what the plate took
    EXPECT_LT(0.0045 + u(node_at(0.021, 0.019, 0.0045), 2), -0.004);
    EXPECT_LT(last("kinetic"), 0.99 * history(0, "kinetic"));
}

// Driven into itself a block would be turned inside out: what has no volume left goes, and the run goes on.
TEST_F(ExplicitErosion, WhatIsCrushedToNothingGoes) {
    const std::string block = ModelText{.material = "1000 1e7 0.3",
                                        .parts = rect("b", "0.1 0.1 0.1", "3 3 3"),
                                        .supports = "S plane z 0 0 0 0 0 0"};
    for (const bool erodes : {false, true}) {
        read(block, std::string("end_time 1.3e-3 d_time 1e-6 output_frequency 50 Plastic on "
                                "MATERIAL_EXTRA_INFO M 0 1e12 0 ") +
                        (erodes ? "erode=1 " : "") + "% VELOCITY_INPUT d plane z -100 0 0 0 0 0.1 0.1 %");
        ASSERT_TRUE(begin());
        run_to(state->time_num - 1);
        EXPECT_EQ(state->diverged, !erodes);
        if (!erodes) continue;
        EXPECT_GE(state->erosion->count(), 9) << "a layer at least";
        for (const double value : result.results.back()->mode_vec) ASSERT_TRUE(std::isfinite(value));
        for (const double value : result.results.back()->node_stress) ASSERT_TRUE(std::isfinite(value));
    }
}

// A block that is thrown apart faster than its waves run, of every kind of element: all go, what they took is
// what the nodes lost, and these fly on by themselves.
TEST_F(ExplicitErosion, ABlockThatIsThrownApartLosesAllItsElements) {
    for (const auto kind : testing::every_kind) {
        auto material = testing::steel;
        material.yield_stress = 3e8;
        material.hardening = 1e9;
        material.erode = 0.1;
        make(testing::box_mesh({{3, 2, 2}, {0.09, 0.04, 0.04}}, kind), material);
        model.control.plastic = true;
        model.control.linear_viscosity = 0.1;
        model.control.d_time = 1e-7;
        model.control.end_time = 1e-5;
        model.control.output_frequency = 10;
        ASSERT_TRUE(begin());
        for (std::size_t k = 0; k < state->v.size(); k += 4) state->v[k] = 4e4 * (state->X[k] - 0.045);
        state->velocities_known = false;
        store_frame(*job, *state);
        const double thrown = last("kinetic");
        run_to(state->time_num - 1);
        EXPECT_FALSE(state->diverged);
        EXPECT_EQ(last("eroded_elements"), result.mesh.element_num());
        EXPECT_NEAR(thrown - last("kinetic"), last("eroded") + last("viscous"), 2e-3 * last("eroded"));
        EXPECT_EQ(last("internal"), 0);
        EXPECT_EQ(last("kinetic"), history(rows() - 2, "kinetic"));
        EXPECT_GT(last("eroded"), 3e8 * 0.09 * 0.04 * 0.04 * 0.1);
        for (const float stress : result.results.back()->element_stress) ASSERT_EQ(stress, 0);
    }
}

// The frames of a bar that breaks tell what is out, in memory and in the file; the picture of the last one is
// the surface of two bodies, and files for ParaView have the cells of these.
TEST_F(ExplicitErosion, FramesTellWhatIsOutAndPicturesLeaveItOut) {
    read(bar, torn(""));
    options.vtu_frames = options.keep_frames = options.frames_on_disk = true;
    testing::expect_done(analyse(analyse_explicit));
    const std::string from_disk = file("result_model.txt");
    const auto stored = read_result_file("log\\frames_model.txt", options.log_folder, said);
    ASSERT_TRUE(stored) << said.errors;
    options.vtu_frames = options.keep_frames = options.frames_on_disk = false;
    const RunReport done = analyse(analyse_explicit);
    EXPECT_EQ(file("result_model.txt"), from_disk);
    ASSERT_EQ(stored->run.mode_num(), result.mode_num());
    const std::int32_t elements = result.mesh.element_num();
    for (std::size_t k = 0; k < result.results.size(); ++k) {
        const std::vector<std::int32_t>& removed = frame(k).removed;
        EXPECT_EQ(stored->run.results[k]->removed, removed);
        EXPECT_EQ(static_cast<double>(removed.size()), result.history.value(k, "eroded_elements"));
        EXPECT_TRUE(std::ranges::includes(frame(k + 1 < result.results.size() ? k + 1 : k).removed, removed));
        EXPECT_TRUE(contains(file(formatted("model_%06zu.vtu", k + 1)),
                             formatted("NumberOfCells=\"%zu\"", elements - removed.size())));
    }
    ASSERT_GT(frame(result.results.size() - 1).removed.size(), 0u);
    EXPECT_TRUE(frame(0).removed.empty());

    view::DisplayState display;
    display.result_ready = true;
    view::Picture picture;
    for (const std::size_t k : {std::size_t{0}, result.results.size() - 1}) {
        display.frame = static_cast<std::int32_t>(k) + 1;
        picture.update({model, &result, {}, {}}, display);
        const view::Surface& drawn = picture.outside();
        const auto gone = static_cast<double>(frame(k).removed.size());
        double volume = 0;
        Mesh skin;  // of the triangles, as tetrahedra that come to a point in their first corner
        skin.element_type = ElementKind::tetrahedron4;
        skin.coordinates = result.mesh.coordinates;
        for (std::int64_t t = 0; t < drawn.triangle_num(); ++t) {
            const std::int32_t* n = &drawn.triangles[3 * t];
            volume += dot(place_of(result.mesh, n[0]),
                          cross(place_of(result.mesh, n[1]), place_of(result.mesh, n[2]))) /
                      6;
            for (const int corner : {0, 1, 2, 0}) skin.connectivity.push_back(n[corner] + 1);
        }
        EXPECT_NEAR(volume, 2 * 1.6e-4 + 8e-6 - gone * 5e-7, 1e-12) << "each of the neck has 5e-7 m^3";
        const std::vector<std::int32_t> body = connected_nodes(skin);
        std::vector<std::int32_t> lowest;
        for (const std::int32_t n : skin.connectivity) lowest.push_back(body[node_index(n)]);
        std::ranges::sort(lowest);
        EXPECT_EQ(std::unique(lowest.begin(), lowest.end()) - lowest.begin(), k == 0 ? 1 : 2);
        const std::vector<char> bare = bare_nodes(result.mesh, frame(k).removed);
        for (const std::int32_t n : drawn.nodes) EXPECT_TRUE(bare.empty() || !bare[n]);
        ASSERT_TRUE(picture.range());
    }
    const std::vector<char> bare = bare_nodes(result.mesh, result.results.back()->removed);
    EXPECT_FALSE(bare[node_index(done.largest_displacement.node)]);
}

// A node that flies on by itself is not where the body moves most, unless there is no body.
TEST_F(ExplicitErosion, TheLargestValuesAreThoseOfNodesWithElements) {
    make(testing::box_mesh({{2, 1, 1}, {0.2, 0.1, 0.1}}, ElementKind::hexahedron), testing::steel);
    ASSERT_TRUE(begin());
    Frame frame(result.mesh.dof_num());
    const std::size_t lost = AnalysisTest::node_at(0, 0, 0), kept = AnalysisTest::node_at(0.2, 0, 0);
    const std::size_t mises = 4 * frame.mode_vec.size();
    frame.mode_vec[3 * lost] = frame.node_stress[mises + 3 * lost] = 5;
    frame.mode_vec[3 * kept] = frame.node_stress[mises + 3 * kept] = 2;
    const std::int32_t first = element_centre(result.mesh, 0)[0] < 0.1 ? 0 : 1;
    for (const auto& [removed, largest] :
         {std::pair{std::vector<std::int32_t>{}, 5.0}, {{first}, 2.0}, {{0, 1}, 5.0}}) {
        frame.removed = removed;
        report_largest(*job, frame);
        EXPECT_EQ(report.largest_displacement.value, largest);
        EXPECT_EQ(report.largest_mises.value, largest);
    }
}

TEST_F(ExplicitErosion, TheLimitIsReadAndWhatCannotErodeIsSaid) {
    const std::string block = ModelText{.parts = rect("b", "0.1 0.1 0.1", "1 1 1")};
    read(block, "end_time 1e-6 MATERIAL_EXTRA_INFO M 0 3e8 0 erode=0.1+0.1 %");
    EXPECT_EQ(model.materials[0].erode, 0.2);
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(report.remarks.notices, "material M: erode= counts plastic strain, and it has none"))
        << joined(report.remarks.notices);
    folder.write("model.ana", "x explicit MATERIAL_EXTRA_INFO M 0 3e8 0 erode=0 % END");
    const AnalysisInfoReport refused = read_analysis_info_file(model, said);
    EXPECT_TRUE(contains(refused.remarks.errors, "a plastic strain above 0"))
        << joined(refused.remarks.errors);
}

}  // namespace
}  // namespace kestralum
