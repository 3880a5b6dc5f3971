#include <algorithm>
#include <cmath>

#include "model/mesh_sets.h"
#include "view/condition_symbols.h"

namespace kestralum::view {

namespace {

constexpr Color held_color{0.85f, 0.6f, 0.05f, 1}, moved_color{0, 0.5f, 0.15f, 1},
    spring_color{0.4f, 0.4f, 0, 1}, slave_color{0, 0.6f, 0.75f, 1}, master_color{0, 0.2f, 0.5f, 1};

class Builder {
public:
    explicit Builder(const ConditionTables& tables)
        : tables_(tables), mesh_(tables.mesh), extent_(extent_of(tables.mesh.max_length)) {
        held_.color = held_color;
        moved_.color = moved_color;
    }

    ConditionSymbols build() {
        const auto& records = tables_.model.boundary_conditions;
        for (std::size_t r = 0; r < records.size(); ++r) add_holds(static_cast<std::int32_t>(r), records[r]);
        for (const SupportSprings& springs : tables_.springs) add_springs(springs);
        for (const TieRecord& tie : tables_.model.ties) add_tie(tie);
        for (Solids* solids : {&held_, &moved_})
            if (!solids->arrows.empty() || !solids->cones.empty()) out_.solids.push_back(std::move(*solids));
        return std::move(out_);
    }

private:
    // Directions along an axis that are moved are arrows, all others cones.
    void add_holds(std::int32_t number, const BoundaryCondition& record) {
        for (std::int32_t axis = -1; axis < 3; ++axis) {
            std::vector<SupportHold> holds;
            std::vector<FacePlace> places;
            std::vector<double> values;
            double largest = 0;
            for (const SupportHold& hold : tables_.holds) {
                if (hold.record != number || hold.axis != axis) continue;
                if (hold.node < 0 || hold.node >= mesh_.node_num()) continue;
                holds.push_back(hold);
                const Vec3 rest = triple(mesh_.coordinates, hold.node);
                places.push_back({rest, triple(tables_.coordinates, hold.node), normal_at(hold.node)});
                const FieldExpression* moved = axis >= 0 ? &record.options.displacement[axis] : nullptr;
                const bool moves = moved && moved->given() && tables_.acting(record.options.case_name);
                values.push_back(moves ? moved->at(rest.data(), 1) : 0);
                largest = std::max(largest, std::abs(values.back()));
            }
            if (largest > 0)
                add_moved(record, axis, places, values);
            else
                add_cones(holds, places);
        }
    }

    Vec3 normal_at(std::int32_t node) const {
        const bool known = mesh_.node_n_dir.size() == mesh_.coordinates.size();
        return known ? triple(mesh_.node_n_dir, node) : Vec3{};
    }

    static std::vector<Vec3> places_at_rest(std::span<const FacePlace> places) {
        std::vector<Vec3> rest;
        for (const FacePlace& place : places) rest.push_back(place.rest);
        return rest;
    }

    void add_cones(std::span<const SupportHold> holds, std::span<const FacePlace> places) {
        constexpr std::size_t most = 200;
        if (holds.empty()) return;
        const double height = 0.025 * extent_;
        for (const std::size_t k : spread_out(places_at_rest(places), most, 1.5 * height)) {
            const Vec3 way = holds[k].direction;
            // along a surface on its lower side, as a body rests on the ground
            const Vec3 out = dot(places[k].normal, way) > 1e-6 ? way : times(-1, way);
            held_.cones.push_back({places[k].drawn, out, height, 0.4 * height});
        }
    }

    void add_moved(const BoundaryCondition& record, std::int32_t axis, std::span<const FacePlace> places,
                   std::span<const double> values) {
        constexpr std::size_t most = 40;
        constexpr const char* names[] = {" ux=", " uy=", " uz="};
        std::vector<FacePlace> chosen;
        std::vector<Vec3> vectors;
        const double length = 0.1 * extent_;
        for (const std::size_t k : spread_out(places_at_rest(places), most, 0.3 * length)) {
            chosen.push_back(places[k]);
            Vec3 vector{};
            vector[axis] = values[k];
            vectors.push_back(vector);
        }
        const Vec3 end = add_arrows(chosen, vectors, length, moved_);
        out_.labels.push_back({end, record.name + names[axis] +
                                        value_text(values, record.options.displacement[axis].text, "m")});
    }

