#include "view/rigid_symbols.h"

#include <algorithm>
#include <numbers>
#include <utility>

#include "model/format.h"

namespace kestralum::view {

namespace {

constexpr Color violet{0.5f, 0, 0.5f, 1}, faint_violet{0.5f, 0, 0.5f, 0.45f}, spring_color{0, 0.4f, 0.3f, 1};

// How nodes that move as one displace any point x: u = u0 + Σ ((x - p0)·e_k) d_k, with unit vectors e_k fixed
// to the nodes and their changes d_k. Affine, so that it holds for a multiple of a finite rotation as well.
struct Carried {
    Vec3 p0{}, u0{};
    std::array<Vec3, 3> e{}, d{};

    Vec3 displacement(const Vec3& x) const {
        Vec3 u = u0;
        for (std::size_t k = 0; k < 3; ++k) u = plus(u, times(dot(minus(x, p0), e[k]), d[k]));
        return u;
    }
};

Carried carried_by(const Mesh& mesh, std::span<const std::int32_t> nodes, const RigidShape& shape) {
    constexpr double tolerance = 1e-7;  // of the nodes' extent
    Carried out;
    if (nodes.empty() || !shape.deforms()) return out;
    auto place = [&](std::int32_t n) { return triple(mesh.coordinates, n); };
    auto moved = [&](std::int32_t n) { return minus(triple(shape.vector, n), out.u0); };
    out.p0 = place(nodes[0]);
    out.u0 = triple(shape.vector, nodes[0]);
    // the node farthest from the first, and the one farthest from their line
    std::int32_t end = nodes[0], side = nodes[0];
    double length = 0, height = 0;
    for (const std::int32_t n : nodes)
        if (const double away = norm(minus(place(n), out.p0)); away > length) length = away, end = n;
    if (!(length > 0)) return out;
    out.e[0] = times(1 / length, minus(place(end), out.p0));
    out.d[0] = times(1 / length, moved(end));
    for (const std::int32_t n : nodes)
        if (const double away = norm(cross(minus(place(n), out.p0), out.e[0])); away > height)
            height = away, side = n;
    if (height > tolerance * length) {
        const Vec3 r = minus(place(side), out.p0);
        const double along = dot(r, out.e[0]);
        out.e[1] = times(1 / height, minus(r, times(along, out.e[0])));
        out.d[1] = times(1 / height, minus(moved(side), times(along, out.d[0])));
    } else {
        out.e[1] = across(out.e[0]);
        out.d[1] = times(-dot(out.d[0], out.e[1]), out.e[0]);
    }
    out.e[2] = cross(out.e[0], out.e[1]);
    out.d[2] = plus(cross(out.d[0], out.e[1]), cross(out.e[0], out.d[1]));
    if (shape.finite) out.d[2] = plus(out.d[2], cross(out.d[0], out.d[1]));
    return out;
}

void add_region(std::vector<Line>& lines, const RigidElement& element) {
    const auto& r = element.region;
    if (element.kind == RigidSelection::area) {
        add_box(lines, {r[0], r[2], r[4]}, {r[1], r[3], r[5]}, violet);
        return;
    }
    const int axis = r[4] >= 0 && r[4] < 3 ? static_cast<int>(r[4]) : 2;
    Vec3 u{}, v{}, half{};
    u[(axis + 1) % 3] = v[(axis + 2) % 3] = r[3];
    half[axis] = r[5];
    for (const double side : {-1.0, 1.0})
        add_circle(lines, plus({r[0], r[1], r[2]}, times(side, half)), u, v, 360, violet);
}

// A coil with straight ends; about the middle where the ends coincide.
void add_spring(std::vector<Line>& lines, Vec3 from, Vec3 to, double extent) {
    constexpr int turns = 5, steps = 12;
    constexpr double straight = 0.2;  // of the length, at each end
    const double radius = 0.012 * extent;
    if (!(norm(minus(to, from)) > 1e-6 * extent)) {
        from[2] -= 0.02 * extent;
        to[2] += 0.02 * extent;
    }
    const Vec3 axis = unit(minus(to, from)), u = across(axis), v = cross(axis, u);
    auto on_axis = [&](double share) { return plus(from, times(share, minus(to, from))); };
    Vec3 last = from;
    auto draw_to = [&](const Vec3& next) {
        lines.push_back({last, next, spring_color});
        last = next;
    };
    draw_to(on_axis(straight));
    for (int k = 0; k <= turns * steps; ++k) {
        const double angle = 2 * std::numbers::pi * k / steps;
        const double share = straight + (1 - 2 * straight) * k / (turns * steps);
        draw_to(
            plus(on_axis(share), times(radius, plus(times(std::cos(angle), u), times(std::sin(angle), v)))));
    }
    draw_to(on_axis(1 - straight));
    draw_to(to);
}

class Builder {
public:
    Builder(const RigidTables& tables, const RigidShape& shape)
        : tables_(tables), shape_(shape), extent_(extent_of(tables.mesh.max_length)) {}

