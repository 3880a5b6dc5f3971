#include "view/symbols.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <numeric>

#include "model/format.h"

namespace kestralum::view {

namespace {

constexpr Color red{1, 0, 0, 1}, green{0, 1, 0, 1}, blue{0, 0, 1, 1}, dark{0.2f, 0.2f, 0.2f, 1};

Vec3 axis_vector(std::size_t axis, double length) {
    Vec3 v{};
    v[axis] = length;
    return v;
}

bool inside(const std::array<double, 6>& box, const Vec3& x) {
    constexpr double tolerance = 1e-7;  // as the loads select
    for (std::size_t k = 0; k < 3; ++k)
        if (!(box[2 * k] - tolerance < x[k] && x[k] < box[2 * k + 1] + tolerance)) return false;
    return true;
}

bool in_mesh(const Mesh& mesh, std::int64_t n) {
    return n >= 0 && n < mesh.node_num();
}

// The nodes that a force loads, 0-based; `node` is that of a node force, 1-based.
std::vector<std::int64_t> loaded_nodes(const Mesh& mesh, const AppliedForce& force, std::int32_t node) {
    std::vector<std::int64_t> nodes;
    if (force.kind == ForceKind::node) {
        if (const std::int64_t n = node_index(node); in_mesh(mesh, n)) nodes.push_back(n);
        return nodes;
    }
    for (std::int64_t n = 0; n < mesh.node_num(); ++n)
        if (inside(force.box, triple(mesh.coordinates, n))) nodes.push_back(n);
    return nodes;
}

// Most of the surface at the nodes looks the way that the force acts.
bool pulls_outwards(const Mesh& mesh, std::span<const std::int64_t> nodes, const Vec3& arrow) {
    constexpr double cosine = 0.5;
    if (mesh.node_n_dir.size() != mesh.coordinates.size()) return false;
    Vec3 sum{};
    for (const std::int64_t n : nodes) sum = plus(sum, triple(mesh.node_n_dir, n));
    return norm(sum) > 0 && dot(unit(sum), arrow) > cosine * norm(arrow);
}

constexpr double arrow_share = 0.15;  // of max_length

}  // namespace

Vec3 middle(std::span<const Vec3> places) {
    Vec3 sum{};
    for (const Vec3& p : places) sum = plus(sum, p);
    return places.empty() ? sum : times(1.0 / static_cast<double>(places.size()), sum);
}

std::size_t stride_for(std::size_t count, std::size_t limit) {
    return std::max<std::size_t>(1, (count + limit - 1) / limit);
}

std::vector<std::size_t> spread_out(const std::vector<Vec3>& places, std::size_t limit, double spacing) {
    constexpr std::size_t few = 8;
    std::vector<std::size_t> chosen(places.size());
    std::iota(chosen.begin(), chosen.end(), std::size_t{0});
    if (places.size() <= few) return chosen;
    Vec3 low = places[0], high = places[0];
    for (const Vec3& p : places)
        for (std::size_t c = 0; c < 3; ++c) {
            low[c] = std::min(low[c], p[c]);
            high[c] = std::max(high[c], p[c]);
        }
    const double across = norm(minus(high, low));
    struct Nearest {
        std::size_t place;
        double distance;  // from the cell's middle, in cells
    };
    for (double cells = std::clamp(across / spacing, 1.0, 64.0); cells >= 1; cells /= 1.15) {
        Vec3 scale{};  // a whole number of cells along each axis
        for (std::size_t c = 0; c < 3; ++c)
            if (high[c] > low[c])
                scale[c] =
                    std::max(1.0, std::round(cells * (high[c] - low[c]) / across)) / (high[c] - low[c]);
        std::map<std::array<int, 3>, Nearest> taken;
        for (std::size_t k = 0; k < places.size() && taken.size() <= limit; ++k) {
            std::array<int, 3> cell{};
            double distance = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                const double at = scale[c] * (places[k][c] - low[c]),
                             last = std::round(scale[c] * (high[c] - low[c])) - 1;
                if (at >= 0 && at <= 64.5) cell[c] = static_cast<int>(std::min(at, std::max(0.0, last)));
                distance += std::abs(at - cell[c] - 0.5);
            }
            const auto [entry, is_new] = taken.try_emplace(cell, Nearest{k, distance});
            Nearest& nearest = entry->second;
            // the same place whatever the order: of equally near ones the first by coordinates
            const bool nearer = distance < nearest.distance - 1e-6 ||
                                (distance < nearest.distance + 1e-6 && places[k] < places[nearest.place]);
            if (!is_new && nearer) nearest = {k, distance};
        }
        if (taken.size() > limit) continue;
        chosen.clear();
        for (const auto& [cell, nearest] : taken) chosen.push_back(nearest.place);
        return chosen;
    }
    return {0};
}

