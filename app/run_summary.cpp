#include "app/run_summary.h"

#include <algorithm>
#include <array>

#include "elements/element_type.h"
#include "model/format.h"
#include "model/paths.h"
#include "model/selection.h"
#include "model/topology.h"
#include "results/displacement_file.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

void print_end_token(const char* what, bool ended_at_end, const std::string& token, std::int64_t number,
                     Progress& progress) {
    if (!ended_at_end)
        progress.summary(
            "note: the %s was read up to token %lld '%s', which is no keyword: what follows was not read\n",
            what, static_cast<long long>(number), token.c_str());
}

void print_notices(const Remarks& remarks, Progress& progress) {
    for (const std::string& notice : remarks.notices) progress.summary("note: %s\n", notice.c_str());
}

void print_dynamics(const ExplicitReport& d, Progress& progress) {
    const ExplicitEnergies& e = d.energies;
    progress.summary("%-22s %lld of %lld in %.3f s, %.1f a second, %.4g element-steps a second (%s)\n",
                     "steps", static_cast<long long>(d.steps), static_cast<long long>(d.time_num - 1),
                     d.loop_seconds, static_cast<double>(d.steps) / d.loop_seconds,
                     static_cast<double>(d.steps) * static_cast<double>(d.elements) / d.loop_seconds,
                     d.kernel);
    progress.summary("%-22s %.6e s, time step %.6e s, stable step %.6e s, %lld frames\n", "time reached",
                     d.time, d.d_time, d.stable_step, static_cast<long long>(d.frames));
    progress.summary("%-22s kinetic %.6e, internal %.6e (plastic %.6e), damped %.6e J\n", "energy", e.kinetic,
                     e.internal, e.plastic, e.damping);
    if (d.erodes)
        progress.summary("%-22s %lld of %lld elements, %.4g %% of the mass, %.6e J\n", "eroded",
                         static_cast<long long>(d.eroded_elements), static_cast<long long>(d.elements),
                         100 * d.eroded_mass_share, e.eroded);
    if (d.viscous) progress.summary("%-22s %.6e J dissipated\n", "bulk viscosity", e.viscous);
    progress.summary("%-22s loads %.6e, walls %.6e, contact %.6e, driven %.6e J\n", "work done", e.external,
                     e.wall, e.contact, e.support);
    if (d.friction)
        progress.summary("%-22s %.6e J of the work of walls and contact\n", "friction took", *d.friction);
    progress.summary("%-22s %.3e of the largest energy\n", "energy drift", d.drift);
    progress.summary("%-22s %.6e %.6e %.6e kg m/s\n", "momentum", d.momentum[0], d.momentum[1],
                     d.momentum[2]);
    progress.summary("%-22s %.6e %.6e %.6e kg m^2/s about the origin\n", "angular momentum",
                     d.angular_momentum[0], d.angular_momentum[1], d.angular_momentum[2]);
    for (const Penetration* deepest : {&d.deepest_wall, &d.deepest_contact})
        if (deepest->node > 0)
            progress.summary("%-22s %.6e m at node %d (%.6g, %.6g, %.6g), %s, at %.6e s\n",
                             "deepest penetration", deepest->depth, deepest->node, deepest->place[0],
                             deepest->place[1], deepest->place[2], deepest->name.c_str(), deepest->time);
}

void print_nonlinear(const NonlinearReport& n, Progress& progress) {
    progress.summary("%-9s %12s %10s %11s %14s %14s %12s\n", "increment", "load factor", "iterations", "E/F",
                     "largest u [m]", "plastic volume", "work [J]");
    for (std::size_t k = 0; k < n.increments.size(); ++k) {
        const IncrementReport& i = n.increments[k];
        progress.summary("%-9zu %12.6g %10d %11.3e %14.6e %13.2f%% %12.5e%s\n", k + 1, i.factor, i.iterations,
                         i.ratio, i.largest_displacement, 100 * i.plastic_share, i.work,
                         i.converged ? "" : "  not converged");
    }
    progress.summary("%-22s %zu of %d increments, %lld iterations\n", "done", n.increments.size(), n.wanted,
                     static_cast<long long>(n.iterations));
    const double per = n.iterations > 0 ? 1 / static_cast<double>(n.iterations) : 0;
    progress.summary("%-22s assemble %.3f, factor %.3f, solve %.3f, stresses %.3f, gather %.3f\n",
                     "seconds an iteration", n.seconds[0] * per, n.seconds[1] * per, n.seconds[2] * per,
                     n.seconds[3] * per, n.seconds[4] * per);
}

