#include "input/calculator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::vector<Parameter> parameters = {{0, "mm", 0.001, ""},  {1, "sine", 5, ""}, {2, "time2", 7, ""},
                                           {3, "SWITCHx", 9, ""}, {4, "sin", 11, ""}, {5, "_a1", 13, ""},
                                           {6, "mm", 1000, ""},   {7, "e3", 17, ""},  {8, "inf", 19, ""},
                                           {9, "zero", 0, ""},    {10, "MM", 21, ""}, {11, "time", 23, ""}};

std::string deep(int count, const char* open, const char* inner, const char* close) {
    std::string text;
    for (int k = 0; k < count; ++k) text += open;
    text += inner;
    for (int k = 0; k < count; ++k) text += close;
    return text;
}

}  // namespace

TEST(Calculator, ValuesOfExpressions) {
    const double pi = std::acos(-1.0);
    // clang-format off
    const std::pair<const char*, double> cases[] = {
        {"100*mm", 0.1}, {"7.8*1000", 7800}, {"2^3", 8}, {"sgn(-4)", -1}, {"sgn(0)", 0},
        {"sgn(1e-300)", 1}, {"SWITCH(-1, 1, 2, 3)", 3}, {"SWITCH(0,1,2,3)", 2}, {"SWITCH(2,1,2,3)", 1},
        {"SWITCH(0/0,1,2,3)", 0},
        // order of the operators
        {"8-4-2", 2}, {"16/4/2", 2}, {"2+3*4", 14}, {"2*3+4", 10}, {"(2+3)*4", 20}, {"7-2*3", 1},
        {"12/2*3", 18}, {"2*3^2", 18}, {"2^3^2", 512}, {"-2^2", -4}, {"2^-1", 0.5}, {"2^-2^2", 0.0625},
        {"(-2)^2", 4}, {"--3", 3}, {"-+3", -3}, {"2--3", 5}, {"2*-3", -6}, {"6/-3", -2}, {"+4", 4},
        {"-(1+2)", -3},
        // numbers
        {".5", 0.5}, {"5.", 5}, {"1e3", 1000}, {"1E-3", 0.001}, {"1.5e+2", 150}, {"0.1", 0.1},
        {"+1.5", 1.5}, {"-1.5", -1.5},
        // functions
        {"sin(0)", 0}, {"cos(0)", 1}, {"asin(1)*2", pi}, {"acos(-1)", pi}, {"sin(acos(0))", 1},
        {"SWITCH(sgn(-1),1,2,SWITCH(0,4,5,6))", 5}, {"cos (0)", 1},
        // names
        {"time", 2.5}, {"time*time", 6.25}, {"sine", 5}, {"time2", 7}, {"SWITCHx+1", 10}, {"sin", 11},
        {"_a1", 13}, {"e3", 17}, {"inf", 19}, {"-inf", -19}, {"MM", 21}, {"3*e3", 51}, {" 1 +\t2\n", 3}
    };
    // clang-format on
    for (const auto& [text, value] : cases) {
        const CalcResult result = calc(text, parameters, 2.5);
        EXPECT_TRUE(result.ok()) << text << ": " << result.error;
        EXPECT_DOUBLE_EQ(result.value, value) << text;
    }
}

TEST(Calculator, NumbersAreReadExactlyAndFollowFloatingPointRules) {
    for (const std::string text :
         {"0.1", "2.06e11", "1.7976931348623157e308", "8.66e-4", "123456789.123456789", "3e-7"}) {
        EXPECT_EQ(calc(text, {}).value, std::stod(text)) << text;
        EXPECT_EQ(calc("(" + text + ")", {}).value, std::stod(text)) << text;
    }
    EXPECT_EQ(calc("1/zero", parameters).value, std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(calc("zero/zero", parameters).value));
    EXPECT_TRUE(std::isnan(calc("asin(2)", {}).value) && calc("asin(2)", {}).ok());
}

TEST(Calculator, ErrorsSayWhatIsWrongAndGiveZero) {
    // clang-format off
    const std::pair<std::string, const char*> cases[] = {
        {"", "empty"}, {"2*", "'*'"}, {"(1+2", "ends too early"}, {"1+*2", "'+*2'"}, {"1 2", "' 2'"},
        {"2)", "')'"}, {"nope*2", "unknown name 'nope'"}, {"Mm", "unknown name 'Mm'"},
        {"tan(1)", "unknown function 'tan'"}, {"sin(1,2)", "sin() takes 1, not 2"},
        {"SWITCH(1,2,3)", "SWITCH() takes 4, not 3"}, {"sin()", "'()'"},
        {"time(1)", "unknown function 'time'"}, {"1e999", "out of range"}, {"2^", "'^'"}, {"1,5", "',5'"},
        {"0x10", "'x10'"}, {"nan", "unknown name 'nan'"}, {"%", "'%'"}, {"1e", "'e'"},
        {"1.2.e3*0", "not understood"}, {"\xff", "not understood"},
        {deep(50000, "(", "1", ")"), "longer than 1024"}, {deep(1000, "-", "", ""), "not understood"}
    };
    // clang-format on
    for (const auto& [text, expected] : cases) {
        const CalcResult result = calc(text, parameters);
        EXPECT_EQ(result.value, 0) << text;
        EXPECT_TRUE(contains(result.error, expected)) << text << ": " << result.error;
    }
    // nothing of a failed text is left for the next one
    EXPECT_EQ(calc("(3)", {}).value, 3);
}

TEST(Calculator, DeepestTextsThatAreRead) {
    EXPECT_EQ(calc(deep(511, "(", "1", ")"), {}).value, 1);
    EXPECT_EQ(calc(deep(1022, "-", "1", ""), {}).value, 1);
    EXPECT_EQ(calc("1" + deep(511, "^1", "", ""), {}).value, 1);
    EXPECT_EQ(calc(deep(204, "sgn(", "1", ")"), {}).value, 1);
}

TEST(Calculator, TimeIsAWordOfItsOwn) {
    for (const char* text : {"time", "2*time", "sin(-time)", "timer+time"})
        EXPECT_TRUE(names_time(text)) << text;
    for (const char* text : {"", "timer", "atime", "time2", "_time", "2*mm"})
        EXPECT_FALSE(names_time(text)) << text;
}
