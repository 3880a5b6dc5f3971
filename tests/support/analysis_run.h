// Analyses of models that are written as text: the settings, the model read from the file, its run.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "analysis/analysis_table.h"
#include "input/model_reader.h"
#include "model/format.h"
#include "model/selection.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"
#include "system/assembly.h"

namespace kestralum::testing {

inline Settings analysis_settings(int threads = 2) {
    Settings settings;
    settings.memory_size = 4000;
    settings.free_hd_size = 20000;
    settings.div_memory_size = 1;
    settings.ordering_type = "LALL";
    settings.c_eigen_shift = 0.5;
    settings.nl_conv = 1e-8;
    settings.n_threads = threads;
    return settings;
}

// The record of a block of material M in `cells`, its lower corner at a place.
inline std::string rect(const std::string& name, const std::string& size, const std::string& cells,
                        const std::string& at = "0 0 0") {
    return name + " red M RECT " + size + " 0 0 0 " + cells + " 0 0 0 " + at + " 0 0 0\n";
}

// A model file of one material M: what stands in its sections.
struct ModelText {
    std::string material = "7800 2e11 0.3";  // density, Young's modulus, Poisson's ratio
    std::string parts, supports = {}, forces = {};
    std::string rigid = {};   // rigid elements, and what follows their end
    std::string others = {};  // sections before the parts
    operator std::string() const {
        std::string text = "material_info M " + material + " %\n" + others + "part_info " + parts + "%\n";
        if (!supports.empty()) text += "boundary_condition " + supports + " %\n";
        if (!forces.empty()) text += "apply_force " + forces + " %\n";
        if (!rigid.empty()) text += "rigid_element " + rigid + "\n";
        return text + "END\n";
    }
};

class AnalysisTest : public ::testing::Test {
protected:
    bool read(const std::string& text) {
        model = placeholder_model();
        model.model_file_name = folder.write("model.txt", text);
        const ModelReadReport input = read_input_file(model, {}, said);
        for (const auto& error : input.remarks.errors) ADD_FAILURE() << error;
        return input.ok;
    }
    // Runs an analysis of the model into `result`; its report.
    RunReport analyse(Analyse analysis) {
        options.log_folder = folder.file("log");
        result = analysis(model, settings, options, said);
        return result.report;
    }
    // The model's matrices, as an analysis assembles them.
    bool assemble(AssembledSystem& system) {
        kestralum::Run again;
        Job job{model, settings, options, said, again};
        return make_run_mesh(job, Renumbering::by_settings, system.freedoms) && assemble_system(job, system);
    }
    // The record of a part that is a box grid; tetrahedra come from a file.
    std::string part_of(ElementKind kind, const Grid& g) {
        if (kind == ElementKind::hexahedron)
            return rect("b", formatted("%.17g %.17g %.17g", g.size[0], g.size[1], g.size[2]),
                        formatted("%d %d %d", g.cells[0], g.cells[1], g.cells[2]));
        folder.write("b.vol", vol_text(box_mesh(g, kind)));
        return "b red M VOL b.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
    }
    std::size_t node_at(double x, double y, double z) const {
        const std::array<double, 3> place{x, y, z};
        const std::size_t n = nearest_node(result.mesh, elements_of_nodes(result.mesh), place);
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(result.mesh.coordinates[3 * n + c], place[c], 1e-6);
        return n;
    }
    const Frame& frame(std::size_t k = 0) const { return *result.results.at(k); }
    // Of the first frame.
    std::array<double, 3> displacement(double x, double y, double z) const {
        const double* u = &frame().mode_vec[3 * node_at(x, y, z)];
        return {u[0], u[1], u[2]};
    }
    // Prints the figure with what it should be; `tolerance` is relative.
    static void expect_figure(const std::string& what, double value, double exact, double tolerance) {
        std::printf("    %s: %.5g (%.5g, %+.2f %%)\n", what.c_str(), value, exact, 100 * (value / exact - 1));
        EXPECT_NEAR(value, exact, tolerance * std::abs(exact)) << what;
    }
    std::filesystem::path log(const std::string& name) const { return folder.path() / "log" / name; }
    std::string file(const std::string& name) const { return read_file(log(name)); }

    Settings settings = analysis_settings();
    Collected said;
    TempFolder folder;
    Model model;
    RunOptions options;
    kestralum::Run result;
};

// Two tables, or one group of them, by the largest size in the second.
inline void expect_equal(const auto& got, const auto& exact, double tolerance, std::size_t first = 0,
                         std::size_t count = std::size_t(-1)) {
    double largest = 0, worst = 0;
    for (std::size_t d = first; d < std::min(exact.size(), first + std::min(count, exact.size())); ++d) {
        largest = std::max<double>(largest, std::abs(exact[d]));
        worst = std::max<double>(worst, std::abs(got[d] - exact[d]));
    }
    EXPECT_LT(worst, tolerance * largest);
}

inline void expect_done(const RunReport& report) {
    EXPECT_EQ(report.status, RunStatus::done);
    for (const auto& error : report.remarks.errors) ADD_FAILURE() << error;
}

}  // namespace kestralum::testing
