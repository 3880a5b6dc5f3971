#include "app/python/python_run.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>

#include "analysis/analysis_table.h"
#include "analysis/element_values.h"
#include "analysis/quantity_fields.h"
#include "app/python/arrays.h"
#include "app/python/work.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "app/section_table.h"
#include "app/sweep.h"
#include "app/sweep_table.h"
#include "model/paths.h"
#include "results/vtu_file.h"
#include "view/contour.h"

namespace kestralum::python {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// A folder of a run's own, removed where nobody takes it over.
class OwnFolder {
public:
    OwnFolder() {
        name_ = py::module_::import("tempfile")
                    .attr("mkdtemp")(py::arg("prefix") = "kestralum-")
                    .cast<std::string>();
    }
    ~OwnFolder() {
        std::error_code ignored;
        if (!name_.empty()) fs::remove_all(name_, ignored);
    }
    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;
    const std::string& name() const { return name_; }
    std::string release() { return std::exchange(name_, {}); }

private:
    std::string name_;
};

const AnalysisEntry& entry_of(const std::string& word) {
    const AnalysisEntry* entry = find_analysis(word);
    if (entry) return *entry;
    std::string words;
    for (const AnalysisEntry& one : analysis_table())
        words += (words.empty() ? "" : ", ") + std::string(one.batch_word);
    raise_error("no analysis '" + word + "'; there are " + words);
}

SettingsText settings_for(const PythonModel& model, const RunRequest& request) {
    SettingsText settings = model.settings();
    change_settings(settings, request.settings);
    if (request.threads.is_none()) return settings;
    if (!py::isinstance<py::int_>(request.threads) || request.threads.cast<int>() < 1)
        raise_error("threads=" + std::string(py::repr(request.threads)) + ": expected a number from 1 on");
    settings.set("N_THREADS", py::str(request.threads));
    return settings;
}

std::vector<std::int32_t> node_places(const Run& run) {
    if (!run.node_of.empty()) return run.node_of;
    std::vector<std::int32_t> same(run.mesh.node_num());
    for (std::size_t n = 0; n < same.size(); ++n) same[n] = static_cast<std::int32_t>(n);
    return same;
}

std::string lower(std::string_view text) {
    std::string out;
    for (const char c : text)
        if (c != '&') out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Index of a quantity of the contour table, or of a field quantity, by any of its names.
std::optional<std::int32_t> find_quantity(const std::string& name) {
    const std::string wanted = lower(name);
    for (std::size_t k = 0; k < view::quantities.size(); ++k) {
        const view::Quantity& row = view::quantities[k];
        if (row.source != view::Source::none && (wanted == lower(row.text) || wanted == lower(row.menu_text)))
            return static_cast<std::int32_t>(k);
    }
    for (const FieldQuantityRow& row : field_quantities)
        if (wanted == row.name || wanted == lower(row.text)) return static_cast<std::int32_t>(row.quantity);
    return std::nullopt;
}

std::vector<double> values_of(const RunData& data, const Frame& frame, std::int32_t index, int& components) {
    const FieldQuantityRow* const row = field_quantity_at(index);
    components = row ? row->components : 1;
    if (!row) return view::nodal_values(index, data.run.mesh, frame);
    const std::vector<std::int32_t> material = node_materials(data.input->model, data.run.mesh);
    return FieldValues(data.input->model, material, frame).of(*row);
}

py::tuple triple_of(const std::array<double, 3>& v) {
    return py::make_tuple(v[0], v[1], v[2]);
}

// Copies under a temporary name beside the target, which is whole or absent.
void copy_whole(const fs::path& from, const fs::path& folder) {
    const fs::path half = folder / ("." + from.filename().string() + ".part");
    std::error_code fault;
    fs::copy_file(from, half, fs::copy_options::overwrite_existing, fault);
    if (!fault) fs::rename(half, folder / from.filename(), fault);
    if (!fault) return;
    std::error_code ignored;
    fs::remove(half, ignored);
    throw std::runtime_error((folder / from.filename()).string() + " cannot be written: " + fault.message());
}

std::string write_vtu_of(const RunData& data, bool quantities, Progress& progress) {
    const Model& model = data.input->model;
    const PointFields more = quantities ? quantity_fields(model, data.run.mesh) : PointFields{};
    const bool written = has_steps(data.run.ana_type) ? write_vtu_frames(model, data.run, progress, more)
                                                      : write_vtu(model, data.run, progress, more);
    return written ? "" : "the file for ParaView cannot be written";
}

// Where Python lets the object go, and at the end of the program, the folder goes too.
void remove_with(const py::object& run, const std::string& folder) {
    const py::object remove = py::module_::import("shutil").attr("rmtree");
    py::module_::import("weakref").attr("finalize")(run, remove, folder, true);
}

}  // namespace

template <typename T>
std::vector<T> PythonFrame::in_model_order(const std::vector<T>& table, int components) const {
    const std::vector<std::int32_t>& node_of = data_->node_of;
    std::vector<T> out(node_of.size() * components);
    for (std::size_t n = 0; n < node_of.size(); ++n)
        std::copy_n(table.begin() + static_cast<std::ptrdiff_t>(node_of[n]) * components, components,
                    out.begin() + static_cast<std::ptrdiff_t>(n) * components);
    return out;
}

py::array_t<double> PythonFrame::displacements() const {
    return rows_array(in_model_order(frame().mode_vec, 3), 3);
}

py::array_t<double> PythonFrame::tensor(int normal, int shear) const {
    const std::vector<std::int32_t>& node_of = data_->node_of;
    const std::vector<double>& table = frame().node_stress;
    const std::size_t dofs = data_->run.mesh.dof_num();
    std::vector<double> out(6 * node_of.size());
    for (std::size_t n = 0; n < node_of.size(); ++n)
        for (std::size_t k = 0; k < 3; ++k) {
            out[6 * n + k] = table[normal * dofs + 3 * node_of[n] + k];
            out[6 * n + 3 + k] = table[shear * dofs + 3 * node_of[n] + k];
        }
    return rows_array(std::move(out), 6);
}

py::array_t<double> PythonFrame::component(int group, int k) const {
    const std::vector<std::int32_t>& node_of = data_->node_of;
    const std::size_t first = group * std::size_t(data_->run.mesh.dof_num()) + k;
    std::vector<double> out(node_of.size());
    for (std::size_t n = 0; n < out.size(); ++n) out[n] = frame().node_stress[first + 3 * node_of[n]];
    return array_of(std::move(out));
}

py::array_t<double> PythonFrame::quantity(const std::string& name) const {
    const std::optional<std::int32_t> index = find_quantity(name);
    if (!index) raise_error("no quantity '" + name + "': kestralum.quantities() has them all");
    int components = 1;
    std::vector<double> values = values_of(*data_, frame(), *index, components);
    if (values.empty()) raise_error("this frame has no " + name);
    values = in_model_order(values, components);
    if (components == 1) return array_of(std::move(values));
    return rows_array(std::move(values), components);
}

template <typename T>
py::array PythonFrame::nodal(const std::vector<T>& table, const char* what) const {
    if (table.empty()) raise_error(std::string("this frame has no ") + what);
    return rows_array(in_model_order(table, 3), 3);
}
template py::array PythonFrame::nodal(const std::vector<double>&, const char*) const;
template py::array PythonFrame::nodal(const std::vector<float>&, const char*) const;

py::array_t<double> PythonFrame::element_stresses() const {
    std::vector<double> table;
    work(py::none(), [&](Progress&) { table = element_values(data_->input->model, data_->run, frame()); });
    const std::size_t elements = data_->run.mesh.element_num();
    if (table.empty()) raise_error("this frame has no stresses of elements");
    std::vector<double> out(6 * elements);
    for (std::size_t e = 0; e < elements; ++e)
        for (std::size_t k = 0; k < 3; ++k) {
            out[6 * e + k] = table[3 * e + k];
            out[6 * e + 3 + k] = table[3 * elements + 3 * e + k];
        }
    return rows_array(std::move(out), 6);
}

std::vector<std::tuple<std::string, std::string, int>> quantity_names() {
    std::vector<std::tuple<std::string, std::string, int>> names;
    for (const view::Quantity& row : view::quantities)
        if (row.source != view::Source::none) names.emplace_back(row.text, row.unit, 1);
    for (const FieldQuantityRow& row : field_quantities)
        names.emplace_back(row.name, row.unit, row.components);
    return names;
}

PythonFrame PythonRun::frame(std::ptrdiff_t index) const {
    const auto count = static_cast<std::ptrdiff_t>(frames());
    if (index < 0) index += count;
    if (index < 0 || index >= count)
        throw py::index_error("the run has " + std::to_string(count) + " frames");
    return {data_, static_cast<std::size_t>(index)};
}

PythonFrame PythonRun::frame_of(const std::string& name) const {
    for (std::size_t k = 0; k < frames(); ++k)
        if (run().results[k]->name == name) return {data_, k};
    throw py::key_error("no load case or combination '" + name + "'");
}

PythonFrame PythonRun::shown() const {
    if (frames() == 0) raise_error("the run has no frames");
    return {data_, has_steps(run().ana_type) ? frames() - 1 : 0};
}

py::array_t<double> PythonRun::values() const {
    std::vector<double> values;
    for (const auto& frame : run().results) values.push_back(frame->n_freq);
    return array_of(std::move(values));
}

py::array_t<double> PythonRun::shapes() const {
    const std::size_t nodes = data_->node_of.size();
    std::vector<double> all;
    all.reserve(3 * nodes * frames());
    for (const auto& frame : run().results)
        for (const std::int32_t n : data_->node_of)
            for (std::size_t k = 0; k < 3; ++k) all.push_back(frame->mode_vec[3 * std::size_t(n) + k]);
    return array_of(std::move(all), {py::ssize_t(frames()), py::ssize_t(nodes), 3});
}

py::dict PythonRun::history() const {
    const HistoryRows& rows = run().history;
    py::dict out;
    for (std::size_t c = 0; c < rows.columns.size(); ++c) {
        std::vector<double> column(rows.rows());
        for (std::size_t r = 0; r < column.size(); ++r) column[r] = rows.values[r * rows.columns.size() + c];
        out[py::str(rows.columns[c])] = array_of(std::move(column));
    }
    return out;
}

py::list PythonRun::supports() const {
    py::list out;
    for (const SupportReaction& s : report().supports) {
        py::dict one;
        one["name"] = s.name;
        one["force"] = triple_of(s.force);
        one["moment"] = triple_of(s.moment);
        one["centre"] = triple_of(s.centre);
        out.append(one);
    }
    return out;
}

py::list PythonRun::sections() const {
    py::list out;
    for (const SectionSum& sum : run().sections) {
        py::dict one;
        one["plane"] = run().origin.options.sections[sum.plane].name;
        one["frame"] = sum.frame;
        one["area"] = sum.area;
        one["centre"] = triple_of(sum.centre);
        one["force"] = triple_of(sum.carried.force);
        one["moment"] = triple_of(sum.carried.moment);
        out.append(one);
    }
    return out;
}

py::dict PythonRun::energies() const {
    py::dict out;
    for (const CaseReport& one : report().cases) {
        out["strain"] = one.strain_energy;
        break;
    }
    if (report().dynamics.time_num == 0) return out;
    const ExplicitEnergies& e = report().dynamics.energies;
    const std::pair<const char*, double> rows[] = {
        {"kinetic", e.kinetic}, {"internal", e.internal}, {"plastic", e.plastic},   {"damping", e.damping},
        {"wall", e.wall},       {"contact", e.contact},   {"external", e.external}, {"support", e.support},
        {"viscous", e.viscous}, {"eroded", e.eroded},     {"total", e.total()}};
    for (const auto& [name, value] : rows) out[name] = value;
    out["drift"] = report().dynamics.drift;
    return out;
}

py::dict PythonRun::table() const {
    py::dict out;
    std::vector<std::optional<double>> values;
    work(py::none(),
         [&](Progress&) { values = sweep_quantities(data_->input->model, run(), data_->seconds); });
    for (std::size_t k = 0; k < values.size(); ++k)
        if (values[k]) out[py::str(sweep_columns()[k].heading())] = *values[k];
    return out;
}

py::object PythonRun::largest(const NodeValue& value) const {
    if (value.node == 0) return py::none();
    const auto at = std::ranges::find(data_->node_of, value.node - 1);
    py::dict out;
    out["value"] = value.value;
    out["node"] = at - data_->node_of.begin();
    out["place"] = triple_of(value.place);
    return out;
}

std::string PythonRun::summary() const {
    SummaryText progress;
    Run shown = run();
    RunReport& report = shown.report;  // the files are nobody's before write()
    report.written = report.nonlinear.history_written = false;
    report.dynamics.displacements_written = report.dynamics.history_written = false;
    print_run_summary({.model = data_->input->model,
                       .run = shown,
                       .read = &data_->input->read,
                       .control = &data_->input->control,
                       .vtu = {},
                       .factor_files = {}},
                      progress);
    return progress.text;
}

py::list PythonRun::write(const std::string& folder, bool vtu, bool quantities) const {
    std::vector<std::string> names;
    const Said said = work(py::none(), [&](Progress& progress) {
        LogLock lock;
        if (!lock.take(folder, progress)) return;
        if (vtu)
            if (const std::string fault = write_vtu_of(*data_, quantities, progress); !fault.empty())
                throw std::runtime_error(fault);
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
            if (!entry.is_regular_file() || entry.path().filename().string().starts_with('.')) continue;
            if (progress.cancelled()) return;
            copy_whole(entry.path(), paths::to_platform("log\\", folder));
            names.push_back(entry.path().filename().string());
        }
    });
    if (!said.errors.empty()) raise_error(said.errors);
    std::ranges::sort(names);
    return py::cast(names);
}

