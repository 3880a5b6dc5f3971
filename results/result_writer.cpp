#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "model/console.h"
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
    Sections(TextOutput& out, int threads) : out_(out), threads_(threads) {}

    void line(const char* keyword, std::string_view content, const char* shown) {
        out_.write(std::string(keyword) + "\n" + std::string(content) + "%\n");
        if (shown) console::print("   %s\n", shown);
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
        console::print("   %s\n", shown);
    }

private:
    TextOutput& out_;
    int threads_;
};

std::string count_line(std::int64_t count) {
    return std::to_string(count) + "\n";
}

void write_mesh(const ModelStore& store, Sections& out) {
    const Mesh& mesh = store.mesh;
    out.rows("Node", count_line(mesh.node_num()), mesh.node_num(), "Node",
             [&](std::int64_t n, std::string& text) {
                 const double* x = mesh.coordinates.data() + 3 * n;
                 FormatLine(text, "%e %e %e\n") << x[0] << x[1] << x[2];
             });
    out.count("Element_type", static_cast<std::int32_t>(mesh.element_type), nullptr);
    out.rows("Element", count_line(mesh.element_num()), mesh.element_num(), "Element",
             [&](std::int64_t e, std::string& text) {
                 const int nodes = mesh.node_per_element();
                 for (int k = 0; k < nodes; ++k) {
                     append_d(text, mesh.connectivity[e * nodes + k]);
                     text += k + 1 < nodes ? ' ' : '\n';
                 }
             });
}

void write_vectors(const ModelStore& store, Sections& out) {
    const Results& results = store.results;
    const std::int32_t modes = results.mode_num();
    const std::int64_t dofs = store.mesh.dof_num > 0 ? store.mesh.dof_num : 0;
    out.rows("mode_vec", "", dofs, "mode_vec", [&](std::int64_t r, std::string& text) {
        for (std::int32_t k = 0; k < modes; ++k) {
            const std::int64_t row = results.frame_vector[k];
            append_e(text, results.mode_vec[row * dofs + r]);
            text += k + 1 < modes ? ' ' : '\n';
        }
    });
}

void write_node_stress(const ModelStore& store, Sections& out) {
    const Results& results = store.results;
    const std::int64_t dofs = store.mesh.dof_num > 0 ? store.mesh.dof_num : 0;
    const std::int64_t columns = std::int64_t{stress_groups} * results.mode_num();
    out.rows("node_stress", "", dofs, "node_stress", [&](std::int64_t r, std::string& text) {
        for (std::int64_t c = 0; c < columns; ++c) {
            append_e(text, results.node_stress[c * dofs + r]);
            text += c + 1 < columns ? ' ' : '\n';
        }
    });
}

void write_held_results(const ModelStore& store, Sections& out) {
    const Results& results = store.results;
    const std::int32_t modes = results.mode_num();
    out.count("mode_num", modes, "mode_num");
    out.rows("n_freq", "", modes, "n_freq",
             [&](std::int64_t k, std::string& text) { FormatLine(text, "%e\n") << results.n_freq[k]; });
    write_vectors(store, out);
    write_node_stress(store, out);
}

void write_parts(const char* count_keyword, const char* shown, std::span<const Part> parts, Sections& out) {
    out.count(count_keyword, static_cast<std::int64_t>(parts.size()), count_keyword);
    out.rows("part_info", "", static_cast<std::int64_t>(parts.size()), shown,
             [&](std::int64_t k, std::string& text) {
                 const Part& p = parts[k];
                 FormatLine line(text,
                                 "%d  %s  %s  %e %e %e  %s  %d  %s  %d  %e %e %e %e %e %e  %d %d %d %d %d %d "
                                 " %e %e %e  %e %e %e  %d\n");
                 line << p.id << p.name << p.color_name << p.color[0] << p.color[1] << p.color[2]
                      << p.material_name << p.material_id << p.type_name << static_cast<std::int32_t>(p.type);
                 for (double s : p.size) line << s;
                 for (std::int32_t d : p.div) line << d;
                 for (double c : p.origin) line << c;
                 for (double c : p.euler_angles) line << c;
                 line << p.active;
             });
}

void write_conditions(const ModelStore& store, Sections& out) {
    const auto& conditions = store.boundary_conditions;
    out.count("bc_num", static_cast<std::int64_t>(conditions.size()), "bc_num");
    out.rows("bc_info", "", static_cast<std::int64_t>(conditions.size()), "B_COND",
             [&](std::int64_t k, std::string& text) {
                 const BoundaryCondition& b = conditions[k];
                 FormatLine line(text, "%d  %s  %s  %s  %d %d  %e %e %e %e %e %e\n");
                 line << b.id << b.name << b.selection_word << b.axis_word
                      << static_cast<std::int32_t>(b.kind) << b.axis;
                 for (double v : b.box) line << v;
             });
    const auto& forces = store.forces;
    out.count("force_num", static_cast<std::int64_t>(forces.size()), "force_num");
    out.rows("force_info", "", static_cast<std::int64_t>(forces.size()), "A_FORCE",
             [&](std::int64_t k, std::string& text) {
                 const AppliedForce& f = forces[k];
                 FormatLine line(text, "%d  %s  %s %d  %s %d  %e  %e %e %e  %e %e %e %e %e %e  %d\n");
                 line << f.id << f.name << f.kind_word << static_cast<std::int32_t>(f.kind) << f.axis_word
                      << f.axis << f.value;
                 for (double v : f.point) line << v;
                 for (double v : f.box) line << v;
                 line << f.node;
             });
}

