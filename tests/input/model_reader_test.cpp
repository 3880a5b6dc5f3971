#include "input/model_reader.h"

#include <gtest/gtest.h>

#include <iostream>

#include "model_text.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Outcome {
    Model model;
    ModelReadReport report;
    std::string lines;
};

Outcome read_text(const std::string& text, const std::vector<ParameterOverride>& overrides = {},
                  const Model& before = placeholder_model()) {
    static const TempFolder folder;
    Outcome outcome{before, {}, {}};
    outcome.model.model_file_name = folder.write("model.txt", text);
    Collected collected;
    outcome.report = read_input_file(outcome.model, overrides, collected);
    outcome.lines = collected.lines;
    return outcome;
}

std::string errors_of(const std::string& text, const std::vector<ParameterOverride>& overrides = {}) {
    return joined(read_text(text, overrides).report.remarks.errors);
}

std::string all(const Remarks& remarks) {
    return joined(remarks.errors) + joined(remarks.notices);
}

std::string with_crlf(const std::string& text) {
    std::string out;
    for (const std::string& line : lines_of(text)) out += line + "\r\n";
    return out;
}

double parameter(const Model& model, const std::string& name) {
    for (const Parameter& p : model.parameters)
        if (p.name == name) return p.value;
    ADD_FAILURE() << "no parameter " << name;
    return 0;
}

}  // namespace

TEST(ModelReader, TablesOfAWholeModel) {
    const Outcome o = read_text(model_text);
    ASSERT_TRUE(o.report.ok) << all(o.report.remarks);
    EXPECT_EQ(all(o.report.remarks), "");
    EXPECT_EQ(o.report.end_token, "END");
    EXPECT_EQ(o.report.end_token_number, static_cast<std::int64_t>(tokens_of(model_text).size()));
    EXPECT_TRUE(o.report.ended_at_end);
    const Model& s = o.model;

    const Part& block = s.parts.at(1);
    EXPECT_EQ(s.materials.at(0).density, 7800);
    EXPECT_EQ(s.parameters.at(1).expression, "200*mm");
    EXPECT_TRUE(block.material_id == 1 && block.parent_index == 0 && block.unit_factor == 0.001);
    EXPECT_EQ(s.parts_o.size(), 2u);
    EXPECT_EQ(s.boundary_conditions.at(2).kind, Selection::volume);
    EXPECT_DOUBLE_EQ(s.boundary_conditions.at(1).box[5], 0.01);
    EXPECT_DOUBLE_EQ(s.forces.at(1).box[3], 0.02);
    EXPECT_EQ(s.rigid_elements.at(1).kind, RigidSelection::round);
    EXPECT_EQ(s.rigid_elements.at(1).region, (std::array<double, 6>{0.001, 0.002, 0.003, 0.005, 2, 0.004}));
    EXPECT_EQ(s.rigid_forces.at(1).direction, RigidDirection::normal);
    EXPECT_EQ(s.rigid_forces.at(1).element, 1);
    EXPECT_EQ(s.rigid_combines.at(0).stiffness[5], 30);

    // 5·3·2 nodes of the bar, 3·3·2 of the block, 3·3 of them on the bar
    EXPECT_EQ(s.mesh.node_num(), 39);
    EXPECT_EQ(s.mesh.element_num(), 12);
    EXPECT_EQ(s.mesh.dof_num(), 117);
    EXPECT_EQ(resolve_force_points(s.mesh, s.forces), (std::vector<std::int32_t>{30, 0, 0}));
    EXPECT_EQ(s.iteration_limit, 20);
    EXPECT_EQ(s.mode_count, 6);
    // the corner of the bar at the origin looks outwards along all three axes
    for (int c = 0; c < 3; ++c) EXPECT_LT(s.mesh.node_n_dir[static_cast<std::size_t>(c)], 0);
}

