// Runs kestralum-batch as a user does: in a folder with a setting folder and a model.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "model/token_reader.h"
#include "results/result_file.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum::testing {

struct Ended {
    int status = -1;
    std::string out, err;
};

inline std::string settings_text(const std::string& memory = "1000", const std::string& disk = "1000") {
    return "KESTRALUM settings\nMEMORY_SIZE " + memory + "\nFREE_HD_SIZE " + disk +
           "\nVIEW_FOVY 45\nVIEW_C_zNear 0.01\nVIEW_C_zFar 100\nORDERING_TYPE LALL\nC_EIGEN_SHIFT "
           "0.5\nDIV_MEMORY_SIZE 1\nNL_STATIC stop\nNL_CONV 1e-6\nN_THREADS 2\n";
}

// A bar of 0.2 × 0.02 × 0.02 m without lateral contraction, clamped at x = 0 and pulled with 1000 N:
// u = P L / (E A) = 2.5e-6 m at the end, a uniform stress of P / A = 2.5e6 N/m^2.
inline const std::string bar_text = R"(
material_info  STEEL 7800 2e11 0  %
parameter  L 0.2  B 0.02  A B*B  P 1000  %
part_info
  BAR blue STEEL RECT  L B B 0 0 0  8 2 2 0 0 0  0 0 0  0 0 0
%
boundary_condition  CLAMP plane x  0 0 -1 1 -1 1  %
apply_force  PULL area x P  L L -1 1 -1 1  %
END
)";
constexpr double bar_end = 2.5e-6, bar_mises = 2.5e6;

// The numbers of the line that begins with `title`, in order; empty where there is no such line.
inline std::vector<double> numbers_of(const std::string& text, const std::string& title) {
    std::vector<double> numbers;
    const std::size_t at = text.starts_with(title) ? 0 : text.find("\n" + title);
    if (at == std::string::npos) return numbers;
    const std::size_t from = at + title.size() + (at > 0);
    std::string line = text.substr(from, text.find('\n', from) - from);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '(' || c == ')' || c == ','; }, ' ');
    for (const std::string& word : tokens_of(line))
        if (const auto number = parse_double(word)) numbers.push_back(*number);
    return numbers;
}

inline void expect_near(const std::vector<double>& numbers, const std::vector<double>& expected,
                        double within) {
    ASSERT_EQ(numbers.size(), expected.size());
    for (std::size_t k = 0; k < numbers.size(); ++k) EXPECT_NEAR(numbers[k], expected[k], within);
}

// How run() starts the program unless a test sets another scene.
inline const std::string in_time = "timeout -k 5 200";

struct Batch : ::testing::Test {
    TempFolder folder;

    void SetUp() override {
        std::filesystem::remove(folder.path() / "log");  // the program makes its own
        std::filesystem::create_directory(folder.path() / "setting");
        folder.write("setting/setting.txt", settings_text());
        folder.write("bar.txt", bar_text);
    }
    // `before`: shell commands that set the scene for the program, the last one that starts it.
    Ended run(const std::string& arguments, const std::string& before = in_time) const {
        const std::string line = "cd '" + folder.path().string() + "' && " + before +
                                 " '" KESTRALUM_BINARY_DIR "/kestralum-batch' " + arguments +
                                 " > run.out 2> run.err < /dev/null";
        const int ended = std::system(line.c_str());
        Ended result{WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, bytes("run.out"), bytes("run.err")};
        EXPECT_FALSE(contains(result.err, "Sanitizer") || contains(result.err, "runtime error:"))
            << result.err;
        return result;
    }
    // A run that ends with this status and one line that says why.
    Ended refused(const std::string& arguments, int status = 2, const std::string& before = in_time) const {
        const Ended result = run(arguments, before);
        EXPECT_EQ(result.status, status) << arguments << result.out;
        EXPECT_EQ(lines_of(result.err).size(), 1u) << arguments << result.err;
        return result;
    }
    bool exists(const std::string& name) const { return std::filesystem::exists(folder.path() / name); }
    std::string bytes(const std::string& name) const { return read_file(folder.path() / name); }
    StoredRun result(const std::string& name) const {
        Collected said;
        auto stored = read_result_file(folder.file(name), "log", said);
        EXPECT_TRUE(stored) << said.errors;
        return stored ? std::move(*stored) : StoredRun{};
    }
};

}  // namespace kestralum::testing
