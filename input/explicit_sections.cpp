#include "input/explicit_sections.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "input/calculator.h"
#include "input/record_fields.h"
#include "model/format.h"
#include "model/mesh_sets.h"
#include "model/progress.h"

namespace kestralum {

namespace {

constexpr std::array<std::string_view, 6> signed_axis_words{"+x", "-x", "+y", "-y", "+z", "-z"};
constexpr std::array<std::string_view, 3> wall_words{"plane", "cylinder", "sphere"};
constexpr std::array<std::string_view, 4> selection_words{"plane", "area", "volume", "part"};

double value_at(std::string_view text, std::span<const Parameter> parameters, double time) {
    const CalcResult result = calc(text, parameters, time);
    return result.ok() ? result.value : std::numeric_limits<double>::quiet_NaN();
}

TimeExpression time_expression(const Token& token, std::span<const Parameter> parameters,
                               const RecordFields& fields) {
    TimeExpression out;
    out.text = std::string(token.text);
    out.varies = names_time(token.text);
    if (!out.varies) {
        out.start = fields.number(token);
        return out;
    }
    out.evaluate = value_at;
    const CalcResult start = calc(token.text, parameters, 0);
    if (!start.ok())
        fields.remarks().expected(
            token, "a number or an expression over the parameters and time (" + start.error + ")");
    else if (!std::isfinite(start.value))
        fields.remarks().expected(token, "a finite value at time 0");
    else
        out.start = start.value;
    return out;
}

double not_negative(const Token& token, const RecordFields& fields, std::string_view what) {
    return fields.number_where(
        token, [](double v) { return v >= 0; }, what);
}

std::string box_line(std::span<const double> values) {
    std::string line;
    for (std::size_t k = 0; k < values.size(); ++k) line += (k ? ", " : "") + formatted("%.3e", values[k]);
    return line;
}

std::string text_of(const Token& token) {
    return std::string(token.text);
}

// Records of which `set NAME` may take the place of the coordinates at `coordinates_at`.
constexpr std::size_t coordinates_at = 7;
std::vector<std::span<const Token>> records_with_sets(const TableSection& table, std::size_t length,
                                                      std::span<const Parameter> parameters,
                                                      InputRemarks& remarks) {
    if (std::ranges::find(parameters, set_word, &Parameter::name) != parameters.end())
        return records_of(table, length, remarks);
    return records_or_sets(std::string(table.key), table.tokens, table.closing,
                           {length, length - 4, coordinates_at}, remarks);
}

// The set that a record names, and the box around it.
void read_set(const Token& token, const Mesh& mesh, const RecordFields& fields, std::string& name,
              std::array<double, 6>& box) {
    name = fields.name(token, name_text_width);
    const MeshSet* set = find_set(mesh, name);
    if (!set)
        fields.remarks().expected(token, "a set of the model file or a group of an imported mesh");
    else if (set->nodes.empty())
        fields.remarks().expected(token, "a set that is not empty");
    else
        box = measure_set(mesh, *set).box;
}

constexpr std::size_t velocity_length = 10, wall_length = 16, contact_length = 14;

VelocityRecord velocity_record(std::span<const Token> t, std::span<const Parameter> parameters,
                               std::span<const Part> parts, const RecordFields& fields) {
    VelocityRecord r;
    r.name = fields.name(t[0], name_text_width);
    r.selection_word = text_of(t[1]);
    r.kind = static_cast<VelocitySelection>(fields.word(t[1], selection_words, "a selection"));
    r.axis_word = text_of(t[2]);
    r.axis = fields.word(t[2], axis_words, "an axis");
    r.velocity = time_expression(t[3], parameters, fields);
    r.box = fields.numbers<6>(t.subspan(4, 6));
    if (r.kind == VelocitySelection::part) {
        if (std::none_of(parts.begin(), parts.end(), [&](const Part& p) { return p.name == r.name; }))
            fields.remarks().expected(t[0], "the name of a part");
    } else {
        notice_empty_box(t[0], r.box,
                         r.kind == VelocitySelection::plane  ? -2
                         : r.kind == VelocitySelection::area ? r.axis
                                                             : -1,
                         fields.remarks());
    }
    return r;
}

std::int32_t part_index(const Token& token, const std::string& name, std::span<const Part> parts,
                        InputRemarks& remarks) {
    const auto at = std::find_if(parts.begin(), parts.end(), [&](const Part& p) { return p.name == name; });
    if (at != parts.end()) return static_cast<std::int32_t>(at - parts.begin());
    remarks.expected(token, "the name of a part");
    return -1;
}

}  // namespace

std::vector<std::span<const Token>> records_of(const TableSection& table, std::size_t length,
                                               InputRemarks& remarks) {
    return records_of(std::string(table.key), table.tokens, table.closing, length, remarks);
}

void read_walls(const TableSection& table, std::span<const Parameter> parameters, const Mesh& mesh,
                InputRemarks& remarks, std::vector<RigidWall>& out, Progress& progress) {
    const RecordFields fields(parameters, remarks);
    const auto records = records_with_sets(table, wall_length, parameters, remarks);
    out.clear();
    progress.print("  rigid_wall_num=%zu\n", records.size());
    progress.print(" RIGID_WALL\n");
    for (const std::span<const Token> t : records) {
        if (progress.cancelled()) return;
        RigidWall w;
        w.name = fields.name(t[0], name_text_width);
        w.kind_word = text_of(t[1]);
        w.kind = static_cast<WallKind>(fields.word(t[1], wall_words, "a kind of wall"));
        w.axis_word = text_of(t[2]);
        const std::int32_t axis = fields.word(t[2], signed_axis_words, "a signed axis");
        w.axis = axis / 2;
        w.side = axis % 2 == 0 ? 1 : -1;
        w.radius = w.kind == WallKind::plane ? fields.number(t[3])
                                             : fields.number_where(
                                                   t[3], [](double v) { return v > 0; }, "a radius above 0");
        w.stiffness = not_negative(t[4], fields, "a stiffness of at least 0 N/m");
        w.friction = not_negative(t[5], fields, "a friction coefficient of at least 0");
        w.damping = not_negative(t[6], fields, "a damping ratio of at least 0");
        if (t.size() < wall_length)
            read_set(t[coordinates_at + 1], mesh, fields, w.set_name, w.box);
        else
            w.box = fields.numbers<6>(t.subspan(coordinates_at, 6));
        for (std::size_t c = 0; c < 3; ++c)
            if (w.box[2 * c] > w.box[2 * c + 1])
                remarks.expected(t[8 + 2 * c], "an upper bound not below its lower one");
        for (std::size_t c = 0; c < 3; ++c)
            w.motion[c] = time_expression(t[t.size() - 3 + c], parameters, fields);
        const std::array<double, 4> values{w.radius, w.stiffness, w.friction, w.damping};
        progress.print(" %zu: %s, %s, %s\n", out.size(), w.name.c_str(), w.kind_word.c_str(),
                       w.axis_word.c_str());
        progress.print("    %s\n", labelled_values(t.subspan(3, 4), values).c_str());
        progress.print("    %s\n", box_line(w.box).c_str());
        progress.print("    %s, %s, %s\n", w.motion[0].text.c_str(), w.motion[1].text.c_str(),
                       w.motion[2].text.c_str());
        out.push_back(std::move(w));
    }
}

void read_initial_velocities(const TableSection& table, std::span<const Parameter> parameters,
                             std::span<const Part> parts, InputRemarks& remarks,
                             std::vector<VelocityRecord>& out, Progress& progress) {
    const RecordFields fields(parameters, remarks);
    out.clear();
    progress.print(" INITIAL_VELOCITY\n");
    for (const std::span<const Token> t : records_of(table, velocity_length, remarks)) {
        if (progress.cancelled()) return;
        VelocityRecord r = velocity_record(t, parameters, parts, fields);
        progress.print(" %zu: %s, %s, %s, %s[%.3e]\n", out.size(), r.name.c_str(), r.selection_word.c_str(),
                       r.axis_word.c_str(), r.velocity.text.c_str(), r.velocity.start);
        progress.print("     %s\n", labelled_values(t.subspan(4, 6), r.box).c_str());
        out.push_back(std::move(r));
    }
}

void read_velocity_inputs(const TableSection& table, std::span<const Parameter> parameters,
                          std::span<const Part> parts, InputRemarks& remarks,
                          std::vector<VelocityRecord>& out, Progress& progress) {
    const RecordFields fields(parameters, remarks);
    out.clear();
    progress.print(" VELOCITY_INPUT\n");
    for (const std::span<const Token> t : records_of(table, velocity_length, remarks)) {
        if (progress.cancelled()) return;
        VelocityRecord r = velocity_record(t, parameters, parts, fields);
        progress.print("    %.3e[%s]\n", r.velocity.start, r.velocity.text.c_str());
        progress.print("     %s\n", box_line(r.box).c_str());
        out.push_back(std::move(r));
    }
}

void read_contacts(const TableSection& table, std::span<const Parameter> parameters,
                   std::span<const Part> parts, const Mesh& mesh, InputRemarks& remarks,
                   std::vector<ContactPair>& out, Progress& progress) {
    const RecordFields fields(parameters, remarks);
    out.clear();
    progress.print(" ELEMENT_CONTACT\n");
    for (const std::span<const Token> t : records_with_sets(table, contact_length, parameters, remarks)) {
        if (progress.cancelled()) return;
        ContactPair p;
        p.name = fields.name(t[0], name_text_width);
        std::array<std::int32_t, 2> part{};
        for (std::size_t k = 0; k < 2; ++k) {
            p.part_name[k] = fields.name(t[1 + k], name_text_width);
            part[k] = part_index(t[1 + k], p.part_name[k], parts, remarks);
        }
        p.penalty = fields.number_where(
            t[3], [](double v) { return v >= 0 && v <= 1; }, "a penalty factor from 0 (for 1) to 1");
        if (p.penalty == 0) p.penalty = 1;
        p.friction = not_negative(t[4], fields, "a friction coefficient of at least 0");
        p.damping = not_negative(t[5], fields, "a damping ratio of at least 0");
        p.gap = not_negative(t[6], fields, "a gap of at least 0 m");
        if (std::array<double, 6> unused; t.size() < contact_length)
            read_set(t[coordinates_at + 1], mesh, fields, p.set_name, unused);
        else
            p.box = fields.numbers<6>(t.subspan(coordinates_at, 6));
        p.start_time = fields.number(t.back());
        const std::array<double, 4> values{p.penalty, p.friction, p.damping, p.gap};
        std::vector<double> rest(p.box.begin(), p.box.end());
        rest.push_back(p.start_time);
        progress.print(" %zu: %s, %s[%d],  %s[%d], %s\n", out.size(), p.name.c_str(), p.part_name[0].c_str(),
                       part[0], p.part_name[1].c_str(), part[1],
                       labelled_values(t.subspan(3, 4), values).c_str());
        progress.print("     %s\n", box_line(rest).c_str());
        out.push_back(std::move(p));
    }
}

}  // namespace kestralum
