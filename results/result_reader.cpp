#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <limits>
#include <span>

#include "model/format.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "results/frames_file.h"
#include "results/match_mesh.h"
#include "results/pieces_reader.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

// As much of a word as a message shows.
std::string shortened(std::string_view word) {
    return std::string(word.substr(0, 60));
}

// Walks the sections of a file. The first thing that cannot be right stops the walk and is kept as the
// reason.
class ResultReader {
public:
    ResultReader(std::string_view file_name, std::string_view text, Progress& progress)
        : file_name_(file_name), tokens_(text), progress_(progress) {}

    bool read_results(StoredRun& stored) {
        Model& model = stored.model;
        Run& run = stored.run;
        if (!read_version(run)) return false;
        progress_.print("%s\n", run.origin.ver_name.c_str());
        model.source = ModelSource::result_file;
        read_mesh(run.mesh);
        read_held_results(run);
        read_parts("part_num_o", model.parts_o);
        read_parts("part_num", model.parts);
        read_supports(model);
        read_forces(model, run);
        read_rigid_elements(model);
        read_rigid_forces(model);
        read_closing(model, run);
        if (!ok() || !check(model, run)) return false;
        model.mesh = run.mesh;
        if (run.ana_type == AnalysisType::linear_static)
            while (frames_.size() > 1 && is_zero(*frames_.back())) frames_.pop_back();
        take_frames(run, 0);
        return true;
    }
    // A displacement file: the mesh, the vectors and what they are drawn from; no definition tables.
    bool read_displacements(StoredRun& stored) {
        Run& run = stored.run;
        if (!read_version(run)) return false;
        stored.model.source = ModelSource::displacement_file;
        read_mesh(run.mesh);
        const std::int32_t modes = read_mode_num();
        if (ok()) progress_.print("mode_num:%d\n", modes);
        read_vectors(run.mesh, std::vector<double>(modes, 0.0), false);
        read_ana_type(run);
        if (ok()) progress_.print("ana_type:%d\n", static_cast<std::int32_t>(run.ana_type));
        read_node_stress(false);
        read_extent(run.mesh);
        const auto& box = run.mesh.size_info;
        if (ok())
            for (std::size_t k = 0; k < 6; k += 3)
                progress_.print("%f,%f,%f\n", box[k], box[k + 1], box[k + 2]);
        return ok() && check_end(run);
    }
    // Hands the frames over; those of a file without times are `interval` apart up to `end`, s.
    void take_frames(Run& run, double interval, double end = std::numeric_limits<double>::infinity()) {
        for (int k = 0; interval > 0 && k < std::ssize(frames_); ++k)
            frames_[k]->n_freq = std::min(k * interval, end);
        run.results.assign(frames_.begin(), frames_.end());
    }
    const std::string& error() const { return error_; }

private:
    bool ok() const { return error_.empty(); }

    bool fail(const char* expected) {
        if (error_.empty())
            error_ = file_name_ + ": token " + std::to_string(tokens_.token_number()) + " '" +
                     shortened(tokens_.last()) + "': expected " + expected;
        return false;
    }

    // The terminator of the section before and this section's keyword. A keyword that is another
    // section's leaves this section's table empty, and the walk goes on with that keyword.
    bool section(const char* keyword, bool echo = false) {
        if (!ok()) return false;
        if (pending_.empty()) {
            tokens_.next();
            pending_ = tokens_.next();
            if (pending_.empty()) return fail(formatted("the section %s", keyword).c_str());
        }
        if (echo) progress_.print("str=%s\n", std::string(pending_).c_str());
        if (pending_ != keyword) {
            progress_.notice("%s: section %s expected, '%s' found", file_name_.c_str(), keyword,
                             shortened(pending_).c_str());
            return false;
        }
        pending_ = {};
        return true;
    }

