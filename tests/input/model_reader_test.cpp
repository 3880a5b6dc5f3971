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
    std::string lines, errors, notices;
};

Outcome read_text(const std::string& text, const std::vector<ParameterOverride>& overrides = {},
                  const Model& before = placeholder_model()) {
    static const TempFolder folder;
    Model model = before;
    model.model_file_name = folder.write("model.txt", text);
    Collected console;
    const ModelReadReport report = read_input_file(model, overrides, console);
    EXPECT_EQ(console.errors, joined(report.remarks.errors));  // each remark is printed, once
    EXPECT_EQ(console.notices, joined(report.remarks.notices));
    EXPECT_EQ(report.ok, console.errors.empty());
    if (!report.ok) {
        EXPECT_EQ(digest(model), digest(before)) << text;
    }
    Model of_text = before;  // a text at hand reads as the file does
    of_text.model_file_name = model.model_file_name;
    Collected told;
    EXPECT_EQ(read_input_text(of_text, text, overrides, told).ok, report.ok);
    EXPECT_EQ(told.errors + told.notices, console.errors + console.notices);
    EXPECT_EQ(digest(of_text), digest(model));
    return {model, report, console.lines, console.errors, console.notices};
}

double parameter(const Model& model, const std::string& name) {
    for (const Parameter& p : model.parameters)
        if (p.name == name) return p.value;
    ADD_FAILURE() << "no parameter " << name;
    return 0;
}

}  // namespace

TEST(ModelReader, TablesOfAWholeModel) {
    const auto [m, report, lines, errors, notices] = read_text(model_text);
    ASSERT_EQ(errors + notices, "");
    EXPECT_EQ(report.end_token, "END");
    EXPECT_EQ(report.end_token_number, static_cast<std::int64_t>(tokens_of(model_text).size()));
    EXPECT_TRUE(report.ended_at_end);
    EXPECT_EQ(m.parameters.at(1).expression, "200*mm");
    const Part& block = m.parts.at(1);
    EXPECT_TRUE(block.material_id == 1 && block.parent_index == 0 && block.unit_factor == 0.001);
    EXPECT_EQ(m.rigid_elements.at(1).region, (std::array<double, 6>{0.001, 0.002, 0.003, 0.005, 2, 0.004}));
    // 5·3·2 nodes of the bar, 3·3·2 of the block, 3·3 of them on the bar
    EXPECT_EQ(m.mesh.node_num(), 39);
    EXPECT_EQ(resolve_force_points(m.mesh, m.forces), (std::vector<std::int32_t>{30, 0, 0}));
    // the corner of the bar at the origin looks outwards along all three axes
    for (int c = 0; c < 3; ++c) EXPECT_LT(m.mesh.node_n_dir[c], 0);
    // the numbers of the echo
    for (const char* echo :
         {" ALU:p=2.700000e+03, E=7.000000e+10, nyu=3.300000e-01\n", " mm:1.000000e-03\n L:2.000000e-01\n",
          "1:SIDE, area[1], y[1]\n:0[0.000e+00], L[2.000e-01],",
          "0:TIP node z:P=-1.000e+03 L=2.000e-01 20*mm=2.000e-02 10*mm=1.000e-02"
          "1:PUSH area x:500=5.000e+02 L=2.000e-01 L=2.000e-01 0=0.000e+00 20*mm=2.000e-02 ",
          "0:HEAD\n2.000e-01,0.000e+00,0.000e+00\n2.000e-01,2.000e-01,0.000e+00,2.000e-02,0.000e+00,1.000e",
          "0:RF1\nHEAD, ry[4], 3.5[3.500e+00]\n1:RF2\nRING, n[6], -P[1.000e+03]\n",
          "0:RC\nHEAD[0], RING[1]\n1e6[1.000e+06], 2e6[2.000e+06], 3e6[3.000e+06], 10[1.000e+01], 20[2.000e",
          "element_num=12,point_num=39,fn=117\nPART_O\n", "\nmax_length=2.000000e-01\n"})
        EXPECT_TRUE(contains(lines, echo)) << echo << "\nis not in\n" << lines;
}

