#include "large/equations.h"

#include <algorithm>
#include <cmath>

#include "conditions/rigid_combines.h"
#include "model/format.h"
#include "system/support_springs.h"
#include "system/transformed.h"

namespace kestralum {

RigidSystem members_here(const RigidSystem& rigid, const Piece& piece) {
    RigidSystem out;
    if (rigid.empty()) return out;
    out.bodies.resize(rigid.bodies.size());
    for (const std::int32_t n : piece.nodes) out.body_of_node.push_back(rigid.body_of_node[n]);
    return out;
}

AddBlock adding_here(const Piece& piece, const AddBlock& add) {
    return [&piece, add](std::span<const std::int32_t> nodes, std::span<const double> block) {
        std::vector<std::int32_t> here;
        bool whole = false;
        for (const std::int32_t n : nodes) {
            here.push_back(piece.node_of[n]);
            whole = whole || (here.back() >= 0 && piece.whole[here.back()] != 0);
        }
        if (whole) add(here, block);
    };
}

namespace {

// K and M of the nodes here; false with the error set.
bool assemble_here(Job& job, const Freedoms& freedoms, const Elasticity& elasticity, const Piece& piece,
                   bool with_mass, PieceRows& out) {
    SilentProgress silent(job.progress);
    const PieceJob here(job, piece);
    const RigidSystem rigid = members_here(freedoms.rigid, piece);
    const NodeNeighbours neighbours = neighbours_of_nodes(piece.mesh, piece.around, silent);
    count_overlap(neighbours, out.km, silent);
    build_index(neighbours, out.km, silent);
    if (job.progress.cancelled()) return false;
    std::vector<double> node_mass;
    const std::int32_t bad =
        assemble_km(piece.mesh, neighbours, element_matrices(here.job, elasticity, &rigid, job.hexahedra()),
                    job.threads(), out.km, silent, with_mass ? MassStorage::pattern : MassStorage::nodes, "",
                    with_mass ? nullptr : &node_mass);
    if (bad >= 0) {
        out.status = RunStatus::failed;
        out.error = place_of_element(job, piece.elements[bad]) +
                    ": the Jacobian is not positive (flat or inverted element)";
        return false;
    }
    const std::int64_t masses = with_mass ? out.km.row_start[piece.owned_dofs()]
                                          : (node_mass.empty() ? 0 : neighbours.start[piece.owned]);
    const std::vector<double>& mass = with_mass ? out.km.M_value : node_mass;
    for (std::int64_t k = 0; k < masses; ++k) out.mass_sum += (with_mass ? 1 : 3) * mass[k];
    return !job.progress.cancelled();
}

// Of entries of a row of km: where the diagonal is.
double diagonal_entry(const SparseKM& km, std::int32_t row) {
    const auto first = km.col_index.begin() + km.row_start[row], last = first + km.row_count[row];
    const auto at = std::lower_bound(first, last, row);
    return at != last && *at == row ? km.K_value[at - km.col_index.begin()] : 0;
}

}  // namespace

PieceRows assemble_rows(Job& job, const Freedoms& freedoms, const Elasticity& elasticity, const Piece& piece,
                        bool with_mass) {
    PieceRows out;
    if (!assemble_here(job, freedoms, elasticity, piece, with_mass, out)) return out;
    out.error = all_springs(job.model, job.mesh(), freedoms.node_elements,
                            adding_here(piece, adding_to(out.km, out.km.K_value)));
    if (!out.error.empty()) {
        out.status = RunStatus::bad_input;
        return out;
    }
    SilentProgress silent(job.progress);
    transform(piece.map, job.threads(), out.km, silent);
    out.diagonal = owned_diagonal(piece, out.km);
    return out;
}

std::vector<double> owned_diagonal(const Piece& piece, const SparseKM& km) {
    std::vector<double> out;
    for (std::int32_t row = 0; row < piece.owned_dofs(); ++row) out.push_back(diagonal_entry(km, row));
    return out;
}

std::vector<char> free_rows(const Freedoms& freedoms, const Piece& piece) {
    std::vector<char> out(piece.owned_dofs());
    for (std::size_t row = 0; row < out.size(); ++row) {
        const std::int32_t node = piece.nodes[row / 3];
        out[row] = freedoms.numbering.dof_map[3 * node + static_cast<std::int32_t>(row % 3)] >= 0 &&
                   (freedoms.rigid.empty() || freedoms.rigid.body_of_node[node] < 0);
    }
    return out;
}

std::vector<double> multiply_owned(const Piece& piece, const SparseKM& km, std::span<const double> values,
                                   std::span<const double> x) {
    std::vector<double> y(piece.owned_dofs(), 0.0);
    for (std::size_t row = 0; row < y.size(); ++row)
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k)
            y[row] += values[k] * x[km.col_index[k]];
    return y;
}

