// What of a nonlinear run touches elements and the matrix: the body that NewtonSolver brings into
// equilibrium. Its elements and equations lie in one process (whole_body.h) or on the ranks of a team, whose
// processes then all call every function in the same order and get the same values, but where a comment says
// otherwise.
//
// Equations: the places of q on no rigid body in the order of their numbers, then the bodies' motions.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "conditions/rigid_bodies.h"
#include "fields/section_forces.h"
#include "system/job.h"
#include "system/load_set.h"

namespace kestralum {

class NewtonBody {
public:
    explicit NewtonBody(std::vector<double>& place) : u(place) {}
    virtual ~NewtonBody() = default;
    NewtonBody(const NewtonBody&) = delete;
    NewtonBody& operator=(const NewtonBody&) = delete;

    // Displacements of all nodes, 3 each, m. The other functions take them as they were at the last
    // update_stresses().
    std::vector<double>& u;
    std::string error;  // why assemble() or update_stresses() was false

    // False with the run's status set where it was asked to stop or another process has failed.
    virtual bool goes_on() = 0;

    // The pattern of K. False with the status set.
    virtual bool prepare() = 0;
    // K at u: of the elements, the supports' springs and, where there are loads, of the pressures that follow
    // at their load factor. False with `error` set, or where it was asked to stop.
    virtual bool assemble(const LoadSet* loads, double factor, Progress& lines) = 0;
    // What factors K, which has been assembled once. False with the status set.
    virtual bool plan() = 0;
    // The diagonal of K, per equation of the numbering with the members of rigid bodies.
    virtual std::vector<double> diagonal() const = 0;
    // K taken through the bodies' motions at their states: nr × nr, row-major, to be added to before
    // factor(). For models with rigid bodies.
    virtual std::span<double> border(std::span<const RigidState> states) = 0;
    // Prints its lines. False with the status set, like solve(), which is in place.
    virtual bool factor() = 0;
    virtual bool solve(std::span<double> x) = 0;
    // K times displacements of all nodes: nodal forces, 3 per node, N.
    virtual std::vector<double> resistance(const std::vector<double>& moved) const = 0;
    // Of the last factor. False with the status set.
    virtual bool count_negative(std::int64_t& negative) = 0;
    // After the first factorization, at rest: a motion that nothing resists; empty: there is none.
    virtual std::string free_motion() = 0;
    // Waits for the file of the last factor; false with the status set.
    virtual bool await_file() { return true; }

    // Stresses and states at u. False with `error` set where an element is inverted.
    virtual bool update_stresses() = 0;
    // Of these stresses at all nodes, 3 each, N.
    virtual std::vector<double> internal_forces() const = 0;
    // Thermal strains at a load factor from here on; false where nothing is heated.
    virtual bool set_heat(const LoadSet& loads, double factor) = 0;
    // The current states become the committed ones; the search for them starts from the committed ones again.
    virtual void commit() = 0;
    virtual void restart() = 0;

    // Whether this process keeps the frames and writes the files.
    virtual bool keeps() const { return true; }
    // Adds a frame of u to the run, with its nodal stresses and the elements' means, where this process keeps
    // it; the increment gets the share of the volume that has yielded. False with the status set where a file
    // of the frame cannot be written.
    virtual bool store(std::shared_ptr<Frame> frame, IncrementReport& increment) = 0;
    // Mises stress of all points, element after element, N/m^2; where this process keeps the frames. Empty
    // where each process keeps its own.
    virtual std::vector<double> mises() const = 0;
    // Nodal forces of single elements; empty where they are not all here.
    virtual ElementForces element_forces() const { return {}; }
    // Of the last frame, into the run's report.
    virtual void find_largest() = 0;
};

}  // namespace kestralum
