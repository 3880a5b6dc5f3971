// Rigid bodies: the nodes of a rigid element move as one. What each body can do, where its members are, and
// the loads and springs on it; for small and for finite rotations.
//
// Glossary
//   pivot      the point that a body's motions are told at: the middle of its members or the fixed node; the
//              reference point may lie far off
//   motion     one independent velocity field: (v, ω), v the velocity of the pivot, ω the angular velocity;
//              a member at r from the pivot has v + ω × r
//   equations  of all bodies, one per motion, body after body; they follow those of the free nodes
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "conditions/supports.h"
#include "model/vector3.h"

namespace kestralum {

using Vec6 = std::array<double, 6>;  // velocity and angular velocity, or force and moment

// The independent motions of one body, at most six; needs no memory of its own.
class Motions {
public:
    Vec6& add(const Vec6& motion = {}) { return motions_[count_++] = motion; }
    std::size_t size() const { return count_; }
    Vec6& operator[](std::size_t k) { return motions_[k]; }
    const Vec6& operator[](std::size_t k) const { return motions_[k]; }
    Vec6* begin() { return motions_.data(); }
    Vec6* end() { return begin() + count_; }
    const Vec6* begin() const { return motions_.data(); }
    const Vec6* end() const { return begin() + count_; }

private:
    std::array<Vec6, 6> motions_{};
    std::size_t count_ = 0;
};

struct RigidBody {
    std::int32_t record = 0;            // index into the rigid elements
    std::vector<std::int32_t> members;  // nodes, 0-based, ascending
    std::vector<std::int32_t> fixed;    // members that supports hold
    std::vector<HeldDirection> held;    // of members that supports hold in some directions
    Vec3 reference{};                   // reference point of the record, m
    Vec3 pivot{};                       // m
    Vec3 normal{};           // mean outward normal: of the free faces of members, else of the nodes; 0: none
    Motions motions;         // unit motions
    double size = 0;         // largest distance of a member from the pivot, m
    bool axes_turn = false;  // ω of the motions turn with the body (members on a line)
    std::int32_t first = 0;  // its first equation, counted from the first body's

    std::int32_t count() const { return static_cast<std::int32_t>(motions.size()); }
    // Its motions stay what its supports leave when it has turned far: nothing holds it in part, or all do in
    // one direction and leave pure shifts and turns (three places off a line).
    bool turns_far() const;
    // How much of motion k is in a motion of the pivot, the nearest that the body can do.
    double amount(std::size_t k, const Vec6& motion) const;
};

struct RigidSystem {
    std::vector<RigidBody> bodies;           // one per rigid element, in file order
    std::vector<std::int32_t> body_of_node;  // -1: none
    std::int32_t equations = 0;
    std::vector<std::string> notices;  // what the user should know
    std::string error;                 // not empty: the records contradict the mesh or each other

    bool empty() const { return bodies.empty(); }
    // The body that all `count` nodes (1-based) belong to, -1 when they do not belong to one.
    std::int32_t common_body(const std::int32_t* nodes, int count) const;
    // Per element: it lies wholly inside one body and is never strained. Empty without bodies.
    std::vector<char> elements_inside(const Mesh& mesh) const;
};

// Adds the body of the next record with the nodes it selects, but for those of bodies that stand already:
// these are returned.
std::vector<std::int32_t> add_body(RigidSystem& system, const RigidElement& record, const Mesh& mesh,
                                   const NodeElements& node_elements);

// Sets the bodies' normals: area vectors of the free faces whose corners are members of one body; where a
// body has none, the sum of its nodes' normals. Sums that cancel but for rounding leave 0. Needs members and
// body_of_node.
void find_normals(RigidSystem& system, const Mesh& mesh);

// Members, duplicates (the first element of the file keeps the node), supports and motions. fixed_nodes:
// 0-based; held: by supports with options. Of a body held in some directions the motions are those that move
// no member along them; at large turns they stay so where turns_far().
RigidSystem build_rigid_system(std::span<const RigidElement> records, const Mesh& mesh,
                               const NodeElements& node_elements, std::span<const std::int32_t> fixed_nodes,
                               std::span<const HeldDirection> held = {});

// Where a body is: the pivot has moved by u, the body has turned by R (row-major).
struct RigidState {
    Vec3 u{};
    Mat3 R{1, 0, 0, 0, 1, 0, 0, 0, 1};
};

// Rotation by the vector θ (axis times angle; Rodrigues), and its inverse with |θ| <= π.
Mat3 rotation_of(const Vec3& theta);
Vec3 rotation_vector(const Mat3& R);

// The body's motions as they are at `state`.
Motions current_motions(const RigidBody& body, const RigidState& state);

// Displacement of the material point at X (m).
Vec3 displacement_of(const RigidBody& body, const RigidState& state, const Vec3& X);

// state after the motions' amounts q (body.count() values): the rotation by the exponential map.
RigidState advanced(const RigidBody& body, const RigidState& state, const double* q);

// Small motions: u (3 per node) at the members, from the amounts q of all bodies.
void expand_members(const RigidSystem& system, const Mesh& mesh, std::span<const double> q,
                    std::span<double> u);

// Writes the members' displacements at the states, finite rotations included.
void place_members(const RigidSystem& system, std::span<const RigidState> states, const Mesh& mesh,
                   std::span<double> u);

// Force and moment about the pivot of nodal forces (3 per node) on the members; of the rigid force records.
Vec6 resultant(const RigidBody& body, const RigidState& state, const Mesh& mesh,
               std::span<const double> nodal);
// Sum of the records on body `b` (of records' `element`); `n`: along the mean outward normal of the members.
Vec6 rigid_force_resultant(const RigidSystem& system, std::int32_t b, const RigidState& state,
                           std::span<const RigidForce> forces);

// Forces on the body's equations: the power of (force, moment) in each motion. Adds factor times it to `out`.
void project(const RigidBody& body, const RigidState& state, const Vec6& force, double factor, double* out);

}  // namespace kestralum
