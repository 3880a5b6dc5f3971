#include "mesh/part_catalogue.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "mesh/cad_import.h"
#include "mesh/gmsh_import.h"
#include "mesh/inp_import.h"
#include "mesh/stl_import.h"
#include "mesh/vol_import.h"
#include "model/format.h"
#include "model/progress.h"

namespace kestralum {

namespace {

constexpr std::size_t row_fields = 22;

const ShapeRow catalogue[] = {
    {"RECT", Shape::rect, {"b", "h", "L"}, {"db", "dh", "dl"}, &box_shape},
    {"CYLI", Shape::cyli, {"R", "L"}, {"dr", "dl"}, &cylinder_shape},
    {"CYLI2RECT", Shape::cyli2rect, {"s1", "s2", "s3"}, {"d1", "d2", "d3"}},
    {"HOLLOWRECT", Shape::hollowrect, {"b", "h", "t", "L"}, {"db", "dh", "dt", "dl"}, &hollow_box_shape},
    {"HOLLOWCYLI", Shape::hollowcyli, {"R", "t", "L"}, {"da", "dt", "dl"}, &hollow_cylinder_shape},
    {"TRAPEZOID", Shape::trapezoid, {"b1", "b2", "h", "t", "L"}, {"db", "dh", "dl"}, &trapezoid_shape},
    {"TRIPOLE", Shape::tripole, {"b1", "b2", "ANG", "L"}, {"db", "dl"}, &tripole_shape},
    {"SPHERE", Shape::sphere, {}, {}},
    {"ARCH", Shape::arch, {"R", "W", "L"}, {"dr", "dt", "dl"}, &arch_shape},
    {"HALF_ARCH", Shape::half_arch, {"R", "W", "L"}, {"dr", "dt", "dl"}, &arch_shape},
    {"HALF_CYLI", Shape::half_cyli, {"R", "L"}, {"dr", "dl"}, &cylinder_shape},
    {"QUART_CYLI", Shape::quart_cyli, {"R", "L"}, {"dr", "dl"}, &cylinder_shape},
    {"STL", Shape::stl, {}, {}, nullptr, import_stl, true},
    {"VOL", Shape::vol, {}, {}, nullptr, import_vol},
    {"HALF_HOLLOWCYLI", Shape::half_hollowcyli, {"R", "t", "L"}, {"da", "dt", "dl"}, &hollow_cylinder_shape},
    {"QUART_HOLLOWCYLI",
     Shape::quart_hollowcyli,
     {"R", "t", "L"},
     {"da", "dt", "dl"},
     &hollow_cylinder_shape},
    {"MSH", Shape::msh, {}, {}, nullptr, import_msh},
    {"INP", Shape::inp, {}, {}, nullptr, import_inp},
    {"STEP", Shape::step, {}, {}, nullptr, import_cad, true},
    {"SURF_CIRCLE", Shape::surf_circle, {"s1"}, {}},
    {"SURF_RECT", Shape::surf_rect, {"s1", "s2"}, {}},
    {"HOLE_CYLI", Shape::hole_cyli, {"s1", "s2"}, {}},
    {"HOLE_RECT", Shape::hole_rect, {"s1", "s2", "s3"}, {}},
    {"R_CHAMFER", Shape::r_chamfer, {"s1", "s2"}, {}},
    {"FILLET", Shape::fillet, {"s1", "s2"}, {}},
    {"HOLE_HALFCYLI", Shape::hole_halfcyli, {"s1", "s2"}, {}},
};

struct Color {
    const char* keyword;
    std::array<double, 3> rgb;
};
constexpr PartOption part_options[] = {
    {"group", PartOptionKind::group, false, "group=NAME and behind it material=NAME"},
    {"material", PartOptionKind::material, false, "group=NAME and behind it material=NAME"},
    {"size", PartOptionKind::size, true, "size=LENGTH above 0, in the part's unit"},
    {"order", PartOptionKind::order, true, "order=1 or order=2"},
    {"curvature", PartOptionKind::curvature, true, "curvature=NUMBER of elements per turn, 0 to 1000"},
    {"fragment", PartOptionKind::fragment, true, "fragment=on or fragment=off"},
    {"refine", PartOptionKind::refine, true, "refine=GROUP:SIZE with a size above 0, in the part's unit"},
};

constexpr Color colors[] = {
    {"blue", {0, 0, 1}},           {"red", {1, 0, 0}},       {"lime", {0, 1, 0}},
    {"green", {0, 0.5, 0}},        {"magenta", {1, 0, 1}},   {"purple", {0.5, 0, 0.5}},
    {"yellow", {1, 1, 0}},         {"brown", {0.5, 0.5, 0}}, {"cyan", {0, 1, 1}},
    {"black", {0, 0, 0}},          {"white", {1, 1, 1}},     {"gray", {0.5, 0.5, 0.5}},
    {"darkgray", {0.2, 0.2, 0.2}}, {"orange", {1, 0.5, 0}},
};

int names_in(const std::array<const char*, 6>& names) {
    return static_cast<int>(std::find(names.begin(), names.end(), nullptr) - names.begin());
}

// Makes one part record; every complaint names the part and the field.
class PartMaker {
public:
    PartMaker(const PartRow& row, std::int32_t index, const Evaluate& evaluate, Remarks& remarks)
        : row_(row), evaluate_(evaluate), remarks_(remarks) {
        part_.id = index;
        part_.name = truncate_text(row.fields[0], name_text_width);
    }