ForceSymbols force_symbols(const Mesh& mesh, std::span<const AppliedForce> forces,
                           std::span<const std::int32_t> force_node, std::span<const double> coordinates) {
    constexpr std::size_t most_arrows = 40;
    const double length = arrow_share * extent_of(mesh.max_length);
    ForceSymbols out;
    for (std::size_t f = 0; f < forces.size(); ++f) {
        const AppliedForce& force = forces[f];
        if (force.axis < 0 || force.axis > 2) continue;
        const auto nodes = loaded_nodes(mesh, force, f < force_node.size() ? force_node[f] : 0);
        std::vector<Vec3> at_rest, places;
        for (const std::int64_t n : nodes) {
            at_rest.push_back(triple(mesh.coordinates, n));
            places.push_back(triple(coordinates, n));
        }
        if (nodes.empty() && force.kind == ForceKind::node) at_rest = places = {force.point};
        if (places.empty() || force.value == 0) continue;  // loads nothing
        const Vec3 arrow = axis_vector(force.axis, force.value > 0 ? length : -length);
        const bool pulls = pulls_outwards(mesh, nodes, arrow);
        const Vec3 free_end = pulls ? arrow : times(-1, arrow);  // seen from the node
        for (const std::size_t k : spread_out(at_rest, most_arrows, 0.2 * length)) {
            const Vec3 end = plus(places[k], free_end);
            out.arrows.push_back(pulls ? Arrow{places[k], end} : Arrow{end, places[k]});
        }
        out.labels.push_back({plus(middle(places), free_end), formatted("%.3e[N]", std::abs(force.value))});
    }
    return out;
}

std::vector<Cone> support_cones(const Mesh& mesh, std::span<const std::int32_t> fixed_nodes,
                                std::span<const double> coordinates) {
    constexpr std::size_t most_cones = 5000;
    const double height = 0.025 * extent_of(mesh.max_length);
    std::vector<std::int32_t> nodes;
    for (const std::int32_t n : fixed_nodes)
        if (in_mesh(mesh, n)) nodes.push_back(n);
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    const bool has_normals = mesh.node_n_dir.size() == mesh.coordinates.size();
    std::vector<Cone> cones;
    const std::size_t stride = stride_for(nodes.size(), most_cones);
    for (std::size_t k = 0; k < nodes.size(); k += stride) {
        const Vec3 outward = has_normals ? triple(mesh.node_n_dir, nodes[k]) : Vec3{};
        cones.push_back({triple(coordinates, nodes[k]), unit(outward, {0, 0, -1}), height, 0.4 * height});
    }
    return cones;
}

Markers dimensions(const Scene& scene) {
    const double L = extent_of(scene.max_length), gap = 0.08 * L, tick = 0.02 * L;
    constexpr const char* names[3] = {"x", "y", "z"};
    const auto& box = scene.size_info;
    Markers out;
    for (std::size_t a = 0; a < 3; ++a) {
        const double length = box[3 + a] - box[a];
        if (!(length > 0) || !std::isfinite(length)) continue;
        // along x and z below the box in y, along y beside it in x
        const std::size_t off = a == 1 ? 0 : 1;
        Vec3 from{box[0], box[1], box[2]};
        from[off] -= gap;
        Vec3 to = from;
        to[a] += length;
        out.lines.push_back({from, to, dark});
        for (const Vec3& end : {from, to}) {
            const Vec3 half = axis_vector(off, tick);
            out.lines.push_back({minus(end, half), plus(end, half), dark});
        }
        out.labels.push_back({times(0.5, plus(from, to)), formatted("%s:%.4g[m]", names[a], length)});
    }
    return out;
}

