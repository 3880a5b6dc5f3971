#include "app/verify_peer.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <span>
#include <sstream>
#include <string_view>

#include "analysis/analysis_table.h"
#include "app/export_model.h"
#include "app/program_path.h"
#include "app/verify_run.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "mesh/child_process.h"
#include "model/format.h"
#include "model/paths.h"
#include "model/selection.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

namespace fs = std::filesystem;

constexpr double displacement_limit = 1e-6, frequency_limit = 1e-5;
constexpr double rigid_frequency = 1;  // Hz: below it a free body's motions, which are noise

// Keeps notes and the first error of an export.
class ExportLines : public Progress {
public:
    explicit ExportLines(const Progress& whole) : Progress(false), whole_(whole) {}
    bool cancelled() const override { return whole_.cancelled(); }
    std::string error, note;  // note: the first about what CalculiX does otherwise

protected:
    void take(Kind kind, std::string_view text) override {
        const std::string line(text.substr(0, text.find('\n')));
        if (kind == Kind::error && error.empty()) error = line;
        const bool told = kind == Kind::summary && line.starts_with("note: ");
        if (told && note.empty() && line.find("CalculiX") != std::string::npos) note = line.substr(6);
        if (told && note.empty() && line.find("are written as C3D8I") != std::string::npos)
            note = line.substr(6);
    }

private:
    const Progress& whole_;
};

class Comparison {
public:
    Comparison(const VerifyCase& one, const Settings& settings, fs::path folder, Progress& progress)
        : case_(one),
          settings_(settings),
          folder_(std::move(folder)),
          progress_(progress),
          silent_(progress) {}

    PeerOutcome out;

    void work(const std::string& ccx) {
        const AnalysisEntry& analysis = *find_analysis(case_.analysis);
        if (analysis.type != AnalysisType::linear_static && analysis.type != AnalysisType::eigen)
            return leave_out("neither static nor modal");
        if (case_.prestress) return leave_out("the deck has no prestressed modes");
        if (read_model() && write_deck() && run_ccx(ccx) && run_here(analysis)) {
            out.elements = elements_of(model_, run_);
            if (analysis.type == AnalysisType::eigen)
                compare_frequencies();
            else
                compare_displacements();
        }
    }

private:
    void leave_out(const std::string& why) {
        out.left_out = true;
        out.fault = why;
    }
    bool fail(const std::string& why) {
        if (out.fault.empty()) out.fault = why;
        return false;
    }
    bool read_model() {
        model_ = placeholder_model();
        model_.model_file_name = case_.model_file;
        const ModelReadReport read = read_input_file(model_, case_.overrides, silent_);
        if (!read.ok)
            return fail(read.remarks.errors.empty() ? "the model cannot be read"
                                                    : read.remarks.errors.front());
        read_analysis_info_file(model_, silent_);
        if (case_.hexahedra) model_.hexahedra = *case_.hexahedra;
        return true;
    }
    bool write_deck() {
        ExportLines said(progress_);
        if (export_model(model_, settings_, folder_ / "deck.inp", said) != RunStatus::done)
            return fail(said.error.empty() ? "the deck cannot be written" : said.error);
        out.note = said.note;
        std::string why;
        return paths::read_text((folder_ / "deck.inp").string(), deck_, why) || fail(why);
    }
    bool run_ccx(const std::string& ccx) {
        // it leaves files of its own where it runs
        const std::vector<std::string> words{"-C", folder_.string(), ccx, "-i", "deck"};
        constexpr double patience = 600;  // s
        std::string error;
        const ChildEnd end = run_child(
            "/usr/bin/env", words, patience,
            [&](std::string_view line) {
                if (error.empty() && line.find("*ERROR") != std::string_view::npos) error = line;
            },
            progress_);
        if (!end.reason.empty()) return fail("ccx " + end.reason + (error.empty() ? "" : ": " + error));
        std::string text, why;
        if (!paths::read_text((folder_ / "deck.dat").string(), text, why))
            return fail("ccx has written no results" + (error.empty() ? "" : ": " + error));
        theirs_ = read_ccx_dat(text);
        return !progress_.cancelled();
    }
    bool run_here(const AnalysisEntry& analysis) {
        RunOptions options;
        options.log_folder = folder_.string();
        options.load_case = case_.load_case;
        run_ = analysis.analyse(model_, settings_, options, silent_);
        if (run_.report.status == RunStatus::done) return true;
        const auto& errors = run_.report.remarks.errors;
        return fail(errors.empty() ? "the run ended early" : errors.front());
    }
    // Here a temperature is taken at the points of the elements, in the deck at the nodes.
    bool has_curved_temperature() const {
        const Mesh& mesh = model_.mesh;
        const auto curved = [&](const Load& load) {
            if (load.kind != LoadKind::temperature || !load.value.at) return false;
            for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
                Vec3 middle{};
                double mean = 0, size = 0;
                const auto nodes = mesh.element(e);
                for (const std::int32_t node : nodes) {
                    const Vec3 place = place_of(mesh, node_index(node));
                    const double t = load.value.at(place.data(), 1);
                    middle = plus(middle, times(1.0 / static_cast<double>(nodes.size()), place));
                    mean += t / static_cast<double>(nodes.size());
                    size = std::max(size, std::abs(t));
                }
                if (std::abs(load.value.at(middle.data(), 1) - mean) > 1e-9 * size) return true;
            }
            return false;
        };
        return std::ranges::any_of(model_.loads, curved);
    }
    void judge_by(double limit) {
        if (out.note.empty()) out.limit = limit;
    }

    // The names of the static steps, which a comment before each tells; "" where there is but one.
    std::vector<std::string> step_names() const {
        constexpr std::string_view comment = "** load case ";
        std::vector<std::string> names;
        std::string name;
        std::istringstream lines(deck_);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(comment)) name = line.substr(comment.size());
            if (line.starts_with("*STATIC")) names.push_back(std::exchange(name, {}));
        }
        return names;
    }
    void compare_displacements() {
        const std::vector<std::string> names = step_names();
        if (names.empty() || theirs_.steps.size() < names.size()) {
            fail(formatted("ccx has computed %zu of %zu steps", theirs_.steps.size(), names.size()));
            return;
        }
        for (std::size_t k = 0; k < names.size() && out.fault.empty(); ++k) {
            const auto frame = std::ranges::find_if(run_.results, [&](const auto& f) {
                return names[k].empty() || f->name.empty() || f->name == names[k];
            });
            if (frame == run_.results.end()) {
                if (case_.load_case.empty()) fail("no load case " + names[k] + " here");
                continue;
            }
            compare_step(theirs_.steps[k], **frame);
        }
        if (out.note.empty() && has_curved_temperature())
            out.note = "temperatures that curve are taken at points here, by CalculiX at nodes";
        judge_by(displacement_limit);
    }
    void compare_step(std::span<const std::pair<std::int32_t, std::array<double, 3>>> step,
                      const Frame& frame) {
        double largest = 0, difference = 0;
        for (const auto& [number, theirs] : step) {
            if (number < 1 || number > std::ssize(run_.node_of)) continue;  // of a rigid element's own
            const Vec3 ours = triple(frame.mode_vec, run_.node_of[node_index(number)]);
            for (std::size_t c = 0; c < 3; ++c) {
                largest = std::max(largest, std::abs(ours[c]));
                difference = std::max(difference, std::abs(ours[c] - theirs[c]));
            }
            ++out.compared;
        }
        if (step.empty()) fail("ccx tells no displacements");
        out.difference = std::max(out.difference, largest > 0 ? difference / largest : difference);
    }
    void compare_frequencies() {
        if (theirs_.frequencies.size() < run_.results.size()) {
            fail(formatted("ccx has computed %zu of %zu modes", theirs_.frequencies.size(),
                           run_.results.size()));
            return;
        }
        for (std::size_t k = 0; k < run_.results.size(); ++k) {
            const double ours = run_.results[k]->n_freq, theirs = theirs_.frequencies[k];
            if (std::max(ours, theirs) < rigid_frequency) continue;
            out.difference = std::max(out.difference, std::abs(ours - theirs) / ours);
            ++out.compared;
        }
        if (model_.mesh.element_type != ElementKind::hexahedron && out.note.empty())
            out.note = "CalculiX integrates the mass of tetrahedra with fewer points";
        judge_by(frequency_limit);
    }

    const VerifyCase& case_;
    const Settings& settings_;
    const fs::path folder_;
    Progress& progress_;
    SilentProgress silent_;
    Model model_;
    Run run_;
    std::string deck_;
    CcxResults theirs_;
};

}  // namespace

