// The ranks of a team in an explicit run: who steps what, and what goes from one to another.
#pragma once

#include <mpi.h>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analysis/explicit/explicit_state.h"
#include "large/piece.h"
#include "large/piece_files.h"

namespace kestralum {

class ExplicitRanks : public ExplicitTeam {
public:
    // pieces: stresses are not gathered; every rank writes its piece of each frame.
    explicit ExplicitRanks(const Team& team, bool pieces = false) : team_(team), pieces_(pieces) {}
    ~ExplicitRanks() override;
    ExplicitRanks(const ExplicitRanks&) = delete;
    ExplicitRanks& operator=(const ExplicitRanks&) = delete;

    // Deals out the elements of the run's mesh. Collective.
    void deal_out(const Mesh& mesh);
    // The piece of this rank, and what it exchanges with its neighbours. Not collective.
    void cut(Job& job, ExplicitState& state);

    // With pieces: why the last frame could not be written, the same on every rank; empty: it is listed.
    const std::string& trouble() const { return trouble_; }
    // With pieces: the largest values of the last frame, into the report of every rank. Collective.
    void find_largest(Job& job) const;

    bool first() const override { return team_.first(); }
    void add_shared(double* values, int width) override;
    void sum(std::span<double> values) const override { team_.sum(values); }
    std::vector<std::int32_t> everywhere(std::span<const std::int32_t> here) const override;
    double largest(double value) const override { return team_.largest(value); }
    StableStep smallest(StableStep here) const override;
    std::vector<StepBound::Candidate> highest(std::span<const StepBound::Candidate> here,
                                              std::span<const std::int32_t> of_run) const override;
    int flags(int here, bool at_once) override;
    void share_first(StepFault& fault) const override;
    GatheredFrame gather(const Job& job, ExplicitState& state, std::span<const double> residual) override;

private:
    // Nodes that another rank has too, here, in the order of the run: what this rank has at them goes there.
    struct Neighbour {
        std::size_t first = 0;  // of them in out_, 3 for each
        std::vector<std::int32_t> nodes;
    };
    // What several ranks have of one node, in the order of the ranks.
    struct Source {
        std::int64_t at = -1;  // in in_, -1: this rank's own
    };
    // contact: nodes of the steps of the whole run that every rank has.
    void find_bound(const ExplicitState& state, std::span<const std::int32_t> contact);
    std::vector<int> ranks_of(std::int32_t node) const;  // that have a part in its forces, ascending
    void find_neighbours(const Mesh& mesh, const StepMesh& piece);
    void open_channels(std::span<const std::vector<std::int32_t>> leaving,
                       std::span<const std::int32_t> coming);
    void find_halo(const Mesh& mesh);
    PointResults points_of_piece(const PointResults& here, std::span<const char> gone_here,
                                 std::vector<double>& plastic, std::vector<char>& gone) const;
    void write_piece(const ExplicitState& state, std::vector<double> nodal, std::span<const char> gone_here,
                     std::span<const char> gone);

    const Team& team_;
    Partition partition_;
    NodeElements around_;  // of the run's mesh
    // Node of the run and rank: who has a node without an element at it, since a node there is tied to it or
    // a spring there holds it. Sorted.
    std::vector<std::pair<std::int32_t, int>> bound_;
    std::vector<char> everywhere_;  // per node of the run: every rank has it, for contact; empty: none
    Piece piece_;                   // what the averages at the nodes here are made of
    // forces at shared nodes
    std::vector<Neighbour> neighbours_;
    std::vector<double> out_, in_;  // 3 per node, neighbour after neighbour
    std::vector<MPI_Request> requests_;
    std::vector<std::int32_t> shared_nodes_;  // here
    std::vector<std::size_t> first_source_;   // of each, and their number
    std::vector<Source> sources_;
    // elements whose stresses go to and come from other ranks, rank after rank: places in piece_
    std::vector<std::vector<std::int32_t>> leaving_, coming_;
    std::vector<std::int32_t> counted_;  // of the elements here, their places in piece_
    MPI_Request flag_request_ = MPI_REQUEST_NULL;
    int flag_here_ = 0, flag_all_ = 0;
    // pieces of the frames
    bool pieces_;
    std::optional<PieceFrames> files_;
    std::vector<double> u_, nodal_;      // of the last frame, at the nodes of piece_
    std::vector<std::int32_t> removed_;  // of the elements of piece_
    std::string trouble_;
};

}  // namespace kestralum
