// Supports, loads and what else acts on a model, each record in words with its numbers. No Qt here.
#pragma once

#include <string>
#include <vector>

#include "model/model.h"

namespace kestralum {

struct ConditionWords {
    std::string kind, name, words;  // "Support", "CLAMP", "holds x, y and z on …"
};

// In the order of the model's tables: supports, forces, loads, rigid elements with their forces and springs,
// ties, load combinations; of explicit runs velocities, walls and contacts.
std::vector<ConditionWords> condition_words(const Model& model);

}  // namespace kestralum
