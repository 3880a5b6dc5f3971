// The static analysis against a manufactured field: prescribed on the surface, with its body force inside.
#include <cmath>

#include "app/orders/element_rule.h"
#include "app/orders/study.h"
#include "elements/stresses.h"

namespace kestralum {

namespace {

// Relative error in L2 of the stresses that the element has at its own points, by its own weights.
double point_stress_error(const ExactSolution& exact, const Model& model, const Run& run) {
    SilentProgress silent;
    const ElementType& type = element_type(run.mesh.element_type);
    PointResults points;
    point_stresses(run.mesh, model.parts, build_elasticity(model.materials, silent),
                   run.results.back()->mode_vec, 1, points, silent, {.form = model.hexahedra, .initial = {}});
    double error = 0, whole = 0;
    for (std::size_t p = 0; p < points.weight.size(); ++p) {
        const auto element = run.mesh.element(static_cast<std::int64_t>(p) / type.points);
        const double* N = type.shape + static_cast<std::int64_t>(p) % type.points * type.nodes;
        Vec3 x{};
        for (std::size_t i = 0; i < element.size(); ++i)
            x = plus(x, times(N[i], place_of(run.mesh, node_index(element[i]))));
        const Strain6 sigma = exact.stress(exact.gradient(x));
        for (std::size_t c = 0; c < 6; ++c) {
            const double off = points.stress[6 * p + c] - sigma[c];
            error += points.weight[p] * off * off;
            whole += points.weight[p] * sigma[c] * sigma[c];
        }
    }
    return std::sqrt(error / whole);
}

}  // namespace

bool study_static(Study& study) {
    const Lame moduli = lame_of(study_material());
    const SineField field = sine_field(1e-3);
    const ExactSolution exact{[&](std::size_t c, const Vec3& x) { return field.value(c, x); },
                              [&](const Vec3& x) { return field.gradient(x); },
                              [&](const Vec3& x) { return field.body_force(x, moduli); },
                              [&](const Mat3& H) { return stress_of(strain_of(H), moduli); }};
    const MeshSizes sizes =
        study.options.coarse ? MeshSizes{{4, 8}, {3, 6}} : MeshSizes{{4, 8, 16}, {2, 4, 8}};
    const auto quantities = [](const StudyElement& of) {
        const double p = of.degree;
        return std::vector<Quantity>{
            {"displacement", p + 1}, {"energy norm", p}, {"point stress", p}, {"node stress", p}};
    };
    return for_meshes(study, "static", sizes, quantities,
                      [&](const StudyElement& of, const Mesh& mesh, std::span<double> errors) {
                          const Model model = model_of(exact, mesh, of.form);
                          const auto run = study.analyse("static", model, study.settings);
                          if (!run) return false;
                          const FieldErrors e = field_errors(exact, *run);
                          errors[0] = e.displacement;
                          errors[1] = e.energy;
                          errors[2] = point_stress_error(exact, model, *run);
                          errors[3] = e.nodal_stress;
                          return true;
                      });
}

}  // namespace kestralum
