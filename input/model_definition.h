// The tables that a model file fills, worked on apart from the store until the whole file is read.
#pragma once

#include "model/model_store.h"

namespace kestralum {

struct ModelDefinition {
    std::vector<Material> materials;
    std::vector<Parameter> parameters;
    std::vector<Part> parts, parts_o;
    std::vector<BoundaryCondition> boundary_conditions;
    std::vector<AppliedForce> forces;
    std::vector<RigidElement> rigid_elements;
    std::vector<RigidForce> rigid_forces;
    std::vector<RigidCombine> rigid_combines;
    std::int32_t mode_count = 1;
    std::int32_t iteration_limit = 0;

    static ModelDefinition of(const ModelStore& store);
    void move_into(ModelStore& store) && noexcept;
};

// Number of the named element, the last of that name; -1 where there is none.
std::int32_t find_rigid_element(const std::vector<RigidElement>& elements, std::string_view name);

}  // namespace kestralum