    // Out of the face to the ground.
    void add_springs(const SupportSprings& springs) {
        constexpr std::size_t most = 40;
        constexpr int zigs = 6;
        const BoundaryCondition& record = tables_.model.boundary_conditions[springs.record];
        const FieldExpression &all = record.options.spring, &normal = record.options.normal_spring;
        const double length = 0.05 * extent_, half = 0.25 * length;
        std::vector<double> values;
        Vec3 last{};
        for (const FacePlace& at : spread_faces(tables_, springs.faces, most, 1.5 * length)) {
            if (norm(at.normal) == 0) continue;
            const Vec3 side = across(at.normal), other = cross(at.normal, side);
            const auto place = [&](double along, double aside) {
                return plus(at.drawn, plus(times(along * length, at.normal), times(aside * half, side)));
            };
            Vec3 from = at.drawn;
            for (int k = 1; k <= zigs; ++k) {
                const Vec3 to = place((k - 0.5) / zigs, k % 2 ? 1 : -1);
                out_.lines.push_back({from, to, spring_color});
                from = to;
            }
            out_.lines.push_back({from, place(1, 0), spring_color});
            out_.lines.push_back({place(1, -1.5), place(1, 1.5), spring_color});
            const Vec3 arm = times(1.5 * half, other);
            if (all.given())
                out_.lines.push_back({minus(place(1, 0), arm), plus(place(1, 0), arm), spring_color});
            values.push_back((all.given() ? all : normal).at(at.rest.data(), 0));
            last = place(1, 0);
        }
        if (!values.empty())
            out_.labels.push_back(
                {last, record.name + " " + value_text(values, (all.given() ? all : normal).text, "N/m3")});
    }

    void add_tie(const TieRecord& tie) {
        const MeshSet *slave = find_set(mesh_, tie.slave_set), *master = find_set(mesh_, tie.master_set);
        if (!slave || !master || slave->faces.empty() || master->faces.empty()) return;
        mark(master->faces, master_color, false);
        const Vec3 at = mark(slave->faces, slave_color, true);
        out_.labels.push_back({at, tie.name + ": " + tie.slave_set + " - " + tie.master_set});
    }

    // The edge of the faces, and crosses on some of them; where one of these is.
    Vec3 mark(std::span<const ElementFace> faces, const Color& color, bool slanted) {
        constexpr std::size_t most = 40;
        for (const auto& [a, b] : edges_of(faces))
            out_.through.push_back({triple(tables_.coordinates, a), triple(tables_.coordinates, b), color});
        const double half = 0.012 * extent_;
        Vec3 last{};
        for (const FacePlace& at : spread_faces(tables_, faces, most, 6 * half)) {
            if (norm(at.normal) == 0) continue;
            const Vec3 u = across(at.normal), v = cross(at.normal, u);
            for (const double sign : {1.0, -1.0}) {
                const Vec3 arm = slanted ? times(half * std::sqrt(0.5), plus(u, times(sign, v)))
                                         : times(half, sign > 0 ? u : v);
                out_.through.push_back({minus(at.drawn, arm), plus(at.drawn, arm), color});
            }
            last = at.drawn;
        }
        return last;
    }

    // Edges that one of the faces alone has, as pairs of nodes (0-based).
    std::vector<std::pair<std::int64_t, std::int64_t>> edges_of(std::span<const ElementFace> faces) const {
        std::vector<std::pair<std::int64_t, std::int64_t>> all, once;
        for (const ElementFace& face : faces) {
            const auto corners = face_corners(mesh_.element_type, face.face);
            const auto node = [&](std::size_t k) {
                return node_index(mesh_.element(face.element)[corners[k % corners.size()]]);
            };
            for (std::size_t k = 0; k < corners.size(); ++k)
                all.push_back(std::minmax({node(k), node(k + 1)}));
        }
        std::ranges::sort(all);
        for (std::size_t k = 0, end; k < all.size(); k = end) {
            for (end = k + 1; end < all.size() && all[end] == all[k];) ++end;
            if (end == k + 1) once.push_back(all[k]);
        }
        return once;
    }

    const ConditionTables& tables_;
    const Mesh& mesh_;
    const double extent_;
    Solids held_, moved_;
    ConditionSymbols out_;
};

}  // namespace

ConditionSymbols support_symbols(const ConditionTables& tables) {
    return Builder(tables).build();
}

}  // namespace kestralum::view
