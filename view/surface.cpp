#include "view/surface.h"

#include <algorithm>
#include <numeric>

#include "model/free_faces.h"

namespace kestralum::view {

namespace {

constexpr double outline_cosine = 0.86602540378443865;  // 30° between face normals

std::int32_t part_of(std::span<const std::int32_t> part_id, std::int64_t row) {
    return row < std::ssize(part_id) && part_id[row] >= 0 ? part_id[row] : -1;
}

bool in(const std::vector<char>& chosen, std::int32_t part) {
    return part >= 0 && part < std::ssize(chosen) && chosen[part];
}
bool any(const std::vector<char>& chosen) {
    return std::ranges::find(chosen, 1) != chosen.end();
}

}  // namespace

std::vector<char> gone_elements(const Mesh& mesh, const std::vector<char>& hidden,
                                const RemovedElements& removed) {
    std::vector<char> gone(mesh.element_num(), 0);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        gone[e] = in(hidden, part_of(mesh.p_ele_part_id, e));
    for (const std::int32_t e : removed.elements)
        if (e >= 0 && e < mesh.element_num()) gone[e] = 1;
    return gone;
}

namespace {

std::vector<ElementFace> all_faces(const Mesh& mesh, const std::vector<char>& hidden,
                                   const RemovedElements& removed) {
    const FaceTable table = face_table(mesh.element_type);
    const std::vector<char> gone = gone_elements(mesh, hidden, removed);
    std::vector<ElementFace> faces;
    faces.reserve(std::int64_t{mesh.element_num()} * table.faces);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        for (int f = 0; f < table.faces && !gone[e]; ++f) faces.push_back({e, f});
    return faces;
}

// The free faces of the mesh without some parts and elements.
std::vector<ElementFace> free_faces_without(const Mesh& mesh, const std::vector<char>& parts,
                                            const RemovedElements& removed) {
    if (removed.numbers) return free_faces_left(mesh, *removed.numbers, gone_elements(mesh, parts, removed));
    if (!any(parts)) return free_faces(mesh);
    Mesh rest;
    rest.element_type = mesh.element_type;
    rest.coordinates.resize(mesh.coordinates.size());
    std::vector<std::int32_t> elements;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        if (in(parts, part_of(mesh.p_ele_part_id, e))) continue;
        const auto nodes = mesh.element(e);
        rest.connectivity.insert(rest.connectivity.end(), nodes.begin(), nodes.end());
        elements.push_back(e);
    }
    std::vector<ElementFace> faces = free_faces(rest);
    for (ElementFace& face : faces) face.element = elements[face.element];
    return faces;
}

// Opaque parts are closed against translucent ones, these only against nothing.
std::vector<ElementFace> outer_faces(const Mesh& mesh, const PartChoice& choice,
                                     const RemovedElements& removed) {
    std::vector<ElementFace> faces = free_faces_without(mesh, choice.hidden, removed);
    if (!any(choice.clear)) return faces;
    std::erase_if(faces, [&](const ElementFace& face) {
        return !in(choice.clear, part_of(mesh.p_ele_part_id, face.element));
    });
    std::vector<char> without = choice.clear;
    without.resize(std::max(without.size(), choice.hidden.size()));
    for (std::size_t p = 0; p < choice.hidden.size(); ++p) without[p] |= choice.hidden[p];
    const auto opaque = free_faces_without(mesh, without, removed);
    faces.insert(faces.end(), opaque.begin(), opaque.end());
    std::ranges::sort(faces);
    return faces;
}

// Boundary of a face as local node pairs: corner to corner, by way of the mid-side node if there is one.
std::vector<std::array<int, 2>> face_segments(ElementKind kind, int face) {
    const auto corners = face_corners(kind, face);
    std::vector<std::array<int, 2>> segments;
    for (std::size_t k = 0; k < corners.size(); ++k) {
        const int a = corners[k], b = corners[(k + 1) % corners.size()];
        int middle = -1;
        if (kind == ElementKind::tetrahedron10)
            for (int m = 0; m < 6; ++m) {
                const auto& ends = tetra10_edge[m];
                if ((ends[0] == a && ends[1] == b) || (ends[0] == b && ends[1] == a)) middle = 4 + m;
            }
        if (middle < 0) {
            segments.push_back({a, b});
        } else {
            segments.push_back({a, middle});
            segments.push_back({middle, b});
        }
    }
    return segments;
}

// One side of a face: the face's first triangle stands for the face.
struct Side {
    std::int32_t low, high;  // 0-based nodes
    std::int64_t triangle;
};

class SurfaceBuilder {
public:
    SurfaceBuilder(const Mesh& mesh, Faces faces) : mesh_(mesh), faces_(faces) {}

