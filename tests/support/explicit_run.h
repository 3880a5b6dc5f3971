// Explicit analyses of models written as text, or of meshes made in place, with their history at hand.
#pragma once

#include <gtest/gtest.h>

#include <cmath>

#include "analysis/explicit_state.h"
#include "analysis/linear_driver.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/console.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"

namespace kestralum::testing {

inline Settings explicit_settings(int threads = 2) {
    Settings settings;
    settings.memory_size = 4000;
    settings.free_hd_size = 20000;
    settings.div_memory_size = 1;
    settings.ordering_type = "LALL";
    settings.n_threads = threads;
    return settings;
}

class ExplicitTest : public ::testing::Test {
protected:
    void read(const std::string& model, const std::string& control) {
        store = placeholder_model();
        store.model_file_name = folder.write("model.txt", model);
        folder.write("model.ana", "x explicit " + control + " END");
        const ModelReadReport report_of_model = read_model_file(store, {});
        for (const auto& error : report_of_model.remarks.errors) ADD_FAILURE() << error;
        read_control(control);
    }
    void read_control(const std::string& control) {
        store.model_file_name = folder.file("model.txt");
        folder.write("model.ana", "x explicit " + control + " END");
        const AnalysisInfoReport report_of_control = read_analysis_info(store);
        for (const auto& error : report_of_control.remarks.errors) ADD_FAILURE() << error;
    }
    // One part of one material on a mesh made in place.
    void make(const Mesh& mesh, const Material& material) {
        store = placeholder_model();
        store.materials = {material};
        store.parts.assign(1, {});
        store.parts[0].name = "BODY";
        store.mesh = mesh;
    }
    // The set-up; steps follow with run_to().
    bool begin(int threads = 2, const ExplicitOptions& options = {}) {
        state = std::make_unique<ExplicitState>();
        report = {};
        const bool done = set_up_explicit(store, explicit_settings(threads), options, *state, report);
        for (const auto& error : report.remarks.errors) ADD_FAILURE() << error;
        return done;
    }
    void run_to(std::int64_t step) {
        while (state->step < step && !state->diverged) explicit_step(store, *state, report);
    }
    void run(int threads = 2, const ExplicitOptions& options = {}) {
        ASSERT_TRUE(begin(threads, options));
        run_to(state->time_num - 1);
        EXPECT_FALSE(state->diverged);
    }
    double history(std::size_t row, const std::string& column) const {
        return state->history.value(row, column);
    }
    std::size_t rows() const { return state->history.rows(); }
    double largest_drift() const {
        double largest = 0;
        for (std::size_t r = 0; r < rows(); ++r) largest = std::max(largest, std::abs(history(r, "drift")));
        return largest;
    }
    std::int32_t node_at(double x, double y, double z) const {
        const auto& c = store.mesh.coordinates;
        std::size_t nearest = 0;
        double best = 1e300;
        for (std::size_t n = 0; n < c.size() / 3; ++n) {
            const double d = std::hypot(c[3 * n] - x, c[3 * n + 1] - y, c[3 * n + 2] - z);
            if (d < best) {
                best = d;
                nearest = n;
            }
        }
        return static_cast<std::int32_t>(nearest);
    }
    double u(std::int32_t node, std::size_t axis) const {
        return state->u[4 * static_cast<std::size_t>(node) + axis];
    }

    console::Capture console_;
    TempFolder folder;
    ModelStore store;
    std::unique_ptr<ExplicitState> state;
    RunReport report;
};

inline const Material steel{.id = 0, .name = "STEEL", .density = 7800, .young = 2e11, .poisson = 0.3};
inline constexpr ElementKind every_kind[] = {ElementKind::hexahedron, ElementKind::tetrahedron4,
                                             ElementKind::tetrahedron10};

}  // namespace kestralum::testing
