#include "conditions/ties.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>

#include "model/face_points.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/smooth_patches.h"

namespace kestralum {

namespace {

constexpr double least_weight = 1e-12;

struct MasterFace : FaceNodes {
    Vec3 low{}, high{};
};

MasterFace master_face(const Mesh& mesh, const ElementFace& face) {
    MasterFace out{face_nodes(mesh, face)};
    out.low = out.high = place_of(mesh, out.node[0]);
    for (int k = 1; k < out.count; ++k)
        for (std::size_t c = 0; c < 3; ++c) {
            out.low[c] = std::min(out.low[c], mesh.node(out.node[k])[c]);
            out.high[c] = std::max(out.high[c], mesh.node(out.node[k])[c]);
        }
    return out;
}

// Into the face's own region, along the sides where the step left it.
void clip(int count, double& r, double& s) {
    if (count == 4) {
        r = std::clamp(r, -1.0, 1.0);
        s = std::clamp(s, -1.0, 1.0);
        return;
    }
    r = std::max(r, 0.0);
    s = std::max(s, 0.0);
    if (const double over = r + s - 1; over > 0) {
        r -= over / 2;
        s -= over / 2;
        if (r < 0) s = 1, r = 0;
        if (s < 0) r = 1, s = 0;
    }
}

struct Foot {
    double distance = 0;
    FaceShape shape;
};

// The point of the face nearest to x: Gauss-Newton on the distance, kept inside the face.
Foot foot_on(const Mesh& mesh, const MasterFace& face, const Vec3& x) {
    double r = face.count == 4 ? 0 : 1.0 / 3, s = r;
    Foot out;
    for (int round = 0; round < 30; ++round) {
        out.shape = face_shape(face.count, r, s);
        Vec3 y{}, a{}, b{};
        for (int i = 0; i < face.count; ++i) {
            const Vec3 at = place_of(mesh, face.node[i]);
            y = plus(y, times(out.shape.N[i], at));
            a = plus(a, times(out.shape.dN[i][0], at));
            b = plus(b, times(out.shape.dN[i][1], at));
        }
        const Vec3 gap = minus(x, y);
        out.distance = norm(gap);
        const double aa = dot(a, a), ab = dot(a, b), bb = dot(b, b), ga = dot(gap, a), gb = dot(gap, b);
        const double det = aa * bb - ab * ab;
        if (!(det > 0)) return out;
        double r1 = r + (bb * ga - ab * gb) / det, s1 = s + (aa * gb - ab * ga) / det;
        clip(face.count, r1, s1);
        if (round > 0 && std::abs(r1 - r) + std::abs(s1 - s) < 1e-15) return out;
        r = r1;
        s = s1;
    }
    return out;
}

// Faces in a grid of cells of their mean size, so that a node looks at those around it only.
class FaceGrid {
public:
    FaceGrid(std::vector<MasterFace> faces, double cell, double reach)
        : faces_(std::move(faces)), cell_(cell), reach_(reach) {
        for (std::size_t f = 0; f < faces_.size(); ++f)
            each_cell(faces_[f].low, faces_[f].high,
                      [&](std::int64_t key) { cells_[key].push_back(static_cast<std::int32_t>(f)); });
    }
    // Null where no face is within reach.
    const MasterFace* nearest(const Mesh& mesh, const Vec3& x, Foot& best) const {
        const MasterFace* out = nullptr;
        const auto found = cells_.find(key_of(cell_of(x)));
        if (found == cells_.end()) return nullptr;
        for (const std::int32_t f : found->second) {
            const Foot foot = foot_on(mesh, faces_[f], x);
            if (foot.distance > reach_ || (out && foot.distance >= best.distance)) continue;
            best = foot;
            out = &faces_[f];
        }
        return out;
    }

private:
    using Cell = std::array<std::int64_t, 3>;
    Cell cell_of(const Vec3& x) const {
        Cell out;
        for (std::size_t c = 0; c < 3; ++c) out[c] = static_cast<std::int64_t>(std::floor(x[c] / cell_));
        return out;
    }
    static std::int64_t key_of(const Cell& c) {
        return (c[0] * 73856093) ^ (c[1] * 19349663) ^ (c[2] * 83492791);
    }
    template <class Take>
    void each_cell(const Vec3& low, const Vec3& high, Take take) {
        const Vec3 margin{reach_, reach_, reach_};
        const Cell a = cell_of(minus(low, margin)), b = cell_of(plus(high, margin));
        for (std::int64_t i = a[0]; i <= b[0]; ++i)
            for (std::int64_t j = a[1]; j <= b[1]; ++j)
                for (std::int64_t k = a[2]; k <= b[2]; ++k) take(key_of({i, j, k}));
    }