void print_node_value(const char* title, const NodeValue& value, const char* unit, Progress& progress) {
    progress.summary("%-22s %.6e %s at node %d (%.6g, %.6g, %.6g)\n", title, value.value, unit, value.node,
                     value.place[0], value.place[1], value.place[2]);
}

void print_forces(const char* title, const std::array<double, 3>& force, Progress& progress) {
    progress.summary("%-22s %.6e %.6e %.6e N\n", title, force[0], force[1], force[2]);
}

void print_stages(const RunReport& report, Progress& progress) {
    progress.summary("%-10s %10s %12s\n", "stage", "seconds", "peak [MB]");
    double total = 0;
    for (const Stage& stage : report.stages) {
        progress.summary("%-10s %10.3f %12.1f\n", stage.name.c_str(), stage.seconds, stage.peak_megabytes);
        total += stage.seconds;
    }
    progress.summary("%-10s %10.3f\n", "total", total);
}

void print_work(const RunReport& report, Progress& progress) {
    progress.summary("%-22s %lld factorizations, %lld right-hand sides solved\n", "work",
                     static_cast<long long>(report.factorizations),
                     static_cast<long long>(report.solved_columns));
}

void print_modes(const RunReport& report, Progress& progress) {
    progress.summary("%-6s %14s %10s   %s\n", "mode", "frequency [Hz]", "residual",
                     "effective mass x y z [kg] and its share so far [%]");
    std::array<double, 3> sum{};
    for (std::size_t j = 0; j < report.modes.size(); ++j) {
        const ModeReport& mode = report.modes[j];
        progress.summary("%-6zu %14.6f %10.1e  ", j + 1, mode.frequency, mode.residual);
        for (std::size_t c = 0; c < 3; ++c) {
            sum[c] += mode.effective_mass[c];
            progress.summary(" %10.4g (%5.1f)", mode.effective_mass[c], 100 * sum[c] / report.total_mass);
        }
        progress.summary("%s\n", mode.zero ? "  zero mode" : "");
    }
    if (report.check_frequency > 0)
        progress.summary("modes below %.6g Hz: %lld found, %lld counted\n", report.check_frequency,
                         static_cast<long long>(report.modes_found),
                         static_cast<long long>(report.modes_counted));
    print_work(report, progress);
}

void print_factors(const RunReport& report, Progress& progress) {
    const BucklingReport& buckling = report.buckling;
    print_forces("applied loads", report.applied, progress);
    progress.summary("%-6s %16s %10s   (of the loads; shapes have a largest displacement of 1)\n", "mode",
                     "load factor", "residual");
    for (std::size_t j = 0; j < buckling.factors.size(); ++j)
        progress.summary("%-6zu %16.8g %10.1e\n", j + 1, buckling.factors[j].factor,
                         buckling.factors[j].residual);
    if (buckling.check_factor > 0)
        progress.summary("load factors below %.6g: %lld found, %lld counted\n", buckling.check_factor,
                         static_cast<long long>(buckling.found), static_cast<long long>(buckling.counted));
    print_work(report, progress);
}

void print_supports(const std::vector<SupportReaction>& supports, Progress& progress) {
    for (const SupportReaction& s : supports) {
        print_forces(("  of " + s.name).c_str(), s.force, progress);
        progress.summary("%-22s %.6e %.6e %.6e N m about (%.6g, %.6g, %.6g)\n", "", s.moment[0], s.moment[1],
                         s.moment[2], s.centre[0], s.centre[1], s.centre[2]);
    }
}

void print_energy(const CaseReport& one, Progress& progress) {
    progress.summary("%-22s %.6e J\n", "strain energy", one.strain_energy);
    if (one.error >= 0)
        progress.summary("%-22s estimated %.2g %%%s%s\n", "error of the stress", 100 * one.error,
                         one.worst_place.empty() ? "" : ", largest in ", one.worst_place.c_str());
}

