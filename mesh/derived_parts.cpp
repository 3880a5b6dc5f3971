#include "mesh/derived_parts.h"

#include <algorithm>
#include <array>
#include <string>

#include "mesh/part_catalogue.h"
#include "model/mesh_sets.h"

namespace kestralum {

namespace {

constexpr std::array<const char*, 7> derived_colors{"orange", "cyan",   "lime", "magenta",
                                                    "yellow", "purple", "gray"};

// The groups of bodies that the part has, for an error line.
std::string bodies_of(const Part& part, const Mesh& mesh) {
    std::string names;
    int left_out = 0;
    for (const MeshSet& set : mesh.sets) {
        if (set.elements.empty() || !set.name.starts_with(part.name + ".")) continue;
        constexpr std::size_t longest = 300;
        if (names.size() > longest)
            ++left_out;
        else
            names += (names.empty() ? "" : ", ") + set.name.substr(part.name.size() + 1);
    }
    if (names.empty()) return "it has no group of bodies";
    return "its groups of bodies are " + names +
           (left_out ? " and " + std::to_string(left_out) + " more" : "");
}

}  // namespace

bool derive_parts(std::span<const Material> materials, std::vector<Part>& parts, Mesh& mesh,
                  Remarks& remarks) {
    std::erase_if(parts, [](const Part& part) { return part.derived_from >= 0; });
    const std::size_t errors_before = remarks.errors.size(), as_read = parts.size();
    for (std::size_t p = 0; p < as_read; ++p)
        for (std::size_t g = 0; g < parts[p].group_materials.size(); ++g) {
            const std::string group = parts[p].group_materials[g].group,
                              material_name = parts[p].group_materials[g].material_name;
            const std::string place = "part \"" + parts[p].name + "\": ";
            const MeshSet* set = find_set(mesh, parts[p].name + "." + group);
            if (!set || set->elements.empty()) {
                remarks.errors.push_back(place + "group=" + group +
                                         (set ? " is a group of faces, " : " is none of its groups, ") +
                                         bodies_of(parts[p], mesh));
                continue;
            }
            const auto material = std::ranges::find_if(materials, [&](const Material& m) {
                return truncate_text(m.name, name_text_width) == material_name;
            });
            if (material == materials.end()) {
                remarks.errors.push_back(place + "no material " + material_name + " for its group " + group);
                continue;
            }
            Part derived = parts[p];
            derived.id = static_cast<std::int32_t>(parts.size());
            derived.name = truncate_text(set->name, name_text_width);
            derived.material_name = material_name;
            derived.material_id = static_cast<std::int32_t>(material - materials.begin());
            derived.color_name = derived_colors[(parts.size() - as_read) % derived_colors.size()];
            derived.color = part_color(derived.color_name);
            derived.derived_from = static_cast<std::int32_t>(p);
            derived.group_materials.clear();
            std::int64_t twice = 0;
            for (const std::int32_t element : set->elements) {
                twice += mesh.p_ele_part_id[element] >= static_cast<std::int32_t>(as_read);
                mesh.p_ele_part_id[element] = derived.id;
            }
            if (twice > 0)
                remarks.notices.push_back(place + std::to_string(twice) + " elements of its group " + group +
                                          " are in an earlier group with a material: the later one holds");
            parts.push_back(std::move(derived));
        }
    return remarks.errors.size() == errors_before;
}

}  // namespace kestralum
