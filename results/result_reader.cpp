#include <algorithm>
#include <cmath>
#include <iostream>

#include "model/console.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

// Walks the sections of a result file. The first thing that cannot be right stops the walk and is
// kept as the reason.
class ResultReader {
public:
    ResultReader(std::string_view file_name, std::string_view text) : file_name_(file_name), tokens_(text) {}

    bool read(ModelStore& store) {
        store.ver_name = std::string(tokens_.next());
        if (store.ver_name.empty()) return fail("a version");
        console::print("%s\n", store.ver_name.c_str());
        read_mesh(store.mesh);
        read_held_results(store);
        read_parts("part_num_o", store.parts_o);
        read_parts("part_num", store.parts);
        read_conditions(store);
        read_rigid(store);
        read_closing(store);
        return ok() && check(store);
    }
    // A displacement file: the mesh, the vectors and what they are drawn from; no definition tables.
    bool read_displacements(ModelStore& store) {
        store.ver_name = std::string(tokens_.next());
        if (store.ver_name.empty()) return fail("a version");
        const Mesh former = store.mesh;
        read_mesh(store.mesh);
        const std::size_t modes = read_mode_num();
        if (ok()) console::print("mode_num:%zu\n", modes);
        read_vectors(store, std::vector<double>(modes, 0.0), false);
        read_ana_type(store);
        if (ok()) console::print("ana_type:%d\n", static_cast<std::int32_t>(store.ana_type));
        read_node_stress(store, false);
        read_extent(store.mesh);
        if (ok())
            for (std::size_t k = 0; k < 6; k += 3)
                console::print("%f,%f,%f\n", store.mesh.size_info[k], store.mesh.size_info[k + 1],
                               store.mesh.size_info[k + 2]);
        if (!ok() || !check_end(store)) return false;
        keep_definition(former, store);
        return true;
    }
    const std::string& error() const { return error_; }

private:
    bool ok() const { return error_.empty(); }

    bool fail(const char* expected) {
        if (error_.empty())
            error_ =
                console::format("%.*s: token %lld '%.*s': expected %s", static_cast<int>(file_name_.size()),
                                file_name_.data(), static_cast<long long>(tokens_.token_number()),
                                static_cast<int>(std::min<std::size_t>(tokens_.last().size(), 60)),
                                tokens_.last().data(), expected);
        return false;
    }

    // The terminator of the section before and this section's keyword. A keyword that is another
    // section's leaves this section's table empty, and the walk goes on with that keyword.
    bool section(const char* keyword, bool echo = false) {
        if (!ok()) return false;
        if (pending_.empty()) {
            tokens_.next();
            pending_ = tokens_.next();
            if (pending_.empty()) return fail(console::format("the section %s", keyword).c_str());
        }
        if (echo) console::print("str=%.*s\n", static_cast<int>(pending_.size()), pending_.data());
        if (pending_ != keyword) {
            console::notice("%.*s: section %s expected, '%.*s' found", static_cast<int>(file_name_.size()),
                            file_name_.data(), keyword,
                            static_cast<int>(std::min<std::size_t>(pending_.size(), 60)), pending_.data());
            return false;
        }
        pending_ = {};
        return true;
    }

