// The linear analyses on several ranks against those of one process.
#include <fstream>
#include <numeric>

#include "large/piece.h"
#include "large_run.h"
#include "model/paths.h"
#include "results/result_file.h"
#include "results/vtu_file.h"

namespace kestralum::testing {
namespace {

class LargeStatic : public LargeTest, public ::testing::WithParamInterface<const char*> {
protected:
    void expect_agreement(const kestralum::Run& large, const kestralum::Run& alone);
};

// Loads of every kind, ties, slanted rollers, springs, heat, supports that move, rigid bodies with springs
// between them, load cases; hexahedra and both tetrahedra. Slender ones among them stall the iteration.
TEST_P(LargeStatic, AgreesWithOneProcess) {
    ASSERT_TRUE(read_shipped(GetParam()));
    const kestralum::Run alone = run_alone("static");
    ASSERT_EQ(alone.report.status, RunStatus::done);
    expect_agreement(run_large("static", "iterative"), alone);
    if (model.rigid_elements.empty()) return;
    const kestralum::Run direct = run_large("static");
    EXPECT_EQ(direct.report.solver, "direct (MUMPS)");
    expect_agreement(direct, alone);
}

void LargeStatic::expect_agreement(const kestralum::Run& large, const kestralum::Run& alone) {
    ASSERT_EQ(large.report.status, RunStatus::done);
    EXPECT_LT(large.report.residual, 1e-7);  // slender ones end at what rounding leaves
    EXPECT_EQ(large.report.free_dofs, alone.report.free_dofs);
    EXPECT_NEAR(large.report.total_mass, alone.report.total_mass, 1e-12 * alone.report.total_mass);
    ASSERT_EQ(large.report.cases.size(), alone.report.cases.size());
    for (std::size_t k = 0; k < alone.report.cases.size(); ++k) {
        const CaseReport &got = large.report.cases[k], &exact = alone.report.cases[k];
        EXPECT_NEAR(got.strain_energy, exact.strain_energy, 1e-7 * exact.strain_energy);
        EXPECT_NEAR(got.error, exact.error, 1e-6);
        EXPECT_NEAR(got.largest_mises.value, exact.largest_mises.value, 1e-6 * exact.largest_mises.value);
        EXPECT_NEAR(got.largest_displacement.value, exact.largest_displacement.value,
                    1e-7 * exact.largest_displacement.value);
        ASSERT_EQ(got.supports.size(), exact.supports.size());
        double size = 0;
        for (const SupportReaction& support : exact.supports)
            for (const double f : support.force) size = std::max(size, std::abs(f));
        for (std::size_t s = 0; s < exact.supports.size(); ++s)
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(got.supports[s].force[c], exact.supports[s].force[c], 1e-6 * size);
    }
    if (!team.first()) return;  // has the frames
    ASSERT_EQ(large.results.size(), alone.results.size());
    for (std::size_t k = 0; k < alone.results.size(); ++k) {
        const Frame &got = *large.results[k], &exact = *alone.results[k];
        EXPECT_EQ(got.name, exact.name);
        expect_equal(got.mode_vec, exact.mode_vec, 1e-7);
        expect_equal(got.reaction, exact.reaction, 1e-6);
        ASSERT_EQ(got.error.size(), exact.error.size());
        for (std::size_t n = 0; n < exact.error.size(); ++n)
            ASSERT_NEAR(got.error[n], exact.error[n], 1e-6) << n;
        expect_equal(got.node_stress, exact.node_stress, 1e-6, 0, 2 * exact.mode_vec.size());
        expect_equal(got.node_stress, exact.node_stress, 1e-6, 2 * exact.mode_vec.size(),
                     2 * exact.mode_vec.size());
        expect_equal(got.node_stress, exact.node_stress, 1e-6, 4 * exact.mode_vec.size());
    }
    EXPECT_TRUE(large.report.written);
    EXPECT_TRUE(
        std::filesystem::exists(paths::to_platform(result_file_name(model.model_file_name), log_folder)));
}

INSTANTIATE_TEST_SUITE_P(
    Of, LargeStatic,
    ::testing::Values("verify/loads/cases_hex.txt", "verify/loads/remote_rigid_hex.txt",
                      "verify/loads/remote_distributing_tet4.txt", "verify/loads/tied_nested_tet.txt",
                      "verify/loads/tied_unlike_hex.txt", "verify/loads/spring_bed_hex.txt",
                      "verify/loads/slanted_block_tet.txt", "verify/loads/thermal_bar_tet.txt",
                      "verify/loads/pipe_hex.txt", "verify/bodies/rigid_joint.txt", "data/bracket_cases.txt"),
    [](const auto& of) {
        const std::string name = of.param;
        return name.substr(name.rfind('/') + 1, name.rfind('.') - name.rfind('/') - 1);
    });

class LargeEigen : public LargeTest {
protected:
    // Frequencies to 1e-8, and what all modes together take of the mass: single modes of equal frequency are
    // any of their plane.
    void expect_modes(const std::string& solver) {
        const kestralum::Run large = run_large("eigen-lanczos", solver), alone = run_alone("eigen-lanczos");
        ASSERT_EQ(alone.report.status, RunStatus::done);
        ASSERT_EQ(large.report.status, RunStatus::done);
        ASSERT_EQ(large.report.modes.size(), alone.report.modes.size());
        std::array<double, 3> got{}, exact{};
        for (std::size_t k = 0; k < alone.report.modes.size(); ++k) {
            const ModeReport &a = large.report.modes[k], &b = alone.report.modes[k];
            EXPECT_EQ(a.zero, b.zero) << k;
            if (!b.zero) {
                EXPECT_NEAR(a.frequency, b.frequency, 1e-8 * b.frequency) << k;
            }
            for (std::size_t c = 0; c < 3; ++c) {
                got[c] += a.effective_mass[c];
                exact[c] += b.effective_mass[c];
            }
        }
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(got[c], exact[c], 1e-5 * alone.report.total_mass);
        EXPECT_EQ(large.report.modes_found, large.report.modes_counted);
        EXPECT_EQ(large.report.check_frequency > 0, solver == "sparse");
        if (!team.first()) return;
        ASSERT_EQ(large.results.size(), alone.results.size());
        const Frame& last = *large.results.back();
        EXPECT_GT(*std::ranges::max_element(last.node_stress), 0);
        EXPECT_EQ(last.mode_vec.size(), std::size_t(alone.mesh.dof_num()));
    }
};

TEST_F(LargeEigen, FrequenciesOfASupportedPlateAgreeByBothMethods) {
    ASSERT_TRUE(read_shipped("verify/nafems/fv52_tet4_coarse.txt"));
    expect_modes("sparse");
    expect_modes("iterative");
}

TEST_F(LargeEigen, FrequenciesOfAFreeBodyAgreeByBothMethods) {
    ASSERT_TRUE(read_shipped("verify/bodies/free_beam.txt"));
    expect_modes("sparse");
    expect_modes("iterative");
}

// What separates zero modes is rounding, and no gap to count pivots in.
TEST_F(LargeEigen, AFreeBodyHasAnyNumberOfItsModes) {
    for (const std::int32_t wanted : {1, 3, 5, 6, 7}) {
        SCOPED_TRACE(wanted);
        ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1.2 4", "2 2 6")}));
        model.mode_count = wanted;
        const kestralum::Run large = run_large("eigen-lanczos", "sparse");
        ASSERT_EQ(large.report.status, RunStatus::done) << joined(large.report.remarks.errors);
        ASSERT_EQ(std::ssize(large.report.modes), wanted);
        for (std::int32_t k = 0; k < wanted; ++k) EXPECT_EQ(large.report.modes[k].zero, k < 6) << k;
        // counted above all six, or not at all
        EXPECT_EQ(large.report.modes_found, large.report.modes_counted);
        EXPECT_TRUE(large.report.check_frequency == 0 || large.report.modes_counted >= 6);
    }
}

TEST_F(LargeEigen, RigidBodiesAndTiesAreInTheirMatrices) {
    ASSERT_TRUE(read_shipped("verify/bodies/rigid_joint.txt"));
    model.mode_count = 2;  // a pair
    expect_modes("sparse");
    ASSERT_TRUE(read_shipped("verify/loads/tied_unlike_hex.txt"));
    model.mode_count = 3;
    expect_modes("sparse");
}

class LargeTeam : public LargeTest {};

// Each element is counted once, each node owned once; shares are even; what an owned node needs is here.
TEST_F(LargeTeam, PiecesCoverTheMeshOnce) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 2", "8 8 16")}));
    const Mesh& mesh = model.mesh;
    const NodeElements around = elements_of_nodes(mesh);
    const Partition dealt = partition(team, mesh, around);
    const Piece piece = make_piece(dealt, team.rank(), mesh, {});
    EXPECT_EQ(team.sum(std::int64_t(piece.owned)), mesh.node_num());
    const auto counted = std::ranges::count(piece.counted, 1);
    EXPECT_EQ(team.sum(std::int64_t(counted)), mesh.element_num());
    EXPECT_NEAR(static_cast<double>(counted), mesh.element_num() / team.size(),
                0.1 * mesh.element_num() / team.size());
    EXPECT_LT(piece.owned, 1.2 * mesh.node_num() / team.size());
    for (std::int32_t n = 0; n < piece.owned; ++n)
        EXPECT_EQ(piece.around.of(n).size(), around.of(piece.nodes[n]).size());
    std::vector<std::int32_t> numbers = dealt.number;
    std::ranges::sort(numbers);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) ASSERT_EQ(numbers[n], n);
}