    // `shown_facets`: of which parts.
    template <typename ShownFacets>
    Surface run(const std::vector<ElementFace>& list, ShownFacets shown_facets) {
        add_solid_faces(list);
        add_facets(shown_facets);
        collect_nodes();
        if (faces_ == Faces::free) normals_ = triangle_normals(out_, mesh_.coordinates);
        sort_sides();
        write_edges();
        return std::move(out_);
    }

private:
    // Rows by part, ascending and stable: the order in which `part_id` sorts 0 … rows-1.
    template <typename PartOf>
    static std::vector<std::int32_t> rows_by_part(std::size_t rows, PartOf part) {
        std::vector<std::int32_t> order(rows);
        std::iota(order.begin(), order.end(), 0);
        const auto before = [&](std::int32_t a, std::int32_t b) { return part(a) < part(b); };
        if (!std::is_sorted(order.begin(), order.end(), before))
            std::stable_sort(order.begin(), order.end(), before);
        return order;
    }

    void count_triangles(std::int32_t part, int per_face, bool new_group) {
        if (new_group || out_.parts.empty() || out_.parts.back().part != part)
            out_.parts.push_back({part, out_.triangle_num(), 0, per_face});
        out_.parts.back().count += per_face;
    }

    // An element is closed: among all its faces every edge runs once in each direction, and one of
    // the two is enough.
    void add_solid_faces(const std::vector<ElementFace>& list) {
        const FaceTable table = face_table(mesh_.element_type);
        std::vector<std::vector<std::array<int, 2>>> segments;
        for (int f = 0; f < table.faces; ++f) segments.push_back(face_segments(mesh_.element_type, f));
        const auto triangle_count = list.size() * table.triangles_per_face;
        out_.triangles.reserve(3 * triangle_count);
        out_.triangle_element.reserve(triangle_count);
        sides_.reserve(list.size() * segments[0].size() / (faces_ == Faces::all ? 2 : 1));
        auto part = [&](std::int32_t k) { return part_of(mesh_.p_ele_part_id, list[k].element); };
        for (const std::int32_t row : rows_by_part(list.size(), part)) {
            const ElementFace& face = list[row];
            const auto element = mesh_.element(face.element);
            const std::int64_t first = out_.triangle_num();
            count_triangles(part(row), table.triangles_per_face, false);
            for (int local : outward_triangles(mesh_.element_type, face.face))
                out_.triangles.push_back(element[local] - 1);
            out_.triangle_element.insert(out_.triangle_element.end(), table.triangles_per_face, face.element);
            for (const auto& [a, b] : segments[face.face])
                if (faces_ == Faces::free || element[a] < element[b])
                    add_side(element[a] - 1, element[b] - 1, first);
        }
    }

    template <typename ShownFacets>
    void add_facets(ShownFacets shown_facets) {
        const std::size_t facets = mesh_.surface_facets.size() / 3;
        auto part = [&](std::int32_t k) { return part_of(mesh_.surface_part_id, k); };
        bool new_group = true;
        for (const std::int32_t row : rows_by_part(facets, part)) {
            if (!shown_facets(part(row))) continue;
            const std::int32_t* node = mesh_.surface_facets.data() + 3 * std::int64_t{row};
            const std::int64_t first = out_.triangle_num();
            count_triangles(part(row), 1, new_group);
            new_group = false;
            for (int k = 0; k < 3; ++k) {
                out_.triangles.push_back(node[k] - 1);
                add_side(node[k] - 1, node[(k + 1) % 3] - 1, first);
            }
            out_.triangle_element.push_back(-1);
        }
    }

    // A collapsed face has sides without length; they are nobody's edge.
    void add_side(std::int32_t a, std::int32_t b, std::int64_t triangle) {
        if (a != b) sides_.push_back({std::min(a, b), std::max(a, b), triangle});
    }

    void collect_nodes() {
        enum : char { hidden, facet, solid };
        std::vector<char> drawn(mesh_.node_num(), hidden);
        for (std::size_t k = 0; k < out_.triangles.size(); ++k) {
            char& node = drawn[out_.triangles[k]];
            node = std::max<char>(node, out_.triangle_element[k / 3] >= 0 ? solid : facet);
        }
        for (std::int32_t n = 0; n < mesh_.node_num(); ++n) {
            if (drawn[n] != hidden) out_.nodes.push_back(n);
            if (drawn[n] == solid) out_.value_nodes.push_back(n);
        }
    }

