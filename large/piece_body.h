// The body of a nonlinear run on the ranks of a team: each has the points of its own piece's elements and the
// rows of the tangent at its own nodes; displacements and forces of all nodes are on every rank.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "analysis/nonlinear/newton_body.h"
#include "elements/finite_elements.h"
#include "large/large_job.h"

namespace kestralum {

class PieceBody : public NewtonBody {
public:
    // Borrows the job, whose piece stands; the body is at rest.
    PieceBody(LargeJob& large, std::span<const PlasticMaterial> materials);

    bool goes_on() override { return team_.goes_on(job_); }
    bool prepare() override;
    bool assemble(const LoadSet* loads, double factor, Progress& lines) override;
    bool plan() override;
    std::vector<double> diagonal() const override;
    std::span<double> border(std::span<const RigidState> states) override;
    bool factor() override;
    bool solve(std::span<double> x) override;
    std::vector<double> resistance(const std::vector<double>& moved) const override;
    bool count_negative(std::int64_t& negative) override;
    std::string free_motion() override;

    bool update_stresses() override;
    std::vector<double> internal_forces() const override;
    bool set_heat(const LoadSet& loads, double factor) override;
    void commit() override { body_.commit(); }
    void restart() override { body_.restart(); }

    bool keeps() const override { return team_.first(); }
    bool store(std::shared_ptr<Frame> frame, IncrementReport& increment) override;
    std::vector<double> mises() const override;
    void find_largest() override;

    // What solved the last system, "conjugate gradients with multigrid, 18 iterations".
    std::string outcome() const;

private:
    const SparseKM& tangent() const { return large_.piece.map.empty() ? full_ : mapped_; }
    std::vector<float> gather_means(std::span<const float> here, std::size_t width) const;

    LargeJob& large_;
    const Team& team_;
    Job& job_;
    const Freedoms& freedoms_;
    const Piece& piece_;
    std::vector<std::int32_t> material_;  // per element here
    FiniteBody body_;                     // of the piece
    std::vector<double> place_;           // of all nodes
    NodeNeighbours neighbours_;
    SparseKM full_, mapped_;  // K of the nodes here, and through their constraint map
    DofNumbering free_;       // without the members of rigid bodies
    PieceBorder border_;
    double scale_ = 0;    // of rows that are not free, from K at rest
    LargeMethod method_;  // the direct one from where it has taken over
    PetscMat matrix_;
    std::unique_ptr<LargeSolver> solver_;
    std::unique_ptr<LargeBordered> bordered_;
    std::vector<double> nodal_;         // stresses of the last frame at the nodes here
    std::optional<PieceFrames> files_;  // where every rank writes its piece
};

}  // namespace kestralum
