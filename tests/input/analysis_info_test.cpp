#include <gtest/gtest.h>

#include "input/analysis_info_reader.h"
#include "model_text.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Outcome {
    Model model;
    AnalysisInfoReport report;
    std::string lines, errors, notices;
    const AnalysisControl& control() const { return model.control; }
};

Model two_materials() {
    Model model = placeholder_model();
    model.materials.push_back({.id = 1, .name = "ALU", .density = 2700, .young = 7e10, .poisson = 0.33});
    model.parts.resize(2);
    model.parts[0].name = "STRUT";
    model.parts[1].name = "PLATE";
    return model;
}

Outcome read_text(const std::string& text, const Model& before = two_materials()) {
    static const TempFolder folder;
    Model model = before;
    folder.write("beam.ana", text);
    model.model_file_name = folder.file("beam.txt");
    Collected c;
    const AnalysisInfoReport report = read_analysis_info_file(model, c);
    EXPECT_EQ(c.errors + c.notices, joined(report.remarks.errors) + joined(report.remarks.notices));
    EXPECT_EQ(report.status == AnalysisInfoStatus::wrong, !c.errors.empty());
    if (report.status != AnalysisInfoStatus::read) {
        EXPECT_EQ(digest(model), digest(before)) << text;
    }
    Model of_text = before;  // a text at hand reads as the file does
    of_text.model_file_name = model.model_file_name;
    Collected told;
    EXPECT_EQ(read_analysis_info_text(of_text, text, told).status, report.status);
    EXPECT_EQ(told.errors + told.notices, c.errors + c.notices);
    EXPECT_EQ(digest(of_text), digest(model));
    const std::size_t name = c.lines.find("analysis_info_file_name:");
    return {model, report, c.lines.substr(c.lines.find('\n', name) + 1), c.errors, c.notices};
}

Outcome read_control(const std::string& sections, const Model& before = two_materials()) {
    return read_text("x explicit " + sections, before);
}

}  // namespace

TEST(AnalysisInfo, EverySettingAndItsEcho) {
    const Outcome o = read_control(
        "d_time: 1e-6 end_time 2*mm % output_frequency 10 C_alfa 5 Gravity -z "
        "Plastic on Element_contact on MATERIAL_EXTRA_INFO ALU 2.6e10 1e8 1e9 BRASS 1 1 1 % END");
    EXPECT_TRUE(o.report.ended_at_end);
    EXPECT_EQ(o.control(), (AnalysisControl{1e-6, 0.002, 10, 5, 2, -1, true, true}));
    const Material& alu = o.model.materials[1];
    EXPECT_EQ((std::array{alu.shear_modulus, alu.yield_stress, alu.hardening}),
              (std::array{2.6e10, 1e8, 1e9}));
    EXPECT_EQ(o.model.materials[0].yield_stress, 0);
    EXPECT_EQ(lines_of(o.notices).size(), 1u);
    EXPECT_TRUE(contains(o.notices, "beam.ana: token 23 'BRASS': no material"));
    EXPECT_EQ(o.lines,
              "ANALYSIS INFO FILE OPEN !!\nd_time:\n  d_time=1.000e-06\nend_time\n  end_time=2.000e-03\n%\n"
              "output_frequency\n  out_inc=10\nC_alfa\n  C_alfa=5.000e+00\nGravity\nPlastic\n  Plastic=on\n"
              "  plastic_analysis=1\nElement_contact\n  Element_contact=on\n  element_contact=1\n"
              "MATERIAL_EXTRA_INFO\n  mat_info_num=2\nALU:G=2.600e+10, Sy=1.000e+08, Sd=1.000e+09\nEND\n"
              "FILE CLOSE !!\n");
}

