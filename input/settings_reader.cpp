#include "input/settings_reader.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <variant>

#include "input/calculator.h"
#include "input/input_remarks.h"
#include "model/paths.h"
#include "model/progress.h"
#include "model/records.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

using Place = std::variant<double Settings::*, std::int32_t Settings::*, std::string Settings::*>;

struct Row {
    const char* key;
    const char* echo;
    Place place;
};

constexpr std::size_t ordering_type_width = 7;

const Row rows_to_div_memory[] = {
    {"MEMORY_SIZE", "  MEMORY_SIZE=%10.0f[MB]\n", &Settings::memory_size},
    {"FREE_HD_SIZE", "  FREE_HD_SIZE=%10.0f[MB]\n", &Settings::free_hd_size},
    {"VIEW_FOVY", "  VIEW_FOVY:%.1e\n", &Settings::view_fovy},
    {"VIEW_C_zNear", "  VIEW_C_zNear:%.3e\n", &Settings::view_c_znear},
    {"VIEW_C_zFar", "  VIEW_C_zFar:%.3e\n", &Settings::view_c_zfar},
    {"ORDERING_TYPE", "  ORDERING_TYPE:%s\n", &Settings::ordering_type},
    {"C_EIGEN_SHIFT", "  C_EIGEN_SHIFT:%.3e\n", &Settings::c_eigen_shift},
    {"DIV_MEMORY_SIZE", "  DIV_MEMORY_SIZE:%d\n", &Settings::div_memory_size},
};
const Row row_nl_conv = {"NL_CONV", "  NL_CONV:%.3e\n", &Settings::nl_conv};

class SettingsParser {
public:
    SettingsParser(std::string_view text, std::string_view file_name, Progress& progress)
        : tokens_(text), remarks_(std::string(file_name), collected_), progress_(progress) {}

    Settings parse(std::int32_t available_threads) {
        tokens_.skip(2);
        for (const Row& row : rows_to_div_memory) read_row(row);
        read_nl_static();
        read_row(row_nl_conv);
        read_threads(available_threads);
        read_labelled();
        remarks_.close();
        print_remarks(collected_, progress_);
        return settings_;
    }

private:
    Token value_token() {
        tokens_.next();
        const std::string_view value = tokens_.next();
        return {value, tokens_.token_number()};
    }

    void not_understood(const Token& token, const char* key, const char* expected) {
        if (token.text.empty()) {
            if (!ended_) remarks_.notice(std::string("ends before ") + key + "; it and what follows keep 0");
            ended_ = true;
            return;
        }
        remarks_.notice(token,
                        std::string("expected ") + expected + " as " + key + ", which is left as it was");
    }

    void read_row(const Row& row) {
        const Token token = value_token();
        std::visit([&](auto member) { take(row, token, settings_.*member); }, row.place);
    }

    void take(const Row& row, const Token& token, double& value) {
        const auto number = parse_double(token.text);
        if (number && std::isfinite(*number))
            value = *number;
        else
            not_understood(token, row.key, "a number");
        progress_.print(row.echo, value);
    }

    void take(const Row& row, const Token& token, std::int32_t& value) {
        const auto number = parse_int32(token.text);
        if (number)
            value = *number;
        else
            not_understood(token, row.key, "an integer");
        progress_.print(row.echo, value);
    }

    void take(const Row& row, const Token& token, std::string& value) {
        static constexpr std::string_view words[] = {"LX", "LY", "LZ", "LALL", "LMAX", "DCTR"};
        if (token.text.empty())
            not_understood(token, row.key, "a word");
        else if (std::find(std::begin(words), std::end(words), token.text) == std::end(words))
            remarks_.notice(token, std::string("no known ") + row.key + " (LX, LY, LZ, LALL, LMAX, DCTR)");
        value = truncate_text(token.text, ordering_type_width);
        progress_.print(row.echo, value.c_str());
    }

