#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <utility>

#include "model/paths.h"
#include "results/displacement_file.h"
#include "results/result_file.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr const char* held_suffix = ".part";

// One section being written: keyword line, content, terminator, console line.
class Sections {
public:
    Sections(TextOutput& out, int threads, Progress& progress)
        : out_(out), threads_(threads), progress_(progress) {}

    void line(const char* keyword, std::string_view content, const char* shown) {
        out_.write(std::string(keyword) + "\n" + std::string(content) + "%\n");
        if (shown) progress_.print("   %s\n", shown);
    }
    void count(const char* keyword, std::int64_t value, const char* shown) {
        line(keyword, std::to_string(value) + "\n", shown);
    }
    // `head` is a line between the keyword and the rows, "" for none.
    void rows(const char* keyword, std::string_view head, std::int64_t rows, const char* shown,
              const std::function<void(std::int64_t, std::string&)>& row) {
        out_.write(std::string(keyword) + "\n" + std::string(head));
        out_.write_rows(rows, threads_, row);
        out_.write("%\n");
        progress_.print("   %s\n", shown);
    }

    // The same in parts of `at_once` rows; prepare(first, count) is called before each and may fail.
    void rows_in_parts(const char* keyword, std::int64_t rows, std::int64_t at_once,
                       const std::function<bool(std::int64_t, std::int64_t)>& prepare,
                       const std::function<void(std::int64_t, std::string&)>& row) {
        out_.write(std::string(keyword) + "\n");
        for (std::int64_t first = 0; first < rows; first += at_once) {
            const std::int64_t count = std::min(at_once, rows - first);
            if (!prepare(first, count)) return out_.fail("the frames on disk cannot be read");
            out_.write_rows(count, threads_,
                            [&](std::int64_t r, std::string& text) { row(first + r, text); });
        }
        out_.write("%\n");
        progress_.print("   %s\n", keyword);
    }

private:
    TextOutput& out_;
    int threads_;
    Progress& progress_;
};

// A table of the model: one line per record, appended by row(record, index, text).
template <typename Record, typename Row>
void write_records(const char* keyword, std::string_view head, const std::vector<Record>& records,
                   const char* shown, Sections& out, Row row) {
    out.rows(keyword, head, records.size(), shown,
             [&](std::int64_t k, std::string& text) { row(records[k], k, text); });
}

std::string count_line(std::int64_t count) {
    return std::to_string(count) + "\n";
}

enum class Values { mode_vec, node_stress };

// The frames of a file: those of the run, null for columns that it does not have. What lies on disk is read
// for some rows at a time.
class Columns {
public:
    Columns(const Run& run, std::int32_t columns) {
        const Results& results = run.results;
        for (std::int32_t k = 0; k < columns; ++k)
            frames_.push_back(k < run.mode_num() ? results[k].get() : nullptr);
        const bool no_values = !results.empty() && results.front()->mode_vec.empty() && !run.stored;
        dofs_ = no_values ? 0 : run.mesh.dof_num();
        store_ = run.stored.get();
    }
    // One column of nothing.
    static Columns without_values() { return {std::vector<const Frame*>(1), 0}; }
    std::int64_t dofs() const { return dofs_; }
    std::int64_t count() const { return frames_.size(); }

    // Appends a line per frame.
    void append_frequencies(std::string& text) const {
        for (const Frame* frame : frames_) FormatLine(text, "%e\n") << (frame ? frame->n_freq : 0.0);
    }

    static int groups_of(Values values) { return values == Values::mode_vec ? 1 : stress_groups; }
    // Rows whose values on disk fit a buffer.
    std::int64_t rows_at_once(Values values) const {
        constexpr std::int64_t buffer_values = std::int64_t{1} << 22, least = 256;
        return store_
                   ? std::max(buffer_values / (groups_of(values) * std::max<std::int64_t>(count(), 1)), least)
                   : std::max<std::int64_t>(dofs_, 1);
    }
    // Reads the values of rows first … first + rows - 1 that lie on disk.
    bool load(Values values, std::int64_t first, std::int64_t rows) {
        if (!store_) return true;
        const std::int64_t groups = groups_of(values), skipped = values == Values::mode_vec ? 0 : dofs_;
        first_ = first;
        rows_ = rows;
        buffer_.resize(frames_.size() * groups * rows);
        double* to = buffer_.data();
        for (std::size_t k = 0; k < frames_.size(); ++k)
            for (std::int64_t group = 0; group < groups; ++group, to += rows)
                if (on_disk(k) && !store_->read(k, skipped + group * dofs_ + first, {to, to + rows}))
                    return false;
        return true;
    }