TEST(AnalysisInfo, HardeningCurvesAndLoadFactors) {
    const Outcome o = read_control(
        "MATERIAL_EXTRA_INFO ALU 1 2 3 table=0:2*1e8,1*mm:SWITCH(1,3e8,0,0) kinematic=1e9 shear=elastic "
        "STEEL 1 2 3 % "
        "NL_HALVING 2^2 LOAD_FACTOR_EXPR sin(time) LOAD_FACTORS 0.5 1 -1 %");
    const Material &steel = o.model.materials[0], &alu = o.model.materials[1];
    EXPECT_EQ(alu.hardening_table, (std::vector<std::array<double, 2>>{{0, 2e8}, {0.001, 3e8}}));
    EXPECT_TRUE(alu.kinematic == 1e9 && alu.elastic_shear && !steel.elastic_shear);
    EXPECT_EQ(o.control().load_factors, (std::vector<double>{0.5, 1, -1}));
    EXPECT_FALSE(o.control().load_factor_expression.given()) << "the later of both holds";
    EXPECT_EQ(o.control().nl_halving, 4);
    EXPECT_TRUE(contains(o.lines,
                         "Sd=3.000e+00\n options: table=0:2*1e8,1*mm:SWITCH(1,3e8,0,0) kinematic=1e9 shear"));
    // what the next file does not say of a material is gone, what it does not say of the increments stays
    const Outcome next = read_control("MATERIAL_EXTRA_INFO ALU 1 2 3 % END", o.model);
    EXPECT_TRUE(next.model.materials[1].hardening_table.empty() && !next.model.materials[1].elastic_shear);
    EXPECT_EQ(next.control().load_factors.size(), 3u);
    EXPECT_TRUE(contains(next.notices, "no LOAD_FACTORS; the records of the earlier model stay in force"));
    const Outcome wave = read_control("LOAD_FACTOR_EXPR 2*time END", o.model);
    EXPECT_TRUE(wave.control().load_factors.empty());
    EXPECT_EQ(wave.control().load_factor_expression.at(nullptr, 0.25), 0.5);

    const std::pair<const char*, const char*> wrong[] = {
        {"table=", "(a pair has no colon)"},
        {"table=0:1,2", "a pair has no colon"},
        {"table=1e-9:1", "the first plastic strain is 0"},
        {"table=0:1,0:2", "the plastic strains rise"},
        {"table=0:1,1:0", "stresses are above 0"},
        {"table=0:1,q:2", "unknown name 'q'"},
        {"table=0:1,", "a pair has no colon"},
        {"table=0:(1,1:2", "not understood"},
        {"kinematic=-1", "at least 0 Pa"},
        {"shear=plastic", "expected shear=elastic"},
        {"shear=elastic shear=elastic", "the option shear= once"},
        {"% NL_HALVING 21", "an integer of 0 to 20"},
        {"% NL_HALVING -1", "at least 0"},
        {"% LOAD_FACTORS", "a load factor"},
        {"% LOAD_FACTORS 1 1/0", "a finite value"},
        {"% LOAD_FACTOR_EXPR x", "an expression over time"}};
    for (const auto& [words, expected] : wrong)
        EXPECT_TRUE(contains(
            read_control(std::string("MATERIAL_EXTRA_INFO ALU 1 2 3 ") + words + " % END").errors, expected))
            << words;
}

TEST(AnalysisInfo, GravitySwitchesAndFrequencies) {
    const std::tuple<const char*, int, int> gravities[] = {{"+x", 0, 1},   {"-y", 1, -1}, {"+z", 2, 1},
                                                           {"off", -1, 1}, {"z", -1, 1},  {"-w", -1, 1},
                                                           {"+xx", -1, 1}};
    for (const auto& [word, axis, sign] : gravities) {
        const AnalysisControl c = read_control(std::string("Gravity ") + word + " d_time 1 END").control();
        EXPECT_TRUE(c.gravity_axis == axis && c.gravity_sign == sign && c.d_time == 1) << word;
    }
    const Outcome o = read_control("Plastic on Plastic yes END");
    EXPECT_TRUE(o.control().plastic);
    EXPECT_TRUE(contains(o.lines, "  Plastic=yes\n  plastic_analysis=1\n"));
    EXPECT_TRUE(contains(o.notices, "'yes': not on or off"));
    for (const char* value : {"0", "-3", "-2^31+1"}) {
        const Outcome every = read_control(std::string("output_frequency ") + value + " END");
        EXPECT_EQ(every.control().output_frequency, 1) << value;
        EXPECT_TRUE(contains(every.notices, "every step is stored") &&
                    contains(every.lines, "  out_inc=1\n"));
    }
}

TEST(AnalysisInfo, WhatTheFileDoesNotNameStays) {
    Model before = two_materials();
    before.explicit_tables.walls.resize(2);
    before.explicit_tables.contacts.resize(1);
    const Outcome kept = read_control("ELEMENT_CONTACT % END", before);
    EXPECT_EQ(kept.model.explicit_tables.walls.size(), 2u);
    EXPECT_TRUE(kept.model.explicit_tables.contacts.empty());
    EXPECT_EQ(lines_of(kept.notices).size(), 1u);
    EXPECT_TRUE(contains(kept.notices, "no RIGID_WALL"));
    // a missing file keeps the earlier settings, with a notice when there are any
    for (const bool any : {false, true}) {
        Model model = any ? before : two_materials();
        model.model_file_name = "no folder\\none.txt";
        Collected c;
        EXPECT_EQ(read_analysis_info_file(model, c).status, AnalysisInfoStatus::missing);
        EXPECT_EQ(c.lines, "  n_=14\nanalysis_info_file_name:no folder\\none.ana\nFILE OPEN ERROR\n");
        EXPECT_EQ(c.notices.empty(), !any);
    }
}

