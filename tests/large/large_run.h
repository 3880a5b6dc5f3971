// One model on the ranks of the test's team and, beside it, in this process alone.
#pragma once

#include "large/large_run.h"
#include "large/team.h"
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
