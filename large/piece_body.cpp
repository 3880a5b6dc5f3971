#include "large/piece_body.h"

#include <array>
#include <utility>

#include "analysis/nonlinear/body_results.h"
#include "analysis/nonlinear/increments.h"
#include "elements/element_type.h"
#include "system/support_springs.h"
#include "system/transformed.h"

namespace kestralum {

PieceBody::PieceBody(LargeJob& large, std::span<const PlasticMaterial> materials)
    : NewtonBody(place_),
      large_(large),
      team_(large.team),
      job_(large.job),
      freedoms_(large.system.freedoms),
      piece_(large.piece),
      material_(element_materials(large.job.model, large.piece.mesh)),
      body_{large.piece.mesh, material_, materials},
      place_(large.job.mesh().dof_num(), 0.0),
      free_(large.system.freedoms.numbering),
      method_(method_for_border(large)) {
    body_.form = job_.hexahedra();
    body_.rigid = members_here(freedoms_.rigid, piece_).elements_inside(piece_.mesh);
    body_.start();
    if (large.pieces) files_.emplace(team_, job_, piece_);
    if (!freedoms_.rigid.empty()) leave_members_out(freedoms_.rigid, free_);
}

// A rigid motion that nothing resists stalls the iteration and need not show in pivots: it is looked for
// here.
bool PieceBody::prepare() {
    SilentProgress silent(job_.progress);
    DofNumbering& numbering = large_.system.freedoms.numbering;
    return team_.stage(job_, [&] {
        neighbours_ = neighbours_of_nodes(piece_.mesh, piece_.around, silent);
        count_overlap(neighbours_, full_, silent);
        build_index(neighbours_, full_, silent);
        if (!job_.goes_on()) return false;
        large_.system.border.nr = freedoms_.rigid.equations;
        const DofNumbering with_members = std::exchange(numbering, free_);
        const bool held = large_.system.equations() == 0 || check_held(large_);  // NewtonSolver tells of none
        numbering = with_members;
        return held;
    });
}

bool PieceBody::assemble(const LoadSet* loads, double factor, Progress&) {
    SilentProgress silent(job_.progress);
    const std::int32_t bad = assemble_km(
        piece_.mesh, neighbours_,
        [&](std::int32_t e, double* ke, double*) { return finite_stiffness(body_, e, ke); }, body_.threads,
        full_, silent, MassStorage::none, "");
    if (const std::int32_t first = team_.lowest(bad < 0 ? -1 : piece_.elements[bad]); first >= 0) {
        error = flat_element(job_.mesh(), first);
        return false;
    }
    const AddBlock add = adding_here(piece_, adding_to(full_, full_.K_value));
    error = all_springs(job_.model, job_.mesh(), freedoms_.node_elements, add);
    if (!error.empty()) return false;
    if (loads)
        add_follower_stiffness(*loads, job_.mesh(), factor, Growth::with_time, job_.options.load_case, u,
                               add);
    if (!piece_.map.empty()) {
        mapped_ = full_;
        transform(piece_.map, body_.threads, mapped_, silent);
    }
    return team_.goes_on(job_);  // a stop leaves tables that are not to be used
}

bool PieceBody::plan() {
    scale_ = scale_of(team_, freedoms_, piece_, tangent());
    const SparseKM& km = tangent();
    job_.progress.print("rank 0 of %d: %d of %d nodes, %d elements, %ld entries\n", team_.size(),
                        piece_.owned, job_.mesh().node_num(), piece_.mesh.element_num(),
                        static_cast<long>(km.row_start[piece_.owned_dofs()]));
    return team_.goes_on(job_);
}

std::vector<double> PieceBody::diagonal() const {
    const std::vector<double> all =
        gather_nodes(team_, large_.partition, owned_diagonal(piece_, tangent()), 3, true);
    std::vector<double> out;
    for (const std::int32_t dof : freedoms_.numbering.free_dofs) out.push_back(all[dof]);
    return out;
}

std::span<double> PieceBody::border(std::span<const RigidState> states) {
    border_ = border_at(team_, job_, freedoms_, piece_, tangent(), states);
    return border_.K_rr;
}

bool PieceBody::factor() {
    bordered_.reset();
    solver_.reset();
    const SparseKM& km = tangent();
    matrix_ = make_matrix(team_, freedoms_, piece_, {km, km.K_value}, scale_);
    set_rigid_motions(team_, job_.mesh(), freedoms_, piece_, matrix_, u);
    solver_ = std::make_unique<LargeSolver>(team_, job_, method_, job_.settings.solver_tolerance);
    bordered_ = std::make_unique<LargeBordered>(team_, job_, *solver_, border_);
    return solver_->set_up(matrix_) && bordered_->prepare();
}

bool PieceBody::solve(std::span<double> x) {
    const std::size_t nf = free_.free_dofs.size();
    std::vector<double> f(piece_.owned_dofs(), 0.0);
    for (std::size_t row = 0; row < f.size(); ++row) {
        const std::int32_t dof = 3 * piece_.nodes[row / 3] + static_cast<std::int32_t>(row % 3);
        if (const std::int32_t equation = free_.dof_map[dof]; equation >= 0) f[row] = x[equation];
    }
    if (!bordered_->solve(f, x.subspan(nf))) return false;
    const std::vector<double> all = gather_nodes(team_, large_.partition, f, 3, true);
    for (std::size_t k = 0; k < nf; ++k) x[k] = all[free_.free_dofs[k]];
    method_ = solver_->method();
    return true;
}

std::vector<double> PieceBody::resistance(const std::vector<double>& moved) const {
    return gather_nodes(team_, large_.partition,
                        multiply_owned(piece_, full_, full_.K_value, piece_.of_all(moved)), 3, true);
}

bool PieceBody::count_negative(std::int64_t& negative) {
    if (!solver_->look_for_negative()) return false;
    method_ = solver_->method();
    negative = solver_->negative_pivots() + bordered_->negative();
    return true;
}

std::string PieceBody::free_motion() {
    return bordered_->has_free_motion()
               ? "the body is free: a motion of the rigid elements meets no resistance"
               : "";
}

bool PieceBody::update_stresses() {
    body_.u = piece_.of_all(u);
    const std::int32_t bad = kestralum::update_stresses(body_);
    const std::int32_t first = team_.lowest(bad < 0 ? -1 : piece_.elements[bad]);
    if (first < 0) return true;
    error = inverted_element(job_.mesh(), first);
    return false;
}

std::vector<double> PieceBody::internal_forces() const {
    std::vector<double> here = kestralum::internal_forces(body_, piece_.around);
    here.resize(piece_.owned_dofs());
    return gather_nodes(team_, large_.partition, here, 3, true);
}

bool PieceBody::set_heat(const LoadSet& loads, double factor) {
    LoadSet heat;
    heat.temperatures = loads.temperatures;
    const std::vector<double> strain =
        thermal_strains(heat, job_.model, piece_.mesh, factor, Growth::with_time, job_.options.load_case);
    body_.set_thermal(strain);
    return team_.any(!strain.empty());
}

std::vector<float> PieceBody::gather_means(std::span<const float> here, std::size_t width) const {
    const std::vector<double> values(here.begin(), here.end());
    const std::vector<double> all = gather_elements(team_, large_.partition, piece_, values, width);
    return {all.begin(), all.end()};
}

bool PieceBody::store(std::shared_ptr<Frame> frame, IncrementReport& increment) {
    SilentProgress silent;  // a frame is whole, whatever is asked meanwhile
    BodyResults results = results_of(body_, piece_.around, silent);
    std::array<double, 2> volume = plastic_volume(body_, piece_.counted);
    team_.sum(volume);
    increment.plastic_share = volume[1] > 0 ? volume[0] / volume[1] : 0;
    std::string trouble;
    if (files_) {  // the load factor alone stays here
        trouble = files_->add(frame->n_freq, piece_.of_all(u), results.nodal);
        *frame = Frame();
        frame->n_freq = increment.factor;
    } else {
        frame->node_stress = gather_stresses(team_, large_.partition, piece_, results.nodal);
        frame->element_stress = gather_means(results.stress, 6);
        frame->element_strain = gather_means(results.strain, 6);
        frame->element_plastic = gather_means(results.plastic, 1);
    }
    nodal_ = std::move(results.nodal);
    if (team_.first()) job_.run.results.push_back(std::move(frame));
    return trouble.empty() || job_.fail(RunStatus::failed, trouble);
}

std::vector<double> PieceBody::mises() const {
    if (files_) return {};
    const auto points = static_cast<std::size_t>(element_type(piece_.mesh.element_type).points);
    return gather_elements(team_, large_.partition, piece_, mises_of(body_), points);
}

void PieceBody::find_largest() {
    kestralum::find_largest(team_, job_, piece_, piece_.of_all(u), nodal_);
}

std::string PieceBody::outcome() const {
    return solver_ ? solver_->outcome() : std::string();
}

}  // namespace kestralum
