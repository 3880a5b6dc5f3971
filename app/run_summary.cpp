#include "app/run_summary.h"

#include <algorithm>

#include "elements/element_type.h"
#include "model/console.h"
#include "model/paths.h"
#include "results/displacement_file.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

using console::summary;

void print_end_token(const char* what, bool ended_at_end, const std::string& token, std::int64_t number) {
    if (!ended_at_end)
        summary(
            "note: the %s was read up to token %lld '%s', which is no keyword: what follows was not read\n",
            what, static_cast<long long>(number), token.c_str());
}

void print_notices(const Remarks& remarks) {
    for (const std::string& notice : remarks.notices) summary("note: %s\n", notice.c_str());
}

void print_dynamics(const ExplicitReport& d) {
    const ExplicitEnergies& e = d.energies;
    summary("%-22s %lld of %lld in %.3f s, %.1f a second, %.4g element-steps a second (%s)\n", "steps",
            static_cast<long long>(d.steps), static_cast<long long>(d.time_num - 1), d.loop_seconds,
            static_cast<double>(d.steps) / d.loop_seconds,
            static_cast<double>(d.steps) * static_cast<double>(d.elements) / d.loop_seconds, d.kernel);
    summary("%-22s %.6e s, time step %.6e s, stable step %.6e s, %lld frames\n", "time reached", d.time,
            d.d_time, d.stable_step, static_cast<long long>(d.frames));
    summary("%-22s kinetic %.6e, internal %.6e (plastic %.6e), damped %.6e J\n", "energy", e.kinetic,
            e.internal, e.plastic, e.damping);
    summary("%-22s loads %.6e, walls %.6e, contact %.6e, driven %.6e J\n", "work done", e.external, e.wall,
            e.contact, e.support);
    summary("%-22s %.3e of the largest energy\n", "energy drift", d.drift);
    summary("%-22s %.6e %.6e %.6e kg m/s\n", "momentum", d.momentum[0], d.momentum[1], d.momentum[2]);
    summary("%-22s %.6e %.6e %.6e kg m^2/s about the origin\n", "angular momentum", d.angular_momentum[0],
            d.angular_momentum[1], d.angular_momentum[2]);
}

void print_nonlinear(const NonlinearReport& n) {
    summary("%-9s %12s %10s %11s %14s %14s %12s\n", "increment", "load factor", "iterations", "E/F",
            "largest u [m]", "plastic volume", "work [J]");
    for (std::size_t k = 0; k < n.increments.size(); ++k) {
        const IncrementReport& i = n.increments[k];
        summary("%-9zu %12.6g %10d %11.3e %14.6e %13.2f%% %12.5e%s\n", k + 1, i.factor, i.iterations, i.ratio,
                i.largest_displacement, 100 * i.plastic_share, i.work, i.converged ? "" : "  not converged");
    }
    summary("%-22s %zu of %d increments, %lld iterations\n", "done", n.increments.size(), n.wanted,
            static_cast<long long>(n.iterations));
    const double per = n.iterations > 0 ? 1 / static_cast<double>(n.iterations) : 0;
    summary("%-22s assemble %.3f, factor %.3f, solve %.3f, stresses %.3f, gather %.3f\n",
            "seconds an iteration", n.seconds[0] * per, n.seconds[1] * per, n.seconds[2] * per,
            n.seconds[3] * per, n.seconds[4] * per);
}

void print_node_value(const char* title, const NodeValue& value, const char* unit) {
    summary("%-22s %.6e %s at node %d (%.6g, %.6g, %.6g)\n", title, value.value, unit, value.node,
            value.place[0], value.place[1], value.place[2]);
}

void print_stages(const RunReport& report) {
    summary("%-10s %10s %12s\n", "stage", "seconds", "peak [MB]");
    double total = 0;
    for (const Stage& stage : report.clock.stages()) {
        summary("%-10s %10.3f %12.1f\n", stage.name.c_str(), stage.seconds, stage.peak_megabytes);
        total += stage.seconds;
    }
    summary("%-10s %10.3f\n", "total", total);
}

void print_modes(const RunReport& report) {
    summary("%-6s %14s %10s   %s\n", "mode", "frequency [Hz]", "residual",
            "effective mass x y z [kg] and its share so far [%]");
    std::array<double, 3> sum{};
    for (std::size_t j = 0; j < report.modes.size(); ++j) {
        const ModeReport& mode = report.modes[j];
        summary("%-6zu %14.6f %10.1e  ", j + 1, mode.frequency, mode.residual);
        for (std::size_t c = 0; c < 3; ++c) {
            sum[c] += mode.effective_mass[c];
            summary(" %10.4g (%5.1f)", mode.effective_mass[c], 100 * sum[c] / report.total_mass);
        }
        summary("%s\n", mode.zero ? "  zero mode" : "");
    }
    if (report.check_frequency > 0)
        summary("modes below %.6g Hz: %lld found, %lld counted\n", report.check_frequency,
                static_cast<long long>(report.modes_found), static_cast<long long>(report.modes_counted));
    summary("%-22s %lld factorizations, %lld right-hand sides solved\n", "work",
            static_cast<long long>(report.factorizations), static_cast<long long>(report.solved_columns));
}

}  // namespace

void print_input_summary(const ModelReadReport& model, const AnalysisInfoReport& control) {
    print_notices(model.remarks);
    print_notices(control.remarks);
    print_end_token("model file", model.ended_at_end, model.end_token, model.end_token_number);
    if (control.status == AnalysisInfoStatus::read)
        print_end_token("control file", control.ended_at_end, control.end_token, control.end_token_number);
}

