// A run as Python holds it. Tables are in the numbering of the model that was run, which the program
// renumbers for its own work and its files.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <vector>

#include "app/python/python_model.h"
#include "model/run.h"

namespace kestralum::python {

// What a run computed; not altered any more. Frames and Python's Run share it.
struct RunData {
    std::shared_ptr<const MeshedModel> input;
    Run run;
    double seconds = 0;                 // of reading, meshing and analysis
    std::vector<std::int32_t> node_of;  // per node of the model: its node in run.mesh, 0-based
};

class PythonFrame {
public:
    PythonFrame(std::shared_ptr<const RunData> data, std::size_t index)
        : data_(std::move(data)), index_(index) {}
    const Frame& frame() const { return *data_->run.results[index_]; }
    std::size_t index() const { return index_; }

    py::array_t<double> displacements() const;                // (n, 3), m
    py::array_t<double> tensor(int normal, int shear) const;  // (n, 6) of two groups of node_stress
    py::array_t<double> component(int group, int k) const;    // (n,) of node_stress
    // By a name of quantity_names(); kestralum.Error where there is no such or the frame has it not.
    py::array_t<double> quantity(const std::string& name) const;
    // A table of the frame with three numbers per node; kestralum.Error where it has none.
    template <typename T>
    py::array nodal(const std::vector<T>& table, const char* what) const;
    py::array_t<double> element_stresses() const;  // (e, 6), Pa

private:
    template <typename T>
    std::vector<T> in_model_order(const std::vector<T>& table, int components) const;
    std::shared_ptr<const RunData> data_;
    std::size_t index_;
};

// Name, unit and components of each quantity that a frame can be asked for.
std::vector<std::tuple<std::string, std::string, int>> quantity_names();

struct RunRequest {
    std::string analysis;
    RunOptions options;
    py::object settings, threads, console;
};

class PythonRun {
public:
    PythonRun(std::shared_ptr<const RunData> data, std::string folder)
        : data_(std::move(data)), folder_(std::move(folder)) {}

    const RunData& data() const { return *data_; }
    const Run& run() const { return data_->run; }
    const RunReport& report() const { return data_->run.report; }
    std::size_t frames() const { return data_->run.results.size(); }
    PythonFrame frame(std::ptrdiff_t index) const;        // from the end where negative; IndexError
    PythonFrame frame_of(const std::string& name) const;  // of a load case; KeyError
    // The one that is meant where none is named: the last of an analysis with steps, else the first.
    PythonFrame shown() const;

    py::array_t<double> values() const;  // n_freq of each frame
    py::array_t<double> shapes() const;  // (k, n, 3)
    py::dict history() const;
    py::list supports() const;
    py::list sections() const;
    py::dict energies() const;
    py::dict table() const;
    py::object largest(const NodeValue& value) const;
    std::string summary() const;
    // The files that the batch command writes, into a folder.
    py::list write(const std::string& folder, bool vtu, bool quantities) const;

private:
    std::shared_ptr<const RunData> data_;
    std::string folder_;  // with the files that the analysis wrote
};

// Runs an analysis; kestralum.Error where it does not come to its end.
py::object run_model(PythonModel& model, const RunRequest& request);

// The rows of a sweep: (names of the axes, columns by heading, table as text, table with commas).
py::tuple sweep_model(PythonModel& model, const std::string& analysis, const py::dict& axes,
                      const RunRequest& request);

}  // namespace kestralum::python
