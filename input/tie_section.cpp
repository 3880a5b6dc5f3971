// Ties, and what loads, supports and ties need of the mesh.
#include <algorithm>

#include "input/record_options.h"
#include "input/section_readers.h"
#include "model/mesh_sets.h"
#include "model/progress.h"

namespace kestralum {

void read_tie_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    static constexpr std::string_view keys[] = {"tolerance="};
    echo_tokens(section.tokens, progress);
    const auto records = records_with_options(
        section, keys, [](auto) { return std::size_t{3}; }, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("tie_num=%zu\n", records.size());
    std::vector<TieRecord> ties;
    RecordNames names("both ties act", remarks);
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        const RecordOptions options(words, fields);
        TieRecord& tie = ties.emplace_back();
        tie.name = fields.name(record[0], name_text_width);
        names.add(record[0], tie.name);
        tie.slave_set = fields.name(record[1], name_text_width);
        tie.master_set = fields.name(record[2], name_text_width);
        if (tie.slave_set == tie.master_set) remarks.expected(record[2], "another set than the tied one");
        tie.tolerance = options.number(
            "tolerance=", -1, [](double v) { return v >= 0; }, "a tolerance of at least 0 m");
        progress.print("%zu:%s, %s, %s\n", ties.size() - 1, tie.name.c_str(), tie.slave_set.c_str(),
                       tie.master_set.c_str());
        options.list(progress);
    }
    model.ties = std::move(ties);
}

void check_load_places(const Model& model, InputRemarks& remarks) {
    const auto check_faces = [&](const std::string& user, const std::string& name) {
        const MeshSet* set = find_set(model.mesh, name);
        if (!set)
            remarks.error(user + ": no set or group of an imported mesh has the name " + name);
        else if (set->faces.empty() && !set->elements.empty())
            remarks.error(user + ": " + name +
                          " is a group of bodies; a set of the kind `group` has its faces");
        else if (set->faces.empty())
            remarks.error(user + ": the set " + name + " has no faces");
    };
    for (const BoundaryCondition& record : model.boundary_conditions)
        if (const SupportOptions& o = record.options;
            !record.set_name.empty() && (o.normal || o.spring.given() || o.normal_spring.given()))
            check_faces("support " + record.name, record.set_name);
    for (const Load& load : model.loads) {
        const std::string user = "load " + load.name;
        if (!load.set_name.empty()) check_faces(user, load.set_name);
        if (load.kind != LoadKind::temperature || load.part_name == "all") continue;
        bool found = false;
        for (std::size_t p = 0; p < model.parts.size(); ++p)
            found = found || is_of_part(model.parts, p, load.part_name);
        if (!found) remarks.error(user + ": no part has the name " + load.part_name);
    }
    for (const TieRecord& tie : model.ties)
        for (const std::string& name : {tie.slave_set, tie.master_set}) check_faces("tie " + tie.name, name);
}

}  // namespace kestralum
