#include "input/settings_reader.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <climits>

#include "input_files.h"
#include "model/console.h"

using namespace kestralum;

namespace {

std::string settings_text(const std::string& nl_static, const std::string& threads) {
    return "KESTRALUM settings MEMORY_SIZE 2000 FREE_HD_SIZE 1e5 VIEW_FOVY 40 VIEW_C_zNear 0.01\n"
           "VIEW_C_zFar 100 ORDERING_TYPE LMAX C_EIGEN_SHIFT 0.5 DIV_MEMORY_SIZE 2 NL_STATIC " +
           nl_static + "\nNL_CONV 1e-3 N_THREADS " + threads + "\n";
}

}  // namespace

TEST(Settings, EveryEntryAndItsEcho) {
    console::Capture console;
    const Settings s = parse_settings(settings_text("go_on", "MAX"), "s.txt", 8);
    EXPECT_EQ(s.memory_size, 2000);
    EXPECT_EQ(s.free_hd_size, 1e5);
    EXPECT_EQ(s.view_fovy, 40);
    EXPECT_EQ(s.view_c_znear, 0.01);
    EXPECT_EQ(s.view_c_zfar, 100);
    EXPECT_EQ(s.ordering_type, "LMAX");
    EXPECT_EQ(s.c_eigen_shift, 0.5);
    EXPECT_EQ(s.div_memory_size, 2);
    EXPECT_EQ(s.nl_static, 1);
    EXPECT_EQ(s.nl_conv, 1e-3);
    EXPECT_EQ(s.n_threads, 8);
    EXPECT_EQ(console.lines,
              "  MEMORY_SIZE=      2000[MB]\n  FREE_HD_SIZE=    100000[MB]\n  VIEW_FOVY:4.0e+01\n"
              "  VIEW_C_zNear:1.000e-02\n  VIEW_C_zFar:1.000e+02\n  ORDERING_TYPE:LMAX\n"
              "  C_EIGEN_SHIFT:5.000e-01\n  DIV_MEMORY_SIZE:2\n  NL_STATIC:go_on[1]\n  NL_CONV:1.000e-03\n"
              "  N_THREADS:MAX\n  N_THREADS:8\n");
    EXPECT_EQ(console.notices, "");
}

TEST(Settings, NumberOfThreads) {
    const struct {
        const char* word;
        int kept;
        const char* echo;
    } cases[] = {
        {"16", 8, "  N_THREADS:16\n  N_THREADS:8\n"},
        {"2*2", 4, "  N_THREADS:4\n  N_THREADS:4\n"},
        {"3.9", 3, "  N_THREADS:3\n  N_THREADS:3\n"},
        {"-2", -2, "  N_THREADS:-2\n  N_THREADS:-2\n"},
        {"-0.5", 0, "  N_THREADS:0\n  N_THREADS:0\n"},
        {"1e99", 8, "  N_THREADS:2147483647\n  N_THREADS:8\n"},
        {"-1e99", INT_MIN, "  N_THREADS:-2147483648\n"},
        {"max", 0, "  N_THREADS:0\n  N_THREADS:0\n"},
    };
    for (const auto& c : cases) {
        console::Capture console;
        EXPECT_EQ(parse_settings(settings_text("stop", c.word), "s.txt", 8).n_threads, c.kept) << c.word;
        EXPECT_NE(console.lines.find(c.echo), std::string::npos) << c.word << "\n" << console.lines;
    }
}

TEST(Settings, WhatIsNotUnderstoodStaysZeroAndIsSaid) {
    {
        console::Capture console;
        EXPECT_EQ(parse_settings(settings_text("Stop", "1"), "s.txt", 8).nl_static, 0);
        EXPECT_NE(console.lines.find("  NL_STATIC:Stop[0]\n"), std::string::npos);
        EXPECT_NE(console.notices.find("s.txt: token 20 'Stop': expected stop or go_on"), std::string::npos)
            << console.notices;
    }
    console::Capture console;
    const Settings s = parse_settings(
        "head er a 1000MB b nan c 3 d 4 e 5 f LLMAXIMUM g 0.5 h 2.5 i stop j 0.1 k 1", "s.txt", 8);
    EXPECT_EQ(s.memory_size, 0);
    EXPECT_EQ(s.free_hd_size, 0);
    EXPECT_EQ(s.div_memory_size, 0);
    EXPECT_EQ(s.ordering_type, "LLMAXIM");
    EXPECT_EQ(s.nl_conv, 0.1);  // labels are free, the order counts
    EXPECT_EQ(std::ranges::count(console.notices, '\n'), 4) << console.notices;
}

TEST(Settings, ShortFile) {
    console::Capture console;
    const Settings s = parse_settings("head er MEMORY_SIZE 10 FREE_HD_SIZE", "s.txt", 8);
    EXPECT_EQ(s.memory_size, 10);
    EXPECT_EQ(s.free_hd_size, 0);
    EXPECT_EQ(s.n_threads, 0);
    EXPECT_NE(console.lines.find("  NL_STATIC:[0]\n"), std::string::npos);
    EXPECT_TRUE(console.lines.ends_with("  N_THREADS:0\n  N_THREADS:0\n"));
    EXPECT_EQ(console.notices, "s.txt: ends before FREE_HD_SIZE; it and what follows keep 0\n");
}

TEST(Settings, FileOnDisk) {
    const Settings before = settings();
    const test::TemporaryFolder folder;
    {
        console::Capture console;
        settings().n_threads = 77;
        EXPECT_EQ(read_setting_file(folder.name("none.txt")), SettingsStatus::missing);
        EXPECT_EQ(console.lines, "SETTING FILE OPEN ERROR\n");
        EXPECT_EQ(settings().n_threads, 77);
    }
    console::Capture console;
    EXPECT_EQ(read_setting_file(folder.write("s.txt", settings_text("stop", "MAX"))), SettingsStatus::read);
    EXPECT_TRUE(console.lines.starts_with("SETTING FILE OPEN !!\n  MEMORY_SIZE="));
    EXPECT_EQ(settings().n_threads, omp_get_max_threads());
    settings() = before;
}