// Every frame of a run with load cases; the first stands above.
void print_cases(const RunReport& report, Progress& progress) {
    for (std::size_t k = 1; k < report.cases.size(); ++k) {
        const CaseReport& one = report.cases[k];
        progress.summary("%-22s %zu: %s\n", "load case", k + 1, one.name.c_str());
        print_node_value("largest displacement", one.largest_displacement, "m", progress);
        print_node_value("largest Mises stress", one.largest_mises, "N/m^2", progress);
        print_forces("applied loads", one.applied, progress);
        print_forces("reactions", one.reaction, progress);
        print_supports(one.supports, progress);
        print_energy(one, progress);
    }
}

// Size, extremes and balance; a dynamic run has no factor.
void print_balance(const RunSummary& summary, Progress& progress) {
    const RunReport& report = summary.run.report;
    const Mesh& mesh = summary.run.mesh;
    const bool dynamic = report.dynamics.time_num > 0;
    const std::string factor =
        dynamic || report.factor_entries == 0
            ? ""
            : formatted(", factor of %lld entries", static_cast<long long>(report.factor_entries));
    progress.summary("%-22s %lld free of %d degrees of freedom, %d elements%s\n", "size",
                     static_cast<long long>(report.free_dofs), mesh.dof_num(), mesh.element_num(),
                     factor.c_str());
    if (!report.solver.empty()) progress.summary("%-22s %s\n", "solver", report.solver.c_str());
    if (dynamic) print_dynamics(report.dynamics, progress);
    if (report.cases.size() > 1)
        progress.summary("%-22s 1: %s\n", "load case", report.cases.front().name.c_str());
    print_node_value("largest displacement", report.largest_displacement, "m", progress);
    print_node_value("largest Mises stress", report.largest_mises, "N/m^2", progress);
    if (!dynamic) print_forces("applied loads", report.applied, progress);
    print_forces("reactions", report.reaction, progress);
    print_supports(report.supports, progress);
    if (!report.cases.empty()) print_energy(report.cases.front(), progress);
    print_cases(report, progress);
    if (report.nonlinear.wanted > 0)
        print_nonlinear(report.nonlinear, progress);
    else if (!dynamic)
        progress.summary("%-22s %.3e\n", "residual |Ku-F|/|F|", report.residual);
}

// A load that is lost altogether leaves a run that looks like a good one.
void print_lost_load(const RunSummary& summary, Progress& progress) {
    const RunReport& report = summary.run.report;
    const Model& model = summary.model;
    if (summary.run.ana_type != AnalysisType::linear_static || !report.has_results() ||
        !model.loads.empty() || (model.forces.empty() && model.rigid_forces.empty()) ||
        report.applied != std::array<double, 3>{} || report.largest_displacement.value != 0)
        return;
    progress.summary(
        "note: no load acts: each of the model's forces is 0 or has no node that can move; every "
        "displacement is 0\n");
}

// What the frames of a static, eigen or buckling run hold at the nodes nearest to the probes; the other
// analyses have a history.
void print_probes(const Run& run, Progress& progress) {
    const auto& probes = run.origin.options.probes;
    if (has_steps(run.ana_type) || run.results.empty() || probes.empty()) return;
    const bool modes = has_shapes(run.ana_type);
    const char* const scale = run.ana_type == AnalysisType::eigen ? ", modes of modal mass 1"
                                                                  : ", shapes of a largest displacement of 1";
    const NodeElements around = elements_of_nodes(run.mesh);
    for (std::size_t k = 0; k < probes.size(); ++k) {
        const std::int32_t n = nearest_node(run.mesh, around, probes[k]);
        if (n < 0) return;
        const double* x = run.mesh.node(n);
        progress.summary("probe %-16zu node %d (%.6g, %.6g, %.6g)%s\n", k + 1, n + 1, x[0], x[1], x[2],
                         modes ? scale : "");
        for (std::size_t j = 0; j < run.results.size(); ++j) {
            const double* u = &run.results[j]->mode_vec[3 * std::int64_t{n}];
            const double mises =
                run.results[j]->node_stress[4 * std::int64_t{run.mesh.dof_num()} + 3 * std::int64_t{n}];
            progress.summary("%-22s displacement %.6e %.6e %.6e%s, Mises stress %.6e%s\n",
                             modes ? formatted("  mode %zu", j + 1).c_str() : "", u[0], u[1], u[2],
                             modes ? "" : " m", mises, modes ? "" : " N/m^2");
        }
    }
}

