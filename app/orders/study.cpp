#include "app/orders/study.h"

#include <algorithm>
#include <cmath>

#include "analysis/analysis_table.h"
#include "app/orders/element_rule.h"
#include "model/format.h"
#include "model/model.h"

namespace kestralum {

namespace {

double squared(const Mat3& a) {
    double sum = 0;
    for (const double v : a) sum += v * v;
    return sum;
}

double work(const Strain6& stress, const Strain6& strain) {
    double sum = 0;
    for (std::size_t c = 0; c < 6; ++c) sum += stress[c] * strain[c];
    return sum;
}

// Component c of the stress at the node, as frames have it.
double nodal_stress(const Frame& frame, std::size_t node, std::size_t c) {
    return frame.node_stress[c / 3 * frame.mode_vec.size() + 3 * node + c % 3];
}

struct Sum {
    double error = 0, exact = 0;
    double relative() const { return std::sqrt(error / exact); }
};

}  // namespace

std::span<const StudyElement> study_elements() {
    static constexpr StudyElement elements[] = {
        {ElementKind::hexahedron, HexahedronForm::full, "hexahedron", "full", 1},
        {ElementKind::hexahedron, HexahedronForm::mean_dilatation, "hexahedron", "mean-dilatation", 1},
        {ElementKind::hexahedron, HexahedronForm::enhanced, "hexahedron", "enhanced", 1},
        {ElementKind::tetrahedron4, HexahedronForm::full, "tetrahedron4", "full", 1},
        {ElementKind::tetrahedron10, HexahedronForm::full, "tetrahedron10", "full", 2},
    };
    return elements;
}

std::optional<Run> Study::analyse(const char* word, const Model& model, const Settings& with) const {
    SilentProgress silent(progress);
    RunOptions run_options;
    run_options.log_folder = options.log_folder;
    Run run = find_analysis(word)->analyse(model, with, run_options, silent);
    if (run.report.status == RunStatus::done && !run.results.empty()) return run;
    if (progress.cancelled()) return {};
    const auto& errors = run.report.remarks.errors;
    progress.error("orders: %s: %s", word, errors.empty() ? "the run ended early" : errors.front().c_str());
    return {};
}

Material study_material() {
    Material steel;
    steel.name = "STEEL";
    steel.density = 7800;
    steel.young = 2e11;
    steel.poisson = 0.3;
    return steel;
}

Model cube_model(const Mesh& mesh, HexahedronForm form, const Material& material) {
    Model model;
    model.source = ModelSource::model_file;
    model.model_file_name = "orders.txt";
    model.materials = {material};
    model.parts.resize(1);
    model.parts[0].name = "CUBE";
    model.parts[0].material_name = material.name;
    model.hexahedra = form;
    model.mesh = mesh;
    return model;
}

BoundaryCondition support_of(const char* set, const SupportOptions& options) {
    BoundaryCondition support;
    support.name = set;
    support.set_name = set;
    support.kind = Selection::volume;
    support.box = {0, 1, 0, 1, 0, 1};
    support.options = options;
    support.options.given = true;
    return support;
}

bool for_meshes(
    Study& study, const char* analysis, const MeshSizes& sizes,
    const std::function<std::vector<Quantity>(const StudyElement& of)>& of_element,
    const std::function<bool(const StudyElement& of, const Mesh& mesh, std::span<double> errors)>& of_mesh) {
    for (const StudyElement& of : study_elements())
        for (const Distortion distortion : {Distortion::smooth, Distortion::random}) {
            if (study.options.coarse && distortion == Distortion::smooth) continue;
            const std::vector<Quantity> quantities = of_element(of);
            RowSet rows(analysis, of, distortion, quantities);
            std::vector<double> errors(quantities.size());
            for (const int n : of.degree > 1 ? sizes.quadratic : sizes.linear) {
                if (!of_mesh(of, cube_mesh(of.kind, n, distortion), errors)) return false;
                rows.add(1.0 / n, errors);
            }
            rows.finish(study);
        }
    return true;
}

RowSet::RowSet(const char* analysis, const StudyElement& of, Distortion distortion,
               std::span<const Quantity> quantities) {
    for (const Quantity& quantity : quantities) {
        OrdersRow& row = rows_.emplace_back();
        row.analysis = analysis;
        row.element = of.element;
        row.formulation = of.formulation;
        row.mesh = distortion == Distortion::smooth   ? "smooth"
                   : distortion == Distortion::random ? "random"
                                                      : "regular";
        row.quantity = quantity.name;
        row.expected = quantity.expected;
    }
}

void RowSet::add(double h, std::span<const double> errors) {
    for (std::size_t q = 0; q < rows_.size(); ++q) {
        rows_[q].h.push_back(h);
        rows_[q].error.push_back(errors[q]);
    }
}

void Study::take(OrdersRow row) {
    std::string errors, orders;
    for (const double e : row.error) errors += formatted("%.1e ", e);
    for (const double p : row.order) orders += formatted("%.2f ", p);
    progress.summary("%-10s %-14s %-16s %-7s %-25s %-33s %-18s %-6s %s\n", row.analysis.c_str(),
                     row.element.c_str(), row.formulation.c_str(), row.mesh.c_str(), row.quantity.c_str(),
                     errors.c_str(), orders.c_str(),
                     row.expected == 0 ? "exact" : formatted("%.0f", row.expected).c_str(),
                     reaches_theory(row) ? "ok" : "below");
    rows.push_back(std::move(row));
}

void RowSet::finish(Study& to) {
    for (OrdersRow& row : rows_) {
        for (std::size_t k = 1; k < row.h.size() && row.expected > 0; ++k)
            row.order.push_back(std::log(row.error[k - 1] / row.error[k]) /
                                std::log(row.h[k - 1] / row.h[k]));
        to.take(std::move(row));
    }
    rows_.clear();
}

Model model_of(const ExactSolution& exact, const Mesh& mesh, HexahedronForm form) {
    Model model = cube_model(mesh, form, study_material());
    SupportOptions moved;
    for (std::size_t c = 0; c < 3; ++c) {
        moved.fixed[c] = true;
        moved.displacement[c] = {"exact", false, [u = exact.u, c](const double* x, double) {
                                     return u(c, {x[0], x[1], x[2]});
                                 }};
    }
    model.boundary_conditions = {support_of("boundary", moved)};
    if (!exact.body_force) return model;
    std::vector<double> force(mesh.coordinates.size(), 0.0);
    for_points(mesh, [&](const RulePoint& p) {
        const Vec3 f = exact.body_force(p.x);
        for (std::size_t i = 0; i < p.nodes.size(); ++i)
            for (std::size_t c = 0; c < 3; ++c)
                force[3 * node_index(p.nodes[i]) + c] += p.weight * p.N[i] * f[c];
    });
    std::vector<char> held(mesh.coordinates.size() / 3, 0);
    for (const std::int32_t n : mesh.sets.front().nodes) held[n] = 1;
    for (std::size_t d = 0; d < force.size(); ++d) {
        if (held[d / 3]) continue;
        AppliedForce record;
        record.name = "body";
        record.axis = static_cast<std::int32_t>(d % 3);
        record.value = force[d];
        record.point = triple(mesh.coordinates, static_cast<std::int64_t>(d / 3));
        model.forces.push_back(std::move(record));
    }
    return model;
}

FieldErrors field_errors(const ExactSolution& exact, const Run& run) {
    const Frame& frame = *run.results.back();
    const Lame moduli = lame_of(study_material());
    Sum displacement, gradient, energy, stress;
    for_points(run.mesh, [&](const RulePoint& p) {
        const Vec3 u = p.value(frame.mode_vec);
        for (std::size_t c = 0; c < 3; ++c) {
            const double value = exact.u(c, p.x);
            displacement.error += p.weight * (u[c] - value) * (u[c] - value);
            displacement.exact += p.weight * value * value;
        }
        const Mat3 H = exact.gradient(p.x);
        Mat3 off = p.gradient(frame.mode_vec);
        for (std::size_t i = 0; i < 9; ++i) off[i] -= H[i];
        gradient.error += p.weight * squared(off);
        gradient.exact += p.weight * squared(H);
        const Strain6 strain = strain_of(H), strain_off = strain_of(off);
        energy.error += p.weight * work(stress_of(strain_off, moduli), strain_off);
        energy.exact += p.weight * work(stress_of(strain, moduli), strain);
        const Strain6 sigma = exact.stress(H);
        for (std::size_t c = 0; c < 6; ++c) {
            double value = 0;
            for (std::size_t i = 0; i < p.nodes.size(); ++i)
                value += p.N[i] * nodal_stress(frame, node_index(p.nodes[i]), c);
            stress.error += p.weight * (value - sigma[c]) * (value - sigma[c]);
            stress.exact += p.weight * sigma[c] * sigma[c];
        }
    });
    return {displacement.relative(), gradient.relative(), energy.relative(), stress.relative()};
}

}  // namespace kestralum
