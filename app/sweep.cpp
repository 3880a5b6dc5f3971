#include "app/sweep.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "app/run_process.h"
#include "app/sweep_table.h"
#include "input/analysis_info_reader.h"
#include "input/file_parameters.h"
#include "model/paths.h"

namespace kestralum {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t small_model = 20000;  // equations
constexpr const char* marker = ".sweep";     // stands in every folder that a sweep made
constexpr const char* no_memory = "not enough memory for this model";

// Hands out threads in the order in which they are asked for.
class Threads {
public:
    explicit Threads(int all) : free_(all) {}

    // Waits until `wanted` are free; false after a cancel.
    bool take(int wanted, const Progress& progress) {
        std::unique_lock lock(lock_);
        const std::int64_t ticket = tickets_++;
        while (ticket != next_ || free_ < wanted) {
            if (progress.cancelled()) return false;
            changed_.wait_for(lock, 20ms);
        }
        ++next_;
        free_ -= wanted;
        changed_.notify_all();
        return true;
    }
    void give_back(int count) {
        const std::lock_guard lock(lock_);
        free_ += count;
        changed_.notify_all();
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int free_;
    std::int64_t tickets_ = 0, next_ = 0;
};

std::string first_line(const std::vector<std::string>& errors, const char* otherwise) {
    const std::string text = errors.empty() ? otherwise : errors.front();
    return text.substr(0, text.find('\n'));
}

// Folders that a sweep left behind.
void remove_left_folders(const std::string& folder) {
    std::error_code ignored;
    std::vector<fs::path> left;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored))
        if (entry.is_directory(ignored) && fs::exists(entry.path() / marker, ignored))
            left.push_back(entry.path());
    for (const fs::path& path : left) fs::remove_all(path, ignored);
}

// A folder of one run's own, gone with its files when the run ends.
class RunFolder {
public:
    explicit RunFolder(std::string name) : name_(std::move(name)) {
        std::error_code reason;
        made_ = fs::create_directory(name_, reason);
        if (!made_) error = name_ + (reason ? " cannot be made: " + reason.message() : " is in the way");
        const paths::File file = made_ ? paths::open(name_ + "/" + marker, "wb") : nullptr;
        if (made_ && !file) error = name_ + " cannot be written";
    }
    ~RunFolder() {
        std::error_code ignored;
        if (made_) fs::remove_all(name_, ignored);
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const std::string& name() const { return name_; }
    std::string error;  // why it is not there

private:
    const std::string name_;
    bool made_ = false;
};

class Sweep {
public:
    Sweep(const SweepPlan& plan, std::string folder, const OnSweepRow& on_row, Progress& progress)
        : plan_(plan),
          folder_(std::move(folder)),
          on_row_(on_row),
          progress_(progress),
          threads_(plan.settings.threads()),
          rows_(plan.runs()) {}

    std::vector<SweepRow> work() {
        progress_.set_stage("sweep");
        progress_.set_count(0, std::ssize(rows_));
        const std::size_t team = std::min<std::size_t>(plan_.settings.threads(), rows_.size());
        std::vector<std::thread> others;
        try {
            for (std::size_t k = 1; k < team; ++k) others.emplace_back([this] { take_runs(); });
        } catch (const std::exception&) {  // fewer threads then
        }
        take_runs();
        for (std::thread& other : others) other.join();
        if (trouble_) std::rethrow_exception(trouble_);
        std::vector<SweepRow> done;
        for (std::optional<SweepRow>& row : rows_)
            if (row) done.push_back(std::move(*row));
        return done;
    }

private:
    // Any thread; what goes wrong beside the runs ends the sweep.
    void take_runs() {
        try {
            while (take_next_run()) {
            }
        } catch (...) {
            const std::lock_guard lock(lock_);
            trouble_ = std::current_exception();
            next_ = rows_.size();
        }
    }

