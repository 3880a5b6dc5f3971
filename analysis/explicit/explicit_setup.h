// The parts of the explicit set-up: what moves (masses, damping, loads, bodies) and how it is led
// (velocities, supports, contact).
#pragma once

#include "analysis/explicit/explicit_state.h"
#include "system/diagonals.h"

namespace kestralum {

// What the set-up makes and the steps do not need.
struct SetUp {
    MatrixDiagonals diagonals;
    std::vector<double> stiffness;  // of the places of q, with the supports' springs, N/m
    std::vector<double> lumped;     // per degree of freedom, kg
    std::vector<double> own_mass;   // the same before tied nodes gave theirs away; empty: no node is tied
    std::vector<double> added;      // per degree of freedom: mass beyond the material's, kg; empty: none
    double mass_factor = 1;         // lumped mass over the consistent diagonal
};

// A line for the console and for the report.
void remark(Job& job, std::string line);

// The stable steps of the elements, with the mass that they have so far.
void bound_steps(const Job& job, const SetUp& set_up, ExplicitState& s);

// The masses, the damping and the loads of the nodes, and the rigid bodies. False with the status set.
bool set_inertia(Job& job, SetUp& set_up, ExplicitState& s);

// What moves the nodes otherwise than by their equations, after the step is known. False with the status set.
bool set_motions(Job& job, const SetUp& set_up, ExplicitState& s);

// set_up_explicit() in pieces. Masses, loads, supports and the step of the whole model.
bool prepare_explicit(Job& job, SetUp& set_up, ExplicitState& s);
// The elements, the motions and the counts: of the whole model, or of state.piece.
bool make_explicit(Job& job, SetUp& set_up, ExplicitState& s);
// The forces of the start. With others: collective, but for the status.
bool find_first_forces(Job& job, ExplicitState& s);
// Frame 1. Collective with others.
bool store_start(Job& job, ExplicitState& s);

}  // namespace kestralum