void print_factor_files(const FactorFileList& files, Progress& progress) {
    if (files.names.empty()) return;
    const std::string more =
        files.names.size() > 1 ? formatted(" and %zu more", files.names.size() - 1) : std::string();
    progress.summary("%-22s %s%s, %.1f MB (--tidy removes them)\n", "factor files",
                     files.names.front().c_str(), more.c_str(), files.megabytes);
}

void print_files(const RunSummary& summary, Progress& progress) {
    const RunReport& report = summary.run.report;
    const std::string& model_file = summary.model.model_file_name;
    auto file = [&](const char* title, const std::string& stored) {
        const std::string name = paths::to_platform(stored, summary.run.origin.options.log_folder);
        progress.summary("%-22s %s\n", title, name.c_str());
    };
    if (report.written) file("results", result_file_name(model_file));
    if (report.dynamics.displacements_written) file("displacements", displacement_file_name(model_file));
    if (report.dynamics.history_written) file("history", history_file_name(model_file));
    if (report.nonlinear.history_written) file("history", nonlinear_history_file_name(model_file));
    if (!summary.vtu.empty()) file("for ParaView", summary.vtu);
    print_factor_files(summary.factor_files, progress);
}

}  // namespace

void print_input_summary(const ModelReadReport& model, const AnalysisInfoReport& control,
                         Progress& progress) {
    print_notices(model.remarks, progress);
    print_notices(control.remarks, progress);
    print_end_token("model file", model.ended_at_end, model.end_token, model.end_token_number, progress);
    if (control.status == AnalysisInfoStatus::read)
        print_end_token("control file", control.ended_at_end, control.end_token, control.end_token_number,
                        progress);
}

void print_run_summary(const RunSummary& summary, Progress& progress) {
    const RunReport& report = summary.run.report;
    print_lost_load(summary, progress);
    if (summary.read && summary.control) print_input_summary(*summary.read, *summary.control, progress);
    print_notices(report.remarks, progress);
    if (const HexahedronForm form = hexahedron_form(summary.model, summary.run.origin.options);
        report.has_results() && form != HexahedronForm::full)
        progress.summary("%-22s %s\n", "hexahedra", word_of(form));
    if (report.dynamics.time_num > 0 || report.largest_displacement.node > 0)
        print_balance(summary, progress);
    if (!report.modes.empty()) print_modes(report, progress);
    if (!report.buckling.factors.empty()) print_factors(report, progress);
    print_probes(summary.run, progress);
    if (report.negative_pivots > 0)
        progress.summary("%-22s %lld\n", "negative pivots", static_cast<long long>(report.negative_pivots));
    print_stages(report, progress);
    print_files(summary, progress);
}

