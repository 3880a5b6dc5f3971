// Groups of bodies with a material of their own.
#include "analysis/static/static_analysis.h"
#include "results/result_file.h"
#include "support/analysis_run.h"

namespace kestralum {
namespace {

using testing::ModelText;

class DerivedParts : public testing::AnalysisTest {
protected:
    DerivedParts() {
        // two cubes of 1 m on each other, a group each, and one of both
        std::string nodes = "*NODE\n";
        for (int k = 0; k < 3; ++k)
            for (const auto& [x, y] : {std::array{0, 0}, {1, 0}, {1, 1}, {0, 1}})
                nodes += formatted("%d, %d, %d, %d\n", ++number_, x, y, k);
        folder.write("two.inp", nodes +
                                    "*ELEMENT, TYPE=C3D8, ELSET=low\n1, 1,2,3,4,5,6,7,8\n"
                                    "*ELEMENT, TYPE=C3D8, ELSET=high\n2, 5,6,7,8,9,10,11,12\n"
                                    "*ELSET, ELSET=all\nlow, high\n*NSET, NSET=top\n9,10,11,12\n");
    }
    std::string text(const std::string& group_options, const std::string& others = {}) const {
        return "material_info M 1000 1e9 0  SOFT 500 2e8 0 %\n" + others +
               "part_info b red M INP two.inp 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 " + group_options +
               " %\nboundary_condition C plane z 0 0 0 0 0 0 %\napply_force F set z 1000 b.top %\nEND\n";
    }
    std::string errors(const std::string& group_options) {
        Model refused = placeholder_model();
        refused.model_file_name = folder.write("refused.txt", text(group_options));
        testing::Collected console;
        read_input_file(refused, {}, console);
        return console.errors;
    }
    int number_ = 0;
};

// Springs in a row: each cube gets longer by F L / (E A).
TEST_F(DerivedParts, HaveTheirOwnStiffnessAndNamesInEveryTable) {
    const double one = 1000 / 1e9, soft = 1000 / 2e8;
    for (const auto& [given, exact] :
         {std::pair<std::string, double>{"", 2 * one},
          {"group=high material=SOFT", one + soft},
          {"group=low material=SOFT group=high material=SOFT", 2 * soft},
          {"group=low material=M group=all material=SOFT group=high material=M", one + soft}}) {
        ASSERT_TRUE(read(text(given))) << given;
        ASSERT_EQ(analyse(analyse_static).status, RunStatus::done);
        EXPECT_NEAR(displacement(0, 0, 2)[2], exact, 1e-9 * exact) << given;
        EXPECT_EQ(model.parts_o.size(), 1u);
        ASSERT_EQ(model.parts.size(), 1 + std::size_t(std::ranges::count(given, '=')) / 2);
        testing::Collected console;
        const auto back = read_result_file("log\\result_model.txt", options.log_folder, console);
        ASSERT_TRUE(back) << console.errors;
        EXPECT_EQ(back->model.parts.size(), model.parts.size());
        EXPECT_EQ(back->model.parts_o.size(), 1u);
        EXPECT_EQ(back->model.parts.back().name, model.parts.back().name);
        EXPECT_EQ(back->run.mesh.p_ele_part_id, result.mesh.p_ele_part_id);
    }
    EXPECT_TRUE(testing::contains(said.notices, "elements of its group high are in an earlier group"));
}

TEST_F(DerivedParts, AreOfTheirPartForSetsAndGoWithIt) {
    ASSERT_TRUE(read(text("group=high material=SOFT", "set_info BODY part b  UP part b.high %\n")));
    EXPECT_EQ(find_set(model.mesh, "BODY")->nodes.size(), 12u);
    EXPECT_EQ(find_set(model.mesh, "UP")->nodes.size(), 8u);
    // the parts of a file without part_info stay, meshed anew
    model.model_file_name = folder.write("next.txt", "material_info M 1000 1e9 0  SOFT 500 4e8 0 %\nEND\n");
    ASSERT_TRUE(read_input_file(model, {}, said).ok);
    ASSERT_EQ(model.parts.size(), 2u);
    EXPECT_EQ(model.parts[1].name, "b.high");
    EXPECT_EQ(model.parts[1].derived_from, 0);
    EXPECT_EQ(model.mesh.p_ele_part_id, (std::vector<std::int32_t>{0, 1}));
}

TEST_F(DerivedParts, AreRefusedWithTheReason) {
    for (const auto& [given, message] :
         {std::pair<std::string, std::string>{
              "group=NO material=M",
              "group=NO is none of its groups, its groups of bodies are low, high, all"},
          {"group=top material=M", "group=top is a group of faces"},
          {"group=low material=NO", "material \"NO\" is none of the model's materials"},
          {"group=low", "option group=low: group=NAME and behind it material=NAME expected"},
          {"material=M", "option material=M: group=NAME and behind it material=NAME expected"},
          {"group=low group=high material=M", "option group=low: group=NAME and behind it"},
          {"group=", "expected group=NAME and behind it material=NAME"}}) {
        const std::string found = errors(given);
        EXPECT_TRUE(testing::contains(found, message)) << given << ": " << found;
    }
    // what a box's record is followed by is the next part, as ever
    ASSERT_TRUE(read(ModelText{.parts = testing::rect("b", "1 1 1", "1 1 1") +
                                        testing::rect("size=3", "1 1 1", "1 1 1", "0 0 1")}));
    EXPECT_EQ(model.parts.at(1).name, "size=3");
}

}  // namespace
}  // namespace kestralum