    void read_nl_static() {
        const Token token = value_token();
        if (token.text == "stop")
            settings_.nl_static = 0;
        else if (token.text == "go_on")
            settings_.nl_static = 1;
        else
            not_understood(token, "NL_STATIC", "stop or go_on");
        progress_.print("  NL_STATIC:%s[%d]\n", std::string(token.text).c_str(), settings_.nl_static);
    }

    void read_threads(std::int32_t available) {
        const Token token = value_token();
        if (token.text == "MAX") {
            settings_.n_threads = available;
            progress_.print("  N_THREADS:%s\n", std::string(token.text).c_str());
        } else {
            const CalcResult result = calc(token.text, {});
            if (result.ok() && !std::isnan(result.value)) {
                using Limits = std::numeric_limits<std::int32_t>;
                const double whole = std::trunc(result.value);
                settings_.n_threads = static_cast<std::int32_t>(std::clamp(
                    whole, static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
            } else {
                not_understood(token, "N_THREADS", "MAX or an expression");
            }
            progress_.print("  N_THREADS:%d\n", settings_.n_threads);
            settings_.n_threads = std::min(settings_.n_threads, available);
        }
        progress_.print("  N_THREADS:%d\n", settings_.n_threads);
    }

    // What follows the eleven: pairs whose label decides, of which others are passed over.
    void read_labelled() {
        for (std::string label(tokens_.next()); !label.empty(); label = tokens_.next()) {
            if (label != "SOLVER" && label != "SOLVER_TOL") continue;
            const std::string_view value = tokens_.next();
            const Token token{value, tokens_.token_number()};
            label == "SOLVER" ? take_solver(token) : take_tolerance(token);
        }
    }

    void not_taken(const Token& token, const char* label, const char* expected) {
        if (token.text.empty())
            remarks_.notice(std::string("ends before the value of ") + label);
        else
            not_understood(token, label, expected);
    }

    void take_solver(const Token& token) {
        static constexpr std::string_view words[] = {"auto", "skyline", "sparse", "iterative"};
        if (std::ranges::find(words, token.text) != std::end(words))
            settings_.solver = token.text;
        else
            not_taken(token, "SOLVER", "auto, skyline, sparse or iterative");
        progress_.print("  SOLVER:%s\n", settings_.solver.c_str());
    }

    void take_tolerance(const Token& token) {
        const auto number = parse_double(token.text);
        if (number && *number > 0 && *number < 1)
            settings_.solver_tolerance = *number;
        else
            not_taken(token, "SOLVER_TOL", "a number between 0 and 1");
        progress_.print("  SOLVER_TOL:%.3e\n", settings_.solver_tolerance);
    }

    TokenReader tokens_;
    Settings settings_;
    Remarks collected_;
    InputRemarks remarks_;
    Progress& progress_;
    bool ended_ = false;
};

}  // namespace

std::int32_t count_available_threads() {
    std::int32_t team = 1;
#pragma omp parallel
#pragma omp single
    team = omp_get_num_threads();
    return team;
}

Settings parse_settings(std::string_view text, std::string_view file_name, std::int32_t available_threads,
                        Progress& progress) {
    return SettingsParser(text, file_name, progress).parse(available_threads);
}

SettingsStatus read_setting_file(std::string_view file_name, Settings& settings, Progress& progress) {
    std::string text, reason;
    if (!paths::read_text(file_name, text, reason)) {
        progress.summary("SETTING FILE OPEN ERROR\n");  // a quiet run ends here too and prints it
        progress.error("%s: %s", paths::to_platform(file_name).c_str(), reason.c_str());
        return SettingsStatus::missing;
    }
    progress.print("SETTING FILE OPEN !!\n");
    settings = parse_settings(text, file_name, count_available_threads(), progress);
    progress.print("FILE CLOSE !!\n");
    return SettingsStatus::read;
}

}  // namespace kestralum
