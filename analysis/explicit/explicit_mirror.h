// The surface that contact works on, where several processes compute a model: each of them has all of it, in
// the order of the whole run's steps, and finds all contacts, so that they come out the same to the bit.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/explicit/explicit_walls.h"
#include "elements/explicit_blocks.h"

namespace kestralum {

class ContactMirror {
public:
    // nodes: of the whole run's steps, all of which are here; place_of: of each node of those steps its place
    // here.
    ContactMirror(std::span<const std::int32_t> nodes, std::span<const std::int32_t> place_of);

    // What the arrays here (node × 4) say of the surface, in tables of the whole run's nodes; forces of 0.
    ContactArrays take(const ContactArrays& here);
    // Adds the forces found since to F, here.
    void give(double* F) const;
    // Velocities here, in a table of the whole run's nodes; those of take().
    const double* follow(const double* v_new);
    const double* velocities() const { return v_.data(); }

private:
    struct Row {
        std::size_t here, whole;  // places: 4 node
    };
    void copy(const double* from, LineDoubles& to) const;

    std::vector<Row> rows_;
    LineDoubles x_, v_, v_new_, mass_, b_, F_;
};

}  // namespace kestralum