    Part make(std::span<const Material> materials) {
        part_.color_name = truncate_text(row_.fields[1], name_text_width);
        part_.color = part_color(part_.color_name);
        find_material(materials);
        const ShapeRow& shape = find_type();
        copy_texts(part_.size_text, 4, field_text_width);
        copy_texts(part_.div_text, 10, field_text_width);
        copy_texts(part_.origin_text, 16, field_text_width);
        copy_texts(part_.euler_text, 19, field_text_width);
        for (int k = 0; k < shape.size_count(); ++k)
            part_.size[k] = value(std::string("size ") + shape.sizes[k], row_.fields[4 + k]);
        for (int k = 0; k < shape.division_count(); ++k)
            part_.div[k] = division(std::string("division ") + shape.divisions[k], row_.fields[10 + k]);
        find_path_or_parent_name(shape);
        find_unit();
        constexpr const char* axes[] = {"x", "y", "z"};
        for (std::size_t k = 0; k < 3; ++k)
            part_.origin[k] = value(std::string("origin ") + axes[k], row_.fields[16 + k]);
        read_options(materials);
        for (std::size_t k = 0; k < 3; ++k)
            part_.euler_angles[k] = value("euler angle " + std::to_string(k + 1), row_.fields[19 + k]);
        return std::move(part_);
    }

private:
    std::string place() const { return "part \"" + part_.name + "\": "; }
    void error(const std::string& text) { remarks_.errors.push_back(place() + text); }

