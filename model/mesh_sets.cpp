#include "model/mesh_sets.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>

#include "model/free_faces.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

constexpr std::string_view kind_words[] = {"box",    "plane", "sphere",       "cylinder",
                                           "normal", "patch", "where",        "part",
                                           "group",  "union", "intersection", "difference"};

Vec3 place_of_node(const Mesh& mesh, std::int32_t number) {
    const double* x = mesh.node(node_index(number));
    return {x[0], x[1], x[2]};
}

// Node numbers (1-based) of a face's outward triangles, one after the other.
std::vector<std::int32_t> face_triangles(const Mesh& mesh, const ElementFace& face) {
    std::vector<std::int32_t> nodes;
    for (const int local : outward_triangles(mesh.element_type, face.face))
        nodes.push_back(mesh.element(face.element)[local]);
    return nodes;
}

// Outward, as long as the face's area.
Vec3 area_vector(const Mesh& mesh, const ElementFace& face) {
    const std::vector<std::int32_t> t = face_triangles(mesh, face);
    Vec3 sum{};
    for (std::size_t k = 0; k + 2 < t.size(); k += 3) {
        const Vec3 a = place_of_node(mesh, t[k]), b = place_of_node(mesh, t[k + 1]),
                   c = place_of_node(mesh, t[k + 2]);
        sum = plus(sum, times(0.5, cross(minus(b, a), minus(c, a))));
    }
    return sum;
}