TEST(ModelReader, SupportsLoadsAndTiesOfAWholeModel) {
    const auto [m, report, lines, errors, notices] = read_text(model_text);
    ASSERT_EQ(errors + notices, "");
    const double at[] = {0.1, 0.01, 0.02};
    EXPECT_EQ(m.materials[1].expansion, 2.3e-5);
    const SupportOptions &clamp = m.boundary_conditions[0].options, &bed = m.boundary_conditions[3].options;
    EXPECT_TRUE(clamp.given && clamp.fixed == (std::array{true, false, false}) && clamp.case_name == "dead");
    EXPECT_DOUBLE_EQ(clamp.displacement[0].at(at, 3), 3e-5);
    EXPECT_TRUE(clamp.displacement[0].varies && !clamp.displacement[1].given());
    EXPECT_FALSE(m.boundary_conditions[1].options.given);
    EXPECT_TRUE(bed.given && !bed.fixed[0] && bed.spring.at(at, 0) == 2e7);
    EXPECT_EQ(bed.normal_spring.at(at, 0), 2e9);
    EXPECT_EQ(m.forces[1].options.factor.at(nullptr, 3), 9);
    EXPECT_FALSE(m.forces[0].options.factor.given());
    ASSERT_EQ(m.loads.size(), 9u);
    EXPECT_EQ(m.loads[0].value.at(at, 2), 2e4);
    EXPECT_EQ(m.loads[1].vector[2].at(at, 0), -20);
    EXPECT_EQ(m.loads[2].force, (Vec3{1, 2, -1000}));
    EXPECT_EQ(m.loads[2].options.case_name, "") << "the case base has no name";
    EXPECT_EQ(m.loads[4].moment, (Vec3{5, 0, 6}));
    EXPECT_LT(norm(minus(m.loads[6].direction, {0, 0.6, 0.8})), 1e-15);
    EXPECT_EQ(m.loads[6].speed, 100);
    EXPECT_TRUE(m.loads[7].reference == 293 && m.loads[7].part_name == "BLOCK");
    const std::vector<std::pair<std::string, double>> terms{
        {"base", 1.35}, {"wind", 1.5 * 0.9}, {"dead", 1.35}, {"crane", -0.5}};
    EXPECT_EQ(m.combinations.at(0).terms, terms);
    EXPECT_TRUE(m.ties.at(0).tolerance == 1e-4 && m.ties.at(1).tolerance < 0);
    for (const char* echo :
         {" options: alpha=2*1.15e-5\n", ",\n options: fix=x ux=1e-3*y*time case=dead\n1:SIDE",
          "load_num=10\n",
          "0:PRESS, pressure[0], TOP, 1e5*x*time\n options: factor=2 case=wind\n1:PULL, traction[1], FREE,",
          "load_combination_num=1\n0:ULS, 1.35*(b", "tie_num=2\n0:GLUE, FREE, TOP\n options: tolerance="})
        EXPECT_TRUE(contains(lines, echo)) << echo << "\nis not in\n" << lines;

    // a rigid coupling stands in the rigid tables, once, however often the file is read and whatever it
    // replaces
    Model again = m;
    for (const char* text : {"END", "rigid_element A set 0 0 0 TOP % rigid_force % rigid_combine % END"}) {
        again = read_text(text, {}, again).model;
        const RigidElement& hook = again.rigid_elements.back();
        EXPECT_EQ(again.rigid_elements.size(), std::string(text) == "END" ? 3u : 2u);
        EXPECT_TRUE(hook.name == "HOOK" && hook.set_name == "FREE" &&
                    hook.reference == (std::array{0.2, 0.0, 0.0}));
        ASSERT_GE(again.rigid_forces.size(), 3u);
        const std::span<const RigidForce> last(again.rigid_forces.end() - 3, again.rigid_forces.end());
        EXPECT_TRUE(last[0].direction == RigidDirection::z && last[1].direction == RigidDirection::rx &&
                    last[2].value == 6);
        for (const RigidForce& f : last)
            EXPECT_TRUE(f.element == hook.id && f.options.case_name == "crane" &&
                        f.options.factor.text == "time");
    }
    EXPECT_TRUE(contains(read_text(replaced(model_text, "HOOK ", "HEAD ")).errors,
                         "'HEAD': load HEAD: a rigid element"));
}

