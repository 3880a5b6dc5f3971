#include "analysis/element_values.h"

#include <algorithm>
#include <array>

#include "analysis/linear_frame.h"
#include "elements/finite_elements.h"

namespace kestralum {

namespace {

// The groups of one element.
void store(std::int32_t e, const double* stress, const double* strain, double plastic, std::size_t stride,
           std::vector<double>& out) {
    double* at = out.data() + 3 * std::size_t(e);
    for (std::size_t c = 0; c < 6; ++c) {
        at[c / 3 * stride + c % 3] = stress[c];
        at[(2 + c / 3) * stride + c % 3] = strain[c];
    }
    double* last = at + 4 * stride;
    last[0] = mises(stress);
    last[1] = plastic;
    last[2] = largest_principal(stress);
}

void find_linear(const LinearFrame& frame, const Mesh& mesh, int threads, std::vector<double>& out) {
    const int points = element_type(mesh.element_type).points;
    const std::vector<double> initial = frame.initial_strains(mesh);
    const std::size_t stride = out.size() / stress_groups, values = 6 * std::size_t(points);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        LinearElement at;
        frame.evaluate(e, initial.empty() ? nullptr : initial.data() + e * values, at);
        std::array<double, 6> stress{}, strain{};
        for (std::size_t k = 0; k < values; ++k) {
            stress[k % 6] += at.stress[k] / points;
            strain[k % 6] += at.strain[k] / points;
        }
        store(e, stress.data(), strain.data(), 0, stride, out);
    }
}

void take_stored(const Run& run, const Frame& frame, std::vector<double>& out) {
    const Mesh& mesh = run.mesh;
    const std::size_t stride = out.size() / stress_groups;
    std::vector<float> found;
    if (frame.element_strain.empty()) {
        found = mean_logarithmic_strains(mesh, frame.mode_vec, run.origin.settings.threads());
        for (const std::int32_t e : frame.removed) std::fill_n(&found[6 * std::size_t(e)], 6, 0.0F);
    }
    const std::vector<float>& strains = found.empty() ? frame.element_strain : found;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        std::array<double, 6> stress, strain;
        std::copy_n(&frame.element_stress[6 * std::size_t(e)], 6, stress.begin());
        std::copy_n(&strains[6 * std::size_t(e)], 6, strain.begin());
        const double plastic = frame.element_plastic.empty() ? 0.0 : frame.element_plastic[e];
        store(e, stress.data(), strain.data(), plastic, stride, out);
    }
}

}  // namespace

std::vector<double> element_values(const Model& model, const Run& run, const Frame& frame) {
    const std::size_t elements = run.mesh.element_num();
    std::vector<double> out;
    if (elements == 0 || frame.mode_vec.size() != run.mesh.coordinates.size()) return out;
    if (has_steps(run.ana_type)) {
        if (frame.element_stress.size() != 6 * elements) return out;
        out.resize(3 * stress_groups * elements);
        take_stored(run, frame, out);
        return out;
    }
    const LinearFrame linear(model, run, frame);
    if (!linear.known()) return out;
    out.resize(3 * stress_groups * elements);
    find_linear(linear, run.mesh, run.origin.settings.threads(), out);
    return out;
}

}  // namespace kestralum
