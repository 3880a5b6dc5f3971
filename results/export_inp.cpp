#include <algorithm>
#include <cmath>

#include "model/format.h"
#include "results/export_deck.h"
#include "results/vtu_grid.h"

namespace kestralum {

namespace {

// Side S1 … of the deck for each row of our face table.
constexpr std::array<int, 6> hexa_side{6, 4, 1, 5, 2, 3};
constexpr std::array<int, 4> tetra_side{3, 4, 2, 1};

const char* deck_type(const Model& model) {
    switch (model.mesh.element_type) {
        case ElementKind::tetrahedron4:
            return "C3D4";
        case ElementKind::tetrahedron10:
            return "C3D10";
        default:
            // CalculiX's C3D8 is integrated at 2 × 2 × 2 points without further terms, as ours
            return model.hexahedra == HexahedronForm::enhanced ? "C3D8I" : "C3D8";
    }
}

// Comma-separated numbers, ten a line.
template <typename Values, typename Number>
std::string number_lines(const Values& values, Number number) {
    std::string text;
    std::size_t count = 0;
    for (const auto& value : values) {
        append_d(text, number(value));
        text += ++count % 10 == 0 || count == values.size() ? "\n" : ",";
    }
    return text;
}

std::string node_lines(std::span<const std::int32_t> nodes) {
    return number_lines(nodes, [](std::int32_t n) { return n + 1; });
}

void append_fields(std::string& text, std::span<const double> values) {
    for (const double value : values) {
        text += ",";
        append_field(text, value);
    }
    text += "\n";
}

class DeckWriter {
public:
    DeckWriter(const ExportJob& job, TextOutput& file, std::vector<std::string>& notices)
        : job_(job),
          model_(job.model),
          mesh_(job.model.mesh),
          file_(file),
          names_(ExportNames::Rule::deck, notices),
          materials_(ExportNames::Rule::deck, notices),
          rigid_(job, names_),
          supports_(job, names_, rigid_.last_node(), rigid_.last_element()) {}

    void write() {
        names_.take_own("NALL");
        write_head();
        write_nodes();
        write_elements();
        write_sets();
        write_materials();
        file_.write(rigid_.definition());
        file_.write(supports_.definition());
        write_supports();
        write_steps();
    }

private:
    void write_head() {
        std::string name = model_.model_file_name;
        std::ranges::replace_if(
            name, [](char c) { return c == '\n' || c == '\r'; }, ' ');
        file_.write("** KESTRALUM " + std::string(program_version) + ", model " + name +
                    "\n** m, kg, s, N, N/m^2\n");
    }

    void write_nodes() {
        const std::vector<std::int32_t> nodes = solid_nodes(mesh_);
        file_.write("*NODE, NSET=NALL\n");
        file_.write_rows(static_cast<std::int64_t>(nodes.size()), job_.threads,
                         [&](std::int64_t k, std::string& text) {
                             append_d(text, nodes[k] + 1);
                             append_fields(text, {mesh_.node(nodes[k]), 3});
                         });
    }

    // In the mesh's order: runs of elements of one part.
    void write_elements() {
        const std::vector<std::int32_t>& part = mesh_.p_ele_part_id;
        const auto order = vtk_node_order(mesh_.element_type);
        part_names_.resize(model_.parts.size());
        for (std::size_t first = 0, end; first < part.size(); first = end) {
            end = std::find_if(part.begin() + first, part.end(), [&](int p) { return p != part[first]; }) -
                  part.begin();
            std::string& name = part_names_[part[first]];
            if (name.empty()) name = names_.take("part", model_.parts[part[first]].name);
            file_.write(formatted("*ELEMENT, TYPE=%s, ELSET=", deck_type(model_)) + name + "\n");
            file_.write_rows(static_cast<std::int64_t>(end - first), job_.threads,
                             [&](std::int64_t k, std::string& text) {
                                 const auto e = static_cast<std::int64_t>(first) + k;
                                 append_d(text, e + 1);
                                 for (const int local : order) {
                                     text += ",";
                                     append_d(text, mesh_.element(e)[local]);
                                 }
                                 text += "\n";
                             });
        }
    }

