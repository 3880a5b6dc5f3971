#include "app/python/python_model.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <utility>

#include "app/export_model.h"
#include "app/python/arrays.h"
#include "app/python/model_text.h"
#include "app/python/work.h"
#include "app/run_summary.h"
#include "app/sweep.h"
#include "fields/locate.h"
#include "input/file_parameters.h"
#include "model/paths.h"
#include "results/text_output.h"
#include "system/model_check.h"

namespace kestralum::python {

namespace {

constexpr const char* settings_file = "setting\\setting.txt";

bool stands(const std::string& stored) {
    std::error_code ignored;
    return std::filesystem::exists(paths::to_platform(stored), ignored);
}

std::string read_file(const std::string& name) {
    std::string text, reason;
    if (!paths::read_text(name, text, reason)) raise_error(name + ": " + reason);
    return text;
}

void append_field(std::string& text, const std::string& field) {
    if (field.empty()) return;
    if (!text.empty()) text += ' ';
    text += field;
}

void read_input(MeshedModel& out, Progress& progress) {
    Model model = placeholder_model();
    model.model_file_name = out.input.name;
    out.read = read_input_text(model, out.input.text, out.input.parameters, progress);
    if (out.read.ok && out.input.control)
        out.control = read_analysis_info_text(model, *out.input.control, progress);
    out.model = std::move(model);
}

// Of places (p, 3).
py::array_t<double> three_columns(const py::array_t<double>& places) {
    auto rows = py::array_t<double, py::array::c_style | py::array::forcecast>(places);
    if (rows.ndim() == 1 && rows.shape(0) == 3) rows = rows.reshape({py::ssize_t(1), py::ssize_t(3)});
    if (rows.ndim() != 2 || rows.shape(1) != 3) throw py::value_error("places are an array of (p, 3)");
    return rows;
}

}  // namespace

std::vector<std::string> MeshedModel::notices() const {
    std::vector<std::string> all = read.remarks.notices;
    all.insert(all.end(), control.remarks.notices.begin(), control.remarks.notices.end());
    if (!read.ended_at_end)
        all.push_back("the model file was read up to token " + std::to_string(read.end_token_number) + " '" +
                      read.end_token + "', which is no keyword: what follows was not read");
    return all;
}

PythonModel PythonModel::read(const std::string& path, SettingsText settings) {
    ModelInput input{path, read_file(path), std::nullopt, {}};
    const std::string control = analysis_info_file_name(path);
    if (stands(control)) input.control = read_file(control);
    return {std::move(input), std::move(settings)};
}

void PythonModel::add(const std::string& section, const py::args& fields, const py::kwargs& options) {
    std::string record, fault;
    for (const py::handle field : fields) append_field(record, field_text(field));
    for (const auto& [key, value] : options)
        append_field(record, std::string(py::str(key)) + "=" + field_text(value));
    std::string text = with_record(input_.text, section, record, fault);
    if (!fault.empty()) raise_error(input_.name + ": " + fault);
    input_.text = std::move(text);
    meshed_.reset();
}

void PythonModel::set(const py::kwargs& parameters) {
    const std::vector<FileParameter> defined = text_parameters(input_.text, SilentProgress());
    std::vector<ParameterOverride> changed = input_.parameters;
    for (const auto& [key, value] : parameters) {
        ParameterOverride one{py::str(key), field_text(value)};
        if (std::ranges::find(defined, one.name, &FileParameter::name) == defined.end())
            raise_error(input_.name + " defines no parameter " + one.name);
        if (one.expression.empty() || one.expression.find_first_of(" \t\r\n") != std::string::npos)
            raise_error(one.name + "='" + one.expression + "': an expression is one word without blanks");
        std::erase_if(changed, [&](const ParameterOverride& former) { return former.name == one.name; });
        changed.push_back(std::move(one));
    }
    input_.parameters = std::move(changed);
    meshed_.reset();
}

void PythonModel::set_control(std::optional<std::string> text) {
    input_.control = std::move(text);
    meshed_.reset();
}

std::string PythonModel::text() const {
    return with_parameters(input_.text, input_.parameters);
}

void PythonModel::write(const std::string& path) const {
    const auto write = [](const std::string& target, const std::string& text) {
        const std::string fault = write_whole(
            target, "log", [&](TextOutput& file) { file.write(text); }, SilentProgress());
        if (!fault.empty()) raise_error(fault);
    };
    write(path, text());
    if (input_.control) write(analysis_info_file_name(path), *input_.control);
}

std::shared_ptr<const MeshedModel> PythonModel::meshed(const py::object& console) {
    if (meshed_) return meshed_;
    const auto made = std::make_shared<MeshedModel>();
    made->input = input_;
    const Said said = work(console, [&](Progress& progress) { read_input(*made, progress); });
    if (!made->read.ok || made->control.status == AnalysisInfoStatus::wrong) {
        std::vector<std::string> errors = made->read.remarks.errors;
        const std::vector<std::string>& of_control = made->control.remarks.errors;
        errors.insert(errors.end(), of_control.begin(), of_control.end());
        raise_error(errors.empty() ? said.errors : errors);
    }
    // another thread may have changed the input meanwhile
    const auto same = [](const ParameterOverride& a, const ParameterOverride& b) {
        return a.name == b.name && a.expression == b.expression;
    };
    if (made->input.text == input_.text && made->input.control == input_.control &&
        std::ranges::equal(made->input.parameters, input_.parameters, same))
        meshed_ = made;
    return made;
}

py::str PythonModel::check() {
    const auto input = meshed();
    class Kept : public Progress {
    public:
        Kept() : Progress(false) {}
        std::string text;

    protected:
        void take(Kind kind, std::string_view piece) override {
            if (kind == Kind::summary) text += piece;
        }
    } kept;
    work(py::none(), [&](Progress& progress) {
        const ModelCheck found = check_model(input->model, settings_.settings(), progress);
        if (progress.cancelled()) return;
        print_check(input->model, found, kept);
        print_input_summary(input->read, input->control, kept);
    });
    return kept.text;
}

void PythonModel::export_to(const std::string& path) {
    const auto input = meshed();
    RunStatus status = RunStatus::done;
    const Said said = work(py::none(), [&](Progress& progress) {
        status = export_model(input->model, settings_.settings(), path, progress);
    });
    if (status != RunStatus::done) raise_error(said.errors);
}

py::array_t<double> PythonModel::interpolate(const py::array_t<double>& places,
                                             const py::array_t<double>& values) {
    const auto input = meshed();
    const Mesh& mesh = input->model.mesh;
    const py::array_t<double> at = three_columns(places);
    const auto nodal = py::array_t<double, py::array::c_style | py::array::forcecast>(values);
    if (nodal.ndim() < 1 || nodal.ndim() > 2 || nodal.shape(0) != mesh.node_num())
        throw py::value_error("values are an array of (" + std::to_string(mesh.node_num()) +
                              ",) or of so many rows: one for each node of the model");
    const int components = nodal.ndim() == 2 ? static_cast<int>(nodal.shape(1)) : 1;
    const auto count = static_cast<std::size_t>(at.shape(0));
    std::vector<double> out(count * components, std::numeric_limits<double>::quiet_NaN());
    const double* const place = at.data();
    const std::span<const double> of_nodes(nodal.data(), static_cast<std::size_t>(nodal.size()));
    work(py::none(), [&](Progress& progress) {
        const Locator locator(mesh);
        for (std::size_t p = 0; p < count && !progress.cancelled(); ++p) {
            const Location where = locator.find({place[3 * p], place[3 * p + 1], place[3 * p + 2]});
            if (where.element >= 0)
                kestralum::interpolate(mesh, where, of_nodes, components, &out[p * components]);
        }
    });
    if (nodal.ndim() == 1) return array_of(std::move(out));
    return rows_array(std::move(out), components);
}

std::string field_text(const py::handle& value) {
    if (py::isinstance<py::str>(value)) return py::str(value);
    if (py::isinstance<py::bool_>(value) || value.is_none())
        throw py::type_error("a field is a number, a text, or a list of them, not " +
                             std::string(py::repr(value)));
    if (py::isinstance<py::int_>(value)) return py::str(value);
    if (py::isinstance<py::float_>(value)) return sweep_number(value.cast<double>());
    if (py::hasattr(value, "tolist")) return field_text(value.attr("tolist")());  // of NumPy
    if (py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value)) {
        std::string text;
        for (const py::handle one : value) append_field(text, field_text(one));
        return text;
    }
    throw py::type_error("a field is a number, a text, or a list of them, not " +
                         std::string(py::repr(value)));
}

SettingsText settings_of(const py::object& given) {
    SettingsText settings;
    std::string fault;
    if (given.is_none()) {
        if (stands(settings_file)) fault = settings.read(settings_file);
    } else if (py::isinstance<py::dict>(given)) {
        change_settings(settings, given);
    } else {
        fault = settings.read(py::module_::import("os").attr("fspath")(given).cast<std::string>());
    }
    if (!fault.empty()) raise_error(fault);
    return settings;
}

void change_settings(SettingsText& settings, const py::object& changes) {
    if (changes.is_none()) return;
    if (!py::isinstance<py::dict>(changes)) throw py::type_error("settings are a dict of labels and values");
    for (const auto& [label, value] : changes.cast<py::dict>())
        if (const std::string fault = settings.set(std::string(py::str(label)), field_text(value));
            !fault.empty())
            raise_error(fault);
}

}  // namespace kestralum::python