    // Appends one line with the row's values of each frame.
    void append_line(std::string& text, Values values, std::int64_t row) const {
        const int groups = groups_of(values);
        for (std::size_t k = 0; k < frames_.size(); ++k)
            for (int group = 0; group < groups; ++group) {
                append_e(text, value(k, values, group, row));
                text += ' ';
            }
        text.back() = '\n';
    }

private:
    Columns(std::vector<const Frame*> frames, std::int64_t dofs) : frames_(std::move(frames)), dofs_(dofs) {}
    bool on_disk(std::size_t k) const { return store_ && frames_[k] && frames_[k]->mode_vec.empty(); }
    double value(std::size_t k, Values values, int group, std::int64_t row) const {
        const Frame* frame = frames_[k];
        if (!frame) return 0;
        if (on_disk(k)) return buffer_[(k * groups_of(values) + group) * rows_ + (row - first_)];
        return values == Values::mode_vec ? frame->mode_vec[row] : frame->node_stress[group * dofs_ + row];
    }
    std::vector<const Frame*> frames_;
    std::int64_t dofs_ = 0;
    const FrameStore* store_ = nullptr;
    std::vector<double> buffer_;  // frame × group × row
    std::int64_t first_ = 0, rows_ = 0;
};

void write_mesh(const Mesh& mesh, Sections& out) {
    out.rows("Node", count_line(mesh.node_num()), mesh.node_num(), "Node",
             [&](std::int64_t n, std::string& text) {
                 const double* x = mesh.node(n);
                 FormatLine(text, "%e %e %e\n") << x[0] << x[1] << x[2];
             });
    out.count("Element_type", static_cast<std::int32_t>(mesh.element_type), nullptr);
    out.rows("Element", count_line(mesh.element_num()), mesh.element_num(), "Element",
             [&](std::int64_t e, std::string& text) {
                 for (const std::int32_t node : mesh.element(e)) {
                     append_d(text, node);
                     text += ' ';
                 }
                 text.back() = '\n';
             });
}

void write_values(const char* keyword, Values values, Columns& columns, Sections& out) {
    out.rows_in_parts(
        keyword, columns.dofs(), columns.rows_at_once(values),
        [&](std::int64_t first, std::int64_t rows) { return columns.load(values, first, rows); },
        [&](std::int64_t row, std::string& text) { columns.append_line(text, values, row); });
}

void write_vectors(Columns& columns, Sections& out) {
    write_values("mode_vec", Values::mode_vec, columns, out);
}

void write_node_stress(Columns& columns, Sections& out) {
    write_values("node_stress", Values::node_stress, columns, out);
}

void write_held_results(Columns& columns, Sections& out) {
    out.count("mode_num", columns.count(), "mode_num");
    std::string n_freq;
    columns.append_frequencies(n_freq);
    out.line("n_freq", n_freq, "n_freq");
    write_vectors(columns, out);
    write_node_stress(columns, out);
}

void write_parts(const char* count_keyword, const char* shown, const std::vector<Part>& parts,
                 Sections& out) {
    out.count(count_keyword, parts.size(), count_keyword);
    write_records("part_info", "", parts, shown, out, [](const Part& p, std::int64_t, std::string& text) {
        FormatLine(text,
                   "%d  %s  %s  %e %e %e  %s  %d  %s  %d  %e %e %e %e %e %e  %d %d %d %d %d %d "
                   " %e %e %e  %e %e %e  %d\n")
            << p.id << p.name << p.color_name << p.color << p.material_name << p.material_id << p.type_name
            << p.type << p.size << p.div << p.origin << p.euler_angles << p.active;
    });
}

