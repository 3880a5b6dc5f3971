#include "model/mesh_sets.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "model/face_points.h"
#include "model/free_faces.h"
#include "model/smooth_patches.h"

namespace kestralum {

namespace {

constexpr std::string_view kind_words[] = {"box",    "plane", "sphere",       "cylinder",
                                           "normal", "patch", "where",        "part",
                                           "group",  "union", "intersection", "difference"};

template <typename Entry>
std::vector<Entry> combined(SetKind kind, const std::vector<Entry>& a, const std::vector<Entry>& b) {
    std::vector<Entry> out;
    const auto to = std::back_inserter(out);
    if (kind == SetKind::union_of) std::ranges::set_union(a, b, to);
    if (kind == SetKind::intersection) std::ranges::set_intersection(a, b, to);
    if (kind == SetKind::difference) std::ranges::set_difference(a, b, to);
    return out;
}

class SetMaker {
public:
    SetMaker(std::span<const Part> parts, Mesh& mesh, const Progress& progress)
        : parts_(parts),
          mesh_(mesh),
          progress_(progress),
          node_elements_(elements_of_nodes(mesh)),
          free_(free_faces(mesh, &progress)),
          patches_(mesh, free_) {}

    // Empty, or what is wrong.
    std::string add(const SetDefinition& definition) {
        definition_ = &definition;
        tolerance_ = definition.tolerance >= 0 ? definition.tolerance : merging_fraction * mesh_.max_length;
        set_ = {};
        set_.name = definition.name;
        const std::string wrong = make();
        if (wrong.empty()) mesh_.sets.push_back(std::move(set_));
        return wrong;
    }

private:
    std::string make() {
        const auto& v = definition_->numbers;
        const std::int32_t axis = definition_->axis;
        switch (definition_->kind) {
            case SetKind::box:
                return take_places([&](const double* x) {
                    for (std::size_t c = 0; c < 3; ++c)
                        if (!(x[c] >= v[2 * c] - tolerance_ && x[c] <= v[2 * c + 1] + tolerance_))
                            return false;
                    return true;
                });
            case SetKind::plane:
                return take_places([&](const double* x) { return std::abs(x[axis] - v[0]) <= tolerance_; });
            case SetKind::sphere:
                return take_places([&](const double* x) {
                    return std::abs(std::hypot(x[0] - v[0], x[1] - v[1], x[2] - v[2]) - v[3]) <= tolerance_;
                });
            case SetKind::cylinder:
                return take_places([&](const double* x) {
                    const std::size_t a = (axis + 1) % 3, b = (axis + 2) % 3;
                    return std::abs(std::hypot(x[a] - v[a], x[b] - v[b]) - v[3]) <= tolerance_;
                });
            case SetKind::where:
                return take_places([&](const double* x) { return definition_->where(x) >= 0; });
            case SetKind::normal:
                return take_faces_along({v[0], v[1], v[2]}, v[3]);
            case SetKind::patch:
                return take_patch({v[0], v[1], v[2]}, v[3]);
            case SetKind::part:
                return take_part();
            case SetKind::group:
            case SetKind::union_of:
            case SetKind::intersection:
            case SetKind::difference:
                return combine();
        }
        return "unknown kind";
    }

    bool stopped(std::size_t turn) const { return turn % 1024 == 0 && progress_.cancelled(); }

    template <typename Test>
    std::string take_places(const Test& test) {
        std::vector<char> inside(mesh_.node_num(), 0);
        for (std::int32_t n = 0; n < mesh_.node_num(); ++n) {
            if (stopped(n)) return {};
            if (!node_elements_.any(n) || !test(mesh_.node(n))) continue;
            inside[n] = 1;
            set_.nodes.push_back(n);
        }
        for (const ElementFace& face : free_) {
            const auto corners = face_corners(mesh_.element_type, face.face);
            const auto element = mesh_.element(face.element);
            if (std::ranges::all_of(corners, [&](int k) { return inside[node_index(element[k])] != 0; }))
                set_.faces.push_back(face);
        }
        return {};
    }

    std::string take_faces_along(const Vec3& direction, double degrees) {
        const double least = std::cos(degrees * std::numbers::pi / 180) - 1e-12;
        const Vec3 along = unit(direction);
        for (std::size_t k = 0; k < free_.size(); ++k) {
            if (stopped(k)) return {};
            if (dot(unit(area_vector(mesh_, free_[k]), {}), along) >= least) set_.faces.push_back(free_[k]);
        }
        set_.nodes = nodes_of_faces(mesh_, set_.faces);
        return {};
    }

