#include "input/model_definition.h"

#include <utility>

namespace kestralum {

ModelDefinition ModelDefinition::of(const ModelStore& store) {
    return {store.materials,           store.parameters, store.parts,          store.parts_o,
            store.boundary_conditions, store.forces,     store.rigid_elements, store.rigid_forces,
            store.rigid_combines,      store.mode_count, store.iteration_limit};
}

void ModelDefinition::move_into(ModelStore& store) && noexcept {
    store.materials = std::move(materials);
    store.parameters = std::move(parameters);
    store.parts_o = std::move(parts_o);
    store.parts = std::move(parts);
    store.boundary_conditions = std::move(boundary_conditions);
    store.forces = std::move(forces);
    store.rigid_elements = std::move(rigid_elements);
    store.rigid_forces = std::move(rigid_forces);
    store.rigid_combines = std::move(rigid_combines);
    store.mode_count = mode_count;
    store.iteration_limit = iteration_limit;
}

std::int32_t find_rigid_element(const std::vector<RigidElement>& elements, std::string_view name) {
    std::int32_t found = -1;
    for (const RigidElement& element : elements)
        if (element.name == name) found = element.id;
    return found;
}

}  // namespace kestralum
