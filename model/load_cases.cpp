#include "model/load_cases.h"

#include <algorithm>

namespace kestralum {

std::vector<std::string> load_cases(const Model& model) {
    std::vector<std::string> cases{base_case};
    const auto add = [&](const std::string& name) {
        if (!name.empty() && std::ranges::find(cases, name) == cases.end()) cases.push_back(name);
    };
    for (const BoundaryCondition& record : model.boundary_conditions) add(record.options.case_name);
    for (const AppliedForce& record : model.forces) add(record.options.case_name);
    for (const RigidForce& record : model.rigid_forces) add(record.options.case_name);
    for (const Load& record : model.loads) add(record.options.case_name);
    return cases;
}

}  // namespace kestralum
