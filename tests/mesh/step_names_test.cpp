// Names in STEP files: what the text means, and that no text is too odd.
#include "app/mesher/step_names.h"

#include <random>

#include "group_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::string step =
    "ISO-10303-21;\nDATA;\n"
    "#40 = ADVANCED_BREP_SHAPE_REPRESENTATION('',(#2,#30, #3),#9);\n"
    "#30=MANIFOLD_SOLID_BREP('second','x'); #2 = MANIFOLD_SOLID_BREP ( 'pump;''s lid' , #20 ) ;\n"
    "#20 = CLOSED_SHELL('',(#5,#6,\n  #7));\n"
    "#7=ADVANCED_FACE('',(#8),#9,.T.);#5 = ADVANCED_FACE('top (1)',(#8),#9,.T.);\n"
    "#6 = FACE_SURFACE('\\X2\\00D60394\\X0\\l',(#8),#9,.T.);\n"
    "#3 = BREP_WITH_VOIDS('NONE',#21,(#23));  #21 = CLOSED_SHELL('',(#11,#12));\n"
    "#22 = CLOSED_SHELL('',(#13)); #23 = ORIENTED_CLOSED_SHELL('',*,#22,.F.);\n"
    "#11 = ADVANCED_FACE('same',(#8),#9,.T.); #12 = ADVANCED_FACE('same',(#8),#9,.T.);\n"
    "#13 = ADVANCED_FACE('same',(#8),#9,.T.);\nENDSEC;\n";

std::string told(const std::string& text) {
    std::string all;
    for (const StepBody& body : read_step_names(text)) {
        all += body.name + ":";
        for (const std::string& face : body.faces) all += "[" + face + "]";
        all += "\n";
    }
    return all;
}

TEST(StepNames, AreInTheOrderOfTheRepresentation) {
    EXPECT_EQ(told(step), "pump;'s lid:[top (1)][\u00D6\u0394l][]\nsecond:\n:[][][]\n");
    EXPECT_EQ(told(replaced(step, "'same'", "'other'")),
              "pump;'s lid:[top (1)][\u00D6\u0394l][]\nsecond:\n:[other][same][same]\n");
    EXPECT_EQ(told("no STEP file"), "");
    // a shell of itself, a reference to nothing
    EXPECT_EQ(told(replaced(step, "*,#22", "*,#23")),
              "pump;'s lid:[top (1)][\u00D6\u0394l][]\nsecond:\n:[][]\n");
}

TEST(StepNames, AnyTextIsRead) {
    for (std::size_t size = 0; size < step.size(); ++size) told(step.substr(0, size));
    std::mt19937 random(1);
    const std::string letters = "#'();,=*\\X0129 A";
    for (int k = 0; k < 10000; ++k) {
        std::string damaged = step;
        for (int change = 0; change <= k % 5; ++change)
            damaged[random() % damaged.size()] = letters[random() % letters.size()];
        EXPECT_LE(read_step_names(damaged).size(), 20u);
    }
}

}  // namespace
