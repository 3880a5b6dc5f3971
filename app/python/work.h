// Work of the program on behalf of a Python caller: in a thread of its own, so that the interpreter goes on,
// and Ctrl-C and what the program says reach the caller.
#pragma once

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <functional>
#include <string>
#include <vector>

#include "model/progress.h"

namespace kestralum::python {

namespace py = pybind11;

// kestralum.Error with these lines; the first is its text. `run`: what such a run has reached, or None.
[[noreturn]] void raise_error(const std::vector<std::string>& lines, const py::object& run = py::none());
[[noreturn]] void raise_error(const std::string& line);
// The class, to be made once while the module is initialised.
py::object make_error_class();

// Lines of a piece of work: what went wrong and what is to be noted.
struct Said {
    std::vector<std::string> errors, notices;
};

// Runs `task` in another thread without the interpreter's lock and waits for it; call with the lock. Pieces
// of text go to `console`, a callable, or nowhere where it is None. A signal whose handler raises (Ctrl-C),
// or a console that raises, cancels the task; when the task has ended the exception goes on. What the task
// throws becomes kestralum.Error. While tasks run OpenBLAS has one thread of its own, as their loops need;
// then its number is as before.
Said work(const py::object& console, const std::function<void(Progress& progress)>& task);

}  // namespace kestralum::python
