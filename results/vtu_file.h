// A run as a VTK unstructured grid for ParaView.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "results/vtu_grid.h"

namespace kestralum {

// "log\NAME.vtu": the model file's name without its folder and its last ending.
std::string vtu_file_name(std::string_view model_file_name);

// Further data of a frame at its nodes.
struct PointField {
    std::string name;  // as it may stand in XML
    int components = 1;
    std::vector<double> values;  // node_num × components
};
using PointFields = std::function<std::vector<PointField>(const Frame& frame)>;

// Writes frame 1 of the results, or every mode of an eigen analysis (its fields named
// displacement_mode001_84.3Hz and so on): XML with raw appended data (version 1.0, 64-bit block sizes, this
// machine's byte order). Cells: 12 (hexahedron), 10 and 24 (tetrahedra), in VTK's node order, and 5
// (triangle) for STL facets. Point data: displacement (m), stress and strain (6 components xx yy zz
// xy yz zx, N/m^2), mises (N/m^2); cell data: part and material index; `more` behind them. The file takes its
// name when it is whole. False when it cannot be written or was cancelled; the reason has been printed.
bool write_vtu(const Model& model, const Run& run, Progress& progress, const PointFields& more = {});

// One of the pieces that together are the grid of a run whose elements lie on several processes,
// "log\NAME_p0007.vtu", and the list of them that ParaView opens, "log\NAME.pvtu"; `run` has the elements and
// nodes of the piece, its fields are those of every piece; node: per node its number in the whole, from 1, as
// the point data "node". The piece is to take its name when those of all processes are whole, the list comes
// when they have. What went wrong, empty if nothing.
std::string vtu_piece_name(std::string_view model_file_name, int piece);
std::string pvtu_file_name(std::string_view model_file_name);
struct VtuPiece {
    const Model& model;
    const Run& run;
    std::span<const std::int32_t> node;
};
[[nodiscard]] std::string hold_vtu_piece(const VtuPiece& of, int piece, const Progress& progress,
                                         HeldFile& file);
[[nodiscard]] std::string write_pvtu(const VtuPiece& of, int pieces, const Progress& progress);

// Every frame of a history as "log\NAME_000001.vtu" and on, with the equivalent plastic strain as point
// data too and without the cells of elements that have been taken out, and "log\NAME.pvd", which lists them
// with their times (n_freq). False as above.
bool write_vtu_frames(const Model& model, const Run& run, Progress& progress, const PointFields& more = {});
std::string pvd_file_name(std::string_view model_file_name);

// The same frame by frame, for a run under way.
class VtuFrames {
public:
    // model and run stay where they are
    VtuFrames(const Model& model, const Run& run, PointFields more = {});
    // The file of the next frame. What went wrong, empty if nothing.
    [[nodiscard]] std::string add(const Frame& frame, const Progress& progress);
    // The list of the frames so far in place of the one before. What went wrong, empty if nothing.
    [[nodiscard]] std::string write_list(const Progress& progress) const;

private:
    const Model& model_;
    const Run& run_;
    std::string list_;
    std::size_t frames_ = 0;
    std::vector<std::int32_t> removed_;  // have no cell in grid_
    VtuGrid grid_;
    PointFields more_;
};

// The frames of a history whose elements lie on several processes, each as pieces with the fields that it has
// above and "node", "log\NAME_000001_p0007.vtu", and a list of them, "log\NAME_000001.pvtu", which tells in
// attributes the analysis ("nonlinear", "explicit") and the frame's load factor or time; "log\NAME.pvd" lists
// the frames. As for one piece what a frame has lost comes from Frame::removed, elements of the piece.
class VtuPieceFrames {
public:
    // what it is made of stays where it is; of.run has no frames
    VtuPieceFrames(const VtuPiece& of, int piece);
    // This process' piece of the next frame. What went wrong, empty if nothing, like all that follows.
    [[nodiscard]] std::string hold(const Frame& frame, const Progress& progress, HeldFile& file);
    // Of one process, when the pieces of this frame have their names: its list, then that of the frames. The
    // list of an earlier run goes with the first frame.
    [[nodiscard]] std::string write_lists(int pieces, const Progress& progress);

private:
    VtuPiece of_;
    int piece_;
    std::string list_;
    std::size_t frames_ = 0;
    double value_ = 0;                   // of the last frame
    std::vector<std::int32_t> removed_;  // have no cell in grid_
    VtuGrid grid_;
};

}  // namespace kestralum
