#include "analysis/frame_section.h"

#include <algorithm>
#include <array>
#include <vector>

#include "analysis/linear_frame.h"
#include "fields/section_forces.h"

namespace kestralum {

namespace {

// The nodal forces of the elements that a plane needs: those that it cuts, and those around held nodes of the
// side cut off.
class NeededForces {
public:
    NeededForces(const LinearFrame& frame, const Mesh& mesh, std::span<const char> beyond,
                 std::span<const char> held)
        : frame_(frame), values_(6 * std::size_t(element_type(mesh.element_type).points)) {
        for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
            std::size_t far = 0, wanted = 0;
            const auto nodes = mesh.element(e);
            for (const std::int32_t n : nodes) {
                far += beyond[node_index(n)] != 0;
                wanted += held[node_index(n)] != 0 && beyond[node_index(n)] == 0;
            }
            if (wanted > 0) around_held_.push_back(e);
            if (wanted > 0 || (far > 0 && far < nodes.size())) needed_.push_back(e);
        }
        if (frame.heated()) find_initial(mesh);
    }

    void of(std::int32_t e, std::span<double> f) const {
        const auto k = std::ranges::lower_bound(needed_, e) - needed_.begin();
        frame_.forces(e, initial_.empty() ? nullptr : initial_.data() + std::size_t(k) * values_, f);
    }

    // Their sums at the held nodes, 3 per node, N.
    std::vector<double> at_held(const Mesh& mesh, std::span<const char> held) const {
        std::vector<double> out(mesh.coordinates.size(), 0.0);
        std::array<double, 3 * most_nodes> f;
        for (const std::int32_t e : around_held_) {
            const auto nodes = mesh.element(e);
            of(e, std::span(f).first(3 * nodes.size()));
            for (std::size_t d = 0; d < 3 * nodes.size(); ++d)
                if (held[node_index(nodes[d / 3])]) out[3 * node_index(nodes[d / 3]) + d % 3] += f[d];
        }
        return out;
    }

private:
    // A mesh of the needed elements alone, so that temperatures are evaluated in no others.
    void find_initial(const Mesh& mesh) {
        Mesh some;
        some.element_type = mesh.element_type;
        some.coordinates = mesh.coordinates;
        for (const std::int32_t e : needed_) {
            const auto nodes = mesh.element(e);
            some.connectivity.insert(some.connectivity.end(), nodes.begin(), nodes.end());
            some.p_ele_part_id.push_back(mesh.p_ele_part_id[e]);
        }
        initial_ = frame_.initial_strains(some);
    }

    const LinearFrame& frame_;
    std::size_t values_;                              // of one element's strains
    std::vector<std::int32_t> needed_, around_held_;  // ascending
    std::vector<double> initial_;                     // of needed_
};

SectionSum exact_sum(const Run& run, const Frame& frame, const LinearFrame& linear,
                     const SectionPlane& plane) {
    const Mesh& mesh = run.mesh;
    const std::vector<char> beyond = nodes_beyond(mesh, plane);
    std::vector<char> held(mesh.node_num(), 0);
    for (const std::int32_t n : run.held_nodes) held[n] = 1;
    const NeededForces forces(linear, mesh, beyond, held);
    const std::vector<double> internal = forces.at_held(mesh, held);
    return section_forces({.mesh = mesh,
                           .element_forces = [&](std::int32_t e, std::span<double> f) { forces.of(e, f); },
                           .internal = internal,
                           .applied = frame.load,
                           .held = held},
                          plane);
}

}  // namespace

std::optional<FrameSection> frame_section(const Model& model, const Run& run, std::size_t frame,
                                          const SectionPlane& plane) {
    if (frame >= run.results.size()) return std::nullopt;
    const Frame& of = *run.results[frame];
    const std::size_t dofs = run.mesh.coordinates.size();
    if (of.mode_vec.size() != dofs || of.node_stress.size() != stress_groups * dofs) return std::nullopt;
    FrameSection out;
    const LinearFrame linear(model, run, of);
    out.exact =
        run.ana_type == AnalysisType::linear_static && linear.known() && of.load.size() == of.mode_vec.size();
    out.sum = out.exact ? exact_sum(run, of, linear, plane) : section_of_stresses(run.mesh, of, plane);
    out.sum.frame = static_cast<std::int32_t>(frame);
    return out;
}

}  // namespace kestralum
