// Where contact is looked for: boxes in the cells of a regular grid.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/vector3.h"

namespace kestralum {

// A box of positions, m; without extent until something is put in.
struct ContactBox {
    Vec3 low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};

    void add(const double* p, double reach);
    bool holds(const double* p) const;
    bool meets(const ContactBox& other) const;
};

// Items whose boxes lie in the cells of a grid over all of them. The cells are hashed into as many buckets as
// there are items, so that memory does not follow the extent.
class BoxGrid {
public:
    // One box per item, ascending.
    void fill(std::span<const std::int32_t> items, std::span<const ContactBox> boxes);
    // Calls visit(item) for the items whose box holds p, ascending.
    template <typename Visit>
    void each_at(const double* p, const Visit& visit) const {
        if (items_.empty()) return;
        const std::size_t in = bucket(index(0, p[0]), index(1, p[1]), index(2, p[2]));
        for (std::int32_t k = start_[in]; k < start_[in + 1]; ++k)
            if (boxes_[entry_[k]].holds(p)) visit(items_[entry_[k]]);
    }

private:
    std::int32_t index(std::size_t axis, double value) const;
    std::size_t bucket(std::int32_t i, std::int32_t j, std::int32_t k) const;
    void size_cells();

    std::vector<std::int32_t> items_;
    std::vector<ContactBox> boxes_;
    Vec3 low_{};
    double cell_ = 1;
    std::array<std::int32_t, 3> count_{1, 1, 1};
    std::vector<std::int32_t> start_, next_, entry_;
};

}  // namespace kestralum