TEST(ModelReader, EchoLines) {
    const std::string lines = read_text(model_text).lines;
    const char* in_order[] = {
        "INPUT FILE OPEN !!\nstr=material_info\nmaterial_num=2\n"
        " STEEL:p=7.800000e+03, E=2.060000e+11, nyu=3.000000e-01\n"
        " ALU:p=2.700000e+03, E=7.000000e+10, nyu=3.300000e-01\n"
        "str=mode_num\n6\nstr=iteration\n20\nstr=parameter\nparam_num=3\n mm:1.000000e-03\n L:2.000000e-01\n",
        "str=part_info\ncreate_PART\nBAR: parent=NONE\n",
        "BLOCK: parent=BAR\n",
        "str=boundary_condition\n CLAMP plane x 0 0 0 0 0 0 SIDE area y 0 L",
        " 5*mmbc_num=3\n0:CLAMP, plane[0], x[0]\n"
        ":0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00], 0[0.000e+00],\n"
        "1:SIDE, area[1], y[1]\n:0[0.000e+00], L[2.000e-01],",
        "str=apply_force\n TIP node z P L",
        "force_num=3\nApply_Force\n0:TIP node z:P=-1.000e+03 L=2.000e-01 20*mm=2.000e-02 10*mm=1.000e-02"
        "1:PUSH area x:500=5.000e+02 L=2.000e-01 L=2.000e-01 0=0.000e+00 20*mm=2.000e-02 0=0.000e+00 "
        "10*mm=1.000e-02"
        "2:LOST node y:",
        "str=rigid_element\n HEAD area",
        "rigid_element_num=2\nRigid_Element\n0:HEAD\n2.000e-01,0.000e+00,0.000e+00\n"
        "2.000e-01,2.000e-01,0.000e+00,2.000e-02,0.000e+00,1.000e-02\n1:RING\n",
        "rigid_force_num=2\nRigid_FORCE\n0:RF1\nHEAD, ry[4], 3.5[3.500e+00]\n1:RF2\nRING, n[6], "
        "-P[1.000e+03]\n",
        "rigid_combine_num=1\nRigid_Combine\n0:RC\nHEAD[0], RING[1]\n1e6[1.000e+06], 2e6[2.000e+06], "
        "3e6[3.000e+06], 10[1.000e+01], 20[2.000e+01], 30[3.000e+01]\n",
        "str=END\nMATERIAL DATA FILE CLOSE !!\n",
        "element_num=12,point_num=39,fn=117\nPART_O\nNormal "
        "direction\nforce_point\nmax_length=2.000000e-01\n",
    };
    std::size_t at = 0;
    for (const char* expected : in_order) {
        const std::size_t found = lines.find(expected, at);
        ASSERT_NE(found, std::string::npos) << expected << "\nnot in\n" << lines.substr(at);
        at = found;
    }
    EXPECT_TRUE(lines.ends_with("max_length=2.000000e-01\n"));
}

TEST(ModelReader, KeywordsMatchByTheirBeginning) {
    const Outcome o = read_text(
        "% %comment material_info_steel A 1 2 0 %end step_num 10 % parameter1 q 3 % "
        "iteration: 7 % mode_num||step_num 2*q x boundaryconditions END");
    ASSERT_TRUE(o.report.ok) << all(o.report.remarks);
    EXPECT_EQ(o.model.materials.at(0).name, "A");
    EXPECT_EQ(o.model.iteration_limit, 7);
    EXPECT_EQ(o.model.mode_count, 6);  // the later one of both keywords
    EXPECT_EQ(o.report.end_token, "boundaryconditions");
    EXPECT_EQ(o.report.end_token_number, 22);
    EXPECT_FALSE(o.report.ended_at_end);
    EXPECT_TRUE(o.lines.starts_with("INPUT FILE OPEN !!\nstr=%\nstr=%comment\nstr=material_info_steel\n"));
    EXPECT_TRUE(contains(o.lines, "str=boundaryconditions\nMATERIAL"));
}

TEST(ModelReader, EndOfFileIsAnEndAndAByteOrderMarkNoToken) {
    const Outcome o = read_text("\xef\xbb\xbf" + with_crlf(replaced(model_text, "END", "")));
    ASSERT_TRUE(o.report.ok) << all(o.report.remarks);
    EXPECT_TRUE(o.report.ended_at_end);
    EXPECT_EQ(o.report.end_token, "");
    EXPECT_EQ(digest(o.model), digest(read_text(model_text).model));
}

