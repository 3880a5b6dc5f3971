#include "mesh/inp_import.h"

#include "mesh/import_text.h"
#include "mesh/inp_groups.h"
#include "mesh/tetra_order.h"
#include "model/format.h"

namespace kestralum {

namespace {

// Entries of all sets together, by how large a mesh may be: a hundredth of the memory that its analysis
// takes.
std::int64_t most_set_entries(const MeshCounts& most) {
    return saturated_product(most.nodes, 8);
}

bool order_nodes(std::string_view file_name, const InpDeck& deck, PartMesh& mesh, Remarks& remarks,
                 const Progress& progress) {
    std::vector<std::int64_t> numbers;  // they mean something where there is one list of elements
    if (deck.instances.empty())
        numbers.assign(deck.bodies[0].element_number.begin(), deck.bodies[0].element_number.end());
    const FileOrder order{"Abaqus", true, "1-2, 2-3, 1-3, 1-4, 2-4, 3-4", numbers};
    return check_element_order(file_name, order, mesh, remarks, progress);
}

// False with the error of `lines`, with one in `remarks`, or where `progress` asks to stop.
bool read_deck(InpLines& lines, std::string_view file_name, double unit_factor, const MeshCounts& most,
               PartMesh& mesh, Remarks& remarks, const Progress& progress) {
    InpDeck deck;
    InpLayout layout;
    if (!read_inp_deck(lines, file_name, deck, remarks) ||
        !build_inp_mesh(lines, deck, unit_factor, most, mesh, layout, progress))
        return false;
    const std::vector<std::int32_t> before(mesh.connectivity.begin(),
                                           mesh.connectivity.begin() + nodes_per_element(mesh.kind));
    if (!order_nodes(file_name, deck, mesh, remarks, progress)) return false;
    const std::vector<int> sides =
        find_inp_sides(mesh.kind, before, std::span(mesh.connectivity).first(before.size()));
    std::vector<RawGroup> groups;
    if (!find_inp_groups(lines, deck, layout, mesh, sides, most_set_entries(most), file_name, groups,
                         remarks.notices, progress))
        return false;
    mesh.groups = make_part_groups(groups, mesh, file_name, remarks.notices, &progress);
    return !progress.cancelled();
}

void print_mesh(PartMesh& mesh) {
    mesh.lines += formatted("  Nelem:%ld\n", mesh.element_num());
    mesh.lines += formatted("  element_type:%d\n", static_cast<int>(mesh.kind));
    mesh.lines += formatted("  Nnode:%ld\n", mesh.node_num());
    for (const PartGroup& group : mesh.groups)
        mesh.lines += "  group:" + group.name +
                      formatted(" elements=%zu, faces=%zu, nodes=%zu\n", group.elements.size(),
                                group.faces.size(), group.nodes.size());
}

}  // namespace

bool read_inp_text(std::string_view text, std::string_view file_name, double unit_factor,
                   const MeshCounts& most, PartMesh& mesh, Remarks& remarks, const Progress& progress) {
    return read_or_clear(file_name, mesh, remarks, [&] {
        InpLines lines(text, file_name, progress);
        if (read_deck(lines, file_name, unit_factor, most, mesh, remarks, progress)) {
            print_mesh(mesh);
            return true;
        }
        if (!lines.error().empty()) {
            const bool deck = TokenReader(text).next().starts_with('*');
            const std::string kind = deck ? "" : foreign_format(text, "", "an Abaqus input deck");
            remarks.errors.push_back(kind.empty() ? lines.error()
                                                  : "file " + std::string(file_name) + " " + kind);
        }
        return false;
    });
}

bool import_inp(const Part& part, MeshContext& context, PartMesh& mesh) {
    return import_mesh_file(part, context, mesh, "INP", [&](std::string_view text, const std::string& name) {
        return read_inp_text(text, name, part.unit_factor, context.left, mesh, context.remarks,
                             context.progress);
    });
}

}  // namespace kestralum