    // False where none is left.
    bool take_next_run() {
        std::size_t index;
        {
            const std::lock_guard lock(lock_);
            if (next_ == rows_.size() || progress_.cancelled()) return false;
            index = next_++;
        }
        std::optional<SweepRow> row;
        try {
            row = run(index);
        } catch (const std::bad_alloc&) {
            row = failed_row(index, no_memory);
        } catch (const std::exception& e) {
            row = failed_row(index, e.what());
        }
        if (row) take_row(std::move(*row));
        return true;
    }

    SweepRow row_of(std::size_t index) const {
        SweepRow row;
        row.index = index;
        row.parameters = plan_.values(index);
        row.quantities.resize(sweep_columns().size());
        return row;
    }
    SweepRow failed_row(std::size_t index, const std::string& why) const {
        SweepRow row = row_of(index);
        row.status = RunStatus::failed;
        row.error = why;
        return row;
    }

    // Nothing after a cancel.
    std::optional<SweepRow> run(std::size_t index) {
        Share share(*this);
        if (!share.take(large_ ? plan_.settings.threads() : 1)) return std::nullopt;
        SilentProgress silent(progress_);
        SweepRow row = row_of(index);
        Model model = plan_.base;
        double seconds = 0;  // without waiting for the others
        if (!read(row, model, seconds, silent)) return finished(std::move(row));
        large_ = model.mesh.dof_num() >= small_model;
        if (!share.take(large_ ? plan_.settings.threads() : 1)) return std::nullopt;
        const RunFolder folder(folder_ + "/" + folder_name(row));
        if (!folder.error.empty()) return failed_row(index, folder.error);
        RunOptions options = plan_.options;
        options.log_folder = folder.name();
        Settings settings = plan_.settings;
        settings.n_threads = share.count();
        const Clock::time_point start = Clock::now();
        const Run done = plan_.analysis->analyse(model, settings, options, silent);
        row.status = done.report.status;
        if (row.status != RunStatus::done)
            row.error = first_line(done.report.remarks.errors, "the run ended early");
        if (row.status == RunStatus::done || done.report.has_results())
            row.quantities = sweep_quantities(model, done, seconds + seconds_since(start));
        return finished(std::move(row));
    }

