// `check`: what a model is made of and what it needs, without running anything; and the notes on what
// the input lets pass.
#include "batch_run.h"

using namespace kestralum::testing;

namespace {

// Two bodies with elements of 1 and 8 cm^3, supports and loads that reach nothing.
const std::string pieces_text = R"(
material_info  STEEL 8000 2e11 0.3  ALU 2500 7e10 0.3  %
part_info
  BAR   blue STEEL RECT  0.1 0.02 0.01 0 0 0  10 2 1 0 0 0   0 0 0    0 0 0
  BLOCK red  ALU   RECT  0.04 0.04 0.02 0 0 0  2 2 1 0 0 0   0 0.1 0  0 0 0
%
boundary_condition
  CLAMP area x 0 0 -1 0.05 -1 1  NEAR area x 0.1+1e-12 0.1+1e-12 -1 1 -1 1  FAR area x 0.5 0.5 -1 1 -1 1
%
apply_force
  TIP node z -5 0.1 0.02 0.01  LOST node z -5 0.1 0.02 0.011  GONE area y 10 2 3 2 3 2 3
%
END
)";

}  // namespace

TEST_F(Batch, CheckTellsWhatTheModelIsMadeOf) {
    folder.write("pieces.txt", pieces_text);
    const Ended run = this->run("check pieces.txt");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(numbers_of(run.out, "bounding box"), (std::vector<double>{0, 0, 0, 0.1, 0.14, 0.02}));
    expect_near(numbers_of(run.out, "total mass"), {20e-6 * 8000 + 32e-6 * 2500, 52e-6}, 1e-9);
    const auto smallest = numbers_of(run.out, "smallest element"),
               largest = numbers_of(run.out, "largest element");
    ASSERT_TRUE(smallest.size() == 5 && largest.size() == 5) << run.out;
    EXPECT_NEAR(smallest[0], 1e-6, 1e-12);
    EXPECT_NEAR(largest[0], 8e-6, 1e-12);
    EXPECT_TRUE(smallest[3] < 0.02 && largest[3] > 0.1) << "in the bar, in the block";
    for (const char* line :
         {// 11·3·2 + 3·3·2 nodes, 20 + 4 elements
          "model                  84 nodes, 24 elements (8-node hexahedron), 2 parts, 2 materials\n",
          " 3 supports, 3 forces, 0 rigid elements", "non-positive Jacobians 0\n",
          "hanging nodes          0\n", "connected bodies       2\n", "20 elements of BAR\n",
          "4 elements of BLOCK\n", "CLAMP: 6 nodes\n", "NEAR: 0 nodes\n", "FAR: 0 nodes\n", "TIP: 1 nodes\n",
          "LOST: 0 nodes\n", "GONE: 0 nodes\n",
          "support NEAR: selects no node; 6 nodes lie within 1e-10 m of its plane: try the selection `plane`",
          "support FAR: selects no node\n", "force LOST: no node at its point",
          "force GONE: no node in its box", "body 2 (part BLOCK): no support holds it"})
        EXPECT_TRUE(contains(run.out, line)) << line << run.out;
    EXPECT_FALSE(contains(run.out, "body 1 (part BAR)"));
    EXPECT_FALSE(exists("log/result_pieces.txt") || exists("log/Ltemp_0.txt"));
    EXPECT_FALSE(contains(run.out, "INPUT FILE OPEN")) << "the echo of the model is left out";
}

// Two parallelepipeds with the angle atan(1/9) = 6.34 degrees and edges of 0.1, 0.0906 and 0.05 m.
TEST_F(Batch, CheckTellsTheShapeOfTheWorstElements) {
    folder.write(
        "slant.txt",
        "material_info M 1 1 0 %\npart_info P red M TRAPEZOID 0.1 0.1 0.01 0.09 0.1 0 1 1 2 0 0 0 0 0 0 0 0 "
        "0 %\nEND\n");
    const Ended run = this->run("check slant.txt --quiet");
    ASSERT_EQ(run.status, 0) << run.err;
    for (const char* line :
         {"smallest angle         6.34 degrees, element 1 at (0.095, 0.005, 0.025)\n",
          "                       6.34 degrees, element 2 at (0.095, 0.005, 0.075)\n",
          "                       2 elements under 10 degrees\n",
          "least Jacobian ratio   1, element 1 at (0.095, 0.005, 0.025)\nlargest edge ratio     2, "})
        EXPECT_TRUE(contains(run.out, line)) << line << run.out;
}

TEST_F(Batch, CheckKnowsWhatTheFactorWillNeed) {
    folder.write("tiny.txt", settings_text("0.05", "0.05"));
    folder.write("spill.txt", settings_text("0.05"));
    const Ended check = run("check bar.txt --setting tiny.txt"),
                done = run("static bar.txt --setting spill.txt");
    const auto need = numbers_of(check.out, "the factor needs"), size = numbers_of(done.out, "size");
    ASSERT_TRUE(need.size() == 5 && size.size() == 4) << check.out << done.out;
    EXPECT_EQ(need[0], 3 * 8 * 9) << "free degrees of freedom";
    const double megabytes = size[3] * 8 / 1e6;
    EXPECT_NEAR(need[3], megabytes, 0.051) << "disk";
    EXPECT_GT(need[2], megabytes) << "memory holds [K] too";
    EXPECT_GT(need[4], 1);
    EXPECT_EQ(numbers_of(done.out, "[L] division:"), std::vector{need[4]});
    EXPECT_TRUE(contains(check.out, "FREE_HD_SIZE")) << "what will end the run is said before it";
}

TEST_F(Batch, WhatTheInputLetsPassIsInTheSummary) {
    folder.write("typo.txt", replaced(bar_text, "apply_force", "aply_force"));
    for (const char* command : {"check typo.txt", "static typo.txt --quiet"})
        EXPECT_TRUE(contains(run(command).out, "model file was read up to token 52 'aply_force'")) << command;
    const std::string beside = "0.04 0.04 0.02 0 0 0  2 2 1 0 0 0   0 0.1 0  0 0 0",
                      joined = "0.02 0.02 0.01 0 0 0  2 2 1 0 0 0   0.1 0 0  0 0 0 parent=NOBODY";
    folder.write("joined.txt", replaced(pieces_text, beside, joined));
    const Ended run = this->run("static joined.txt --quiet");
    EXPECT_EQ(run.status, 0) << run.err;
    for (const char* line : {"support NEAR: selects no node", "force LOST: no node at its point", "NOBODY"})
        EXPECT_TRUE(contains(run.out, line)) << line << "\n" << run.out;
}