    // A run of hundreds of megabytes stops soon after it is asked to.
    bool goes_on() {
        constexpr std::int64_t between = 1 << 14;  // tokens
        if (++values_ % between == 0 && ok() && progress_.cancelled()) error_ = "stopped on request";
        return ok();
    }
    std::int32_t integer() {
        if (!goes_on()) return 0;
        const auto value = tokens_.next_int32();
        if (!value) fail("an integer");
        return value.value_or(0);
    }
    double real() {
        if (!goes_on()) return 0;
        const auto value = tokens_.next_double();
        if (!value) fail("a number");
        return value.value_or(0);
    }
    // A number that has a meaning: an enum's value from first to last.
    template <typename Enum>
    Enum number(Enum first, Enum last, const char* expected) {
        const auto value = static_cast<Enum>(integer());
        if (ok() && (value < first || value > last)) fail(expected);
        return ok() ? value : first;
    }
    std::int32_t axis() {
        const std::int32_t value = integer();
        if (ok() && (value < 0 || value > 2)) fail("an axis 0, 1 or 2");
        return value;
    }
    // A place: the view cannot draw what is nowhere.
    void finite_reals(std::span<double> values) {
        for (double& v : values) {
            v = real();
            if (ok() && !std::isfinite(v)) fail("a finite number");
        }
    }
    std::string word() {
        if (!ok()) return {};
        const std::string_view token = tokens_.next();
        if (token.empty() || token == "%") fail("a word");
        return truncate_text(token, name_text_width);
    }
    // A count of records that need at least `tokens_each` tokens.
    std::int32_t count(std::int64_t tokens_each) {
        const std::int32_t value = integer();
        if (ok() && (value < 0 || value * tokens_each > tokens_.most_tokens_left()))
            fail("a count that the file can hold");
        return ok() ? value : 0;
    }
    void reals(std::span<double> values) {
        for (double& v : values) v = real();
    }

    bool read_version(Run& run) {
        run.origin.ver_name = std::string(tokens_.next());
        return !run.origin.ver_name.empty() || fail("a version");
    }

    void read_mesh(Mesh& mesh) {
        if (section("Node")) {
            mesh.coordinates.resize(3 * std::int64_t{count(3)});
            progress_.print("%s:%d\n", "Node", mesh.node_num());
            finite_reals(mesh.coordinates);
        }
        if (section("Element_type")) {
            const std::int32_t type = integer();
            if (type == 1 || type == 2)
                mesh.element_type = static_cast<ElementKind>(type);  // others: 8 nodes
        }
        if (section("Element")) {
            const std::int64_t nodes = mesh.node_per_element();
            mesh.connectivity.resize(nodes * count(nodes));
            progress_.print("%s:%d\n", "Element", mesh.element_num());
            for (std::int32_t& c : mesh.connectivity) {
                c = integer();
                if (ok() && (c < 1 || c > mesh.node_num())) fail("a node number of the file");
            }
        }
    }

    std::int32_t read_mode_num() {
        std::int32_t modes = 1;
        if (section("mode_num")) {
            modes = count(1);
            if (ok() && modes < 1) fail("at least one mode");
        }
        return modes;
    }

    // Makes a frame for each frequency and reads the vectors; columns are the frames in order.
    void read_vectors(const Mesh& mesh, const std::vector<double>& n_freq, bool echo_keyword) {
        const bool present = section("mode_vec", echo_keyword);
        dofs_ = mesh.dof_num();
        if (present && tokens_.peek() == "%") dofs_ = 0;  // the start-up model: a node without values
        if (ok() && std::int64_t{dofs_} * std::ssize(n_freq) > tokens_.most_tokens_left())
            fail("vectors that the file can hold");
        if (!ok()) return;
        for (const double value : n_freq) {
            frames_.push_back(std::make_shared<Frame>(dofs_));
            frames_.back()->n_freq = value;
        }
        for (std::int32_t r = 0; present && r < dofs_ && ok(); ++r)
            for (const auto& frame : frames_) frame->mode_vec[r] = real();
    }

    void read_node_stress(bool echo_keyword) {
        if (!section("node_stress", echo_keyword)) return;
        for (std::int32_t r = 0; r < dofs_ && ok(); ++r)
            for (const auto& frame : frames_)
                for (std::int64_t group = 0; group < stress_groups; ++group)
                    frame->node_stress[group * dofs_ + r] = real();
    }

