#include "app/window/report_page.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

#include "app/html_text.h"
#include "app/run_summary.h"
#include "app/section_table.h"
#include "app/svg_chart.h"
#include "app/window/condition_words.h"
#include "model/element_kind.h"
#include "model/format.h"
#include "model/xml_text.h"
#include "results/history.h"

namespace kestralum {

namespace {

std::string block(const std::string& text) {
    return text.empty() ? std::string() : "<pre>" + xml_escaped(text) + "</pre>\n";
}

std::string number(double value) {
    return formatted("%.6g", value);
}

std::string head(const ReportPage& page) {
    const Model& model = page.model;
    const bool from_file = model.source != ModelSource::start_up;
    HtmlTable table({});
    table.add({"Model file", from_file ? model.model_file_name : "none"});
    if (page.run) {
        const RunOrigin& origin = page.run->origin;
        if (!origin.analysis.empty()) table.add({"Analysis", origin.analysis});
        if (!origin.file_name.empty())
            table.add({"Results", "read from " + origin.file_name + ", which holds no summary of the run"});
    }
    table.add({"Report made", page.time});
    table.add({"Program", std::string("KESTRALUM ") + program_version});
    const std::string name = model.model_file_name.substr(model.model_file_name.find_last_of("/\\") + 1);
    return "<h1>" + xml_escaped(from_file ? name : "No model") + "</h1>\n" + table.html();
}

std::string pictures(const ReportPage& page) {
    if (page.pictures.empty()) return {};
    std::string out = html_heading("Pictures");
    for (const ReportPicture& picture : page.pictures) out += html_figure(picture.png_base64, picture.title);
    return out;
}

std::string parts(const ReportPage& page) {
    const Model& model = page.model;
    std::vector<std::size_t> elements(model.parts.size());
    for (const std::int32_t p : model.mesh.p_ele_part_id)
        if (p >= 0 && p < std::ssize(elements)) ++elements[p];
    HtmlTable table({"Part", "Shape", "Material", "Elements", "Volume [m³]", "Mass [kg]"});
    for (std::size_t p = 0; p < model.parts.size(); ++p) {
        const Part& part = model.parts[p];
        const bool known = page.texts.check && p < page.texts.check->part_mass.size();
        table.add({part.name, part.type_name, part.material_name, std::to_string(elements[p]),
                   known ? number(page.texts.check->part_volume[p]) : "",
                   known ? number(page.texts.check->part_mass[p]) : ""},
                  3);
    }
    HtmlTable materials(
        {"Material", "E [Pa]", "Poisson's ratio", "Density [kg/m³]", "Yield stress [Pa]", "Hardening [Pa]"});
    for (const Material& m : model.materials)
        materials.add(
            {m.name, number(m.young), number(m.poisson), number(m.density),
             m.yield_stress > 0 ? number(m.yield_stress) : "", m.yield_stress > 0 ? number(m.hardening) : ""},
            5);
    return html_heading("Parts and materials") + table.html() + materials.html();
}

std::string parameters(const Model& model) {
    HtmlTable table({"Parameter", "Expression", "Value"});
    for (const Parameter& p : model.parameters) table.add({p.name, p.expression, number(p.value)}, 1);
    return model.parameters.empty() ? std::string() : html_heading("Parameters") + table.html();
}

std::string conditions(const Model& model) {
    HtmlTable table({"What", "Name", "How"});
    const auto words = condition_words(model);
    for (const ConditionWords& one : words) table.add({one.kind, one.name, one.words});
    return words.empty() ? std::string() : html_heading("Supports and loads") + table.html();
}

void add_explicit_settings(const AnalysisControl& control, HtmlTable& table) {
    if (control.auto_step)
        table.add({"Time step", formatted("%.6g of the stable step", control.step_share)});
    else
        table.add({"Time step", number(control.d_time) + " s"});
    table.add({"End time", number(control.end_time) + " s"});
    if (control.auto_step)
        table.add({"Output", "each " + number(control.output_interval()) + " s"});
    else
        table.add({"Output", formatted("each %d steps", control.output_frequency)});
    table.add({"Damping", number(control.c_alfa) + " of the critical one"});
    if (control.scaled_step > 0)
        table.add({"Mass scaling", "to a stable step of " + number(control.scaled_step) + " s"});
}

std::string settings(const Run& run, const Model& model) {
    if (!run.origin.file_name.empty()) return {};
    const RunOptions& options = run.origin.options;
    HtmlTable table({});
    table.add({"Hexahedra", word_of(hexahedron_form(model, options))});
    if (!options.load_case.empty()) table.add({"Load case", options.load_case});
    if (options.prestress) table.add({"Prestress", "stiffness of the static state's stresses"});
    if (has_shapes(run.ana_type)) table.add({"Modes wanted", std::to_string(model.mode_count)});
    if (run.ana_type == AnalysisType::explicit_dynamics) add_explicit_settings(model.control, table);
    if (run.ana_type == AnalysisType::nonlinear_static)
        table.add({"Increments", std::to_string(run.report.nonlinear.wanted)});
    if (has_steps(run.ana_type)) table.add({"Plasticity", model.control.plastic ? "on" : "off"});
    table.add({"Solver", run.origin.settings.solver});
    table.add({"Threads", std::to_string(run.origin.settings.threads())});
    return html_heading("Analysis settings") + table.html();
}

// What a file tells of the frames, which has no summary.
std::string frames(const Run& run) {
    if (run.origin.file_name.empty() || run.ana_type == AnalysisType::explicit_dynamics) return {};
    const char* const what = run.ana_type == AnalysisType::eigen ? "Frequency [Hz]" : "Load factor";
    const bool cases = run.ana_type == AnalysisType::linear_static;
    HtmlTable table({"Frame", cases ? "Load case" : what});
    for (std::size_t k = 0; k < run.results.size(); ++k)
        table.add({std::to_string(k + 1), cases ? run.results[k]->name : number(run.results[k]->n_freq)},
                  cases ? 0 : 1);
    return table.html();
}

// Columns of one unit share a drawing; those that are 0 throughout, or not known, have none.
std::string histories(const Run& run) {
    if (has_shapes(run.ana_type) || run.mode_num() < 2) return {};
    const History history = make_history(run, {});
    std::vector<std::pair<std::string, std::vector<std::size_t>>> units;
    for (std::size_t c = 0; c < history.columns.size(); ++c) {
        const HistoryColumn& column = history.columns[c];
        if (std::ranges::none_of(column.values, [](double v) { return std::isfinite(v) && v != 0; }))
            continue;
        const auto same = std::ranges::find(units, column.unit, [](const auto& unit) { return unit.first; });
        if (same == units.end())
            units.push_back({column.unit, {c}});
        else
            same->second.push_back(c);
    }
    constexpr std::size_t most = 8;  // curves of a drawing
    std::string out;
    for (const auto& [unit, columns] : units)
        for (std::size_t first = 0; first < columns.size(); first += most) {
            const std::string chart =
                svg_chart(history, std::span(columns).subspan(first, std::min(most, columns.size() - first)));
            if (!chart.empty()) out += "<figure>\n" + chart + "</figure>\n";
        }
    return out.empty() ? out : html_heading("Histories") + out;
}

}  // namespace

ReportTexts report_texts(const Model& model, const Run* run, const Settings& settings,
                         const Progress& progress) {
    ReportTexts out;
    if (model.source == ModelSource::model_file) {
        SummaryText said;
        out.check = check_model(model, settings, progress);
        if (!progress.cancelled()) print_check(model, *out.check, said);
        out.check_text = std::move(said.text);
    }
    if (run && run->origin.file_name.empty()) {
        SummaryText said;
        print_run_summary({model, *run, nullptr, nullptr, {}, {}}, said);
        print_sections(model, *run, said);
        out.run_text = std::move(said.text);
    }
    return out;
}

std::string report_html(const ReportPage& page) {
    std::string body =
        head(page) + pictures(page) + parts(page) + parameters(page.model) + conditions(page.model);
    if (!page.texts.check_text.empty()) body += html_heading("Mesh") + block(page.texts.check_text);
    if (page.run) {
        body += settings(*page.run, page.model);
        const std::string results = block(page.texts.run_text) + frames(*page.run);
        if (!results.empty()) body += html_heading("Results") + results;
        body += histories(*page.run);
    }
    return html_page(page.model.model_file_name, body);
}

}  // namespace kestralum