// Distance of a place to a triangle (Ericson, Real-Time Collision Detection, 2005, 5.1.5), squared.
double distance_to_triangle(const Vec3& p, const Vec3& a, const Vec3& b, const Vec3& c) {
    const auto to = [&](const Vec3& from, const Vec3& along, double t) {
        const Vec3 d = minus(p, plus(from, times(t, along)));
        return dot(d, d);
    };
    const auto to_edge = [&](const Vec3& from, const Vec3& end) {
        const Vec3 along = minus(end, from);
        const double square = dot(along, along);
        return to(from, along, square > 0 ? std::clamp(dot(minus(p, from), along) / square, 0.0, 1.0) : 0);
    };
    double best = std::min({to_edge(a, b), to_edge(b, c), to_edge(c, a)});
    const Vec3 u = minus(b, a), v = minus(c, a), w = minus(p, a), n = cross(u, v);
    const double nn = dot(n, n);
    if (!(nn > 0)) return best;
    const double s = dot(cross(w, v), n) / nn, t = dot(cross(u, w), n) / nn;
    if (s >= 0 && t >= 0 && s + t <= 1) best = std::min(best, dot(w, n) * dot(w, n) / nn);
    return best;
}

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
          free_(free_faces(mesh, &progress)) {}

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

    void take_nodes_of_faces() {
        for (const ElementFace& face : set_.faces)
            for (const std::int32_t node : face_triangles(mesh_, face))
                set_.nodes.push_back(static_cast<std::int32_t>(node_index(node)));
        std::ranges::sort(set_.nodes);
        set_.nodes.erase(std::unique(set_.nodes.begin(), set_.nodes.end()), set_.nodes.end());
    }

    std::string take_faces_along(const Vec3& direction, double degrees) {
        const double least = std::cos(degrees * std::numbers::pi / 180) * norm(direction);
        for (std::size_t k = 0; k < free_.size(); ++k) {
            if (stopped(k)) return {};
            const Vec3 n = area_vector(mesh_, free_[k]);
            if (dot(n, direction) >= (least - 1e-12 * norm(direction)) * norm(n))
                set_.faces.push_back(free_[k]);
        }
        take_nodes_of_faces();
        return {};
    }

    std::size_t nearest_face(const Vec3& place) const {
        std::size_t nearest = 0;
        double best = std::numeric_limits<double>::infinity();
        for (std::size_t k = 0; k < free_.size(); ++k) {
            if (stopped(k)) break;
            const std::vector<std::int32_t> t = face_triangles(mesh_, free_[k]);
            for (std::size_t i = 0; i + 2 < t.size(); i += 3) {
                const double d =
                    distance_to_triangle(place, place_of_node(mesh_, t[i]), place_of_node(mesh_, t[i + 1]),
                                         place_of_node(mesh_, t[i + 2]));
                if (d < best) {
                    best = d;
                    nearest = k;
                }
            }
        }
        return nearest;
    }

    // Free faces on either side of each edge, by the numbers of its corners.
    std::map<std::array<std::int32_t, 2>, std::vector<std::size_t>> edges() const {
        std::map<std::array<std::int32_t, 2>, std::vector<std::size_t>> faces_of;
        for (std::size_t k = 0; k < free_.size(); ++k) {
            const auto corners = face_corners(mesh_.element_type, free_[k].face);
            const auto element = mesh_.element(free_[k].element);
            for (std::size_t c = 0; c < corners.size(); ++c) {
                const std::int32_t a = element[corners[c]], b = element[corners[(c + 1) % corners.size()]];
                faces_of[{std::min(a, b), std::max(a, b)}].push_back(k);
            }
        }
        return faces_of;
    }

    std::string take_patch(const Vec3& place, double degrees) {
        if (free_.empty()) return {};
        const auto faces_of = edges();
        std::vector<std::vector<std::size_t>> beside(free_.size());
        for (const auto& [edge, faces] : faces_of)
            for (const std::size_t a : faces)
                for (const std::size_t b : faces)
                    if (a != b) beside[a].push_back(b);
        const double least = std::cos(degrees * std::numbers::pi / 180) - 1e-12;
        std::vector<char> taken(free_.size(), 0);
        std::vector<std::size_t> front{nearest_face(place)};
        taken[front[0]] = 1;
        while (!front.empty()) {
            const std::size_t at = front.back();
            front.pop_back();
            if (stopped(front.size())) return {};
            const Vec3 n = area_vector(mesh_, free_[at]);
            for (const std::size_t next : beside[at]) {
                const Vec3 m = area_vector(mesh_, free_[next]);
                if (taken[next] || dot(n, m) < least * norm(n) * norm(m)) continue;
                taken[next] = 1;
                front.push_back(next);
            }
        }
        for (std::size_t k = 0; k < free_.size(); ++k)
            if (taken[k]) set_.faces.push_back(free_[k]);
        take_nodes_of_faces();
        return {};
    }

    std::string take_part() {
        std::int32_t part = -1;
        for (std::size_t p = 0; p < parts_.size(); ++p)
            if (parts_[p].name == definition_->operands[0]) part = static_cast<std::int32_t>(p);
        if (part < 0) return "no part has the name " + definition_->operands[0];
        std::vector<char> inside(mesh_.node_num(), 0);
        for (std::int32_t e = 0; e < mesh_.element_num(); ++e)
            if (mesh_.p_ele_part_id[e] == part)
                for (const std::int32_t node : mesh_.element(e)) inside[node_index(node)] = 1;
        for (std::int32_t n = 0; n < mesh_.node_num(); ++n)
            if (inside[n]) set_.nodes.push_back(n);
        for (const ElementFace& face : free_)
            if (mesh_.p_ele_part_id[face.element] == part) set_.faces.push_back(face);
        return {};
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
    for (const ElementFace& face : set.faces) out.area += norm(area_vector(mesh, face));
    for (std::size_t k = 0; k < set.nodes.size(); ++k)
        for (std::size_t c = 0; c < 3; ++c) {
            const double x = mesh.node(set.nodes[k])[c];
            out.box[2 * c] = k == 0 ? x : std::min(out.box[2 * c], x);
            out.box[2 * c + 1] = k == 0 ? x : std::max(out.box[2 * c + 1], x);
        }
    return out;
}

}  // namespace kestralum
