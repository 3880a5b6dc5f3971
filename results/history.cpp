#include "results/history.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

#include "results/csv.h"

namespace kestralum {

namespace {

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
constexpr std::array<const char*, 3> axes{"x", "y", "z"};

using Value = std::function<double(const Run&, std::size_t)>;

struct Heading {
    std::string_view column;  // of the history file
    const char *name, *unit;
    double factor = 1;
};
constexpr Heading explicit_headings[] = {{"kinetic", "Kinetic energy", "J"},
                                         {"internal", "Internal energy", "J"},
                                         {"plastic", "Plastic energy, part of the internal", "J"},
                                         {"damping", "Energy lost by damping", "J"},
                                         {"wall", "Work of walls", "J"},
                                         {"contact", "Work of contact", "J"},
                                         {"external", "Work of loads", "J"},
                                         {"support", "Work of supports", "J"},
                                         {"friction", "Energy lost by friction", "J"},
                                         {"eroded", "Energy gone with eroded elements", "J"},
                                         {"eroded_elements", "Eroded elements", ""},
                                         {"viscous", "Energy lost by bulk viscosity", "J"},
                                         {"drift", "Error of the energy balance", "%", 100}};
constexpr Heading nonlinear_headings[] = {{"iterations", "Iterations", ""},
                                          {"E/F", "Unbalanced forces, |E|/|F|", ""},
                                          {"converged", "Converged, 1 or 0", ""},
                                          {"largest_displacement[m]", "Largest displacement", "m"},
                                          {"plastic_volume_share", "Plastic volume", "%", 100},
                                          {"work[J]", "Work of the loads", "J"},
                                          {"negative_pivots", "Negative pivots", ""}};

// The text between two others.
std::optional<std::string> inner(std::string_view text, std::string_view before, std::string_view after) {
    if (text.size() < before.size() + after.size() || !text.starts_with(before) || !text.ends_with(after))
        return std::nullopt;
    return std::string(text.substr(before.size(), text.size() - before.size() - after.size()));
}

struct Vector {
    const char *before, *after, *name, *unit;  // of the column; `name` follows what stands between
    const char* of = "";                       // and stands before it
};
constexpr Vector explicit_vectors[] = {{"momentum", "", "Momentum", "kg m/s"},
                                       {"angular_momentum", "", "Angular momentum", "kg m^2/s"},
                                       {"reaction", "", "Reaction", "N"},
                                       {"wall_", "", " force", "N", "Wall "},
                                       {"contact_", "", " force", "N", "Contact "},
                                       {"support_", "", " force", "N", "Support "},
                                       {"node", "_u", " displacement", "m", "Probe node "},
                                       {"node", "_v", " velocity", "m/s", "Probe node "},
                                       {"node", "_a", " acceleration", "m/s^2", "Probe node "}};

// Name and unit of an explicit run's column that is a direction of a vector.
std::array<std::string, 2> vector_heading(std::string_view column) {
    for (const Vector& vector : explicit_vectors)
        for (const char* axis : axes)
            if (const auto between = inner(column, vector.before, std::string(vector.after) + "_" + axis))
                if (*vector.of ? !between->empty() : between->empty())
                    return {vector.of + *between + vector.name + " " + axis, vector.unit};
    for (const Vector& vector : explicit_vectors)
        if (const auto between = inner(column, vector.before, "_peak"); between && *vector.of)
            return {vector.of + *between + vector.name + ", largest since the row before", vector.unit};
    return {std::string(column), ""};
}

std::array<std::string, 2> probe_heading(std::string_view column) {
    for (const char* axis : axes)
        if (const auto node = inner(column, std::string("u") + axis + "_node", "[m]"))
            return {"Probe node " + *node + " displacement " + axis, "m"};
    return {std::string(column), ""};
}

class Maker {
public:
    explicit Maker(const Run& run) : run_(run) {}

    void add(std::string name, std::string unit, Value value) {
        made.columns.push_back({std::move(name), std::move(unit), {}, std::move(value)});
    }