    RigidSymbols build() {
        for (std::size_t k = 0; k < tables_.elements.size(); ++k) add_element(k);
        for (const RigidCombine& combine : tables_.combines) add_combine(combine);
        for (const RigidForce& force : tables_.forces) add_force(force);
        return std::move(out_);
    }

private:
    bool exists(std::int32_t element) const { return element >= 0 && element < std::ssize(places_); }

    void add_element(std::size_t k) {
        constexpr std::size_t most_members = 5000, most_spokes = 16;
        const RigidElement& element = tables_.elements[k];
        std::vector<std::int32_t> nodes;
        if (k < tables_.holds.size())
            for (const std::int32_t n : tables_.holds[k].nodes)
                if (n >= 0 && n < tables_.mesh.node_num()) nodes.push_back(n);
        const Carried carried = carried_by(tables_.mesh, nodes, shape_);
        auto drawn = [&](const Vec3& x) { return plus(x, times(shape_.factor, carried.displacement(x))); };
        const Vec3 place = drawn(element.reference);
        places_.push_back(place);
        const double half = 0.02 * extent_;
        for (std::size_t a = 0; a < 3; ++a) {
            Vec3 arm{};
            arm[a] = half;
            out_.lines.push_back({minus(place, arm), plus(place, arm), violet});
        }
        out_.labels.push_back({place, element.name});
        if (nodes.empty()) add_region(out_.lines, element);
        std::vector<Vec3> at_rest;
        for (const std::int32_t n : nodes) at_rest.push_back(triple(tables_.mesh.coordinates, n));
        outward_.push_back(unit(minus(element.reference, middle(at_rest)), Vec3{}));
        // chosen where they rest: the same ones in every frame
        for (const std::size_t chosen : spread_out(at_rest, most_spokes, 0.05 * extent_))
            out_.lines.push_back({place, drawn(at_rest[chosen]), faint_violet});
        const std::size_t stride = stride_for(nodes.size(), most_members);
        for (std::size_t i = 0; i < nodes.size(); i += stride)
            out_.members.push_back(
                shape_.deforms() ? plus(at_rest[i], times(shape_.factor, triple(shape_.vector, nodes[i])))
                                 : at_rest[i]);
    }

    void add_combine(const RigidCombine& combine) {
        if (!exists(combine.element[0]) || !exists(combine.element[1])) return;
        const Vec3 from = places_[combine.element[0]], to = places_[combine.element[1]];
        add_spring(out_.lines, from, to, extent_);
        out_.labels.push_back({times(0.5, plus(from, to)), combine.name});
    }

    void add_force(const RigidForce& force) {
        if (!exists(force.element)) return;
        const std::size_t k = force.element;
        const auto direction = force.direction;
        const bool moment = direction >= RigidDirection::rx && direction <= RigidDirection::rz;
        const Vec3 normal = k < tables_.holds.size() ? tables_.holds[k].normal : Vec3{};
        Vec3 way{};
        if (direction == RigidDirection::normal)
            way = normal;
        else
            way[static_cast<std::size_t>(direction) % 3] = 1;
        const double sense = force.value > 0 ? 1 : force.value < 0 ? -1 : 0;
        const Vec3 arrow = times(sense * 0.15 * extent_, way);
        // away from the body the arrow begins at the point, so that the body does not hide it
        const double cosine = 0.5 * norm(arrow);
        const bool pulls = dot(normal, arrow) > cosine || dot(outward_[k], arrow) > cosine;
        const Vec3 place = places_[k], free_end = pulls ? plus(place, arrow) : minus(place, arrow);
        Vec3 label = free_end;
        if (moment && norm(arrow) > 0) {
            const Vec3 axis = unit(arrow), u = times(0.05 * extent_, across(axis));
            const Vec3 centre = plus(place, times(0.5, minus(free_end, place)));
            out_.turns.push_back({place, centre, u, cross(axis, u)});
            label = plus(centre, u);
        } else if (norm(arrow) > 0) {
            out_.arrows.push_back(pulls ? Arrow{place, free_end} : Arrow{free_end, place});
        }
        out_.labels.push_back({label, formatted(moment ? "%.3e[Nm]" : "%.3e[N]", std::abs(force.value))});
    }

    const RigidTables& tables_;
    const RigidShape& shape_;
    const double extent_;
    std::vector<Vec3> places_,
        outward_;  // of the elements: reference points as drawn; from the members to them
    RigidSymbols out_;
};

}  // namespace

Vec3 carried_point(const Vec3& point, const Mesh& mesh, std::span<const std::int32_t> nodes,
                   const RigidShape& shape) {
    return plus(point, times(shape.factor, carried_by(mesh, nodes, shape).displacement(point)));
}

RigidSymbols rigid_symbols(const RigidTables& tables, const RigidShape& shape) {
    return Builder(tables, shape).build();
}

}  // namespace kestralum::view
