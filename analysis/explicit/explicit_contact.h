// Contact between the surfaces of parts: every surface node of either part against the other's surface
// triangles, by penalty springs with Coulomb friction. Each contact's forces on the nodes of either body are
// in balance, so that momentum is kept to rounding.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/explicit/explicit_search.h"
#include "analysis/explicit/explicit_surface.h"
#include "analysis/explicit/explicit_walls.h"

namespace kestralum {

// Two pieces of surface that touch: `own` nodes of the one that is pushed along the normal (1: a node on a
// triangle, 2: an edge on an edge), then those of the other. The shares of either add up to 1.
struct ContactTouch {
    std::array<std::int32_t, 4> node{};
    std::array<double, 4> share{};
    std::size_t own = 1;
    Vec3 normal{}, force{};  // force: on the own nodes, N
    double depth = 0;        // behind the surface at the gap, m; 0: they do not touch
    bool first = false;      // the own nodes are of the pair's first part
    std::int32_t triangle = -1;
    std::int32_t memory = -1;

    // Of a table of node × 4: the own nodes' value less the other's.
    Vec3 difference(const double* node4) const;
    // Where it is on the own nodes' side, m.
    Vec3 place(const double* x) const;

    template <typename Archive>
    void serialize(Archive& archive) {
        archive(node, share, own, normal, force, depth, first, triangle, memory);
    }
};

// What a contact keeps from step to step while it stays closed. The spring's force is stiffness · pressed:
// what turns up behind a surface other than through it starts unpressed, and the stiffness never grows, so
// that the spring gives back no more than was put into it.
struct ContactMemory {
    std::array<std::int32_t, 4> node{-1, -1, -1, -1};
    std::int32_t triangle = -1;
    Vec3 normal{}, place{};  // at the last step; place: of the own nodes, m
    bool closed = false;
    double stiffness = 0;  // N/m; 0: not known yet
    double depth = 0, pressed = 0;
    double account = 0;  // J: what may be spent to push out what is unpressed
    double held = 0;     // J: what the bodies have put in and not got back yet
    // Where the surfaces stick: a place on either, as shares of nodes; they have slipped by the difference.
    std::array<std::int32_t, 4> stuck_node{-1, -1, -1, -1};
    std::array<double, 4> stuck_share{};

    template <typename Archive>
    void serialize(Archive& archive) {
        archive(node, triangle, normal, place, closed, stiffness, depth, pressed, account, held, stuck_node,
                stuck_share);
    }
};

class ContactSet {
public:
    // `surface`: of the whole mesh; what a pair uses of it is that of its parts, found by name.
    ContactSet(std::span<const ContactPair> pairs, std::span<const Part> parts, const Mesh& mesh,
               std::vector<SurfaceTriangle> surface);

    // The whole mesh has this surface from here on. Contacts with triangles that stay go on as they are; what
    // lies behind new ones starts unpressed.
    void renew(std::span<const Part> parts, const Mesh& mesh, std::vector<SurfaceTriangle> surface);

    // Chooses the penalties. `sharing`: kinds of contact that a node may have at a time, walls included.
    void tune(double d_time, double stable_step, int sharing);

    // The step that was done and that to come, s. Penalties stay those of tune().
    void set_step(double before, double after) {
        step_ = before;
        after_ = after;
    }

    // All nodes whose places and velocities tell of a contact, ascending: those of the pairs and around them,
    // and of whole parts those of surfaces merged with theirs, over which a contact may go on.
    std::vector<std::int32_t> nodes() const;

    // Both parts of a pair have a surface; and the surface nodes that two different parts share.
    bool can_act(std::size_t pair) const;
    std::int32_t common_nodes(std::size_t pair) const;

    // Forces of the configuration at `time`, added to arrays.F; the same for any number of threads.
    void push(const ContactArrays& arrays, double time, int threads);
    // Work of the forces in force with the velocities before and after, each in half of its step, J.
    std::array<double, 2> work(const double* v, const double* v_new);

    // What friction takes of it, J: the work of the forces along the surfaces, that of their springs
    // included.
    std::array<double, 2> friction_work(const double* v, const double* v_new) const;
    bool rubs() const;

    // Force of each pair on its first part (of a part paired with itself: on the nodes of its contacts), N.
    std::array<double, 3> force(std::size_t pair) const;
    std::size_t size() const { return pairs_.size(); }
    std::int64_t touching() const;

    // What changes from step to step. Candidates are looked for anew after it has been read.
    template <typename Archive>
    void serialize(Archive& archive) {
        for (Active& active : pairs_)
            archive(active.side[0].memory, active.side[1].memory, active.touches, active.begun, active.acting,
                    active.held, active.edges.pairs, active.edges.memory);
        archive(most_, peaks, deepest_);
        searches_ = 0;
    }

