#include "view/occlusion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kestralum::view {

namespace {

constexpr int cells_along = 100, directions = 24;
constexpr double reach = 20;  // cells

// Evenly over the sphere (a Fibonacci lattice).
std::array<Vec3, directions> even_directions() {
    std::array<Vec3, directions> out;
    const double turn = std::numbers::pi * (3 - std::sqrt(5.0));
    for (int k = 0; k < directions; ++k) {
        const double z = 1 - (2 * k + 1.0) / directions, r = std::sqrt(1 - z * z);
        out[k] = {r * std::cos(k * turn), r * std::sin(k * turn), z};
    }
    return out;
}

class Cells {
public:
    Cells(const Surface& surface, std::span<const double> x) {
        Vec3 high{};
        bool first = true;
        for (const std::int32_t v : surface.triangles) {
            const Vec3 at = triple(x, v);
            for (std::size_t c = 0; c < 3; ++c) {
                low_[c] = first ? at[c] : std::min(low_[c], at[c]);
                high[c] = first ? at[c] : std::max(high[c], at[c]);
            }
            first = false;
        }
        const Vec3 extent = minus(high, low_);
        size_ = std::max({extent[0], extent[1], extent[2]}) / cells_along;
        if (!(size_ > 0) || !std::isfinite(size_)) size_ = 1;
        for (std::size_t c = 0; c < 3; ++c)
            count_[c] = std::isfinite(extent[c]) ? static_cast<int>(extent[c] / size_) + 1 : 1;
        filled_.assign(std::size_t(count_[0]) * count_[1] * count_[2], 0);
        for (std::size_t t = 0; t + 2 < surface.triangles.size(); t += 3)
            fill(triple(x, surface.triangles[t]), triple(x, surface.triangles[t + 1]),
                 triple(x, surface.triangles[t + 2]));
    }

    double size() const { return size_; }

    // From `at` the way of a unit vector, in steps of a cell.
    bool leaves(const Vec3& at, const Vec3& way) const {
        for (double k = 0; k < reach; ++k) {
            const Vec3 here = plus(at, times(k * size_, way));
            std::array<int, 3> cell;
            if (!cell_of(here, cell)) return true;
            if (filled_[index(cell)]) return false;
        }
        return true;
    }

private:
    bool cell_of(const Vec3& place, std::array<int, 3>& cell) const {
        for (std::size_t c = 0; c < 3; ++c) {
            const double at = (place[c] - low_[c]) / size_;
            if (!(at >= 0 && at < count_[c])) return false;
            cell[c] = static_cast<int>(at);
        }
        return true;
    }
    std::size_t index(const std::array<int, 3>& cell) const {
        return (std::size_t(cell[2]) * count_[1] + cell[1]) * count_[0] + cell[0];
    }
    // The cells of points on the triangle, closer than half a cell.
    void fill(const Vec3& a, const Vec3& b, const Vec3& c) {
        const Vec3 ab = minus(b, a), ac = minus(c, a);
        const double longest = std::max({norm(ab), norm(ac), norm(minus(c, b))});
        const int n = std::clamp(static_cast<int>(2 * longest / size_) + 1, 1, 4 * cells_along);
        for (int i = 0; i <= n; ++i)
            for (int j = 0; i + j <= n; ++j) {
                std::array<int, 3> cell;
                if (cell_of(plus(a, plus(times(1.0 * i / n, ab), times(1.0 * j / n, ac))), cell))
                    filled_[index(cell)] = 1;
            }
    }

    Vec3 low_{};
    double size_ = 1;
    std::array<int, 3> count_{1, 1, 1};
    std::vector<char> filled_;
};

}  // namespace

std::vector<float> open_shares(const Surface& surface, std::span<const double> coordinates) {
    const std::array<Vec3, directions> ways = even_directions();
    const Cells cells(surface, coordinates);
    std::vector<Vec3> normal(coordinates.size() / 3);
    for (std::size_t t = 0; t + 2 < surface.triangles.size(); t += 3) {
        const std::int32_t* v = surface.triangles.data() + t;
        const Vec3 a = triple(coordinates, v[0]);
        const Vec3 area = cross(minus(triple(coordinates, v[1]), a), minus(triple(coordinates, v[2]), a));
        for (int k = 0; k < 3; ++k) normal[v[k]] = plus(normal[v[k]], area);
    }
    std::vector<float> shares(normal.size(), 1);
    const auto vertices = static_cast<std::int64_t>(normal.size());
#pragma omp parallel for schedule(static)
    for (std::int64_t v = 0; v < vertices; ++v) {
        const Vec3 n = unit(normal[v], {0, 0, 0});
        if (dot(n, n) == 0) continue;
        // off the surface's own cells
        const Vec3 at = plus(triple(coordinates, v), times(2.5 * cells.size(), n));
        double open = 0, all = 0;
        for (const Vec3& way : ways) {
            const double weight = dot(way, n);
            if (weight <= 0.05) continue;
            all += weight;
            if (cells.leaves(at, way)) open += weight;
        }
        shares[v] = static_cast<float>(all > 0 ? open / all : 1);
    }
    return shares;
}

}  // namespace kestralum::view
