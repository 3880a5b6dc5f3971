// The explicit analysis in time: the lowest mode of a cube that is held at x = 0, on one mesh, over one
// period with finer and finer steps. The mode is that of the mesh's own stiffness and lumped mass, found by a
// dense eigenvalue solver: u = φ a sin ωt is then exact but for the time step.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "app/orders/study.h"
#include "elements/linear_element.h"
#include "model/format.h"
#include "solver/dense_eigen.h"

namespace kestralum {

namespace {

struct Mode {
    std::vector<double> shape;  // 3 per node, largest entry 1
    double omega = 0;           // 1/s
    double fastest = 0;         // of all modes, 1/s
};

bool is_held(const Mesh& mesh, std::int64_t node) {
    return mesh.node(node)[0] == 0;
}

// The diagonal of the consistent mass, scaled to the whole: per node, kg.
std::vector<double> lumped_mass(const Mesh& mesh, double density) {
    const ElementType& type = element_type(mesh.element_type);
    std::vector<double> mass(mesh.node_num(), 0.0), me(type.nodes * type.nodes);
    double whole = 0, diagonal = 0;
    ElementPoints points;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        evaluate_points(type, mesh, e, points);
        type.mass(points.x.data(), me.data());
        for (const double m : me) whole += density * m;
        for (int i = 0; i < type.nodes; ++i) {
            mass[node_index(mesh.element(e)[i])] += density * me[i * type.nodes + i];
            diagonal += density * me[i * type.nodes + i];
        }
    }
    for (double& m : mass) m *= whole / diagonal;
    return mass;
}

void stiffness_of(const Mesh& mesh, std::int32_t e, HexahedronForm form, double* ke) {
    const ElementType& type = element_type(mesh.element_type);
    const Lame moduli = lame_of(study_material());
    ElementPoints points;
    evaluate_points(type, mesh, e, points);
    element_stiffness(type, points, {moduli.lambda + 2 * moduli.mu, moduli.lambda, moduli.mu}, form, ke);
}

// M^-½ K M^-½ of the n degrees of freedom that are free.
std::vector<double> scaled_stiffness(const Mesh& mesh, HexahedronForm form,
                                     std::span<const std::int32_t> equation, std::span<const double> mass,
                                     int n) {
    const int size = 3 * mesh.node_per_element();
    std::vector<double> A(std::size_t(n) * n, 0.0), ke(size * size);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        stiffness_of(mesh, e, form, ke.data());
        const auto nodes = mesh.element(e);
        for (int r = 0; r < size; ++r)
            for (int c = 0; c < size; ++c) {
                const auto a = node_index(nodes[r / 3]), b = node_index(nodes[c / 3]);
                const std::int32_t i = equation[3 * a + r % 3], j = equation[3 * b + c % 3];
                if (i >= 0 && j >= 0)
                    A[std::size_t(i) * n + j] += ke[size * r + c] / std::sqrt(mass[a] * mass[b]);
            }
    }
    return A;
}

bool find_mode(const Mesh& mesh, HexahedronForm form, Mode& out) {
    const std::vector<double> mass = lumped_mass(mesh, study_material().density);
    std::vector<std::int32_t> equation(mesh.dof_num(), -1);
    int n = 0;
    for (std::int32_t d = 0; d < mesh.dof_num(); ++d)
        if (!is_held(mesh, d / 3)) equation[d] = n++;
    std::vector<double> A = scaled_stiffness(mesh, form, equation, mass, n), values;
    if (!symmetric_eigen(n, A, values) || !(values.front() > 0)) return false;
    out.omega = std::sqrt(values.front());
    out.fastest = std::sqrt(values.back());
    out.shape.assign(mesh.dof_num(), 0.0);
    double largest = 0;
    for (std::int32_t d = 0; d < mesh.dof_num(); ++d) {
        if (equation[d] < 0) continue;
        out.shape[d] = A[equation[d]] / std::sqrt(mass[d / 3]);
        largest = std::max(largest, std::abs(out.shape[d]));
    }
    for (double& v : out.shape) v /= largest;
    return true;
}

// The model that starts from rest's place with the mode's velocities, one record each.
Model swinging_model(const Mesh& mesh, HexahedronForm form, const Mode& mode, double amplitude) {
    Model model = cube_model(mesh, form, study_material());
    BoundaryCondition clamp;
    clamp.name = "clamp";
    clamp.kind = Selection::plane;
    model.boundary_conditions = {clamp};
    for (std::size_t d = 0; d < mode.shape.size(); ++d) {
        const Vec3 x = triple(mesh.coordinates, static_cast<std::int64_t>(d / 3));
        VelocityRecord record;
        record.kind = VelocitySelection::volume;
        record.axis = static_cast<std::int32_t>(d % 3);
        record.velocity.start = amplitude * mode.omega * mode.shape[d];
        record.velocity.text = formatted("%.17g", record.velocity.start);
        record.box = {x[0], x[0], x[1], x[1], x[2], x[2]};
        if (mode.shape[d] != 0) model.explicit_tables.initial_velocities.push_back(std::move(record));
    }
    return model;
}