void print_check(const Model& model, const ModelCheck& check, Progress& progress) {
    const Mesh& mesh = model.mesh;
    const auto& box = mesh.size_info;
    auto place = [&](const char* title, const ElementPlace& e) {
        progress.summary("%-22s %.6e m^3, element %d at (%.6g, %.6g, %.6g)\n", title, e.volume, e.element + 1,
                         e.centre[0], e.centre[1], e.centre[2]);
    };
    progress.summary("%-22s %d nodes, %d elements (%s), %zu parts, %zu materials\n", "model", mesh.node_num(),
                     mesh.element_num(), element_type(mesh.element_type).name, model.parts.size(),
                     model.materials.size());
    progress.summary(
        "%-22s %zu supports, %zu forces, %zu rigid elements, %zu rigid forces, %zu rigid combines\n",
        "conditions", model.boundary_conditions.size(), model.forces.size(), model.rigid_elements.size(),
        model.rigid_forces.size(), model.rigid_combines.size());
    progress.summary("%-22s (%.6g, %.6g, %.6g) to (%.6g, %.6g, %.6g) m\n", "bounding box", box[0], box[1],
                     box[2], box[3], box[4], box[5]);
    progress.summary("%-22s %.6e kg in %.6e m^3\n", "total mass", check.mass, check.volume);
    if (mesh.element_num() > 0) {
        place("smallest element", check.smallest);
        place("largest element", check.largest);
    }
    progress.summary("%-22s %lld\n", "non-positive Jacobians", static_cast<long long>(check.bad_count));
    for (const ElementPlace& e : check.bad) place("  bad element", e);
    const auto shape = [&](const char* title, const ShapeMeasure& measure, const char* unit,
                           const char* beyond) {
        // the worst, and of those beyond the limit the three worst
        const std::size_t listed = std::max<std::size_t>(measure.beyond, 1);
        for (std::size_t k = 0; k < std::min(listed, measure.worst.size()); ++k) {
            const auto& w = measure.worst[k];
            progress.summary("%-22s %.4g%s, element %d at (%.6g, %.6g, %.6g)\n", k == 0 ? title : "", w.value,
                             unit, w.element + 1, w.centre[0], w.centre[1], w.centre[2]);
        }
        if (measure.beyond > 0)
            progress.summary("%-22s %lld elements %s %g%s\n", "", static_cast<long long>(measure.beyond),
                             beyond, measure.limit, unit);
    };
    shape("smallest angle", check.angle, " degrees", "under");
    shape("least Jacobian ratio", check.jacobian, "", "under");
    shape("largest edge ratio", check.edge_ratio, "", "over");
    progress.summary("%-22s %d\n", "hanging nodes", check.hanging_nodes);
    if (!mesh.surface_part_id.empty())
        progress.summary("%-22s %zu, left out of analyses\n", "STL facets", mesh.surface_part_id.size());
    progress.summary("%-22s %zu\n", "connected bodies", check.bodies.size());
    for (std::size_t b = 0; b < check.bodies.size() && check.bodies.size() > 1; ++b) {
        std::string parts;
        for (std::int32_t part : check.bodies[b].parts) parts += " " + model.parts[part].name;
        progress.summary("  body %zu: %d elements of%s\n", b + 1, check.bodies[b].elements, parts.c_str());
    }
    for (const MeshSet& set : mesh.sets) {
        const auto [area, around] = measure_set(mesh, set);
        if (!set.elements.empty() && set.faces.empty()) {  // a body
            progress.summary(
                "%-22s %s: %zu nodes, %zu elements, (%.6g, %.6g, %.6g) to (%.6g, %.6g, %.6g) m\n", "set",
                set.name.c_str(), set.nodes.size(), set.elements.size(), around[0], around[2], around[4],
                around[1], around[3], around[5]);
            continue;
        }
        progress.summary(
            "%-22s %s: %zu nodes, %zu faces of %.6g m^2, (%.6g, %.6g, %.6g) to (%.6g, %.6g, %.6g) m\n", "set",
            set.name.c_str(), set.nodes.size(), set.faces.size(), area, around[0], around[2], around[4],
            around[1], around[3], around[5]);
    }
    for (std::size_t k = 0; k < check.support_nodes.size(); ++k)
        progress.summary("%-22s %s: %d nodes\n", "support", model.boundary_conditions[k].name.c_str(),
                         check.support_nodes[k]);
    for (std::size_t k = 0; k < check.force_nodes.size(); ++k)
        progress.summary("%-22s %s: %d nodes\n", "force", model.forces[k].name.c_str(), check.force_nodes[k]);
    for (const LoadFigures& load : check.loads) {
        const std::string faces =
            load.faces > 0 ? formatted("%zu faces of %.6g m^2, ", load.faces, load.area) : std::string();
        progress.summary("%-22s %s: %s(%.6g, %.6g, %.6g) N\n", "load", load.name.c_str(), faces.c_str(),
                         load.force[0], load.force[1], load.force[2]);
    }
    if (!model.ties.empty()) progress.summary("%-22s %d nodes\n", "tied", check.tied_nodes);
    for (std::size_t k = 0; k < check.rigid_members.size(); ++k)
        progress.summary("%-22s %s: %d nodes\n", "rigid element", model.rigid_elements[k].name.c_str(),
                         check.rigid_members[k]);
    progress.summary(
        "%-22s %lld free degrees of freedom, band %d, %.1f MB of memory, %.1f MB of disk in %d division%s\n",
        "the factor needs", static_cast<long long>(check.free_dofs), check.diag_num, check.memory_megabytes,
        check.factor_megabytes, check.divisions, check.divisions == 1 ? "" : "s");
    if (!check.solver.empty()) progress.summary("%-22s %s\n", "solver", check.solver.c_str());
    print_notices(check.remarks, progress);
}

}  // namespace kestralum
