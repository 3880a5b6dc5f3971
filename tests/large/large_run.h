// One model on the ranks of the test's team and, beside it, in this process alone.
#pragma once

#include <filesystem>
#include <optional>

#include "large/large_run.h"
#include "large/team.h"
#include "results/result_file.h"
#include "results/vtu_file.h"
#include "support/analysis_run.h"

namespace kestralum::testing {

class LargeTest : public AnalysisTest {
protected:
    // All ranks write to the first one's folder.
    void SetUp() override {
        log_folder = folder.file("log");
        team.share(log_folder);
        std::filesystem::create_directories(log_folder);
        std::filesystem::create_directories(folder.path() / "alone");
        settings.n_threads = 1;
        settings.solver_tolerance = 1e-10;
        MPI_Barrier(team.comm());
    }
    void TearDown() override { MPI_Barrier(team.comm()); }

    // A model of the sources' own; of one with the cells n and nz few of them.
    bool read_shipped(const std::string& name, std::vector<ParameterOverride> set = {}) {
        model = placeholder_model();
        model.model_file_name = KESTRALUM_SOURCE_DIR "/" + name;
        if (name.find("rigid_joint") != std::string::npos)
            set.insert(set.begin(), {{"n", "2"}, {"nz", "12"}});
        return read_input_file(model, set, said).ok;
    }
    kestralum::Run run_large(const std::string& word, const std::string& solver = "auto",
                             bool pieces = false) {
        settings.solver = solver;
        LargeOptions large{.run = options, .pieces = pieces};
        large.run.log_folder = log_folder;
        return analyse_large(team, word, model, settings, large, said);
    }
    // Of the ranks the last one asks to stop; all do, and the result of a run before stays.
    void expect_stop(const std::string& word, Progress& stops) {
        const std::string file = log_folder + "/result_model.txt";
        const std::string before = read_file(file);
        LargeOptions large{.run = options, .pieces = false};
        large.run.log_folder = log_folder;
        Progress& here = team.rank() == team.size() - 1 ? stops : said;
        const kestralum::Run run = analyse_large(team, word, model, settings, large, here);
        EXPECT_EQ(run.report.status, RunStatus::cancelled);
        EXPECT_TRUE(run.results.empty());
        EXPECT_EQ(read_file(file), before);
    }
    // The frames that every rank has written its piece of, on the first rank.
    std::optional<StoredRun> read_series() {
        Collected reads;
        auto out = read_result_file(pvd_file_name(model.model_file_name), log_folder, reads);
        EXPECT_TRUE(out) << reads.errors;
        return out;
    }
    // A frame read back against that of one process: tolerances of displacements and stresses, by the
    // largest; of the plastic strain.
    static void expect_fields(const Frame& got, const Frame& exact, double of_u, double of_stress,
                              double of_plastic) {
        const std::size_t dofs = exact.mode_vec.size();
        EXPECT_NEAR(got.n_freq, exact.n_freq, 1e-12 * exact.n_freq);
        ASSERT_EQ(got.mode_vec.size(), dofs);
        const auto expect = [&](const std::vector<double>& a, const std::vector<double>& b,
                                double tolerance) {
            double largest = 0, worst = 0;
            for (std::size_t d = 0; d < b.size(); ++d) {
                largest = std::max(largest, std::abs(b[d]));
                worst = std::max(worst, std::abs(a[d] - b[d]));
            }
            EXPECT_LE(worst, tolerance * largest);
        };
        const auto group = [&](const Frame& frame, std::size_t first, std::size_t last) {
            const auto from = frame.node_stress.begin();
            return std::vector<double>(from + std::ptrdiff_t(first * dofs),
                                       from + std::ptrdiff_t(last * dofs));
        };
        expect(got.mode_vec, exact.mode_vec, of_u);
        expect(group(got, 0, 2), group(exact, 0, 2), of_stress);
        expect(group(got, 2, 4), group(exact, 2, 4), of_stress);
        double mises = 0;
        for (std::size_t d = 4 * dofs; d < 5 * dofs; d += 3) mises = std::max(mises, exact.node_stress[d]);
        for (std::size_t d = 4 * dofs; d < 5 * dofs; d += 3) {
            ASSERT_NEAR(got.node_stress[d], exact.node_stress[d], of_stress * mises);
            ASSERT_NEAR(got.node_stress[d + 1], exact.node_stress[d + 1], of_plastic);
            ASSERT_NEAR(got.node_stress[d + 2], exact.node_stress[d + 2], of_stress * mises);
        }
    }
    // The last rank cannot write, or not name, its piece of the second frame: all end with one line, and the
    // frame before stands.
    void expect_end_at_second_frame(const std::string& word) {
        const std::string frame = log_folder + "/model_000002",
                          piece = frame + formatted("_p%04d.vtu", team.size() - 1);
        for (const bool full : {true, false}) {
            SCOPED_TRACE(full ? "a full disk" : "a folder of that name");
            if (team.first()) {
                for (const auto& file : std::filesystem::directory_iterator(log_folder))
                    std::filesystem::remove(file);
                full ? std::filesystem::create_symlink("/dev/full", piece + ".part")
                     : void(std::filesystem::create_directory(piece));
            }
            MPI_Barrier(team.comm());
            const kestralum::Run run = run_large(word, "auto", true);
            EXPECT_EQ(run.report.status, RunStatus::failed);
            EXPECT_EQ(run.report.listed_frames, 1);
            ASSERT_EQ(run.report.remarks.errors.size(), 1u) << joined(run.report.remarks.errors);
            EXPECT_EQ(run.report.remarks.errors[0],
                      piece + " cannot be written: " + (full ? "No space left on device" : "Is a directory"));
            if (!team.first()) continue;
            EXPECT_TRUE(said.errors.empty()) << said.errors;
            const auto back = read_series();
            ASSERT_TRUE(back);
            EXPECT_EQ(back->run.results.size(), 1u);
            EXPECT_FALSE(std::filesystem::exists(frame + ".pvtu"));
            for (const auto& file : std::filesystem::directory_iterator(log_folder)) {
                const std::string name = file.path().string();
                EXPECT_FALSE(name.ends_with(".part")) << name;
                EXPECT_FALSE(full && name.starts_with(frame)) << name;
            }
        }
    }
    // Every rank for itself, by the sparse factor.
    kestralum::Run run_alone(const std::string& word) {
        settings.solver = "sparse";
        RunOptions alone = options;
        alone.log_folder = folder.file("alone");
        return find_analysis(word)->analyse(model, settings, alone, said);
    }

    Team team{MPI_COMM_WORLD};
    std::string log_folder;
};

}  // namespace kestralum::testing
