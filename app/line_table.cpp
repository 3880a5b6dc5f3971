#include "app/line_table.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "fields/locate.h"
#include "fields/quantities.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "results/csv.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr std::int32_t most_line_points = 100'000;

// One column of a frame: a component of a nodal table.
struct Column {
    std::string heading;
    std::vector<double> values;  // node_num
};

void add_component(std::vector<Column>& columns, const std::string& heading, std::span<const double> table,
                   std::size_t component) {
    Column& column = columns.emplace_back(Column{heading, {}});
    for (std::size_t k = component; k < table.size(); k += 3) column.values.push_back(table[k]);
}

// Components and size of a vector that the frame has; directions are none.
void add_vector(std::vector<Column>& columns, const FieldQuantityRow& row, std::span<const double> values) {
    if (values.empty()) return;
    for (std::size_t c = 0; c < 3; ++c)
        add_component(columns, formatted("%s_%c[%s]", row.name, "xyz"[c], row.unit), values, c);
    Column& size = columns.emplace_back(Column{formatted("%s[%s]", row.name, row.unit), {}});
    for (std::size_t n = 0; n < values.size() / 3; ++n)
        size.values.push_back(norm(triple(values, static_cast<std::int64_t>(n))));
}

std::vector<Column> columns_of(const Model& model, const Run& run, std::span<const std::int32_t> material,
                               const Frame& frame) {
    const char *const axes[] = {"x", "y", "z"}, *const pairs[] = {"xy", "yz", "zx"};
    const std::size_t dofs = frame.mode_vec.size();
    const std::span<const double> stress = frame.node_stress;
    std::vector<Column> out;
    for (std::size_t c = 0; c < 3; ++c) add_component(out, formatted("u%s[m]", axes[c]), frame.mode_vec, c);
    for (std::size_t c = 0; c < 3; ++c)
        add_component(out, formatted("stress_%s%s[Pa]", axes[c], axes[c]), stress.first(dofs), c);
    for (std::size_t c = 0; c < 3; ++c)
        add_component(out, formatted("stress_%s[Pa]", pairs[c]), stress.subspan(dofs, dofs), c);
    add_component(out, "mises[Pa]", stress.subspan(4 * dofs, dofs), 0);
    if (has_shapes(run.ana_type)) return out;
    const FieldValues fields(model, material, frame);
    for (const FieldQuantityRow& row : field_quantities) {
        if (row.components != 1 || row.quantity == FieldQuantity::error) continue;
        const std::string unit = *row.unit ? formatted("[%s]", row.unit) : "";
        out.push_back({row.name + unit, fields.of(row)});
    }
    for (const FieldQuantityRow& row : field_quantities)
        if (row.components == 3 && *row.unit) add_vector(out, row, fields.of(row));
    return out;
}

void append_row(std::string& text, const LinePoint& point, const Mesh& mesh,
                std::span<const Column> columns) {
    for (const double value : {point.distance, point.place[0], point.place[1], point.place[2]}) {
        text += ',';
        append_e(text, value);
    }
    text += ',';
    append_d(text, point.where.element + 1);
    for (const Column& column : columns) {
        text += ',';
        if (point.where.element < 0) continue;
        double value = 0;
        interpolate(mesh, point.where, column.values, 1, &value);
        if (std::isfinite(value)) append_e(text, value);
    }
    text += '\n';
}

std::vector<LinePoint> points_of(const Mesh& mesh, const Locator& locator, const LineRequest& line) {
    if (line.set.empty()) return line_points(locator, line.from, line.to, line.count);
    std::vector<LinePoint> out;
    for (const std::int32_t n : find_set(mesh, line.set)->nodes) {
        const Vec3 place = place_of(mesh, n);
        const double distance = out.empty() ? 0 : norm(minus(place, out.front().place));
        out.push_back({place, distance, locator.find(place)});
    }
    return out;
}

void write_rows(const Model& model, const Run& run, const std::vector<LineRequest>& lines,
                std::span<const std::vector<LinePoint>> points, TextOutput& file) {
    const std::vector<std::int32_t> material = node_materials(model, run.mesh);
    bool headed = false;
    for (std::size_t k = 0; k < run.results.size(); ++k) {
        const Frame& frame = *run.results[k];
        if (frame.mode_vec.empty()) continue;  // on disk alone
        const std::vector<Column> columns = columns_of(model, run, material, frame);
        std::string text;
        if (!std::exchange(headed, true)) {
            text = "line,frame,name,value,distance[m],x[m],y[m],z[m],element";
            for (const Column& column : columns) text += ',' + column.heading;
            text += '\n';
        }
        for (std::size_t l = 0; l < lines.size(); ++l) {
            std::string head =
                csv_field(lines[l].name) + ',' + std::to_string(k + 1) + ',' + csv_field(frame.name) + ',';
            append_e(head, frame.n_freq);
            for (const LinePoint& point : points[l]) {
                text += head;
                append_row(text, point, run.mesh, columns);
            }
        }
        file.write(text);
    }
}

}  // namespace

std::string read_line_request(const std::string& text, LineRequest& line) {
    const std::string refused =
        "--line wants \"x y z x y z n\", two places in metres and how many points "
        "from 2 to 100000, or \"set NAME\", not '" +
        text + "'";
    TokenReader tokens(text);
    line.name = text;
    if (tokens.peek() == "set") {
        tokens.next();
        line.set = tokens.next();
        return line.set.empty() || !tokens.at_end() ? refused : "";
    }
    for (Vec3* place : {&line.from, &line.to})
        for (double& value : *place) {
            const auto number = tokens.next_double();
            if (!number || !std::isfinite(*number)) return refused;
            value = *number;
        }
    const auto count = tokens.next_int32();
    if (!count || *count < 2 || *count > most_line_points || !tokens.at_end()) return refused;
    line.count = *count;
    return {};
}

std::string line_file_name(std::string_view model_file_name) {
    const std::string base = paths::base_name(model_file_name);
    return "log\\line_" + base.substr(0, base.rfind('.')) + ".csv";
}

const LineRequest* without_set(const Mesh& mesh, const std::vector<LineRequest>& lines) {
    for (const LineRequest& line : lines)
        if (!line.set.empty() && !find_set(mesh, line.set)) return &line;
    return nullptr;
}

bool write_lines(const Model& model, const Run& run, const std::vector<LineRequest>& lines,
                 Progress& progress) {
    const Locator locator(run.mesh);
    std::vector<std::vector<LinePoint>> points;
    for (const LineRequest& line : lines) {
        points.push_back(points_of(run.mesh, locator, line));
        const auto outside = std::ranges::count_if(
            points.back(), [](const LinePoint& point) { return point.where.element < 0; });
        if (outside > 0)
            progress.summary("note: line %s: %td of its %zu points are outside the body\n", line.name.c_str(),
                             outside, points.back().size());
    }
    const std::string trouble = write_whole(
        line_file_name(model.model_file_name), run.origin.options.log_folder,
        [&](TextOutput& file) { write_rows(model, run, lines, points, file); }, progress);
    if (!trouble.empty()) progress.error("%s", trouble.c_str());
    return trouble.empty();
}

}  // namespace kestralum
