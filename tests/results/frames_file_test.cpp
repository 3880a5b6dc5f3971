// Frames files: what comes back of them, whole, torn, damaged and on a full disk.
#include "results/frames_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <random>
#include <span>

#include "full_run.h"
#include "model/format.h"
#include "results/displacement_file.h"
#include "results/vtu_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Frames : ::testing::TestWithParam<ElementKind> {
    TempFolder folder;
    std::string log = folder.file("log");
    StoredRun made;
    std::vector<std::uint64_t> ends;  // of the file after each frame, bytes

    // A file of three frames with a history of two columns; its bytes.
    std::string write(ElementKind kind = ElementKind::tetrahedron4) {
        made = full_run(folder, kind, 3, {1, 1, 1});
        made.run.ana_type = AnalysisType::explicit_dynamics;
        made.run.history = {{"time", "kinetic"}, {0, 1.0 / 3, 1e-7, -2e300, 2e-7, 5e-324}};
        FramesWriter writer;
        writer.begin(made.model, made.run);
        ends = {writer.end().bytes};
        for (std::size_t k = 0; k < 3; ++k) {
            writer.add(*made.run.results[k], std::span(made.run.history.values).subspan(2 * k, 2),
                       static_cast<std::int64_t>(k) + 1);
            ends.push_back(writer.end().bytes);
        }
        EXPECT_EQ(writer.trouble(), "");
        return read_file(folder.file("log/frames_full.txt"));
    }
    // Reads these bytes as the window does: the frames found, -1 where the file was refused with one line.
    int frames_in(const std::string& bytes, Collected& said) {
        said.clear();
        folder.write("log/f.txt", bytes);
        const auto stored = read_result_file("log\\f.txt", log, said);
        EXPECT_EQ(lines_of(said.errors).size(), stored ? 0u : 1u) << said.errors;
        for (int k = 0; stored && k < stored->run.mode_num(); ++k) {
            EXPECT_EQ(stored->run.results[k]->mode_vec, made.run.results[k]->mode_vec);
            EXPECT_EQ(stored->run.results[k]->node_stress, made.run.results[k]->node_stress);
        }
        return stored ? stored->run.mode_num() : -1;
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, Frames,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4,
                                           ElementKind::tetrahedron10));

TEST_P(Frames, GiveTheFilesThatTheRunItselfWouldWrite) {
    write(GetParam());
    Collected said;
    auto stored = read_frames_file("log\\frames_full.txt", log, said);
    ASSERT_TRUE(stored) << said.errors;
    EXPECT_EQ(said.errors + said.notices, "");
    EXPECT_EQ(stored->run.history.values, made.run.history.values);
    EXPECT_EQ(stored->run.results[1]->n_freq, made.run.results[1]->n_freq);
    stored->model.model_file_name = "data\\again.txt";
    EXPECT_EQ(written(*stored, folder, "again.txt"), written(made, folder));
    ASSERT_TRUE(write_displacements(stored->model, stored->run, said) &&
                write_displacements(made.model, made.run, said));
    EXPECT_EQ(read_file(folder.file("log/disp_again.txt")), read_file(folder.file("log/disp_full.txt")));
    ASSERT_TRUE(write_vtu_frames(stored->model, stored->run, said) &&
                write_vtu_frames(made.model, made.run, said));
    EXPECT_EQ(read_file(folder.file("log/again_000002.vtu")), read_file(folder.file("log/full_000002.vtu")))
        << "places, facets and results to the last bit";
}

TEST_F(Frames, OfAPartOfAnyShapeAreRead) {
    for (const Shape shape : {Shape::rect, Shape::inp, Shape::step, Shape::surf_rect, Shape::hole_halfcyli}) {
        StoredRun stored = full_run(folder, ElementKind::hexahedron, 1, {1, 1, 1});
        stored.model.parts[0].type = shape;
        written(stored, folder);
        EXPECT_EQ(read_back(folder).model.parts.at(0).type, shape);
    }
}

TEST_F(Frames, CutAnywhereLeaveTheWholeFramesBefore) {
    const std::string bytes = write();
    Collected said;
    for (std::size_t size = 0; size < bytes.size(); size += size < ends[0] ? 97 : 31) {
        const auto whole = std::ranges::upper_bound(ends, size) - ends.begin() - 1;
        ASSERT_EQ(frames_in(bytes.substr(0, size), said), whole > 0 ? whole : -1) << size;
        const bool torn = std::ranges::find(ends, size) == ends.end();
        EXPECT_EQ(contains(said.notices, "is not whole"), whole > 0 && torn) << size;
    }
    EXPECT_EQ(frames_in(bytes, said), 3);
    EXPECT_EQ(frames_in(bytes.substr(0, ends[2]), said), 2);
    EXPECT_EQ(said.notices, "") << "a file that ends behind a frame is whole";
}

