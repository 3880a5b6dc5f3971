#include "conditions/loads.h"

#include <cmath>

#include "model/console.h"

namespace kestralum {

namespace {

constexpr double tolerance = 1e-7;  // m

std::int32_t equation_of(std::int32_t node, const AppliedForce& force, const DofNumbering& numbering) {
    const std::int32_t equation = numbering.dof_map[3 * node + force.axis];
    if (equation < 0) {
        console::print("### ERROR ###\n");
        console::print("Some force vectors are applied at fixed degree points.\n");
    }
    return equation;
}

bool inside(const AppliedForce& force, const double* x) {
    for (std::size_t c = 0; c < 3; ++c)
        if (!(x[c] > force.box[2 * c] - tolerance && x[c] < force.box[2 * c + 1] + tolerance)) return false;
    return true;
}

struct Loaded {
    std::vector<std::int32_t> equations;
    std::int32_t nodes = 0;
};

Loaded collect_area(const AppliedForce& force, const Mesh& mesh, const DofNumbering& numbering) {
    Loaded loaded;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (!inside(force, mesh.coordinates.data() + 3 * static_cast<std::ptrdiff_t>(n))) continue;
        ++loaded.nodes;
        const std::int32_t equation = equation_of(n, force, numbering);
        if (equation >= 0) loaded.equations.push_back(equation);
    }
    return loaded;
}

void spread(const AppliedForce& force, const Mesh& mesh, std::span<const double> stiffness,
            const std::vector<std::int32_t>& equations, std::vector<double>& F) {
    auto weight = [&](std::int32_t k) {
        return mesh.element_type == ElementKind::hexahedron ? stiffness[k] : 1.0;
    };
    double sum = 0, applied = 0;
    for (std::int32_t k : equations) sum += weight(k);
    for (std::int32_t k : equations) applied += F[k] = weight(k) * force.value / sum;
    console::print("   area_force=%.3e,force_value=%.3e\n", applied, force.value);
}

}  // namespace

LoadVector build_loads(std::span<const AppliedForce> forces, const Mesh& mesh, const DofNumbering& numbering,
                       std::span<const double> stiffness) {
    LoadVector out;
    out.F.assign(numbering.free_dofs.size(), 0.0);
    std::vector<AppliedForce> resolved(forces.begin(), forces.end());
    resolve_force_points(mesh, resolved);
    for (std::size_t f = 0; f < resolved.size(); ++f) {
        const AppliedForce& force = resolved[f];
        console::print("Force Number %zu\n", f + 1);
        std::int32_t reached = 0, on_fixed = 0;
        if (force.kind == ForceKind::node) {
            if (force.node > 0) {
                reached = 1;
                const std::int32_t k = equation_of(force.node - 1, force, numbering);
                if (k >= 0) out.F[k] = force.value;
                on_fixed = k < 0;
            }
        } else {
            const Loaded loaded = collect_area(force, mesh, numbering);
            reached = loaded.nodes;
            on_fixed = loaded.nodes - static_cast<std::int32_t>(loaded.equations.size());
            console::print("  points in area:%d\n", loaded.nodes);
            spread(force, mesh, stiffness, loaded.equations, out.F);
        }
        out.reached.push_back(reached);
        out.on_fixed.push_back(on_fixed);
    }
    return out;
}

}  // namespace kestralum
