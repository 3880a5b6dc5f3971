#include "app/verify.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

#include "analysis/analysis_table.h"
#include "app/verify_cases.h"
#include "input/analysis_info_reader.h"
#include "input/calculator.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/selection.h"
#include "model/topology.h"

namespace kestralum {

namespace {

// Values of earlier checks, by "check" in the same case and "case__check" from any.
using Known = std::vector<Parameter>;

class Measurement {
public:
    Measurement(const Model& model, const Run& run, const Known& known, const std::string& case_name)
        : run_(run), names_(known), around_(elements_of_nodes(run.mesh)) {
        for (const Parameter& p : known)
            if (p.name.starts_with(case_name + "__"))
                names_.push_back({0, p.name.substr(case_name.size() + 2), p.value, {}});
        names_.insert(names_.end(), model.parameters.begin(), model.parameters.end());
    }

    std::string error;

    double number(const std::string& text) {
        const CalcResult result = calc(text, names_);
        if (!result.ok() && error.empty()) error = "'" + text + "' has no value (" + result.error + ")";
        return result.value;
    }

    double measure(const VerifyCheck& check) {
        switch (check.measured) {
            case Measured::frequency:
            case Measured::load_factor:
                return mode(check);
            case Measured::formula:
                return number(check.number);
            case Measured::energy:
                return case_of(check).strain_energy;
            case Measured::reaction:
                return reaction(check);
            default:
                return over_frames(check, [&](const Frame& frame) { return in_frame(check, frame); });
        }
    }

private:
    double fail(const std::string& why) {
        if (error.empty()) error = why;
        return 0;
    }
    double mode(const VerifyCheck& check) {
        const double n = number(check.number);
        if (!(n >= 1 && n <= static_cast<double>(run_.results.size())))
            return fail(formatted("there are %zu modes", run_.results.size()));
        return run_.results[static_cast<std::size_t>(n) - 1]->n_freq;
    }
    const CaseReport& case_of(const VerifyCheck& check) {
        static const CaseReport none;
        for (const CaseReport& one : run_.report.cases)
            if (check.case_name.empty() || one.name == check.case_name) return one;
        fail(check.case_name.empty() ? "the run tells no energy" : "no load case " + check.case_name);
        return none;
    }
    double reaction_in(const std::vector<SupportReaction>& supports, const VerifyCheck& check) {
        for (const SupportReaction& s : supports)
            if (s.name == check.set_name) return s.force[std::string("xyz").find(check.component)];
        return fail("no support " + check.set_name);
    }
    double reaction(const VerifyCheck& check) {
        if (check.frames != OverFrames::one && !run_.report.nonlinear.increments.empty()) {
            std::optional<double> best;
            for (const IncrementReport& increment : run_.report.nonlinear.increments)
                best = better(check.frames, best, reaction_in(increment.supports, check));
            return best.value_or(0);
        }
        return run_.report.cases.empty() ? reaction_in(run_.report.supports, check)
                                         : reaction_in(case_of(check).supports, check);
    }
    static double better(OverFrames frames, const std::optional<double>& so_far, double value) {
        if (!so_far) return value;
        return frames == OverFrames::least ? std::min(*so_far, value) : std::max(*so_far, value);
    }
    double over_frames(const VerifyCheck& check, const std::function<double(const Frame&)>& value) {
        if (run_.results.empty()) return fail("the run has no frame");
        std::optional<double> best;
        for (const auto& frame : run_.results) {
            if (!check.case_name.empty() && frame->name != check.case_name) continue;
            if (check.frames != OverFrames::one) {
                best = better(check.frames, best, value(*frame));
                continue;
            }
            if (!check.case_name.empty() || !has_steps(run_.ana_type)) return value(*frame);
        }
        if (best) return *best;
        if (!check.case_name.empty()) return fail("no load case " + check.case_name);
        return value(*run_.results.back());  // of steps the last
    }

    double at_node(const VerifyCheck& check, const Frame& frame, std::int32_t n) const {
        const Vec3 u = triple(frame.mode_vec, n);
        if (check.measured == Measured::displacement)
            return check.component == "magnitude" ? norm(u) : u[std::string("xyz").find(check.component)];
        constexpr std::array<std::string_view, 6> order{"xx", "yy", "zz", "xy", "yz", "zx"};
        const std::size_t dofs = run_.mesh.dof_num();
        if (check.component == "mises") return frame.node_stress[4 * dofs + 3 * n];
        const std::size_t c = std::ranges::find(order, check.component) - order.begin();
        return frame.node_stress[c / 3 * dofs + 3 * n + c % 3];
    }
    const MeshSet* set_of(const VerifyCheck& check) {
        const MeshSet* set = find_set(run_.mesh, check.set_name);
        if (set && !set->nodes.empty()) return set;
        fail("no set " + check.set_name + " with nodes");
        return nullptr;
    }
    double mean_radius(const VerifyCheck& check, const Frame& frame) {
        const MeshSet* set = set_of(check);
        if (!set) return 0;
        const std::size_t axis = std::string("xyz").find(check.component);
        Vec3 point;
        for (std::size_t c = 0; c < 3; ++c) point[c] = number(check.where[c]);
        double sum = 0;
        for (const std::int32_t n : set->nodes) {
            Vec3 arm = minus(plus(place_of(run_.mesh, n), triple(frame.mode_vec, n)), point);
            arm[axis] = 0;
            sum += norm(arm) / static_cast<double>(set->nodes.size());
        }
        return sum;
    }
    double in_frame(const VerifyCheck& check, const Frame& frame) {
        if (check.measured == Measured::radius) return mean_radius(check, frame);
        if (check.place == Place::at) {
            std::array<double, 3> where;
            for (std::size_t c = 0; c < 3; ++c) where[c] = number(check.where[c]);
            return at_node(check, frame, nearest_node(run_.mesh, around_, where));
        }
        const MeshSet* set = set_of(check);
        if (!set) return 0;
        double sum = 0, least = at_node(check, frame, set->nodes[0]), largest = least;
        for (const std::int32_t n : set->nodes) {
            const double value = at_node(check, frame, n);
            sum += value / static_cast<double>(set->nodes.size());
            least = std::min(least, value);
            largest = std::max(largest, value);
        }
        return check.place == Place::set_mean ? sum : check.place == Place::set_min ? least : largest;
    }