    // All columns of the rows but the first, which is the axis.
    template <typename Other>
    void add_rows(std::span<const Heading> headings, Other other) {
        const std::vector<std::string>& columns = run_.history.columns;
        for (std::size_t c = 1; c < columns.size(); ++c) {
            const auto known = std::ranges::find(headings, std::string_view(columns[c]), &Heading::column);
            const double factor = known == headings.end() ? 1.0 : known->factor;
            auto value = [c, factor](const Run& run, std::size_t row) {
                return row < run.history.rows()
                           ? factor * run.history.values[row * run.history.columns.size() + c]
                           : unknown;
            };
            if (known != headings.end()) {
                add(known->name, known->unit, value);
            } else {
                const auto [name, unit] = other(columns[c]);
                add(name, unit, value);
            }
        }
    }

    void add_explicit() {
        add_rows(explicit_headings, vector_heading);
        if (run_.history.columns.empty()) return;
        add("Total energy", "J", [](const Run& run, std::size_t row) {
            const auto part = [&](const char* name) { return run.history.value(row, name); };
            // of runs that have it
            const auto more = [&](const char* name) {
                const double value = part(name);
                return std::isnan(value) ? 0.0 : value;
            };
            return ExplicitEnergies{part("kinetic"), part("internal"), part("plastic"),  part("damping"),
                                    part("wall"),    part("contact"),  part("external"), part("support"),
                                    more("viscous"), more("eroded")}
                .total();
        });
        std::rotate(made.columns.begin(), made.columns.end() - 1, made.columns.end());
    }

    void add_nonlinear() {
        add_rows(nonlinear_headings, probe_heading);
        const std::vector<IncrementReport>& increments = run_.report.nonlinear.increments;
        if (increments.empty()) return;
        add_vector("Reaction", "N", [](const Run& run, std::size_t row, std::size_t axis) {
            double sum = 0;
            if (row >= run.report.nonlinear.increments.size()) return unknown;
            for (const SupportReaction& s : run.report.nonlinear.increments[row].supports)
                sum += s.force[axis];
            return sum;
        });
        const auto add_supports = [&](const char* what, const char* unit,
                                      std::array<double, 3> SupportReaction::*part) {
            for (std::size_t k = 0; k < increments.front().supports.size(); ++k)
                add_vector("Support " + increments.front().supports[k].name + what, unit,
                           [k, part](const Run& run, std::size_t row, std::size_t axis) {
                               const auto& all = run.report.nonlinear.increments;
                               return row < all.size() && k < all[row].supports.size()
                                          ? (all[row].supports[k].*part)[axis]
                                          : unknown;
                           });
        };
        add_supports(" force", "N", &SupportReaction::force);
        add_supports(" moment", "N m", &SupportReaction::moment);
    }

    void add_static() {
        if (run_.report.cases.empty()) return;
        using Case = const CaseReport&;
        add_case("Largest displacement", "m", [](Case c) { return c.largest_displacement.value; });
        add_case("Largest Mises stress", "Pa", [](Case c) { return c.largest_mises.value; });
        add_case("Strain energy", "J", [](Case c) { return c.strain_energy; });
        add_case("Estimated error of the stress", "%",
                 [](Case c) { return c.error < 0 ? unknown : 100 * c.error; });
        for (std::size_t k = 0; k < 3; ++k)
            add_case(std::string("Applied force ") + axes[k], "N", [k](Case c) { return c.applied[k]; });
        for (std::size_t k = 0; k < 3; ++k)
            add_case(std::string("Reaction ") + axes[k], "N", [k](Case c) { return c.reaction[k]; });
    }

    void add_node(std::int32_t node) {
        if (node < 1 || node > run_.mesh.node_num()) return;
        const std::string of = "Node " + std::to_string(node);
        const std::size_t at = 3 * (std::size_t(node) - 1);
        add_vector(of + " displacement", "m", [at](const Run& run, std::size_t row, std::size_t axis) {
            return run.results[row]->mode_vec[at + axis];
        });
        add(of + " displacement, size", "m", [at](const Run& run, std::size_t row) {
            const double* u = run.results[row]->mode_vec.data() + at;
            return std::hypot(u[0], u[1], u[2]);
        });
        add(of + " Mises stress", "Pa", [at](const Run& run, std::size_t row) {
            return run.results[row]->node_stress[std::size_t(stress_groups - 1) * run.mesh.dof_num() + at];
        });
    }

