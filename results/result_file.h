// The result file "log\result_NAME": the whole model with its results as text, section by section,
// each closed by a line "%".
#pragma once

#include <string>

#include "model/model_store.h"

namespace kestralum {

// "log\result_" and what follows the last separator of the model file name.
std::string result_file_name(const ModelStore& store);

enum class Publish {
    hold,  // the file stays under its temporary name beside the target
    now,   // the file takes the target's name
};

// Writes the store. The text goes to a temporary name beside the target first, so that the target is
// whole or absent. False when it could not be written; the reason has been printed and an earlier
// file of the name is as it was.
bool write_results(const ModelStore& store, Publish publish, int threads);

// A run ends before its last write: the file held back takes the name where no earlier file has it
// and is removed otherwise.
void release_held_results(const ModelStore& store);

// Reads the store's result file name (asked for on the console when it is not known) into the
// process-wide store. False when it could not be read: the reason has been printed and the store is
// as it was.
bool read_results();

// The same for one store and file.
bool read_result_file(std::string_view file_name, ModelStore& store);

// The displacement file "log\\disp_NAME" that the explicit analysis writes: mesh and frames without the
// definition tables. Where it is not the mesh of the model in the store, that model's parts and
// conditions go. False as above.
bool read_displacements();
bool read_displacement_file(std::string_view file_name, ModelStore& store);

}  // namespace kestralum
