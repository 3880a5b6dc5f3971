#include "app/verify_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>

#include "analysis/analysis_table.h"
#include "input/analysis_info_reader.h"
#include "input/calculator.h"
#include "input/input_remarks.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/selection.h"
#include "model/topology.h"

namespace kestralum {

namespace {

// Of earlier checks, by CASE__CHECK.
using Known = VerifyRunner::Known;

class Measurement {
public:
    // Expressions have values of checks as CHECK in the same case and as CASE__CHECK from any.
    Measurement(const Model& model, const Run& run, const NodeElements& around, const Known& known,
                const std::string& case_name)
        : run_(run), names_(known.values), errors_(known.errors), case_name_(case_name), around_(around) {
        for (const Parameter& p : known.values)
            if (p.name.starts_with(case_name + "__"))
                names_.push_back({0, p.name.substr(case_name.size() + 2), p.value, {}});
        names_.insert(names_.end(), model.parameters.begin(), model.parameters.end());
    }

    std::string error;

    double number(const std::string& text) {
        const CalcResult result = calc(text, names_);
        if (!result.ok()) return fail("'" + shown_text(text) + "' has no value (" + result.error + ")");
        // by an infinite target any value would be near enough
        return std::isfinite(result.value) ? result.value
                                           : fail("'" + shown_text(text) + "' is not a finite number");
    }

    double measure(const VerifyCheck& check) {
        switch (check.measured) {
            case Measured::frequency:
            case Measured::load_factor:
                return mode(check);
            case Measured::formula:
                return number(check.number);
            case Measured::error_ratio:
                return error_of(case_name_ + "__" + check.component) / error_of(check.number);
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
    // Of an earlier check that has one.
    double error_of(const std::string& name) {
        const auto at = std::ranges::find(errors_, name, &Parameter::name);
        return at == errors_.end() ? fail("no check '" + shown_text(name) + "' with an error")
                                   : std::abs(at->value);
    }
    double mode(const VerifyCheck& check) {
        const bool factor = check.measured == Measured::load_factor;
        if (run_.ana_type != (factor ? AnalysisType::buckling : AnalysisType::eigen))
            return fail(factor ? "the analysis has no load factors" : "the analysis has no frequencies");
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
        return fail("no support " + shown_text(check.set_name));
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
        if (!check.case_name.empty()) return fail("no load case " + shown_text(check.case_name));
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
        fail("no set " + shown_text(check.set_name) + " with nodes");
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
    std::vector<Parameter> names_;
    const std::vector<Parameter>& errors_;
    const std::string& case_name_;
    const NodeElements& around_;
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

// One check: its value becomes known to those behind it.
CheckOutcome judge(const VerifyCase& one, const VerifyCheck& check, const Model& model, const Run& run,
                   const NodeElements& around, Known& known) {
    Measurement m(model, run, around, known, one.name);
    CheckOutcome out;
    out.check = &check;
    out.got = m.measure(check);
    out.target = m.number(check.bounds[0]);
    if (check.expectation == Expectation::between) out.upper = m.number(check.bounds[1]);
    if (!check.tolerance.empty()) out.tolerance = m.number(check.tolerance);
    known.values.push_back({0, one.name + "__" + check.name, out.got, {}});
    if (std::isfinite(out.error()))
        known.errors.push_back({0, one.name + "__" + check.name, out.error(), {}});
    out.fault = m.error;
    if (out.fault.empty() && !std::isfinite(out.got)) out.fault = "the value is not a finite number";
    if (!out.fault.empty()) return out;
    if (check.is_shown || check.expectation == Expectation::shown)
        out.verdict = one.weak.empty() ? Verdict::shown : Verdict::weak;
    else if (is_met(check, out.got, out.target, out.upper, out.tolerance))
        out.verdict = Verdict::met;
    return out;
}

std::string first_error(const Remarks& remarks, const char* otherwise) {
    return remarks.errors.empty() ? otherwise : remarks.errors.front();
}

}  // namespace

std::string elements_of(const Model& model, const Run& run) {
    switch (run.mesh.element_type) {
        case ElementKind::tetrahedron4:
            return "4-node tetrahedra";
        case ElementKind::tetrahedron10:
            return "10-node tetrahedra";
        default:
            return std::string(word_of(hexahedron_form(model, run.origin.options))) + " hexahedra";
    }
}

double CheckOutcome::error() const {
    const bool compared = check->expectation == Expectation::near || check->expectation == Expectation::shown;
    return compared && target != 0 ? (got - target) / std::abs(target)
                                   : std::numeric_limits<double>::quiet_NaN();
}

std::string target_text(const CheckOutcome& outcome) {
    switch (outcome.check->expectation) {
        case Expectation::below:
            return formatted("< %.6g", outcome.target);
        case Expectation::above:
            return formatted("> %.6g", outcome.target);
        case Expectation::between:
            return formatted("%.6g..%.6g", outcome.target, outcome.upper);
        default:
            return formatted("%.6g", outcome.target);
    }
}

std::string error_text(const CheckOutcome& outcome) {
    const double error = outcome.error();
    return std::isnan(error) ? std::string() : formatted("%+.2f %%", 100 * error);
}

std::string tolerance_text(const CheckOutcome& outcome) {
    if (outcome.check->expectation != Expectation::near || outcome.check->is_shown) return {};
    return outcome.check->relative ? formatted("%.3g %%", 100 * outcome.tolerance)
                                   : formatted("%.3g abs", outcome.tolerance);
}

const char* word_of(Verdict verdict) {
    constexpr std::array<const char*, 4> words{"ok", "MISSED", "shown", "weak"};
    return words[static_cast<std::size_t>(verdict)];
}

CaseOutcome VerifyRunner::run(const VerifyCase& one, Progress& progress) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    CaseOutcome out;
    out.is = &one;
    SilentProgress silent(progress);
    Model model = placeholder_model();
    model.model_file_name = one.model_file;
    const ModelReadReport read = read_input_file(model, one.overrides, silent);
    out.notes = read.remarks.notices;
    if (!read.ok) {
        out.fault = first_error(read.remarks, "the model cannot be read");
        return out;
    }
    const AnalysisInfoReport control = read_analysis_info_file(model, silent);
    out.notes.insert(out.notes.end(), control.remarks.notices.begin(), control.remarks.notices.end());
    if (control.status == AnalysisInfoStatus::wrong) {
        out.fault = first_error(control.remarks, "the control file cannot be read");
        return out;
    }
    RunOptions options;
    options.log_folder = log_folder_;
    options.hexahedra = one.hexahedra;
    options.load_case = one.load_case;
    options.prestress = one.prestress;
    const Run run = find_analysis(one.analysis)->analyse(model, settings_, options, silent);
    out.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    if (run.report.status != RunStatus::done)
        out.fault = first_error(run.report.remarks, "the run ended early");
    if (progress.cancelled() || !out.fault.empty()) return out;
    out.elements = elements_of(model, run);
    out.element_num = run.mesh.element_num();
    out.dof_num = run.mesh.dof_num();
    const NodeElements around = elements_of_nodes(run.mesh);
    for (const VerifyCheck& check : one.checks)
        out.checks.push_back(judge(one, check, model, run, around, known_));
    return out;
}

}  // namespace kestralum