    static bool is_zero(const Frame& frame) {
        const auto zero = [](double value) { return value == 0; };
        return zero(frame.n_freq) && std::all_of(frame.mode_vec.begin(), frame.mode_vec.end(), zero) &&
               std::all_of(frame.node_stress.begin(), frame.node_stress.end(), zero);
    }

    void read_held_results(Run& run) {
        const std::int32_t modes = read_mode_num();
        if (!ok()) return;
        progress_.print("%d\n,", modes);
        std::vector<double> n_freq(modes);
        if (section("n_freq", true))
            for (std::size_t k = 0; k < n_freq.size() && ok(); ++k) {
                n_freq[k] = real();
                progress_.print("%zu,%f\n", k, n_freq[k]);
            }
        read_vectors(run.mesh, n_freq, true);
        read_node_stress(true);
    }

    std::int32_t echo(std::int32_t value) {
        progress_.print(" %d,", value);
        return value;
    }
    double echo(double value) {
        progress_.print(" %.3e,", value);
        return value;
    }
    std::string echo(std::string value) {
        progress_.print(" %s,", value.c_str());
        return value;
    }

    void read_parts(const char* count_keyword, std::vector<Part>& parts) {
        parts.clear();
        if (section(count_keyword)) parts.resize(count(30));
        if (!section("part_info")) return;
        for (Part& p : parts) {
            if (!ok()) return;
            p.id = echo(integer());
            p.name = echo(word());
            p.color_name = echo(word());
            for (double& v : p.color) v = echo(real());
            p.material_name = echo(word());
            p.material_id = echo(integer());
            p.type_name = echo(word());
            p.type = shape();
            for (double& v : p.size) v = echo(real());
            for (std::int32_t& v : p.div) v = echo(integer());
            for (double& v : p.origin) v = echo(real());
            for (double& v : p.euler_angles) v = echo(real());
            p.active = echo(integer());
        }
    }

    Shape shape() {
        const std::int32_t value = echo(integer());
        const bool known =
            (value >= 0 && value <= 18) || value == 1000 || value == 1001 || (value >= 2000 && value <= 2004);
        if (ok() && !known) fail("the number of a shape");
        return ok() ? static_cast<Shape>(value) : Shape::rect;
    }

    void read_supports(Model& model) {
        if (section("bc_num")) model.boundary_conditions.resize(count(12));
        if (!section("bc_info")) return;
        for (BoundaryCondition& b : model.boundary_conditions) {
            b.id = integer();
            b.name = word();
            b.selection_word = word();
            b.axis_word = word();
            b.kind = number(Selection::plane, Selection::volume, "a selection 0, 1 or 2");
            b.axis = axis();
            reals(b.box);
        }
    }

    void read_forces(Model& model, Run& run) {
        if (section("force_num")) model.forces.resize(count(17));
        run.force_node.assign(model.forces.size(), 0);
        if (!section("force_info")) return;
        for (std::size_t k = 0; k < model.forces.size(); ++k) {
            AppliedForce& f = model.forces[k];
            f.id = integer();
            f.name = word();
            f.kind_word = word();
            f.kind = number(ForceKind::node, ForceKind::area, "a kind of force 0 or 1");
            f.axis_word = word();
            f.axis = axis();
            f.value = real();
            reals(f.point);
            reals(f.box);
            const std::int32_t node = integer();
            if (ok() && (node < 0 || node > run.mesh.node_num())) fail("a node number of the file");
            run.force_node[k] = node;
        }
    }

    void read_rigid_elements(Model& model) {
        if (!section("rigid_element_info")) return;
        model.rigid_elements.resize(count(13));
        for (RigidElement& r : model.rigid_elements) {
            r.id = integer();
            r.name = word();
            r.selection_word = word();
            r.kind = number(RigidSelection::area, RigidSelection::round, "a selection 0 or 1");
            reals(r.reference);
            reals(r.region);
        }
    }

