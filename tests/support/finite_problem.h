// Nonlinear problems below the driver: any degree of freedom may be held, loads are nodal forces.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "analysis/nonlinear/newton.h"
#include "analysis/nonlinear/whole_body.h"
#include "solver/ordering.h"
#include "support/analysis_run.h"
#include "support/assembled.h"
#include "support/box_mesh.h"

namespace kestralum::testing {

class FiniteProblem {
public:
    // held(x, c): direction c of the node at x is held where it is
    FiniteProblem(Mesh mesh_in, const Material& record, const std::function<bool(const double*, int)>& held,
                  double tolerance = 1e-9, HexahedronForm form = HexahedronForm::full)
        : mesh(renumbered(std::move(mesh_in))),
          materials{j2_material(record, true)},
          material(mesh.element_num(), 0),
          body{mesh, material, materials, 2} {
        freedoms.node_elements = elements_of_nodes(mesh);
        freedoms.diag_num = measure_band(mesh);
        result.mesh = mesh;
        result.load.assign(mesh.dof_num(), 0.0);
        options.log_folder = folder.file("log");
        freedoms.numbering.dof_map.assign(mesh.coordinates.size(), -1);
        for (std::int32_t d = 0; d < mesh.dof_num(); ++d) {
            if (held(&mesh.coordinates[d / 3 * 3], d % 3)) continue;
            freedoms.numbering.dof_map[d] = static_cast<std::int32_t>(freedoms.numbering.free_dofs.size());
            freedoms.numbering.free_dofs.push_back(d);
        }
        body.form = form;
        body.start();
        newton.tolerance = tolerance;
    }

    // full: 3 per node, N, at load factor 1
    void start(const std::vector<double>& full) {
        for (std::int32_t d : freedoms.numbering.free_dofs) result.load[d] = full.empty() ? 0.0 : full[d];
        whole = std::make_unique<WholeBody>(job, body, freedoms);
        solver = std::make_unique<NewtonSolver>(job, *whole, freedoms, newton);
        loads.groups = {{.options = {}, .nodal = result.load, .rigid_forces = {}}};
        solver->set_loads(loads);
        ASSERT_TRUE(solver->prepare());
        loads.groups = {LoadGroup{{}, result.load, model.rigid_forces}};
        solver->set_loads(loads);
    }

    // Pulled along an axis by a uniform traction, N/m^2, on the side at the greatest z.
    void start_with_traction(std::size_t axis, double traction) { start(end_forces(mesh, axis, traction)); }

    // Displacement c of the node nearest to a place.
    double displacement(const std::array<double, 3>& place, std::size_t c) const {
        return body.u[3 * nearest_node(mesh, freedoms.node_elements, place) + c];
    }

    static Mesh renumbered(Mesh mesh) {
        SilentProgress silent;
        reorder_nodes(mesh, "LMAX", silent);
        return mesh;
    }

    TempFolder folder;
    SilentProgress silent;
    Mesh mesh;
    Freedoms freedoms;
    std::vector<PlasticMaterial> materials;
    std::vector<std::int32_t> material;
    FiniteBody body;
    Model model;
    Settings settings = analysis_settings();
    RunOptions options;
    Run result;
    NewtonOptions newton;
    Job job{model, settings, options, silent, result};
    LoadSet loads;
    std::unique_ptr<WholeBody> whole;
    std::unique_ptr<NewtonSolver> solver;
};

}  // namespace kestralum::testing
