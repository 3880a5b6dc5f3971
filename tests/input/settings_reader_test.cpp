#include "input/settings_reader.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <climits>

#include "model/format.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

std::string settings_text(const std::string& nl_static, const std::string& threads) {
    return "KESTRALUM settings MEMORY_SIZE 2000 FREE_HD_SIZE 1e5 VIEW_FOVY 40 VIEW_C_zNear 0.01\n"
           "VIEW_C_zFar 100 ORDERING_TYPE LMAX C_EIGEN_SHIFT 0.5 DIV_MEMORY_SIZE 2 NL_STATIC " +
           nl_static + "\nNL_CONV 1e-3 N_THREADS " + threads + "\n";
}

}  // namespace

TEST(Settings, EveryEntryAndItsEcho) {
    Collected console;
    const Settings s = parse_settings(settings_text("go_on", "MAX"), "s.txt", 8, console);
    EXPECT_EQ(s, (Settings{2000, 1e5, 40, 0.01, 100, "LMAX", 0.5, 2, 1, 1e-3, 8}));
    EXPECT_EQ(console.lines,
              "  MEMORY_SIZE=      2000[MB]\n  FREE_HD_SIZE=    100000[MB]\n  VIEW_FOVY:4.0e+01\n"
              "  VIEW_C_zNear:1.000e-02\n  VIEW_C_zFar:1.000e+02\n  ORDERING_TYPE:LMAX\n"
              "  C_EIGEN_SHIFT:5.000e-01\n  DIV_MEMORY_SIZE:2\n  NL_STATIC:go_on[1]\n  NL_CONV:1.000e-03\n"
              "  N_THREADS:MAX\n  N_THREADS:8\n");
    EXPECT_EQ(console.notices, "");
}

TEST(Settings, NumberOfThreads) {
    // a word, the number that it is, the number kept of 8
    const std::tuple<const char*, int, int> cases[] = {
        {"16", 16, 8},  {"2*2", 4, 4},        {"3.9", 3, 3}, {"-2", -2, -2},
        {"-0.5", 0, 0}, {"1e99", INT_MAX, 8}, {"max", 0, 0}, {"-1e99", INT_MIN, INT_MIN}};
    for (const auto& [word, number, kept] : cases) {
        Collected console;
        EXPECT_EQ(parse_settings(settings_text("stop", word), "s.txt", 8, console).n_threads, kept) << word;
        EXPECT_TRUE(console.lines.ends_with(formatted("  N_THREADS:%d\n  N_THREADS:%d\n", number, kept)))
            << word << "\n"
            << console.lines;
    }
}

TEST(Settings, WhatIsNotUnderstoodStaysZeroWithANotice) {
    Collected word, odd, cut;
    EXPECT_EQ(parse_settings(settings_text("Stop", "1"), "s.txt", 8, word).nl_static, 0);
    EXPECT_TRUE(contains(word.lines, "  NL_STATIC:Stop[0]\n"));
    EXPECT_TRUE(contains(word.notices, "s.txt: token 20 'Stop': expected stop or go_on")) << word.notices;
    const Settings s = parse_settings(
        "head er a 1000MB b nan c 3 d 4 e 5 f LLMAXIMUM g 0.5 h 2.5 i stop j 0.1 k 1", "s.txt", 8, odd);
    EXPECT_TRUE(s.memory_size == 0 && s.free_hd_size == 0 && s.div_memory_size == 0);
    EXPECT_EQ(s.ordering_type, "LLMAXIM");
    EXPECT_EQ(s.nl_conv, 0.1);  // labels are free, the order counts
    EXPECT_EQ(lines_of(odd.notices).size(), 4u) << odd.notices;
    const Settings few = parse_settings("head er MEMORY_SIZE 10 FREE_HD_SIZE", "s.txt", 8, cut);
    EXPECT_TRUE(few.memory_size == 10 && few.free_hd_size == 0 && few.n_threads == 0);
    EXPECT_TRUE(contains(cut.lines, "  NL_STATIC:[0]\n"));
    EXPECT_TRUE(cut.lines.ends_with("  N_THREADS:0\n  N_THREADS:0\n"));
    EXPECT_EQ(cut.notices, "s.txt: ends before FREE_HD_SIZE; it and what follows keep 0\n");
}

TEST(Settings, LabelsDecideAfterTheEleven) {
    const std::string eleven = settings_text("stop", "1");
    Collected plain, chosen, wrong;
    const Settings usual = parse_settings(eleven + " some words of the user", "s.txt", 8, plain);
    EXPECT_EQ(usual, parse_settings(eleven, "s.txt", 8, chosen));
    EXPECT_EQ(plain.lines, chosen.lines);
    EXPECT_TRUE(usual.solver == "auto" && usual.solver_tolerance == 1e-10 && plain.notices.empty());
    const Settings s = parse_settings(eleven + "\nMY 1 SOLVER_TOL 1e-8 SOLVER sparse x", "s.txt", 8, chosen);
    EXPECT_TRUE(s.solver == "sparse" && s.solver_tolerance == 1e-8);
    EXPECT_EQ(chosen.lines, plain.lines + plain.lines + "  SOLVER_TOL:1.000e-08\n  SOLVER:sparse\n");
    EXPECT_EQ(parse_settings(eleven + " SOLVER Sparse SOLVER_TOL 2 SOLVER", "s.txt", 8, wrong), usual);
    EXPECT_EQ(lines_of(wrong.notices).size(), 3) << wrong.notices;
    EXPECT_TRUE(
        contains(wrong.notices, "s.txt: token 26 'Sparse': expected auto, skyline, sparse or iterative"))
        << wrong.notices;
}

TEST(Settings, FileOnDisk) {
    const TempFolder folder;
    Settings settings;
    settings.n_threads = 77;
    Collected missing;
    EXPECT_EQ(read_setting_file(folder.file("no\\none.txt"), settings, missing), SettingsStatus::missing);
    EXPECT_EQ(missing.summaries, "SETTING FILE OPEN ERROR\n");
    EXPECT_EQ(missing.errors, folder.file("no/none.txt") + ": No such file or directory\n");
    EXPECT_EQ(settings.n_threads, 77);
    Collected read;
    EXPECT_EQ(read_setting_file(folder.write("s.txt", "\xef\xbb\xbf " + settings_text("stop", "MAX")),
                                settings, read),
              SettingsStatus::read);
    EXPECT_TRUE(read.lines.starts_with("SETTING FILE OPEN !!\n  MEMORY_SIZE=      2000[MB]"));
    EXPECT_EQ(settings.n_threads, omp_get_max_threads());
}
