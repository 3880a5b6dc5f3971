#include <gtest/gtest.h>

#include <cmath>

#include "input/analysis_info_reader.h"
#include "input_files.h"
#include "model/console.h"
#include "model_text.h"

using namespace kestralum;

namespace {

struct Outcome {
    ModelStore store;
    AnalysisInfoReport report;
    std::string lines;
};

ModelStore two_materials() {
    ModelStore store = placeholder_model();
    store.materials.push_back({.id = 1, .name = "ALU", .density = 2700, .young = 7e10, .poisson = 0.33});
    store.parts.resize(2);
    store.parts[0].name = "STRUT";
    store.parts[1].name = "PLATE";
    return store;
}

Outcome read_text(const std::string& text) {
    static const test::TemporaryFolder folder;
    Outcome outcome{two_materials(), {}, {}};
    folder.write("beam.ana", text);
    outcome.store.model_file_name = folder.name("beam.txt");
    console::Capture console;
    outcome.report = read_analysis_info(outcome.store);
    outcome.lines =
        console.lines.substr(console.lines.find('\n', console.lines.find("analysis_info_file_name:")) + 1);
    return outcome;
}

}  // namespace

TEST(AnalysisInfo, FileNames) {
    EXPECT_EQ(analysis_info_file_name("data\\beam.txt"), "data\\beam.ana");
    EXPECT_EQ(analysis_info_file_name("data\\beam.old.txt"), "data\\beam.old.ana");
    EXPECT_EQ(analysis_info_file_name("beam"), "beam.ana");
    EXPECT_EQ(analysis_info_file_name("..\\models.d\\beam"), "..\\models.d\\beam.ana");
    EXPECT_EQ(last_dot("data\\beam.txt"), 9);
    EXPECT_EQ(last_dot("beam"), -1);
}

TEST(AnalysisInfo, EverySettingAndItsEcho) {
    const Outcome o = read_text(
        "x explicit d_time: 1e-6 end_time 2*mm % output_frequency 10 C_alfa 5 Gravity -z "
        "Plastic on Element_contact on MATERIAL_EXTRA_INFO ALU 2.6e10 1e8 1e9 BRASS 1 1 1 % END");
    ASSERT_EQ(o.report.status, AnalysisInfoStatus::read);
    EXPECT_TRUE(o.report.ended_at_end);
    const AnalysisControl& c = o.store.control;
    EXPECT_EQ(c.d_time, 1e-6);
    EXPECT_EQ(c.end_time, 0.002);
    EXPECT_EQ(c.output_frequency, 10);
    EXPECT_EQ(c.c_alfa, 5);
    EXPECT_EQ(c.gravity_axis, 2);
    EXPECT_EQ(c.gravity_sign, -1);
    EXPECT_TRUE(c.plastic);
    EXPECT_TRUE(c.element_contact);
    EXPECT_EQ(o.store.materials[0].yield_stress, 0);
    EXPECT_EQ(o.store.materials[1].shear_modulus, 2.6e10);
    EXPECT_EQ(o.store.materials[1].yield_stress, 1e8);
    EXPECT_EQ(o.store.materials[1].hardening, 1e9);
    ASSERT_EQ(o.report.remarks.notices.size(), 1u);
    EXPECT_NE(o.report.remarks.notices[0].find("beam.ana: token 23 'BRASS': no material"), std::string::npos)
        << o.report.remarks.notices[0];
    EXPECT_EQ(o.lines,
              "ANALYSIS INFO FILE OPEN !!\nd_time:\n  d_time=1.000e-06\nend_time\n  end_time=2.000e-03\n%\n"
              "output_frequency\n  out_inc=10\nC_alfa\n  C_alfa=5.000e+00\nGravity\nPlastic\n  Plastic=on\n"
              "  plastic_analysis=1\nElement_contact\n  Element_contact=on\n  element_contact=1\n"
              "MATERIAL_EXTRA_INFO\n  mat_info_num=2\nALU:G=2.600e+10, Sy=1.000e+08, Sd=1.000e+09\nEND\nFILE "
              "CLOSE !!\n");
}

