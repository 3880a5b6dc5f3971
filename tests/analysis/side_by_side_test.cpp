// What makes an analysis a function: the model stays as it was, two runs do not see each other, a stop asked
// for at any place leaves the earlier files, and the loops of a step take no memory.
#include <gtest/gtest.h>

#include <thread>

#include "support/explicit_run.h"
#include "support/heap_count.h"

namespace kestralum {
namespace {

using testing::analysis_settings;
using testing::rect;
using testing::replaced;

const std::string block = testing::ModelText{.parts = rect("b", "0.3 0.2 1", "3 2 12"),
                                             .supports = "c plane z 0 0 0 0 0 0",
                                             .forces = "f area x 1000 0 0.3 0 0.2 1 1",
                                             .others = "mode_num 4 %\n"};
const char* control = "d_time 0 end_time 1e-4 output_frequency 5";

// Asks to stop when it has taken so many pieces of text.
class StopsAt : public testing::Collected {
public:
    std::int64_t left = -1, taken = 0;

protected:
    void take(Kind kind, std::string_view text) override {
        ++taken;
        if (left >= 0 && left-- == 0) cancel();
        testing::Collected::take(kind, text);
    }
};

class AnyAnalysis : public testing::ExplicitTest, public ::testing::WithParamInterface<const char*> {
protected:
    AnyAnalysis() { options.prestress = word_.ends_with(" prestress"); }
    Analyse analysis() const { return find_analysis(word_.substr(0, word_.find(' ')))->analyse; }
    static bool is_explicit() { return GetParam() == std::string("explicit"); }
    const std::string word_ = GetParam();
};

TEST_P(AnyAnalysis, LeavesTheModelAndTwoRunsAtOnceDoNotSeeEachOther) {
    read(block, control);
    const Model before = model;
    const Settings of_all = analysis_settings();
    const auto run_into = [&](const std::string& name, testing::Collected& lines) {
        RunOptions own = options;
        own.log_folder = folder.file(name);
        std::filesystem::create_directory(own.log_folder);
        EXPECT_EQ(analysis()(model, of_all, own, lines).report.status, RunStatus::done);
        return testing::read_file(std::filesystem::path(own.log_folder) / "result_model.txt");
    };
    testing::Collected alone_lines, first_lines, second_lines;
    const std::string alone = run_into("alone", alone_lines);
    std::string first, second;
    std::thread other([&] { second = run_into("second", second_lines); });
    first = run_into("first", first_lines);
    other.join();
    EXPECT_TRUE(first == alone && second == alone);
    EXPECT_LT(std::abs(std::ssize(first_lines.lines) - std::ssize(alone_lines.lines)), 200) << "times differ";
    EXPECT_EQ(model.mesh.coordinates, before.mesh.coordinates);
    EXPECT_EQ(model.mesh.connectivity, before.mesh.connectivity);
    EXPECT_EQ(model.mesh.node_n_dir, before.mesh.node_n_dir);
}

// The explicit analysis has no factor that memory could divide.
TEST_P(AnyAnalysis, GivesTheSameBytesForAnyThreadsAndMemory) {
    // the explicit analysis steps a small body with one thread
    read(is_explicit() ? replaced(block, "3 2 12", "8 8 80") : block, control);
    std::string reference;
    std::vector<double> moved;
    for (const int threads : {1, 2, 3})
        for (const double memory : {4000.0, 0.05}) {
            settings = analysis_settings(threads);
            settings.memory_size = memory;
            testing::expect_done(analyse(analysis()));
            EXPECT_EQ(std::filesystem::exists(log("Ltemp_1.txt")), memory < 1 && !is_explicit()) << "divided";
            std::string bytes = file("result_model.txt");
            for (const char* of_some : {"Q.txt", "integ_stress.txt", "history_model.csv"})
                bytes += file(of_some);
            if (reference.empty()) {
                reference = bytes;
                moved = result.results.back()->mode_vec;
            }
            EXPECT_TRUE(result.results.back()->mode_vec == moved) << threads << " threads, last digits";
            EXPECT_TRUE(bytes == reference) << threads << " threads, " << memory << " MB";
        }
}

// Asked for at pieces of text and between them, in the last writing too.
TEST_P(AnyAnalysis, AStopAtAnyPlaceLeavesTheEarlierFile) {
    read(block, control);
    const Settings of_all = analysis_settings(1);
    options.log_folder = folder.file("log");
    const auto stop_with = [&](testing::Collected& stopping) {
        folder.write("log/result_model.txt", "an earlier run's");
        const kestralum::Run stopped = analysis()(model, of_all, options, stopping);
        EXPECT_FALSE(std::filesystem::exists(log("result_model.txt.part")));
        if (stopped.report.status == RunStatus::done) return;  // asked for after the last look
        EXPECT_EQ(stopped.report.status, RunStatus::cancelled)
            << testing::joined(stopped.report.remarks.errors);
        EXPECT_EQ(stopped.report.remarks.errors.size(), 1u);
        EXPECT_EQ(stopped.results.empty(), !stopped.report.has_results());
        // explicit keeps what it has reached
        EXPECT_TRUE(!stopped.report.written || (is_explicit() && stopped.report.has_results()));
        if (stopped.report.written) return;
        EXPECT_EQ(file("result_model.txt"), "an earlier run's");
    };
    StopsAt texts;
    testing::StopsAtLook looks;
    ASSERT_EQ(analysis()(model, of_all, options, texts).report.status, RunStatus::done);
    ASSERT_EQ(analysis()(model, of_all, options, looks).report.status, RunStatus::done);
    constexpr int places = 25;
    for (int k = 0; k < places; ++k) {
        SCOPED_TRACE(formatted("stopped at %d/%d", k, places));
        StopsAt stopping;
        stopping.left = texts.taken * k / places;
        stop_with(stopping);
        testing::StopsAtLook looking(looks.looks * (k + 1) / places);
        stop_with(looking);
    }
}

INSTANTIATE_TEST_SUITE_P(All, AnyAnalysis,
                         ::testing::Values("static", "eigen-subspace", "eigen-lanczos", "nonlinear",
                                           "explicit", "buckling", "eigen-lanczos prestress"),
                         [](const auto& name) {
                             std::string text = name.param;
                             for (char& c : text) c = c == '-' || c == ' ' ? '_' : c;
                             return text;
                         });

class Allocations : public testing::ExplicitTest {};

TEST_F(Allocations, NoneInAStepWithRigidBodiesSpringsWallsAndContact) {
    if (!KESTRALUM_COUNTS_HEAP) GTEST_SKIP() << "a sanitizer's heap";
    read(
        testing::ModelText{
            .material = "8000 2e11 0.3",
            .parts = rect("A", "0.1 0.1 0.1", "3 3 3") + rect("B", "0.1 0.1 0.1", "2 2 2", "0 0 0.1005"),
            .rigid = "TOP area 0.05 0.05 0.2 0 0.1 0 0.1 0.2005 0.2005 FOOT area 0.05 0.05 0 0 0.1 0 0.1 0 "
                     "0 % rigid_combine S TOP FOOT 1e6 1e6 1e6 1e3 1e3 1e3 % rigid_force F TOP z -1000 %"},
        "end_time 1e-3 output_frequency 100000 Element_contact on Gravity -z RIGID_WALL FLOOR plane +z 0 0 0 "
        "0.1 0 0 0 0 "
        "-0.001 -0.001 0 0 0 % ELEMENT_CONTACT HIT A B 1 0.1 0 0.002 -1 1 -1 1 -1 1 0 % INITIAL_VELOCITY B "
        "part z -5 0 0 "
        "0 0 0 0 %");
    SilentProgress silent;
    state = std::make_unique<ExplicitState>();
    job.reset(new Job{model, settings, options, silent, result});
    ASSERT_TRUE(set_up_explicit(*job, *state)) << report.remarks.errors[0];
    run_to(90);  // what grows with the contacts has grown
    const std::int64_t before = testing::heap.news;
    while (state->step % 100 != 99) explicit_step(*job, *state);
    EXPECT_EQ(testing::heap.news, before);
}

}  // namespace
}  // namespace kestralum