TEST(ModelReader, OptionsStandBehindRecordsOnlyAndTheirPlacesHaveFaces) {
    // a section's first token is a name, and so is an option of another section
    const Outcome odd =
        read_text("boundary_condition fix=x plane x 0 0 0 0 0 0 alpha=1 plane y 0 0 0 0 0 0 fix=z");
    ASSERT_EQ(odd.model.boundary_conditions.size(), 2u);
    EXPECT_FALSE(odd.model.boundary_conditions[0].options.given);
    EXPECT_EQ(odd.model.boundary_conditions[1].name, "alpha=1");
    EXPECT_TRUE(odd.model.boundary_conditions[1].options.fixed[2]);
    const std::pair<const char*, std::pair<const char*, const char*>> places[] = {
        {"PRESS pressure    TOP",
         {"PRESS pressure    TAP", "load PRESS: no set or group of an imported mesh has the name TAP"}},
        {"TOP  plane z 20*mm", {"TOP  plane z 13*mm", "load PRESS: the set TOP has no faces"}},
        {"temperature BLOCK", {"temperature BLACK", "load HOT: no part has the name BLACK"}},
        {"BOND TOP", {"BOND TIP", "tie BOND: no set or group of an imported mesh has the name TIP"}}};
    for (const auto& [from, change] : places)
        EXPECT_TRUE(contains(
            read_text(replaced(replaced(model_text, "BED   set TOP", "BED   set FREE"), from, change.first))
                .errors,
            change.second))
            << change.second;
}

TEST(ModelReader, KeywordsMatchByTheirBeginning) {
    const Outcome o = read_text(
        "% %comment material_info_steel A 1 2 0 %end step_num 10 % parameter1 q 3 % "
        "iteration: 7 % hexahedra mean-dilatation % mode_num||step_num 2*q x boundaryconditions END");
    EXPECT_EQ(o.model.hexahedra, HexahedronForm::mean_dilatation);
    EXPECT_EQ(o.model.materials.at(0).name, "A");
    EXPECT_EQ(o.model.iteration_limit, 7);
    EXPECT_EQ(o.model.mode_count, 6);  // the later one of both keywords
    EXPECT_EQ(o.report.end_token, "boundaryconditions");
    EXPECT_EQ(o.report.end_token_number, 25);
    EXPECT_FALSE(o.report.ended_at_end);
    EXPECT_TRUE(o.lines.starts_with("INPUT FILE OPEN !!\nstr=%\nstr=%comment\nstr=material_info_steel\n"));
}

TEST(ModelReader, ByteOrderMarkLineEndsAndFilesOfAnotherKind) {
    std::string dos = "\xef\xbb\xbf";
    for (const std::string& line : lines_of(replaced(model_text, "END", ""))) dos += line + "\r\n";
    const Outcome same = read_text(dos);
    EXPECT_EQ(same.errors + same.notices + same.report.end_token, "");
    EXPECT_TRUE(same.report.ended_at_end);
    EXPECT_EQ(digest(same.model), digest(read_text(model_text).model));
    const std::pair<std::string, const char*> refused[] = {
        {"xyz material_info A 1 1 0 % END", "token 1 'xyz'"},
        {"%A steel pipe", "token 2 'steel'"},
        {"\x89PNG\r\n\x1a\n", "token 1 '?PNG'"},
        {"\xc1\xbfx", "token 1 '??x'"},
        {"Beh\xc3\xb6rde", "token 1 'Beh\xc3\xb6rde'"}};
    for (const auto& [text, place] : refused) {
        const Outcome o = read_text(text);
        EXPECT_EQ(o.errors, o.model.model_file_name + ": " + place +
                                ": expected a section keyword such as part_info\n");
    }
    for (const char* text : {"", "%only %comments", "END", "% %x END no keyword"})
        EXPECT_EQ(read_text(text).errors, "") << text;
}