TEST(AnalysisInfo, GravityAndSwitches) {
    const struct {
        const char* word;
        int axis, sign;
    } cases[] = {{"+x", 0, 1}, {"-y", 1, -1}, {"+z", 2, 1},  {"off", -1, 1},
                 {"z", -1, 1}, {"-w", -1, 1}, {"+xx", -1, 1}};
    for (const auto& c : cases) {
        const Outcome o = read_text(std::string("x explicit Gravity ") + c.word + " d_time 1 END");
        EXPECT_EQ(o.store.control.gravity_axis, c.axis) << c.word;
        EXPECT_EQ(o.store.control.gravity_sign, c.sign) << c.word;
        EXPECT_EQ(o.store.control.d_time, 1);
    }
    const Outcome o = read_text("x explicit Plastic on Plastic yes END");
    EXPECT_TRUE(o.store.control.plastic);
    EXPECT_NE(o.lines.find("  Plastic=yes\n  plastic_analysis=1\n"), std::string::npos);
    EXPECT_EQ(o.report.remarks.notices.size(), 1u);
}

TEST(AnalysisInfo, ReadsEndWhereNoKeywordStands) {
    const Outcome o = read_text("x explicit RIGID_WALL % INITIAL_VELOCITY % VELOCITY_INPUT %x ELEMENT_CONTACT % C_alfa 2 stop d_time 7");
    ASSERT_EQ(o.report.status, AnalysisInfoStatus::read);
    EXPECT_EQ(o.store.control.d_time, 0);
    EXPECT_EQ(o.store.control.c_alfa, 2);
    EXPECT_EQ(o.report.end_token, "stop");
    EXPECT_EQ(o.report.end_token_number, 13);
    EXPECT_FALSE(o.report.ended_at_end);
}

TEST(AnalysisInfo, TablesOfTheExplicitAnalysisAndTheirEchoes) {
    const Outcome o = read_text(
        "x explicit RIGID_WALL FLOOR plane +z 0 0 0.3 0.1 -1 1 -1 1 0 0 0 0 -1*time "
        "PIN cylinder -y 2*5*mm 1e6 0 0 0 0 0 1 0 0 mm*sin(time) 0 0 % "
        "INITIAL_VELOCITY STRUT part x -100 0 0 0 0 0 0 TOP area z 2*mm 0 1 0 1 2 2 % "
        "VELOCITY_INPUT PUSH volume y 5+time 0 1 0 1 0 1 % "
        "ELEMENT_CONTACT HIT STRUT PLATE 0.5 0.2 0 mm 0 0 0 0 0 0 1e-3 % END");
    ASSERT_EQ(o.report.status, AnalysisInfoStatus::read) << (o.report.remarks.errors.empty() ? "" : o.report.remarks.errors[0]);
    const ExplicitTables& t = o.store.explicit_tables;
    ASSERT_EQ(t.walls.size(), 2u);
    EXPECT_EQ(t.walls[0].kind, WallKind::plane);
    EXPECT_EQ(t.walls[0].axis, 2);
    EXPECT_EQ(t.walls[0].side, 1);
    EXPECT_EQ(t.walls[0].friction, 0.3);
    EXPECT_EQ(t.walls[0].damping, 0.1);
    EXPECT_EQ(t.walls[0].box[3], 1);
    EXPECT_EQ(t.walls[0].motion[2].at(0.5, o.store.parameters), -0.5);
    EXPECT_EQ(t.walls[0].motion[1].at(0.5, o.store.parameters), 0);
    EXPECT_EQ(t.walls[1].kind, WallKind::cylinder);
    EXPECT_EQ(t.walls[1].axis, 1);
    EXPECT_EQ(t.walls[1].side, -1);
    EXPECT_DOUBLE_EQ(t.walls[1].radius, 0.01);
    EXPECT_EQ(t.walls[1].stiffness, 1e6);
    EXPECT_DOUBLE_EQ(t.walls[1].motion[0].at(2, o.store.parameters), 0.001 * std::sin(2.0));
    ASSERT_EQ(t.initial_velocities.size(), 2u);
    EXPECT_EQ(t.initial_velocities[0].kind, VelocitySelection::part);
    EXPECT_EQ(t.initial_velocities[0].velocity.start, -100);
    EXPECT_EQ(t.initial_velocities[1].axis, 2);
    EXPECT_EQ(t.initial_velocities[1].box[5], 2);
    ASSERT_EQ(t.velocity_inputs.size(), 1u);
    EXPECT_EQ(t.velocity_inputs[0].velocity.at(3, o.store.parameters), 8);
    ASSERT_EQ(t.contacts.size(), 1u);
    EXPECT_EQ(t.contacts[0].part[0], 0);
    EXPECT_EQ(t.contacts[0].part[1], 1);
    EXPECT_EQ(t.contacts[0].gap, 0.001);
    EXPECT_EQ(t.contacts[0].start_time, 1e-3);
    EXPECT_EQ(o.lines,
              "ANALYSIS INFO FILE OPEN !!\nRIGID_WALL\n  rigid_wall_num=2\n RIGID_WALL\n 0: FLOOR, plane, +z\n"
              "    0[0.000e+00], 0[0.000e+00], 0.3[3.000e-01], 0.1[1.000e-01]\n"
              "    -1.000e+00, 1.000e+00, -1.000e+00, 1.000e+00, 0.000e+00, 0.000e+00\n    0, 0, -1*time\n"
              " 1: PIN, cylinder, -y\n    2*5*mm[1.000e-02], 1e6[1.000e+06], 0[0.000e+00], 0[0.000e+00]\n"
              "    0.000e+00, 0.000e+00, 0.000e+00, 1.000e+00, 0.000e+00, 0.000e+00\n    mm*sin(time), 0, 0\n"
              "INITIAL_VELOCITY\n INITIAL_VELOCITY\n 0: STRUT, part, x, -100[-1.000e+02]\n"
              "     0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00]\n"
              " 1: TOP, area, z, 2*mm[2.000e-03]\n"
              "     0[0.000e+00], 1[1.000e+00], 0[0.000e+00], 1[1.000e+00], 2[2.000e+00], 2[2.000e+00]\n"
              "VELOCITY_INPUT\n VELOCITY_INPUT\n    5.000e+00[5+time]\n"
              "     0.000e+00, 1.000e+00, 0.000e+00, 1.000e+00, 0.000e+00, 1.000e+00\n"
              "ELEMENT_CONTACT\n ELEMENT_CONTACT\n 0: HIT, STRUT[0],  PLATE[1], 0.5[5.000e-01], 0.2[2.000e-01], 0[0.000e+00], mm[1.000e-03]\n"
              "     0.000e+00, 0.000e+00, 0.000e+00, 0.000e+00, 0.000e+00, 0.000e+00, 1.000e-03\nEND\nFILE CLOSE !!\n");
}