    void read_rigid_forces(Model& model) {
        if (!section("rigid_force_info")) return;
        model.rigid_forces.resize(count(6));
        for (RigidForce& f : model.rigid_forces) {
            f.id = integer();
            f.name = word();
            f.element_name = word();
            f.direction_word = word();
            f.direction = number(RigidDirection::x, RigidDirection::normal, "a direction 0 … 6");
            f.value = real();
            const auto& elements = model.rigid_elements;
            for (std::int32_t k = 0; k < std::ssize(elements); ++k)
                if (elements[k].name == f.element_name) f.element = k;
        }
    }

    void read_closing(const Model& model, Run& run) {
        Mesh& mesh = run.mesh;
        mesh.node_n_dir.assign(mesh.coordinates.size(), 0.0);
        if (section("node_n_dir")) reals(mesh.node_n_dir);
        mesh.p_ele_part_id.assign(mesh.element_num(), 0);
        if (section("p_ele_part_id"))
            for (std::int32_t& part : mesh.p_ele_part_id) {
                part = integer();
                if (ok() && (part < 0 || part >= std::ssize(model.parts))) fail("a part of the file");
            }
        read_ana_type(run);
        read_extent(mesh);
    }

    void read_ana_type(Run& run) {
        if (section("ana_type"))
            run.ana_type = number(AnalysisType::eigen, AnalysisType::buckling, "an analysis type 0 … 4");
    }

    void read_extent(Mesh& mesh) {
        update_extent(mesh);
        if (!section("size_info")) return;
        finite_reals(mesh.size_info);
        double longest = 0;
        for (std::size_t c = 0; c < 3; ++c)
            longest = std::max(longest, mesh.size_info[c + 3] - mesh.size_info[c]);
        if (longest > 0) mesh.max_length = longest;
        tokens_.next();
        if (ok() && tokens_.last() != "%") fail("the closing %");
    }

    // What everybody relies on.
    bool check(const Model& model, const Run& run) {
        if (!check_end(run)) return false;
        if (run.mesh.element_num() > 0 && model.parts.empty())
            error_ = file_name_ + ": elements, but no part that they belong to";
        return ok();
    }

    bool check_end(const Run& run) {
        if (run.mesh.node_num() < 1)
            error_ = file_name_ + ": no nodes: not a result file";
        else if (!pending_.empty())
            error_ = file_name_ + ": the sections end at '" + shortened(pending_) + "'";
        return ok();
    }

    std::string file_name_;
    TokenReader tokens_;
    Progress& progress_;
    std::string_view pending_;  // a keyword that was not the one expected
    std::string error_;
    std::int64_t values_ = 0;  // read so far
    std::vector<std::shared_ptr<Frame>> frames_;
    std::int32_t dofs_ = 0;  // values of a vector
};

constexpr const char* read_head = "----------read_data-----------\n";

// The name to read: an empty one is asked for on the console; none where the console has ended.
std::string name_to_read(std::string_view file_name, Progress& progress) {
    std::string name(file_name);
    if (!name.empty()) return name;
    progress.print("Result File Name ?\x81\x46");
    if (!(std::cin >> name)) progress.error("no name of a result file was given");
    return name;
}

using ReadSections = std::function<bool(ResultReader&, StoredRun&)>;

std::optional<StoredRun> read_sections(std::string_view name, std::string_view text, const ReadSections& read,
                                       Progress& progress) {
    StoredRun stored;
    stored.model.model_file_name.clear();
    stored.run.origin.file_name = name;
    ResultReader reader(name, text, progress);
    const bool whole = read(reader, stored);
    progress.print("FILE CLOSE !!\n");
    if (whole) return stored;
    progress.error("%s", reader.error().c_str());
    return std::nullopt;
}

std::optional<StoredRun> read_file(const std::string& name, std::string_view log_folder,
                                   const ReadSections& read, Progress& progress) {
    std::string text, reason;
    if (!paths::read_text(name, text, reason, log_folder)) {
        progress.print("FILE OPEN ERROR\n");
        progress.error("%s cannot be read: %s", name.c_str(), reason.c_str());
        return std::nullopt;
    }
    progress.print("FILE OPEN !!\n");
    auto stored = read_sections(name, text, read, progress);
    if (stored) stored->run.origin.options.log_folder = log_folder;
    return stored;
}