// What does not go in one message of the library comes together all the same.
TEST_F(LargeTeam, ManyMessagesBringWhatOneDoes) {
    const Team small(team.comm(), 7);
    std::vector<double> own(std::size_t(5 + 11 * ((team.rank() + 1) % 3)), team.rank());
    std::iota(own.begin() + 1, own.end(), 0.5 * team.rank());
    EXPECT_EQ(small.gather(own), team.gather(own));
    EXPECT_EQ(small.gather_everywhere(own), team.gather_everywhere(own));
    std::vector<double> some(31), all;
    std::iota(some.begin(), some.end(), 1.0 + team.rank());
    all = some;
    team.sum(all);
    small.sum(some);
    EXPECT_EQ(some, all);
    EXPECT_EQ(all[30], 30.0 * team.size() + 0.5 * team.size() * (team.size() + 1));
}

TEST_F(LargeTeam, AFreeBodyAndAFlatElementEndAllWithOneError) {
    const std::string held = "S plane z 0 0 0 0 0 0", pushed = "P area z 1000 0 1 0 1 1 1";
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"), .forces = pushed}));
    EXPECT_EQ(run_large("static").report.status, RunStatus::failed);
    // a second body that nothing holds and nothing loads
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3") + rect("B", "1 1 1", "2 2 2", "0 0 3"),
                               .supports = held,
                               .forces = pushed}));
    const kestralum::Run loose = run_large("static");
    EXPECT_EQ(loose.report.status, RunStatus::failed);
    ASSERT_EQ(loose.report.remarks.errors.size(), 1u);
    EXPECT_NE(loose.report.remarks.errors[0].find("the body is free"), std::string::npos);
    EXPECT_TRUE(loose.results.empty());
    // an element that one rank meets
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"), .supports = held, .forces = pushed}));
    const std::size_t node = node_index(model.mesh.connectivity.back());
    for (const std::int32_t other : model.mesh.element(model.mesh.element_num() - 1))
        std::copy_n(&model.mesh.coordinates[3 * node], 3, &model.mesh.coordinates[3 * node_index(other)]);
    const kestralum::Run flat = run_large("static");
    EXPECT_EQ(flat.report.status, RunStatus::failed);
    ASSERT_EQ(flat.report.remarks.errors.size(), 1u);
    EXPECT_NE(flat.report.remarks.errors[0].find("Jacobian"), std::string::npos);
    MPI_Barrier(team.comm());
    EXPECT_FALSE(std::filesystem::exists(log_folder + "/result_model.txt"));
}

