#include "app/sweep_table.h"

#include <algorithm>
#include <array>
#include <functional>

#include "elements/element_type.h"
#include "model/format.h"
#include "model/paths.h"
#include "results/csv.h"

namespace kestralum {

namespace {

using Quantity = std::optional<double>;
using Quantities = std::vector<Quantity>;

constexpr int shown_modes = 6, shown_factors = 3;

Quantity above_zero(double value) {
    return value > 0 ? Quantity(value) : std::nullopt;
}

void add_node_value(const NodeValue& value, Quantities& out) {
    const bool known = value.node > 0;
    out.push_back(known ? Quantity(value.value) : std::nullopt);
    out.push_back(known ? Quantity(value.node) : std::nullopt);
}

const NodeValue& larger(const NodeValue& a, const NodeValue& b) {
    return b.node > 0 && b.value > a.value ? b : a;
}

// kg. Analyses that need no mass do not tell it.
double mass_of(const Model& model, const Run& run) {
    if (run.report.total_mass > 0) return run.report.total_mass;
    const Mesh& mesh = model.mesh;
    const ElementType& type = element_type(mesh.element_type);
    ElementPoints points;
    double mass = 0;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        evaluate_points(type, mesh, e, points);
        const Part& part = model.parts[mesh.p_ele_part_id[e]];
        mass += element_volume(type, points) * model.materials[part.material_id].density;
    }
    return mass;
}

// Extremes, error and energy; of the load cases the largest.
void add_extremes(const RunReport& report, double mass, Quantities& out) {
    NodeValue displacement = report.largest_displacement, mises = report.largest_mises;
    Quantity error, energy;
    for (const CaseReport& one : report.cases) {
        displacement = larger(displacement, one.largest_displacement);
        mises = larger(mises, one.largest_mises);
        if (one.error >= 0) error = std::max(error.value_or(0), 100 * one.error);
        energy = std::max(energy.value_or(one.strain_energy), one.strain_energy);
    }
    add_node_value(displacement, out);
    add_node_value(mises, out);
    out.push_back(error);
    out.push_back(above_zero(mass));
    out.push_back(energy);
}

void add_modes(const RunReport& report, Quantities& out) {
    Quantities elastic;
    for (const ModeReport& mode : report.modes)
        if (!mode.zero) elastic.push_back(mode.frequency);
    elastic.resize(shown_modes);
    out.insert(out.end(), elastic.begin(), elastic.end());
    Quantities factors;
    for (const LoadFactorReport& one : report.buckling.factors) factors.push_back(one.factor);
    factors.resize(shown_factors);
    out.insert(out.end(), factors.begin(), factors.end());
}

void add_increments(const NonlinearReport& report, Quantities& out) {
    Quantity factor, displacement;
    for (const IncrementReport& increment : report.increments) {
        if (increment.converged) factor = increment.factor;
        displacement = increment.largest_displacement;
    }
    out.push_back(factor);
    out.push_back(displacement);
}

void add_dynamics(const ExplicitReport& report, Quantities& out) {
    const ExplicitEnergies& e = report.energies;
    const std::array values{report.time, e.kinetic,  e.internal,  e.plastic,
                            e.damping,   e.external, report.drift};
    for (const double value : values) out.push_back(report.time_num > 0 ? Quantity(value) : std::nullopt);
}

std::string cell_text(const SweepColumn& column, const Quantity& value) {
    return value ? formatted(column.format, *value) : "-";
}

// Characters, not bytes.
std::size_t width_of(const std::string& text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

std::string SweepColumn::heading() const {
    return *unit ? formatted("%s [%s]", title, unit) : title;
}

std::span<const SweepColumn> sweep_columns() {
    static constexpr const char *whole = "%.0f", *real = "%.6e", *short_real = "%.6g";
    static constexpr SweepColumn columns[] = {
        {"nodes", "", false, whole},
        {"equations", "", false, whole},
        {"largest displacement", "m", true, real},
        {"displacement at node", "", false, whole},
        {"largest Mises stress", "Pa", true, real},
        {"stress at node", "", false, whole},
        {"estimated error", "%", true, "%.2g"},
        {"total mass", "kg", false, real},
        {"strain energy", "J", false, real},
        {"frequency 1", "Hz", true, "%.6f"},
        {"frequency 2", "Hz", true, "%.6f"},
        {"frequency 3", "Hz", true, "%.6f"},
        {"frequency 4", "Hz", false, "%.6f"},
        {"frequency 5", "Hz", false, "%.6f"},
        {"frequency 6", "Hz", false, "%.6f"},
        {"load factor 1", "", true, "%.8g"},
        {"load factor 2", "", true, "%.8g"},
        {"load factor 3", "", true, "%.8g"},
        {"converged load factor", "", true, short_real},
        {"last displacement", "m", true, real},
        {"end time", "s", true, real},
        {"kinetic energy", "J", true, real},
        {"internal energy", "J", true, real},
        {"plastic energy", "J", false, real},
        {"damped energy", "J", false, real},
        {"work of loads", "J", false, real},
        {"energy drift", "", true, "%.3e"},
        {"seconds", "s", false, "%.3f"},
    };
    return columns;
}

Quantities sweep_quantities(const Model& model, const Run& run, double seconds) {
    const RunReport& report = run.report;
    Quantities out;
    out.push_back(run.mesh.node_num());
    out.push_back(above_zero(static_cast<double>(report.free_dofs)));
    add_extremes(report, mass_of(model, run), out);
    add_modes(report, out);
    add_increments(report.nonlinear, out);
    add_dynamics(report.dynamics, out);
    out.push_back(seconds);
    return out;
}

std::vector<std::size_t> used_columns(std::span<const SweepRow> rows) {
    std::vector<std::size_t> used;
    for (std::size_t c = 0; c < sweep_columns().size(); ++c)
        if (std::ranges::any_of(rows, [&](const SweepRow& row) { return row.quantities[c].has_value(); }))
            used.push_back(c);
    return used;
}

const char* word_of(RunStatus status) {
    switch (status) {
        case RunStatus::done:
            return "done";
        case RunStatus::bad_input:
            return "wrong input";
        case RunStatus::disk_budget:
            return "disk budget";
        case RunStatus::cancelled:
            return "stopped";
        case RunStatus::failed:
            break;
    }
    return "failed";
}

std::string sweep_line(const SweepPlan& plan, const SweepRow& row) {
    std::string text = formatted("%zu/%zu  ", row.index + 1, plan.runs()) + plan.text(row.index) + ":";
    if (row.status != RunStatus::done) return text + " " + word_of(row.status) + ": " + row.error;
    bool first = true;
    for (std::size_t c = 0; c < sweep_columns().size(); ++c) {
        const SweepColumn& column = sweep_columns()[c];
        if (!column.headline || !row.quantities[c]) continue;
        text += formatted("%s %s ", first ? "" : ",", column.title) + cell_text(column, row.quantities[c]);
        if (*column.unit) text += std::string(" ") + column.unit;
        first = false;
    }
    return text;
}

std::string sweep_table(std::span<const std::string> names, std::span<const SweepRow> rows) {
    const std::vector<std::size_t> used = used_columns(rows);
    std::vector<std::vector<std::string>> lines(1);
    for (const std::string& name : names) lines[0].push_back(name);
    for (const std::size_t c : used) lines[0].push_back(sweep_columns()[c].heading());
    lines[0].push_back("status");
    for (const SweepRow& row : rows) {
        std::vector<std::string>& line = lines.emplace_back();
        for (const double value : row.parameters) line.push_back(sweep_number(value));
        for (const std::size_t c : used) line.push_back(cell_text(sweep_columns()[c], row.quantities[c]));
        line.push_back(word_of(row.status) + (row.error.empty() ? std::string() : ": " + row.error));
    }
    std::string text;
    for (const auto& line : lines) {
        for (std::size_t k = 0; k + 1 < line.size(); ++k) {
            std::size_t width = 0;
            for (const auto& other : lines) width = std::max(width, width_of(other[k]));
            text += std::string(width - width_of(line[k]), ' ') + line[k] + "  ";
        }
        text += line.back() + "\n";
    }
    return text;
}

std::string sweep_csv(std::span<const std::string> names, std::span<const SweepRow> rows) {
    const std::vector<std::size_t> used = used_columns(rows);
    std::string text;
    for (const std::string& name : names) text += csv_field(name) + ",";
    text += "status,reason";
    for (const std::size_t c : used) text += "," + csv_field(sweep_columns()[c].heading());
    text += "\n";
    for (const SweepRow& row : rows) {
        for (const double value : row.parameters) text += sweep_number(value) + ",";
        text += std::string(word_of(row.status)) + "," + csv_field(row.error);
        for (const std::size_t c : used)
            text += "," + (row.quantities[c] ? sweep_number(*row.quantities[c]) : std::string());
        text += "\n";
    }
    return text;
}

std::vector<std::string> axis_names(std::span<const SweepAxis> axes) {
    std::vector<std::string> names;
    for (const SweepAxis& axis : axes) names.push_back(axis.name);
    return names;
}

std::string sweep_file_name(std::string_view model_file_name) {
    const std::string base = paths::base_name(model_file_name);
    return "log\\sweep_" + base.substr(0, base.rfind('.')) + ".csv";
}

}  // namespace kestralum
