// What the studies of convergence share, and the studies: each appends its rows.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "app/orders/cube_mesh.h"
#include "app/orders/exact_field.h"
#include "app/orders/orders.h"
#include "model/run.h"
#include "model/settings.h"

namespace kestralum {

struct StudyElement {
    ElementKind kind;
    HexahedronForm form;
    const char *element, *formulation;
    int degree;  // of the displacements
};
std::span<const StudyElement> study_elements();

struct Study {
    const OrdersOptions& options;
    Settings settings;  // of one thread: on meshes so small others cost more than they give
    Progress& progress;
    std::vector<OrdersRow>& rows;

    // Takes a row that is whole, and tells it.
    void take(OrdersRow row);

    // Runs an analysis; nothing where it fails, which is told as an error, or a stop was asked for.
    std::optional<Run> analyse(const char* word, const Model& model, const Settings& with) const;
};

// Steel; density and moduli only set the scale.
Material study_material();
// A body of the material on the mesh, of one part.
Model cube_model(const Mesh& mesh, HexahedronForm form, const Material& material);
// A support of a set of the mesh.
BoundaryCondition support_of(const char* set, const SupportOptions& options);

// Cells along the cube's edge, mesh by mesh: of the elements with linear displacements and of the others.
struct MeshSizes {
    std::vector<int> linear, quadratic;
};

// Calls `of_mesh` for each element, distortion and mesh that the options ask for, with room for the errors of
// the quantities that `of_element` names, and hands the rows over. False where a call is.
struct Quantity {
    const char* name;
    double expected;
};
bool for_meshes(
    Study& study, const char* analysis, const MeshSizes& sizes,
    const std::function<std::vector<Quantity>(const StudyElement& of)>& of_element,
    const std::function<bool(const StudyElement& of, const Mesh& mesh, std::span<double> errors)>& of_mesh);

// The rows of one element, one per quantity, filled mesh by mesh.
class RowSet {
public:
    RowSet(const char* analysis, const StudyElement& of, Distortion distortion,
           std::span<const Quantity> quantities);
    // One error per quantity.
    void add(double h, std::span<const double> errors);
    // Finds the orders and hands the rows over.
    void finish(Study& to);

private:
    std::vector<OrdersRow> rows_;
};

// An exact solution of the cube, prescribed on its whole surface.
struct ExactSolution {
    std::function<double(std::size_t c, const Vec3& x)> u;
    std::function<Mat3(const Vec3& x)> gradient;
    std::function<Vec3(const Vec3& x)> body_force;  // null: none
    std::function<Strain6(const Mat3& H)> stress;
};
// The model whose answer it is: supports that move by u, and the consistent nodal forces of its body force.
Model model_of(const ExactSolution& exact, const Mesh& mesh, HexahedronForm form);

// Errors of a run's last frame in L2, each over that of the exact field: of the displacements, of their
// gradient, of the strain in the energy norm √∫ ε:D ε, of the stress that the nodes' means interpolate.
struct FieldErrors {
    double displacement = 0, gradient = 0, energy = 0, nodal_stress = 0;
};
FieldErrors field_errors(const ExactSolution& exact, const Run& run);

// False where an analysis did not end well.
bool study_static(Study& study);
bool study_eigen(Study& study);
bool study_nonlinear(Study& study);
bool study_explicit(Study& study);

}  // namespace kestralum