void add_circle(std::vector<Line>& lines, const Vec3& centre, const Vec3& u, const Vec3& v, double degrees,
                const Color& color) {
    const int steps = std::max(4, static_cast<int>(degrees / 10));
    auto at = [&](int k) {
        const double angle = degrees * k / steps * std::numbers::pi / 180;
        return plus(centre, plus(times(std::cos(angle), u), times(std::sin(angle), v)));
    };
    for (int k = 0; k < steps; ++k) lines.push_back({at(k), at(k + 1), color});
}

void add_box(std::vector<Line>& lines, const Vec3& low, const Vec3& high, const Color& color) {
    for (std::size_t a = 0; a < 3; ++a)
        for (int side = 0; side < 4; ++side) {
            Vec3 from = low;
            from[(a + 1) % 3] = side & 1 ? high[(a + 1) % 3] : low[(a + 1) % 3];
            from[(a + 2) % 3] = side & 2 ? high[(a + 2) % 3] : low[(a + 2) % 3];
            Vec3 to = from;
            to[a] = high[a];
            lines.push_back({from, to, color});
        }
}

namespace {

constexpr Color wall_color{0.35f, 0.35f, 0.45f, 1};

// A rectangle normal to `axis` about `centre`, with lines across it.
void add_plane(std::vector<Line>& lines, const Vec3& centre, std::size_t axis, const Vec3& half) {
    constexpr int hatches = 8;
    const std::size_t u = (axis + 1) % 3, v = (axis + 2) % 3;
    auto at = [&](double a, double b) {
        Vec3 p = centre;
        p[u] += a * half[u];
        p[v] += b * half[v];
        return p;
    };
    const std::array<Vec3, 4> corner{at(-1, -1), at(1, -1), at(1, 1), at(-1, 1)};
    for (std::size_t k = 0; k < 4; ++k) lines.push_back({corner[k], corner[(k + 1) % 4], wall_color});
    for (int k = -hatches + 1; k < hatches; ++k) {  // lines a - b = constant
        const double c = 2.0 * k / hatches;
        lines.push_back({at(std::max(-1.0, c - 1), std::max(-1.0, -1 - c)),
                         at(std::min(1.0, c + 1), std::min(1.0, 1 - c)), wall_color});
    }
}

void add_round_wall(std::vector<Line>& lines, const RigidWall& wall, const Vec3& centre, std::size_t axis,
                    double half) {
    if (wall.kind == WallKind::sphere) {
        for (std::size_t a = 0; a < 3; ++a)
            add_circle(lines, centre, axis_vector((a + 1) % 3, wall.radius),
                       axis_vector((a + 2) % 3, wall.radius), 360, wall_color);
        return;
    }
    const Vec3 u = axis_vector((axis + 1) % 3, wall.radius), v = axis_vector((axis + 2) % 3, wall.radius);
    for (const double side : {-half, half})
        add_circle(lines, plus(centre, axis_vector(axis, side)), u, v, 360, wall_color);
    for (const Vec3& r : {u, v, times(-1, u), times(-1, v)})
        lines.push_back({plus(centre, minus(r, axis_vector(axis, half))),
                         plus(centre, plus(r, axis_vector(axis, half))), wall_color});
}

}  // namespace