    // Buckets by the lower node (counts, places), each sorted by the higher: the sides of an edge
    // come to stand together.
    void sort_sides() {
        start_.assign(mesh_.node_num() + 1, 0);
        for (const Side& side : sides_) ++start_[side.low + 1];
        for (std::size_t n = 1; n < start_.size(); ++n) start_[n] += start_[n - 1];
        std::vector<Side> sorted(sides_.size());
        std::vector<std::int64_t> place(start_.begin(), start_.end() - 1);
        for (const Side& side : sides_) sorted[place[side.low]++] = side;
        for (std::size_t n = 0; n + 1 < start_.size(); ++n)
            std::sort(sorted.begin() + start_[n], sorted.begin() + start_[n + 1],
                      [](const Side& a, const Side& b) {
                          return a.high != b.high ? a.high < b.high : a.triangle < b.triangle;
                      });
        sides_.swap(sorted);
    }

    void write_edges() {
        for (std::size_t first = 0; first < sides_.size();) {
            std::size_t end = first + 1;
            while (end < sides_.size() && sides_[end].low == sides_[first].low &&
                   sides_[end].high == sides_[first].high)
                ++end;
            const std::int32_t edge[2] = {sides_[first].low, sides_[first].high};
            out_.edges.insert(out_.edges.end(), edge, edge + 2);
            if (faces_ == Faces::free && shows_shape(first, end))
                out_.outline.insert(out_.outline.end(), edge, edge + 2);
            first = end;
        }
    }

    bool shows_shape(std::size_t first, std::size_t end) const {
        if (end - first != 2) return true;
        const std::int64_t a = sides_[first].triangle, b = sides_[first + 1].triangle;
        if (part_of_triangle(a) != part_of_triangle(b)) return true;
        const float* u = &normals_[3 * a];
        const float* v = &normals_[3 * b];
        return double{u[0]} * v[0] + double{u[1]} * v[1] + double{u[2]} * v[2] < outline_cosine;
    }

    // Position in the list of parts; that is enough to distinguish two parts.
    std::ptrdiff_t part_of_triangle(std::int64_t triangle) const {
        return std::upper_bound(out_.parts.begin(), out_.parts.end(), triangle,
                                [](std::int64_t t, const PartTriangles& p) { return t < p.first; }) -
               out_.parts.begin();
    }

    const Mesh& mesh_;
    Faces faces_;
    Surface out_;
    std::vector<Side> sides_;
    std::vector<std::int64_t> start_;
    std::vector<float> normals_;
};

// Twice the area of triangle t times its normal.
Vec3 area_vector(const Surface& surface, std::span<const double> x, std::int64_t t) {
    const std::int32_t* node = surface.triangles.data() + 3 * t;
    const Vec3 a = triple(x, node[0]);
    return cross(minus(triple(x, node[1]), a), minus(triple(x, node[2]), a));
}

}  // namespace

PartChoice part_choice(const PartLooks& looks) {
    PartChoice choice;
    for (const PartLook& look : looks) {
        choice.hidden.push_back(!look.visible);
        choice.clear.push_back(look.visible && look.opacity < 1);
    }
    for (std::vector<char>* flags : {&choice.hidden, &choice.clear})
        if (!any(*flags)) flags->clear();
    return choice;
}

Surface build_surface(const Mesh& mesh, Faces faces, const PartChoice& choice,
                      const RemovedElements& removed) {
    return SurfaceBuilder(mesh, faces)
        .run(faces == Faces::free ? outer_faces(mesh, choice, removed)
                                  : all_faces(mesh, choice.hidden, removed),
             [&](std::int32_t part) { return !in(choice.hidden, part); });
}

