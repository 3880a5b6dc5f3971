#include "mesh/part_groups.h"

#include <algorithm>
#include <unordered_map>

#include "mesh/part_mesh.h"

namespace kestralum {

namespace {

// Corners of a face, ascending, so that all who share it have the same; 0 in a triangle's last place.
using FaceKey = std::array<std::int32_t, 4>;

FaceKey face_key(FaceKey corners) {
    std::sort(corners.begin(), corners.end() - (corners[3] == 0));
    return corners;
}

template <typename T, typename Less = std::less<>>
void sort_once(std::vector<T>& list, Less less = {}) {
    std::sort(list.begin(), list.end(), less);
    const auto same = [&](const T& a, const T& b) { return !less(a, b) && !less(b, a); };
    list.erase(std::unique(list.begin(), list.end(), same), list.end());
}

bool before(const ElementFace& a, const ElementFace& b) {
    return a.element != b.element ? a.element < b.element : a.face < b.face;
}

// The faces that groups name by their corners, and the first element that has each.
class WantedFaces {
public:
    WantedFaces(std::span<const RawGroup> raw, const PartMesh& mesh)
        : mesh_(mesh), wanted_(mesh.node_num() + 1, 0) {
        for (const RawGroup& group : raw)
            for (const FaceKey& corners : group.corners)
                if (is_face(corners)) keys_.push_back(face_key(corners));
        sort_once(keys_);
        faces_.assign(keys_.size(), {-1, -1});
        for (const FaceKey& key : keys_)
            for (const std::int32_t node : key) wanted_[node] = 1;
    }

    // False where `progress` asks to stop.
    bool find_in_elements(const Progress* progress) {
        if (keys_.empty()) return true;
        const FaceTable table = face_table(mesh_.kind);
        const std::int64_t elements = mesh_.element_num(), per_element = nodes_per_element(mesh_.kind);
        for (std::int64_t e = 0; e < elements; ++e) {
            if (e % 4096 == 0 && progress && progress->cancelled()) return false;
            const std::int32_t* node = &mesh_.connectivity[e * per_element];
            for (int f = 0; f < table.faces; ++f) {
                FaceKey corners{};
                const auto local = face_corners(mesh_.kind, f);
                int known = 0;
                for (std::size_t k = 0; k < local.size(); ++k) {
                    corners[k] = node[local[k]];
                    known += wanted_[corners[k]];
                }
                if (known < table.corners) continue;
                ElementFace* face = place(face_key(corners));
                if (face && face->element < 0) *face = {static_cast<std::int32_t>(e), f};
            }
        }
        return true;
    }
    // Element -1 where none has it.
    ElementFace of(const FaceKey& corners) {
        const ElementFace* face = is_face(corners) ? place(face_key(corners)) : nullptr;
        return face ? *face : ElementFace{-1, -1};
    }

private:
    bool is_face(const FaceKey& corners) const {
        const auto is_node = [&](std::int32_t n) { return n >= 1 && n <= mesh_.node_num(); };
        return is_node(corners[0]) && is_node(corners[1]) && is_node(corners[2]) &&
               (corners[3] == 0 || is_node(corners[3]));
    }
    ElementFace* place(const FaceKey& key) {
        const auto at = std::lower_bound(keys_.begin(), keys_.end(), key);
        return at != keys_.end() && *at == key ? &faces_[at - keys_.begin()] : nullptr;
    }

    const PartMesh& mesh_;
    std::vector<char> wanted_;        // nodes, by number: whether a wanted face has it
    std::vector<FaceKey> keys_;       // ascending
    std::vector<ElementFace> faces_;  // of each key
};

// Names without blanks, each once.
class Names {
public:
    Names(const std::string& place, std::vector<std::string>& notices) : place_(place), notices_(notices) {}

    std::string take(const std::string& told) {
        std::string name = told.empty() ? "group" : told;
        for (char& c : name)
            if (static_cast<unsigned char>(c) <= ' ') c = '_';
        const auto of_name = last_.try_emplace(name, 1);
        if (!of_name.second) {
            const std::string first = name;
            do name = first + "_" + std::to_string(++last_[first]);
            while (!last_.try_emplace(name, 1).second);
        }
        if (name != told)
            notices_.push_back(place_ + "group \"" + told + "\" is taken as \"" + name + "\": " +
                               (of_name.second ? "a name has no blanks" : "another one has its name"));
        return name;
    }

private:
    const std::string& place_;
    std::vector<std::string>& notices_;
    std::unordered_map<std::string, std::int64_t> last_;  // of each name the number that came last
};

// Completes the nodes of one group after the other.
class GroupNodes {
public:
    explicit GroupNodes(const PartMesh& mesh) : mesh_(mesh), taken_(mesh.node_num() + 1, 0) {}

    // Ascending, each once.
    void complete(PartGroup& group) {
        const std::size_t per_element = nodes_per_element(mesh_.kind);
        const std::vector<std::int32_t> own = std::move(group.nodes);
        ++group_;
        nodes_.clear();
        for (const std::int32_t node : own) take(node);
        for (const std::int32_t e : group.elements)
            for (std::size_t k = 0; k < per_element; ++k) take(mesh_.connectivity[e * per_element + k]);
        for (const ElementFace& face : group.faces)
            for (const int local : outward_triangles(mesh_.kind, face.face))  // mid-side nodes too
                take(mesh_.connectivity[face.element * per_element + local]);
        if (nodes_.size() < taken_.size() / 16) {
            std::sort(nodes_.begin(), nodes_.end());
        } else {
            nodes_.clear();
            for (std::size_t n = 1; n < taken_.size(); ++n)
                if (taken_[n] == group_) nodes_.push_back(static_cast<std::int32_t>(n));
        }
        group.nodes.assign(nodes_.begin(), nodes_.end());
    }

private:
    void take(std::int32_t node) {
        if (taken_[node] == group_) return;
        taken_[node] = group_;
        nodes_.push_back(node);
    }
    const PartMesh& mesh_;
    std::vector<std::int32_t> taken_;  // nodes, by number: the last group that has it, from 1
    std::int32_t group_ = 0;
    std::vector<std::int32_t> nodes_;
};

}  // namespace

std::vector<PartGroup> make_part_groups(std::span<const RawGroup> raw, const PartMesh& mesh,
                                        std::string_view file_name, std::vector<std::string>& notices,
                                        const Progress* progress) {
    const std::string place = "file " + std::string(file_name) + ": ";
    WantedFaces wanted(raw, mesh);
    if (!wanted.find_in_elements(progress)) return {};
    Names names(place, notices);
    GroupNodes nodes(mesh);
    std::vector<PartGroup> groups;
    for (const RawGroup& from : raw) {
        if (progress && progress->cancelled()) return {};
        PartGroup group{{}, from.elements, from.faces, from.nodes};
        std::int64_t missing = 0;
        for (const FaceKey& corners : from.corners) {
            const ElementFace face = wanted.of(corners);
            if (face.element >= 0)
                group.faces.push_back(face);
            else
                ++missing;
        }
        sort_once(group.elements);
        sort_once(group.faces, before);
        nodes.complete(group);
        if (missing > 0)
            notices.push_back(place + "faces of group \"" + from.name +
                              "\" that no solid element has are left out: " + std::to_string(missing));
        if (group.nodes.empty()) {
            notices.push_back(place + "group \"" + from.name +
                              "\" has nothing of the solid elements and is left out");
            continue;
        }
        group.name = names.take(from.name);
        groups.push_back(std::move(group));
    }
    return groups;
}

}  // namespace kestralum