CcxResults read_ccx_dat(const std::string& text) {
    enum class Reading { none, displacements, frequencies } reading = Reading::none;
    CcxResults out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream rest(line);
        std::vector<std::string> words;
        for (std::string word; rest >> word;) words.push_back(word);
        const auto has = [&](const char* title) { return line.find(title) != std::string::npos; };
        if (has("displacements")) {
            // those behind the frequencies are shapes
            reading = out.frequencies.empty() ? Reading::displacements : Reading::none;
            if (reading == Reading::displacements) out.steps.emplace_back();
        } else if (has("E I G E N V A L U E")) {
            reading = has("O U T P U T") ? Reading::frequencies : Reading::none;
        } else if (has("P A R T I C I P A T I O N")) {
            reading = Reading::none;
        } else if (reading == Reading::displacements && words.size() == 4) {
            const auto number = parse_int32(words[0]);
            std::array<double, 3> u{};
            bool good = number.has_value();
            for (std::size_t c = 0; c < 3; ++c) {
                const auto value = parse_double(words[c + 1]);
                good = good && value;
                u[c] = value.value_or(0);
            }
            if (good) out.steps.back().emplace_back(*number, u);
        } else if (reading == Reading::frequencies && words.size() >= 4 && parse_int32(words[0])) {
            if (const auto hertz = parse_double(words[3])) out.frequencies.push_back(*hertz);
        }
    }
    return out;
}

std::string find_ccx() {
    return program_on_path("ccx");
}

PeerOutcome compare_with_ccx(const std::string& ccx, const VerifyCase& one, const Settings& settings,
                             const std::string& log_folder, Progress& progress) {
    std::error_code fault;
    const fs::path folder = fs::absolute(fs::path(log_folder) / "verify_peer", fault);
    fs::create_directories(folder, fault);
    Comparison comparison(one, settings, folder, progress);
    comparison.work(ccx);
    fs::remove_all(folder, fault);
    return std::move(comparison.out);
}

}  // namespace kestralum
