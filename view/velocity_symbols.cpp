#include <algorithm>
#include <cmath>
#include <limits>

#include "model/format.h"
#include "model/selection.h"
#include "view/condition_symbols.h"

namespace kestralum::view {

namespace {

constexpr Color velocity_color{0.05f, 0.3f, 0.85f, 1};

struct Box {
    static constexpr double none = std::numeric_limits<double>::infinity();
    Vec3 low{none, none, none}, high{-none, -none, -none};
    void add(const Vec3& p) {
        for (std::size_t c = 0; c < 3; ++c) {
            low[c] = std::min(low[c], p[c]);
            high[c] = std::max(high[c], p[c]);
        }
    }
};

Vec3 along(std::int32_t axis, double value) {
    Vec3 out{};
    out[static_cast<std::size_t>(axis) % 3] = value;
    return out;
}

class Builder {
public:
    explicit Builder(const ConditionTables& tables)
        : tables_(tables), extent_(extent_of(tables.mesh.max_length)) {
        solids_.color = velocity_color;
    }

    ConditionSymbols build() {
        const ExplicitTables& records = tables_.model.explicit_tables;
        if (!tables_.time || *tables_.time == 0)
            for (const VelocityRecord& record : records.initial_velocities) add_initial(record);
        for (std::size_t n = 0; !records.velocity_inputs.empty() && 3 * n < tables_.coordinates.size(); ++n)
            if (const Vec3 at = triple(tables_.coordinates, n); std::isfinite(norm(at))) model_.add(at);
        for (const VelocityRecord& record : records.velocity_inputs) add_input(record);
        if (!solids_.arrows.empty()) out_.solids.push_back(std::move(solids_));
        return std::move(out_);
    }

private:
    std::vector<std::int32_t> nodes_of(const VelocityRecord& record) const {
        std::vector<std::int32_t> nodes = select_nodes(record, tables_.model.parts, tables_.mesh);
        std::erase_if(nodes, [&](std::int32_t n) { return !std::isfinite(norm(drawn(n))); });
        return nodes;
    }
    Vec3 drawn(std::int32_t n) const { return triple(tables_.coordinates, n); }

    // Above what moves, beside it where it moves up or down: there it lies in no other body's way.
    void add_initial(const VelocityRecord& record) {
        const double v = record.velocity.start;
        const auto nodes = nodes_of(record);
        if (nodes.empty() || v == 0 || !std::isfinite(v)) return;
        Box box;
        for (const std::int32_t n : nodes) box.add(drawn(n));
        const std::size_t side = record.axis == 2 ? 0 : 2;
        const auto before = std::ranges::count(beside_, record.name);
        beside_.push_back(record.name);
        Vec3 middle = times(0.5, plus(box.low, box.high));
        middle[side] = box.high[side] + (0.06 + 0.05 * static_cast<double>(before)) * extent_;
        const Vec3 half = along(record.axis, (v > 0 ? 0.1 : -0.1) * extent_);
        solids_.arrows.push_back({minus(middle, half), plus(middle, half)});
        out_.labels.push_back(
            {minus(middle, half), record.name + formatted(" starts at %.3e[m/s]", std::abs(v))});
    }

    // Before the nodes the way they move, or behind them where it would lie in the model.
    void add_input(const VelocityRecord& record) {
        const auto nodes = nodes_of(record);
        if (nodes.empty()) return;
        const bool as_text = !tables_.time && record.velocity.varies;
        const double v = as_text ? 1 : record.velocity.at(tables_.time.value_or(0), tables_.model.parameters);
        if (!std::isfinite(v)) return;
        Box box;
        for (const std::int32_t n : nodes) box.add(drawn(n));
        const double length = 0.2 * extent_, gap = 0.02 * extent_;
        const auto axis = static_cast<std::size_t>(record.axis) % 3;
        const auto arrow = [&](bool before) {
            const bool up = before == (v >= 0);  // at the upper end of the nodes' box
            Vec3 near = times(0.5, plus(box.low, box.high));
            near[axis] = up ? box.high[axis] + gap : box.low[axis] - gap;
            const Vec3 far = plus(near, along(record.axis, up ? length : -length));
            return before ? Arrow{near, far} : Arrow{far, near};
        };
        const auto in_model = [&](const Arrow& a) { return inside(times(0.5, plus(a.tail, a.tip))); };
        const bool before = !in_model(arrow(true)) || in_model(arrow(false));
        const Arrow chosen = arrow(before);
        if (v != 0) solids_.arrows.push_back(chosen);
        out_.labels.push_back({before ? chosen.tip : chosen.tail,
                               record.name + (as_text ? " " + record.velocity.text + "[m/s]"
                                                      : formatted(" %.3e[m/s]", std::abs(v)))});
    }

    bool inside(const Vec3& p) const {
        for (std::size_t c = 0; c < 3; ++c)
            if (p[c] < model_.low[c] || p[c] > model_.high[c]) return false;
        return true;
    }

    const ConditionTables& tables_;
    const double extent_;
    Box model_;  // as drawn
    Solids solids_;
    std::vector<std::string> beside_;  // names of the records whose arrows stand already
    ConditionSymbols out_;
};

}  // namespace

ConditionSymbols velocity_symbols(const ConditionTables& tables) {
    return Builder(tables).build();
}

}  // namespace kestralum::view
