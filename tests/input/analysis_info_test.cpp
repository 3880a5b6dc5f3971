#include <gtest/gtest.h>

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

TEST(AnalysisInfo, TablesOfTheExplicitAnalysisArePassedOver) {
    const Outcome o = read_text(
        "x explicit RIGID_WALL d_time 5 % INITIAL_VELOCITY % VELOCITY_INPUT a %x "
        "ELEMENT_CONTACT END % C_alfa 2 stop d_time 7");
    ASSERT_EQ(o.report.status, AnalysisInfoStatus::read);
    EXPECT_EQ(o.store.control.d_time, 0);
    EXPECT_EQ(o.store.control.c_alfa, 2);
    EXPECT_EQ(o.report.remarks.notices.size(), 4u);
    EXPECT_EQ(o.report.end_token, "stop");
    EXPECT_EQ(o.report.end_token_number, 17);
    EXPECT_FALSE(o.report.ended_at_end);
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
        {"output_frequency 0", "token 4 '0': expected an integer of at least 1"},
        {"C_alfa", "end of file: expected a value for C_alfa"},
        {"MATERIAL_EXTRA_INFO STEEL 1 -2 3 %", "token 6 '-2': expected a constant of at least 0 Pa"},
        {"MATERIAL_EXTRA_INFO STEEL 1 2 %", "token 7 '%': expected 1 more of the "},
        {"d_time 5 MATERIAL_EXTRA_INFO STEEL 1 q", "end of file: expected 1 more of the "},
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