TEST(ModelReader, ParametersHoldFromTheirRecordOn) {
    const std::pair<const char*, const char*> unknown[] = {
        {"parameter b 2*a a 1 % END",
         "token 3 '2*a': expected a number or an expression over the parameters "
         "defined so far (unknown name 'a')"},
        {"parameter a 1 % parameter b mm % END", "unknown name 'mm'"},  // the table is replaced
        {"material_info A rho 1 0 % parameter rho 1 % END", "unknown name 'rho'"}};
    for (const auto& [text, error] : unknown) EXPECT_TRUE(contains(read_text(text).errors, error)) << text;
    // names that cannot be told apart or used
    const Outcome odd = read_text("parameter a 1 a 2 1a 3 b a % END");
    EXPECT_EQ(parameter(odd.model, "b"), 1);
    EXPECT_TRUE(contains(odd.notices, "token 4 'a': the name stands before; the first value holds"));
    EXPECT_TRUE(contains(odd.notices, "token 6 '1a': no expression"));
}

TEST(ModelReader, OverridesOfParameters) {
    // later records and sections see the value; the first table has a name that the file does not define
    const std::string text =
        "material_info A rho 1 0 % parameter L 2 H 3*L % mode_num H % parameter L 1 K L+rho % END";
    const Outcome o = read_text(text, {{"L", "5"}, {"L", "4*1"}, {"rho", "2*mm"}});
    ASSERT_TRUE(o.report.ok) << o.errors;
    EXPECT_EQ(o.model.materials[0].density, 0.002);
    EXPECT_EQ(o.model.mode_count, 12);
    EXPECT_EQ(parameter(o.model, "L"), 4);
    EXPECT_EQ(parameter(o.model, "K"), 4.002);
    ASSERT_EQ(o.model.parameters.size(), 3u);
    EXPECT_EQ(o.model.parameters[0].name, "rho");
    EXPECT_EQ(o.model.parameters[1].expression, "4*1");
    // a name the file does define is not there before its section
    EXPECT_TRUE(contains(read_text(text, {{"rho", "1"}, {"H", "K"}}).errors, "H=K"));
    EXPECT_TRUE(contains(read_text("material_info A L 1 0 % parameter L 2 % END", {{"L", "5"}}).errors,
                         "unknown name 'L'"));
    // the whole name counts, also where the table keeps less of it; the start-up table counts too
    const std::string longest(80, 'n');
    EXPECT_EQ(read_text("parameter " + longest + " 1 % END", {{longest, "2"}}).model.parameters.at(0).value,
              2);
    EXPECT_EQ(parameter(read_text("END", {{"mm", "0.002"}}).model, "mm"), 0.002);
    for (const std::string name : {"1a", "", "time", "a-b", "a b"})
        EXPECT_TRUE(contains(read_text(model_text, {{name, "1"}}).errors, name + "=1"));
    EXPECT_TRUE(contains(read_text(model_text, {{"\xe4", "1"}}).errors, "set to ?=1"));  // no character
    for (const std::string value : {"1+", "1/0", "nope"})
        EXPECT_TRUE(contains(read_text(model_text, {{"a", value}}).errors, "a=" + value));
}

