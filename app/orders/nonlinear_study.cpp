// The nonlinear static analysis at finite strain: a homogeneous deformation, which every element must meet to
// rounding, and a manufactured field with the body force that Hencky's law makes of it.
#include <optional>

#include "app/orders/study.h"

namespace kestralum {

namespace {

std::optional<FieldErrors> errors_of(const Study& study, const ExactSolution& exact, const StudyElement& of,
                                     const Mesh& mesh) {
    Model model = model_of(exact, mesh, of.form);
    model.mode_count = 2;  // increments
    model.iteration_limit = 20;
    Settings settings = study.settings;
    settings.nl_conv = 1e-9;
    const auto run = study.analyse("nonlinear", model, settings);
    if (!run) return {};
    return field_errors(exact, *run);
}

// Stretches from 0.85 to 1.3 with a shear and a rotation.
bool study_homogeneous(Study& study, const Lame& moduli) {
    constexpr Mat3 H{0.25, 0.10, -0.05, 0.20, -0.10, 0.08, 0.06, -0.12, 0.05};
    const ExactSolution exact{[&](std::size_t c, const Vec3& x) {
                                  return H[3 * c] * x[0] + H[3 * c + 1] * x[1] + H[3 * c + 2] * x[2];
                              },
                              [&](const Vec3&) { return H; }, nullptr,
                              [&](const Mat3& at) { return cauchy_stress(at, moduli); }};
    for (const StudyElement& of : study_elements()) {
        RowSet rows("nonlinear", of, Distortion::random,
                    std::array<Quantity, 3>{
                        {{"uniform displacement", 0}, {"uniform gradient", 0}, {"uniform stress", 0}}});
        const int n = of.degree > 1 ? 2 : 3;
        const auto e = errors_of(study, exact, of, cube_mesh(of.kind, n, Distortion::random));
        if (!e) return false;
        rows.add(1.0 / n, std::array{e->displacement, e->gradient, e->nodal_stress});
        rows.finish(study);
    }
    return true;
}

bool study_field(Study& study, const Lame& moduli) {
    const SineField field = sine_field(0.06);
    const ExactSolution exact{[&](std::size_t c, const Vec3& x) { return field.value(c, x); },
                              [&](const Vec3& x) { return field.gradient(x); },
                              [&](const Vec3& x) { return finite_body_force(field, x, moduli); },
                              [&](const Mat3& H) { return cauchy_stress(H, moduli); }};
    const MeshSizes sizes =
        study.options.coarse ? MeshSizes{{4, 8}, {2, 4}} : MeshSizes{{4, 8, 16}, {2, 4, 8}};
    const auto quantities = [](const StudyElement& of) {
        const double p = of.degree;
        return std::vector<Quantity>{{"displacement", p + 1}, {"gradient", p}, {"node stress", p}};
    };
    return for_meshes(study, "nonlinear", sizes, quantities,
                      [&](const StudyElement& of, const Mesh& mesh, std::span<double> errors) {
                          const auto e = errors_of(study, exact, of, mesh);
                          if (!e) return false;
                          errors[0] = e->displacement;
                          errors[1] = e->gradient;
                          errors[2] = e->nodal_stress;
                          return true;
                      });
}

}  // namespace

bool study_nonlinear(Study& study) {
    const Lame moduli = lame_of(study_material());
    return study_homogeneous(study, moduli) && study_field(study, moduli);
}

}  // namespace kestralum
