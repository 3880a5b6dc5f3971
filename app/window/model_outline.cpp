#include "app/window/model_outline.h"

#include <algorithm>

#include "input/analysis_info_reader.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/selection.h"

namespace kestralum {

namespace {

std::string amount(std::size_t count, const char* one, const char* several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

class Outline {
public:
    Outline(const ShownModel& shown, std::string_view model_text, std::string_view control_text)
        : shown_(shown),
          model_(*shown.store.model),
          mesh_(shown.mesh()),
          model_text_(model_text),
          control_text_(control_text),
          sections_(split_sections(model_text, SilentProgress())) {}

    std::vector<OutlineGroup> build() {
        materials();
        parts();
        sets();
        supports();
        loads();
        rigid();
        ties();
        walls();
        contacts();
        results();
        return std::move(out_);
    }

private:
    OutlineItem& add(std::string name, std::string detail) {
        return items_.emplace_back(OutlineItem{std::move(name), std::move(detail), {}, {}, {}, 0, -1, 0});
    }
    // The items so far are a group.
    void close(const char* name) {
        if (!items_.empty()) out_.push_back({name, std::move(items_)});
        items_.clear();
    }
    // Places in the model file of the items from `first` on, records of a section in its order.
    void find_records(Keyword section, std::size_t first = 0) {
        std::vector<std::string> names;
        for (std::size_t k = first; k < items_.size(); ++k) names.push_back(items_[k].name);
        const auto places = record_places(model_text_, sections_, section, names);
        for (std::size_t k = 0; k < places.size(); ++k) {
            if (places[k].line == 0) continue;
            items_[first + k].file = model_.model_file_name;
            items_[first + k].line = places[k].line;
            items_[first + k].record = places[k].text;
        }
    }
    void find_in_control() {
        for (OutlineItem& item : items_) {
            item.line = line_of_name(control_text_, item.name);
            if (item.line > 0) item.file = analysis_info_file_name(model_.model_file_name);
        }
    }

    void materials() {
        for (const Material& m : model_.materials) {
            OutlineItem& item =
                add(m.name, formatted("E %.4g Pa, Poisson %.3g, %.4g kg/m^3", m.young, m.poisson, m.density));
            for (std::size_t p = 0; p < model_.parts.size(); ++p)
                if (model_.parts[p].material_name == m.name)
                    item.highlight.parts.push_back(static_cast<std::int32_t>(p));
        }
        find_records(Keyword::material_info);
        close("Materials");
    }
    void parts() {
        std::vector<std::size_t> elements(model_.parts.size());
        for (const std::int32_t p : mesh_.p_ele_part_id)
            if (p >= 0 && p < std::ssize(elements)) ++elements[p];
        for (std::size_t p = 0; p < model_.parts.size(); ++p) {
            const Part& part = model_.parts[p];
            OutlineItem& item = add(part.name, part.type_name + " of " + part.material_name + ", " +
                                                   amount(elements[p], "element", "elements"));
            item.part = static_cast<std::int32_t>(p);
            item.highlight.parts = {item.part};
        }
        find_records(Keyword::part_info);
        close("Parts");
    }
    void point_out(OutlineItem& item, std::string_view set_name) {
        if (const MeshSet* set = find_set(mesh_, set_name)) {
            item.highlight.faces.insert(item.highlight.faces.end(), set->faces.begin(), set->faces.end());
            if (set->faces.empty()) item.highlight.nodes = set->nodes;
        }
    }
    void sets() {
        for (const MeshSet& set : mesh_.sets) {
            OutlineItem& item = add(set.name, amount(set.nodes.size(), "node", "nodes") + ", " +
                                                  amount(set.faces.size(), "face", "faces"));
            point_out(item, set.name);
            item.highlight.sets = {set.name};
        }
        // groups of meshes come before the sets of the file
        find_records(Keyword::set_info, items_.size() - std::min(items_.size(), model_.sets.size()));
        close("Sets");
    }
    void supports() {
        for (const BoundaryCondition& b : model_.boundary_conditions) {
            std::vector<std::int32_t> nodes = select_nodes(b, mesh_);
            OutlineItem& item = add(b.name, (b.options.given ? "with options, " : "holds all directions, ") +
                                                amount(nodes.size(), "node", "nodes"));
            item.highlight.nodes = std::move(nodes);
        }
        find_records(Keyword::boundary_condition);
        close("Supports");
    }
    void loads() {
        for (std::size_t f = 0; f < model_.forces.size(); ++f) {
            const AppliedForce& force = model_.forces[f];
            OutlineItem& item =
                add(force.name, formatted("force %.4g N along %s", force.value, force.axis_word.c_str()));
            if (force.kind == ForceKind::area)
                item.highlight.nodes = select_nodes(force, mesh_);
            else
                item.highlight.points = {force.point};
        }
        find_records(Keyword::apply_force);
        constexpr const char* words[] = {"pressure",    "traction", "force",       "bearing load",
                                         "remote load", "gravity",  "centrifugal", "temperature"};
        for (const auto* list : {&model_.loads, &model_.rigid_loads}) {
            const std::size_t first = items_.size();
            for (const Load& load : *list) {
                OutlineItem& item = add(load.name, words[static_cast<std::size_t>(load.kind)] +
                                                       (load.set_name.empty() ? "" : " on " + load.set_name));
                point_out(item, load.set_name);
                if (load.kind == LoadKind::remote) item.highlight.points = {load.point};
            }
            find_records(Keyword::load_info, first);
        }
        close("Loads");
    }
    void rigid() {
        const auto holds = shown_.tables().rigid_holds;
        for (std::size_t r = 0; r < model_.rigid_elements.size(); ++r) {
            const RigidElement& element = model_.rigid_elements[r];
            if (element.of_load) continue;  // its load stands above
            OutlineItem& item = add(element.name, "");
            if (r < holds.size()) item.highlight.nodes = holds[r].nodes;
            item.detail = amount(item.highlight.nodes.size(), "node", "nodes");
            item.highlight.points = {element.reference};
        }
        find_records(Keyword::rigid_element);
        close("Rigid elements");
        for (const RigidCombine& springs : model_.rigid_combines) {
            OutlineItem& item = add(springs.name, springs.element_name[0] + " to " + springs.element_name[1]);
            for (const std::int32_t e : springs.element)
                if (e >= 0 && e < std::ssize(model_.rigid_elements))
                    item.highlight.points.push_back(model_.rigid_elements[e].reference);
        }
        find_records(Keyword::rigid_combine);
        close("Springs between rigid elements");
    }
    void ties() {
        for (const TieRecord& tie : model_.ties) {
            OutlineItem& item = add(tie.name, tie.slave_set + " to " + tie.master_set);
            point_out(item, tie.slave_set);
            point_out(item, tie.master_set);
        }
        find_records(Keyword::tie_info);
        close("Ties");
    }
    void walls() {
        for (const RigidWall& wall : model_.explicit_tables.walls) {
            OutlineItem& item = add(wall.name, wall.kind_word + " " + wall.axis_word);
            point_out(item, wall.set_name);
        }
        find_in_control();
        close("Walls");
    }
    void contacts() {
        for (const ContactPair& pair : model_.explicit_tables.contacts) {
            OutlineItem& item = add(pair.name, pair.part_name[0] + " and " + pair.part_name[1]);
            for (std::size_t p = 0; p < model_.parts.size(); ++p)
                if (is_of_part(model_.parts, p, pair.part_name[0]) ||
                    is_of_part(model_.parts, p, pair.part_name[1]))
                    item.highlight.parts.push_back(static_cast<std::int32_t>(p));
        }
        find_in_control();
        close("Contacts");
    }
    void results() {
        const Run* run = shown_.store.run.get();
        if (!run) return;
        constexpr const char* units[] = {"Hz", "", "of the load", "s", "of the load"};
        const auto type = static_cast<std::size_t>(run->ana_type);
        for (std::int32_t f = 1; f <= run->mode_num(); ++f) {
            const Frame& frame = *run->results[f - 1];
            OutlineItem& item = add((has_shapes(run->ana_type) ? "Mode " : "Frame ") + std::to_string(f), "");
            item.detail = !frame.name.empty() ? frame.name
                          : *units[type]      ? formatted("%.6g %s", frame.n_freq, units[type])
                                              : "";
            item.frame = f;
        }
        close("Results");
    }

    const ShownModel& shown_;
    const Model& model_;
    const Mesh& mesh_;
    const std::string_view model_text_, control_text_;
    const ModelSections sections_;  // of model_text_
    std::vector<OutlineItem> items_;
    std::vector<OutlineGroup> out_;
};

}  // namespace

std::vector<OutlineGroup> outline_of(const ShownModel& shown, std::string_view model_text,
                                     std::string_view control_text) {
    return Outline(shown, model_text, control_text).build();
}

}  // namespace kestralum