TEST_F(Frames, ABitThatTurnedEndsTheFileBeforeItsFrame) {
    const std::string bytes = write();
    Collected said;
    for (std::size_t at = 24; at < bytes.size(); at += at < ends[0] ? 211 : 37) {
        std::string turned = bytes;
        turned[at] = static_cast<char>(turned[at] ^ (1 << (at % 8)));
        const auto before = std::ranges::upper_bound(ends, at) - ends.begin() - 1;
        ASSERT_EQ(frames_in(turned, said), before > 0 ? before : -1) << at;
    }
    // frames in another order are not this run's
    const std::string first = bytes.substr(ends[0], ends[1] - ends[0]);
    EXPECT_EQ(frames_in(bytes.substr(0, ends[0]) + first + first, said), 1);
    EXPECT_EQ(frames_in(replaced(bytes, "frames\x01", "frames\x02"), said), -1) << "no word of elements";
    EXPECT_EQ(frames_in(replaced(bytes, "frames\x01", "frames\x04"), said), -1);
    EXPECT_TRUE(contains(said.errors, "form 4")) << said.errors;
}

// Reactions, motions and the elements' means follow the stresses where the run's frames have them; what the
// file says of its tables is what it has.
TEST_P(Frames, CarryReactionsMotionsAndMeans) {
    write(GetParam());
    std::mt19937 random(3);
    std::normal_distribution<double> number;
    const std::size_t dofs = made.run.mesh.dof_num();
    for (auto& each : made.run.results) {
        Frame frame = *each;
        for (std::size_t d = 0; d < dofs; ++d) {
            frame.reaction.push_back(number(random));
            frame.velocity.push_back(static_cast<float>(number(random)));
            frame.acceleration.push_back(static_cast<float>(number(random)));
        }
        for (int k = 0; k < 6 * made.run.mesh.element_num(); ++k)
            frame.element_stress.push_back(static_cast<float>(number(random)));
        frame.element_plastic.assign(made.run.mesh.element_num(), 0.25F);
        each = std::make_shared<const Frame>(std::move(frame));
    }
    for (const bool erodes : {false, true}) {
        made.run.erodes = erodes;
        FramesWriter writer;
        writer.begin(made.model, made.run);
        const auto store = open_frame_store(made.model.model_file_name, made.run, 2);
        const std::size_t start = writer.end().bytes;
        for (std::size_t k = 0; k < 3; ++k)
            writer.add(*made.run.results[k], std::span(made.run.history.values).subspan(2 * k, 2),
                       static_cast<int>(k) + 1);
        std::string bytes = read_file(folder.file("log/frames_full.txt"));
        EXPECT_GE((bytes.size() - start) / 3, 8 * (2 + 2 + dofs * 6) + dofs * (8 + 4 + 4));
        Collected said;
        ASSERT_EQ(frames_in(bytes, said), 3);
        const auto stored = read_frames_file("log\\f.txt", log, said);
        EXPECT_EQ(stored->run.erodes, erodes);
        for (std::size_t k = 0; k < 3; ++k) {
            const Frame &got = *stored->run.results[k], &exact = *made.run.results[k];
            EXPECT_EQ(got.reaction, exact.reaction);
            EXPECT_EQ(got.velocity, exact.velocity);
            EXPECT_EQ(got.acceleration, exact.acceleration);
            EXPECT_EQ(got.element_stress, exact.element_stress);
            EXPECT_EQ(got.element_plastic, exact.element_plastic);
            std::vector<double> u(dofs);
            ASSERT_TRUE(store && store->read(k, 0, u));
            EXPECT_EQ(u, exact.mode_vec);
            const auto whole = store->whole(k);
            ASSERT_TRUE(whole);
            EXPECT_EQ(whole->n_freq, exact.n_freq);
            EXPECT_EQ(whole->node_stress, exact.node_stress);
            EXPECT_EQ(whole->reaction, exact.reaction);
            EXPECT_EQ(whole->acceleration, exact.acceleration);
            EXPECT_EQ(whole->element_plastic, exact.element_plastic);
        }
        EXPECT_FALSE(store->whole(3)) << "there are three";
        EXPECT_EQ(frames_in(bytes.substr(0, bytes.size() - 9), said), 2) << "torn in the last table";
        bytes[20] = static_cast<char>(bytes[20] ^ 2);
        EXPECT_EQ(frames_in(bytes, said), -1) << "a table that is not there";
        bytes[20] = 64;
        EXPECT_EQ(frames_in(bytes, said), -1);
        EXPECT_TRUE(contains(said.errors, "tables that this program does not know")) << said.errors;
    }
}