namespace {

// One matrix through the bodies' motions, which are columns of values per node here.
void add_border(const Team& team, const Piece& piece, const SparseKM& km, std::span<const double> values,
                const std::vector<std::vector<double>>& motions, std::span<const char> free,
                std::vector<double>& fr, std::vector<double>& rr) {
    const std::size_t nr = motions.size(), rows = piece.owned_dofs();
    fr.assign(nr * rows, 0.0);
    rr.assign(nr * nr, 0.0);
    for (std::size_t k = 0; k < nr; ++k) {
        const std::vector<double> y = multiply_owned(piece, km, values, motions[k]);
        for (std::size_t row = 0; row < rows; ++row) {
            if (free[row]) fr[k * rows + row] = y[row];
            for (std::size_t j = 0; j < nr; ++j) rr[j * nr + k] += motions[j][row] * y[row];
        }
    }
    team.sum(rr);
    for (std::size_t j = 0; j < nr; ++j)
        for (std::size_t k = 0; k < j; ++k)
            rr[j * nr + k] = rr[k * nr + j] = 0.5 * (rr[j * nr + k] + rr[k * nr + j]);
}

}  // namespace

PieceBorder border_at(const Team& team, const Job& job, const Freedoms& freedoms, const Piece& piece,
                      const SparseKM& km, std::span<const RigidState> states) {
    PieceBorder out;
    const RigidSystem& rigid = freedoms.rigid;
    if (rigid.empty()) return out;
    out.nr = rigid.equations;
    // the members' displacements in each motion of the bodies, which is T's column
    std::vector<std::vector<double>> motions;
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const RigidBody& body = rigid.bodies[b];
        const RigidState state = states.empty() ? RigidState{} : states[b];
        for (const Vec6& motion : current_motions(body, state)) {
            std::vector<double>& u = motions.emplace_back(piece.mesh.dof_num(), 0.0);
            for (const std::int32_t n : body.members) {
                if (piece.node_of[n] < 0 || std::ranges::binary_search(body.fixed, n)) continue;
                const Vec3 arm = turned(state.R, minus(place_of(job.mesh(), n), body.pivot));
                const Vec3 turn = cross({motion[3], motion[4], motion[5]}, arm);
                for (std::size_t c = 0; c < 3; ++c) u[3 * piece.node_of[n] + c] = motion[c] + turn[c];
            }
        }
    }
    const std::vector<char> free = free_rows(freedoms, piece);
    add_border(team, piece, km, km.K_value, motions, free, out.K_fr, out.K_rr);
    if (!km.M_value.empty()) add_border(team, piece, km, km.M_value, motions, free, out.M_fr, out.M_rr);
    return out;
}

PieceBorder make_border(const Team& team, const Job& job, const Freedoms& freedoms, const Piece& piece,
                        const SparseKM& km) {
    PieceBorder out = border_at(team, job, freedoms, piece, km, {});
    if (out.nr == 0) return out;
    const RigidSystem& rigid = freedoms.rigid;
    add_combine_stiffness(job.model.rigid_combines, rigid, std::vector<RigidState>(rigid.bodies.size()), {},
                          out.K_rr);
    return out;
}

