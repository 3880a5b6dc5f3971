// The models in data/ give the figures that docs/model_file.md and their own first lines name, and these lie
// as near to theory as said there.
#include "analysis/eigen/eigen_analysis.h"
#include "analysis/explicit/explicit_analysis.h"
#include "analysis/static/static_analysis.h"
#include "input/analysis_info_reader.h"
#include "support/analysis_run.h"
#include "system/model_check.h"

namespace kestralum::testing {

namespace {

class ShippedModels : public AnalysisTest {
protected:
    RunReport analyse_shipped(const std::string& name, Analyse analysis,
                              const std::vector<ParameterOverride>& overrides = {}) {
        model = placeholder_model();
        model.model_file_name = KESTRALUM_SOURCE_DIR "/data/" + name + ".txt";
        EXPECT_TRUE(read_input_file(model, overrides, said).ok) << said.errors;
        EXPECT_TRUE(read_analysis_info_file(model, said).remarks.notices.empty()) << name;
        const RunReport done = analyse(analysis);
        EXPECT_EQ(done.status, RunStatus::done) << name;
        return done;
    }
    // Mean of one component of a table of the first or a later frame over the nodes of a box.
    double mean(const std::array<double, 6>& box, const std::vector<double>& table, int component) const {
        double sum = 0;
        int count = 0;
        for (std::int32_t n = 0; n < result.mesh.node_num(); ++n) {
            if (!in_box(&result.mesh.coordinates[3 * n], box, 1e-6)) continue;
            sum += table[3 * n + component];
            ++count;
        }
        EXPECT_GT(count, 0);
        return sum / count;
    }
};

// As documented to the last digit given, and theory within its share.
void expect_documented(const std::string& what, double value, double documented, double digit, double theory,
                       double share) {
    EXPECT_NEAR(value, documented, 0.5001 * digit) << what;
    EXPECT_NEAR(value, theory, share * std::abs(theory)) << what;
}

// A bar on a wall: force ρcVA = 1.6 MN for 2L/c = 80 µs, then it flies back as it came, 64 kg m/s.
void expect_wave(const std::string& history) {
    const std::vector<std::string> rows = lines_of(history);
    const auto value = [&](std::size_t row, const char* column) {
        const auto before = std::count(rows[0].begin(), rows[0].begin() + rows[0].find(column), ',');
        std::istringstream fields(rows[row]);
        std::string text;
        for (std::ptrdiff_t k = 0; k <= before; ++k) std::getline(fields, text, ',');
        return std::stod(text);
    };
    std::vector<double> pressed, when;
    for (std::size_t row = 1; row < rows.size(); ++row)
        if (const double force = value(row, "wall_WALL_x"); force != 0) {
            pressed.push_back(force);
            when.push_back(value(row, "time"));
        }
    EXPECT_NEAR(when.back() - when.front(), 80e-6, 0.03 * 80e-6);
    std::ranges::nth_element(pressed, pressed.begin() + pressed.size() / 2);
    expect_documented("force on the wall", pressed[pressed.size() / 2], 1.60e6, 1e4, 1.6e6, 0.01);
    EXPECT_NEAR(value(rows.size() - 1, "momentum_x"), 64, 0.64);
}

struct Deflection {
    const char* model;
    std::array<double, 6> box;  // where it is taken, m
    int axis;
    double documented, digit, theory, share;  // m
};

}  // namespace

TEST_F(ShippedModels, BendAndStretchAsDocumented) {
    const Deflection table[] = {
        {"cantilever", {0.02, 0.02, 0.03, 0.03, 0.5, 0.5}, 1, -0.2810e-3, 1e-7, -0.2840e-3, 0.011},
        {"buckle_pipe_plastic2_v207", {-1, 1, -1, 1, 1, 1}, 0, 8.807e-3, 1e-6, 8.804e-3, 0.001},
        {"buckle_pipe_plastic2_v207", {-1, 1, -1, 1, 1, 1}, 2, -0.4160e-3, 1e-7, -0.4139e-3, 0.006},
        {"netgen_part_o1", {0.2, 0.2, -1, 1, -1, 1}, 1, -0.0247e-3, 1e-7, -0.0300e-3, 0.18},
        {"netgen_part_o2", {0.2, 0.2, -1, 1, -1, 1}, 1, -0.0291e-3, 1e-7, -0.0300e-3, 0.031},
        {"shaft_mm", {0, 0, 0, 0, 0.4, 0.4}, 1, -0.6421e-3, 1e-7, -0.6264e-3, 0.026},
        {"rigid_joint", {0.02, 0.02, 0.02, 0.02, 0.81, 0.81}, 2, 1.048e-3, 1e-6, 1.049e-3, 0.002}};
    std::string last;
    for (const Deflection& row : table) {
        if (row.model != last) analyse_shipped(row.model, analyse_static);
        last = row.model;
        expect_documented(row.model, mean(row.box, frame().mode_vec, row.axis), row.documented, row.digit,
                          row.theory, row.share);
    }
    const double twist = (displacement(0.04, 0.02, 0.81)[1] - displacement(0, 0.02, 0.81)[1]) / 0.04;
    expect_documented("twist of the rigid end", twist, 4.73e-3, 1e-5, 4.81e-3, 0.02);
}

// ‖F - K u‖ / (‖K‖ ‖u‖ + ‖F‖), ‖K‖ its largest row.
TEST_F(ShippedModels, TheSparseFactorSolvesPartsToTheLastDigits) {
    for (const char* name : {"netgen_part_o2", "plate_hole", "bracket"}) {
        settings.solver = "sparse";
        analyse_shipped(name, analyse_static);
        ASSERT_TRUE(result.report.solver.ends_with(": sparse")) << result.report.solver;
        AssembledSystem system;
        ASSERT_TRUE(assemble(system));
        const SparseKM& km = system.km;
        std::vector<double> u, F;
        for (const std::int32_t dof : system.freedoms.numbering.free_dofs) {
            u.push_back(frame().mode_vec[dof]);
            F.push_back(result.load[dof]);
        }
        std::vector<double> r(u.size());
        multiply(km, km.K_value, u, r);
        double row = 0;
        for (std::int32_t i = 0; i < km.rows(); ++i) {
            r[i] -= F[i];
            row = std::max(row, norm(std::span(km.K_value).subspan(km.row_start[i], km.row_count[i])));
        }
        EXPECT_GT(norm(F), 0);
        EXPECT_LT(norm(r), 1e-14 * (row * norm(u) + norm(F))) << name;
    }
}

TEST_F(ShippedModels, AHoleConcentratesStressAndATurnedBracketBendsAlike) {
    analyse_shipped("plate_hole", analyse_static);
    const double mean_stress = 50e3 / (0.1 * 0.005);
    for (const auto& [z, documented] : {std::pair{0.0, 3.22}, {0.0025, 3.31}, {0.005, 3.22}})
        expect_documented("stress beside the hole",
                          frame().node_stress[3 * node_at(0, 0.01, z)] / mean_stress, documented, 0.01, 3.15,
                          0.055);
    const RunReport tilted = analyse_shipped("bracket", analyse_static),
                    straight = analyse_shipped(
                        "bracket", analyse_static,
                        {{"tilt", "0"}, {"Fy", "-2000*cos(3.14159265358979324/6)"}, {"Fz", "1000"}});
    expect_documented("bracket", tilted.largest_displacement.value, 0.2305e-3, 1e-7,
                      straight.largest_displacement.value, 5e-5);
    expect_documented("bracket", tilted.largest_mises.value, 189.2e6, 1e5, straight.largest_mises.value,
                      5e-5);
}

// What the supports carry of the cases, worked out by hand: a pressure on 30 cm², a pull and the weight of
// the volumes, polygons of 32 sides for the boss; a bearing and a pressure that grows from z = 5 to 60 mm.
TEST_F(ShippedModels, SupportsCarryEachCaseOfTheBracket) {
    const RunReport done = analyse_shipped("bracket_cases", analyse_static);
    ASSERT_EQ(done.cases.size(), 5u);
    const double ring = 16 * std::sin(std::numbers::pi / 16) * (0.022 * 0.022 - 0.014 * 0.014);
    const double weight = 9.81 * (7800 * (0.01 * 0.06 * 0.12 * 2) + 8500 * ring * 0.03);
    expect_documented("base", done.cases[0].reaction[2], 273.3, 0.1, 20000 * 0.003 + 200 + weight, 1e-9);
    const double wind = 4e5 / 0.06 * 0.06 * 0.5 * (0.06 * 0.06 - 0.005 * 0.005);
    expect_documented("crane", done.cases[1].reaction[0], 3715, 1, 3000 + wind, 1e-9);
    EXPECT_NEAR(done.cases[4].reaction[2], done.cases[0].reaction[2] + 1.5 * done.cases[1].reaction[2], 1e-6);
}

// Thin-ring theory, in the plane of the ring: two and three waves, each twice, after six zero modes.
#ifdef KESTRALUM_MESHER
// Volume and bearing area of the three STEP parts are those of the CAD kernel, and what is held balances the
// load.
TEST_F(ShippedModels, StepPartsAreWholeAndHeld) {
    struct StepPart {
        const char *name, *bearing;
        double volume, area;         // m^3, m^2
        std::array<double, 3> load;  // N
    };
    const std::string data = KESTRALUM_SOURCE_DIR "/data/";
    std::filesystem::copy(data + "cad", folder.path() / "cad");
    for (const auto& [name, bearing, volume, area, load] :
         {StepPart{"step_bracket", "BRACKET.face_14", 282032.786e-9, 1357.168e-6, {0, 0, -2000}},
          StepPart{"step_flange", "FLANGE.face_18", 535916.050e-9, 15079.645e-6, {20000, 0, 0}},
          StepPart{"step_rod", "ROD.face_31", 111503.517e-9, 1382.301e-6, {10000, 0, 0}}}) {
        model = placeholder_model();
        model.model_file_name = folder.write(name + std::string(".txt"), read_file(data + name + ".txt"));
        ASSERT_TRUE(read_input_file(model, std::vector<ParameterOverride>{{"h", "20"}}, said).ok)
            << said.errors;
        const ModelCheck check = check_model(model, settings, said);
        // parabolas for eighths of a turn miss a thousandth of a fillet's radius
        EXPECT_NEAR(check.volume, volume, 2e-3 * volume) << name;
        EXPECT_EQ(check.bad_count, 0) << name;
        EXPECT_GT(check.angle.worst.at(0).value, 3) << name;
        const MeshSet* set = find_set(model.mesh, bearing);
        ASSERT_TRUE(set) << bearing;
        EXPECT_NEAR(measure_set(model.mesh, *set).area, area, 1e-3 * area) << name;
        if (model.mesh.node_num() > 20000) continue;  // the small ones show it
        const RunReport report = analyse(analyse_static);
        ASSERT_EQ(report.status, RunStatus::done) << name;
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(report.reaction[c], -load[c], 1e-6) << name;
    }
}
#endif

TEST_F(ShippedModels, TheRingSwingsAsDocumented) {
    const RunReport done = analyse_shipped("ring_modes", analyse_eigen_subspace);
    auto nearest = [&](double f) {
        return std::ranges::min_element(done.modes, {},
                                        [&](const ModeReport& m) { return std::abs(m.frequency - f); })
            ->frequency;
    };
    expect_documented("two waves", nearest(213), 213.00, 0.01, 211.65, 0.007);
    expect_documented("three waves", nearest(595), 595.06, 0.01, 598.64, 0.007);
    for (std::size_t k = 0; k < 6; ++k) EXPECT_TRUE(done.modes.at(k).zero) << k;
}

// To their end with the energy in balance and without a complaint.
TEST_F(ShippedModels, ImpactsKeepTheirEnergyAndMoveAsDocumented) {
    int models = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KESTRALUM_SOURCE_DIR "/data")) {
        const std::string name = entry.path().stem().string();
        if (!name.starts_with("explicit_") || entry.path().extension() != ".txt") continue;
        const RunReport done = analyse_shipped(name, analyse_explicit);
        EXPECT_LT(std::abs(done.dynamics.drift), name == "explicit_shaker" ? 1e-9 : 0.01) << name;
        EXPECT_EQ(done.dynamics.steps, done.dynamics.time_num - 1) << name;
        ++models;
        const Frame &last = *result.results.back(), &before = *result.results.at(result.results.size() - 2);
        const std::array<double, 6> all{-1, 1, -1, 1, -1, 1}, left{0, 0.2, 0, 1, 0, 1},
            right{0.2001, 0.4001, 0, 1, 0, 1};
        if (name == "explicit_perforation") {
            EXPECT_NEAR(static_cast<double>(done.dynamics.eroded_elements), 66, 12);
            EXPECT_EQ(std::ssize(last.removed), done.dynamics.eroded_elements);
            // the pin's top is below the plate
            EXPECT_LT(mean({0.029, 0.031, 0.029, 0.031, 0.0131, 0.0133}, last.mode_vec, 2), -0.0132);
        }
        if (name == "explicit_tear") {
            std::vector<std::int32_t> notch;
            for (std::int32_t e = 0; e < result.mesh.element_num(); ++e)
                if (model.parts[result.mesh.p_ele_part_id[e]].name == "NECK") notch.push_back(e);
            EXPECT_EQ(last.removed, notch);
        }
        if (name == "explicit_bar_wall") expect_wave(file("history_explicit_bar_wall.csv"));
        if (name == "explicit_slide")  // v² / (2 μ g)
            expect_documented("way", mean(all, last.mode_vec, 0), 0.679, 1e-3, 0.680, 0.002);
        if (name != "explicit_collision") continue;
        auto speed = [&](const std::array<double, 6>& box) {
            return (mean(box, last.mode_vec, 0) - mean(box, before.mode_vec, 0)) /
                   (last.n_freq - before.n_freq);
        };
        EXPECT_NEAR(speed(left), -10, 0.1);
        EXPECT_NEAR(speed(right), 20, 0.1);
    }
    EXPECT_EQ(models, 7);
}

}  // namespace kestralum::testing