void print_run_summary(const ModelStore& store, const RunReport& report, const std::string& vtu) {
    print_notices(report.remarks);
    const bool dynamic = report.dynamics.time_num > 0;
    if (dynamic) {
        summary("%-22s %lld free of %d degrees of freedom, %d elements\n", "size",
                static_cast<long long>(report.free_dofs), store.mesh.dof_num, store.mesh.element_num());
        print_dynamics(report.dynamics);
        print_node_value("largest displacement", report.largest_displacement, "m");
        print_node_value("largest Mises stress", report.largest_mises, "N/m^2");
        summary("%-22s %.6e %.6e %.6e N\n", "reactions", report.reaction[0], report.reaction[1],
                report.reaction[2]);
    } else if (report.largest_displacement.node > 0) {
        summary("%-22s %lld free of %d degrees of freedom, %d elements, factor of %lld entries\n", "size",
                static_cast<long long>(report.free_dofs), store.mesh.dof_num, store.mesh.element_num(),
                static_cast<long long>(report.factor_entries));
        print_node_value("largest displacement", report.largest_displacement, "m");
        print_node_value("largest Mises stress", report.largest_mises, "N/m^2");
        summary("%-22s %.6e %.6e %.6e N\n", "applied loads", report.applied[0], report.applied[1],
                report.applied[2]);
        summary("%-22s %.6e %.6e %.6e N\n", "reactions", report.reaction[0], report.reaction[1],
                report.reaction[2]);
        if (report.nonlinear.wanted > 0)
            print_nonlinear(report.nonlinear);
        else
            summary("%-22s %.3e\n", "residual |Ku-F|/|F|", report.residual);
    }
    if (!report.modes.empty()) print_modes(report);
    if (report.negative_pivots > 0)
        summary("%-22s %lld\n", "negative pivots", static_cast<long long>(report.negative_pivots));
    print_stages(report);
    if (report.written) summary("%-22s %s\n", "results", paths::to_platform(result_file_name(store)).c_str());
    if (report.dynamics.displacements_written)
        summary("%-22s %s\n", "displacements", paths::to_platform(displacement_file_name(store)).c_str());
    if (report.dynamics.history_written || report.nonlinear.history_written)
        summary("%-22s %s\n", "history", paths::to_platform(history_file_name(store)).c_str());
    if (!vtu.empty()) summary("%-22s %s\n", "for ParaView", paths::to_platform(vtu).c_str());
}

void print_check(const ModelStore& store, const ModelCheck& check) {
    const Mesh& mesh = store.mesh;
    const auto& box = mesh.size_info;
    auto place = [](const char* title, const ElementPlace& e) {
        summary("%-22s %.6e m^3, element %d at (%.6g, %.6g, %.6g)\n", title, e.volume, e.element + 1,
                e.centre[0], e.centre[1], e.centre[2]);
    };
    summary("%-22s %d nodes, %d elements (%s), %zu parts, %zu materials\n", "model", mesh.node_num(),
            mesh.element_num(), element_type(mesh.element_type).name, store.parts.size(),
            store.materials.size());
    summary("%-22s %zu supports, %zu forces, %zu rigid elements, %zu rigid forces, %zu rigid combines\n",
            "conditions", store.boundary_conditions.size(), store.forces.size(), store.rigid_elements.size(),
            store.rigid_forces.size(), store.rigid_combines.size());
    summary("%-22s (%.6g, %.6g, %.6g) to (%.6g, %.6g, %.6g) m\n", "bounding box", box[0], box[1], box[2],
            box[3], box[4], box[5]);
    summary("%-22s %.6e kg in %.6e m^3\n", "total mass", check.mass, check.volume);
    if (mesh.element_num() > 0) {
        place("smallest element", check.smallest);
        place("largest element", check.largest);
    }
    summary("%-22s %lld\n", "non-positive Jacobians", static_cast<long long>(check.bad_count));
    for (const ElementPlace& e : check.bad) place("  bad element", e);
    summary("%-22s %d\n", "hanging nodes", check.hanging_nodes);
    if (!mesh.surface_part_id.empty())
        summary("%-22s %zu, left out of analyses\n", "STL facets", mesh.surface_part_id.size());
    summary("%-22s %zu\n", "connected bodies", check.bodies.size());
    for (std::size_t b = 0; b < check.bodies.size() && check.bodies.size() > 1; ++b) {
        std::string parts;
        for (std::int32_t part : check.bodies[b].parts) parts += " " + store.parts[part].name;
        summary("  body %zu: %d elements of%s\n", b + 1, check.bodies[b].elements, parts.c_str());
    }
    for (std::size_t k = 0; k < check.support_nodes.size(); ++k)
        summary("%-22s %s: %d nodes\n", "support", store.boundary_conditions[k].name.c_str(),
                check.support_nodes[k]);
    for (std::size_t k = 0; k < check.force_nodes.size(); ++k)
        summary("%-22s %s: %d nodes\n", "force", store.forces[k].name.c_str(), check.force_nodes[k]);
    for (std::size_t k = 0; k < check.rigid_members.size(); ++k)
        summary("%-22s %s: %d nodes\n", "rigid element", store.rigid_elements[k].name.c_str(),
                check.rigid_members[k]);
    summary(
        "%-22s %lld free degrees of freedom, band %d, %.1f MB of memory, %.1f MB of disk in %d division%s\n",
        "the factor needs", static_cast<long long>(check.free_dofs), check.diag_num, check.memory_megabytes,
        check.factor_megabytes, check.divisions, check.divisions == 1 ? "" : "s");
    print_notices(check.remarks);
}

}  // namespace kestralum
