#include "mesh/gmsh_import.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "mesh/gmsh_reader.h"
#include "mesh/import_text.h"
#include "mesh/tetra_order.h"
#include "model/format.h"

namespace kestralum {

namespace {

// Moves the solids and their nodes into the mesh; the nodes get their numbers from 1 on in the file's order.
// `number` has for each node of the file its number, 0 where no solid has it. False on a stop.
bool take_solids(GmshMesh& file, double unit_factor, PartMesh& mesh, std::vector<std::int32_t>& number,
                 const Progress& progress) {
    const auto stopped = [&](std::size_t k) { return k % 65536 == 0 && progress.cancelled(); };
    number.assign(file.coordinates.size() / 3, 0);
    for (std::size_t k = 0; k < file.solids.size(); ++k) {
        if (stopped(k)) return false;
        number[file.solids[k]] = 1;
    }
    std::size_t kept = 0;
    for (std::size_t n = 0; n < number.size(); ++n) {
        if (stopped(n)) return false;
        if (number[n] == 0) continue;
        for (std::size_t k = 0; k < 3; ++k)
            file.coordinates[3 * kept + k] = file.coordinates[3 * n + k] * unit_factor;
        number[n] = static_cast<std::int32_t>(++kept);
    }
    file.coordinates.resize(3 * kept);
    for (std::size_t k = 0; k < file.solids.size(); ++k) {
        if (stopped(k)) return false;
        file.solids[k] = number[file.solids[k]];
    }
    mesh.kind = file.kind;
    mesh.coordinates = std::move(file.coordinates);
    mesh.connectivity = std::move(file.solids);
    return true;
}

// Sorts the runs of elements into physical groups or, where there are none, into volumes and surfaces.
class GroupSorter {
public:
    GroupSorter(const GmshMesh& file, std::span<const std::int32_t> number)
        : file_(file), number_(number), dropped_(number.size(), 0) {}

    // False where elements are in so many groups that their lists pass `most_entries`.
    bool sort(std::int64_t most_entries) {
        left_ = most_entries;
        find_physicals();
        find_groups();
        return add_runs(file_.solid_runs, &GroupSorter::add_solid) &&
               add_runs(file_.face_runs, &GroupSorter::add_face) &&
               add_runs(file_.edge_runs, &GroupSorter::add_edge_node);
    }
    std::span<const RawGroup> groups() const { return groups_; }
    // Nodes of the physical groups that no solid has.
    std::int64_t dropped() const {
        return by_entity_ ? 0 : std::count(dropped_.begin(), dropped_.end(), char{1});
    }

private:
    using Key = std::pair<int, std::int32_t>;  // dimension, number

    // The physical groups of each entity, and whether there are any at all.
    void find_physicals() {
        by_entity_ = file_.names.empty();
        for (const GmshEntity& entity : file_.entities) {
            std::vector<std::int32_t> physicals;
            if (entity.physical != 0) physicals.push_back(entity.physical);
            const auto in = std::lower_bound(
                file_.physicals.begin(), file_.physicals.end(), entity, [](const auto& a, const auto& b) {
                    return std::pair(a.dimension, a.entity) < std::pair(b.dimension, b.tag);
                });
            for (auto p = in;
                 p != file_.physicals.end() && p->dimension == entity.dimension && p->entity == entity.tag;
                 ++p)
                if (physicals.empty() || physicals.back() != p->physical) physicals.push_back(p->physical);
            by_entity_ = by_entity_ && physicals.empty();
            physicals_.push_back(std::move(physicals));
        }
    }
    // One group for each name, then for each other number, from bodies down to points; groups_of_ has those
    // of each entity.
    void find_groups() {
        for (const GmshName& name : file_.names) {
            const auto at = static_cast<std::int32_t>(groups_.size());
            if (name.name.empty() || !index_.try_emplace({name.dimension, name.tag}, at).second) continue;
            groups_.emplace_back().name = name.name;
        }
        std::map<std::pair<int, std::int32_t>, std::int32_t> others;  // by falling dimension
        for (std::size_t e = 0; e < file_.entities.size(); ++e) {
            const GmshEntity& entity = file_.entities[e];
            if (by_entity_ && entity.dimension >= 2 && entity.tag != 0) physicals_[e] = {entity.tag};
            for (const std::int32_t tag : physicals_[e])
                if (!index_.contains({entity.dimension, tag}))
                    others.try_emplace({-entity.dimension, tag}, 0);
        }
        for (const auto& [key, unused] : others) {
            const int dimension = -key.first;
            index_[{dimension, key.second}] = static_cast<std::int32_t>(groups_.size());
            const std::string kind = !by_entity_      ? "physical_" + std::to_string(dimension) + "_"
                                     : dimension == 3 ? "volume_"
                                                      : "surface_";
            groups_.emplace_back().name = kind + std::to_string(key.second);
        }
        for (std::size_t e = 0; e < file_.entities.size(); ++e)
            for (std::int32_t& tag : physicals_[e]) tag = index_.at({file_.entities[e].dimension, tag});
    }

