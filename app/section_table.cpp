#include "app/section_table.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "model/format.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "results/csv.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

void append(std::string& text, const Vec3& values) {
    for (const double value : values) {
        text += ',';
        append_e(text, value);
    }
}

void append(std::string& text, const Resultant& values) {
    append(text, values.force);
    append(text, values.moment);
}

// What the frame is: its load case, or its number.
std::string frame_name(const Run& run, const SectionSum& sum) {
    const Frame& frame = *run.results[sum.frame];
    return frame.name.empty() ? std::to_string(sum.frame + 1) : frame.name;
}

std::string line(const char* title, const Resultant& of) {
    return formatted("  %-20s %13.6e %13.6e %13.6e N %13.6e %13.6e %13.6e N m\n", title, of.force[0],
                     of.force[1], of.force[2], of.moment[0], of.moment[1], of.moment[2]);
}

void print(const Model& model, const Run& run, const SectionSum& sum, Progress& progress) {
    const SectionPlane& plane = run.origin.options.sections[sum.plane];
    if (!(sum.area > 0)) {
        progress.summary("note: section %s: the plane cuts no element\n", plane.name.c_str());
        return;
    }
    const Vec3& c = sum.centre;
    std::string text =
        formatted("section %-14s frame %s, area %.6e m^2, centre (%.6g, %.6g, %.6g)\n", plane.name.c_str(),
                  frame_name(run, sum).c_str(), sum.area, c[0], c[1], c[2]);
    text += line("carried", sum.carried);
    if (sum.parts.size() > 1)
        for (const PartSection& part : sum.parts)
            text += line(("  " + model.parts[part.part].name).c_str(), part.carried);
    text += line("loads on that side", sum.loads) + line("held on that side", sum.held);
    if (run.ana_type == AnalysisType::explicit_dynamics) text += line("its inertia", sum.inertia);
    const auto [axial, shear, twist, bending] = action_of(sum.carried, plane.normal);
    text +=
        formatted("  normal force %.6e N, shear %.6e N, twist %.6e N m, bending %.6e N m, imbalance %.1e\n",
                  axial, shear, twist, bending, imbalance(sum));
    progress.summary("%s", text.c_str());
}

}  // namespace

SectionAction action_of(const Resultant& of, const Vec3& normal) {
    const double axial = dot(of.force, normal), twist = dot(of.moment, normal);
    return {axial, norm(minus(of.force, times(axial, normal))), twist,
            norm(minus(of.moment, times(twist, normal)))};
}

double imbalance(const SectionSum& sum) {
    const Vec3 left =
        minus(plus(sum.carried.force, plus(sum.loads.force, sum.held.force)), sum.inertia.force);
    double largest = 0;
    for (const Resultant* of : {&sum.carried, &sum.loads, &sum.held, &sum.inertia})
        largest = std::max(largest, norm(of->force));
    return largest > 0 ? norm(left) / largest : 0;
}

std::string read_section_plane(const std::string& text, SectionPlane& plane) {
    const std::string refused =
        "--section wants x=, y= or z= and metres, or \"px py pz nx ny nz\", not '" + text + "'";
    plane = {};
    plane.name = text;
    if (text.size() > 2 && text[1] == '=' && text[0] >= 'x' && text[0] <= 'z') {
        const auto at = parse_double(std::string_view(text).substr(2));
        if (!at || !std::isfinite(*at)) return refused;
        plane.normal[text[0] - 'x'] = 1;
        plane.point[text[0] - 'x'] = *at;
        return {};
    }
    TokenReader tokens(text);
    std::array<double, 6> values{};
    for (double& value : values) {
        const auto number = tokens.next_double();
        if (!number || !std::isfinite(*number)) return refused;
        value = *number;
    }
    if (!tokens.at_end()) return refused;
    plane.point = {values[0], values[1], values[2]};
    plane.normal = unit({values[3], values[4], values[5]}, {});
    return norm(plane.normal) > 0 ? "" : "--section: the normal of '" + text + "' has no length";
}

std::string section_file_name(std::string_view model_file_name) {
    const std::string base = paths::base_name(model_file_name);
    return "log\\section_" + base.substr(0, base.rfind('.')) + ".csv";
}

std::string section_csv(const Model& model, const Run& run) {
    std::string text = "section,frame,name,value,part,area[m2]";
    for (const char* axis : {"x", "y", "z"}) text += formatted(",centre_%s[m]", axis);
    for (const char* what : {"", "loads_", "held_", "inertia_"})
        for (const char* quantity : {"F", "M"})
            for (const char* axis : {"x", "y", "z"})
                text += std::string(",") + what + quantity + axis + (*quantity == 'F' ? "[N]" : "[N m]");
    text += '\n';
    for (const SectionSum& sum : run.sections) {
        const Frame& frame = *run.results[sum.frame];
        std::string head = csv_field(run.origin.options.sections[sum.plane].name) + ',' +
                           std::to_string(sum.frame + 1) + ',' + csv_field(frame.name) + ',';
        append_e(head, frame.n_freq);
        const auto add = [&](const std::string& part, double area, const Resultant& carried) {
            text += head + ',' + csv_field(part) + ',';
            append_e(text, area);
            append(text, sum.centre);
            append(text, carried);
        };
        add("*", sum.area, sum.carried);
        for (const Resultant* of : {&sum.loads, &sum.held, &sum.inertia}) append(text, *of);
        text += '\n';
        for (const PartSection& part : sum.parts) {
            add(model.parts[part.part].name, part.area, part.carried);
            text += std::string(18, ',') + '\n';
        }
    }
    return text;
}

void print_sections(const Model& model, const Run& run, Progress& progress) {
    const bool cases = !has_steps(run.ana_type);
    for (const SectionSum& sum : run.sections)
        if (cases || sum.frame + 1 == run.mode_num()) print(model, run, sum, progress);
}

bool write_sections(const Model& model, const Run& run, Progress& progress) {
    const std::string text = section_csv(model, run);
    const std::string trouble = write_whole(
        section_file_name(model.model_file_name), run.origin.options.log_folder,
        [&](TextOutput& file) { file.write(text); }, progress);
    if (!trouble.empty()) progress.error("%s", trouble.c_str());
    return trouble.empty();
}

}  // namespace kestralum
