// Reads back the pieces that a run on several processes leaves for ParaView (results/vtu_file.h).
#pragma once

#include <optional>
#include <string_view>

#include "model/progress.h"
#include "results/result_file.h"

namespace kestralum {

// Whether the name is that of a list of pieces or of frames in pieces: it ends with ".pvtu" or ".pvd".
bool is_pieces_list(std::string_view file_name);

// The whole mesh of all pieces with their frames; nodes by the numbers that the pieces give them. The model
// is the mesh alone, its parts by their numbers, without materials and supports. Frequencies and load factors
// of shapes have the digits of the fields' names. A list of frames has a history with the mesh of its first
// frame; elements without a cell behind it have been taken out. What a list names lies beside it or below.
// None where a file cannot be read, is damaged, or the pieces are not those of one run; the reason has been
// printed.
std::optional<StoredRun> read_pieces(std::string_view file_name, std::string_view log_folder,
                                     Progress& progress);

}  // namespace kestralum