    bool add_runs(const std::vector<GmshRun>& runs, void (GroupSorter::*add)(RawGroup&, std::int32_t)) {
        for (const GmshRun& run : runs)
            for (const std::int32_t group : physicals_[run.entity]) {
                left_ -= run.end - run.first;
                if (left_ < 0) return false;
                for (std::int32_t k = run.first; k < run.end; ++k) (this->*add)(groups_[group], k);
            }
        return true;
    }
    void add_solid(RawGroup& group, std::int32_t element) { group.elements.push_back(element); }
    void add_face(RawGroup& group, std::int32_t face) {
        std::array<std::int32_t, 4> corners{};
        for (std::size_t k = 0; k < 4; ++k) {
            const std::int32_t node = file_.faces[face][k];
            if (node < 0) continue;
            corners[k] = number_[node];
            if (corners[k] == 0) dropped_[node] = 1;
        }
        group.corners.push_back(corners);
    }
    void add_edge_node(RawGroup& group, std::int32_t at) {
        const std::int32_t node = file_.edge_nodes[at];
        if (number_[node] > 0)
            group.nodes.push_back(number_[node]);
        else
            dropped_[node] = 1;
    }

    const GmshMesh& file_;
    const std::span<const std::int32_t> number_;
    std::vector<char> dropped_;
    std::vector<std::vector<std::int32_t>>
        physicals_;                      // of each entity: its groups' numbers, then their places
    bool by_entity_ = true;              // no physical groups: volumes and surfaces are
    std::map<Key, std::int32_t> index_;  // place of a group
    std::vector<RawGroup> groups_;
    std::int64_t left_ = 0;
};

bool make_mesh(GmshMesh& file, std::string_view file_name, double unit_factor, std::int64_t most_entries,
               PartMesh& mesh, Remarks& remarks, const Progress& progress) {
    const std::string place = "file " + std::string(file_name) + ": ";
    if (file.solids.empty())
        remarks.notices.push_back(
            place +
            "no solid elements: was it meshed in three dimensions, and are its volumes in "
            "a physical group where others are?");
    std::vector<std::int32_t> number;
    if (!take_solids(file, unit_factor, mesh, number, progress)) return false;
    if (!std::all_of(mesh.coordinates.begin(), mesh.coordinates.end(),
                     [](double x) { return std::isfinite(x); })) {
        remarks.errors.push_back(place + "its coordinates are too large for numbers");
        return false;
    }
    const FileOrder order{"Gmsh", true, "1-2, 2-3, 1-3, 1-4, 3-4, 2-4", file.solid_numbers};
    if (!check_element_order(file_name, order, mesh, remarks, progress)) return false;
    GroupSorter sorter(file, number);
    if (!sorter.sort(most_entries)) {
        remarks.errors.push_back(place + "its elements are in more groups than a file of its size can name");
        return false;
    }
    if (sorter.dropped() > 0)
        remarks.notices.push_back(place + "nodes of its groups that no solid element has are left out: " +
                                  std::to_string(sorter.dropped()));
    mesh.groups = make_part_groups(sorter.groups(), mesh, file_name, remarks.notices, &progress);
    return !progress.cancelled();
}

void print_mesh(const PartMesh& mesh, std::string& lines) {
    lines += formatted("  Nelem:%ld\n", mesh.element_num());
    lines += formatted("  element_type:%d\n", static_cast<int>(mesh.kind));
    lines += formatted("  Nnode:%ld\n", mesh.node_num());
    for (const PartGroup& group : mesh.groups)
        lines += "  group:" + group.name +
                 formatted(" elements=%zu, faces=%zu, nodes=%zu\n", group.elements.size(), group.faces.size(),
                           group.nodes.size());
}

bool read_mesh(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
               Remarks& remarks, const Progress& progress) {
    const std::string kind = foreign_format(text, "$MeshFormat", "a Gmsh mesh");
    if (!kind.empty()) {
        remarks.errors.push_back("file " + std::string(file_name) + " " + kind);
        return false;
    }
    GmshMesh file;
    std::string error;
    if (!read_gmsh(text, file_name, file, error, progress)) {
        if (!error.empty()) remarks.errors.push_back(error);
        return false;
    }
    // an entry takes 16 bytes at most, so the lists stay a small multiple of the file
    const auto most_entries = static_cast<std::int64_t>(text.size()) + 1000;
    return make_mesh(file, file_name, unit_factor, most_entries, mesh, remarks, progress);
}

}  // namespace

bool read_msh_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress) {
    return read_or_clear(file_name, mesh, remarks, [&] {
        if (!read_mesh(text, file_name, unit_factor, mesh, remarks, progress)) return false;
        print_mesh(mesh, mesh.lines);
        return true;
    });
}

bool import_msh(const Part& part, MeshContext& context, PartMesh& mesh) {
    return import_mesh_file(part, context, mesh, "MSH", [&](std::string_view text, const std::string& name) {
        return read_msh_text(text, name, part.unit_factor, mesh, context.remarks, context.progress);
    });
}

}  // namespace kestralum
