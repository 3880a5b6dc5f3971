#include "app/python/work.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "solver/panels.h"

namespace kestralum::python {

namespace {

constexpr std::chrono::milliseconds between_looks(50);  // at signals

std::string one_line(std::string_view text) {
    return std::string(text.substr(0, text.find('\n')));
}

// Keeps what is said until the caller's thread takes it.
class CallerProgress : public Progress {
public:
    explicit CallerProgress(bool lines) : Progress(lines) {}
    std::vector<std::string> take_pieces() {
        const std::lock_guard lock(lock_);
        return std::exchange(pieces_, {});
    }
    Said said() const {
        const std::lock_guard lock(lock_);
        return said_;
    }

protected:
    void take(Kind kind, std::string_view text) override {
        const std::lock_guard lock(lock_);
        if (kind == Kind::error) said_.errors.push_back(one_line(text));
        if (kind == Kind::notice) said_.notices.push_back(one_line(text));
        if (lines_wanted()) pieces_.emplace_back(text);
    }

private:
    mutable std::mutex lock_;
    std::vector<std::string> pieces_;
    Said said_;
};

// OpenBLAS's number of threads is one for the whole process: it is kept from before the first of the runs
// that go on side by side until the last has ended.
class SerialBlas {
public:
    SerialBlas() {
        const std::lock_guard lock(mutex());
        if (users()++ == 0) former() = blas_threads();
        use_serial_blas();
    }
    ~SerialBlas() {
        const std::lock_guard lock(mutex());
        if (--users() == 0) set_blas_threads(former());
    }
    SerialBlas(const SerialBlas&) = delete;
    SerialBlas& operator=(const SerialBlas&) = delete;

private:
    static std::mutex& mutex() {
        static std::mutex one;
        return one;
    }
    static int& users() {
        static int count = 0;
        return count;
    }
    static int& former() {
        static int threads = 1;
        return threads;
    }
};

// What the task threw, as a line.
std::string trouble_of(const std::exception_ptr& trouble) {
    try {
        std::rethrow_exception(trouble);
    } catch (const std::bad_alloc&) {
        return "not enough memory for this model";
    } catch (const std::exception& e) {
        return e.what();
    }
}

class Task {
public:
    Task(const py::object& console, const std::function<void(Progress& progress)>& task)
        : console_(console), task_(task), progress_(!console.is_none()) {}

    Said run() {
        {
            const py::gil_scoped_release others_go_on;
            std::thread thread([this] { work(); });
            std::unique_lock lock(lock_);
            while (!ended_.wait_for(lock, between_looks, [this] { return done_; })) {
                lock.unlock();
                look();
                lock.lock();
            }
            lock.unlock();
            thread.join();
        }
        deliver();
        if (!raised_ && PyErr_CheckSignals() != 0) raised_.emplace();
        if (raised_) throw py::error_already_set(std::move(*raised_));
        if (trouble_) raise_error(trouble_of(trouble_));
        return progress_.said();
    }

private:
    void work() {
        try {
            const SerialBlas serial;
            task_(progress_);
        } catch (...) {
            trouble_ = std::current_exception();
        }
        const std::lock_guard lock(lock_);
        done_ = true;
        ended_.notify_one();
    }

    // Signals and what was said meanwhile.
    void look() {
        const py::gil_scoped_acquire interpreter;
        deliver();
        if (!raised_ && PyErr_CheckSignals() != 0) keep_raised();
    }

    void deliver() {
        for (const std::string& piece : progress_.take_pieces()) {
            if (raised_) return;
            try {
                console_(py::str(py::bytes(piece).attr("decode")("utf-8", "replace")));
            } catch (py::error_already_set& e) {
                raised_.emplace(e);
                progress_.cancel();
            }
        }
    }
    void keep_raised() {
        raised_.emplace();  // takes the exception that is set
        progress_.cancel();
    }

    const py::object& console_;
    const std::function<void(Progress& progress)>& task_;
    CallerProgress progress_;
    std::mutex lock_;
    std::condition_variable ended_;
    bool done_ = false;
    std::exception_ptr trouble_;
    std::optional<py::error_already_set> raised_;
};

// Of the module; None before it is made. Python keeps it as long as the module.
py::handle& error_class() {
    static py::handle one;
    return one;
}

}  // namespace

py::object make_error_class() {
    const auto made = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "kestralum.Error",
        "Why a model cannot be read, built or analysed, in the program's own words.\n\n"
        "str(e)    the first line: file, token and what was expected, or why the run ended\n"
        "e.errors  all lines\n"
        "e.run     the Run of an analysis that ended early with results (nonlinear, explicit), else None",
        nullptr, nullptr));
    made.attr("errors") = py::list();
    made.attr("run") = py::none();
    error_class() = made.inc_ref();
    return made;
}

void raise_error(const std::vector<std::string>& lines, const py::object& run) {
    const py::object error = error_class()(py::str(lines.empty() ? "the run ended early" : lines.front()));
    error.attr("errors") = py::cast(lines);
    error.attr("run") = run;
    PyErr_SetObject(error_class().ptr(), error.ptr());
    throw py::error_already_set();
}

void raise_error(const std::string& line) {
    raise_error(std::vector{line});
}

Said work(const py::object& console, const std::function<void(Progress& progress)>& task) {
    return Task(console, task).run();
}

}  // namespace kestralum::python