TEST(AnalysisInfo, AnOutputFrequencyBelow1Is1) {
    for (const char* value : {"0", "-3", "-2^31+1"}) {
        const Outcome o = read_text(std::string("x explicit output_frequency ") + value + " END");
        ASSERT_EQ(o.report.status, AnalysisInfoStatus::read) << value;
        EXPECT_EQ(o.store.control.output_frequency, 1);
        ASSERT_EQ(o.report.remarks.notices.size(), 1u);
        EXPECT_NE(o.report.remarks.notices[0].find("every step is stored"), std::string::npos);
        EXPECT_NE(o.lines.find("  out_inc=1\n"), std::string::npos);
    }
}

TEST(AnalysisInfo, ATableThatTheFileDoesNotNameStaysAndThatIsSaid) {
    ModelStore store = two_materials();
    store.explicit_tables.walls.resize(2);
    store.explicit_tables.contacts.resize(1);
    static const test::TemporaryFolder folder;
    folder.write("kept.ana", "x explicit ELEMENT_CONTACT % END");
    store.model_file_name = folder.name("kept.txt");
    console::Capture console;
    const AnalysisInfoReport report = read_analysis_info(store);
    EXPECT_EQ(store.explicit_tables.walls.size(), 2u);
    EXPECT_TRUE(store.explicit_tables.contacts.empty());
    ASSERT_EQ(report.remarks.notices.size(), 1u);
    EXPECT_NE(report.remarks.notices[0].find("no RIGID_WALL"), std::string::npos);
}

