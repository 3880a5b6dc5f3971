#include "analysis/static/static_report.h"

#include <algorithm>

#include "conditions/rigid_combines.h"
#include "system/reactions.h"

namespace kestralum {

std::vector<std::string> cases_of(std::span<const CaseTerms> frames) {
    std::vector<std::string> cases;
    for (const CaseTerms& frame : frames)
        for (const auto& [name, factor] : frame.terms)
            if (std::ranges::find(cases, name) == cases.end()) cases.push_back(name);
    return cases;
}

std::vector<double> less_loads(std::vector<double> internal, std::span<const char> wanted,
                               const LinearLoad& load) {
    for (std::size_t d = 0; d < internal.size(); ++d)
        if (wanted[d / 3]) internal[d] -= load.applied.nodal[d];
    return internal;
}

CaseReport report_case(Job& job, const Freedoms& freedoms, std::span<const double> residual,
                       const LinearLoad& load, std::span<const double> q, Frame& frame) {
    const RigidSystem& rigid = freedoms.rigid;
    CaseReport out;
    out.name = frame.name;
    std::vector<Vec6> bodies;
    for (std::size_t d = 0; d < load.applied.nodal.size(); ++d) out.applied[d % 3] += load.applied.nodal[d];
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        Vec6& body = bodies.emplace_back(
            spring_resistance(job.model.rigid_combines, rigid, static_cast<std::int32_t>(b), q));
        for (std::size_t c = 0; c < 6; ++c) body[c] -= load.applied.rigid[b][c];
        for (std::size_t c = 0; c < 3; ++c) out.applied[c] += load.applied.rigid[b][c];
    }
    frame.reaction.assign(frame.mode_vec.size(), 0.0);
    out.supports = support_reactions(job.model, job.mesh(), freedoms, residual, bodies, frame.mode_vec,
                                     Places::at_rest, {}, frame.reaction);
    out.reaction = sum_of(out.supports);
    return out;
}

void report_first_case(RunReport& report) {
    const CaseReport& first = report.cases.front();
    report.applied = first.applied;
    report.reaction = first.reaction;
    report.largest_displacement = first.largest_displacement;
    report.largest_mises = first.largest_mises;
    report.supports = first.supports;
}

}  // namespace kestralum
