#include <algorithm>
#include <unordered_map>
#include <utility>

#include "model/format.h"
#include "results/export_text.h"
#include "results/vtu_grid.h"

namespace kestralum {

namespace {

// Things sorted by the groups that they are in: format 4.1 has each element in one entity, and entities in
// any number of groups.
class Classes {
public:
    explicit Classes(std::size_t things) : class_of(things, 0) {}

    void add(std::int32_t group, std::span<const std::int32_t> things) {
        std::unordered_map<std::int32_t, std::int32_t>
            with;  // of each class: that of its things in the group
        for (const std::int32_t thing : things) {
            const auto next = static_cast<std::int32_t>(groups.size());
            const auto [at, fresh] = with.try_emplace(class_of[thing], next);
            if (fresh) {
                groups.push_back(groups[class_of[thing]]);
                groups.back().push_back(group);
            }
            class_of[thing] = at->second;
        }
    }

    std::vector<std::int32_t> class_of;                 // of each thing
    std::vector<std::vector<std::int32_t>> groups{{}};  // of each class; class 0 is in none
};

struct Physical {
    int dimension;
    std::string name;
};

// Of one element, 0-based.
struct ThingNodes {
    std::array<std::int32_t, 10> node{};
    std::size_t count = 0;
    void take(std::int32_t number) { node[count++] = static_cast<std::int32_t>(node_index(number)); }
    const std::int32_t* begin() const { return node.data(); }
    const std::int32_t* end() const { return begin() + count; }
};

// Elements of one type and entity in the file.
struct Block {
    int dimension, type;
    std::int32_t entity;               // its number
    std::vector<std::int32_t> things;  // elements, faces or nodes, 0-based
};

struct Entity {
    int dimension;
    std::int32_t number;
    std::vector<std::int32_t> physicals;
    Vec3 low, high;  // box around its nodes, m
};

class MshWriter {
public:
    explicit MshWriter(const ExportJob& job)
        : job_(job),
          mesh_(job.model.mesh),
          names_{{{rule, job.remarks.notices}, {rule, job.remarks.notices}, {rule, job.remarks.notices}}} {
        add_solids();
        add_faces();
        add_points();
    }

    void write(TextOutput& file) const {
        file.write("$MeshFormat\n4.1 0 8\n$EndMeshFormat\n" + physical_names() + entities());
        write_nodes(file);
        write_elements(file);
    }

private:
    static constexpr auto rule = ExportNames::Rule::quoted;

    // Gmsh's numbers of the kinds of solids and of their faces.
    struct Types {
        int solid, face;
    };
    Types types() const {
        static constexpr Types of_kind[] = {{5, 3}, {4, 2}, {11, 9}};  // in the order of ElementKind
        return of_kind[static_cast<int>(mesh_.element_type)];
    }

    // The number of a new physical group.
    std::int32_t physical(int dimension, const char* what, const std::string& name) {
        ExportNames& names = names_[dimension == 3 ? 0 : dimension == 2 ? 1 : 2];
        physicals_.push_back({dimension, names.take(what, name)});
        return static_cast<std::int32_t>(physicals_.size());
    }

    // The nodes (0-based) of a thing in Gmsh's order.
    ThingNodes nodes_of(int dimension, std::int32_t thing) const {
        ThingNodes nodes;
        if (dimension == 0) return {{thing}, 1};
        const auto take = [&](std::span<const std::int32_t> element, int local) {
            nodes.take(element[local]);
        };
        if (dimension == 3) {
            for (const int local : vtk_node_order(mesh_.element_type)) take(mesh_.element(thing), local);
            // Gmsh has the last two mid-side nodes the other way round
            if (mesh_.element_type == ElementKind::tetrahedron10) std::swap(nodes.node[8], nodes.node[9]);
            return nodes;
        }
        const ElementFace& face = faces_[thing];
        const auto corners = face_corners(mesh_.element_type, face.face);
        for (const int local : corners) take(mesh_.element(face.element), local);
        if (mesh_.element_type != ElementKind::tetrahedron10) return nodes;
        for (std::size_t k = 0; k < 3; ++k)
            take(mesh_.element(face.element), tetra10_middle(corners[k], corners[(k + 1) % 3]));
        return nodes;
    }

