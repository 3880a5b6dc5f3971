// The one model at a time that a program shows: what was read, what was computed of it, and the settings.
#pragma once

#include <memory>

#include "model/model.h"
#include "model/run.h"
#include "model/settings.h"

namespace kestralum {

// Model and run are never altered but replaced as a whole, so that a run under way keeps the model it was
// given.
struct ModelStore {
    std::shared_ptr<const Model> model = std::make_shared<const Model>(placeholder_model());
    std::shared_ptr<const Run> run;  // of `model`; null: none
    Settings settings;
};

}  // namespace kestralum