TEST(AnalysisInfo, WhatIsNotAControlFileChangesNothing) {
    for (const char* text : {"", "x", "x Explicit d_time 1 END", "explicit d_time 1 END"}) {
        const Outcome o = read_text(text);
        EXPECT_EQ(o.report.status, AnalysisInfoStatus::not_control) << text;
        EXPECT_EQ(test::digest(o.store), test::digest(two_materials())) << text;
    }
    // a missing one keeps the earlier settings, and says so when there are any
    ModelStore store = two_materials();
    store.model_file_name = "no folder\\none.txt";
    console::Capture console;
    EXPECT_EQ(read_analysis_info(store).status, AnalysisInfoStatus::missing);
    EXPECT_EQ(console.lines, "  n_=14\nanalysis_info_file_name:no folder\\none.ana\nFILE OPEN ERROR\n");
    EXPECT_TRUE(read_analysis_info(store).remarks.notices.empty());
    store.control.plastic = true;
    EXPECT_EQ(read_analysis_info(store).remarks.notices.size(), 1u);
}

TEST(AnalysisInfo, ErrorsNameTheTokenAndLeaveTheStore) {
    const struct {
        const char *text, *error;
    } cases[] = {
        {"d_time 1e-6s", "token 4 '1e-6s': expected a number"},
        {"d_time 1 end_time 1/0 END", "token 6 '1/0': expected a finite value"},
        {"output_frequency 2.5", "token 4 '2.5': expected an integer of at least 1"},
        {"output_frequency 1e10", "token 4 '1e10': expected an integer of at least 1"},
        {"C_alfa", "end of file: expected a value for C_alfa"},
        {"MATERIAL_EXTRA_INFO STEEL 1 -2 3 %", "token 6 '-2': expected a constant of at least 0 Pa"},
        {"MATERIAL_EXTRA_INFO STEEL 1 2 %", "token 7 '%': expected 1 more of the "},
        {"d_time 5 MATERIAL_EXTRA_INFO STEEL 1 q", "end of file: expected 1 more of the "},
        {"RIGID_WALL W plane z 0 0 0 0 0 0 0 0 0 0 0 0 0 %", "token 6 'z': expected a signed axis"},
        {"RIGID_WALL W plain +z 0 0 0 0 0 0 0 0 0 0 0 0 0 %", "token 5 'plain': expected a kind of wall"},
        {"RIGID_WALL W sphere +z 0 0 0 0 0 0 0 0 0 0 0 0 0 %", "token 7 '0': expected a radius above 0"},
        {"RIGID_WALL W plane +z 0 0 0 0 1 0 0 0 0 0 0 0 0 %", "token 12 '0': expected an upper bound"},
        {"RIGID_WALL W plane +z 0 -1 0 0 0 0 0 0 0 0 0 0 0 %", "token 8 '-1': expected a stiffness"},
        {"RIGID_WALL W plane +z 0 0 0 0 0 0 0 0 0 0 0 0 1/time %", "token 19 '1/time': expected a finite value at time 0"},
        {"RIGID_WALL W plane +z 0 0 0 0 0 0 0 0 0 0 0 0 timer %", "token 19 'timer': expected a number"},
        {"RIGID_WALL W plane +z %", "token 7 '%': expected 13 more of the 16 tokens of a record of RIGID_WALL"},
        {"INITIAL_VELOCITY STRAT part x 1 0 0 0 0 0 0 %", "token 4 'STRAT': expected the name of a part"},
        {"VELOCITY_INPUT a plane x time+q 0 0 0 0 0 0 %", "token 7 'time+q': expected a number or an expression over the parameters and time"},
        {"ELEMENT_CONTACT c STRUT PLOTE 1 0 0 0 0 0 0 0 0 0 0 %", "token 6 'PLOTE': expected the name of a part"},
        {"ELEMENT_CONTACT c STRUT PLATE 2 0 0 0 0 0 0 0 0 0 0 %", "token 7 '2': expected a penalty factor"},
        {"ELEMENT_CONTACT c STRUT PLATE 1 0 0 0 0 0 0 0 0 0", "end of file: expected 1 more of the 14"},
    };
    for (const auto& c : cases) {
        const Outcome o = read_text(std::string("x explicit ") + c.text);
        EXPECT_EQ(o.report.status, AnalysisInfoStatus::wrong) << c.text;
        bool said = false;
        for (const std::string& line : o.report.remarks.errors)
            said = said || line.find(c.error) != std::string::npos;
        EXPECT_TRUE(said) << c.error;
        EXPECT_EQ(test::digest(o.store), test::digest(two_materials())) << c.text;
    }
}
