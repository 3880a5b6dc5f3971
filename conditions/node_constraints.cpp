#include "conditions/node_constraints.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr double same_direction = 1e-6;  // size of what is left of a unit vector

// The directions of one node made orthonormal one after the other, with what each is held at.
struct NodeAxes {
    struct Axis {
        Vec3 direction{};
        std::int32_t record = 0;
        std::vector<HeldDof::Part> parts;
    };
    std::vector<Axis> axes;
    bool along_xyz = true;

    // What is left of a new direction; its parts less those of the axes that it leans on.
    Axis rest_of(const HeldDirection& held, bool moves) const {
        Axis rest{held.direction, held.record, {}};
        if (moves) rest.parts.push_back({1, held.record, held.axis});
        for (const Axis& axis : axes) {
            const double share = dot(held.direction, axis.direction);
            rest.direction = minus(rest.direction, times(share, axis.direction));
            for (const HeldDof::Part& part : axis.parts)
                if (share != 0) rest.parts.push_back({-share * part.factor, part.record, part.axis});
        }
        return rest;
    }
};

bool moves(const BoundaryCondition& record, std::int32_t axis) {
    return axis >= 0 && record.options.displacement[axis].given();
}

double value_of(const HeldDof::Part& part, std::span<const BoundaryCondition> records, const double* x,
                double time) {
    return part.factor * records[part.record].options.displacement[part.axis].at(x, time);
}

class Finder {
public:
    Finder(std::span<const BoundaryCondition> records, const Mesh& mesh, const RigidSystem& rigid,
           NodeConstraints& out)
        : records_(records),
          mesh_(mesh),
          rigid_(rigid),
          out_(out),
          whole_(mesh.node_num(), 0),
          dropped_(mesh.node_num(), 0) {}

    void take_whole(std::span<const std::int32_t> nodes) {
        for (const std::int32_t n : nodes) whole_[n] = 1;
    }

    // All directions of one node.
    void hold(std::span<const HeldDirection> directions) {
        const std::int32_t n = directions[0].node;
        if (!rigid_.empty() && rigid_.body_of_node[n] >= 0) return check_member(directions);
        NodeAxes node;
        for (const HeldDirection& held : directions) add(held, node);
        if (whole_[n] || node.axes.empty()) return;
        if (!node.along_xyz) out_.map.set_axes(n, mesh_.node_num(), completed(node));
        for (std::size_t k = 0; k < node.axes.size(); ++k) {
            std::int32_t place = static_cast<std::int32_t>(k);
            for (std::int32_t c = 0; c < 3 && node.along_xyz; ++c)
                if (node.axes[k].direction[c] == 1) place = c;
            out_.held.push_back({3 * n + place, node.axes[k].record, std::move(node.axes[k].parts)});
        }
        std::ranges::sort(out_.held.end() - static_cast<std::ptrdiff_t>(node.axes.size()), out_.held.end(),
                          {}, &HeldDof::dof);
    }