    // One name for all that a set is; on import the first of that name is the whole set.
    void write_sets() {
        for (const MeshSet& set : mesh_.sets) {
            const std::string name = names_.take("set", set.name);
            if (!set.elements.empty()) file_.write("*ELSET, ELSET=" + name + "\n" + node_lines(set.elements));
            if (!set.faces.empty()) {
                file_.write("*SURFACE, NAME=" + name + ", TYPE=ELEMENT\n");
                const bool hexa = mesh_.element_type == ElementKind::hexahedron;
                file_.write_rows(static_cast<std::int64_t>(set.faces.size()), job_.threads,
                                 [&](std::int64_t k, std::string& text) {
                                     const ElementFace& face = set.faces[k];
                                     append_d(text, face.element + 1);
                                     text += ",S";
                                     append_d(text, hexa ? hexa_side[face.face] : tetra_side[face.face]);
                                     text += "\n";
                                 });
            }
            if (!set.nodes.empty()) file_.write("*NSET, NSET=" + name + "\n" + node_lines(set.nodes));
        }
    }

    void write_materials() {
        std::vector<std::string> name_of(model_.materials.size());
        std::string text;
        for (std::size_t p = 0; p < part_names_.size(); ++p)
            if (!part_names_[p].empty()) {
                std::string& name = name_of[model_.parts[p].material_id];
                if (name.empty()) {
                    name = materials_.take("material", model_.materials[model_.parts[p].material_id].name);
                    append_material(name, model_.materials[model_.parts[p].material_id], text);
                }
                text += "*SOLID SECTION, ELSET=" + part_names_[p] + ", MATERIAL=" + name + "\n";
            }
        file_.write(text);
    }

    void append_material(const std::string& name, const Material& material, std::string& text) {
        text += "*MATERIAL, NAME=" + name + "\n*ELASTIC\n";
        append_field(text, material.young);
        append_fields(text, std::span(&material.poisson, 1));
        if (material.density > 0) {
            text += "*DENSITY\n";
            append_field(text, material.density);
            text += "\n";
        }
        if (heated() && material.expansion != 0) {
            text += "*EXPANSION, ZERO=0.\n";
            append_field(text, material.expansion);
            text += "\n";
        }
        if (!model_.control.plastic || (!(material.yield_stress > 0) && material.hardening_table.empty()))
            return;
        // stress over equivalent plastic strain: a table, or a line through two points
        text += "*PLASTIC\n";
        std::vector<std::array<double, 2>> points = material.hardening_table;
        if (points.empty())
            points = {{0, material.yield_stress}, {1, material.yield_stress + material.hardening}};
        for (const auto& [strain, stress] : points) {
            append_field(text, stress);
            append_fields(text, std::span(&strain, 1));
        }
        if (material.erode > 0)
            job_.remarks.notices.push_back("material " + material.name + ": erode= is left out");
        if (material.kinematic != 0)
            job_.remarks.notices.push_back("material " + material.name + ": kinematic= is left out");
        job_.remarks.notices.push_back(
            "material " + material.name +
            " is written with *PLASTIC: leave that out to compare with a linear static analysis");
    }

    void write_supports() {
        const std::vector<char> member = rigid_.members();
        std::string text;
        for (const std::int32_t n : job_.conditions.fixed)
            if (!member[n]) text += formatted("%d,1,3\n", n + 1);
        text += rigid_.supports() + supports_.supports();
        if (!text.empty()) file_.write("*BOUNDARY\n" + text);
    }

    bool heated() const {
        return std::ranges::any_of(job_.conditions.cases,
                                   [](const ConditionCase& one) { return !one.warmth.empty(); });
    }

    // Temperatures are told as what they are above that without strain.
    std::string temperature_lines(const ConditionCase& one) const {
        std::string text;
        for (const std::int32_t n : solid_nodes(mesh_)) {
            text += formatted("%d,", n + 1);
            append_field(text, one.warmth.empty() ? 0 : one.warmth[n]);
            text += "\n";
        }
        return text;
    }

    std::string load_lines(const ConditionCase& one) const {
        std::string loads;
        for (std::size_t d = 0; d < one.load.size(); ++d)
            if (one.load[d] != 0) {
                loads += formatted("%zu,%zu", d / 3 + 1, d % 3 + 1);
                append_fields(loads, std::span(&one.load[d], 1));
            }
        return loads + rigid_.loads(one);
    }