TEST(ModelReader, AFileThatBeginsWithNoKeywordIsRefused) {
    const std::pair<std::string, const char*> cases[] = {
        {"xyz material_info A 1 1 0 % END", "token 1 'xyz'"},
        {"%A steel pipe", "token 2 'steel'"},
        {"\x89PNG\r\n\x1a\n", "token 1 '?PNG'"},
        {"Beh\xc3\xb6rde", "token 1 'Beh\xc3\xb6rde'"},
        {"Material_info A 1 1 0 %", "token 1 'Material_info'"},
    };
    for (const auto& [text, place] : cases) {
        const Outcome o = read_text(text);
        EXPECT_EQ(joined(o.report.remarks.errors), o.model.model_file_name + ": " + place +
                                                       ": expected a section keyword such as part_info\n");
        EXPECT_EQ(digest(o.model), digest(placeholder_model()));
    }
    for (const char* text : {"", "%only %comments", "END", "% %x END no keyword"})
        EXPECT_TRUE(read_text(text).report.ok);
}

TEST(ModelReader, ParametersHoldFromTheirRecordOn) {
    const std::string early = errors_of("parameter b 2*a a 1 % END");
    EXPECT_TRUE(contains(early, "token 3 '2*a': expected") && contains(early, "unknown name 'a'")) << early;
    // the table is replaced: mm is gone with it
    EXPECT_TRUE(contains(errors_of("parameter a 1 % parameter b mm % END"), "unknown name 'mm'"));
    EXPECT_TRUE(contains(errors_of("material_info A rho 1 0 % parameter rho 1 % END"), "unknown name 'rho'"));
    // names that cannot be told apart or used
    const Outcome odd = read_text("parameter a 1 a 2 1a 3 b a % END");
    ASSERT_TRUE(odd.report.ok);
    EXPECT_EQ(parameter(odd.model, "b"), 1);
    EXPECT_TRUE(
        contains(odd.report.remarks.notices, "token 4 'a': the name stands before; the first value holds"));
    EXPECT_TRUE(contains(odd.report.remarks.notices, "token 6 '1a': no expression"));
}

TEST(ModelReader, OverridesOfParameters) {
    // later records and sections see the value; the first table has a name that the file does not define
    const std::string text =
        "material_info A rho 1 0 % parameter L 2 H 3*L % mode_num H % parameter L 1 K L+rho % END";
    const Outcome o = read_text(text, {{"L", "5"}, {"L", "4*1"}, {"rho", "2*mm"}});
    ASSERT_TRUE(o.report.ok) << all(o.report.remarks);
    EXPECT_EQ(o.model.materials[0].density, 0.002);
    EXPECT_EQ(o.model.mode_count, 12);
    EXPECT_EQ(parameter(o.model, "L"), 4);
    EXPECT_EQ(parameter(o.model, "K"), 4.002);
    ASSERT_EQ(o.model.parameters.size(), 3u);
    EXPECT_EQ(o.model.parameters[0].name, "rho");
    EXPECT_EQ(o.model.parameters[1].expression, "4*1");
    // a name the file does define is not there before its section
    EXPECT_TRUE(contains(errors_of(text, {{"rho", "1"}, {"H", "K"}}), "H=K"));
    EXPECT_TRUE(
        contains(errors_of("material_info A L 1 0 % parameter L 2 % END", {{"L", "5"}}), "unknown name 'L'"));
    // the whole name counts, also where the table keeps less of it
    const std::string longest(80, 'n');
    EXPECT_EQ(read_text("parameter " + longest + " 1 % END", {{longest, "2"}}).model.parameters.at(0).value,
              2);
    // the start-up table counts too
    EXPECT_EQ(parameter(read_text("END", {{"mm", "0.002"}}).model, "mm"), 0.002);

    for (const ParameterOverride& bad :
         {ParameterOverride{"a", "1+"}, {"a", "1/0"}, {"a", "nope"}, {"1a", "1"}, {"", "1"}, {"time", "1"}}) {
        const Outcome refused = read_text(model_text, {bad});
        EXPECT_TRUE(contains(refused.report.remarks.errors, bad.name + "=" + bad.expression))
            << all(refused.report.remarks);
        EXPECT_EQ(digest(refused.model), digest(placeholder_model()));
    }
}