    std::int32_t integer() {
        if (!ok()) return 0;
        const auto value = tokens_.next_int32();
        if (!value) fail("an integer");
        return value.value_or(0);
    }
    double real() {
        if (!ok()) return 0;
        const auto value = tokens_.next_double();
        if (!value) fail("a number");
        return value.value_or(0);
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
    std::size_t count(std::int64_t tokens_each) {
        const std::int32_t value = integer();
        if (ok() && (value < 0 || value * tokens_each > tokens_.most_tokens_left()))
            fail("a count that the file can hold");
        return ok() ? static_cast<std::size_t>(value) : 0;
    }
    void reals(std::span<double> values) {
        for (double& v : values) v = real();
    }

    void read_mesh(Mesh& mesh) {
        mesh = {};
        if (section("Node")) {
            mesh.coordinates.resize(3 * count(3));
            console::print("%s:%d\n", "Node", mesh.node_num());
            finite_reals(mesh.coordinates);
        }
        mesh.dof_num = 3 * mesh.node_num();
        if (section("Element_type")) mesh.element_type = static_cast<ElementKind>(integer());
        if (section("Element")) {
            const std::size_t nodes = mesh.node_per_element();
            mesh.connectivity.resize(nodes * count(static_cast<std::int64_t>(nodes)));
            console::print("%s:%d\n", "Element", mesh.element_num());
            for (std::int32_t& c : mesh.connectivity) {
                c = integer();
                if (ok() && (c < 1 || c > mesh.node_num())) fail("a node number of the file");
            }
        }
    }

    std::size_t read_mode_num() {
        std::size_t modes = 1;
        if (section("mode_num")) {
            modes = count(1);
            if (ok() && modes < 1) fail("at least one mode");
        }
        return modes;
    }

    // Sizes the results for the frequencies and reads the vectors; columns are the frames in order.
    void read_vectors(ModelStore& store, const std::vector<double>& n_freq, bool echo_keyword) {
        Results& results = store.results;
        const std::size_t modes = n_freq.size();
        const bool vectors = section("mode_vec", echo_keyword);
        if (vectors && tokens_.peek() == "%")
            store.mesh.dof_num = 0;  // the start-up model: nodes without degrees of freedom
        const std::size_t dofs = store.mesh.dof_num;
        if (ok() && static_cast<std::int64_t>(modes * dofs) > tokens_.most_tokens_left())
            fail("vectors that the file can hold");
        if (!ok()) return;
        results.resize(static_cast<std::int32_t>(modes), store.mesh.dof_num);
        results.n_freq = n_freq;
        for (std::size_t r = 0; vectors && r < dofs && ok(); ++r)
            for (std::size_t k = 0; k < modes; ++k) results.mode_vec[k * dofs + r] = real();
    }

    void read_node_stress(ModelStore& store, bool echo_keyword) {
        if (!section("node_stress", echo_keyword)) return;
        Results& results = store.results;
        const std::size_t dofs = store.mesh.dof_num;
        const std::size_t columns = stress_groups * results.n_freq.size();
        for (std::size_t r = 0; r < dofs && ok(); ++r)
            for (std::size_t c = 0; c < columns; ++c) results.node_stress[c * dofs + r] = real();
    }

    void read_held_results(ModelStore& store) {
        const std::size_t modes = read_mode_num();
        if (!ok()) return;
        console::print("%zu\n,", modes);
        std::vector<double> n_freq(modes);
        if (section("n_freq", true))
            for (std::size_t k = 0; k < modes && ok(); ++k) {
                n_freq[k] = real();
                console::print("%zu,%f\n", k, n_freq[k]);
            }
        read_vectors(store, n_freq, true);
        read_node_stress(store, true);
    }

    std::int32_t echo(std::int32_t value) {
        console::print(" %d,", value);
        return value;
    }
    double echo(double value) {
        console::print(" %.3e,", value);
        return value;
    }
    std::string echo(std::string value) {
        console::print(" %s,", value.c_str());
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
            p.type = static_cast<Shape>(echo(integer()));
            for (double& v : p.size) v = echo(real());
            for (std::int32_t& v : p.div) v = echo(integer());
            for (double& v : p.origin) v = echo(real());
            for (double& v : p.euler_angles) v = echo(real());
            p.active = echo(integer());
        }
    }

    void read_conditions(ModelStore& store) {
        store.boundary_conditions.clear();
        store.forces.clear();
        if (section("bc_num")) store.boundary_conditions.resize(count(12));
        if (section("bc_info"))
            for (BoundaryCondition& b : store.boundary_conditions) {
                b.id = integer();
                b.name = word();
                b.selection_word = word();
                b.axis_word = word();
                b.kind = static_cast<Selection>(integer());
                b.axis = integer();
                if (ok() && (b.axis < 0 || b.axis > 2)) fail("an axis 0, 1 or 2");
                reals(b.box);
            }
        if (section("force_num")) store.forces.resize(count(17));
        if (section("force_info"))
            for (AppliedForce& f : store.forces) {
                f.id = integer();
                f.name = word();
                f.kind_word = word();
                f.kind = static_cast<ForceKind>(integer());
                f.axis_word = word();
                f.axis = integer();
                if (ok() && (f.axis < 0 || f.axis > 2)) fail("an axis 0, 1 or 2");
                f.value = real();
                reals(f.point);
                reals(f.box);
                f.node = integer();
                if (ok() && (f.node < 0 || f.node > store.mesh.node_num())) fail("a node number of the file");
            }
    }

    void read_rigid(ModelStore& store) {
        store.rigid_elements.clear();
        store.rigid_forces.clear();
        store.rigid_combines.clear();  // the file does not carry them
        if (section("rigid_element_info")) {
            store.rigid_elements.resize(count(13));
            for (RigidElement& r : store.rigid_elements) {
                r.id = integer();
                r.name = word();
                r.selection_word = word();
                r.kind = static_cast<RigidSelection>(integer());
                reals(r.reference);
                reals(r.region);
            }
        }
        if (section("rigid_force_info")) {
            store.rigid_forces.resize(count(6));
            for (RigidForce& f : store.rigid_forces) {
                f.id = integer();
                f.name = word();
                f.element_name = word();
                f.direction_word = word();
                f.direction = static_cast<RigidDirection>(integer());
                f.value = real();
                for (std::size_t k = 0; k < store.rigid_elements.size(); ++k)
                    if (store.rigid_elements[k].name == f.element_name)
                        f.element = static_cast<std::int32_t>(k);
            }
        }
    }

