#include "model/load_cases.h"

#include <algorithm>
#include <set>

namespace kestralum {

std::vector<std::string> case_names(const Model& model) {
    std::vector<std::string> cases;
    std::set<std::string> known;
    bool base = false;
    const auto add = [&](const std::string& name) {
        base = base || name.empty();
        if (!name.empty() && known.insert(name).second) cases.push_back(name);
    };
    for (const AppliedForce& record : model.forces) add(record.options.case_name);
    for (const RigidForce& record : model.rigid_forces) add(record.options.case_name);
    for (const Load& record : model.loads) add(record.options.case_name);
    for (const BoundaryCondition& record : model.boundary_conditions)
        if (std::ranges::any_of(record.options.displacement, &FieldExpression::given))
            add(record.options.case_name);
    if (base || cases.empty()) cases.insert(cases.begin(), base_case);
    return cases;
}

}  // namespace kestralum