namespace {

// The entries of owned rows that couple free rows, in PETSc's numbers.
struct OwnedRows {
    const Piece& piece;
    const RowValues& rows;
    std::vector<char> free;        // of all nodes here
    std::vector<PetscInt> number;  // of all rows here

    // Entries of a row of which `take` gets number and value.
    template <typename Take>
    void each(std::int32_t row, Take&& take) const {
        const SparseKM& km = rows.km;
        for (std::int64_t k = km.row_start[row]; k < km.row_start[row] + km.row_count[row]; ++k)
            if (free[km.col_index[k]]) take(number[km.col_index[k]], rows.values[k]);
    }
};

OwnedRows owned_rows(const Freedoms& freedoms, const Piece& piece, const RowValues& rows) {
    OwnedRows out{piece, rows, {}, {}};
    for (std::size_t n = 0; n < piece.nodes.size(); ++n)
        for (std::int32_t c = 0; c < 3; ++c) {
            const std::int32_t node = piece.nodes[n];
            out.free.push_back(freedoms.numbering.dof_map[3 * node + c] >= 0 &&
                               (freedoms.rigid.empty() || freedoms.rigid.body_of_node[node] < 0));
            out.number.push_back(3 * piece.number[n] + c);
        }
    return out;
}

// The border rows stand behind all others, on the last rank; every rank has its part of their entries.
void set_border(const Team& team, const OwnedRows& owned, PetscInt first_row, PetscInt all_rows, Mat matrix) {
    const RowValues& rows = owned.rows;
    const PetscInt own = owned.piece.owned_dofs();
    std::vector<PetscInt> numbers(own);
    for (PetscInt r = 0; r < own; ++r) numbers[r] = first_row + r;
    for (PetscInt k = 0; k < rows.nr; ++k) {
        const PetscInt border = all_rows - rows.nr + k;
        const double* column = rows.fr.data() + std::size_t(k) * own;
        must(MatSetValues(matrix, own, numbers.data(), 1, &border, column, INSERT_VALUES));
        must(MatSetValues(matrix, 1, &border, own, numbers.data(), column, INSERT_VALUES));
        for (PetscInt j = 0; j < rows.nr && team.rank() == team.size() - 1; ++j)
            must(
                MatSetValue(matrix, border, all_rows - rows.nr + j, rows.rr[k * rows.nr + j], INSERT_VALUES));
    }
}

}  // namespace

PetscMat make_matrix(const Team& team, const Freedoms& freedoms, const Piece& piece, const RowValues& rows,
                     double scale) {
    const OwnedRows owned = owned_rows(freedoms, piece, rows);
    const bool last = team.rank() == team.size() - 1;
    const PetscInt own = piece.owned_dofs(), here = own + (last ? rows.nr : 0);
    PetscMat matrix;
    must(MatCreate(team.comm(), matrix.reset()));
    must(MatSetSizes(matrix, here, here, PETSC_DETERMINE, PETSC_DETERMINE));
    must(MatSetType(matrix, MATAIJ));
    if (rows.nr == 0) must(MatSetBlockSize(matrix, 3));
    PetscInt first = 0, all = 0;
    MPI_Allreduce(&here, &all, 1, MPIU_INT, MPI_SUM, team.comm());
    MPI_Exscan(&own, &first, 1, MPIU_INT, MPI_SUM, team.comm());
    if (team.first()) first = 0;
    std::vector<PetscInt> inside(here, 0), outside(here, 0);
    for (PetscInt row = 0; row < own; ++row) {
        inside[row] = 1;
        outside[row] = 0;
        if (owned.free[row])
            owned.each(row, [&](PetscInt column, double) {
                const bool mine = column >= first && column < first + own;
                inside[row] += mine && column != first + row;
                outside[row] += !mine;
            });
        (last ? inside : outside)[row] += rows.nr;
    }
    for (PetscInt row = own; row < here; ++row) {
        inside[row] = here;
        outside[row] = all - here;
    }
    must(MatXAIJSetPreallocation(matrix, 1, inside.data(), outside.data(), nullptr, nullptr));
    if (rows.nr == 0) must(MatSetBlockSize(matrix, 3));
    must(MatSetOption(matrix, MAT_NO_OFF_PROC_ENTRIES, rows.nr == 0 ? PETSC_TRUE : PETSC_FALSE));
    std::vector<PetscInt> columns;
    std::vector<double> values;
    for (PetscInt row = 0; row < own; ++row) {
        columns.clear();
        values.clear();
        if (owned.free[row])
            owned.each(row, [&](PetscInt column, double value) {
                columns.push_back(column);
                values.push_back(value);
            });
        else {
            columns.push_back(first + row);
            values.push_back(scale);
        }
        const PetscInt number = first + row;
        must(MatSetValues(matrix, 1, &number, static_cast<PetscInt>(columns.size()), columns.data(),
                          values.data(), INSERT_VALUES));
    }
    if (rows.nr > 0) set_border(team, owned, first, all, matrix);
    must(MatAssemblyBegin(matrix, MAT_FINAL_ASSEMBLY));
    must(MatAssemblyEnd(matrix, MAT_FINAL_ASSEMBLY));
    must(MatSetOption(matrix, MAT_SYMMETRIC, PETSC_TRUE));
    return matrix;
}