TEST(ModelReader, ErrorsNameTheTokenAndLeaveTheStore) {
    const struct {
        const char *from, *to, *token, *expected;
    } cases[] = {
        {"7.8*1000", "-7800", "-7800", "a density of at least 0"},
        {"7.8*1000", "0/0", "0/0", "a finite value"},
        {"2.06e11", "0", "0", "a Young's modulus above 0"},
        {"2.06e11", "2.06e11GPa", "2.06e11GPa", "not understood at 'GPa'"},
        {" 0.33", " 0.5", "0.5", "a Poisson ratio between -1 and 0.5"},
        {" 0.33", " -1", "-1", "a Poisson ratio between -1 and 0.5"},
        {"mode_num 6", "mode_num 0", "0", "an integer of at least 1"},
        {"mode_num 6", "step_num 2.5", "2.5", "an integer of at least 1"},
        {"mode_num 6", "mode_num 1e10", "1e10", "an integer of at least 1"},
        {"iteration 20", "iteration -3", "-3", "an integer of at least 1"},
        {"iteration 20", "iteration twenty", "twenty", "unknown name 'twenty'"},
        {"200*mm", "200*nm", "200*nm", "unknown name 'nm'"},
        {"200*mm", "1/0", "1/0", "a finite value"},
        {"BLOCK brown ALU", "BLOCK brown BRASS", "BLOCK", "material \"BRASS\""},
        {"RECT  100", "RECT  1OO", "1OO", "part \"BLOCK\": size b"},
        {"   4 2 1 0", "   1/0 2 1 0", "1/0", "part \"BAR\": division db"},
        {"unit=mm", "unit=inch", "unit=inch", "unknown name 'inch'"},
        {"unit=mm", "unit=", "unit=", "unit=WORD"},
        {"parent=BAR", "parent=", "parent=", "parent=NAME"},
        {"SIDE  area", "SIDE  aera", "aera", "a selection (plane, area, volume)"},
        {"area   y", "area   Y", "Y", "an axis (x, y, z)"},
        {"0 0  0 10*mm\n  BOX", "0 0  0 10*\n  BOX", "10*", "a number or an expression"},
        {"TIP  node", "TIP  point", "point", "a kind of force (node, area)"},
        {"node z P", "node w P", "w", "an axis (x, y, z)"},
        {"RING round", "RING circle", "circle", "a selection (area, round)"},
        {"5*mm 2 4*mm", "5*mm 1.5 4*mm", "1.5", "an axis (0, 1, 2)"},
        {"HEAD ry", "HAED ry", "HAED", "the name of a rigid element"},
        {"HEAD ry", "HEAD rw", "rw", "a direction (x, y, z, rx, ry, rz, n)"},
        {"HEAD RING 1e6", "HEAD RONG 1e6", "RONG", "the name of a rigid element"},
    };
    const std::string before = digest(placeholder_model());
    for (const auto& c : cases) {
        const std::string text = replaced(model_text, c.from, c.to);
        const Outcome o = read_text(text);
        EXPECT_FALSE(o.report.ok) << c.to;
        EXPECT_EQ(digest(o.model), before) << c.to;
        // the token's own number, counted from the place of the change
        const std::size_t number = tokens_of(text.substr(0, text.find(c.token, text.find(c.to)))).size() + 1;
        const std::string place = "token " + std::to_string(number) + " '" + c.token + "'";
        bool said = false;
        for (const std::string& line : o.report.remarks.errors)
            said = said || (line.starts_with(o.model.model_file_name + ": ") && contains(line, place) &&
                            contains(line, c.expected));
        EXPECT_TRUE(said) << place << ", " << c.expected << "\n" << all(o.report.remarks);
        EXPECT_TRUE(contains(o.lines, "MATERIAL DATA FILE CLOSE !!\n"));
        EXPECT_FALSE(contains(o.lines, "PART_O"));
    }
}

