#include "app/run_process.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "app/program_path.h"
#include "input/settings_reader.h"
#include "model/format.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "results/result_file.h"
#include "solver/panels.h"

namespace kestralum {

namespace {

// The last bytes of a file, at most this many; empty where it cannot be read.
std::string end_of_file(const paths::File& file, long bytes) {
    if (std::fseek(file.get(), 0, SEEK_END) != 0) return {};
    const long size = std::ftell(file.get());
    std::string text(size > 0 ? std::min(size, bytes) : 0, '\0');
    if (std::fseek(file.get(), -static_cast<long>(text.size()), SEEK_END) != 0 ||
        std::fread(text.data(), 1, text.size(), file.get()) != text.size())
        return {};
    return text;
}

// Kind and box of the model, the last two sections of a result file.
struct ResultsEnd {
    AnalysisType type;
    std::array<double, 6> size_info;  // m
};

std::optional<ResultsEnd> results_end(const std::string& text) {
    constexpr std::string_view keyword = "\nana_type\n";
    const std::size_t at = text.rfind(keyword);
    if (at == std::string::npos) return std::nullopt;
    TokenReader reader(std::string_view(text).substr(at + keyword.size()));
    const auto type = reader.next_int32();
    if (!type || *type < 0 || *type > static_cast<std::int32_t>(AnalysisType::buckling) ||
        reader.next() != "%" || reader.next() != "size_info")
        return std::nullopt;
    ResultsEnd end{static_cast<AnalysisType>(*type), {}};
    for (double& side : end.size_info) {
        const auto value = reader.next_double();
        if (!value) return std::nullopt;
        side = *value;
    }
    return end;
}

bool same_box(const std::array<double, 6>& a, const std::array<double, 6>& b) {
    constexpr double digits = 2e-6;  // of the seven that the file has
    double largest = 0, difference = 0;
    for (std::size_t c = 0; c < a.size(); ++c) {
        largest = std::max({largest, std::abs(a[c]), std::abs(b[c])});
        difference = std::max(difference, std::abs(a[c] - b[c]));
    }
    return difference <= digits * largest;
}

const char* with_article(AnalysisType type) {
    switch (type) {
        case AnalysisType::eigen:
            return "an eigen analysis";
        case AnalysisType::linear_static:
            return "a static analysis";
        case AnalysisType::nonlinear_static:
            return "a nonlinear analysis";
        case AnalysisType::buckling:
            return "a buckling analysis";
        case AnalysisType::explicit_dynamics:
            break;
    }
    return "an explicit analysis";
}

// The folder as the platform names it; `fault` says why it could not be made.
std::string make_folder(std::string_view log_folder, std::error_code& fault) {
    const std::filesystem::path inside = paths::to_platform("log\\file", log_folder);
    std::filesystem::create_directories(inside.parent_path(), fault);
    return inside.parent_path().string();
}

bool address_space_is_limited() {
    rlimit limit{};
    return ::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

}  // namespace

LogLock::~LogLock() {
    if (file_ >= 0) ::close(file_);
}

bool LogLock::take(std::string_view log_folder, Progress& progress) {
    std::error_code fault;
    const std::string directory = make_folder(log_folder, fault);
    const std::string name = directory + "/.lock";
    file_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file_ < 0) {
        const std::string why = fault ? fault.message() : std::strerror(errno);
        progress.error("the folder %s cannot be written: %s", directory.c_str(), why.c_str());
        return false;
    }
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
        progress.error("another run is using the folder %s: give this one its own with --log",
                       directory.c_str());
        ::close(file_);
        file_ = -1;
        return false;
    }
    return true;
}

void use_best_kernels(char** argv) {
    const char* kernels = better_blas_kernels();
    if (kernels && !std::getenv("OPENBLAS_CORETYPE") && ::setenv("OPENBLAS_CORETYPE", kernels, 0) == 0)
        ::execv("/proc/self/exe", argv);
    take_buffers_where_limited();
}

void take_buffers_where_limited() {
    if (address_space_is_limited()) take_blas_buffers();
}

bool start_up(std::string_view setting_file, std::string_view log_folder, Settings& settings,
              Progress& progress) {
    if (read_setting_file(setting_file, settings, progress) == SettingsStatus::missing) {
        if (const std::string hint = missing_settings_hint(); !hint.empty())
            progress.error("%s", hint.c_str());
        return false;
    }
    std::error_code none;  // a run that writes there tells it itself
    make_folder(log_folder, none);
    progress.print("KESTRALUM %s\n", program_version);
    return true;
}

std::string missing_settings_hint() {
    if (program_beside("kestralum-new").empty()) return {};
    return "kestralum-new FOLDER makes a folder with settings and models to start from";
}

std::string slow_kernels_note() {
    const char* kept = std::getenv("OPENBLAS_CORETYPE");
    const char* better = better_blas_kernels();
    if (!kept || !better) return {};
    return formatted(
        "OPENBLAS_CORETYPE=%s of the environment is kept: without it %s would be taken, faster on this "
        "processor",
        kept, better);
}

std::string replaced_results_note(const Model& model, AnalysisType type, std::string_view log_folder) {
    const std::string stored = result_file_name(model.model_file_name);
    const paths::File file = paths::open(stored, "rb", log_folder);
    if (!file) return {};
    const std::string name = paths::to_platform(stored, log_folder);
    constexpr long bytes = 4096;  // the two sections take a few hundred
    const auto end = results_end(end_of_file(file, bytes));
    if (!end) return name + " is no whole result file and is replaced";
    if (end->type != type) return name + " holds " + with_article(end->type) + " and is replaced";
    if (same_box(end->size_info, model.mesh.size_info)) return {};
    const auto& box = end->size_info;
    return name + formatted(" holds %s of a model of another size, %.6g x %.6g x %.6g m, and is replaced",
                            with_article(type), box[3] - box[0], box[4] - box[1], box[5] - box[2]);
}

}  // namespace kestralum