py::object run_model(PythonModel& model, const RunRequest& request) {
    const AnalysisEntry& analysis = entry_of(request.analysis);
    const SettingsText settings = settings_for(model, request);
    const auto start = Clock::now();
    const auto data = std::make_shared<RunData>();
    data->input = model.meshed(request.console);
    OwnFolder folder;
    RunOptions options = request.options;
    options.log_folder = folder.name();
    const Said said = work(request.console, [&](Progress& progress) {
        data->run = analysis.analyse(data->input->model, settings.settings(), options, progress);
        remove_factor_files(folder.name());
        RunReport& report = data->run.report;
        if (!data->run.sections.empty() && report.has_results() &&
            !write_sections(data->input->model, data->run, progress))
            report.status = RunStatus::failed;
    });
    data->node_of = node_places(data->run);
    data->seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const RunReport& report = data->run.report;
    const bool done = report.status == RunStatus::done;
    py::object run = py::none();
    if (done || report.has_results()) {
        const std::string kept = folder.release();
        run = py::cast(PythonRun(data, kept));
        remove_with(run, kept);
    }
    if (!done) raise_error(report.remarks.errors.empty() ? said.errors : report.remarks.errors, run);
    return run;
}

namespace {

SweepPlan plan_of(PythonModel& model, const std::string& analysis, const py::dict& axes,
                  const RunRequest& request) {
    SweepPlan plan;
    plan.base = placeholder_model();
    plan.base.model_file_name = model.input().name;
    plan.model_text = model.input().text;
    plan.control_text = model.input().control;
    plan.analysis = &entry_of(analysis);
    plan.options = request.options;
    for (const auto& [name, values] : axes) {
        SweepAxis axis{py::str(name), {}};
        for (const py::handle value : py::iter(values)) axis.values.push_back(value.cast<double>());
        plan.axes.push_back(std::move(axis));
    }
    for (const ParameterOverride& one : model.input().parameters)
        if (std::ranges::find(plan.axes, one.name, &SweepAxis::name) == plan.axes.end())
            plan.overrides.push_back(one);
    return plan;
}

py::dict sweep_columns_of(const std::vector<std::string>& names, const std::vector<SweepRow>& rows) {
    py::dict columns;
    const auto add = [&](const std::string& title, const auto& value_of) {
        std::vector<double> column;
        for (const SweepRow& row : rows) column.push_back(value_of(row));
        columns[py::str(title)] = array_of(std::move(column));
    };
    for (std::size_t a = 0; a < names.size(); ++a)
        add(names[a], [a](const SweepRow& row) { return row.parameters[a]; });
    for (const std::size_t k : used_columns(rows))
        add(sweep_columns()[k].heading(),
            [k](const SweepRow& row) { return row.quantities[k].value_or(unknown); });
    py::list status, error;
    for (const SweepRow& row : rows) {
        status.append(word_of(row.status));
        error.append(row.error);
    }
    columns["status"] = status;
    columns["error"] = error;
    return columns;
}

}  // namespace

py::tuple sweep_model(PythonModel& model, const std::string& analysis, const py::dict& axes,
                      const RunRequest& request) {
    SweepPlan plan = plan_of(model, analysis, axes, request);
    const SettingsText settings = settings_for(model, request);
    const OwnFolder folder;
    plan.options.log_folder = folder.name();
    SweepOutcome outcome;
    const Said said = work(request.console, [&](Progress& progress) {
        plan.settings = settings.settings();
        const auto tell = [&](const SweepRow& row) { progress.print("%s\n", sweep_line(plan, row).c_str()); };
        outcome = run_sweep(plan, tell, progress);
    });
    if (outcome.status == SweepStatus::bad_input) raise_error(said.errors);
    const std::vector<std::string> names = axis_names(plan.axes);
    return py::make_tuple(py::cast(names), sweep_columns_of(names, outcome.rows),
                          sweep_table(names, outcome.rows), sweep_csv(names, outcome.rows));
}

}  // namespace kestralum::python