Surface highlight_surface(const Mesh& mesh, const Surface& outside, const Highlight& highlight) {
    const int face_num = face_table(mesh.element_type).faces;
    const auto chosen = [&](std::int32_t part) { return std::ranges::count(highlight.parts, part) > 0; };
    std::vector<ElementFace> faces;
    for (const ElementFace& face : highlight.faces)
        if (face.element >= 0 && face.element < mesh.element_num() && face.face >= 0 && face.face < face_num)
            faces.push_back(face);
    std::vector<std::int32_t> drawn_facets;
    for (const PartTriangles& group : outside.parts) {
        if (!chosen(group.part)) continue;
        if (outside.triangle_element[group.first] < 0) drawn_facets.push_back(group.part);
        for (std::int64_t t = group.first; t < group.first + group.count; t += group.triangles_per_face)
            if (const auto face = face_of_triangle(mesh, outside, t)) faces.push_back(*face);
    }
    std::ranges::sort(faces);
    faces.erase(std::unique(faces.begin(), faces.end()), faces.end());
    return SurfaceBuilder(mesh, Faces::free).run(faces, [&](std::int32_t part) {
        return std::ranges::count(drawn_facets, part) > 0;
    });
}

std::optional<ElementFace> face_of_triangle(const Mesh& mesh, const Surface& surface, std::int64_t triangle) {
    if (triangle < 0 || triangle >= surface.triangle_num()) return std::nullopt;
    const std::int32_t element = surface.triangle_element[triangle];
    if (element < 0) return std::nullopt;
    const auto nodes = mesh.element(element);
    const std::int32_t* drawn = surface.triangles.data() + 3 * triangle;
    for (int face = 0; face < face_table(mesh.element_type).faces; ++face) {
        const auto local = outward_triangles(mesh.element_type, face);
        for (std::size_t k = 0; k < local.size(); k += 3)
            if (nodes[local[k]] - 1 == drawn[0] && nodes[local[k + 1]] - 1 == drawn[1] &&
                nodes[local[k + 2]] - 1 == drawn[2])
                return ElementFace{element, face};
    }
    return std::nullopt;
}

std::vector<ElementFace> faces_of(const Mesh& mesh, const Surface& surface) {
    std::vector<ElementFace> faces;
    for (const PartTriangles& group : surface.parts)
        for (std::int64_t t = group.first; t < group.first + group.count; t += group.triangles_per_face)
            if (const auto face = face_of_triangle(mesh, surface, t)) faces.push_back(*face);
    std::ranges::sort(faces);
    return faces;
}

std::vector<float> triangle_normals(const Surface& surface, std::span<const double> coordinates) {
    std::vector<float> normals;
    normals.reserve(surface.triangles.size());
    for (const PartTriangles& part : surface.parts)
        for (std::int64_t first = part.first; first < part.first + part.count;
             first += part.triangles_per_face) {
            Vec3 sum{};
            for (int k = 0; k < part.triangles_per_face; ++k)
                sum = plus(sum, area_vector(surface, coordinates, first + k));
            const auto n = to_float(unit(sum, {0, 0, 0}));
            for (int k = 0; k < part.triangles_per_face; ++k)
                normals.insert(normals.end(), n.begin(), n.end());
        }
    return normals;
}

std::vector<float> corner_normals(const Surface& surface, std::span<const double> coordinates) {
    const std::vector<float> flat = triangle_normals(surface, coordinates);
    const std::size_t corners = surface.triangles.size(), vertices = coordinates.size() / 3;
    std::vector<std::int64_t> start(vertices + 1, 0), around(corners);
    for (const std::int32_t v : surface.triangles) ++start[v + 1];
    for (std::size_t v = 0; v < vertices; ++v) start[v + 1] += start[v];
    std::vector<std::int64_t> place(start.begin(), start.end() - 1);
    for (std::size_t k = 0; k < corners; ++k) around[place[surface.triangles[k]]++] = std::int64_t(k / 3);
    std::vector<Vec3> area(corners / 3);
    for (std::size_t t = 0; t < area.size(); ++t) area[t] = area_vector(surface, coordinates, t);
    const auto normal_of = [&](std::int64_t t) {
        return Vec3{flat[3 * t], flat[3 * t + 1], flat[3 * t + 2]};
    };
    std::vector<float> normals(3 * corners);
    for (std::size_t k = 0; k < corners; ++k) {
        const Vec3 own = normal_of(std::int64_t(k / 3));
        Vec3 sum{};
        const std::int32_t v = surface.triangles[k];
        for (std::int64_t at = start[v]; at < start[v + 1]; ++at)
            if (dot(own, normal_of(around[at])) > outline_cosine) sum = plus(sum, area[around[at]]);
        const auto n = to_float(unit(sum, own));
        std::ranges::copy(n, normals.begin() + 3 * k);
    }
    return normals;
}

}  // namespace kestralum::view