void write_supports(const Model& model, Sections& out) {
    const auto& supports = model.boundary_conditions;
    out.count("bc_num", supports.size(), "bc_num");
    write_records("bc_info", "", supports, "B_COND", out,
                  [](const BoundaryCondition& b, std::int64_t, std::string& text) {
                      FormatLine(text, "%d  %s  %s  %s  %d %d  %e %e %e %e %e %e\n")
                          << b.id << b.name << b.selection_word << b.axis_word << b.kind << b.axis << b.box;
                  });
}

void write_forces(const Model& model, const Run& run, Sections& out) {
    out.count("force_num", model.forces.size(), "force_num");
    write_records("force_info", "", model.forces, "A_FORCE", out,
                  [&](const AppliedForce& f, std::int64_t k, std::string& text) {
                      FormatLine(text, "%d  %s  %s %d  %s %d  %e  %e %e %e  %e %e %e %e %e %e  %d\n")
                          << f.id << f.name << f.kind_word << f.kind << f.axis_word << f.axis << f.value
                          << f.point << f.box << run.force_node[k];
                  });
}

void write_rigid(const Model& model, Sections& out) {
    const auto& elements = model.rigid_elements;
    write_records("rigid_element_info", count_line(elements.size()), elements, "R_ELEMENT", out,
                  [](const RigidElement& r, std::int64_t, std::string& text) {
                      FormatLine(text, "%d  %s  %s %d  %e %e %e  %e %e %e %e %e %e\n")
                          << r.id << r.name << r.selection_word << r.kind << r.reference << r.region;
                  });
    const auto& forces = model.rigid_forces;
    write_records("rigid_force_info", count_line(forces.size()), forces, "R_FORCE", out,
                  [](const RigidForce& f, std::int64_t, std::string& text) {
                      FormatLine(text, "%d  %s  %s  %s  %d  %e\n")
                          << f.id << f.name << f.element_name << f.direction_word << f.direction << f.value;
                  });
}

void write_ana_type(const Run& run, Sections& out) {
    out.count("ana_type", static_cast<std::int32_t>(run.ana_type), "ana_type");
}

void write_extent(const Mesh& mesh, Sections& out) {
    out.rows("size_info", "", 2, "size_info", [&](std::int64_t k, std::string& text) {
        const double* corner = mesh.size_info.data() + 3 * k;
        FormatLine(text, "%e %e %e\n") << corner[0] << corner[1] << corner[2];
    });
}

void write_closing_sections(const Run& run, Sections& out) {
    const Mesh& mesh = run.mesh;
    out.rows("node_n_dir", "", mesh.node_n_dir.size() / 3, "node_n_dir",
             [&](std::int64_t n, std::string& text) {
                 const double* d = mesh.node_n_dir.data() + 3 * n;
                 FormatLine(text, "%e  %e  %e\n") << d[0] << d[1] << d[2];
             });
    out.rows("p_ele_part_id", "", mesh.p_ele_part_id.size(), "p_ele_part_id",
             [&](std::int64_t e, std::string& text) { FormatLine(text, "%d\n") << mesh.p_ele_part_id[e]; });
    write_ana_type(run, out);
    write_extent(mesh, out);
}

// The frame of both files: console lines, version, the sections of `content`, and the target's name once
// the text is whole.
bool write_file(const Model& model, const Run& run, const std::string& target, Publish publish,
                const std::function<void(Sections&)>& content, Progress& progress) {
    const std::string base = paths::base_name(model.model_file_name);
    progress.print("index = %d\n", paths::last_separator(model.model_file_name));
    progress.print("file_name = %s\n", base.c_str());
    progress.print("n_=%zu\n", base.size());
    progress.print("resfile_name:%s\n", target.c_str());
    const std::string path = paths::to_platform(target, run.origin.options.log_folder),
                      held = path + held_suffix;
    const auto refuse = [&](const std::string& reason) {
        progress.error("%s cannot be written: %s", path.c_str(), reason.c_str());
        return false;
    };
    TextOutput file(held, progress);
    if (!file.is_open()) {
        progress.print("FILE OPEN ERROR\n");
        return refuse(file.error());
    }
    progress.print("RESULT FILE OPEN !!\n");
    Sections out(file, run.origin.settings.threads(), progress);
    file.write(run.origin.ver_name + "\n%\n");
    progress.print("   ver_name\n");
    content(out);
    const bool whole = file.finish();
    progress.print(whole ? "FILE CLOSE !!\n" : "FILE CLOSE ERROR\n");
    if (whole && (publish == Publish::hold || std::rename(held.c_str(), path.c_str()) == 0)) return true;
    const std::string reason = whole ? std::strerror(errno) : file.error();
    std::remove(held.c_str());
    return refuse(reason);
}

