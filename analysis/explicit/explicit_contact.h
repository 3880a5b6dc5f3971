// Contact between the surfaces of parts: every surface node of either part against the other's surface
// triangles, by penalty springs with Coulomb friction. Each contact's forces on its node and the three
// nodes of its triangle are in balance, so that momentum is kept to rounding.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/explicit/explicit_walls.h"
#include "model/free_faces.h"

namespace kestralum {

class ContactSet {
public:
    // `surface`: of the whole mesh; what a pair uses of it is that of its parts, found by name.
    ContactSet(std::span<const ContactPair> pairs, std::span<const Part> parts, const Mesh& mesh,
               std::vector<SurfaceTriangle> surface);

    // Chooses the penalties. `sharing`: kinds of contact that a node may have at a time, walls included.
    void tune(double d_time, double stable_step, int sharing);

    // The step that was done, s: surfaces close by it. Penalties stay those of tune().
    void set_step(double step) { step_ = step; }

    // Both parts of a pair have a surface; and the surface nodes that two different parts share.
    bool can_act(std::size_t pair) const;
    std::int32_t common_nodes(std::size_t pair) const;

    // Forces of the configuration at `time`, added to arrays.F.
    void push(const ContactArrays& arrays, double time);
    // Work of the forces in force with the velocities before and after, W.
    std::array<double, 2> power(const double* v, const double* v_new) const;

    // Force of each pair on its first part (of a part paired with itself: on the nodes of its contacts), N.
    std::array<double, 3> force(std::size_t pair) const;
    std::size_t size() const { return pairs_.size(); }
    std::int64_t touching() const;

    // What changes from step to step.
    template <typename Archive>
    void serialize(Archive& archive) {
        for (Active& active : pairs_)
            archive(active.side[0].memory, active.side[1].memory, active.touches, active.begun);
        archive(most_);
    }

private:
    // A node and a triangle that touch: the force on the node; the triangle's nodes take the opposite by
    // the weights of the foot point.
    struct Touch {
        std::int32_t node;
        std::array<std::int32_t, 3> corner;
        std::array<double, 3> weight, normal, force;
        double depth;  // behind the triangle's surface at the gap, m
        bool first;    // the node is of the first part
        std::int32_t memory;
        template <typename Archive>
        void serialize(Archive& archive) {
            archive(node, corner, weight, normal, force, depth, first, memory);
        }
    };
    // What a node keeps of its contact from step to step while it stays closed. The spring's force is
    // stiffness · pressed: a node that turns up behind a surface other than through it starts unpressed,
    // and the stiffness never grows, so that the spring gives back no more than was put into it.
    struct Memory {
        std::array<std::int32_t, 3> corner{-1, -1, -1};
        double stiffness = 0;  // N/m; 0: not known yet
        double depth = 0, pressed = 0;
        bool closed = false;
        template <typename Archive>
        void serialize(Archive& archive) {
            archive(corner, stiffness, depth, pressed, closed);
        }
    };
    struct Side {
        std::vector<std::int32_t> nodes, triangles;  // of one part; triangles are indices
        std::vector<Memory> memory;                  // of each node
        std::vector<std::int32_t> near;              // indices of nodes that may touch in the step
        double reach = 0;                            // the largest of its nodes, m
    };
    // A regular grid of cells over the triangles of one side, in buckets.
    struct Grid {
        std::array<double, 3> low{};
        double cell = 1;
        std::array<std::int32_t, 3> count{1, 1, 1};
        std::vector<std::int32_t> start, next, entry;
        std::int32_t index(std::size_t axis, double value) const;
        std::size_t bucket(std::int32_t i, std::int32_t j, std::int32_t k) const;
    };
    struct Active {
        ContactPair pair;
        std::array<Side, 2> side;
        double share;  // of m_eff/Δt², the penalty
        std::vector<Touch> touches;
        bool self = false, begun = false;
    };
    void measure_edges(const Mesh& mesh);
    // Nodes of side `slave` that the box of the other side, widened by the reach, holds, and those that were
    // closed; marks them for find_normals().
    void find_near(Active& active, std::size_t slave, const double* x);
    void fill_grid(const std::vector<std::int32_t>& triangles, const double* x, double reach);
    void touch_side(Active& active, std::size_t slave, const ContactArrays& arrays);
    // The triangle of the grid that the touch's node lies least deep behind.
    void find_foot(const Active& active, Touch& best, const ContactArrays& arrays) const;
    void remember(const Active& active, const Touch& touch, Memory& memory,
                  const ContactArrays& arrays) const;
    Memory& memory_of(Active& active, const Touch& touch) const;
    void find_normals(const double* x);
    void share_nodes();
    void press(Active& active, const ContactArrays& arrays);
    // How deep a node may lie behind a triangle and still be in contact with it, m.
    double reach_of(const Active& active, std::int32_t n) const;
    bool foot_point(const std::array<std::int32_t, 3>& corner, const double* x, const double* p, double edge,
                    std::array<double, 3>& weight, std::array<double, 3>& normal, double& height) const;

    std::vector<Active> pairs_;
    std::vector<SurfaceTriangle> triangles_;
    std::vector<double> size_;        // per node: longest edge of the surface around it at the start, m
    std::vector<double> sum_, most_;  // per node: its weights in the contacts of a step, and the most so far
    std::vector<char> marked_;        // per node: near in some pair
    std::vector<std::array<double, 3>>
        normal_;                     // per marked node: unit outward normal in the configuration in force
    std::vector<std::int32_t> met_;  // triangles that near nodes may meet
    Grid grid_;
    double d_time_ = 0, step_ = 0;  // of tune(), and the step that was done, s
};

}  // namespace kestralum