    History made;

private:
    template <typename Get>
    void add_vector(const std::string& name, const char* unit, Get get) {
        for (std::size_t k = 0; k < 3; ++k)
            add(name + " " + axes[k], unit,
                [get, k](const Run& run, std::size_t row) { return get(run, row, k); });
    }
    template <typename Get>
    void add_case(const std::string& name, const char* unit, Get get) {
        add(name, unit, [get](const Run& run, std::size_t row) {
            return row < run.report.cases.size() ? get(run.report.cases[row]) : unknown;
        });
    }

    const Run& run_;
};

void append_number(std::string& text, double value) {
    std::array<char, 32> digits;
    if (!std::isfinite(value)) return;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text.append(digits.data(), end);
}

}  // namespace

std::string with_unit(const std::string& name, const std::string& unit) {
    return unit.empty() ? name : name + " [" + unit + "]";
}

History make_history(const Run& run, std::span<const std::int32_t> nodes) {
    Maker maker(run);
    switch (run.ana_type) {
        case AnalysisType::explicit_dynamics:
            maker.made.axis = "Time";
            maker.made.axis_unit = "s";
            maker.add_explicit();
            break;
        case AnalysisType::nonlinear_static:
            maker.made.axis = "Load factor";
            maker.add_nonlinear();
            break;
        case AnalysisType::linear_static:
            maker.made.axis = "Load case";
            maker.add_static();
            break;
        default:
            maker.made.axis = "Mode";
            const bool eigen = run.ana_type == AnalysisType::eigen;
            maker.add(eigen ? "Frequency" : "Buckling load factor", eigen ? "Hz" : "",
                      [](const Run& of, std::size_t row) { return of.results[row]->n_freq; });
    }
    maker.made.numbered = !has_steps(run.ana_type);
    if (!has_shapes(run.ana_type))
        for (const std::int32_t node : nodes) maker.add_node(node);
    extend(maker.made, run);
    return std::move(maker.made);
}

void extend(History& history, const Run& run) {
    for (std::size_t row = history.x.size(); row < run.results.size(); ++row) {
        const double x = has_steps(run.ana_type) ? run.results[row]->n_freq : static_cast<double>(row) + 1;
        if (!history.x.empty() && x < history.x.back()) history.ordered = false;
        history.x.push_back(x);
        for (HistoryColumn& column : history.columns) column.values.push_back(column.value(run, row));
    }
}

std::string csv_text(const History& history, std::span<const std::size_t> columns) {
    std::string text = with_unit(history.axis, history.axis_unit);
    for (const std::size_t c : columns)
        text += ',' + csv_field(with_unit(history.columns[c].name, history.columns[c].unit));
    text += '\n';
    for (std::size_t row = 0; row < history.x.size(); ++row) {
        append_number(text, history.x[row]);
        for (const std::size_t c : columns) {
            text += ',';
            append_number(text, history.columns[c].values[row]);
        }
        text += '\n';
    }
    return text;
}

std::vector<CurvePoint> thinned(std::span<const double> x, std::span<const double> y, double from, double to,
                                int width) {
    const auto at = [&](auto found) { return static_cast<std::size_t>(found - x.begin()); };
    std::size_t first = at(std::lower_bound(x.begin(), x.end(), from)),
                end = at(std::upper_bound(x.begin(), x.end(), to));
    if (first > 0) --first;
    if (end < x.size()) ++end;
    const double scale = to > from ? width / (to - from) : 0;
    std::vector<CurvePoint> out;
    for (std::size_t k = first; k < end;) {
        const double column = std::floor((x[k] - from) * scale);
        std::optional<std::size_t> begin, low, high, last;
        for (; k < end && std::floor((x[k] - from) * scale) == column; ++k) {
            if (!std::isfinite(y[k])) continue;
            if (!begin) begin = low = high = k;
            if (y[k] < y[*low]) low = k;
            if (y[k] > y[*high]) high = k;
            last = k;
        }
        if (!begin) continue;
        std::array<std::size_t, 4> kept{*begin, *low, *high, *last};
        std::ranges::sort(kept);
        const auto kept_end = std::unique(kept.begin(), kept.end());
        for (auto p = kept.begin(); p != kept_end; ++p) out.push_back({x[*p], y[*p]});
    }
    return out;
}

}  // namespace kestralum