TEST(ModelReader, ErrorsNameTheToken) {
    // what is replaced, by what, the token at fault, what is expected there
    // clang-format off
    const char* cases[][4] = {
        {"7.8*1000", "-7800", "-7800", "a density of at least 0"}, {"7.8*1000", "0/0", "0/0", "a finite value"},
        {"2.06e11", "0", "0", "a Young's modulus above 0"}, {"2.06e11", "2.06e11GPa", "2.06e11GPa", "not understood at 'GPa'"},
        {" 0.33", " 0.5", "0.5", "a Poisson ratio between -1 and 0.5"}, {" 0.33", " -1", "-1", "a Poisson ratio between"},
        {"mode_num 6", "mode_num 0", "0", "an integer of at least 1"}, {"mode_num 6", "step_num 2.5", "2.5", "an integer of at"},
        {"mode_num 6", "mode_num 1e10", "1e10", "an integer of"}, {"iteration 20", "iteration -3", "-3", "an integer of at least 1"},
        {"200*mm", "1/0", "1/0", "a finite value"}, {"mode_num 6", "hexahedra Full", "Full", "expected full, enhanced or mean-dilatation"},
        {"BLOCK brown ALU", "BLOCK brown BRASS", "BLOCK", "material \"BRASS\""}, {"RECT  100", "RECT  1OO", "1OO", "part \"BLOCK\": size b"},
        {"   4 2 1 0", "   1/0 2 1 0", "1/0", "part \"BAR\": division db"}, {"unit=mm", "unit=inch", "unit=inch", "unknown name 'inch'"},
        {"unit=mm", "unit=", "unit=", "unit=WORD"}, {"parent=BAR", "parent=", "parent=", "parent=NAME"},
        {"SIDE  area", "SIDE  aera", "aera", "a selection (plane, area, volume)"}, {"area   y", "area   Y", "Y", "an axis (x, y, z)"},
        {"0 0  0 10*mm\n  BOX", "0 0  0 10*\n  BOX", "10*", "a number or an expression"},
        {"TIP  node", "TIP  point", "point", "a kind of force (node, area, set)"}, {"node z P", "node w P", "w", "an axis (x, y, z)"},
        {"RING round", "RING circle", "circle", "a selection (area, round)"}, {"5*mm 2 4*mm", "5*mm 1.5 4*mm", "1.5", "an axis (0, 1, 2)"},
        {"HEAD ry", "HAED ry", "HAED", "the name of a rigid element"}, {"HEAD ry", "HEAD rw", "rw", "a direction (x, y, z, rx, ry, rz, n)"},
        {"HEAD RING 1e6", "HEAD RONG 1e6", "RONG", "the name of a rigid element"},
        // options, and sections of loads
        {"alpha=2*1.15e-5", "alpha=", "alpha=", "(empty)"}, {"alpha=2*1.15e-5", "alpha=1/0", "alpha=1/0", "a finite value"},
        {"alpha=2*1.15e-5", "alpha=1 alpha=0", "alpha=0", "the option alpha= once in a record"},
        {"fix=x", "fix=xx", "fix=xx", "letters of xyz, each once, or fix=normal"}, {"fix=x", "fix=", "fix=", "letters of xyz"},
        {"fix=x", "fix=normal,z", "fix=normal,z", "letters of xyz"}, {"ux=1e-3*y*time", "uz=q", "uz=q", "x, y, z, time and the parameters"},
        {"ux=1e-3*y*time", "", "case=dead", "ux=, uy= or uz= beside case="}, {"case=dead", "case=2d", "case=2d", "case=NAME, of a letter"},
        {"spring=1e9*z", "spring=-1", "spring=-1", "at least 0 N/m^3"}, {"spring=1e9*z", "spring=time", "spring=time", "unknown name 'time'"},
        {"spring_normal=2e9", "spring_normal=1/0", "spring_normal=1/0", "a finite value"}, {"factor=time^2", "factor=x", "factor=x", "expression over time"},
        {"-P case=dead", "-P case=time", "case=time", "not time"}, {"factor=time^2", "case=a", "case=wind", "the option case= once"},
        {" 20*mm\n%", " 20*mm tol=\n%", "tol=", "(empty)"}, {"PRESS pressure", "PRESS weight", "weight", "a kind of load behind its name (pressure, traction,"},
        {"1e5*x*time", "1e5*X", "1e5*X", "unknown name 'X'"}, {"1e5 y P*z", "1e5 y 0/0", "0/0", "a finite value"},
        {"FREE  1 2 P", "FREE  1 x P", "x", "unknown name 'x'"}, {"coupling=rigid", "coupling=stiff", "coupling=stiff", "coupling=rigid or"},
        {"case=base", "coupling=rigid", "coupling=rigid", "behind a remote load only"}, {"case=base", "reference=1", "reference=1", "a temperature only"},
        {"0 3 4  2*50", "0*P 0 0  2*50", "0*P", "an axis that is not zero"}, {"reference=293", "reference=a", "reference=a", "unknown name"},
        {"1.35*(base+dead)", "7+dead", "7+dead+1.5*0.9*wind-crane/2", "a part of it is in no load case"},
        {"1.35*(base+dead)", "base*dead", "base*dead+1.5*0.9*wind-crane/2", "it is not linear"},
        {"1.35*(base+dead)", "sgn(dead)", "sgn(dead)+1.5*0.9*wind-crane/2", "it is not linear"},
        {"1.35*(base+dead)", "snow", "snow+1.5*0.9*wind-crane/2", "cases (base, wind, dead, crane) times factors (unknown name 'snow')"},
        {"1.35*(base+dead)+1.5*0.9*wind-crane/2", "0*L", "0*L", "it names no load case"},
        {"tolerance=0.1*mm", "tolerance=-mm", "tolerance=-mm", "at least 0 m"}, {" TOP tolerance", " FREE tolerance", "FREE", "another set"}
    };
    // clang-format on
    for (const auto& [from, to, token, expected] : cases) {
        const std::string text = replaced(model_text, from, to);
        const Outcome o = read_text(text);
        // the token's own number, counted from the place of the change
        const std::size_t number = tokens_of(text.substr(0, text.find(token, text.find(to)))).size() + 1;
        const std::string place = "token " + std::to_string(number) + " '" + token + "'";
        const auto fits = [&](const std::string& line) {
            return line.starts_with(o.model.model_file_name + ": ") && contains(line, place) &&
                   contains(line, expected);
        };
        EXPECT_TRUE(std::ranges::any_of(o.report.remarks.errors, fits)) << place << expected << o.errors;
        EXPECT_TRUE(o.lines.ends_with("MATERIAL DATA FILE CLOSE !!\n"));
    }
    const std::pair<std::string, const char*> cut[] = {
        {"material_info A 1 2 % END", "token 5 '%': expected 1 more of the "},
        {"boundary_condition B area x 0 1", "end of file: expected 4 more of the "},
        {"apply_force A area x 1 0 0 0 % END", "token 9 '%': expected 3 more of the "},
        {"apply_force A % END", "token 3 '%': expected 6 more of the "},
        {"mode_num", "end of file: expected an integer after mode_num"},
        {"hexahedra", "end of file: expected full, enhanced or mean-dilatation after hexahedra"},
        {model_text.substr(0, model_text.find("parent=") - 3), "end of file: expected"}};
    for (const auto& [text, error] : cut) EXPECT_TRUE(contains(read_text(text).errors, error)) << error;
}