    std::string take_patch(const Vec3& place, double degrees) {
        set_.faces = patches_.around(place, degrees, &progress_);
        set_.nodes = nodes_of_faces(mesh_, set_.faces);
        return {};
    }

    std::string take_part() {
        std::int32_t part = -1;
        for (std::size_t p = 0; p < parts_.size(); ++p)
            if (parts_[p].name == definition_->operands[0]) part = static_cast<std::int32_t>(p);
        if (part < 0) return "no part has the name " + definition_->operands[0];
        std::vector<char> inside(mesh_.node_num(), 0);
        for (std::int32_t e = 0; e < mesh_.element_num(); ++e)
            if (is_of(e, part))
                for (const std::int32_t node : mesh_.element(e)) inside[node_index(node)] = 1;
        for (std::int32_t n = 0; n < mesh_.node_num(); ++n)
            if (inside[n]) set_.nodes.push_back(n);
        for (const ElementFace& face : free_)
            if (is_of(face.element, part)) set_.faces.push_back(face);
        return {};
    }

    bool is_of(std::int32_t element, std::int32_t part) const {
        const std::int32_t own = mesh_.p_ele_part_id[element];
        return own == part || parts_[own].derived_from == part;
    }

    // A body has its free faces.
    std::vector<ElementFace> faces_of(const MeshSet& set) const {
        std::vector<ElementFace> faces = set.faces;
        if (!faces.empty() || set.elements.empty()) return faces;
        for (const ElementFace& face : free_)
            if (std::ranges::binary_search(set.elements, face.element)) faces.push_back(face);
        return faces;
    }

    std::string combine() {
        for (std::size_t k = 0; k < definition_->operands.size(); ++k) {
            const MeshSet* operand = find_set(mesh_, definition_->operands[k]);
            if (!operand)
                return (definition_->kind == SetKind::group ? "no imported mesh has the group "
                                                            : "no set before it has the name ") +
                       definition_->operands[k];
            const std::vector<ElementFace> faces = faces_of(*operand);
            if (k == 0) {
                set_.nodes = operand->nodes;
                set_.faces = faces;
                set_.elements = operand->elements;
            } else {
                set_.nodes = combined(definition_->kind, set_.nodes, operand->nodes);
                set_.faces = combined(definition_->kind, set_.faces, faces);
                set_.elements = combined(definition_->kind, set_.elements, operand->elements);
            }
        }
        return {};
    }

    std::span<const Part> parts_;
    Mesh& mesh_;
    const Progress& progress_;
    NodeElements node_elements_;
    std::vector<ElementFace> free_;
    SmoothPatches patches_;
    const SetDefinition* definition_ = nullptr;
    double tolerance_ = 0;
    MeshSet set_;
};

}  // namespace

std::span<const std::string_view> set_kind_words() {
    return kind_words;
}

bool define_sets(std::span<const SetDefinition> definitions, std::span<const Part> parts, Mesh& mesh,
                 Remarks& remarks, const Progress& progress) {
    if (definitions.empty()) return true;
    SetMaker maker(parts, mesh, progress);
    const std::size_t errors = remarks.errors.size();
    for (const SetDefinition& definition : definitions) {
        const std::string wrong = maker.add(definition);
        if (progress.cancelled()) return false;
        if (!wrong.empty())
            remarks.errors.push_back(definition.place + ": set " + definition.name + ": " + wrong);
    }
    return remarks.errors.size() == errors;
}

const MeshSet* find_set(const Mesh& mesh, std::string_view name) {
    const auto found = std::ranges::find(mesh.sets, name, &MeshSet::name);
    return found == mesh.sets.end() ? nullptr : &*found;
}

SetFigures measure_set(const Mesh& mesh, const MeshSet& set) {
    SetFigures out;
    for (const ElementFace& face : set.faces) out.area += face_area(mesh, face);
    for (std::size_t k = 0; k < set.nodes.size(); ++k)
        for (std::size_t c = 0; c < 3; ++c) {
            const double x = mesh.node(set.nodes[k])[c];
            out.box[2 * c] = k == 0 ? x : std::min(out.box[2 * c], x);
            out.box[2 * c + 1] = k == 0 ? x : std::max(out.box[2 * c + 1], x);
        }
    return out;
}

}  // namespace kestralum