    void read_closing(ModelStore& store) {
        Mesh& mesh = store.mesh;
        mesh.node_n_dir.assign(mesh.coordinates.size(), 0.0);
        if (section("node_n_dir")) reals(mesh.node_n_dir);
        mesh.p_ele_part_id.assign(mesh.element_num(), 0);
        if (section("p_ele_part_id"))
            for (std::int32_t& part : mesh.p_ele_part_id) {
                part = integer();
                if (ok() && (part < 0 || static_cast<std::size_t>(part) >= store.parts.size()))
                    fail("a part of the file");
            }
        read_ana_type(store);
        read_extent(mesh);
    }

    void read_ana_type(ModelStore& store) {
        if (!section("ana_type")) return;
        const std::int32_t type = integer();
        if (ok() && (type < 0 || type > 3)) fail("an analysis type 0 … 3");
        store.ana_type = static_cast<AnalysisType>(type);
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

    // The mesh of the model in the store keeps its definition; that of another one leaves none of it.
    void keep_definition(const Mesh& former, ModelStore& store) {
        Mesh& mesh = store.mesh;
        if (mesh.element_type == former.element_type && mesh.connectivity == former.connectivity &&
            mesh.node_num() == former.node_num()) {
            mesh.p_ele_part_id = former.p_ele_part_id;
            mesh.surface_facets = former.surface_facets;
            mesh.surface_part_id = former.surface_part_id;
            mesh.node_n_dir = former.node_n_dir;
            return;
        }
        store.parts.assign(1, Part{});
        store.parts.front().name = store.parts.front().material_name = "NONE";
        store.parts.front().material_id = -1;
        store.parts_o = store.parts;
        store.boundary_conditions.clear();
        store.forces.clear();
        store.rigid_elements.clear();
        store.rigid_forces.clear();
        store.rigid_combines.clear();
        mesh.p_ele_part_id.assign(mesh.element_num(), 0);
        update_node_normals(mesh);
    }

    // What every user of the store relies on.
    bool check(const ModelStore& store) {
        if (!check_end(store)) return false;
        if (store.mesh.element_num() > 0 && store.parts.empty())
            error_ = std::string(file_name_) + ": elements, but no part that they belong to";
        return ok();
    }

    bool check_end(const ModelStore& store) {
        if (store.mesh.node_num() < 1)
            error_ = std::string(file_name_) + ": no nodes: not a result file";
        else if (!pending_.empty())
            error_ = std::string(file_name_) + ": the sections end at '" +
                     std::string(pending_.substr(0, 60)) + "'";
        return ok();
    }

    std::string_view file_name_;
    TokenReader tokens_;
    std::string_view pending_;  // a keyword that was not the one expected
    std::string error_;
};

}  // namespace

namespace {

bool read_whole(std::string_view file_name, ModelStore& store,
                bool (ResultReader::*read_sections)(ModelStore&)) {
    const std::string name(file_name);
    console::print("----------read_data-----------\n");
    std::string text, reason;
    if (!paths::read_text(name, text, reason)) {
        console::print("FILE OPEN ERROR\n");
        console::error("%s cannot be read: %s", name.c_str(), reason.c_str());
        return false;
    }
    console::print("FILE OPEN !!\n");
    ModelStore read = store;
    ResultReader reader(name, text);
    const bool whole = (reader.*read_sections)(read);
    console::print("FILE CLOSE !!\n");
    if (!whole) {
        console::error("%s", reader.error().c_str());
        return false;
    }
    store = std::move(read);
    return true;
}

// The file that the process-wide store names; asks for the name where it is not known.
bool read_named(bool (*read_file)(std::string_view, ModelStore&)) {
    ModelStore& store = model_store();
    if (store.result_file_known) return read_file(store.result_file_name, store);
    console::print("Result File Name ?\x81\x46");
    std::string name;
    if (!(std::cin >> name)) {
        console::error("no name of a result file was given");
        return false;
    }
    if (!read_file(name, store)) return false;
    store.result_file_name = name;
    store.result_file_known = true;
    return true;
}

}  // namespace

bool read_result_file(std::string_view file_name, ModelStore& store) {
    return read_whole(file_name, store, &ResultReader::read);
}

bool read_displacement_file(std::string_view file_name, ModelStore& store) {
    if (!read_whole(file_name, store, &ResultReader::read_displacements)) return false;
    // steps and output steps of the control file in force
    const AnalysisControl& control = store.control;
    const double steps = control.d_time > 0 ? std::trunc(control.end_time * 1.0000001 / control.d_time) : 0;
    const double outputs =
        control.d_time > 0 && control.output_frequency > 0
            ? std::floor(control.end_time * 1.0000001 / (control.d_time * control.output_frequency))
            : 0;
    console::print("time_num = %.0f\n", 1 + steps);
    console::print("out_time_num = %.0f\n", 1 + outputs);
    return true;
}

bool read_results() {
    return read_named(read_result_file);
}
bool read_displacements() {
    return read_named(read_displacement_file);
}

}  // namespace kestralum
