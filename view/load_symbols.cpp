#include <algorithm>
#include <cmath>
#include <limits>

#include "model/format.h"
#include "model/mesh_sets.h"
#include "view/condition_symbols.h"

namespace kestralum::view {

namespace {

constexpr Color pressure_color{0.6f, 0.15f, 0.95f, 1}, traction_color{0.9f, 0.4f, 0, 1},
    remote_color{0.75f, 0.05f, 0.4f, 1}, mass_color{0, 0.4f, 0.4f, 1};

class Builder {
public:
    explicit Builder(const ConditionTables& tables)
        : tables_(tables), extent_(extent_of(tables.mesh.max_length)) {
        constexpr double none = std::numeric_limits<double>::infinity();
        low_ = {none, none, none};
        high_ = times(-1, low_);
        for (std::size_t k = 0; k < tables.coordinates.size(); ++k) {
            if (!std::isfinite(tables.coordinates[k])) continue;
            low_[k % 3] = std::min(low_[k % 3], tables.coordinates[k]);
            high_[k % 3] = std::max(high_[k % 3], tables.coordinates[k]);
        }
        on_faces_[0].color = pressure_color;
        on_faces_[1].color = traction_color;
        remote_.color = remote_color;
        mass_.color = mass_color;
    }

    ConditionSymbols build() {
        if (!(low_[0] <= high_[0])) return {};
        for (const Load& load : tables_.acting.of(tables_.model.loads)) add(load);
        for (Solids* solids : {&on_faces_[0], &on_faces_[1], &remote_, &mass_})
            if (!solids->arrows.empty() || !solids->turns.empty()) out_.solids.push_back(std::move(*solids));
        return std::move(out_);
    }

private:
    void add(const Load& load) {
        switch (load.kind) {
            case LoadKind::gravity:
                return add_gravity(load);
            case LoadKind::centrifugal:
                return add_axis(load);
            case LoadKind::temperature:
                return add_temperature(load);
            default:
                break;
        }
        const MeshSet* set = find_set(tables_.mesh, load.set_name);
        if (!set || set->faces.empty()) return;
        if (load.kind == LoadKind::remote)
            add_remote(load, set->faces);
        else
            add_on_faces(load, set->faces);
    }

    void label(const Load& load, const Vec3& at, const std::string& text) {
        out_.labels.push_back({at, load.name + " " + text});
    }

    // The force per area at a place, or one that is as large as it there.
    static Vec3 force_at(const Load& load, const FacePlace& at) {
        switch (load.kind) {
            case LoadKind::pressure:
                return times(-load.value.at(at.rest.data(), 1), at.normal);
            case LoadKind::bearing:
                return times(std::min(0.0, dot(at.normal, load.force)), at.normal);
            case LoadKind::traction: {
                Vec3 t{};
                for (std::size_t c = 0; c < 3; ++c) t[c] = load.vector[c].at(at.rest.data(), 1);
                return t;
            }
            default:
                return load.force;
        }
    }

    static std::string text_of(const Load& load, std::span<const FacePlace> places,
                               std::span<const Vec3> forces) {
        if (load.kind == LoadKind::force || load.kind == LoadKind::bearing)
            return formatted("%.3e[N]", norm(load.force));
        const auto& v = load.vector;
        std::vector<double> values;  // with their signs; of a traction two that differ where it does
        for (std::size_t k = 0; k < places.size(); ++k)
            values.push_back(load.kind == LoadKind::pressure
                                 ? -dot(forces[k], places[k].normal)
                                 : norm(forces[0]) + norm(minus(forces[k], forces[0])));
        return value_text(values,
                          load.kind == LoadKind::pressure
                              ? load.value.text
                              : "(" + v[0].text + ", " + v[1].text + ", " + v[2].text + ")",
                          "Pa");
    }

    void add_on_faces(const Load& load, std::span<const ElementFace> faces) {
        constexpr std::size_t most = 40;
        const double length = 0.1 * extent_;
        std::vector<Vec3> forces;
        const auto places = spread_faces(tables_, faces, most, 0.3 * length);
        for (const FacePlace& at : places) forces.push_back(force_at(load, at));
        const bool normal = load.kind == LoadKind::pressure || load.kind == LoadKind::bearing;
        const std::size_t before = on_faces_[!normal].arrows.size();
        const Vec3 end = add_arrows(places, forces, length, on_faces_[!normal]);
        if (on_faces_[!normal].arrows.size() > before) label(load, end, text_of(load, places, forces));
    }

