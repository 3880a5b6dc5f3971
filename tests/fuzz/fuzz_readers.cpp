// Every reader of the program under libFuzzer: fuzz_readers --reader=NAME [CORPUS...] [-FLAG=VALUE...]
// scripts/fuzz builds it and runs them all. An input must end in a result or in an error line: crashes,
// undefined behaviour, leaks, inputs that take longer than the limit of time or memory stop the run, and so
// does a reader that says neither, or that hands on what it says it has refused.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "app/batch/batch_options.h"
#include "app/verify_cases.h"
#include "app/window/window_options.h"
#include "input/analysis_info_reader.h"
#include "input/calculator.h"
#include "input/model_reader.h"
#include "input/settings_reader.h"
#include "mesh/gmsh_import.h"
#include "mesh/inp_import.h"
#include "mesh/stl_import.h"
#include "mesh/vol_import.h"
#include "results/frames_file.h"
#include "results/pieces_reader.h"
#include "results/result_file.h"
#include "system/model_check.h"
#include "view/contour.h"

using namespace kestralum;

namespace {

// A user who waits no longer: meshes of any size may be asked for.
class Impatient : public Progress {
public:
    Impatient() : Progress(false) {}
    bool cancelled() const override { return std::chrono::steady_clock::now() > end_; }
    int errors = 0;

protected:
    void take(Kind kind, std::string_view) override { errors += kind == Kind::error; }

private:
    std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
};

void must(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

const std::filesystem::path& folder() {
    static const std::filesystem::path made = [] {
        const char* of_user = std::getenv("TMPDIR");
        auto path = std::filesystem::path(of_user ? of_user : "/tmp") /
                    ("kestralum_fuzz_" + std::to_string(::getpid()));
        std::filesystem::create_directories(path / "log");
        std::atexit([] { std::filesystem::remove_all(folder()); });
        return path;
    }();
    return made;
}

const std::string& log_folder() {
    static const std::string name = folder() / "log";
    return name;
}

std::string file_with(std::string_view text, const char* name) {
    const std::string path = folder() / name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

void finite(const Mesh& mesh) {
    for (const double x : mesh.coordinates) must(std::isfinite(x), "coordinates are finite");
}

void read_model(std::string_view text) {
    Impatient progress;
    Model model = placeholder_model();
    model.model_file_name = file_with(text, "model.txt");
    const ModelReadReport report = read_input_file(model, {}, progress);
    must(report.ok || !report.remarks.errors.empty(), "a refused model has an error line");
    if (!report.ok) return;
    finite(model.mesh);
    constexpr std::int32_t small = 5000;  // elements: what is checked in no time
    if (model.mesh.element_num() < small) check_model(model, Settings(), progress);
}

void read_control(std::string_view text) {
    Impatient progress;
    Model model = placeholder_model();
    model.model_file_name = file_with("", "control.txt");
    file_with(text, "control.ana");
    const AnalysisInfoReport report = read_analysis_info_file(model, progress);
    must((report.status == AnalysisInfoStatus::wrong) == !report.remarks.errors.empty(),
         "a refused control file has an error line");
}

void read_settings(std::string_view text) {
    Impatient progress;
    parse_settings(text, "setting.txt", 2, progress);
}

void read_result(std::string_view text) {
    Impatient progress;
    const auto stored = read_result_text("result.txt", text, progress);
    must(stored || progress.errors > 0, "a refused result file has an error line");
    if (stored) finite(stored->run.mesh);
}

void read_displacements(std::string_view text) {
    Impatient progress;
    const std::string file = file_with(text, "log/disp_model.txt");
    const auto stored = read_displacement_file(file, log_folder(), nullptr, progress);
    must(stored || progress.errors > 0, "a refused displacement file has an error line");
}

void read_frames(std::string_view text) {
    Impatient progress;
    const std::string file = file_with(text, "log/frames_model.txt");
    const auto stored = read_frames_file(file, log_folder(), progress);
    must(stored || progress.errors > 0, "a refused frames file has an error line");
    for (std::int32_t f = 1; stored && f <= 3; ++f) view::frame_at(stored->run.results, f);
}

// The list and its pieces in one input, with a mark between two.
void read_list_of_pieces(std::string_view text) {
    constexpr std::string_view mark = "<!-- next file -->";
    std::string list;
    for (const char* const name : {"log/model.pvtu", "log/model_p0000.vtu", "log/model_p0001.vtu"}) {
        const std::size_t end = std::min(text.find(mark), text.size());
        const std::string file = file_with(text.substr(0, end), name);
        if (list.empty()) list = file;
        text.remove_prefix(std::min(end + mark.size(), text.size()));
    }
    Impatient progress;
    const auto stored = read_pieces(list, log_folder(), progress);
    must(stored ? progress.errors == 0 : progress.errors == 1, "refused pieces have one error line");
    if (!stored) return;
    const Mesh& mesh = stored->run.mesh;
    finite(mesh);
    must(mesh.element_num() > 0 && std::isfinite(mesh.max_length), "pieces have elements in a box");
    for (const std::int32_t node : mesh.connectivity)
        must(node >= 1 && node <= mesh.node_num(), "elements have nodes of the mesh");
    for (const std::int32_t part : mesh.p_ele_part_id)
        must(part >= 0 && std::size_t(part) < stored->model.parts.size(), "elements have parts of the model");
    for (const auto& frame : stored->run.results)
        must(frame->mode_vec.size() == mesh.coordinates.size() &&
                 frame->node_stress.size() == stress_groups * mesh.coordinates.size(),
             "frames have values of all nodes");
}

template <typename Read>
void read_mesh(const Read& read) {
    PartMesh mesh;
    Remarks remarks;
    const Impatient progress;
    const bool good = read(mesh, remarks, progress);
    must(good || !remarks.errors.empty() || progress.cancelled(), "a refused mesh has an error line");
    must(good || mesh.node_num() == 0, "a refused mesh has no nodes");
    for (const double x : mesh.coordinates) must(std::isfinite(x), "coordinates are finite");
}

void read_vol(std::string_view text) {
    read_mesh([&](PartMesh& mesh, Remarks& remarks, const Progress& progress) {
        return read_vol_text(text, "f", 1, mesh, remarks, progress);
    });
}
void read_msh(std::string_view text) {
    read_mesh([&](PartMesh& mesh, Remarks& remarks, const Progress& progress) {
        return read_msh_text(text, "f", 1, mesh, remarks, progress);
    });
}
void read_stl(std::string_view text) {
    read_mesh([&](PartMesh& mesh, Remarks& remarks, const Progress& progress) {
        return read_stl_text(text, "f", 1, mesh, remarks, progress);
    });
}
void read_inp(std::string_view text) {
    const std::string file = file_with(text, "deck.inp");  // which may include itself
    read_mesh([&](PartMesh& mesh, Remarks& remarks, const Progress& progress) {
        return read_inp_text(text, file, 1, {1'000'000, 1'000'000}, mesh, remarks, progress);
    });
}

void evaluate(std::string_view text) {
    const std::vector<Parameter> parameters{{0, "b", 0.5, {}}, {0, "long_name", -3, {}}};
    const CalcResult once = calc(text, parameters, 2);
    must(once.ok() || once.value == 0, "what has no value is 0");
    const std::string_view variables[] = {"x", "time"};
    const Expression expression(text, variables, parameters);
    const double values[] = {0.25, 2};
    const double value = expression.at(values);
    must(!once.ok() || !expression.ok() || uses_name(text, "x") || value == once.value ||
             (std::isnan(value) && std::isnan(once.value)),
         "an expression that is read once has the value of one that is read each time");
}

void read_cases(std::string_view text) {
    Remarks remarks;
    const auto cases = read_verify_cases(file_with(text, "cases.txt"), remarks);
    must(cases.empty() == !remarks.ok(), "refused cases have an error line");
}

// A line of the text is an argument.
void read_command_line(std::string_view text) {
    std::string words(text);
    std::vector<const char*> arguments{"kestralum"};
    for (std::size_t from = 0; from < words.size();) {
        std::size_t end = words.find('\n', from);
        if (end == std::string::npos) end = words.size();
        words[std::min(end, words.size() - 1)] = '\0';
        arguments.push_back(words.data() + from);
        from = end + 1;
    }
    if (!words.empty()) words.back() = '\0';
    parse_batch_options(arguments);
    parse_window_options(arguments);
}

struct Reader {
    const char* name;
    void (*read)(std::string_view text);
};
constexpr Reader readers[] = {{"model", read_model},
                              {"control", read_control},
                              {"settings", read_settings},
                              {"result", read_result},
                              {"displacement", read_displacements},
                              {"frames", read_frames},
                              {"pieces", read_list_of_pieces},
                              {"vol", read_vol},
                              {"msh", read_msh},
                              {"stl", read_stl},
                              {"inp", read_inp},
                              {"calculator", evaluate},
                              {"cases", read_cases},
                              {"command", read_command_line}};

const Reader* chosen = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    constexpr std::string_view option = "--reader=";
    for (int k = 1; k < *count; ++k) {
        const std::string_view word = (*arguments)[k];
        if (!word.starts_with(option)) continue;
        for (const Reader& one : readers)
            if (word.substr(option.size()) == one.name) chosen = &one;
    }
    if (chosen) return 0;
    std::fprintf(stderr, "fuzz_readers --reader=NAME [CORPUS...]   NAME:");
    for (const Reader& one : readers) std::fprintf(stderr, " %s", one.name);
    std::fprintf(stderr, "\n");
    std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosen->read({reinterpret_cast<const char*>(data), size});
    return 0;
}