    // A step for each case; each takes the loads of the one before away.
    void write_steps() {
        const std::vector<ConditionCase>& cases = job_.conditions.cases;
        const bool heat = heated();
        if (heat) file_.write("*INITIAL CONDITIONS, TYPE=TEMPERATURE\nNALL,0.\n");
        bool acts = false;
        for (std::size_t k = 0; k < cases.size(); ++k) {
            const std::string loads = load_lines(cases[k]), moved = supports_.moved(k);
            if (cases.size() == 1 && loads.empty() && moved.empty() && !heat) break;
            acts = true;
            std::string text = cases[k].name.empty() ? "" : "** load case " + cases[k].name + "\n";
            text += "*STEP\n*STATIC\n";
            if (!moved.empty()) text += "*BOUNDARY\n" + moved;
            if (heat) text += "*TEMPERATURE\n" + temperature_lines(cases[k]);
            if (k > 0)
                text += "*CLOAD, OP=NEW\n" + loads;
            else if (!loads.empty())
                text += "*CLOAD\n" + loads;
            file_.write(text + "*NODE PRINT, NSET=NALL\nU\n*NODE FILE\nU\n*EL FILE\nS,E\n*END STEP\n");
        }
        if (!acts || model_.mode_count > 1)
            file_.write(
                formatted("*STEP\n*FREQUENCY\n%d\n*NODE PRINT, NSET=NALL\nU\n*NODE FILE\nU\n*END STEP\n",
                          std::max(model_.mode_count, 1)));
    }

    const ExportJob& job_;
    const Model& model_;
    const Mesh& mesh_;
    TextOutput& file_;
    ExportNames names_, materials_;
    RigidDeck rigid_;
    SupportDeck supports_;
    std::vector<std::string> part_names_;  // per part; empty: no element is of it
};

// What CalculiX makes otherwise of hexahedra.
void note_hexahedra(const ExportJob& job) {
    const Model& model = job.model;
    const auto note = [&](const char* text) { job.remarks.notices.push_back(text); };
    if (model.hexahedra == HexahedronForm::mean_dilatation)
        note("hexahedra mean-dilatation are written as C3D8, which CalculiX integrates as full ones");
    if (model.hexahedra == HexahedronForm::enhanced)
        note("hexahedra enhanced are written as C3D8I, which bend as well with other internal strains");
    for (const ConditionCase& one : job.conditions.cases)
        for (std::int32_t e = 0; e < model.mesh.element_num() && !one.warmth.empty(); ++e) {
            const auto warmth = [&](std::int32_t node) { return one.warmth[node_index(node)]; };
            const auto [low, high] = std::ranges::minmax(model.mesh.element(e), {}, warmth);
            if (warmth(high) - warmth(low) > 1e-9 * std::abs(warmth(high)))
                return note("temperatures vary within hexahedra: CalculiX takes the mean of each element");
        }
}

bool springs_on_moved_nodes(const NodalConditions& conditions) {
    std::vector<std::int32_t> moved;
    for (const ConditionCase& one : conditions.cases)
        for (std::size_t k = 0; k < one.held.size(); ++k)
            if (one.held[k] != 0) moved.push_back(conditions.held[k].node);
    std::ranges::sort(moved);
    return std::ranges::any_of(conditions.ground, [&](const SpringTerm& term) {
        return std::ranges::binary_search(moved, term.dof / 3) ||
               (term.other >= 0 && std::ranges::binary_search(moved, term.other / 3));
    });
}

void note_left_out(const ExportJob& job) {
    const Model& model = job.model;
    const auto note = [&](std::size_t count, const char* what) {
        if (count > 0) job.remarks.notices.push_back(formatted("%s left out: %zu", what, count));
    };
    note(model.mesh.surface_part_id.size(), "facets of STL parts");
    note(model.explicit_tables.walls.size(), "rigid walls");
    note(model.explicit_tables.initial_velocities.size() + model.explicit_tables.velocity_inputs.size(),
         "velocity records");
    note(model.explicit_tables.contacts.size(), "contact pairs");
    if (model.mesh.element_type == ElementKind::hexahedron) note_hexahedra(job);
    if (springs_on_moved_nodes(job.conditions))
        job.remarks.notices.push_back(
            "springs of supports stand on nodes that a support moves: CalculiX leaves out what these springs "
            "pull the other nodes with");
}

}  // namespace

bool export_inp(const ExportJob& job) {
    note_left_out(job);
    return write_export(job, [&](TextOutput& file) { DeckWriter(job, file, job.remarks.notices).write(); });
}

}  // namespace kestralum
