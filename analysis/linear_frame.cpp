#include "analysis/linear_frame.h"

#include <algorithm>

#include "system/linear_loads.h"

namespace kestralum {

namespace {

bool is_linear(const Run& run) {
    return run.ana_type == AnalysisType::linear_static || has_shapes(run.ana_type);
}

// Every part of the mesh has a material.
bool has_materials(const Model& model, const Mesh& mesh) {
    return std::ranges::all_of(mesh.p_ele_part_id, [&](std::int32_t p) {
        return p >= 0 && p < std::ssize(model.parts) && model.parts[p].material_id >= 0 &&
               model.parts[p].material_id < std::ssize(model.materials);
    });
}

LoadSet temperatures_of(const Model& model) {
    LoadSet out;
    for (const Load& load : model.loads)
        if (load.kind == LoadKind::temperature) out.temperatures.push_back(&load);
    return out;
}

}  // namespace

LinearFrame::LinearFrame(const Model& model, const Run& run, const Frame& frame)
    : model_(model),
      run_(run),
      frame_(frame),
      type_(element_type(run.mesh.element_type)),
      form_(hexahedron_form(model, run.origin.options)) {
    if (!is_linear(run) || !run.origin.file_name.empty() || !has_materials(model, run.mesh) ||
        frame.mode_vec.size() != run.mesh.coordinates.size() ||
        model.mesh.element_type != run.mesh.element_type)
        return;
    SilentProgress silent;
    const Elasticity elasticity = build_elasticity(model.materials, silent);
    for (const Part& part : model.parts) {
        const bool known = part.material_id >= 0 && part.material_id < std::ssize(model.materials);
        moduli_.push_back(known ? moduli(elasticity, part.material_id) : IsotropicModuli{});
    }
    known_ = run.ana_type != AnalysisType::linear_static || find_terms();
    heated_ = known_ && !terms_.empty() && !temperatures_of(model).temperatures.empty();
}

// Modes and buckling shapes have none: a temperature is not a part of their motion.
bool LinearFrame::find_terms() {
    SilentProgress silent;
    Run scratch;
    Job job{model_, run_.origin.settings, run_.origin.options, silent, scratch};
    std::vector<CaseTerms> frames;
    if (!find_cases(job, frames)) return false;
    const auto at = std::ranges::find(frames, frame_.name, &CaseTerms::name);
    if (at == frames.end()) return false;
    terms_ = at->terms;
    return true;
}

std::vector<double> LinearFrame::initial_strains(const Mesh& mesh) const {
    std::vector<double> out;
    if (!heated_) return out;
    const LoadSet temperatures = temperatures_of(model_);
    for (const auto& [name, factor] : terms_) {
        const std::vector<double> strain =
            thermal_strains(temperatures, model_, mesh, end_of_load, Growth::whole, name);
        if (!strain.empty()) out.resize(6 * strain.size(), 0.0);
        for (std::size_t p = 0; p < strain.size(); ++p)
            for (std::size_t c = 0; c < 3; ++c) out[6 * p + c] += factor * strain[p];
    }
    return out;
}

void LinearFrame::evaluate(std::int32_t e, const double* initial, LinearElement& out) const {
    const Mesh& mesh = run_.mesh;
    evaluate_points(type_, mesh, e, out.points);
    double u[3 * most_nodes];
    const auto nodes = mesh.element(e);
    for (std::size_t k = 0; k < nodes.size(); ++k)
        std::copy_n(frame_.mode_vec.data() + 3 * node_index(nodes[k]), 3, u + 3 * k);
    element_stresses(type_, out.points, moduli_[mesh.p_ele_part_id[e]], form_, u, initial, out.strain,
                     out.stress);
}

void LinearFrame::forces(std::int32_t e, const double* initial, std::span<double> f) const {
    LinearElement at;
    evaluate(e, initial, at);
    std::ranges::fill(f, 0.0);
    stress_forces(type_, at.points, form_, at.stress, f.data());
}

}  // namespace kestralum