// Each frame of a run that may lose elements tells which; the cells for ParaView are those that are left.
TEST_P(Frames, TellWhichElementsAreOut) {
    write(GetParam());
    const std::string plain = read_file(folder.file("log/frames_full.txt"));
    made.run.erodes = true;
    const std::int32_t elements = made.run.mesh.element_num();
    std::vector<std::int32_t> every(elements);
    std::iota(every.begin(), every.end(), 0);
    const std::vector<std::int32_t> lost[]{{}, {elements - 1}, every};
    for (std::size_t k = 0; k < 3; ++k) {
        Frame frame = *made.run.results[k];
        frame.removed = lost[k];
        made.run.results[k] = std::make_shared<const Frame>(std::move(frame));
    }
    const auto row = [&](std::size_t k) { return std::span(made.run.history.values).subspan(2 * k, 2); };
    FramesWriter writer;
    writer.begin(made.model, made.run);
    const auto store = open_frame_store(made.model.model_file_name, made.run, 2);
    ASSERT_TRUE(store);
    writer.add(*made.run.results[0], row(0), 1);
    const FramesEnd first = writer.end();
    for (std::size_t k = 1; k < 3; ++k) writer.add(*made.run.results[k], row(k), static_cast<int>(k) + 1);
    const std::string bytes = read_file(folder.file("log/frames_full.txt"));
    EXPECT_EQ(bytes.size(), plain.size() + 3 * 8 * ((static_cast<std::size_t>(elements) + 63) / 64));
    std::vector<double> third(made.run.mesh.dof_num());
    ASSERT_TRUE(store->read(2, 0, third));
    EXPECT_EQ(third, made.run.results[2]->mode_vec);

    Collected said;
    ASSERT_EQ(frames_in(bytes, said), 3);
    auto stored = read_frames_file("log\\f.txt", log, said);
    ASSERT_TRUE(stored && stored->run.erodes);
    stored->model.model_file_name = "data\\full.txt";
    ASSERT_TRUE(write_vtu_frames(stored->model, stored->run, said));
    for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(stored->run.results[k]->removed, lost[k]);
        const std::size_t cells = elements + 1 - lost[k].size();  // and a facet
        const std::string vtu = read_file(folder.file(formatted("log/full_%06zu.vtu", k + 1)));
        EXPECT_TRUE(contains(
            vtu, formatted("NumberOfPoints=\"%d\" NumberOfCells=\"%zu\"", made.run.mesh.node_num(), cells)))
            << vtu.substr(0, 300);
    }
    // one that goes on ends in the same bytes
    folder.write("log/frames_full.txt", bytes.substr(0, first.bytes));
    FramesWriter again;
    again.go_on("data\\full.txt", made.run, first);
    for (std::size_t k = 1; k < 3; ++k) again.add(*made.run.results[k], row(k), static_cast<int>(k) + 1);
    EXPECT_EQ(read_file(folder.file("log/frames_full.txt")), bytes);
}

TEST_F(Frames, GoOnBehindTheFramesThatAreThere) {
    const std::string bytes = write();
    folder.write("log/frames_full.txt", bytes.substr(0, ends[2] + 50));
    FramesWriter writer;
    writer.go_on("data\\full.txt", made.run, {ends[2], 0});
    writer.add(*made.run.results[2], std::span(made.run.history.values).subspan(4, 2), 3);
    EXPECT_EQ(read_file(folder.file("log/frames_full.txt")), bytes);
}

TEST_F(Frames, ThatCannotBeWrittenAreToldOnce) {
    std::filesystem::create_symlink("/dev/full", folder.path() / "log/frames_full.txt");
    made = full_run(folder, ElementKind::hexahedron, 1);
    FramesWriter writer;
    writer.begin(made.model, made.run);
    EXPECT_TRUE(writer.trouble().ends_with("frames_full.txt cannot be written: No space left on device"))
        << writer.trouble();
    writer.add(*made.run.results[0], {}, 1);
    EXPECT_FALSE(writer.is_open());
    made.run.origin.options.log_folder = folder.file("nowhere");
    writer.begin(made.model, made.run);
    EXPECT_TRUE(writer.trouble().ends_with("No such file or directory")) << writer.trouble();
}
