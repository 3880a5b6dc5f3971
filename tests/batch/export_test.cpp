// `export` on the command line: what it says, and what it does not touch.
#include "batch_run.h"

using namespace kestralum::testing;

TEST_F(Batch, ExportWritesEachFormatAndSaysSo) {
    for (const std::string ending : {"inp", "MSH", "vtu", "stl"}) {
        const Ended run = this->run("export bar.txt b." + ending + " --quiet --set L=0.4");
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(lines_of(run.out).back(), "exported               b." + ending + ": 32 elements, 0 sets");
        EXPECT_TRUE(exists("b." + ending) && !exists("b." + ending + ".part"));
    }
    const std::string deck = bytes("b.inp");
    EXPECT_TRUE(contains(deck, "\n81,.4,.02,.02\n")) << deck;
    EXPECT_FALSE(exists("log/.lock") || exists("log/result_bar.txt"));
    run("export bar.txt b.inp --set L=0.4 --setting setting/setting.txt");
    EXPECT_EQ(bytes("b.inp"), deck) << "the same again";
}

TEST_F(Batch, ExportRefusesInOneLine) {
    EXPECT_TRUE(contains(refused("export bar.txt b.step").err, ".inp, .msh, .vtu, .stl"));
    EXPECT_TRUE(contains(refused("export bar.txt .inp").err, ".inp, .msh, .vtu, .stl"));
    EXPECT_TRUE(contains(refused("export absent.txt b.inp").err, "absent.txt"));
    EXPECT_TRUE(
        contains(refused("export bar.txt none/b.inp", 1).err, "none/b.inp cannot be written: No such file"));
    // a surface alone, and a rigid element beside the body
    run("export bar.txt s.stl");
    const std::string part = "RECT  L B B 0 0 0  8 2 2 0 0 0  0 0 0  0 0 0";
    folder.write("surface.txt", replaced(bar_text, part, "STL s.stl 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"));
    EXPECT_TRUE(contains(refused("export surface.txt b.msh").err, "no solid elements: nothing to export"));
    folder.write("rigid.txt",
                 replaced(bar_text, "END", "rigid_element  HEAD area 0 0 0  8 9 8 9 8 9  %\nEND"));
    EXPECT_TRUE(contains(refused("export rigid.txt b.inp").err, "rigid element HEAD: no node"));
    EXPECT_EQ(run("export rigid.txt b.stl").status, 0) << "which needs no conditions";
    EXPECT_FALSE(exists("b.inp") || exists("b.msh"));
}

TEST_F(Batch, ExportLeavesEarlierFilesAndItsSourcesAsTheyAre) {
    folder.write("b.inp", "earlier");
    std::filesystem::create_symlink("/dev/full", folder.file("b.inp.part"));
    EXPECT_TRUE(contains(refused("export bar.txt b.inp", 1).err, "b.inp cannot be written: No space left"));
    EXPECT_EQ(bytes("b.inp"), "earlier");
    ASSERT_EQ(run("export bar.txt sub.inp").status, 0);
    const std::string part = "RECT  L B B 0 0 0  8 2 2 0 0 0  0 0 0  0 0 0", deck = bytes("sub.inp");
    std::filesystem::create_directory(folder.file("sub"));
    std::filesystem::rename(folder.file("sub.inp"), folder.file("sub/mesh.inp"));
    const std::string text = replaced(bar_text, part, "INP mesh.inp 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    folder.write("sub/model.inp", text);
    std::filesystem::create_hard_link(folder.file("sub/mesh.inp"), folder.file("other.inp"));
    for (const char* file : {"sub/mesh.inp", "other.inp", "sub/model.inp", "./sub/../sub/model.inp"}) {
        EXPECT_TRUE(contains(refused(std::string("export sub/model.inp ") + file).err, "read from this file"))
            << file;
        EXPECT_EQ(bytes("sub/mesh.inp"), deck);
        EXPECT_EQ(bytes("sub/model.inp"), text);
    }
    EXPECT_EQ(run("export sub/model.inp sub/new.inp").status, 0);
}
