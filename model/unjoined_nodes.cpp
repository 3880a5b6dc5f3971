#include "model/unjoined_nodes.h"

#include <algorithm>
#include <limits>
#include <map>

#include "model/free_faces.h"
#include "model/triangle.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

struct Box {
    Vec3 low, high;
    bool contains(const double* x) const {
        for (std::size_t k = 0; k < 3; ++k)
            if (x[k] < low[k] || x[k] > high[k]) return false;
        return true;
    }
};

// Nodes as a k-d tree without pointers: the middle of a range parts it along the axis depth mod 3.
class NodeTree {
public:
    NodeTree(const Mesh& mesh, std::vector<std::int32_t> nodes) : mesh_(mesh), nodes_(std::move(nodes)) {
        sort(0, nodes_.size(), 0);
    }
    template <typename Visit>
    void visit_in(const Box& box, Visit visit) const {
        visit_range(box, 0, nodes_.size(), 0, visit);
    }

private:
    void sort(std::size_t first, std::size_t last, std::size_t axis) {
        if (last - first < 2) return;
        const std::size_t middle = (first + last) / 2;
        std::nth_element(
            nodes_.begin() + first, nodes_.begin() + middle, nodes_.begin() + last,
            [&](std::int32_t a, std::int32_t b) { return mesh_.node(a)[axis] < mesh_.node(b)[axis]; });
        sort(first, middle, (axis + 1) % 3);
        sort(middle + 1, last, (axis + 1) % 3);
    }
    template <typename Visit>
    void visit_range(const Box& box, std::size_t first, std::size_t last, std::size_t axis,
                     Visit& visit) const {
        if (first == last) return;
        const std::size_t middle = (first + last) / 2;
        const double* x = mesh_.node(nodes_[middle]);
        if (box.contains(x)) visit(nodes_[middle]);
        if (x[axis] >= box.low[axis]) visit_range(box, first, middle, (axis + 1) % 3, visit);
        if (x[axis] <= box.high[axis]) visit_range(box, middle + 1, last, (axis + 1) % 3, visit);
    }

    const Mesh& mesh_;
    std::vector<std::int32_t> nodes_;
};

// Largest edge of the box around the nodes.
double extent_of(const Mesh& mesh, const std::vector<std::int32_t>& nodes) {
    double longest = 0;
    for (std::size_t k = 0; k < 3; ++k) {
        double low = std::numeric_limits<double>::infinity(), high = -low;
        for (std::int32_t n : nodes) {
            low = std::min(low, mesh.node(n)[k]);
            high = std::max(high, mesh.node(n)[k]);
        }
        longest = std::max(longest, high - low);
    }
    return longest;
}

// The parts that have node n, ascending.
std::vector<std::int32_t> parts_of(const Mesh& mesh, const NodeElements& around, std::int32_t n) {
    std::vector<std::int32_t> parts;
    for (std::int32_t e : around.of(n)) parts.push_back(mesh.p_ele_part_id[e]);
    std::sort(parts.begin(), parts.end());
    parts.erase(std::unique(parts.begin(), parts.end()), parts.end());
    return parts;
}

// A node on a face of a part.
struct Touch {
    std::int32_t node, part;
    auto operator<=>(const Touch&) const = default;
};

// Nodes of `tree` on faces of parts that do not have them, each once per part, ascending.
std::vector<Touch> find_touches(const Mesh& mesh, const std::vector<SurfaceTriangle>& surface,
                                const NodeTree& tree, const NodeElements& around, double tolerance,
                                const Progress& progress) {
    std::vector<Touch> touches;
    for (const SurfaceTriangle& triangle : surface) {
        if (progress.cancelled()) break;
        Vec3 corner[3];
        for (std::size_t k = 0; k < 3; ++k) corner[k] = triple(mesh.coordinates, triangle.node[k]);
        Box box;
        for (std::size_t k = 0; k < 3; ++k) {
            const auto [low, high] = std::minmax({corner[0][k], corner[1][k], corner[2][k]});
            box.low[k] = low - tolerance;
            box.high[k] = high + tolerance;
        }
        tree.visit_in(box, [&](std::int32_t n) {
            const auto elements = around.of(n);
            const auto of_this_part = [&](std::int32_t e) { return mesh.p_ele_part_id[e] == triangle.part; };
            if (std::any_of(elements.begin(), elements.end(), of_this_part)) return;
            const Vec3 p = triple(mesh.coordinates, n);
            if (norm(minus(p, closest_point(p, corner[0], corner[1], corner[2]))) <= tolerance)
                touches.push_back({n, triangle.part});
        });
    }
    std::sort(touches.begin(), touches.end());
    touches.erase(std::unique(touches.begin(), touches.end()), touches.end());
    return touches;
}

}  // namespace

std::vector<UnjoinedContact> find_unjoined_nodes(const Mesh& mesh, const Progress& progress) {
    const auto& part = mesh.p_ele_part_id;
    if (std::adjacent_find(part.begin(), part.end(), std::not_equal_to<>()) == part.end()) return {};
    const std::vector<SurfaceTriangle> surface = surface_triangles(mesh);
    const std::vector<std::int32_t> nodes = surface_nodes(surface, mesh.node_num());
    const NodeElements around = elements_of_nodes(mesh);
    const double tolerance = merging_fraction * extent_of(mesh, nodes);
    const std::vector<Touch> touches =
        find_touches(mesh, surface, NodeTree(mesh, nodes), around, tolerance, progress);

    std::map<std::array<std::int32_t, 2>, UnjoinedContact> contacts;
    for (const Touch& touch : touches)
        for (const std::int32_t own : parts_of(mesh, around, touch.node)) {
            const std::array<std::int32_t, 2> pair{std::min(own, touch.part), std::max(own, touch.part)};
            UnjoinedContact& contact = contacts[pair];
            contact.part = pair;
            ++contact.nodes[own == pair[1]];
            if (contact.first_node == 0) contact.first_node = touch.node + 1;
        }
    std::vector<UnjoinedContact> out;
    for (const auto& [pair, contact] : contacts) out.push_back(contact);
    for (const std::int32_t n : nodes) {
        if (out.empty()) break;
        const std::vector<std::int32_t> parts = parts_of(mesh, around, n);
        if (parts.size() < 2) continue;
        for (UnjoinedContact& contact : out)
            contact.joined += std::binary_search(parts.begin(), parts.end(), contact.part[0]) &&
                              std::binary_search(parts.begin(), parts.end(), contact.part[1]);
    }
    return out;
}

}  // namespace kestralum
