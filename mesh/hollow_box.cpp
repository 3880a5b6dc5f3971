// "HOLLOWRECT": rectangular tube of outer width b, height h and wall t, centred on the local z
// axis. The section is a db × dh grid without its inner (db - 2dt) × (dh - 2dt) cells; the walls
// have dt cells of t/dt, the lines between them are even.
#include <algorithm>

#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

std::string fault(const Part& part) {
    const auto [b, h, t, length, unused1, unused2] = part.size;
    const std::int64_t walls = 2 * std::int64_t{part.div[2]};
    if (2 * t >= b) return formatted("wall t = %e leaves no opening in the width b = %e", t, b);
    if (2 * t >= h) return formatted("wall t = %e leaves no opening in the height h = %e", t, h);
    if (walls >= part.div[0])
        return formatted("dt = %d leaves no opening in db = %d divisions", part.div[2], part.div[0]);
    if (walls >= part.div[1])
        return formatted("dt = %d leaves no opening in dh = %d divisions", part.div[2], part.div[1]);
    return {};
}

MeshCounts section_counts(const Part& part) {
    const std::int64_t db = part.div[0], dh = part.div[1], dt = part.div[2];
    return {db * dh - (db - 2 * dt) * (dh - 2 * dt),
            (db + 1) * (dh + 1) - (db - 2 * dt - 1) * (dh - 2 * dt - 1)};
}

std::string head(const Part& part, const MeshCounts& counts) {
    return "HOLLOWRECT:" + counts_line(counts) +
           formatted("db=%d,dh=%d,dt=%d,dl=%d,", part.div[0], part.div[1], part.div[2], part.div[3]) +
           formatted("b=%.3e,h=%.3e,t=%.3e,L=%.3e\n", part.size[0], part.size[1], part.size[2], part.size[3]);
}

// Distance from the axis of the line `from_middle` half steps away from the middle of n divisions.
double line_from_axis(std::int32_t from_middle, std::int32_t n, std::int32_t dt, double size, double t) {
    const std::int32_t from_outside = (n - from_middle) / 2;
    if (from_outside < dt) return size / 2 - grid_line(from_outside, dt, t);
    return (size / 2 - t) * (static_cast<double>(from_middle) / static_cast<double>(n - 2 * dt));
}

// Section node numbers by ring: ring r is the rim of the grid from line r to lines db - r, dh - r.
class Rings {
public:
    Rings(std::int32_t db, std::int32_t dh, std::int32_t dt) : db_(db), dh_(dh) {
        for (std::int32_t r = 0; r <= dt; ++r) rings_.emplace_back(perimeter(r), -1);
    }
    std::int32_t& node(std::int32_t i, std::int32_t j) {
        const std::int32_t r = std::min({i, db_ - i, j, dh_ - j});
        const std::int32_t w = db_ - 2 * r, h = dh_ - 2 * r, u = i - r, v = j - r;
        const std::int32_t along = v == 0   ? u
                                   : u == w ? w + v
                                   : v == h ? w + h + (w - u)
                                            : 2 * w + h + (h - v);
        return rings_[r][along];
    }

private:
    std::int32_t perimeter(std::int32_t r) const { return 2 * (db_ - 2 * r) + 2 * (dh_ - 2 * r); }
    std::int32_t db_, dh_;
    std::vector<std::vector<std::int32_t>> rings_;
};

// Places are counted in half steps from the axis, so that a line on the axis is exactly 0.
class HollowSection {
public:
    explicit HollowSection(const Part& part)
        : part_(part), db_(part.div[0]), dh_(part.div[1]), dt_(part.div[2]), rings_(db_, dh_, dt_) {}

    Section make() {
        for (std::int32_t r = 0; r <= dt_; ++r) add_ring(r);
        for (std::int32_t j = 0; j < dh_; ++j) {
            const bool wall_row = j < dt_ || j >= dh_ - dt_;
            for (std::int32_t i = 0; i < db_; ++i) {
                if (!wall_row && i == dt_) i = db_ - dt_;
                section_.add_quad(rings_.node(i, j), rings_.node(i + 1, j), rings_.node(i + 1, j + 1),
                                  rings_.node(i, j + 1));
            }
        }
        return std::move(section_);
    }

private:
    // First quadrant: up the right side to the corner, then along the upper side to the left.
    void add_ring(std::int32_t r) {
        const std::int32_t x = db_ - 2 * r, y = dh_ - 2 * r;
        for (std::int32_t q = y & 1; q <= y; q += 2) add_four(x, q);
        for (std::int32_t p = x - 2; p >= 0; p -= 2) add_four(p, y);
    }
    // The four images (+,+) (-,+) (-,-) (+,-) of a place, those on an axis once.
    void add_four(std::int32_t p, std::int32_t q) {
        const double x = line_from_axis(p, db_, dt_, part_.size[0], part_.size[2]);
        const double y = line_from_axis(q, dh_, dt_, part_.size[1], part_.size[2]);
        constexpr int signs[4][2] = {{1, 1}, {-1, 1}, {-1, -1}, {1, -1}};
        for (const auto& [sx, sy] : signs) {
            std::int32_t& number = rings_.node((db_ + sx * p) / 2, (dh_ + sy * q) / 2);
            if (number >= 0) continue;
            number = static_cast<std::int32_t>(section_.xy.size() / 2);
            section_.add_node(p == 0 ? 0.0 : sx * x, q == 0 ? 0.0 : sy * y);
        }
    }

    const Part& part_;
    std::int32_t db_, dh_, dt_;
    Rings rings_;
    Section section_;
};

Section section(const Part& part) {
    return HollowSection(part).make();
}

}  // namespace

const ExtrudedShape hollow_box_shape{-1, fault, section_counts, head, section};

}  // namespace kestralum
