#include "view/glyphs.h"

#include <algorithm>
#include <cmath>

#include "fields/quantities.h"

namespace kestralum::view {

namespace {

constexpr std::size_t limit = 800;
constexpr double least_share = 0.01;  // of the longest

std::vector<std::int32_t> chosen_nodes(const GlyphRequest& request) {
    std::vector<Vec3> places;
    for (const std::int32_t n : request.nodes) places.push_back(triple(request.places, n));
    std::vector<std::int32_t> nodes;
    for (const std::size_t k : spread_out(places, limit, 0.02 * extent_of(request.mesh.max_length)))
        nodes.push_back(request.nodes[k]);
    return nodes;
}

struct Vectors {
    std::vector<double> values;  // node_num × 3
    const char* text = "";
    const char* unit = "";
};

Vectors field_vectors(const GlyphRequest& request, const char* name) {
    for (const FieldQuantityRow& row : field_quantities)
        if (row.components == 3 && std::string_view(row.name) == name)
            return {FieldValues(request.base.model, request.base.material, request.frame).of(row), row.text,
                    row.unit};
    return {};
}

Vectors vectors_of(const GlyphRequest& request) {
    switch (request.what) {
        case Glyphs::displacement:
            return {request.frame.mode_vec, "Displacement", "m"};
        case Glyphs::reaction:
            return field_vectors(request, "reaction");
        case Glyphs::velocity:
            return field_vectors(request, "velocity");
        case Glyphs::acceleration:
            return field_vectors(request, "acceleration");
        default:
            return {};
    }
}

GlyphSigns vector_signs(const GlyphRequest& request) {
    const Vectors vectors = vectors_of(request);
    GlyphSigns signs;
    if (vectors.values.size() != std::size_t(request.mesh.dof_num())) return signs;
    signs.text = vectors.text;
    signs.unit = vectors.unit;
    // reactions stand at few nodes: those without a vector take no room
    std::vector<std::int32_t> nodes;
    for (const std::int32_t n : request.nodes) {
        const double length = norm(triple(vectors.values, n));
        if (std::isfinite(length)) signs.longest = std::max(signs.longest, length);
    }
    for (const std::int32_t n : request.nodes) {
        const double length = norm(triple(vectors.values, n));
        if (std::isfinite(length) && length > least_share * signs.longest) nodes.push_back(n);
    }
    GlyphRequest some = request;
    some.nodes = nodes;
    const double factor = 0.1 * extent_of(request.mesh.max_length) * request.scale / signs.longest;
    for (const std::int32_t n : chosen_nodes(some)) {
        const Vec3 at = triple(request.places, n);
        signs.arrows.push_back({at, plus(at, times(factor, triple(vectors.values, n)))});
    }
    return signs;
}

GlyphSigns principal_signs(const GlyphRequest& request) {
    constexpr Color tension{0.8f, 0.05f, 0.05f, 1}, pressure{0.05f, 0.15f, 0.8f, 1};
    GlyphSigns signs;
    const FieldValues fields(request.base.model, request.base.material, request.frame);
    std::array<std::vector<double>, 3> value, direction;
    for (std::int32_t k = 0; k < 3; ++k) {
        value[k] = fields.of(*field_quantity_at(static_cast<std::int32_t>(FieldQuantity::principal_1) + k));
        direction[k] =
            fields.of(*field_quantity_at(static_cast<std::int32_t>(FieldQuantity::direction_1) + k));
        if (value[k].empty()) return signs;
    }
    signs.text = "Principal stresses";
    signs.unit = "Pa";
    for (const std::int32_t n : request.nodes)
        for (const auto& values : value)
            if (std::isfinite(values[n])) signs.longest = std::max(signs.longest, std::abs(values[n]));
    if (!(signs.longest > 0)) return signs;
    const double factor = 0.08 * extent_of(request.mesh.max_length) * request.scale / signs.longest;
    for (const std::int32_t n : chosen_nodes(request)) {
        const Vec3 at = triple(request.places, n);
        for (std::size_t k = 0; k < 3; ++k) {
            const double size = value[k][n];
            if (!(std::abs(size) > least_share * signs.longest)) continue;
            const Vec3 half = times(factor * std::abs(size), triple(direction[k], n));
            signs.lines.push_back({minus(at, half), plus(at, half), size > 0 ? tension : pressure});
        }
    }
    return signs;
}

}  // namespace

GlyphSigns glyph_signs(const GlyphRequest& request) {
    if (request.what == Glyphs::none) return {};
    return request.what == Glyphs::principal ? principal_signs(request) : vector_signs(request);
}

}  // namespace kestralum::view