void write_rigid(const ModelStore& store, Sections& out) {
    const auto& elements = store.rigid_elements;
    out.rows("rigid_element_info", count_line(static_cast<std::int64_t>(elements.size())),
             static_cast<std::int64_t>(elements.size()), "R_ELEMENT", [&](std::int64_t k, std::string& text) {
                 const RigidElement& r = elements[k];
                 FormatLine line(text, "%d  %s  %s %d  %e %e %e  %e %e %e %e %e %e\n");
                 line << r.id << r.name << r.selection_word << static_cast<std::int32_t>(r.kind);
                 for (double v : r.reference) line << v;
                 for (double v : r.region) line << v;
             });
    const auto& forces = store.rigid_forces;
    out.rows("rigid_force_info", count_line(static_cast<std::int64_t>(forces.size())),
             static_cast<std::int64_t>(forces.size()), "R_FORCE", [&](std::int64_t k, std::string& text) {
                 const RigidForce& f = forces[k];
                 FormatLine(text, "%d  %s  %s  %s  %d  %e\n")
                     << f.id << f.name << f.element_name << f.direction_word
                     << static_cast<std::int32_t>(f.direction) << f.value;
             });
}

void write_ana_type(const ModelStore& store, Sections& out) {
    out.count("ana_type", static_cast<std::int32_t>(store.ana_type), "ana_type");
}

void write_extent(const Mesh& mesh, Sections& out) {
    out.rows("size_info", "", 2, "size_info", [&](std::int64_t k, std::string& text) {
        const double* corner = mesh.size_info.data() + 3 * k;
        FormatLine(text, "%e %e %e\n") << corner[0] << corner[1] << corner[2];
    });
}

void write_closing_sections(const ModelStore& store, Sections& out) {
    const Mesh& mesh = store.mesh;
    const auto normals = static_cast<std::int64_t>(mesh.node_n_dir.size() / 3);
    out.rows("node_n_dir", "", normals, "node_n_dir", [&](std::int64_t n, std::string& text) {
        const double* d = mesh.node_n_dir.data() + 3 * n;
        FormatLine(text, "%e  %e  %e\n") << d[0] << d[1] << d[2];
    });
    out.rows("p_ele_part_id", "", static_cast<std::int64_t>(mesh.p_ele_part_id.size()), "p_ele_part_id",
             [&](std::int64_t e, std::string& text) { FormatLine(text, "%d\n") << mesh.p_ele_part_id[e]; });
    write_ana_type(store, out);
    write_extent(mesh, out);
}

// The frame of both files: console lines, version, the sections of `content`, and the target's name once
// the text is whole.
bool write_file(const ModelStore& store, const std::string& target, Publish publish, int threads,
                const std::function<void(Sections&)>& content) {
    const std::string base = paths::base_name(store.model_file_name), held = target + held_suffix;
    console::print("index = %d\n", paths::last_separator(store.model_file_name));
    console::print("file_name = %s\n", base.c_str());
    console::print("n_=%d\n", static_cast<int>(base.size()));
    console::print("resfile_name:%s\n", target.c_str());
    TextOutput file(held);
    if (!file.is_open()) {
        console::print("FILE OPEN ERROR\n");
        console::error("%s cannot be written: %s", paths::to_platform(target).c_str(), file.error().c_str());
        return false;
    }
    console::print("RESULT FILE OPEN !!\n");
    Sections out(file, threads);
    file.write(store.ver_name + "\n%\n");
    console::print("   ver_name\n");
    content(out);
    const bool whole = file.finish();
    console::print(whole ? "FILE CLOSE !!\n" : "FILE CLOSE ERROR\n");
    const std::string held_path = paths::to_platform(held), target_path = paths::to_platform(target);
    if (!whole) {
        console::error("%s cannot be written: %s", target_path.c_str(), file.error().c_str());
        std::remove(held_path.c_str());
        return false;
    }
    if (publish == Publish::now && std::rename(held_path.c_str(), target_path.c_str()) != 0) {
        console::error("%s cannot be written: %s", target_path.c_str(), std::strerror(errno));
        std::remove(held_path.c_str());
        return false;
    }
    return true;
}

}  // namespace

std::string result_file_name(const ModelStore& store) {
    return "log\\result_" + paths::base_name(store.model_file_name);
}

std::string displacement_file_name(const ModelStore& store) {
    return "log\\disp_" + paths::base_name(store.model_file_name);
}

std::string history_file_name(const ModelStore& store) {
    const std::string base = paths::base_name(store.model_file_name);
    return "log\\history_" + base.substr(0, base.rfind('.')) + ".csv";
}

bool write_results(const ModelStore& store, Publish publish, int threads) {
    return write_file(store, result_file_name(store), publish, threads, [&](Sections& out) {
        write_mesh(store, out);
        write_held_results(store, out);
        write_parts("part_num_o", "PART_O", store.parts_o, out);
        write_parts("part_num", "PART", store.parts, out);
        write_conditions(store, out);
        write_rigid(store, out);
        write_closing_sections(store, out);
    });
}

bool write_displacements(const ModelStore& store, int threads) {
    return write_file(store, displacement_file_name(store), Publish::now, threads, [&](Sections& out) {
        write_mesh(store, out);
        out.count("mode_num", store.results.mode_num(), "mode_num");
        write_vectors(store, out);
        write_ana_type(store, out);
        write_node_stress(store, out);
        write_extent(store.mesh, out);
    });
}

void release_held_results(const ModelStore& store) {
    const std::string target = paths::to_platform(result_file_name(store)), held = target + held_suffix;
    std::error_code ignored;
    if (std::filesystem::exists(target, ignored))
        std::filesystem::remove(held, ignored);
    else
        std::filesystem::rename(held, target, ignored);
}

}  // namespace kestralum
