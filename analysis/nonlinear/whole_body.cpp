#include "analysis/nonlinear/whole_body.h"

#include <algorithm>

#include "analysis/nonlinear/body_results.h"

#include "elements/element_type.h"
#include "model/format.h"
#include "system/support_springs.h"
#include "system/transformed.h"

namespace kestralum {

WholeBody::WholeBody(Job& job, FiniteBody& body, const Freedoms& freedoms)
    : NewtonBody(body.u),
      job_(job),
      body_(body),
      freedoms_(freedoms),
      rigid_(freedoms.rigid),
      free_(freedoms.numbering) {
    body.rigid = rigid_.elements_inside(body.mesh);
}

namespace {

// Entry numbers in place of values (exact below 2^53) go through an elimination: where each entry that stays
// comes from.
std::vector<std::int64_t> entry_numbers(SparseKM& km) {
    std::vector<std::int64_t> out(km.K_value.size());
    for (std::size_t k = 0; k < out.size(); ++k) out[k] = static_cast<std::int64_t>(km.K_value[k]);
    return out;
}

}  // namespace

bool WholeBody::prepare() {
    neighbours_ = neighbours_of_nodes(body_.mesh, freedoms_.node_elements, job_.progress);
    count_overlap(neighbours_, full_, job_.progress);
    build_index(neighbours_, full_, job_.progress);
    if (!job_.goes_on()) return false;
    find_diagonals(full_);
    const DofNumbering& numbering = freedoms_.numbering;
    constrained_ = full_;
    constrained_.K_value.assign(full_.entries(), 0.0);
    transform(freedoms_.constraints.map, body_.threads, constrained_, job_.progress);
    if (!job_.goes_on()) return false;
    for (std::size_t k = 0; k < constrained_.K_value.size(); ++k)
        constrained_.K_value[k] = static_cast<double>(k);
    eliminate_fixed(numbering.dof_map, constrained_, job_.progress);
    kept_ = entry_numbers(constrained_);
    reduced_ = constrained_;
    if (!rigid_.empty()) {
        rigid_transform(rigid_, {}, body_.mesh, false, reduced_, free_, border_);
        for (std::int32_t dof : numbering.free_dofs) equation_.push_back(free_.dof_map[dof]);
    }
    kept_free_ = entry_numbers(reduced_);
    return true;
}

bool WholeBody::plan() {
    std::unique_ptr<Factor> free;
    if (reduced_.rows() > 0) {
        const double border = 2 * 8e-6 * reduced_.rows() * border_.nr;
        free = plan_factor(job_, reduced_, freedoms_.diag_num, {free_.free_dofs, 1, border, true});
        if (!free) return false;
    }
    factor_ = std::make_unique<BorderedFactor>(std::move(free), reduced_.rows(), border_.nr);
    return true;
}

bool WholeBody::assemble(const LoadSet* loads, double factor, Progress& lines) {
    const std::int32_t bad = assemble_km(
        body_.mesh, neighbours_,
        [&](std::int32_t e, double* ke, double*) { return finite_stiffness(body_, e, ke); }, body_.threads,
        full_, lines, MassStorage::none, "k=");
    if (bad >= 0) {
        error = flat_element(body_.mesh, bad);
        return false;
    }
    error = add_springs(job_.model, body_.mesh, freedoms_.node_elements, full_, full_.K_value);
    if (!error.empty()) return false;
    if (loads)
        add_follower_stiffness(*loads, body_.mesh, factor, Growth::with_time, job_.options.load_case, u,
                               adding_to(full_, full_.K_value));
    const ConstraintMap& map = freedoms_.constraints.map;
    if (!map.empty()) {
        mapped_ = full_;
        transform(map, body_.threads, mapped_, job_.progress);
        if (!job_.goes_on()) return false;  // a stop leaves tables that are not to be used
    }
    const std::vector<double>& values = map.empty() ? full_.K_value : mapped_.K_value;
    for (std::size_t k = 0; k < kept_.size(); ++k) constrained_.K_value[k] = values[kept_[k]];
    for (std::size_t k = 0; k < kept_free_.size(); ++k) reduced_.K_value[k] = values[kept_free_[k]];
    return true;
}

std::span<double> WholeBody::border(std::span<const RigidState> states) {
    fill_border(rigid_, states, body_.mesh, constrained_, freedoms_.numbering.free_dofs, equation_, false,
                border_);
    return border_.K_rr;
}

bool WholeBody::factor() {
    if (const Factor* free = factor_->free()) {
        job_.progress.print("[L] division:%d\n", free->division_count());
        job_.progress.print("[L]memory size=%10.1f[MB]\n", free->megabytes());
    }
    return factor_->factor(job_, job_.progress, reduced_, reduced_.K_value, border_.K_fr, border_.K_rr);
}

std::vector<double> WholeBody::resistance(const std::vector<double>& moved) const {
    std::vector<double> out(moved.size());
    multiply(full_, full_.K_value, moved, out, full_.rows(), 1, body_.threads);
    return out;
}

bool WholeBody::count_negative(std::int64_t& negative) {
    negative = factor_->negative_pivots();
    return true;
}

std::string WholeBody::free_motion() {
    const std::int32_t loose =
        factor_->free() ? find_free_motion(reduced_, reduced_.K_value, *factor_->free(), job_.progress) : -1;
    if (loose >= 0) {
        const std::int32_t dof = free_.free_dofs[loose];
        const double* x = &body_.mesh.coordinates[dof - dof % 3];
        return formatted("the body is free: the supports do not hold node %d at (%.6g, %.6g, %.6g) in %c",
                         dof / 3 + 1, x[0], x[1], x[2], "xyz"[dof % 3]);
    }
    if (!factor_->has_free_motion(border_.K_rr)) return {};
    return "the body is free: a motion of the rigid elements meets no resistance";
}

bool WholeBody::update_stresses() {
    const std::int32_t bad = kestralum::update_stresses(body_);
    if (bad < 0) return true;
    error = inverted_element(body_.mesh, bad);
    return false;
}

std::vector<double> WholeBody::internal_forces() const {
    return kestralum::internal_forces(body_, freedoms_.node_elements);
}

bool WholeBody::set_heat(const LoadSet& loads, double factor) {
    const std::vector<double> strain =
        thermal_strains(loads, job_.model, body_.mesh, factor, Growth::with_time, job_.options.load_case);
    body_.set_thermal(strain);
    return !strain.empty();
}

bool WholeBody::store(std::shared_ptr<Frame> frame, IncrementReport& increment) {
    const BodyResults results = results_of(body_, freedoms_.node_elements, job_.progress);
    frame->node_stress = results.nodal;
    frame->element_stress = results.stress;
    frame->element_strain = results.strain;
    frame->element_plastic = results.plastic;
    increment.plastic_share = plastic_share(body_);
    job_.run.results.push_back(std::move(frame));
    return true;
}

std::vector<double> WholeBody::mises() const {
    return mises_of(body_);
}

ElementForces WholeBody::element_forces() const {
    return [this](std::int32_t e, std::span<double> f) {
        std::copy_n(body_.element_force.data() + e * std::ssize(f), f.size(), f.data());
    };
}

}  // namespace kestralum
