#include "app/window/condition_words.h"

#include <array>
#include <cmath>
#include <utility>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::array<const char*, 3> axes{"x", "y", "z"};

std::string vector_text(const Vec3& v, const char* unit) {
    return formatted("(%.6g, %.6g, %.6g) %s", v[0], v[1], v[2], unit);
}

std::string box_text(const std::array<double, 6>& box) {
    return formatted("x %.6g … %.6g, y %.6g … %.6g, z %.6g … %.6g m", box[0], box[1], box[2], box[3], box[4],
                     box[5]);
}

std::string place_text(const std::string& set_name, const std::array<double, 6>& box) {
    return set_name.empty() ? "on the nodes within " + box_text(box) : "on set " + set_name;
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (std::size_t k = 0; k < words.size(); ++k) out += (k ? ", " : "") + words[k];
    return out;
}

// factor= and case=, behind what the record says.
std::string options_text(const LoadOptions& options) {
    std::string out;
    if (options.factor.given()) out += ", times " + options.factor.text;
    if (!options.case_name.empty()) out += ", load case " + options.case_name;
    return out;
}

std::string support_text(const BoundaryCondition& support) {
    const SupportOptions& options = support.options;
    std::vector<std::string> words;
    if (!options.given) words.push_back("holds x, y and z");
    for (std::size_t a = 0; a < 3; ++a)
        if (options.displacement[a].given())
            words.push_back(std::string("moves ") + axes[a] + " by " + options.displacement[a].text + " m");
        else if (options.fixed[a])
            words.push_back(std::string("holds ") + axes[a]);
    if (options.normal) words.push_back("holds along the normals of the faces");
    if (options.spring.given())
        words.push_back("springs in all directions, " + options.spring.text + " N/m³");
    if (options.normal_spring.given())
        words.push_back("springs along the normals, " + options.normal_spring.text + " N/m³");
    std::string out = joined(words) + ' ' + place_text(support.set_name, support.box);
    if (!options.case_name.empty()) out += ", load case " + options.case_name;
    return out;
}

std::string force_text(const AppliedForce& force) {
    const std::string place = force.kind == ForceKind::node
                                  ? "at the node nearest to " + vector_text(force.point, "m")
                                  : "in all " + place_text(force.set_name, force.box);
    const std::string axis = force.axis >= 0 && force.axis < 3 ? axes[force.axis] : force.axis_word;
    return formatted("%.6g N along ", force.value) + axis + ' ' + place + options_text(force.options);
}

std::string load_text(const Load& load) {
    const std::string on = " on set " + load.set_name;
    switch (load.kind) {
        case LoadKind::pressure:
            return "pressure of " + load.value.text + " Pa" + on;
        case LoadKind::traction:
            return "traction of (" + load.vector[0].text + ", " + load.vector[1].text + ", " +
                   load.vector[2].text + ") Pa" + on;
        case LoadKind::force:
            return "force of " + vector_text(load.force, "N") + on;
        case LoadKind::bearing:
            return "bearing load of " + vector_text(load.force, "N") + on;
        case LoadKind::remote:
            return "force of " + vector_text(load.force, "N") + " and moment of " +
                   vector_text(load.moment, "N m") + " at " + vector_text(load.point, "m") +
                   ", carried by set " + load.set_name;
        case LoadKind::gravity:
            return "acceleration of " + vector_text(load.direction, "m/s²") + " on all mass";
        case LoadKind::centrifugal:
            return formatted("rotation at %.6g rad/s", load.speed) + " about the axis " +
                   vector_text(load.direction, "") + "through " + vector_text(load.point, "m");
        case LoadKind::temperature:
            return "temperature " + load.value.text + " in " +
                   (load.part_name == "all" ? std::string("all parts") : "part " + load.part_name) +
                   formatted(", without strain at %.6g", load.reference);
    }
    return {};
}

std::string rigid_force_text(const RigidForce& force) {
    const bool moment = force.direction_word.starts_with("r");
    return formatted("%.6g %s along ", force.value, moment ? "N m" : "N") + force.direction_word +
           " on rigid element " + force.element_name + options_text(force.options);
}

std::string velocity_text(const VelocityRecord& record) {
    const std::string where =
        record.kind == VelocitySelection::part ? "on part " + record.name : place_text({}, record.box);
    return record.velocity.text + " m/s along " + axes[static_cast<std::size_t>(record.axis) % 3] + ' ' +
           where;
}

std::string wall_text(const RigidWall& wall) {
    std::string out = wall.kind_word + ' ' + wall.axis_word;
    out += formatted(" at (%.6g, %.6g, %.6g) m", 0.5 * (wall.box[0] + wall.box[1]),
                     0.5 * (wall.box[2] + wall.box[3]), 0.5 * (wall.box[4] + wall.box[5]));
    if (wall.radius > 0) out += formatted(", radius %.6g m", wall.radius);
    if (wall.friction > 0) out += formatted(", friction %.6g", wall.friction);
    for (std::size_t a = 0; a < 3; ++a)
        if (wall.motion[a].varies || wall.motion[a].start != 0)
            out += std::string(", moved in ") + axes[a] + " by " + wall.motion[a].text + " m";
    return out;
}

}  // namespace

std::vector<ConditionWords> condition_words(const Model& model) {
    std::vector<ConditionWords> out;
    const auto add = [&](const char* kind, const std::string& name, std::string words) {
        out.push_back({kind, name, std::move(words)});
    };
    for (const BoundaryCondition& support : model.boundary_conditions)
        add("Support", support.name, support_text(support));
    for (const AppliedForce& force : model.forces) add("Force", force.name, force_text(force));
    for (const auto* loads : {&model.loads, &model.rigid_loads})
        for (const Load& load : *loads) add("Load", load.name, load_text(load) + options_text(load.options));
    for (const RigidElement& element : model.rigid_elements)
        if (!element.of_load)
            add("Rigid element", element.name, "moved about " + vector_text(element.reference, "m"));
    for (const RigidForce& force : model.rigid_forces)
        if (!force.of_load) add("Rigid force", force.name, rigid_force_text(force));
    for (const RigidCombine& springs : model.rigid_combines)
        add("Springs", springs.name,
            "between rigid elements " + springs.element_name[0] + " and " + springs.element_name[1]);
    for (const TieRecord& tie : model.ties)
        add("Tie", tie.name, "set " + tie.slave_set + " follows set " + tie.master_set);
    for (const LoadCombination& combination : model.combinations)
        add("Combination", combination.name, combination.text);
    const ExplicitTables& tables = model.explicit_tables;
    for (const VelocityRecord& record : tables.initial_velocities)
        add("Initial velocity", record.name, velocity_text(record));
    for (const VelocityRecord& record : tables.velocity_inputs)
        add("Velocity", record.name, velocity_text(record));
    for (const RigidWall& wall : tables.walls) add("Wall", wall.name, wall_text(wall));
    for (const ContactPair& pair : tables.contacts)
        add("Contact", pair.name,
            "of " + pair.part_name[0] + " and " + pair.part_name[1] +
                formatted(", friction %.6g", pair.friction));
    if (model.control.gravity_axis >= 0)
        add("Gravity", "",
            formatted("of explicit runs along %s%s", model.control.gravity_sign < 0 ? "-" : "+",
                      axes[static_cast<std::size_t>(model.control.gravity_axis) % 3]));
    return out;
}

}  // namespace kestralum