// The pieces of all ranks, read back, are the result: every element once, the values of every node.
TEST_F(LargeTeam, PiecesReadBackAreTheResult) {
    for (const char* const name : {"data/bracket_cases.txt", "verify/loads/tied_nested_tet.txt"}) {
        ASSERT_TRUE(read_shipped(name));
        const kestralum::Run pieces = run_large("static", "auto", true), whole = run_large("static");
        ASSERT_EQ(pieces.report.status, RunStatus::done);
        if (!team.first()) continue;
        EXPECT_FALSE(pieces.report.written);
        const auto back = read_result_file(pvtu_file_name(model.model_file_name), log_folder, said);
        ASSERT_TRUE(back) << said.errors;
        EXPECT_EQ(back->run.mesh.element_num(), whole.mesh.element_num());
        EXPECT_EQ(back->run.mesh.coordinates, whole.mesh.coordinates);
        ASSERT_EQ(back->run.results.size(), whole.results.size());
        for (std::size_t k = 0; k < whole.results.size(); ++k) {
            EXPECT_EQ(back->run.results[k]->name, whole.results[k]->name);
            expect_equal(back->run.results[k]->mode_vec, whole.results[k]->mode_vec, 1e-9);
            expect_equal(back->run.results[k]->node_stress, whole.results[k]->node_stress, 1e-7);
        }
    }
}