    ForcePeaks peaks;
    const DeepestPlace& deepest() const { return deepest_; }
    std::int64_t searches() const { return searches_; }
    // How far nodes may move towards each other until candidates are looked for anew, as a share of the reach
    // of a contact; 0: in every step. No force depends on it.
    void set_margin(double share) { margin_share_ = share; }

private:
    struct Side {
        std::vector<std::int32_t> nodes, triangles;  // of one part; triangles are indices
        std::vector<ContactMemory> memory;           // of each node
        double reach = 0;                            // the largest of its nodes, m
        // of the last search: indices of nodes that may touch until the next one, and per such node the
        // triangles of the other side, ascending
        std::vector<std::int32_t> near, candidates;
        std::vector<std::int64_t> first;
        std::vector<ContactTouch> found;  // per near node
    };
    // Pairs of edges, of either side one, that may touch until the next search, ascending.
    struct EdgePairs {
        std::array<std::vector<std::int32_t>, 2> edges;  // of the sides: indices into the surface's edges
        std::array<double, 2> reach{};                   // the largest of either's nodes, m
        std::vector<std::array<std::int32_t, 2>> pairs;
        std::vector<ContactMemory> memory;  // of each pair
        std::vector<ContactTouch> found;
    };
    struct Active {
        ContactPair pair;
        std::array<Side, 2> side;
        double share;  // of m_eff/Δt², the penalty
        std::vector<ContactTouch> touches;
        EdgePairs edges;
        bool self = false, begun = false, acting = false;
        double held = 0;     // J: what the bodies have put in and not got back, in all of the run
        double covered = 1;  // what of the open contacts' accounts that is, at most all
        std::size_t slaves() const { return self ? 1 : 2; }
        ContactMemory& memory_of(const ContactTouch& touch) {
            if (touch.own == 2) return edges.memory[touch.memory];
            return side[touch.first ? 0 : 1].memory[touch.memory];
        }
    };

    // search
    void find_thickness();
    bool has_moved(const double* x, int threads) const;
    void search(const double* x, int threads);
    void search_side(Active& active, std::size_t slave, const double* x, int threads);
    ContactBox around(const Active& active, std::size_t side, const double* x, double reach) const;

    // which nodes touch
    void meet(const Active& active, Side& side, std::size_t near, std::size_t slave,
              const ContactArrays& arrays) const;
    // How a node came to be where it is, with velocities v; beside: the least deep of what it meets sideways.
    struct Came {
        const ContactMemory& memory;
        const double* v;
        ContactTouch& beside;
    };
    bool find_foot(const Active& active, const Side& side, std::size_t near, const double* x, bool only,
                   const Came& came, ContactTouch& best) const;
    void look_beside(const Active& active, const ContactTouch& touch, const Came& came) const;
    bool is_sudden(const Active& active, const ContactTouch& touch, const ContactMemory& memory,
                   const double* v) const;
    bool hold(const Active& active, const ContactMemory& memory, const double* x, ContactTouch& best) const;
    bool walk(const Active& active, const Side& other, const ContactMemory& memory, const double* x,
              ContactTouch& best) const;
    bool is_opposite_face(std::int32_t n, std::int32_t t) const;
    // How deep a node may come behind a triangle and be met by it, m: of any one, and of that.
    double reach_of(const Active& active, std::int32_t n) const;
    double reach_of(const Active& active, std::int32_t n, std::int32_t t) const;

    // which edges touch
    void take_edges(Active& active) const;
    void search_edges(Active& active, const double* x);
    void meet_edges(Active& active, const ContactArrays& arrays, int threads);
    bool cross_edges(const Active& active, const std::array<std::int32_t, 2>& pair, const double* x,
                     double beyond, ContactTouch& touch) const;
    bool may_begin(const Active& active, const ContactTouch& touch, const double* v) const;
    bool hand_over(EdgePairs& edges, std::size_t to, const double* x) const;
    bool share_node(std::int32_t a, std::int32_t b) const;

    // the forces
    void remember(const Active& active, const ContactTouch& touch, ContactMemory& memory,
                  const ContactArrays& arrays) const;
    void share_nodes();
    double mass_of(const ContactTouch& touch, const Vec3* direction, const ContactArrays& arrays) const;
    void press(const Active& active, ContactTouch& touch, ContactMemory& memory,
               const ContactArrays& arrays) const;
    void relax(ContactMemory& memory) const;
    void cover(ContactMemory& memory, double away, double covered) const;
    static double held_by(Active& active);
    Vec3 rub(const Active& active, const ContactTouch& touch, double limit, const Vec3& along,
             ContactMemory& memory, const ContactArrays& arrays) const;
    void gather(const ContactArrays& arrays, int threads) const;
    void note_deepest(const ContactArrays& arrays, double time);

    std::vector<Active> pairs_;
    ContactSurface surface_;
    std::vector<double> thickness_;   // per node: of the wall behind it at rest, where that is thin, m
    std::vector<double> sum_, most_;  // per node: its shares in the contacts of a step, and the most so far
    std::vector<double> searched_;    // node × 4: where the last search found them, m
    std::vector<std::int32_t>
        met_;  // per node: 1 + the pair in which it touched a triangle last, in this step
    double margin_ = 0, margin_share_ = 0.5;
    std::int64_t searches_ = 0;
    BoxGrid grid_;
    // room of a search
    std::vector<std::int32_t> met_items_;
    std::vector<ContactBox> boxes_;
    std::vector<std::array<std::int32_t, 2>> new_pairs_;
    std::vector<ContactMemory> new_memory_;
    DeepestPlace deepest_;
    double d_time_ = 0, step_ = 0, after_ = 0;  // of tune(), the step that was done and that to come, s
};

}  // namespace kestralum
