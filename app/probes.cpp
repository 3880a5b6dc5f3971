#include "app/probes.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestralum {

namespace {

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

HistoryColumn value_column(const ToldQuantity& told) {
    return {told.name, told.unit, {}, {}};
}

void add_places(History& history, const ToldQuantity& told) {
    for (const char* axis : {"x", "y", "z"}) history.columns.push_back({axis, told.length, {}, {}});
}

// Into the last three columns.
void add_place(History& history, const Vec3& place, const ToldQuantity& told) {
    const std::size_t first = history.columns.size() - 3;
    for (std::size_t c = 0; c < 3; ++c)
        history.columns[first + c].values.push_back(told.length_factor * place[c]);
}

// The rows of a table with `components` numbers per node; empty where it is.
template <typename Number>
std::vector<Number> rows_of(std::span<const Number> table, std::span<const std::int32_t> nodes,
                            std::size_t components) {
    std::vector<Number> out;
    if (table.empty()) return out;
    for (const std::int32_t n : nodes)
        for (std::size_t c = 0; c < components; ++c) out.push_back(table[components * std::size_t(n) + c]);
    return out;
}

Frame at_nodes(const Frame& frame, std::span<const std::int32_t> nodes) {
    Frame out;
    out.n_freq = frame.n_freq;
    const std::size_t dofs = frame.mode_vec.size();
    const auto doubles = [&](const std::vector<double>& table, std::size_t components) {
        return rows_of(std::span(table), nodes, components);
    };
    out.mode_vec = doubles(frame.mode_vec, 3);
    for (std::size_t group = 0; group < stress_groups; ++group) {
        const auto rows = rows_of(std::span(frame.node_stress).subspan(group * dofs, dofs), nodes, 3);
        out.node_stress.insert(out.node_stress.end(), rows.begin(), rows.end());
    }
    out.error = doubles(frame.error, 1);
    out.reaction = doubles(frame.reaction, 3);
    out.velocity = rows_of(std::span(frame.velocity), nodes, 3);
    out.acceleration = rows_of(std::span(frame.acceleration), nodes, 3);
    return out;
}

}  // namespace

std::int32_t node_at(const Mesh& mesh, const Vec3& place) {
    std::int32_t nearest = -1;
    double least = 1e-9 * mesh.max_length;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const double away = norm(minus(place_of(mesh, n), place));
        if (!(away <= least) || (away == least && nearest >= 0)) continue;
        nearest = n;
        least = away;
    }
    return nearest;
}

std::int32_t element_with(const Mesh& mesh, std::int32_t node) {
    const auto found = std::ranges::find(mesh.connectivity, node + 1);
    return found == mesh.connectivity.end()
               ? -1
               : static_cast<std::int32_t>((found - mesh.connectivity.begin()) / mesh.node_per_element());
}

History along_line(const Mesh& mesh, std::span<const LinePoint> points, std::span<const double> values,
                   const std::function<bool(std::int32_t)>& gone, const ToldQuantity& told) {
    History out;
    out.axis = "Distance";
    out.axis_unit = told.length;
    out.of_frames = false;
    out.columns.push_back(value_column(told));
    add_places(out, told);
    for (const LinePoint& point : points) {
        double value = unknown;
        if (point.where.element >= 0 && !(gone && gone(point.where.element)))
            interpolate(mesh, point.where, values, 1, &value);
        out.x.push_back(told.length_factor * point.distance);
        out.columns[0].values.push_back(told.factor * value);
        add_place(out, point.place, told);
    }
    return out;
}

History along_set(const Mesh& mesh, const MeshSet& set, std::span<const double> values, SetAxis axis,
                  const ToldQuantity& told) {
    History out;
    out.axis = axis == SetAxis::distance ? "Distance from the first node"
                                         : set_axis_names[static_cast<std::size_t>(axis)];
    out.axis_unit = told.length;
    out.of_frames = false;
    out.columns.push_back(value_column(told));
    out.columns.push_back({"node", "", {}, {}});
    add_places(out, told);
    struct Point {
        double at;
        std::int32_t node;
    };
    std::vector<Point> points;
    for (const std::int32_t n : set.nodes) {
        const Vec3 place = place_of(mesh, n);
        const double at = axis == SetAxis::distance ? norm(minus(place, place_of(mesh, set.nodes.front())))
                                                    : place[static_cast<std::size_t>(axis)];
        points.push_back({at, n});
    }
    std::ranges::stable_sort(points, {}, &Point::at);
    for (const auto& [at, n] : points) {
        out.x.push_back(told.length_factor * at);
        out.columns[0].values.push_back(told.factor * values[n]);
        out.columns[1].values.push_back(n + 1);
        add_place(out, place_of(mesh, n), told);
    }
    return out;
}

History over_frames(const Run& run, std::span<const std::int32_t> nodes, const NodeValues& value,
                    const ToldQuantity& told) {
    History out = make_history(run, {});
    out.columns.clear();
    for (std::size_t k = 0; k < nodes.size(); ++k) {
        out.columns.push_back(value_column(told));
        out.columns.back().name = "P" + std::to_string(k + 1) + " " + told.name;
    }
    Mesh mesh;
    mesh.max_length = run.mesh.max_length;
    mesh.coordinates = rows_of(std::span(run.mesh.coordinates), nodes, 3);
    for (const auto& frame : run.results) {
        std::vector<double> values;
        const std::size_t dofs = run.mesh.coordinates.size();
        if (frame->mode_vec.size() == dofs && frame->node_stress.size() == stress_groups * dofs)
            values = value(mesh, at_nodes(*frame, nodes));
        values.resize(nodes.size(), unknown);
        for (std::size_t k = 0; k < nodes.size(); ++k)
            out.columns[k].values.push_back(told.factor * values[k]);
    }
    return out;
}

History split_at_gaps(const History& history) {
    History out = history;
    out.columns.clear();
    const HistoryColumn& whole = history.columns.front();
    bool inside = false;
    for (std::size_t row = 0; row < whole.values.size(); ++row) {
        const bool known = std::isfinite(whole.values[row]);
        if (known && !inside)
            out.columns.push_back(
                {whole.name, whole.unit, std::vector<double>(whole.values.size(), unknown), {}});
        if (known) out.columns.back().values[row] = whole.values[row];
        inside = known;
    }
    return out;
}

}  // namespace kestralum