Markers contact_markers(const Mesh& mesh, std::span<const Part> parts, std::span<const ContactPair> contacts,
                        std::span<const double> coordinates) {
    constexpr double none = std::numeric_limits<double>::infinity();
    constexpr Color pink{0.85f, 0, 0.6f, 1};
    struct Box {
        Vec3 low{none, none, none}, high{-none, -none, -none};
        bool finite() const { return low[0] <= high[0] && std::isfinite(norm(minus(high, low))); }
    };
    std::vector<Box> boxes(parts.size());
    const std::size_t per_element = mesh.node_per_element();
    for (std::size_t k = 0; k < mesh.connectivity.size(); ++k) {
        const std::size_t part = mesh.p_ele_part_id[k / per_element];
        if (part >= boxes.size()) continue;
        const Vec3 x = triple(coordinates, node_index(mesh.connectivity[k]));
        for (std::size_t c = 0; c < 3; ++c) {
            boxes[part].low[c] = std::min(boxes[part].low[c], x[c]);
            boxes[part].high[c] = std::max(boxes[part].high[c], x[c]);
        }
    }
    Markers out;
    for (const ContactPair& pair : contacts) {
        Vec3 between{};
        int found = 0;
        for (const std::string& name : pair.part_name) {
            const auto part =
                std::find_if(parts.begin(), parts.end(), [&](const Part& p) { return p.name == name; });
            if (part == parts.end()) continue;
            const Box& box = boxes[part - parts.begin()];
            if (!box.finite()) continue;
            add_box(out.lines, box.low, box.high, pink);
            between = plus(between, times(0.25, plus(box.low, box.high)));
            ++found;
        }
        if (found == 2)
            out.labels.push_back({between, pair.name + ": " + pair.part_name[0] + " - " + pair.part_name[1]});
    }
    return out;
}

Markers wall_markers(std::span<const RigidWall> walls, std::span<const Parameter> parameters, double time,
                     const Scene& scene) {
    Markers out;
    for (const RigidWall& wall : walls) {
        if (wall.axis < 0 || wall.axis > 2) continue;
        const std::size_t axis = wall.axis;
        Vec3 centre, half;
        for (std::size_t c = 0; c < 3; ++c) {
            centre[c] = 0.5 * (wall.box[2 * c] + wall.box[2 * c + 1]) + wall.motion[c].at(time, parameters);
            half[c] = 0.5 * std::abs(wall.box[2 * c + 1] - wall.box[2 * c]);
            // a wall without bounds is shown about the model
            const bool bounds =
                wall.kind == WallKind::plane ? c != axis : wall.kind == WallKind::cylinder && c == axis;
            if (half[c] > 0 || !bounds) continue;
            half[c] = 0.6 * extent_of(scene.max_length);
            centre[c] = scene.centre()[c];
        }
        if (!std::isfinite(norm(centre)) || !std::isfinite(norm(half))) continue;
        if (wall.kind == WallKind::plane)
            add_plane(out.lines, centre, axis, half);
        else
            add_round_wall(out.lines, wall, centre, axis, half[axis]);
        out.labels.push_back({centre, wall.name});
    }
    return out;
}

std::vector<Line> axes(double size) {
    auto at = [&](double x, double y, double z) { return Vec3{size * x, size * y, size * z}; };
    return {{at(0, 0, 0), at(1, 0, 0), red},
            {at(0.8, 0.05, 0), at(1, 0.25, 0), red},
            {at(0.8, 0.25, 0), at(1, 0.05, 0), red},
            {at(0, 0, 0), at(0, 1, 0), green},
            {at(0, 0, 0), at(0, 0, 1), blue}};
}

Vec3 part_point(const Part& part, const Vec3& local) {
    Matrix turn = identity();
    constexpr Vec3 axis[3] = {{0, 0, 1}, {1, 0, 0}, {0, 0, 1}};
    for (std::size_t k = 0; k < 3; ++k)
        turn = product(turn, rotation(axis[k], part.euler_angles[k] * std::numbers::pi / 180));
    return plus(times(part.unit_factor, part.origin), transform(turn, local));
}

std::vector<Line> part_axes(std::span<const Part> parts_o, double size) {
    std::vector<Line> lines;
    for (const Part& part : parts_o) {
        if (part.active != 1) continue;
        for (const Line& line : axes(size))
            lines.push_back({part_point(part, line.from), part_point(part, line.to), line.color});
    }
    return lines;
}