// `head`, the model file's name without its folder and its last ending, ".csv".
std::string csv_name(const char* head, std::string_view model_file_name) {
    const std::string base = paths::base_name(model_file_name);
    return head + base.substr(0, base.rfind('.')) + ".csv";
}

}  // namespace

std::string result_file_name(std::string_view model_file_name) {
    return "log\\result_" + paths::base_name(model_file_name);
}

std::string displacement_file_name(std::string_view model_file_name) {
    return "log\\disp_" + paths::base_name(model_file_name);
}

std::string history_file_name(std::string_view model_file_name) {
    return csv_name("log\\history_", model_file_name);
}

std::string nonlinear_history_file_name(std::string_view model_file_name) {
    return csv_name("log\\history_nonlinear_", model_file_name);
}

namespace {

void write_result_sections(const Model& model, const Run& run, Columns columns, Sections& out) {
    write_mesh(run.mesh, out);
    write_held_results(columns, out);
    write_parts("part_num_o", "PART_O", model.parts_o, out);
    write_parts("part_num", "PART", model.parts, out);
    write_supports(model, out);
    write_forces(model, run, out);
    write_rigid(model, out);
    write_closing_sections(run, out);
}

}  // namespace

std::string definition_text(const Model& model, const Run& run) {
    char* text = nullptr;
    std::size_t size = 0;
    SilentProgress silent;
    TextOutput file(paths::File(::open_memstream(&text, &size)), silent);
    Sections out(file, run.origin.settings.threads(), silent);
    file.write(run.origin.ver_name + "\n%\n");
    write_result_sections(model, run, Columns::without_values(), out);
    const bool whole = file.finish();
    const std::unique_ptr<char, decltype(&std::free)> kept(text, &std::free);
    if (!whole || !text) throw std::bad_alloc();
    return {text, size};
}

bool write_history(std::string_view target, std::string_view log_folder, const HistoryRows& history,
                   Progress& progress) {
    std::string text;
    const std::size_t columns = history.columns.size();
    for (std::size_t c = 0; c < columns; ++c) text += (c ? "," : "") + history.columns[c];
    text += '\n';
    const auto fill = [&](TextOutput& file) {
        file.write(text);
        file.write_rows(static_cast<std::int64_t>(history.rows()), 1, [&](std::int64_t r, std::string& line) {
            for (std::size_t c = 0; c < columns; ++c) {
                if (c) line += ',';
                append_e(line, history.values[r * columns + c]);
            }
            line += '\n';
        });
    };
    const std::string trouble = write_whole(target, log_folder, fill, progress);
    if (!trouble.empty()) progress.error("%s", trouble.c_str());
    return trouble.empty();
}

bool write_results(const Model& model, const Run& run, std::int32_t columns, Publish publish,
                   Progress& progress) {
    const auto content = [&](Sections& out) {
        write_result_sections(model, run, Columns(run, columns), out);
    };
    return write_file(model, run, result_file_name(model.model_file_name), publish, content, progress);
}

bool write_displacements(const Model& model, const Run& run, Progress& progress) {
    Columns columns(run, std::max(run.mode_num(), 1));
    const auto content = [&](Sections& out) {
        write_mesh(run.mesh, out);
        out.count("mode_num", columns.count(), "mode_num");
        write_vectors(columns, out);
        write_ana_type(run, out);
        write_node_stress(columns, out);
        write_extent(run.mesh, out);
    };
    return write_file(model, run, displacement_file_name(model.model_file_name), Publish::now, content,
                      progress);
}

void release_held_results(std::string_view model_file_name, std::string_view log_folder) {
    const std::string target = paths::to_platform(result_file_name(model_file_name), log_folder),
                      held = target + held_suffix;
    std::error_code ignored;
    if (std::filesystem::exists(target, ignored))
        std::filesystem::remove(held, ignored);
    else
        std::filesystem::rename(held, target, ignored);
}

}  // namespace kestralum