// Largest difference from the exact motion over the frames, as a share of the amplitude.
double motion_error(const Run& run, const Mode& mode, double amplitude) {
    double worst = 0;
    for (const auto& frame : run.results) {
        const double factor = amplitude * std::sin(mode.omega * frame->n_freq);
        for (std::size_t n = 0; n < run.node_of.size(); ++n)
            for (std::size_t c = 0; c < 3; ++c)
                worst = std::max(worst, std::abs(frame->mode_vec[3 * std::size_t(run.node_of[n]) + c] -
                                                 factor * mode.shape[3 * n + c]));
    }
    return worst / amplitude;
}

// ½ v·M v + ½ u·K u of a frame, J.
double energy_of(const Run& run, const Frame& frame, HexahedronForm form) {
    const Mesh& mesh = run.mesh;
    const ElementType& type = element_type(mesh.element_type);
    const std::vector<double> mass = lumped_mass(mesh, study_material().density);
    double sum = 0;
    for (std::size_t d = 0; d < frame.velocity.size(); ++d)
        sum += 0.5 * mass[d / 3] * double{frame.velocity[d]} * double{frame.velocity[d]};
    std::vector<double> ke(9 * type.nodes * type.nodes);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        stiffness_of(mesh, e, form, ke.data());
        const auto nodes = mesh.element(e);
        const int size = 3 * type.nodes;
        for (int r = 0; r < size; ++r)
            for (int c = 0; c < size; ++c)
                sum += 0.5 * ke[size * r + c] * frame.mode_vec[3 * node_index(nodes[r / 3]) + r % 3] *
                       frame.mode_vec[3 * node_index(nodes[c / 3]) + c % 3];
    }
    return sum;
}

// Largest difference of a frame's energy from the first one's, as a share of that.
double energy_error(const Run& run, HexahedronForm form) {
    const double start = energy_of(run, *run.results.front(), form);
    double worst = 0;
    for (const auto& frame : run.results)
        worst = std::max(worst, std::abs(energy_of(run, *frame, form) / start - 1));
    return worst;
}

// Of the analysis' own balance of kinetic energy and the work of its forces.
double balance_error(const Run& run) {
    double worst = 0;
    for (std::size_t row = 0; row < run.history.rows(); ++row)
        worst = std::max(worst, std::abs(run.history.value(row, "drift")));
    return worst;
}

// One element on one kind of mesh.
bool study_steps(Study& study, const StudyElement& of, Distortion distortion) {
    constexpr double amplitude = 1e-7;  // m: strains so small that they change nothing
    const Mesh mesh = cube_mesh(of.kind, of.degree > 1 ? 2 : 3, distortion);
    Mode mode;
    if (!find_mode(mesh, of.form, mode)) {
        study.progress.error("orders: explicit: no mode of the %s", of.element);
        return false;
    }
    Model model = swinging_model(mesh, of.form, mode, amplitude);
    // where elements are no parallelepipeds the internal strains follow with a share of a step: first order
    const bool follows = of.form == HexahedronForm::enhanced && distortion != Distortion::none;
    const double p = follows ? 1 : 2;
    RowSet rows("explicit", of, distortion,
                std::array<Quantity, 3>{{{"displacement", p}, {"energy", p}, {"energy balance", 0}}});
    // quarters of a period, the first step half of the stable one
    const double quarter = 0.5 * std::numbers::pi / mode.omega, stable = 2 / mode.fastest;
    int steps = static_cast<int>(std::ceil(quarter / (0.5 * stable)));
    for (int k = 0; k < (study.options.coarse ? 3 : 5); ++k, steps *= 2) {
        model.control.d_time = quarter / steps;
        model.control.end_time = 4 * quarter;
        model.control.output_frequency = steps;
        const auto run = study.analyse("explicit", model, study.settings);
        if (!run) return false;
        rows.add(model.control.d_time / stable, std::array{motion_error(*run, mode, amplitude),
                                                           energy_error(*run, of.form), balance_error(*run)});
    }
    rows.finish(study);
    return true;
}

}  // namespace

bool study_explicit(Study& study) {
    for (const StudyElement& of : study_elements())
        for (const Distortion distortion : {Distortion::none, Distortion::random}) {
            const bool told = distortion == Distortion::random || of.form == HexahedronForm::enhanced;
            if (told && !study_steps(study, of, distortion)) return false;
        }
    return true;
}

}  // namespace kestralum