TEST(ModelReader, RecordsThatAreCut) {
    const std::pair<std::string, const char*> cases[] = {
        {"material_info A 1 2 % END", "token 5 '%': expected 1 more of the "},
        {"boundary_condition B area x 0 1", "end of file: expected 4 more of the "},
        {"apply_force A area x 1 0 0 0 % END", "token 9 '%': expected 3 more of the "},
        {"apply_force A % END", "token 3 '%': expected 6 more of the "},
        {"mode_num", "end of file: expected an integer after mode_num"},
        {model_text.substr(0, model_text.find("parent=") - 3), "end of file: expected"},
    };
    for (const auto& [text, error] : cases) EXPECT_TRUE(contains(errors_of(text), error)) << error;
    const Outcome open = read_text("parameter a 1 b 2");
    ASSERT_TRUE(open.report.ok);
    EXPECT_EQ(parameter(open.model, "b"), 2);
    EXPECT_TRUE(contains(open.report.remarks.notices, "section parameter ends with the file"));
}

TEST(ModelReader, Notices) {
    const struct {
        const char *from, *to, *notice;
    } cases[] = {
        {"mode_num 6 %", "mode_num 6", "'iteration': passed over"},
        {"BOX   volume z  0 5*mm", "BOX   volume z  6*mm 5*mm", "'BOX': selects nothing, xmin is above xmax"},
        {"SIDE  area   y  0 L  0 0  0", "SIDE  area   y  0 L  0 0  1",
         "'SIDE': selects nothing, zmin is above zmax"},
        {"x 500   L L", "x 500   L 0", "'PUSH': selects nothing, xmin is above xmax"},
        {"5*mm 2 4*mm", "-5*mm 2 4*mm", "'RING': selects nothing"},
        {"brown ALU   RECT", "brown ALU   rect", "'BLOCK': part \"BLOCK\": shape \"rect\" is unknown"},
        {"%\nboundary_condition", "boundary_condition",
         "'boundary_condition': stands inside the section part_info"},
    };
    for (const auto& c : cases) {
        const Outcome o = read_text(replaced(model_text, c.from, c.to));
        EXPECT_TRUE(contains(o.report.remarks.notices, c.notice)) << c.to << "\n" << all(o.report.remarks);
    }
    // values that would have to change with time, names that stand twice
    const std::pair<const char*, const char*> once[] = {{"P  -2*500", "P  -2*time"},
                                                        {"x 500   L L", "x time+500   L L"},
                                                        {"RECT  100 20", "RECT  100+time 20"}};
    for (const auto& [from, to] : once) {
        const Outcome o = read_text(replaced(model_text, from, to));
        EXPECT_TRUE(o.report.ok && contains(o.report.remarks.notices, "time is 0 here") &&
                    contains(o.report.remarks.notices, "': "))
            << to << all(o.report.remarks);
    }
    const std::pair<const char*, const char*> twice[] = {
        {"ALU   2700", "STEEL   2700"}, {"P  -2", "L  -2"},        {"BLOCK brown", "BAR brown"},
        {"SIDE  area", "CLAMP area"},   {"PUSH area", "TIP area"}, {"RING round", "HEAD round"},
    };
    for (const auto& [from, to] : twice) {
        const std::string name = tokens_of(to)[0];
        const Outcome o = read_text(replaced(model_text, from, to));
        EXPECT_TRUE(contains(o.report.remarks.notices, " '" + name + "': the name stands before; "))
            << to << all(o.report.remarks);
    }
    // along the normal of its plane only the upper end counts
    EXPECT_EQ(all(read_text(replaced(model_text, "0 L  0 0  0", "0 L  1 0  0")).report.remarks), "");
    // a long name is cut where the record ends
    const Outcome cut = read_text(replaced(model_text, "CLAMP", std::string(70, 'c')));
    ASSERT_TRUE(cut.report.ok);
    EXPECT_EQ(cut.model.boundary_conditions[0].name, std::string(63, 'c'));
    EXPECT_TRUE(contains(cut.report.remarks.notices, "cut to its first 63"));
    EXPECT_TRUE(
        contains(read_text(replaced(model_text, "BLOCK", std::string(70, 'c'))).report.remarks.notices,
                 "cut to its first 63"));
}

