// How far displacements are drawn.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/run.h"
#include "view/display_state.h"

namespace kestralum::view {

struct ScaleRule {
    double max_length = 1;  // of the mesh, m
    double mode_scale = 1;
    bool auto_scale = true;
    Deformation deformation = Deformation::usual;
    double fixed = 1;             // the factor of Deformation::fixed
    double largest_of_steps = 0;  // largest displacement of all frames, m, for Deformation::automatic; 0: of
                                  // the vector
};

// Length of the largest nodal displacement in a vector of dof_num values; infinite where one is not
// finite.
double largest_displacement(std::span<const double> vector);

// Factor on the vector as drawn. Modes: the largest displacement becomes a fifth of max_length at mode
// scale 1. Static: 1, or with auto_scale a tenth of max_length where it would stay below 1/200 of it;
// steps: 1, or the same magnification with Deformation::automatic. Mode scale multiplies each but a fixed
// factor. 0 for a zero mode and for a vector that is not finite.
double scale_factor(AnalysisType ana_type, std::span<const double> vector, const ScaleRule& rule);

// Factors of one oscillation: cos(2π·k/20) for modes, 1 otherwise.
std::array<double, phase_count> phase_table(AnalysisType ana_type);

// out = coordinates + factor·vector (node_num × 3). An empty vector gives the coordinates.
void displace(std::span<const double> coordinates, std::span<const double> vector, double factor,
              std::vector<double>& out);

// The line below the legend: the factor in force.
std::string scale_text(double factor);

}  // namespace kestralum::view