    // Lines to the faces, which the point is carried by.
    void add_remote(const Load& load, std::span<const ElementFace> faces) {
        constexpr std::size_t most_spokes = 16;
        const auto places = spread_faces(tables_, faces, most_spokes, 0.05 * extent_);
        std::vector<Vec3> drawn, moved;
        for (const FacePlace& at : places) {
            drawn.push_back(at.drawn);
            moved.push_back(minus(at.drawn, at.rest));
        }
        const Vec3 point = plus(load.point, middle(moved)), away = minus(point, middle(drawn));
        for (const Vec3& place : drawn) out_.lines.push_back({point, place, remote_color});
        for (std::size_t a = 0; a < 3; ++a) {
            Vec3 arm{};
            arm[a] = 0.02 * extent_;
            out_.lines.push_back({minus(point, arm), plus(point, arm), remote_color});
        }
        const FacePlace at{load.point, point, unit(away, Vec3{})};
        if (norm(load.force) > 0)
            label(load, add_arrows(std::span(&at, 1), std::span(&load.force, 1), 0.15 * extent_, remote_),
                  formatted("%.3e[N]", norm(load.force)));
        if (norm(load.moment) > 0) {
            const Vec3 axis = unit(load.moment), u = times(0.05 * extent_, across(axis));
            const Vec3 centre = plus(point, times((dot(axis, away) < 0 ? -0.06 : 0.06) * extent_, axis));
            remote_.turns.push_back({point, centre, u, cross(axis, u)});
            label(load, plus(centre, u), formatted("%.3e[Nm]", norm(load.moment)));
        }
    }

    Vec3 centre() const { return times(0.5, plus(low_, high_)); }
    // How far the model reaches from its centre along a unit vector, at most.
    double reach(const Vec3& way) const {
        double sum = 0;
        for (std::size_t c = 0; c < 3; ++c) sum += 0.5 * (high_[c] - low_[c]) * std::abs(way[c]);
        return sum;
    }

    // Beyond the model; several of them side by side.
    void add_gravity(const Load& load) {
        if (!(norm(load.direction) > 0)) return;
        const Vec3 way = unit(load.direction);
        const double aside = 0.08 * extent_ * static_cast<double>(mass_.arrows.size());
        const Vec3 tail =
            plus(centre(), plus(times(reach(way) + 0.05 * extent_, way), times(aside, across(way))));
        const Vec3 tip = plus(tail, times(0.25 * extent_, way));
        mass_.arrows.push_back({tail, tip});
        label(load, tip, formatted("%.3e[m/s2]", norm(load.direction)));
    }

    void add_axis(const Load& load) {
        const Vec3 axis = load.direction;
        const double at = dot(minus(centre(), load.point), axis), half = reach(axis) + 0.12 * extent_;
        const Vec3 from = plus(load.point, times(at - half, axis)),
                   to = plus(load.point, times(at + half, axis));
        out_.through.push_back({from, to, mass_color});
        if (load.speed == 0) return;
        const Vec3 u = times(0.07 * extent_, across(axis)),
                   v = times(load.speed > 0 ? 1 : -1, cross(axis, u));
        mass_.turns.push_back({to, to, u, v});
        label(load, plus(to, u), formatted("%.3e[rad/s]", std::abs(load.speed)));
    }

    void add_temperature(const Load& load) {
        const auto& parts = tables_.model.parts;
        const std::string text = "T=" + load.value.text.substr(0, 40);
        if (load.part_name == "all") return label(load, centre(), "all " + text);
        const auto names = part_names(tables_.mesh, parts, tables_.coordinates);
        for (std::size_t p = 0; p < parts.size(); ++p)
            if (is_of_part(parts, p, load.part_name)) label(load, names[p].at, parts[p].name + " " + text);
    }

    const ConditionTables& tables_;
    const double extent_;
    Vec3 low_, high_;  // of the model as drawn
    Solids on_faces_[2], remote_, mass_;
    ConditionSymbols out_;
};

}  // namespace

ConditionSymbols load_symbols(const ConditionTables& tables) {
    return Builder(tables).build();
}

}  // namespace kestralum::view