TEST(ModelReader, Notices) {
    const std::string longest(70, 'c');
    // clang-format off
    const std::string cases[][3] = {
        {"mode_num 6 %", "mode_num 6", "'iteration': passed over"},
        {"BOX   volume z  0 5*mm", "BOX   volume z  6*mm 5*mm", "'BOX': selects nothing, xmin is above xmax"},
        {"SIDE  area   y  0 L  0 0  0", "SIDE  area   y  0 L  0 0  1", "'SIDE': selects nothing, zmin is above zmax"},
        {"x 500   L L", "x 500   L 0", "'PUSH': selects nothing, xmin is above xmax"},
        {"5*mm 2 4*mm", "-5*mm 2 4*mm", "'RING': selects nothing"},
        {"brown ALU   RECT", "brown ALU   rect", "'BLOCK': part \"BLOCK\": shape \"rect\" is unknown"},
        {"%\nboundary_condition", "boundary_condition", "'boundary_condition': stands inside the section set_info"},
        {"%\nEND", "", "section rigid_combine ends with the file"},
        // texts that are cut, values that would have to change with time, names that stand twice
        {"CLAMP", longest, "cut to its first 63"}, {"BLOCK", longest, "cut to its first 63"},
        {"x 500 ", "x time+500 ", "'time+500': time is 0 here"},
        {"RECT  100 20", "RECT  100+time 20", "'100+time': time is 0 here"},
        {"ALU   2700", "STEEL 2700", "'STEEL': the name stands before"}, {"P  -2*500", "L  -2*500", "'L': the name stands before"},
        {"BLOCK brown", "BAR brown", "'BAR': the name stands before"}, {"SIDE  area", "CLAMP area", "'CLAMP': the name stands before"},
        {"PUSH area", "TIP area", "'TIP': the name stands before"}, {"RING round", "HEAD round", "'HEAD': the name stands before"}
    };
    // clang-format on
    for (const auto& [from, to, notice] : cases)
        EXPECT_TRUE(contains(read_text(replaced(model_text, from, to)).notices, notice)) << to;
    EXPECT_EQ(read_text(replaced(model_text, "CLAMP", longest)).model.boundary_conditions[0].name.size(),
              63u);
    // along the normal of its plane only the upper end counts
    EXPECT_EQ(read_text(replaced(model_text, "0 L  0 0  0", "0 L  1 0  0")).notices, "");
}

