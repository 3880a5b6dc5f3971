#include "view/condition_symbols.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"

namespace kestralum::view {

namespace {

Vec3 corner_middle(const Mesh& mesh, const ElementFace& face, std::span<const double> coordinates) {
    Vec3 sum{};
    const auto corners = face_corners(mesh.element_type, face.face);
    for (const int local : corners)
        sum = plus(sum, triple(coordinates, node_index(mesh.element(face.element)[local])));
    return times(1.0 / static_cast<double>(corners.size()), sum);
}

Vec3 outward(const Mesh& mesh, const ElementFace& face, std::span<const double> coordinates) {
    const auto local = outward_triangles(mesh.element_type, face.face);
    const auto at = [&](std::size_t k) {
        return triple(coordinates, node_index(mesh.element(face.element)[local[k]]));
    };
    Vec3 sum{};
    for (std::size_t k = 0; k < local.size(); k += 3)
        sum = plus(sum, cross(minus(at(k + 1), at(k)), minus(at(k + 2), at(k))));
    return unit(sum, Vec3{});
}

}  // namespace

ActingCases::ActingCases(const Model& model, const std::string& frame_name) {
    if (frame_name.empty()) return;
    for (const LoadCombination& combination : model.combinations)
        if (combination.name == frame_name)
            for (const auto& [name, factor] : combination.terms)
                if (factor != 0) cases_.push_back(name);
    if (cases_.empty()) cases_.push_back(frame_name);
}

bool ActingCases::operator()(const std::string& case_name) const {
    return cases_.empty() ||
           std::ranges::find(cases_, case_name.empty() ? base_case : case_name) != cases_.end();
}

std::vector<FacePlace> spread_faces(const ConditionTables& tables, std::span<const ElementFace> faces,
                                    std::size_t limit, double spacing) {
    const Mesh& mesh = tables.mesh;
    std::vector<Vec3> rest;
    for (const ElementFace& face : faces) rest.push_back(corner_middle(mesh, face, mesh.coordinates));
    std::vector<FacePlace> out;
    if (rest.empty()) return out;
    for (const std::size_t k : spread_out(rest, limit, spacing))
        out.push_back({rest[k], corner_middle(mesh, faces[k], tables.coordinates),
                       outward(mesh, faces[k], tables.coordinates)});
    return out;
}

Vec3 add_arrows(std::span<const FacePlace> places, std::span<const Vec3> vectors, double length,
                Solids& out) {
    constexpr double cosine = 0.5, least = 0.02;
    double largest = 0;
    for (const Vec3& v : vectors)
        if (std::isfinite(norm(v))) largest = std::max(largest, norm(v));
    std::vector<Vec3> free_ends;
    for (std::size_t k = 0; k < places.size() && k < vectors.size(); ++k) {
        const double size = norm(vectors[k]);
        if (!(size > least * largest) || !std::isfinite(size)) continue;
        const Vec3 arrow = times(length / largest, vectors[k]);
        const bool pulls = dot(vectors[k], places[k].normal) > cosine * size;
        const Vec3 foot = places[k].drawn, end = pulls ? plus(foot, arrow) : minus(foot, arrow);
        out.arrows.push_back(pulls ? Arrow{foot, end} : Arrow{end, foot});
        free_ends.push_back(end);
    }
    if (free_ends.empty()) return {};
    const Vec3 centre = middle(free_ends);
    return *std::ranges::min_element(free_ends, {}, [&](const Vec3& p) { return norm(minus(p, centre)); });
}

std::string value_text(std::span<const double> values, const std::string& text, const char* unit) {
    constexpr std::size_t longest = 40;
    const auto [low, high] = std::ranges::minmax_element(values);
    const double size = values.empty() ? 0 : std::max(std::abs(*low), std::abs(*high));
    if (values.empty() || !(*high - *low > 1e-9 * size))
        return formatted("%.3e[%s]", values.empty() ? 0.0 : *low, unit);
    const std::string shown = text.size() > longest ? text.substr(0, longest - 3) + "..." : text;
    return shown + formatted("[%s]", unit);
}

}  // namespace kestralum::view