double scale_of(const Team& team, const Freedoms& freedoms, const Piece& piece, const SparseKM& km) {
    const std::vector<char> free = free_rows(freedoms, piece);
    double sum = 0;
    std::int64_t count = 0;
    for (std::int32_t row = 0; row < piece.owned_dofs(); ++row)
        if (free[row]) {
            sum += diagonal_entry(km, row);
            ++count;
        }
    return team.largest(count > 0 ? sum / static_cast<double>(count) : 0);
}

void set_rigid_motions(const Team& team, const Mesh& mesh, const Freedoms& freedoms, const Piece& piece,
                       Mat matrix, std::span<const double> u) {
    Vec3 centre;
    for (std::size_t c = 0; c < 3; ++c) centre[c] = 0.5 * (mesh.size_info[c] + mesh.size_info[c + 3]);
    std::vector<PetscVec> motions;
    for (std::size_t m = 0; m < 6; ++m) {
        PetscVec motion;
        must(MatCreateVecs(matrix, motion.reset(), nullptr));
        double* value = nullptr;
        must(VecGetArray(motion, &value));
        for (std::int32_t row = 0; row < piece.owned_dofs(); ++row) {
            const std::int32_t node = piece.nodes[row / 3];
            const Vec3 axis = freedoms.constraints.map.axis(3 * node + row % 3);
            const Vec3 moved = u.empty() ? Vec3{} : triple(u, node);
            const Vec3 turn = cross(plus(minus(place_of(mesh, node), centre), moved), axis);
            value[row] = m < 3 ? axis[m] : turn[m - 3];
        }
        must(VecRestoreArray(motion, &value));
        double before = 0, after = 0;
        must(VecNorm(motion, NORM_2, &before));
        for (const PetscVec& other : motions) {
            double share = 0;
            must(VecDot(motion, other, &share));
            must(VecAXPY(motion, -share, other));
        }
        must(VecNorm(motion, NORM_2, &after));
        if (!(after > 1e-8 * before)) continue;  // nodes on a line do not turn about it
        must(VecScale(motion, 1 / after));
        motions.push_back(std::move(motion));
    }
    std::vector<Vec> list(motions.begin(), motions.end());
    MatNullSpace space = nullptr;
    must(MatNullSpaceCreate(team.comm(), PETSC_FALSE, static_cast<PetscInt>(list.size()), list.data(),
                            &space));
    must(MatSetNearNullSpace(matrix, space));
    must(MatNullSpaceDestroy(&space));
}

}  // namespace kestralum