TEST(ModelReader, TablesLeftFromTheModelBefore) {
    const Model first = read_text(replaced(model_text, "mode_num", "hexahedra enhanced % mode_num")).model;
    const Outcome second = read_text("boundary_condition % rigid_force % END", {}, first);
    EXPECT_TRUE(contains(
        second.notices,
        "left as the earlier model had them: material_info, mode_num, iteration, hexahedra, parameter, "
        "part_info, "
        "apply_force, rigid_element, rigid_combine, set_info, load_info, load_combination, tie_info\n"))
        << second.errors << second.notices;
    EXPECT_EQ(second.report.kept_sections.size(), 13u);
    EXPECT_TRUE(second.model.boundary_conditions.empty());
    EXPECT_EQ(second.model.forces.size(), 3u);
    EXPECT_EQ(second.model.mesh.node_num(), 39);
    // what is left follows the new tables by name, or cannot stay
    const Outcome moved = read_text("material_info X 1 1 0 ALU 1 1 0 STEEL 2 2 0 % END", {}, first);
    EXPECT_EQ(moved.model.parts[0].material_id, 2);
    EXPECT_EQ(moved.model.parts[1].material_id, 1);
    const Outcome orphan = read_text("material_info X 1 1 0 % rigid_element % END", {}, first);
    EXPECT_TRUE(contains(orphan.errors, "part BAR: no material STEEL"));
    EXPECT_TRUE(contains(orphan.errors, "rigid force RF1: no rigid element HEAD"));
    EXPECT_TRUE(contains(read_text("load_info % END", {}, first).errors,
                         "load combination ULS: no load case crane at the end of the file"));
    // nothing is kept of the start-up values, and nothing is sized by a count
    EXPECT_EQ(read_text("END").notices, "");
    EXPECT_EQ(read_text(replaced(model_text, "mode_num 6", "mode_num 2147483647")).model.mode_count,
              2147483647);
}

TEST(ModelReader, FileNames) {
    const TempFolder folder;
    Model model = placeholder_model();
    model.model_file_name = folder.file("none.txt");
    Collected missing, asked;
    EXPECT_FALSE(read_input_file(model, {}, missing).ok);
    EXPECT_EQ(missing.lines, "INPUT FILE OPEN ERROR\n");
    EXPECT_TRUE(contains(missing.errors, "none.txt: No such file"));
    EXPECT_EQ(model.source, ModelSource::start_up);
    // asked for on the console
    model.model_file_name.clear();
    const std::string name = folder.write("typed.txt", "step_num 4 % END");
    std::istringstream typed("  " + name + " \n");
    std::streambuf* const former = std::cin.rdbuf(typed.rdbuf());
    EXPECT_TRUE(read_input_file(model, {}, asked).ok);
    std::cin.rdbuf(former);
    EXPECT_TRUE(asked.lines.starts_with("Input File Name ?" + name + "\nINPUT FILE OPEN !!\n"))
        << asked.lines;
    EXPECT_EQ(model.model_file_name, name);
    EXPECT_EQ(model.mode_count, 4);
    EXPECT_EQ(model.source, ModelSource::model_file);
}
