// The module _kestralum, which kestralum.py shows under its name: what Python sees of models and runs.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <string>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/python/arrays.h"
#include "app/python/model_text.h"
#include "app/python/python_model.h"
#include "app/python/python_run.h"
#include "app/python/work.h"
#include "app/section_table.h"
#include "elements/element_type.h"
#include "solver/panels.h"

namespace kestralum::python {

namespace {

std::string path_text(const py::object& path) {
    return py::module_::import("os").attr("fspath")(path).cast<std::string>();
}

// --- models

py::array_t<double> nodes_of(PythonModel& model) {
    return rows_array(std::vector(model.meshed()->model.mesh.coordinates), 3);
}

py::array_t<std::int32_t> elements_of(PythonModel& model) {
    const auto input = model.meshed();
    const Mesh& mesh = input->model.mesh;
    return rows_array(indices_of(mesh.connectivity), mesh.node_per_element());
}

py::array_t<std::int32_t> facets_of(PythonModel& model) {
    const auto input = model.meshed();
    return rows_array(indices_of(input->model.mesh.surface_facets), 3);
}

py::array_t<std::int32_t> element_parts_of(PythonModel& model) {
    return array_of(std::vector(model.meshed()->model.mesh.p_ele_part_id));
}

py::dict sets_of(PythonModel& model) {
    const auto input = model.meshed();
    py::dict sets;
    for (const MeshSet& set : input->model.mesh.sets) {
        std::vector<std::int32_t> faces;
        for (const ElementFace& face : set.faces) {
            faces.push_back(face.element);
            faces.push_back(face.face);
        }
        py::dict one;
        one["nodes"] = array_of(std::vector(set.nodes));
        one["faces"] = rows_array(std::move(faces), 2);
        one["elements"] = array_of(std::vector(set.elements));
        sets[py::str(set.name)] = one;
    }
    return sets;
}

py::list parts_of(PythonModel& model) {
    py::list names;
    const auto input = model.meshed();
    for (const Part& part : input->model.parts) names.append(part.name);
    return names;
}

py::dict materials_of(PythonModel& model) {
    py::dict all;
    const auto input = model.meshed();
    for (const Material& material : input->model.materials) {
        py::dict one;
        one["density"] = material.density;
        one["young"] = material.young;
        one["poisson"] = material.poisson;
        one["yield_stress"] = material.yield_stress;
        one["expansion"] = material.expansion;
        all[py::str(material.name)] = one;
    }
    return all;
}

py::dict parameters_of(PythonModel& model) {
    py::dict all;
    const auto input = model.meshed();
    for (const Parameter& parameter : input->model.parameters)
        if (!all.contains(py::str(parameter.name))) all[py::str(parameter.name)] = parameter.value;
    return all;
}

std::string repr_of(const PythonModel& model) {
    std::string text = "<kestralum.Model " + model.input().name;
    for (const ParameterOverride& one : model.input().parameters)
        text += " " + one.name + "=" + one.expression;
    return text + ">";
}

std::array<double, 3> place_of(const py::handle& place) {
    return place.cast<std::array<double, 3>>();
}

SectionPlane plane_of(const std::string& text) {
    SectionPlane plane;
    if (const std::string fault = read_section_plane(text, plane); !fault.empty()) raise_error(fault);
    return plane;
}

// The choices of a run beside its settings.
RunOptions options_of(const std::string& analysis, const std::string& load_case, bool prestress,
                      bool mean_dilatation, const std::string& hexahedra, const py::iterable& probes,
                      const py::iterable& sections) {
    if (prestress && analysis != "eigen-subspace" && analysis != "eigen-lanczos")
        raise_error("prestress goes with eigen-subspace or eigen-lanczos");
    if (mean_dilatation && analysis != "explicit") raise_error("mean_dilatation goes with explicit");
    if (mean_dilatation && !hexahedra.empty()) raise_error("mean_dilatation does not go with hexahedra");
    RunOptions options;
    options.load_case = load_case;
    options.prestress = prestress;
    options.mean_dilatation = mean_dilatation;
    if (!hexahedra.empty()) {
        options.hexahedra = hexahedron_form_of(hexahedra);
        if (!options.hexahedra)
            raise_error("hexahedra='" + hexahedra + "': expected full, enhanced or mean-dilatation");
    }
    for (const py::handle place : probes) options.probes.push_back(place_of(place));
    for (const py::handle plane : sections) options.sections.push_back(plane_of(plane.cast<std::string>()));
    return options;
}

void define_model(py::module_& m) {
    py::class_<PythonModel>(
        m, "Model",
        "A model: a text of the records of a model file, read and meshed when something asks for the "
        "mesh.\n\n"
        "Model(text='', name='model.txt', control=None, settings=None)\n"
        "  text      sections as a model file has them; add() puts further records into them\n"
        "  name      what messages and result files are called after; imported parts are looked for as a\n"
        "            file of this name would\n"
        "  control   text of the control file (.ana) of nonlinear and explicit runs\n"
        "  settings  None: setting/setting.txt of the working folder, or the shipped values; a path; or a\n"
        "            dict of its labels such as {'SOLVER': 'sparse'}\n\n"
        "Numbers are SI (m, kg, s, N, Pa). Nodes and elements count from 0, as rows of the arrays do; the\n"
        "files of the program count from 1. Arrays are copies: changing one changes no model.")
        .def(py::init([](std::string text, std::string name, std::optional<std::string> control,
                         const py::object& settings) {
                 return PythonModel({std::move(name), std::move(text), std::move(control), {}},
                                    settings_of(settings));
             }),
             py::arg("text") = "", py::arg("name") = "model.txt", py::arg("control") = py::none(),
             py::arg("settings") = py::none())
        .def(
            "add",
            [](const py::object& self, const std::string& section, const py::args& fields,
               const py::kwargs& options) {
                self.cast<PythonModel&>().add(section, fields, options);
                return self;
            },
            py::arg("section"),
            "add(section, *fields, **options): a record at the end of a section, which is made where there "
            "is\n"
            "none. Fields are those of the model file: numbers, expressions as texts, lists of them. "
            "Options\n"
            "become KEY=VALUE. Gives the model. m.add('material_info', 'STEEL', 7800, '206e9', 0.3, "
            "alpha=12e-6)")
        .def(
            "set",
            [](const py::object& self, const py::kwargs& parameters) {
                self.cast<PythonModel&>().set(parameters);
                return self;
            },
            "set(**parameters): other values or expressions of parameters that the model defines, as --set\n"
            "gives them; the model is meshed anew when it is next asked for. Gives the model:\n"
            "m.set(nl=50, L='400*mm').run('static')")
        .def(
            "copy", [](const PythonModel& model) { return model; },
            "A model of its own with the same records, parameters and settings.")
        .def(
            "write", [](const PythonModel& model, const py::object& path) { model.write(path_text(path)); },
            py::arg("path"),
            "Writes the model file with the parameters as they are, and the control file (.ana) beside it "
            "where\n"
            "the model has one. Paths of imported parts stay as they are.")
        .def("check", &PythonModel::check, "What kestralum-batch check tells of the model, as text.")
        .def(
            "export", [](PythonModel& model, const py::object& path) { model.export_to(path_text(path)); },
            py::arg("path"),
            "Writes mesh, sets, supports and loads for another program: .inp, .msh, .vtu, .stl.")
        .def(
            "interpolate", &PythonModel::interpolate, py::arg("places"), py::arg("values"),
            "Nodal values (n,) or (n, k) at places (p, 3), m, as the elements interpolate them; NaN outside.")
        .def_property_readonly(
            "name", [](const PythonModel& model) { return model.input().name; },
            "What results are called after: the path of a model that was read.")
        .def_property_readonly("text", &PythonModel::text,
                               "The text of the model file, parameters as they are.")
        .def_property(
            "control", [](const PythonModel& model) { return model.input().control; },
            &PythonModel::set_control, "Text of the control file, or None. It can be set.")
        .def_property_readonly(
            "settings",
            [](const PythonModel& model) {
                py::dict all;
                for (const auto& [label, value] : model.settings().values()) all[py::str(label)] = value;
                return all;
            },
            "Labels and values of the settings; a copy.")
        .def_property_readonly("parameters", &parameters_of, "Values of the parameters by name.")
        .def_property_readonly("nodes", &nodes_of, "(n, 3) float64: x y z of the nodes, m.")
        .def_property_readonly(
            "elements", &elements_of,
            "(e, k) int32: nodes of the elements, from 0, in the order of the result file.")
        .def_property_readonly(
            "element_kind",
            [](PythonModel& model) {
                return std::string(element_type(model.meshed()->model.mesh.element_type).name);
            },
            "What the elements are.")
        .def_property_readonly("element_part", &element_parts_of, "(e,) int32: index into parts.")
        .def_property_readonly("facets", &facets_of,
                               "(f, 3) int32: nodes of STL facets, which no analysis uses.")
        .def_property_readonly("parts", &parts_of, "Names of the parts.")
        .def_property_readonly("materials", &materials_of, "Constants of the materials by name, SI.")
        .def_property_readonly("sets", &sets_of,
                               "Named sets: {name: {'nodes': (i,), 'faces': (j, 2) element and face of it,\n"
                               "'elements': (k,)}}, from 0.")
        .def_property_readonly(
            "notices", [](PythonModel& model) { return model.meshed()->notices(); },
            "What the reader noted, lines.")
        .def(
            "run",
            [](py::object self, const std::string& analysis, const std::string& load_case, bool prestress,
               bool mean_dilatation, const std::string& hexahedra, const py::iterable& probes,
               const py::iterable& sections, const py::object& threads, const py::object& settings,
               const py::object& console) {
                const RunRequest request{
                    analysis,
                    options_of(analysis, load_case, prestress, mean_dilatation, hexahedra, probes, sections),
                    settings, threads, console};
                return run_model(self.cast<PythonModel&>(), request);
            },
            py::arg("analysis"), py::kw_only(), py::arg("case") = "", py::arg("prestress") = false,
            py::arg("mean_dilatation") = false, py::arg("hexahedra") = "", py::arg("probes") = py::tuple(),
            py::arg("sections") = py::tuple(), py::arg("threads") = py::none(),
            py::arg("settings") = py::none(), py::arg("console") = py::none(),
            "Analyses the model and returns a Run.\n\n"
            "  analysis   'static', 'eigen-subspace', 'eigen-lanczos', 'nonlinear', 'explicit', 'buckling'\n"
            "  case       load case or combination that acts; '' as on the command line: a static run "
            "computes\n"
            "             them all, the others take all loads together\n"
            "  prestress  eigen: modes of the body under the stresses of its loads\n"
            "  hexahedra  'full', 'enhanced', 'mean-dilatation' in place of what the model says\n"
            "  mean_dilatation  explicit: hexahedra with one pressure each\n"
            "  probes     places (x, y, z) that the history follows;  sections: planes such as 'x=0.1'\n"
            "  threads    of this run;  settings: a dict of labels, for this run\n"
            "  console    a callable that gets the program's text piece by piece, e.g. sys.stdout.write\n\n"
            "Other threads of Python go on meanwhile. Ctrl-C, or a console that raises, ends the run. It "
            "works in\n"
            "a temporary folder (TMPDIR) that lives as long as the Run. Error: the run could not be "
            "completed.")
        .def("_sweep",
             [](py::object self, const std::string& analysis, const py::dict& axes,
                const std::string& load_case, bool prestress, bool mean_dilatation,
                const std::string& hexahedra, const py::object& threads, const py::object& settings,
                const py::object& console) {
                 const RunRequest request{analysis,
                                          options_of(analysis, load_case, prestress, mean_dilatation,
                                                     hexahedra, py::tuple(), py::tuple()),
                                          settings, threads, console};
                 return sweep_model(self.cast<PythonModel&>(), analysis, axes, request);
             })
        .def("__repr__", &repr_of);
    m.def("_read", [](const py::object& path, const py::object& settings, const py::object& parameters,
                      const py::object& console) {
        PythonModel model = PythonModel::read(path_text(path), settings_of(settings));
        if (!parameters.is_none()) model.set(py::kwargs(parameters.cast<py::dict>()));
        model.meshed(console);
        return model;
    });
}

// --- frames and runs

py::array velocities_of(const PythonFrame& f) {
    return f.nodal(f.frame().velocity, "velocities");
}

void define_frame(py::module_& m) {
    py::class_<PythonFrame>(m, "Frame",
                            "A load case, mode, increment or output of a run. Arrays have a row for each "
                            "node of the model, in the\n"
                            "order of Model.nodes. Stresses and strains are xx yy zz xy yz zx; shear strains "
                            "are engineering ones.")
        .def_property_readonly(
            "name", [](const PythonFrame& f) { return f.frame().name; },
            "Of the load case; '' where there is but one.")
        .def_property_readonly(
            "value", [](const PythonFrame& f) { return f.frame().n_freq; },
            "Frequency (Hz), load factor, or time (s); 0 of a static run.")
        .def_property_readonly("displacements", &PythonFrame::displacements, "(n, 3), m.")
        .def_property_readonly(
            "stresses", [](const PythonFrame& f) { return f.tensor(0, 1); }, "(n, 6), Pa.")
        .def_property_readonly(
            "strains", [](const PythonFrame& f) { return f.tensor(2, 3); }, "(n, 6).")
        .def_property_readonly(
            "mises", [](const PythonFrame& f) { return f.component(4, 0); }, "(n,), Pa.")
        .def_property_readonly(
            "reactions", [](const PythonFrame& f) { return f.nodal(f.frame().reaction, "reactions"); },
            "(n, 3), N: what supports do to each node.")
        .def_property_readonly(
            "loads", [](const PythonFrame& f) { return f.nodal(f.frame().load, "loads"); },
            "(n, 3), N: nodal loads, of static runs.")
        .def_property_readonly("velocities", &velocities_of, "(n, 3), m/s, float32; explicit.")
        .def_property_readonly(
            "accelerations",
            [](const PythonFrame& f) { return f.nodal(f.frame().acceleration, "accelerations"); },
            "(n, 3), m/s^2, float32; explicit.")
        .def_property_readonly("element_stresses", &PythonFrame::element_stresses,
                               "(e, 6), Pa: means over the points of each element.")
        .def_property_readonly(
            "removed", [](const PythonFrame& f) { return array_of(std::vector(f.frame().removed)); },
            "Elements that an explicit run has taken out so far, from 0.")
        .def(
            "quantity", &PythonFrame::quantity, py::arg("name"),
            "(n,) or (n, 3): a quantity by its name in kestralum.quantities(), e.g. 'Stress x', 'pressure'.");
}

template <typename T>
auto of_frame(py::array_t<double> (PythonFrame::*get)() const) {
    return [get](const T& run) { return (run.shown().*get)(); };
}

py::array_t<double> frequencies_of(const PythonRun& run) {
    if (run.run().ana_type != AnalysisType::eigen)
        raise_error("a run of " + run.run().origin.analysis + " has no frequencies");
    return run.values();
}

py::array_t<double> load_factors_of(const PythonRun& run) {
    const AnalysisType type = run.run().ana_type;
    if (type != AnalysisType::buckling && type != AnalysisType::nonlinear_static)
        raise_error("a run of " + run.run().origin.analysis + " has no load factors");
    return run.values();
}

py::array_t<double> times_of(const PythonRun& run) {
    if (run.run().ana_type != AnalysisType::explicit_dynamics)
        raise_error("a run of " + run.run().origin.analysis + " has no times");
    return run.values();
}

py::array_t<double> shapes_of(const PythonRun& run) {
    if (!has_shapes(run.run().ana_type))
        raise_error("a run of " + run.run().origin.analysis + " has no modes");
    return run.shapes();
}

py::array_t<double> effective_mass_of(const PythonRun& run) {
    std::vector<double> all;
    for (const ModeReport& mode : run.report().modes)
        all.insert(all.end(), mode.effective_mass.begin(), mode.effective_mass.end());
    return rows_array(std::move(all), 3);
}

py::array_t<double> residuals_of(const PythonRun& run) {
    std::vector<double> all;
    for (const ModeReport& mode : run.report().modes) all.push_back(mode.residual);
    for (const LoadFactorReport& factor : run.report().buckling.factors) all.push_back(factor.residual);
    return array_of(std::move(all));
}

py::list cases_of(const PythonRun& run) {
    py::list names;
    for (const auto& frame : run.run().results) names.append(frame->name);
    return names;
}

void define_run(py::module_& m) {
    py::class_<PythonRun>(
        m, "Run",
        "What an analysis computed: a sequence of Frames, one for each load case, mode, increment or "
        "output.\n"
        "len(run), run[0], run[-1], run['CASE'], for frame in run.\n\n"
        "The properties displacements, stresses, strains, mises, reactions and quantity() are those of one\n"
        "frame: the last of a nonlinear or explicit run, the first of the others. A Run keeps all it needs: "
        "the\n"
        "model may be changed or dropped. Nodes are in the order of Model.nodes.")
        .def("__len__", &PythonRun::frames)
        .def("__getitem__", &PythonRun::frame, py::arg("index"))
        .def("__getitem__", &PythonRun::frame_of, py::arg("case"))
        .def_property_readonly(
            "analysis", [](const PythonRun& run) { return run.run().origin.analysis; },
            "The analysis, as run() names it.")
        .def_property_readonly("frame", &PythonRun::shown, "The frame that the properties below are of.")
        .def_property_readonly("displacements", of_frame<PythonRun>(&PythonFrame::displacements),
                               "(n, 3), m.")
        .def_property_readonly(
            "stresses", [](const PythonRun& run) { return run.shown().tensor(0, 1); },
            "(n, 6), Pa: xx yy zz xy yz zx.")
        .def_property_readonly(
            "strains", [](const PythonRun& run) { return run.shown().tensor(2, 3); },
            "(n, 6): xx yy zz xy yz zx, shear strains engineering ones.")
        .def_property_readonly(
            "mises", [](const PythonRun& run) { return run.shown().component(4, 0); }, "(n,), Pa.")
        .def_property_readonly(
            "reactions",
            [](const PythonRun& run) {
                const PythonFrame frame = run.shown();
                return frame.nodal(frame.frame().reaction, "reactions");
            },
            "(n, 3), N: what supports do to each node.")
        .def_property_readonly(
            "velocities", [](const PythonRun& run) { return velocities_of(run.shown()); },
            "(n, 3), m/s, float32; explicit.")
        .def_property_readonly("element_stresses", of_frame<PythonRun>(&PythonFrame::element_stresses),
                               "(e, 6), Pa: means over the points of each element.")
        .def(
            "quantity",
            [](const PythonRun& run, const std::string& name) { return run.shown().quantity(name); },
            py::arg("name"), "(n,) or (n, 3): a quantity by its name in kestralum.quantities().")
        .def_property_readonly("cases", &cases_of,
                               "Names of the load cases and combinations, frame by frame.")
        .def_property_readonly("frequencies", &frequencies_of, "(k,), Hz, of an eigen run.")
        .def_property_readonly("load_factors", &load_factors_of, "(k,) of a buckling or nonlinear run.")
        .def_property_readonly("times", &times_of, "(k,), s, of the frames of an explicit run.")
        .def_property_readonly("modes", &shapes_of, "(k, n, 3): shapes of an eigen or buckling run.")
        .def_property_readonly("effective_mass", &effective_mass_of,
                               "(k, 3), kg, along x y z, of an eigen run.")
        .def_property_readonly("residuals", &residuals_of, "(k,): of the modes.")
        .def_property_readonly("history", &PythonRun::history,
                               "Columns of the history file by name, of a nonlinear or explicit run.")
        .def_property_readonly(
            "sections", &PythonRun::sections,
            "What each plane carries in each frame: dicts of plane, frame, area (m^2), centre\n"
            "(m), force (N) and moment (N m) about it.")
        .def_property_readonly(
            "supports", &PythonRun::supports,
            "Reactions of each support, of the last load case, increment or output: dicts of\n"
            "name, force (N), moment (N m) about centre (m).")
        .def_property_readonly(
            "applied", [](const PythonRun& run) { return run.report().applied; },
            "Sum of the applied loads, N.")
        .def_property_readonly(
            "reaction", [](const PythonRun& run) { return run.report().reaction; },
            "Sum of the reactions, N.")
        .def_property_readonly(
            "energies", &PythonRun::energies,
            "J: 'strain' of a static run's first case; the balance of an explicit run's last\n"
            "output, with 'total', which stays, and 'drift', its largest relative error.")
        .def_property_readonly(
            "largest_displacement",
            [](const PythonRun& run) { return run.largest(run.report().largest_displacement); },
            "dict of value (m), node (from 0) and place (m), or None.")
        .def_property_readonly(
            "largest_mises", [](const PythonRun& run) { return run.largest(run.report().largest_mises); },
            "dict of value (Pa), node (from 0) and place (m), or None.")
        .def_property_readonly("table", &PythonRun::table, "The figures of a sweep's row, by heading.")
        .def_property_readonly(
            "notices", [](const PythonRun& run) { return run.report().remarks.notices; },
            "What the user should know, lines.")
        .def_property_readonly("summary", &PythonRun::summary,
                               "What kestralum-batch prints at the end, as text.")
        .def_property_readonly(
            "node_numbers",
            [](const PythonRun& run) {
                std::vector<std::int32_t> numbers = run.data().node_of;
                for (std::int32_t& n : numbers) ++n;
                return array_of(std::move(numbers));
            },
            "(n,): the number, from 1, that each node of the model has in the result files.")
        .def(
            "write",
            [](const PythonRun& run, const py::object& folder, bool vtu, bool quantities) {
                return run.write(path_text(folder), vtu, quantities);
            },
            py::arg("folder"), py::arg("vtu") = false, py::arg("quantities") = false,
            "Writes the files that kestralum-batch writes into a folder, byte for byte, and returns their "
            "names.\n"
            "vtu: files for ParaView too; quantities: with principal stresses, pressure and others in them.")
        .def("__repr__", [](const PythonRun& run) {
            return "<kestralum.Run " + run.run().origin.analysis + " of " + run.run().origin.model_file_name +
                   ", " + std::to_string(run.frames()) + (run.frames() == 1 ? " frame>" : " frames>");
        });
}

}  // namespace

}  // namespace kestralum::python

PYBIND11_MODULE(_kestralum, m) {
    using namespace kestralum;
    using namespace kestralum::python;
    m.doc() = "The compiled part of the module kestralum.";
    m.attr("Error") = make_error_class();
    m.attr("version") = program_version;
    define_model(m);
    define_frame(m);
    define_run(m);
    m.def("quantities", &quantity_names, "Name, unit and components of the quantities that frames have.");
    m.def(
        "analyses",
        [] {
            py::list words;
            for (const AnalysisEntry& entry : analysis_table()) words.append(entry.batch_word);
            return words;
        },
        "Names of the analyses.");
    m.def(
        "sections",
        [] {
            py::list names;
            for (const std::string_view name : section_names()) names.append(py::str(std::string(name)));
            return names;
        },
        "Names of the sections of a model.");
    m.def("_better_kernels",
          [] { return better_blas_kernels() ? std::string(better_blas_kernels()) : std::string(); });
    m.def("_take_blas_buffers", [] {
        const int threads = blas_threads();
        take_blas_buffers();
        set_blas_threads(threads);
    });
    m.def("_blas_threads", &blas_threads);
}
