// What acts on a model: its forces, loads and temperatures, by what multiplies them.
//
// time    s; in a nonlinear run the load factor; 1 in analyses without one
// growth  whether a load without factor= is whole, or grows with time (nonlinear)
#pragma once

#include <span>
#include <string>
#include <vector>

#include "conditions/loads.h"
#include "conditions/surface_loads.h"
#include "system/freedoms.h"

namespace kestralum {

// Loads of one case with one factor: nodal forces that keep their direction, and rigid forces.
struct LoadGroup {
    LoadOptions options;
    std::vector<double> nodal;  // dof_num, N, at factor 1
    std::vector<RigidForce> rigid_forces;
};

enum class Growth { whole, with_time };

struct LoadSet {
    std::vector<LoadGroup> groups;     // by case and factor, in the order of the model
    std::vector<const Load*> surface;  // pressures, and tractions that vary: evaluated where they are used
    std::vector<const Load*> temperatures;  // of the model
    bool empty() const { return groups.empty() && surface.empty() && temperatures.empty(); }
};

// Whether the run's load case, where it names one, is a case of the model; false with status bad_input.
bool check_case(Job& job);

// The factor of a load at a time.
double load_factor(const LoadOptions& options, double time, Growth growth);

// Loads of the force records on the free degrees of freedom, and of the rest on all; run.load becomes the sum
// of all nodal forces at time 1, pressures at rest included. Notes the records that reach nothing, lose force
// or turn. `stiffness` as build_loads(). False with the status set where a load cannot be made of its record.
bool resolve_loads(Job& job, const Freedoms& freedoms, std::span<const double> stiffness, LoadSet& out);

// What `check` tells of a load of load_info.
struct LoadFigures {
    std::string name;
    std::size_t faces = 0;  // of its set
    double area = 0;        // m^2
    Vec3 force{};           // resultant at time 1 and factor 1, at rest, N; not of temperatures
};
// Of all loads. False with the status set as resolve_loads().
bool measure_loads(Job& job, std::vector<LoadFigures>& out);

// What acts at a time in one case (empty: all): nodal forces, and per rigid body force and moment about its
// pivot.
struct AppliedLoads {
    std::vector<double> nodal;  // dof_num, N
    std::vector<Vec6> rigid;
};
// u: dof_num, of pressures that follow the surface; empty: at rest. states: of the bodies; empty: at rest.
AppliedLoads applied_loads(const LoadSet& loads, const Mesh& mesh, const RigidSystem& rigid, double time,
                           Growth growth, const std::string& load_case, std::span<const double> u = {},
                           std::span<const RigidState> states = {});

// The stiffness of pressures that follow the surface, face by face, to be added to that of the body: -∂F/∂u,
// made symmetric.
void add_follower_stiffness(const LoadSet& loads, const Mesh& mesh, double time, Growth growth,
                            const std::string& load_case, std::span<const double> u, const AddBlock& add);

// Their forces on the equations: of the places `free_dofs` of q, then of the bodies.
std::vector<double> reduce_loads(const AppliedLoads& loads, const Freedoms& freedoms,
                                 std::span<const std::int32_t> free_dofs, const Mesh& mesh,
                                 std::span<const RigidState> states);

// One load of `surface` at a time, without its factor, added to `nodal`; u as above. Needs no memory.
void add_surface_load(const Mesh& mesh, const Load& load, double time, std::span<const double> u,
                      std::span<double> nodal);

// The faces of a load's set; none where it has no set.
const std::vector<ElementFace>& faces_of(const Mesh& mesh, const Load& load);

// A temperature with what it says to each part of the model: α (1/K), and whether it is heated.
struct Heating {
    const Load* load = nullptr;
    std::vector<double> expansion;
    std::vector<char> chosen;
};
std::vector<Heating> heatings_of(const LoadSet& loads, const Model& model, const std::string& load_case);

// factor · α (T - T0) at a time, added to `strain` (element_num × points).
void add_heating(const Heating& heating, const Mesh& mesh, double time, double factor, int threads,
                 std::span<double> strain);

// Thermal strains α (T - T0) per integration point (element_num × points); empty where nothing is heated.
std::vector<double> thermal_strains(const LoadSet& loads, const Model& model, const Mesh& mesh, double time,
                                    Growth growth, const std::string& load_case);

}  // namespace kestralum