    static double seconds_since(Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    std::optional<SweepRow> finished(SweepRow row) const {
        if (row.status != RunStatus::done && progress_.cancelled()) return std::nullopt;
        return row;
    }

    // One model at a time: runs that import the same part share its kept mesh.
    bool read(SweepRow& row, Model& model, double& seconds, Progress& silent) {
        const std::lock_guard lock(reading_);
        const Clock::time_point start = Clock::now();
        std::vector<ParameterOverride> overrides = plan_.overrides;
        for (std::size_t a = 0; a < plan_.axes.size(); ++a)
            overrides.push_back({plan_.axes[a].name, sweep_number(row.parameters[a])});
        model.mesh = {};
        const ModelReadReport report = plan_.model_text
                                           ? read_input_text(model, *plan_.model_text, overrides, silent)
                                           : read_input_file(model, overrides, silent);
        row.status = RunStatus::bad_input;
        row.error = first_line(report.remarks.errors, "the model cannot be read");
        if (!report.ok) return false;
        const AnalysisInfoReport control = read_control(model, silent);
        row.error = first_line(control.remarks.errors, "the control file cannot be read");
        if (control.status == AnalysisInfoStatus::wrong) return false;
        row.status = RunStatus::done;
        row.error.clear();
        seconds = seconds_since(start);
        return true;
    }

    AnalysisInfoReport read_control(Model& model, Progress& silent) const {
        if (plan_.control_text) return read_analysis_info_text(model, *plan_.control_text, silent);
        return plan_.model_text ? AnalysisInfoReport{} : read_analysis_info_file(model, silent);
    }

    std::string folder_name(const SweepRow& row) const {
        std::string name;
        for (std::size_t a = 0; a < plan_.axes.size(); ++a)
            name += (a > 0 ? "_" : "") + plan_.axes[a].name + "_" + sweep_number(row.parameters[a]);
        return name;
    }

    // Shows the rows up to the first that is not there yet.
    void take_row(SweepRow row) {
        const std::lock_guard lock(lock_);
        const std::size_t index = row.index;
        rows_[index] = std::move(row);
        progress_.set_count(++done_, std::ssize(rows_));
        for (; shown_ < rows_.size() && rows_[shown_]; ++shown_)
            if (on_row_) on_row_(*rows_[shown_]);
    }

    // The threads that one run holds.
    class Share {
    public:
        explicit Share(Sweep& sweep) : sweep_(sweep) {}
        ~Share() { sweep_.threads_.give_back(count_); }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;

        bool take(int wanted) {
            if (wanted == count_) return true;
            sweep_.threads_.give_back(std::exchange(count_, 0));
            if (!sweep_.threads_.take(wanted, sweep_.progress_)) return false;
            count_ = wanted;
            return true;
        }
        int count() const { return count_; }

    private:
        Sweep& sweep_;
        int count_ = 0;
    };

    const SweepPlan& plan_;
    const std::string folder_;  // of all runs, as the platform opens it
    const OnSweepRow& on_row_;
    Progress& progress_;
    Threads threads_;
    std::atomic<bool> large_ = false;  // the model read last
    std::mutex reading_;
    std::mutex lock_;  // of what follows
    std::vector<std::optional<SweepRow>> rows_;
    std::exception_ptr trouble_;
    std::size_t next_ = 0, shown_ = 0;
    std::int64_t done_ = 0;
};

// Why the file has not what is to be swept.
std::string unknown_parameter(const SweepPlan& plan, const Progress& progress) {
    std::string error;
    const std::string& file = plan.base.model_file_name;
    const std::vector<FileParameter> defined = plan.model_text ? text_parameters(*plan.model_text, progress)
                                                               : file_parameters(file, error, progress);
    if (!error.empty()) return error;
    for (const SweepAxis& axis : plan.axes)
        if (std::ranges::find(defined, axis.name, &FileParameter::name) == defined.end())
            return "--sweep " + axis.name + ": " + file + " defines no such parameter";
    return {};
}

}  // namespace

std::size_t SweepPlan::runs() const {
    std::size_t count = 1;
    for (const SweepAxis& axis : axes) count *= axis.values.size();
    return count;
}

std::vector<double> SweepPlan::values(std::size_t index) const {
    std::vector<double> values(axes.size());
    for (std::size_t a = axes.size(); a-- > 0; index /= axes[a].values.size())
        values[a] = axes[a].values[index % axes[a].values.size()];
    return values;
}

std::string SweepPlan::text(std::size_t index) const {
    std::string text;
    const std::vector<double> of_run = values(index);
    for (std::size_t a = 0; a < axes.size(); ++a)
        text += (a > 0 ? " " : "") + axes[a].name + "=" + sweep_number(of_run[a]);
    return text;
}

SweepOutcome run_sweep(const SweepPlan& plan, const OnSweepRow& on_row, Progress& progress) {
    SweepOutcome outcome{SweepStatus::bad_input, {}};
    std::string refused = refused_axes(plan.axes, plan.overrides);
    if (refused.empty()) refused = unknown_parameter(plan, progress);
    if (progress.cancelled()) return {SweepStatus::cancelled, {}};
    if (!refused.empty()) {
        progress.error("%s", refused.c_str());
        return outcome;
    }
    const std::string folder = paths::to_platform("log\\sweep", plan.options.log_folder);
    LogLock lock;
    if (!lock.take(folder, progress)) return outcome;
    remove_left_folders(folder);
    outcome.rows = Sweep(plan, folder, on_row, progress).work();
    const auto is_done = [](const SweepRow& row) { return row.status == RunStatus::done; };
    outcome.status = outcome.rows.size() < plan.runs()            ? SweepStatus::cancelled
                     : std::ranges::all_of(outcome.rows, is_done) ? SweepStatus::all_done
                                                                  : SweepStatus::some_failed;
    return outcome;
}

}  // namespace kestralum