    // Entities of the classes that have things, and blocks of the things: in their order, or class by class.
    void add_blocks(int dimension, int type, const Classes& classes, bool in_order) {
        std::vector<std::int32_t> entity_of(classes.groups.size(), -1), block_of(entity_of);
        std::int32_t count = 0;
        for (std::size_t t = 0; t < classes.class_of.size(); ++t) {
            if (t % 65536 == 0 && job_.progress.cancelled()) return;
            const std::int32_t c = classes.class_of[t];
            if (c == 0) continue;
            if (entity_of[c] < 0) {
                entity_of[c] = static_cast<std::int32_t>(entities_.size());
                const Vec3 x = place_of(mesh_, *nodes_of(dimension, static_cast<std::int32_t>(t)).begin());
                entities_.push_back({dimension, ++count, classes.groups[c], x, x});
            }
            Entity& entity = entities_[entity_of[c]];
            const bool goes_on = !blocks_.empty() && block_of[c] == int(blocks_.size()) - 1;
            if (block_of[c] < 0 || (in_order && !goes_on)) {
                block_of[c] = static_cast<std::int32_t>(blocks_.size());
                blocks_.push_back({dimension, type, entity.number, {}});
            }
            blocks_[block_of[c]].things.push_back(static_cast<std::int32_t>(t));
            for (const std::int32_t n : nodes_of(dimension, static_cast<std::int32_t>(t)))
                for (std::size_t k = 0; k < 3 && dimension > 0; ++k) {
                    entity.low[k] = std::min(entity.low[k], mesh_.node(n)[k]);
                    entity.high[k] = std::max(entity.high[k], mesh_.node(n)[k]);
                }
        }
    }

    void add_solids() {
        Classes classes(mesh_.element_num());
        std::vector<std::vector<std::int32_t>> of_part(job_.model.parts.size());
        for (std::int32_t e = 0; e < mesh_.element_num(); ++e) of_part[mesh_.p_ele_part_id[e]].push_back(e);
        for (std::size_t p = 0; p < of_part.size(); ++p)
            if (!of_part[p].empty()) classes.add(physical(3, "part", job_.model.parts[p].name), of_part[p]);
        for (const MeshSet& set : mesh_.sets)
            if (!set.elements.empty()) classes.add(physical(3, "set", set.name), set.elements);
        add_blocks(3, types().solid, classes, true);
    }

    // A set of elements is a volume, which says it all.
    void add_faces() {
        for (const MeshSet& set : mesh_.sets)
            if (set.elements.empty()) faces_.insert(faces_.end(), set.faces.begin(), set.faces.end());
        std::ranges::sort(faces_);
        faces_.erase(std::unique(faces_.begin(), faces_.end()), faces_.end());
        Classes classes(faces_.size());
        std::vector<std::int32_t> things;
        for (const MeshSet& set : mesh_.sets) {
            if (!set.elements.empty() || set.faces.empty()) continue;
            things.clear();
            for (const ElementFace& face : set.faces)
                things.push_back(static_cast<std::int32_t>(
                    std::lower_bound(faces_.begin(), faces_.end(), face) - faces_.begin()));
            classes.add(physical(2, "set", set.name), things);
        }
        add_blocks(2, types().face, classes, false);
    }

    // Sets of nodes, and those of faces whose nodes are not those of the set.
    void add_points() {
        Classes classes(mesh_.node_num());
        std::vector<std::int32_t> own;
        for (const MeshSet& set : mesh_.sets) {
            if (!set.elements.empty()) continue;
            own.clear();
            for (const ElementFace& face : set.faces)
                for (const int local : outward_triangles(mesh_.element_type, face.face))
                    own.push_back(static_cast<std::int32_t>(node_index(mesh_.element(face.element)[local])));
            std::ranges::sort(own);
            own.erase(std::unique(own.begin(), own.end()), own.end());
            if (own != set.nodes && !set.nodes.empty()) classes.add(physical(0, "set", set.name), set.nodes);
        }
        add_blocks(0, 15, classes, false);
    }