namespace {

// An arc of `degrees` in the plane z = 0, repeated at z = length and joined at its ends.
void add_cylinder(std::vector<Line>& lines, double radius, double length, double degrees,
                  const Color& color) {
    const Vec3 u{radius, 0, 0}, v{0, radius, 0};
    add_circle(lines, {0, 0, 0}, u, v, degrees, color);
    if (length == 0) return;
    const std::size_t arc = lines.size();
    add_circle(lines, {0, 0, length}, u, v, degrees, color);
    const std::size_t steps = lines.size() - arc;
    const std::size_t first = arc - steps;
    for (const std::size_t k : {std::size_t{0}, steps / 2})
        lines.push_back({lines[first + k].from, lines[arc + k].from, color});
    lines.push_back({lines[first + steps - 1].to, lines[arc + steps - 1].to, color});
}

std::vector<Line> local_outline(const Part& part, const Color& color) {
    Vec3 s;
    for (std::size_t k = 0; k < 3; ++k) s[k] = part.size[k] * part.unit_factor;
    std::vector<Line> lines;
    switch (part.type) {
        case Shape::surf_circle:
            add_cylinder(lines, s[0], 0, 360, color);
            break;
        case Shape::surf_rect:
            add_box(lines, {0, 0, 0}, {s[0], s[1], 0}, color);
            break;
        case Shape::hole_cyli:
            add_cylinder(lines, s[0], s[1], 360, color);
            break;
        case Shape::hole_rect:
            add_box(lines, {0, 0, 0}, s, color);
            break;
        case Shape::hole_halfcyli:
            add_cylinder(lines, s[0], s[1], 180, color);
            break;
        case Shape::r_chamfer:
        case Shape::fillet:
            add_cylinder(lines, s[0], s[1], 90, color);
            break;
        default:
            break;  // solids are outlined from their mesh
    }
    return lines;
}

}  // namespace

std::vector<Line> feature_outlines(std::span<const Part> parts_o) {
    std::vector<Line> lines;
    for (const Part& part : parts_o) {
        if (part.active != 1) continue;
        const Color color = color_of(part.color);
        for (const Line& line : local_outline(part, color))
            if (norm(minus(line.to, line.from)) > 0)
                lines.push_back({part_point(part, line.from), part_point(part, line.to), color});
    }
    return lines;
}

std::vector<Label> part_names(const Mesh& mesh, std::span<const Part> parts,
                              std::span<const double> coordinates) {
    struct Sum {
        Vec3 place{};
        double count = 0;
    };
    std::vector<Sum> sums(parts.size());
    auto add = [&](std::span<const std::int32_t> part_id, const std::vector<std::int32_t>& nodes,
                   std::size_t per_row) {
        for (std::size_t k = 0; k < nodes.size(); ++k) {
            const std::size_t row = k / per_row;
            if (row >= part_id.size() || part_id[row] < 0 || part_id[row] >= std::ssize(sums)) continue;
            Sum& sum = sums[part_id[row]];
            sum.place = plus(sum.place, triple(coordinates, node_index(nodes[k])));
            sum.count += 1;
        }
    };
    add(mesh.p_ele_part_id, mesh.connectivity, mesh.node_per_element());
    add(mesh.surface_part_id, mesh.surface_facets, 3);
    std::vector<Label> labels;
    for (std::size_t p = 0; p < parts.size(); ++p) {
        const Vec3 at =
            sums[p].count > 0 ? times(1 / sums[p].count, sums[p].place) : part_point(parts[p], {0, 0, 0});
        labels.push_back({at, parts[p].name});
    }
    return labels;
}

std::vector<std::string> fem_information(const Mesh& mesh, std::size_t part_num) {
    const char* type = mesh.element_type == ElementKind::tetrahedron4    ? "4-node tetrahedron"
                       : mesh.element_type == ElementKind::tetrahedron10 ? "10-node tetrahedron"
                                                                         : "8-node hexahedron";
    return {formatted("Element type: %s", type), formatted("Node: %d", mesh.node_num()),
            formatted("Element: %d", mesh.element_num()), formatted("D.o.f.: %d", mesh.dof_num()),
            formatted("Part: %zu", part_num)};
}

}  // namespace kestralum::view