    double value(const std::string& field, std::string_view text) {
        double result = 0;
        std::string why;
        if (!evaluate_(text, result, why)) {
            error(field + ": " + why);
            return 0;
        }
        if (!std::isfinite(result)) {
            error(field + ": \"" + std::string(text) + "\" is not a finite number");
            return 0;
        }
        return result;
    }
    std::int32_t division(const std::string& field, const std::string& text) {
        const double whole = std::trunc(value(field, text));
        if (std::abs(whole) > 2147483647.0) {
            error(field + ": \"" + text + "\" = " + formatted("%.6g", whole) +
                  ", at most 2147483647 expected");
            return 0;
        }
        return static_cast<std::int32_t>(whole);
    }
    template <std::size_t N>
    void copy_texts(std::array<std::string, N>& texts, std::size_t first_field, std::size_t width) const {
        for (std::size_t k = 0; k < N; ++k) texts[k] = truncate_text(row_.fields[first_field + k], width);
    }
    void find_material(std::span<const Material> materials) {
        part_.material_name = truncate_text(row_.fields[2], name_text_width);
        // the material table keeps a few characters more than the record
        const std::string wanted = truncate_text(row_.fields[2], material_text_width);
        bool found = false;
        for (std::size_t m = 0; m < materials.size(); ++m)
            if (materials[m].name == wanted) {
                part_.material_id = static_cast<std::int32_t>(m);
                found = true;
            }
        if (!found) error("material \"" + row_.fields[2] + "\" is none of the model's materials");
    }
    const ShapeRow& find_type() {
        const std::string& keyword = row_.fields[3];
        part_.type_name = truncate_text(keyword, name_text_width);
        const ShapeRow* shape = find_shape(keyword);
        if (!shape) {
            remarks_.notices.push_back(place() + "shape \"" + keyword +
                                       "\" is unknown, a box (RECT) is taken");
            shape = &shape_row(Shape::rect);
        }
        part_.type = shape->shape;
        return *shape;
    }
    void find_path_or_parent_name(const ShapeRow& shape) {
        const std::string& path = row_.fields[4];
        if (shape.import && path.size() > field_text_width)
            error("the path of its mesh file has " + std::to_string(path.size()) + " characters, at most " +
                  std::to_string(field_text_width) + " expected");
        part_.parent_name = truncate_text(shape.import ? path : row_.parent, name_text_width);
    }
    void find_unit() {
        part_.unit_text = truncate_text(row_.unit, name_text_width);
        if (row_.unit == "m" || row_.unit == "M") {
            part_.unit_factor = 1.0;
        } else if (row_.unit == "mm" || row_.unit == "MM") {
            part_.unit_factor = 0.001;
        } else {
            const std::size_t errors_before = remarks_.errors.size();
            part_.unit_factor = value("unit", row_.unit);
            if (!(part_.unit_factor > 0) && remarks_.errors.size() == errors_before)
                error("unit: \"" + row_.unit + "\" must be greater than 0");
        }
    }

    void wrong_option(PartOptionKind kind, const std::string& value) {
        const auto& option = *std::ranges::find(part_options, kind, &PartOption::kind);
        error("option " + std::string(option.word) + "=" + value + ": " + option.expected + " expected");
    }
    void read_options(std::span<const Material> materials) {
        bool group_waits = false;  // for its material
        for (const auto& [kind, text] : row_.options) {
            if (group_waits != (kind == PartOptionKind::material))
                wrong_option(group_waits ? PartOptionKind::group : kind,
                             group_waits ? part_.group_materials.back().group : text);
            group_waits = false;
            if (kind == PartOptionKind::group) {
                part_.group_materials.push_back({truncate_text(text, name_text_width), {}});
                group_waits = true;
            } else if (kind == PartOptionKind::material) {
                if (part_.group_materials.empty()) return;  // told above
                part_.group_materials.back().material_name = truncate_text(text, name_text_width);
                if (std::ranges::find(materials, text, &Material::name) == materials.end())
                    error("material \"" + text + "\" is none of the model's materials");
            } else {
                read_mesh_option(kind, text);
            }
        }
        if (group_waits) wrong_option(PartOptionKind::group, part_.group_materials.back().group);
    }
    void read_mesh_option(PartOptionKind kind, const std::string& text) {
        MeshOptions& options = part_.mesh_options;
        const std::size_t errors_before = remarks_.errors.size();
        // a refused expression has been told
        const auto require = [&](bool good) {
            if (!good && remarks_.errors.size() == errors_before) wrong_option(kind, text);
        };
        if (kind == PartOptionKind::size) {
            require((options.size = value("option size", text)) > 0);
        } else if (kind == PartOptionKind::order) {
            options.order = division("option order", text);
            require(options.order == 1 || options.order == 2);
        } else if (kind == PartOptionKind::curvature) {
            options.curvature = value("option curvature", text);
            require(options.curvature >= 0 && options.curvature <= 1000);
        } else if (kind == PartOptionKind::fragment) {
            options.fragment = text == "on";
            require(text == "on" || text == "off");
        } else {
            const std::size_t colon = text.rfind(':');
            if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return require(false);
            // a part of the same text, so that the reader finds its place
            const double size = value("option refine", std::string_view(text).substr(colon + 1));
            require(size > 0);
            options.refinements.push_back({text.substr(0, colon), size});
        }
    }

