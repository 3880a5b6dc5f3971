// The result file "log\result_NAME": the whole model with its results as text, section by section,
// each closed by a line "%". Names that begin with "log\" lie in the log folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

// "log\result_" and what follows the last separator of the model file's name.
std::string result_file_name(std::string_view model_file_name);

enum class Publish {
    hold,  // the file stays under its temporary name beside the target
    now,   // the file takes the target's name
};

// Writes the model's definition with mesh and frames of the run into the run's log folder. The file has
// `columns` frames; those that the run does not have are written as zeros. The text goes to a temporary
// name beside the target first, so that the target is whole or absent. False when it could not be written
// or was cancelled; the reason has been printed and an earlier file of the name is as it was. A cancel from
// before the call does not count: a run that was stopped keeps what it has reached.
bool write_results(const Model& model, const Run& run, std::int32_t columns, Publish publish,
                   Progress& progress);

// The text of a result file of this run without frames: what a frames file begins with.
std::string definition_text(const Model& model, const Run& run);

// A run ends before its last write: the file held back takes the name where no earlier file has it
// and is removed otherwise.
void release_held_results(std::string_view model_file_name, std::string_view log_folder);

// A run as a file holds it, with what the file has of the model. run.origin.file_name is the file's name;
// run.origin.model_file_name and model.model_file_name are empty.
struct StoredRun {
    Model model;
    Run run;
};

// Reads a result file, a frames file or a list of pieces (results/pieces_reader.h); an empty name is asked
// for on standard input. model.mesh and run.mesh are both the file's mesh. Materials, parameters, springs,
// walls and control are not in the file: empty. A static analysis has one frame; columns of zeros behind it
// are left out. None when it could not be read or was cancelled; the reason has been printed.
std::optional<StoredRun> read_result_file(std::string_view file_name, std::string_view log_folder,
                                          Progress& progress);

// The text of a result file; `name` for what is said of it.
std::optional<StoredRun> read_result_text(std::string_view name, std::string_view text, Progress& progress);

// The displacement file "log\disp_NAME" that the explicit analysis writes: mesh and frames without the
// definition tables. Where its mesh is that of `own` (may be null), whatever the numbering of the nodes, the
// model is `own` and the frames get the times of its control; otherwise the model is the mesh alone, as one
// part without a material, and the times are 0. None as above.
std::optional<StoredRun> read_displacement_file(std::string_view file_name, std::string_view log_folder,
                                                const Model* own, Progress& progress);

}  // namespace kestralum