TEST_F(LargeTeam, ADamagedPieceIsToldByName) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 1", "3 3 3"),
                               .supports = "S plane z 0 0 0 0 0 0",
                               .forces = "P area x 1000 0 1 0 1 1 1"}));
    ASSERT_EQ(run_large("eigen-lanczos", "auto", true).report.status, RunStatus::done);
    if (!team.first()) return;
    const std::string list = pvtu_file_name(model.model_file_name);
    const auto back = read_result_file(list, log_folder, said);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->run.ana_type, AnalysisType::eigen);
    EXPECT_GT(back->run.results.front()->n_freq, 0);
    const std::string piece = log_folder + "/model_p0000.vtu", whole = read_file(piece);
    const auto with = [&](const std::string& text) {
        std::ofstream(piece, std::ios::binary) << text;
        said.clear();
        EXPECT_FALSE(read_result_file(list, log_folder, said));
        EXPECT_NE(said.errors.find("model_p0000.vtu: "), std::string::npos) << said.errors;
        EXPECT_EQ(std::ranges::count(said.errors, '\n'), 1) << said.errors;
    };
    const auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = whole;
        text.replace(text.find(from), from.size(), to);
        return text;
    };
    with("");
    for (const double share : {0.1, 0.5, 0.9})
        with(whole.substr(0, std::size_t(share * double(whole.size()))));
    with(replaced("NumberOfPoints=\"", "NumberOfPoints=\"9"));
    with(replaced("Name=\"node\"", "Name=\"nodes\""));
    with(replaced("offset=\"0\"", "offset=\"99999999999\""));
    with(replaced("displacement_mode", "displacement_made"));
    std::filesystem::remove(piece);
    said.clear();
    EXPECT_FALSE(read_result_file(list, log_folder, said));
    EXPECT_NE(said.errors.find("No such file"), std::string::npos) << said.errors;
}

// Asks to stop when the iteration has begun.
class StopsInTheIteration : public Collected {
public:
    bool cancelled() const override { return place().stage == "solve" && place().count >= 3; }
};

TEST_F(LargeTeam, AStopOnOneRankStopsAllAndLeavesTheEarlierResult) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 1 4", "6 6 24"),
                               .supports = "S plane z 0 0 0 0 0 0",
                               .forces = "P area x 1000 0 1 0 1 4 4"}));
    ASSERT_EQ(run_large("static").report.status, RunStatus::done);
    StopsInTheIteration stops;
    expect_stop("static", stops);
}

}  // namespace
}  // namespace kestralum::testing