    void tie(TiedNodes& ties, std::span<const TieRecord> records) {
        out_.error = ties.error;
        out_.notices.insert(out_.notices.end(), ties.notices.begin(), ties.notices.end());
        std::vector<std::size_t> kept(records.size(), 0);
        for (TiedNode& tied : ties.tied)
            if (!tie_node(tied, records)) ++kept[tied.record];
        std::erase_if(out_.held, [this](const HeldDof& h) { return dropped_[h.dof / 3] != 0; });
        for (std::size_t t = 0; t < records.size(); ++t)
            if (kept[t] > 0)
                out_.notices.push_back(formatted(
                    "tie %s: %zu nodes are held by supports that do not hold the faces they lie on, and "
                    "are not tied",
                    records[t].name.c_str(), kept[t]));
    }

private:
    void check_member(std::span<const HeldDirection> directions) {
        for (const HeldDirection& held : directions)
            if (moves(records_[held.record], held.axis))
                return fail(held, "has a displacement for a node of rigid element number " +
                                      std::to_string(rigid_.body_of_node[held.node] + 1) +
                                      ": move the body through a force, or leave its nodes out");
    }
    void fail(const HeldDirection& held, const std::string& what) {
        const double* x = mesh_.node(held.node);
        if (out_.error.empty())
            out_.error = formatted("support %s: at (%.6g, %.6g, %.6g) it ",
                                   records_[held.record].name.c_str(), x[0], x[1], x[2]) +
                         what;
    }
    void add(const HeldDirection& held, NodeAxes& node) {
        const bool moved = moves(records_[held.record], held.axis);
        if (moved && out_.error.empty())
            out_.error =
                wrong_value("support " + records_[held.record].name,
                            records_[held.record].options.displacement[held.axis], mesh_.node(held.node), 1);
        if (whole_[held.node]) {
            if (moved) fail(held, "has a displacement where another support holds the node");
            return;
        }
        NodeAxes::Axis rest = node.rest_of(held, moved);
        const double left = norm(rest.direction);
        if (left > same_direction) {
            if (held.axis < 0) node.along_xyz = node.along_xyz && is_axis(held.direction);
            rest.direction = left == 1 ? rest.direction : times(1 / left, rest.direction);
            for (HeldDof::Part& part : rest.parts) part.factor /= left;
            node.axes.push_back(std::move(rest));
            return;
        }
        // held already: what another load case moves adds up, what differs in one case cannot be
        const std::string& own = records_[held.record].options.case_name;
        double sum = 0, size = 0;
        for (const HeldDof::Part& part : rest.parts) {
            if (records_[part.record].options.case_name != own) continue;
            const double value = value_of(part, records_, mesh_.node(held.node), 1);
            sum += value;
            size += std::abs(value);
        }
        if (std::abs(sum) > 1e-9 * size) fail(held, "wants another displacement than an earlier support");
        const bool new_case = std::ranges::none_of(rest.parts, [&](const HeldDof::Part& part) {
            return part.record != held.record && records_[part.record].options.case_name == own;
        });
        if (moved && new_case)
            for (NodeAxes::Axis& axis : node.axes)
                if (const double share = dot(held.direction, axis.direction); share != 0)
                    axis.parts.push_back({share, held.record, held.axis});
    }
    static bool is_axis(const Vec3& v) {
        return std::ranges::count(v, 0.0) == 2 && std::ranges::count(v, 1.0) == 1;
    }
    static Mat3 completed(const NodeAxes& node) {
        Vec3 a = node.axes[0].direction;
        Vec3 b = node.axes.size() > 1 ? node.axes[1].direction : across(a);
        Vec3 c = node.axes.size() > 2 ? node.axes[2].direction : cross(a, b);
        return {a[0], a[1], a[2], b[0], b[1], b[2], c[0], c[1], c[2]};
    }
    // Held directions of a node as they stand in out_.held and the map.
    std::vector<Vec3> held_axes(std::int32_t n) const {
        if (whole_[n]) return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        std::vector<Vec3> axes;
        const auto first = std::ranges::lower_bound(out_.held, 3 * n, {}, &HeldDof::dof);
        for (auto at = first; at != out_.held.end() && at->dof < 3 * n + 3; ++at)
            axes.push_back(out_.map.axis(at->dof));
        return axes;
    }

    // False where the node keeps its supports instead.
    bool tie_node(TiedNode& tied, std::span<const TieRecord> records) {
        const std::int32_t n = tied.node;
        if (!rigid_.empty() && rigid_.body_of_node[n] >= 0) {
            if (out_.error.empty())
                out_.error = "tie " + records[tied.record].name + ": its slave set " +
                             records[tied.record].slave_set + " has nodes of a rigid element";
            return false;
        }
        for (const Vec3& held : held_axes(n))
            for (const auto& [master, weight] : tied.weights)
                if (!spans(held_axes(master), held)) return false;
        if (whole_[n]) return false;
        dropped_[n] = 1;
        out_.map.tie(n, mesh_.node_num(), std::move(tied.weights));
        return true;
    }
    static bool spans(const std::vector<Vec3>& axes, const Vec3& v) {
        Vec3 rest = v;
        for (const Vec3& axis : axes) rest = minus(rest, times(dot(v, axis), axis));
        return norm(rest) < same_direction;
    }

    std::span<const BoundaryCondition> records_;
    const Mesh& mesh_;
    const RigidSystem& rigid_;
    NodeConstraints& out_;
    std::vector<char> whole_,
        dropped_;  // per node: held by a support without options; tied with its supports
};

}  // namespace

double NodeConstraints::displacement(const HeldDof& of, std::span<const BoundaryCondition> records,
                                     const Mesh& mesh, double time, const std::string& load_case) const {
    double sum = 0;
    for (const HeldDof::Part& part : of.parts)
        if (acts_in_case(records[part.record].options.case_name, load_case))
            sum += value_of(part, records, mesh.node(of.dof / 3), time);
    return sum;
}

NodeConstraints find_node_constraints(std::span<const BoundaryCondition> records,
                                      std::span<const TieRecord> ties, const Mesh& mesh,
                                      std::span<const std::int32_t> whole,
                                      std::span<const HeldDirection> directions, const RigidSystem& rigid,
                                      const Progress& progress) {
    NodeConstraints out;
    if (directions.empty() && ties.empty()) return out;
    Finder finder(records, mesh, rigid, out);
    finder.take_whole(whole);
    for (std::size_t first = 0, last = 0; first < directions.size(); first = last) {
        while (last < directions.size() && directions[last].node == directions[first].node) ++last;
        finder.hold(directions.subspan(first, last - first));
    }
    if (!ties.empty() && out.error.empty()) {
        TiedNodes tied = find_tied_nodes(ties, mesh, progress);
        finder.tie(tied, ties);
    }
    const std::int32_t circle = out.map.close();
    if (circle >= 0 && out.error.empty()) {
        const double* x = mesh.node(circle);
        out.error = formatted("the ties run in a circle: the node at (%.6g, %.6g, %.6g) follows itself", x[0],
                              x[1], x[2]);
    }
    return out;
}

}  // namespace kestralum