    const Run& run_;
    Known names_;
    NodeElements around_;
};

struct Totals {
    int met = 0, missed = 0, shown = 0;
};

bool is_met(const VerifyCheck& check, double got, double a, double b, double tolerance) {
    switch (check.expectation) {
        case Expectation::near:
            return std::abs(got - a) <= (check.relative ? tolerance * std::abs(a) : tolerance);
        case Expectation::below:
            return got < a;
        case Expectation::above:
            return got > a;
        case Expectation::between:
            return got >= a && got <= b;
        case Expectation::shown:
            return true;
    }
    return false;
}

std::string target_text(const VerifyCheck& check, double a, double b) {
    switch (check.expectation) {
        case Expectation::below:
            return formatted("< %.6g", a);
        case Expectation::above:
            return formatted("> %.6g", a);
        case Expectation::between:
            return formatted("%.6g..%.6g", a, b);
        default:
            return formatted("%.6g", a);
    }
}

// One check: its value becomes known to those behind it.
void print_check(const VerifyCase& one, const VerifyCheck& check, const Model& model, const Run& run,
                 Known& known, Totals& totals, Progress& progress) {
    Measurement m(model, run, known, one.name);
    const double got = m.measure(check), a = m.number(check.bounds[0]);
    const double b = check.expectation == Expectation::between ? m.number(check.bounds[1]) : 0;
    const double tolerance = check.tolerance.empty() ? 0 : m.number(check.tolerance);
    known.push_back({0, one.name + "__" + check.name, got, {}});
    if (!m.error.empty()) {
        ++totals.missed;
        progress.summary("%-28s %-16s MISSED: %s\n", one.name.c_str(), check.name.c_str(), m.error.c_str());
        return;
    }
    const bool shown = check.expectation == Expectation::shown, met = is_met(check, got, a, b, tolerance);
    ++(shown ? totals.shown : met ? totals.met : totals.missed);
    const bool compared = check.expectation == Expectation::near || shown;
    const std::string error = compared && a != 0 ? formatted("%+.2f %%", 100 * (got - a) / std::abs(a)) : "";
    progress.summary("%-28s %-16s %20s %14.6g %10s  %s\n", one.name.c_str(), check.name.c_str(),
                     target_text(check, a, b).c_str(), got, error.c_str(),
                     shown ? "shown"
                     : met ? "ok"
                           : "MISSED");
}

void run_case(const VerifyCase& one, const VerifyOptions& options, const Settings& settings, Known& known,
              Totals& totals, Progress& progress) {
    SilentProgress silent(progress);
    Model model = placeholder_model();
    model.model_file_name = one.model_file;
    const ModelReadReport read = read_input_file(model, one.overrides, silent);
    std::string why = read.ok || read.remarks.errors.empty() ? "" : read.remarks.errors.front();
    Run run;
    if (read.ok) {
        read_analysis_info_file(model, silent);
        RunOptions run_options;
        run_options.log_folder = options.log_folder;
        run_options.hexahedra = one.hexahedra;
        run_options.load_case = one.load_case;
        run_options.prestress = one.prestress;
        run = find_analysis(one.analysis)->analyse(model, settings, run_options, silent);
        if (run.report.status != RunStatus::done)
            why =
                run.report.remarks.errors.empty() ? "the run ended early" : run.report.remarks.errors.front();
    }
    if (progress.cancelled()) return;
    if (!read.ok || !why.empty()) {
        totals.missed += static_cast<int>(one.checks.size());
        progress.summary("%-28s %-16s MISSED: %s\n", one.name.c_str(), "", why.c_str());
        return;
    }
    for (const VerifyCheck& check : one.checks) print_check(one, check, model, run, known, totals, progress);
}

}  // namespace

VerifyStatus verify(const VerifyOptions& options, const Settings& settings, Progress& progress) {
    Remarks remarks;
    const std::vector<VerifyCase> cases = read_verify_cases(options.file_name, remarks);
    for (const std::string& error : remarks.errors) progress.error("%s", error.c_str());
    if (!remarks.ok()) return VerifyStatus::bad_input;
    Known known;
    Totals totals;
    int run = 0;
    progress.summary("%-28s %-16s %20s %14s %10s\n", "case", "check", "target", "got", "error");
    for (const VerifyCase& one : cases) {
        if (!one.name.starts_with(options.only)) continue;
        ++run;
        run_case(one, options, settings, known, totals, progress);
        if (progress.cancelled()) {
            progress.error("stopped on request");
            return VerifyStatus::cancelled;
        }
    }
    if (run == 0) {
        progress.error("%s: no case has a name that begins with '%s'", options.file_name.c_str(),
                       options.only.c_str());
        return VerifyStatus::bad_input;
    }
    progress.summary("%d case%s: %d checks met, %d missed, %d shown\n", run, run == 1 ? "" : "s", totals.met,
                     totals.missed, totals.shown);
    return totals.missed == 0 ? VerifyStatus::all_met : VerifyStatus::some_missed;
}

}  // namespace kestralum