TEST(AnalysisInfo, OtherFilesAreNoControlFiles) {
    using Status = AnalysisInfoStatus;
    const std::pair<const char*, Status> files[] = {{"x explicit", Status::read},
                                                    {"x explicit % END", Status::read},
                                                    {"\xef\xbb\xbfx explicit\r\nEND\r\n", Status::read},
                                                    {"", Status::not_control},
                                                    {"x", Status::not_control},
                                                    {"x Explicit d_time 1 END", Status::not_control},
                                                    {"explicit d_time 1 END", Status::not_control},
                                                    {"is explicit about nothing", Status::wrong},
                                                    {"x explicit % %x stop d_time 1 END", Status::wrong}};
    for (const auto& [text, status] : files) {
        const Outcome o = read_text(text);
        EXPECT_EQ(o.report.status, status) << text;
        EXPECT_EQ(status == Status::wrong, contains(o.errors, "': expected a key such as d_time or END"))
            << text;
        EXPECT_EQ(status == Status::not_control, contains(o.notices, "second token is not explicit")) << text;
    }
    // a later word that is no key ends the file
    const Outcome o = read_control(
        "RIGID_WALL % INITIAL_VELOCITY % VELOCITY_INPUT %x ELEMENT_CONTACT % C_alfa 2 stop d_time 7");
    EXPECT_EQ(o.report.status, Status::read);
    EXPECT_TRUE(o.control().d_time == 0 && o.control().c_alfa == 2);
    EXPECT_EQ(o.report.end_token, "stop");
    EXPECT_EQ(o.report.end_token_number, 13);
    EXPECT_FALSE(o.report.ended_at_end);
    // one that stands there and cannot be read
    const TempFolder folder;
    Model model = two_materials();
    model.model_file_name = folder.file("beam.txt");
    std::filesystem::create_directory(folder.path() / "beam.ana");
    Collected c;
    EXPECT_EQ(read_analysis_info_file(model, c).status, Status::wrong);
    EXPECT_EQ(c.errors, folder.file("beam.ana") + ": cannot be read: Is a directory\n");
    EXPECT_TRUE(c.lines.ends_with("FILE OPEN ERROR\n"));
}

TEST(AnalysisInfo, LongPartNamesAreCutAsInTheModel) {
    Model model = two_materials();
    const std::string longest(80, 'p');
    model.parts[0].name = longest.substr(0, 63);
    const Outcome o =
        read_control("ELEMENT_CONTACT c " + longest + " PLATE 1 0 0 0 0 0 0 0 0 0 0 % INITIAL_VELOCITY " +
                         longest + " part x 1 0 0 0 0 0 0 % d_time 1e-6+time",
                     model);
    EXPECT_EQ(o.model.explicit_tables.contacts.at(0).part_name[0], model.parts[0].name);
    EXPECT_EQ(o.model.explicit_tables.initial_velocities.at(0).name, model.parts[0].name);
    EXPECT_TRUE(contains(o.notices, "cut to its first 63 characters"));
    EXPECT_TRUE(contains(o.notices, "token 32 '1e-6+time': time is 0 here"));
}

TEST(AnalysisInfo, ErrorsNameTheToken) {
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"d_time 1e-6s", "token 4 '1e-6s': expected a number"}, {"C_alfa", "end of file: expected a value for C_alfa"},
        {"d_time 1 end_time 1/0 END", "token 6 '1/0': expected a finite value"},
        {"output_frequency 2.5", "token 4 '2.5': expected an integer of at least 1"},
        {"output_frequency 1e10", "token 4 '1e10': expected an integer of at least 1"},
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
        {"VELOCITY_INPUT a plane x time+q 0 0 0 0 0 0 %",
         "token 7 'time+q': expected a number or an expression over the parameters and time"},
        {"ELEMENT_CONTACT c STRUT PLOTE 1 0 0 0 0 0 0 0 0 0 0 %", "token 6 'PLOTE': expected the name of a part"},
        {"ELEMENT_CONTACT c STRUT PLATE 2 0 0 0 0 0 0 0 0 0 0 %", "token 7 '2': expected a penalty factor"},
        {"ELEMENT_CONTACT c STRUT PLATE 1 0 0 0 0 0 0 0 0 0", "end of file: expected 1 more of the 14"}
    };
    // clang-format on
    for (const auto& [sections, error] : cases)
        EXPECT_TRUE(contains(read_control(sections).errors, error)) << error;
}