    std::string physical_names() const {
        std::string text = formatted("$PhysicalNames\n%zu\n", physicals_.size());
        for (std::size_t p = 0; p < physicals_.size(); ++p)
            text += formatted("%d %zu \"", physicals_[p].dimension, p + 1) + physicals_[p].name + "\"\n";
        return text + "$EndPhysicalNames\n";
    }

    std::string entities() const {
        const auto count = [&](int dimension) {
            return std::ranges::count(entities_, dimension, &Entity::dimension);
        };
        std::string text = formatted("$Entities\n%ld 0 %ld %ld\n", count(0), count(2), count(3));
        for (const int dimension : {0, 2, 3})
            for (const Entity& entity : entities_) {
                if (entity.dimension != dimension) continue;
                append_d(text, entity.number);
                for (const double x : entity.low) append_exact(text += ' ', x);
                for (const double x : entity.high)
                    if (dimension > 0) append_exact(text += ' ', x);
                append_d(text += ' ', static_cast<std::int64_t>(entity.physicals.size()));
                for (const std::int32_t group : entity.physicals) append_d(text += ' ', group);
                text += dimension > 0 ? " 0\n" : "\n";  // no entities that bound it
            }
        return text + "$EndEntities\n";
    }

    // All of them belong to the first volume.
    void write_nodes(TextOutput& file) const {
        const std::vector<std::int32_t> nodes = solid_nodes(mesh_);
        const auto count = static_cast<std::int64_t>(nodes.size());
        file.write(
            formatted("$Nodes\n1 %ld %d %d\n3 1 0 %ld\n", count, nodes.front() + 1, nodes.back() + 1, count));
        file.write_rows(count, job_.threads, [&](std::int64_t k, std::string& text) {
            append_d(text, nodes[k] + 1);
            text += '\n';
        });
        file.write_rows(count, job_.threads, [&](std::int64_t k, std::string& text) {
            for (std::size_t c = 0; c < 3; ++c) {
                append_exact(text, mesh_.node(nodes[k])[c]);
                text += c < 2 ? ' ' : '\n';
            }
        });
        file.write("$EndNodes\n");
    }

    // The solids, which come first, under their own numbers.
    void write_elements(TextOutput& file) const {
        std::int64_t count = 0;
        for (const Block& block : blocks_) count += static_cast<std::int64_t>(block.things.size());
        file.write(formatted("$Elements\n%zu %ld 1 %ld\n", blocks_.size(), count, count));
        std::int64_t first = 1;
        for (const Block& block : blocks_) {
            const auto rows = static_cast<std::int64_t>(block.things.size());
            file.write(formatted("%d %d %d %ld\n", block.dimension, block.entity, block.type, rows));
            file.write_rows(rows, job_.threads, [&](std::int64_t k, std::string& text) {
                append_d(text, first + k);
                for (const std::int32_t n : nodes_of(block.dimension, block.things[k]))
                    append_d(text += ' ', n + 1);
                text += '\n';
            });
            first += rows;
        }
        file.write("$EndElements\n");
    }

    const ExportJob& job_;
    const Mesh& mesh_;
    std::array<ExportNames, 3> names_;  // of volumes, surfaces and points
    std::vector<ElementFace> faces_;    // of all sets, ascending
    std::vector<Physical> physicals_;   // number k + 1
    std::vector<Entity> entities_;
    std::vector<Block> blocks_;
};

}  // namespace

bool export_msh(const ExportJob& job) {
    if (!job.model.mesh.surface_part_id.empty())
        job.remarks.notices.push_back("facets of STL parts are left out");
    const MshWriter writer(job);
    return write_export(job, [&](TextOutput& file) { writer.write(file); });
}

}  // namespace kestralum