    const PartRow& row_;
    const Evaluate& evaluate_;
    Remarks& remarks_;
    Part part_;
};

// A part may name a parent that comes after it; the last of several of one name is taken.
void find_parents(std::span<const PartRow> rows, std::vector<Part>& parts, Remarks& remarks) {
    std::unordered_map<std::string_view, std::int32_t> last_of_name;
    for (const Part& part : parts) last_of_name[part.name] = part.id;
    for (Part& part : parts) {
        const std::string parent = truncate_text(rows[part.id].parent, name_text_width);
        if (parent == "NONE") continue;
        const auto found = last_of_name.find(parent);
        if (found != last_of_name.end())
            part.parent_index = found->second;
        else
            remarks.notices.push_back("part \"" + part.name + "\": its parent \"" + parent +
                                      "\" does not exist");
    }
}

void echo(const Part& part, Progress& progress) {
    progress.print("%s: parent=%s\n", part.name.c_str(), part.parent_name.c_str());
    progress.print(" size:%.3e,%.3e,%.3e,%.3e,%.3e,%.3e\n", part.size[0], part.size[1], part.size[2],
                   part.size[3], part.size[4], part.size[5]);
    progress.print("  div:%d,%d,%d,%d,%d,%d\n", part.div[0], part.div[1], part.div[2], part.div[3],
                   part.div[4], part.div[5]);
    progress.print("  origin:%.3e,%.3e,%.3e\n", part.origin[0], part.origin[1], part.origin[2]);
    progress.print("  euler_ang:%.3e,%.3e,%.3e\n", part.euler_angles[0], part.euler_angles[1],
                   part.euler_angles[2]);
}

}  // namespace

int ShapeRow::size_count() const {
    return names_in(sizes);
}
int ShapeRow::division_count() const {
    return names_in(divisions);
}

std::span<const ShapeRow> shape_catalogue() {
    return catalogue;
}

const ShapeRow* find_shape(std::string_view keyword) {
    const auto row = std::find_if(std::begin(catalogue), std::end(catalogue),
                                  [&](const ShapeRow& r) { return keyword == r.keyword; });
    return row == std::end(catalogue) ? nullptr : &*row;
}

const ShapeRow& shape_row(Shape shape) {
    const auto row = std::find_if(std::begin(catalogue), std::end(catalogue),
                                  [&](const ShapeRow& r) { return shape == r.shape; });
    return row == std::end(catalogue) ? catalogue[0] : *row;
}

const PartOption* find_part_option(std::string_view token, const ShapeRow* shape) {
    if (!shape || !shape->import) return nullptr;
    const auto option = std::ranges::find_if(part_options, [&](const PartOption& o) {
        const std::string_view word = o.word;
        return token.size() > word.size() && token.starts_with(word) && token[word.size()] == '=' &&
               (shape->divided || !o.of_mesher);
    });
    return option == std::end(part_options) ? nullptr : option;
}

std::array<double, 3> part_color(std::string_view color_name) {
    for (const Color& color : colors)
        if (color_name == color.keyword) return color.rgb;
    return {1, 1, 1};
}

std::vector<Part> create_PART(std::span<const PartRow> rows, std::span<const Material> materials,
                              const Evaluate& evaluate, Remarks& remarks, Progress& progress) {
    std::vector<Part> parts;
    if (rows.empty()) return parts;
    progress.print("create_PART\n");
    for (std::size_t k = 0; k < rows.size(); ++k)
        if (rows[k].fields.size() < row_fields) {
            remarks.errors.push_back("part " + std::to_string(k) + ": " +
                                     std::to_string(rows[k].fields.size()) + " fields, 22 expected");
            return parts;
        }
    for (std::size_t k = 0; k < rows.size(); ++k) {
        if (progress.cancelled()) return parts;
        parts.push_back(PartMaker(rows[k], static_cast<std::int32_t>(k), evaluate, remarks).make(materials));
        echo(parts.back(), progress);
    }
    find_parents(rows, parts, remarks);
    return parts;
}

}  // namespace kestralum