bool read_results(ResultReader& reader, StoredRun& stored) {
    return reader.read_results(stored);
}

// Steps and outputs that a control asks for.
void print_steps(const AnalysisControl& control, Progress& progress) {
    const double end_time = control.end_time * 1.0000001;  // an exact multiple of the step keeps its last one
    const double steps = control.d_time > 0 ? std::trunc(end_time / control.d_time) : 0;
    const double outputs = control.d_time > 0 && control.output_frequency > 0
                               ? std::floor(end_time / (control.d_time * control.output_frequency))
                               : 0;
    progress.print("time_num = %.0f\n", 1 + steps);
    progress.print("out_time_num = %.0f\n", 1 + outputs);
}

// Gives the run the definition of `own` and what the file does not have; false where its mesh is another.
bool take_definition(const Model& own, StoredRun& stored) {
    Run& run = stored.run;
    run.node_of = match_nodes(own.mesh, run.mesh);
    if (run.node_of.empty()) return false;
    const auto numbered = [&](std::vector<std::int32_t> nodes) {
        for (std::int32_t& n : nodes) n = n > 0 ? run.node_of[n - 1] + 1 : 0;
        return nodes;
    };
    stored.model = own;
    run.mesh.p_ele_part_id = own.mesh.p_ele_part_id;
    run.mesh.surface_part_id = own.mesh.surface_part_id;
    run.mesh.surface_facets = numbered(own.mesh.surface_facets);
    update_node_normals(run.mesh);
    run.force_node = numbered(resolve_force_points(own.mesh, own.forces));
    run.origin.model_file_name = own.model_file_name;
    return true;
}

// The mesh alone.
void take_placeholder(StoredRun& stored) {
    Model& model = stored.model;
    Mesh& mesh = stored.run.mesh;
    model.parts.assign(1, Part{});
    model.parts.front().name = model.parts.front().material_name = "NONE";
    model.parts.front().material_id = -1;
    model.parts_o = model.parts;
    mesh.p_ele_part_id.assign(mesh.element_num(), 0);
    update_node_normals(mesh);
    model.mesh = mesh;
}

bool read_displacements(ResultReader& reader, StoredRun& stored, const Model* own) {
    if (!reader.read_displacements(stored)) return false;
    double interval = 0, end = std::numeric_limits<double>::infinity();
    if (!own || !take_definition(*own, stored))
        take_placeholder(stored);
    else if (stored.run.ana_type == AnalysisType::explicit_dynamics && own->control.auto_step) {
        interval = own->control.output_interval();
        end = own->control.end_time;
    } else if (stored.run.ana_type == AnalysisType::explicit_dynamics)
        interval = own->control.output_frequency * own->control.d_time;
    reader.take_frames(stored.run, interval, end);
    return true;
}

}  // namespace

std::optional<StoredRun> read_result_file(std::string_view file_name, std::string_view log_folder,
                                          Progress& progress) {
    const std::string name = name_to_read(file_name, progress);
    if (name.empty()) return std::nullopt;
    if (is_pieces_list(name)) return read_pieces(name, log_folder, progress);
    progress.print("%s", read_head);
    if (is_frames_file(name, log_folder)) {
        progress.print("FILE OPEN !!\n");
        return read_frames_file(name, log_folder, progress);
    }
    return read_file(name, log_folder, read_results, progress);
}

std::optional<StoredRun> read_result_text(std::string_view name, std::string_view text, Progress& progress) {
    return read_sections(name, text, read_results, progress);
}

std::optional<StoredRun> read_displacement_file(std::string_view file_name, std::string_view log_folder,
                                                const Model* own, Progress& progress) {
    progress.print("%s", read_head);  // here before the question
    const std::string name = name_to_read(file_name, progress);
    if (name.empty()) return std::nullopt;
    auto stored = read_file(
        name, log_folder,
        [&](ResultReader& reader, StoredRun& found) { return read_displacements(reader, found, own); },
        progress);
    if (stored) print_steps(own ? own->control : AnalysisControl{}, progress);
    return stored;
}

}  // namespace kestralum
