// The files for ParaView of a team's run: a piece from every rank, so that no rank ever has the stresses of
// all.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "large/piece.h"
#include "results/vtu_file.h"

namespace kestralum {

// The elements that a rank counts, and their nodes: together with those of the others each element once.
struct CountedPiece {
    Run run;                          // without frames
    std::vector<std::int32_t> nodes;  // here -> piece
    std::vector<std::int32_t> node;   // here -> run, from 1

    // Adds to run.results a frame of values at the nodes of the piece: u 3 each, nodal as in Frame.
    Frame& add_frame(std::span<const double> u, std::span<const double> nodal);
};
CountedPiece counted_piece(const Job& job, const Piece& piece);

// Writes a piece of the run from every rank and their list. A piece takes its name when all are whole.
// Collective; false with the status set.
bool write_pieces(const Team& team, Job& job, const CountedPiece& own);

// The frames of a nonlinear or explicit run, each written as it is reached.
class PieceFrames {
public:
    // Borrows team and job.
    PieceFrames(const Team& team, Job& job, const Piece& piece);
    PieceFrames(const PieceFrames&) = delete;
    PieceFrames& operator=(const PieceFrames&) = delete;

    // The frame at a load factor or time, whose pieces take their names when all are whole, and then the
    // lists; whatever is asked meanwhile. u, nodal: as in CountedPiece::add_frame(), sound at whole nodes;
    // removed: elements that have been taken out, of those that this rank counts, 0-based, ascending. What
    // went wrong first, the same on every rank; empty: the frame is listed. Collective.
    [[nodiscard]] std::string add(double value, std::span<const double> u, std::span<const double> nodal,
                                  std::span<const std::int32_t> removed = {});

private:
    const Team& team_;
    Job& job_;
    CountedPiece own_;
    VtuPieceFrames files_;
};

}  // namespace kestralum