    std::vector<MasterFace> faces_;
    double cell_, reach_;
    std::unordered_map<std::int64_t, std::vector<std::int32_t>> cells_;
};

double mean_edge(const Mesh& mesh, std::span<const MasterFace> faces) {
    double sum = 0;
    for (const MasterFace& face : faces) {
        const int corners = face.corners;
        for (int k = 0; k < corners; ++k)
            sum += norm(minus(place_of(mesh, face.node[(k + 1) % corners]), place_of(mesh, face.node[k]))) /
                   corners;
    }
    return sum / static_cast<double>(faces.size());
}

TiedNode tied_node(std::int32_t node, std::int32_t record, const MasterFace& face, const Foot& foot) {
    TiedNode out{node, record, foot.distance, {}};
    for (int i = 0; i < face.count; ++i)
        if (std::abs(foot.shape.N[i]) > least_weight) out.weights.emplace_back(face.node[i], foot.shape.N[i]);
    return out;
}

}  // namespace

TiedNodes find_tied_nodes(std::span<const TieRecord> records, const Mesh& mesh, const Progress& progress) {
    TiedNodes out;
    std::vector<char> taken(mesh.node_num(), 0);
    for (std::size_t t = 0; t < records.size() && out.error.empty(); ++t) {
        const TieRecord& record = records[t];
        const MeshSet* slave = find_set(mesh, record.slave_set);
        const MeshSet* master = find_set(mesh, record.master_set);
        std::vector<MasterFace> faces;
        if (slave && master)
            for (const ElementFace& face : master->faces) faces.push_back(master_face(mesh, face));
        if (faces.empty()) {
            out.error = "tie " + record.name + ": the master set " + record.master_set + " has no faces";
            return out;
        }
        std::vector<char> is_master(mesh.node_num(), 0);
        for (const std::int32_t n : nodes_of_faces(mesh, master->faces)) is_master[n] = 1;
        const double edge = mean_edge(mesh, faces);
        const double reach = record.tolerance >= 0 ? record.tolerance : 0.1 * edge;
        const FaceGrid grid(std::move(faces), edge, std::max(reach, 1e-12 * mesh.max_length));
        std::size_t tied = 0, far = 0, common = 0;
        for (const std::int32_t n : slave->nodes) {
            if (progress.cancelled()) return out;
            if (is_master[n]) ++common;
            if (is_master[n] || taken[n]) continue;
            Foot foot;
            const MasterFace* face = grid.nearest(mesh, place_of(mesh, n), foot);
            if (!face) {
                ++far;
                continue;
            }
            taken[n] = 1;
            ++tied;
            out.tied.push_back(tied_node(n, static_cast<std::int32_t>(t), *face, foot));
        }
        if (tied + common == 0)
            out.error =
                formatted("tie %s: no node of %s lies within %.3g m of a face of %s", record.name.c_str(),
                          record.slave_set.c_str(), reach, record.master_set.c_str());
        else if (tied == 0 && common == slave->nodes.size())
            out.notices.push_back(formatted(
                "tie %s: all nodes of %s are nodes of %s too: nothing is tied. Where parts lie on each "
                "other, `intersection` with each part tells the two faces apart",
                record.name.c_str(), record.slave_set.c_str(), record.master_set.c_str()));
        else if (far > 0)
            out.notices.push_back(
                formatted("tie %s: %zu of %zu nodes of %s lie farther than %.3g m from the faces "
                          "of %s and are not tied",
                          record.name.c_str(), far, slave->nodes.size(), record.slave_set.c_str(), reach,
                          record.master_set.c_str()));
    }
    return out;
}

}  // namespace kestralum
