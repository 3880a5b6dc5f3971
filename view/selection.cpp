#include "view/selection.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "model/format.h"
#include "model/token_reader.h"

namespace kestralum::view {

namespace {

constexpr int digits = 9;              // of a coordinate in a record
constexpr std::size_t names_told = 4;  // in a line of the picture

std::string number_text(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits).ptr;
    return {text, end};
}

std::string listed(const std::vector<std::string>& names, const char* between) {
    std::string text;
    for (std::size_t k = 0; k < std::min(names.size(), names_told); ++k)
        text += (k ? between : "") + names[k];
    if (names.size() > names_told) text += formatted(" and %zu more", names.size() - names_told);
    return text;
}

std::vector<std::string> other_sets(const Mesh& mesh, const ElementFace& face, const MeshSet* but) {
    std::vector<std::string> names;
    for (const MeshSet& set : mesh.sets)
        if (&set != but && (std::ranges::binary_search(set.faces, face) ||
                            std::ranges::binary_search(set.elements, face.element)))
            names.push_back(set.name);
    return names;
}

template <typename Entry>
void unite(std::vector<Entry>& all, const std::vector<Entry>& more) {
    std::vector<Entry> both;
    std::ranges::set_union(all, more, std::back_inserter(both));
    all.swap(both);
}

}  // namespace

Vec3 patch_place(const Mesh& mesh, const Surface& surface, const Pick& pick) {
    constexpr double least_share = 0.05;
    Vec3 shares = pick.shares;
    for (double& share : shares) share = std::max(share, least_share);
    shares = times(1 / (shares[0] + shares[1] + shares[2]), shares);
    Vec3 place{};
    for (std::size_t k = 0; k < 3; ++k)
        place = plus(place, times(shares[k], place_of(mesh, surface.triangles[3 * pick.triangle + k])));
    for (double& x : place) x = parse_double(number_text(x)).value_or(x);
    return place;
}

const MeshSet* smallest_set_with(const Mesh& mesh, const ElementFace& face) {
    const MeshSet* smallest = nullptr;
    for (const MeshSet& set : mesh.sets)
        if ((!smallest || set.faces.size() < smallest->faces.size()) &&
            std::ranges::binary_search(set.faces, face))
            smallest = &set;
    return smallest;
}

std::optional<SelectedFaces> select_faces(const Mesh& mesh, std::span<const SetDefinition> definitions,
                                          const Surface& surface, const Pick& pick,
                                          const std::function<SmoothPatches&()>& patches) {
    const auto face = face_of_triangle(mesh, surface, pick.triangle);
    if (!face) return std::nullopt;
    const MeshSet* set = smallest_set_with(mesh, *face);
    SelectedFaces selected;
    selected.also = other_sets(mesh, *face, set);
    if (set) {
        const bool defined =
            std::ranges::find(definitions, set->name, &SetDefinition::name) != definitions.end();
        selected.set = *set;
        selected.record = (defined ? "union  " : "group  ") + set->name;
        return selected;
    }
    const Vec3 place = patch_place(mesh, surface, pick);
    selected.record = "patch ";
    for (const double x : place) selected.record += " " + number_text(x);
    selected.record += "  " + number_text(patch_angle);
    selected.set.name = "patch";
    selected.set.faces = patches().around(place, patch_angle);
    // a face that only shows because its neighbour is hidden: no patch of the whole model has it
    if (!std::ranges::binary_search(selected.set.faces, *face)) return std::nullopt;
    selected.set.nodes = nodes_of_faces(mesh, selected.set.faces);
    return selected;
}

void FaceSelection::clear() {
    items_.clear();
    all_ = {};
}

void FaceSelection::add(SelectedFaces faces) {
    const bool there = std::ranges::any_of(
        items_, [&](const SelectedFaces& item) { return item.set.faces == faces.set.faces; });
    if (there) return;
    unite(all_.faces, faces.set.faces);
    unite(all_.nodes, faces.set.nodes);
    items_.push_back(std::move(faces));
}

std::vector<std::string> FaceSelection::text(const Mesh& mesh) const {
    if (empty()) return {};
    const SetFigures figures = measure_set(mesh, all_);
    const auto& b = figures.box;
    std::vector<std::string> names;
    for (const SelectedFaces& item : items_) names.push_back(item.set.name);
    std::vector<std::string> lines{
        "Selected: " + listed(names, " + "),
        formatted("%.6g m^2, %zu faces, %zu nodes", figures.area, all_.faces.size(), all_.nodes.size()),
        formatted("(%.6g, %.6g, %.6g) to (%.6g, %.6g, %.6g) m", b[0], b[2], b[4], b[1], b[3], b[5])};
    if (items_.size() == 1 && !items_[0].also.empty())
        lines.push_back("also in " + listed(items_[0].also, ", "));
    return lines;
}

std::vector<std::int32_t> FaceSelection::triangles(const Mesh& mesh) const {
    std::vector<std::int32_t> nodes;
    for (const ElementFace& face : all_.faces)
        for (const int local : outward_triangles(mesh.element_type, face.face))
            nodes.push_back(mesh.element(face.element)[local] - 1);
    return nodes;
}

std::string FaceSelection::records(std::span<const SetDefinition> definitions,
                                   std::vector<std::string>& given) const {
    int number = 0;
    const auto new_name = [&] {
        std::string name;
        do name = "face_" + std::to_string(++number);
        while (std::ranges::find(given, name) != given.end() ||
               std::ranges::find(definitions, name, &SetDefinition::name) != definitions.end());
        given.push_back(name);
        return name;
    };
    std::string text, names;
    for (const SelectedFaces& item : items_) {
        const std::string name = new_name();
        text += "  " + name + "  " + item.record + "\n";
        names += (names.empty() ? "" : ",") + name;
    }
    if (items_.size() > 1) text += "  " + new_name() + "  union  " + names + "\n";
    return text;
}

}  // namespace kestralum::view
