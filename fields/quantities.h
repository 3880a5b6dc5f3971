// Quantities of a frame at the nodes beyond its own tables. A new one is one row of `field_quantities`.
//
// With σ1 ≥ σ2 ≥ σ3 the principal values of the nodal stress, σm their mean, and the Mises stress of the same
// tensor.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/model.h"
#include "model/run.h"

namespace kestralum {

// The number is the quantity's index wherever one is named; those below 100 are the contour menu's.
enum class FieldQuantity : std::int32_t {
    plastic_strain = 100,         // equivalent
    error = 101,                  // estimated, of the stress; static
    principal_1 = 102,            // σ1
    principal_2 = 103,            // σ2
    principal_3 = 104,            // σ3
    direction_1 = 105,            // unit vectors; the sign is such that the largest component is positive
    direction_2 = 106,            // (the first of equal ones)
    direction_3 = 107,            //
    pressure = 108,               // -σm
    triaxiality = 109,            // σm / Mises; not a number where Mises vanishes
    tresca = 110,                 // σ1 - σ3
    strain_energy_density = 111,  // ½ σ:ε of the elastic strain of the stress
    safety_factor = 112,          // Sy / Mises, Sy at rest; not a number without Sy, infinite without stress
    reaction = 113,               // Frame::reaction
    velocity = 114,               // of explicit runs
    acceleration = 115,           //
};

struct FieldQuantityRow {
    FieldQuantity quantity;
    const char* name;  // of arrays and columns
    const char* text;  // of legends
    const char* unit;  // "" of pure numbers
    int components;
};
inline constexpr FieldQuantityRow field_quantities[] = {
    {FieldQuantity::plastic_strain, "plastic_strain", "Eq. plastic strain", "", 1},
    {FieldQuantity::error, "stress_error", "Estimated stress error", "%", 1},
    {FieldQuantity::principal_1, "principal_stress_1", "Principal stress 1", "Pa", 1},
    {FieldQuantity::principal_2, "principal_stress_2", "Principal stress 2", "Pa", 1},
    {FieldQuantity::principal_3, "principal_stress_3", "Principal stress 3", "Pa", 1},
    {FieldQuantity::direction_1, "principal_direction_1", "Direction of principal stress 1", "", 3},
    {FieldQuantity::direction_2, "principal_direction_2", "Direction of principal stress 2", "", 3},
    {FieldQuantity::direction_3, "principal_direction_3", "Direction of principal stress 3", "", 3},
    {FieldQuantity::pressure, "pressure", "Pressure", "Pa", 1},
    {FieldQuantity::triaxiality, "triaxiality", "Triaxiality", "", 1},
    {FieldQuantity::tresca, "tresca", "Tresca stress", "Pa", 1},
    {FieldQuantity::strain_energy_density, "strain_energy_density", "Strain energy density", "J/m^3", 1},
    {FieldQuantity::safety_factor, "safety_factor", "Safety factor", "", 1},
    {FieldQuantity::reaction, "reaction", "Reaction", "N", 3},
    {FieldQuantity::velocity, "velocity", "Velocity", "m/s", 3},
    {FieldQuantity::acceleration, "acceleration", "Acceleration", "m/s^2", 3},
};

// Null where no row has the index.
const FieldQuantityRow* field_quantity_at(std::int32_t index);

// Per node (0-based) the material index that its values are taken with: of the part, among those around it,
// that has the lowest index; -1 where there is none.
std::vector<std::int32_t> node_materials(const Model& model, const Mesh& mesh);

// Principal values and directions of a nodal stress.
struct Principal {
    std::array<double, 3> value;  // falling
    std::array<Vec3, 3> direction;
};

// The quantities of one frame; its principal stresses are found once, when one is asked for that needs them.
// Borrows all; for one thread.
class FieldValues {
public:
    // material: node_materials().
    FieldValues(const Model& model, std::span<const std::int32_t> material, const Frame& frame);

    // Values at all nodes, node_num × components; empty where the frame does not have what they are made of.
    std::vector<double> of(const FieldQuantityRow& row) const;

private:
    double scalar(FieldQuantity quantity, std::size_t node) const;

    const Model& model_;
    std::span<const std::int32_t> material_;
    const Frame& frame_;
    void find_principal() const;
    mutable std::vector<Principal> principal_;  // per node; empty where the frame has no stresses
};

}  // namespace kestralum
