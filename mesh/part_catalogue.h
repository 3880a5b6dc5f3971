// The catalogue of part shapes, and the part records made from a model file's rows of text.
#pragma once

#include <array>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mesh/part_mesh.h"
#include "mesh/section.h"
#include "model/records.h"
#include "model/remarks.h"

namespace kestralum {

// One shape: its keyword, what it reads and who meshes it. At most one of `extruded` and `import`
// is set; a row with neither makes no elements.
struct ShapeRow {
    const char* keyword;
    Shape shape;
    std::array<const char*, 6> sizes;      // names of the sizes read, in slot order, then null
    std::array<const char*, 6> divisions;  // names of the divisions read
    const ExtrudedShape* extruded = nullptr;
    bool (*import)(const Part&, MeshContext&, PartMesh&) = nullptr;
    bool divided = false;  // an import that the mesher of CAD files divides

    int size_count() const;
    int division_count() const;
};

std::span<const ShapeRow> shape_catalogue();

// Row of a keyword, exact and case-sensitive; null for any other text.
const ShapeRow* find_shape(std::string_view keyword);
// Row of a shape; the box for a value without a row.
const ShapeRow& shape_row(Shape shape);

// An option behind the record of an imported part, "WORD=VALUE".
enum class PartOptionKind { group, material, size, order, curvature, fragment, refine };
struct PartOption {
    const char* word;
    PartOptionKind kind;
    bool of_mesher;        // for shapes that the mesher of CAD files divides, else for every imported one
    const char* expected;  // the whole option in an error line
};

// The option that a token gives to a part of this shape; null where it is none of the shape's. A box has none
// of them.
const PartOption* find_part_option(std::string_view token, const ShapeRow* shape);

// Red, green, blue in 0 … 1 of a colour keyword; white for any other text.
std::array<double, 3> part_color(std::string_view color_name);

// One part as the model file gives it. Fields: 0 name, 1 colour, 2 material, 3 shape keyword,
// 4 … 9 sizes, 10 … 15 divisions, 16 … 18 origin, 19 … 21 euler angles.
struct PartRow {
    std::vector<std::string> fields;
    std::string parent = "NONE";
    std::string unit = "M";
    std::vector<std::pair<PartOptionKind, std::string>> options;  // as written, in order
};

// Evaluates an expression. False: `error` has the reason, complete with name and expression but without
// the place.
using Evaluate = std::function<bool(std::string_view text, double& value, std::string& error)>;

// Makes the part records of all rows and echoes them; not all of them where `progress` asks to stop. Errors,
// for which the records are not to be used: a row of fewer than 22 fields, an expression that cannot be
// evaluated or is not finite, a division outside 32 bits, a unit factor not above 0, an unknown material, an
// option whose value is none that it takes. Notices: an unknown shape keyword (a box is taken) and an unknown
// parent (none is taken).
std::vector<Part> create_PART(std::span<const PartRow> rows, std::span<const Material> materials,
                              const Evaluate& evaluate, Remarks& remarks, Progress& progress);

}  // namespace kestralum
