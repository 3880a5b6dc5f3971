// A model as Python holds it: its text, the parameters that were given other expressions, and, once someone
// asks, the model that the reader of files makes of them.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/python/settings_text.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/model.h"

namespace kestralum::python {

namespace py = pybind11;

// What a model is made of.
struct ModelInput {
    std::string name;                    // of the model file: what remarks and results are called after
    std::string text;                    // of it
    std::optional<std::string> control;  // text of the control file; none: there is none
    std::vector<ParameterOverride> parameters;
};

// What was made of it; not altered any more, so that runs share it.
struct MeshedModel {
    ModelInput input;
    Model model;
    ModelReadReport read;
    AnalysisInfoReport control;
    std::vector<std::string> notices() const;
};

class PythonModel {
public:
    PythonModel(ModelInput input, SettingsText settings)
        : input_(std::move(input)), settings_(std::move(settings)) {}
    // The model file, and the control file beside it where there is one.
    static PythonModel read(const std::string& path, SettingsText settings);

    void add(const std::string& section, const py::args& fields, const py::kwargs& options);
    void set(const py::kwargs& parameters);
    void set_control(std::optional<std::string> text);
    const ModelInput& input() const { return input_; }
    const SettingsText& settings() const { return settings_; }
    // The text with the parameters as they are now.
    std::string text() const;
    void write(const std::string& path) const;

    // Reads and meshes where that has not been done since the last change; kestralum.Error where it cannot
    // be.
    std::shared_ptr<const MeshedModel> meshed(const py::object& console = py::none());

    py::str check();
    void export_to(const std::string& path);
    // values: (n,) or (n, k) at the nodes; at places (p, 3), NaN outside the body.
    py::array_t<double> interpolate(const py::array_t<double>& places, const py::array_t<double>& values);

private:
    ModelInput input_;
    SettingsText settings_;
    std::shared_ptr<const MeshedModel> meshed_;  // of the input as it is; null: none yet
};

// A value of a record as the file would have it: numbers in the shortest form that reads as the same number,
// texts as they are; lists, tuples and arrays one value behind the other.
std::string field_text(const py::handle& value);

// Settings of a dict, a path, or None: setting/setting.txt of the working folder where there is one, else
// what the program is shipped with.
SettingsText settings_of(const py::object& given);
void change_settings(SettingsText& settings, const py::object& changes);

}  // namespace kestralum::python
