// Explicit analyses of models written as text, or of meshes made in place, with their history at hand.
#pragma once

#include <cmath>

#include "analysis/explicit/explicit_analysis.h"
#include "analysis/explicit/explicit_state.h"
#include "analysis/static/static_analysis.h"
#include "input/analysis_info_reader.h"
#include "support/analysis_run.h"
#include "support/box_mesh.h"

namespace kestralum::testing {

class ExplicitTest : public AnalysisTest {
protected:
    void read(const std::string& text, const std::string& control) {
        AnalysisTest::read(text);
        read_control(control);
    }
    void read_control(const std::string& control) {
        model.model_file_name = folder.file("model.txt");
        folder.write("model.ana", "x explicit " + control + " END");
        const AnalysisInfoReport report_of_control = read_analysis_info_file(model, said);
        for (const auto& error : report_of_control.remarks.errors) ADD_FAILURE() << error;
    }
    // One part of one material on a mesh made in place.
    void make(const Mesh& mesh, const Material& material) {
        model = placeholder_model();
        model.materials = {material};
        model.parts.assign(1, {});
        model.parts[0].name = "BODY";
        model.mesh = mesh;
    }
    // The set-up; steps follow with run_to().
    bool begin(int threads = 2) {
        state = std::make_unique<ExplicitState>();
        settings = analysis_settings(threads);
        job.reset();
        result = {};
        job.reset(new Job{model, settings, options, said, result});
        const bool done = set_up_explicit(*job, *state);
        for (const auto& error : report.remarks.errors) ADD_FAILURE() << error;
        return done;
    }
    void run_to(std::int64_t step) {
        while (state->step < step && !state->diverged) explicit_step(*job, *state);
    }
    void run(int threads = 2) {
        ASSERT_TRUE(begin(threads));
        run_to(state->time_num - 1);
        EXPECT_FALSE(state->diverged);
    }
    void run(const std::string& text, const std::string& control) {
        read(text, control);
        run();
    }
    double history(std::size_t row, const std::string& column) const {
        return state->history.value(row, column);
    }
    std::size_t rows() const { return state->history.rows(); }
    // Largest size of a column.
    double most(const std::string& column) const {
        double largest = 0;
        for (std::size_t r = 0; r < rows(); ++r) largest = std::max(largest, std::abs(history(r, column)));
        return largest;
    }
    double largest_drift() const { return most("drift"); }
    void expect_kept(const std::string& column, double tolerance) const {
        for (std::size_t r = 0; r < rows(); ++r)
            ASSERT_NEAR(history(r, column), history(0, column), tolerance) << column << " in row " << r;
    }
    double last(const std::string& column) const { return history(rows() - 1, column); }
    // The node as the state's rows count it.
    std::size_t node_at(double x, double y, double z) const {
        return state->mesh->number[AnalysisTest::node_at(x, y, z)];
    }
    double u(std::size_t node, std::size_t axis) const { return state->u[4 * node + axis]; }

    std::unique_ptr<ExplicitState> state;
    std::unique_ptr<Job> job;
    RunReport& report = result.report;
};

inline const Material steel{.id = 0, .name = "STEEL", .density = 7800, .young = 2e11, .poisson = 0.3};

}  // namespace kestralum::testing