TEST(ModelReader, TablesLeftFromTheModelBefore) {
    const Model first = read_text(model_text).model;
    const Outcome second = read_text("boundary_condition % rigid_force % END", {}, first);
    ASSERT_TRUE(second.report.ok) << all(second.report.remarks);
    EXPECT_TRUE(contains(all(second.report.remarks),
                         "left as the earlier model had them: material_info, mode_num, iteration, parameter, "
                         "part_info, apply_force, rigid_element, rigid_combine\n"))
        << all(second.report.remarks);
    EXPECT_EQ(second.report.kept_sections.size(), 8u);
    EXPECT_TRUE(second.model.boundary_conditions.empty());
    EXPECT_EQ(second.model.forces.size(), 3u);
    EXPECT_EQ(second.model.mesh.node_num(), 39);
    // what is left follows the new tables by name, or cannot stay
    const Outcome moved = read_text("material_info X 1 1 0 ALU 1 1 0 STEEL 2 2 0 % END", {}, first);
    ASSERT_TRUE(moved.report.ok) << all(moved.report.remarks);
    EXPECT_EQ(moved.model.parts[0].material_id, 2);
    EXPECT_EQ(moved.model.parts[1].material_id, 1);
    const Outcome orphan = read_text("material_info X 1 1 0 % rigid_element % END", {}, first);
    EXPECT_TRUE(contains(orphan.report.remarks.errors, "part BAR: no material STEEL"));
    EXPECT_TRUE(contains(orphan.report.remarks.errors, "rigid force RF1: no rigid element HEAD"));
    EXPECT_EQ(digest(orphan.model), digest(first));
    // nothing is said of the start-up values
    EXPECT_EQ(all(read_text("END").report.remarks), "");
}

TEST(ModelReader, NothingIsSizedByTheCount) {
    EXPECT_EQ(read_text(replaced(model_text, "mode_num 6", "mode_num 2147483647")).model.mode_count,
              2147483647);
}

TEST(ModelReader, FileNames) {
    const TempFolder folder;
    Model model = placeholder_model();
    model.model_file_name = folder.file("none.txt");
    Collected missing;
    EXPECT_FALSE(read_input_file(model, {}, missing).ok);
    EXPECT_EQ(missing.lines, "INPUT FILE OPEN ERROR\n");
    EXPECT_TRUE(contains(missing.errors, "none.txt: No such file"));
    EXPECT_EQ(model.source, ModelSource::start_up);
    // asked for on the console
    model.model_file_name.clear();
    const std::string name = folder.write("typed.txt", "step_num 4 % END");
    std::istringstream typed("  " + name + " \n");
    std::streambuf* const former = std::cin.rdbuf(typed.rdbuf());
    Collected asked;
    const ModelReadReport report = read_input_file(model, {}, asked);
    std::cin.rdbuf(former);
    EXPECT_TRUE(report.ok);
    EXPECT_TRUE(asked.lines.starts_with("Input File Name ?" + name + "\nINPUT FILE OPEN !!\n"))
        << asked.lines;
    EXPECT_EQ(model.model_file_name, name);
    EXPECT_EQ(model.mode_count, 4);
    EXPECT_EQ(model.source, ModelSource::model_file);
}

TEST(ModelReader, PrintsEachRemarkOnce) {
    const TempFolder folder;
    Model model = placeholder_model();
    model.model_file_name = folder.write("m.txt", "material_info A 1 -1 0 % boundary_condition");
    Collected collected;
    const ModelReadReport report = read_input_file(model, {}, collected);
    EXPECT_FALSE(report.ok);
    ASSERT_EQ(report.remarks.errors.size(), 1u);
    ASSERT_EQ(report.remarks.notices.size(), 1u);
    EXPECT_EQ(collected.errors, report.remarks.errors[0] + "\n");
    EXPECT_EQ(collected.notices, report.remarks.notices[0] + "\n");
}
