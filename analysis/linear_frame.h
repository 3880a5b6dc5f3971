// The elements of a frame that a linear analysis has computed: strains, stresses and nodal forces at any
// later time, from the displacements, by the routines of the run itself.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "elements/linear_element.h"
#include "model/run.h"

namespace kestralum {

// Strains and stresses at the points of one element.
struct LinearElement {
    ElementPoints points;
    double strain[6 * most_points], stress[6 * most_points];  // points × 6
};

class LinearFrame {
public:
    // Borrows all. The model is the one that the run was made from.
    LinearFrame(const Model& model, const Run& run, const Frame& frame);

    // False where it cannot be told how the run found its stresses: it is no linear one, it was read from a
    // file, which has neither materials nor temperatures, or the frame has no displacements.
    bool known() const { return known_; }
    bool heated() const { return heated_; }
    HexahedronForm form() const { return form_; }

    // Initial strains ε0 (elements × points × 6) of a mesh with the run's nodes and some of its elements;
    // empty: none.
    std::vector<double> initial_strains(const Mesh& mesh) const;
    // Element e of the run's mesh; initial: ε0 of its points, null: none.
    void evaluate(std::int32_t e, const double* initial, LinearElement& out) const;
    // Its nodal forces, Σ w Bᵀ σ, 3·nodes, N.
    void forces(std::int32_t e, const double* initial, std::span<double> f) const;

private:
    bool find_terms();

    const Model& model_;
    const Run& run_;
    const Frame& frame_;
    const ElementType& type_;
    HexahedronForm form_;
    bool known_ = false, heated_ = false;
    std::vector<IsotropicModuli> moduli_;                // per part
    std::vector<std::pair<std::string, double>> terms_;  // of the frame's load case or combination
};

}  // namespace kestralum
