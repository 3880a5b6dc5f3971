#include "mesh/cad_import.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "mesh/child_process.h"
#include "mesh/gmsh_import.h"
#include "mesh/import_text.h"
#include "mesh/straighten.h"
#include "model/format.h"
#include "model/paths.h"

namespace kestralum {

namespace {

constexpr double silence_limit = 600;  // s: the mesher tells of each step
constexpr const char* mesher_name = "kestralum-mesher";

// Beside the program, or beside the library with this code where the program is Python; empty where it is
// not.
std::string find_mesher() {
    std::error_code fault;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", fault).parent_path() / mesher_name;
    if (!fault && std::filesystem::exists(program, fault)) return program.string();
    Dl_info here{};
    if (::dladdr(reinterpret_cast<const void*>(&find_mesher), &here) == 0 || !here.dli_fname) return {};
    const auto beside = std::filesystem::path(here.dli_fname).parent_path() / mesher_name;
    return std::filesystem::exists(beside, fault) ? beside.string() : std::string();
}

std::string exact(double value) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

// Offset basis and prime of the 64-bit FNV-1a hash (Fowler, Noll, Vo 1991).
std::uint64_t hash_of(std::string_view text, std::uint64_t hash = 14695981039346656037u) {
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return hash;
}

// What decides the mesh beside the file's bytes, as the mesher takes it.
std::vector<std::string> mesher_arguments(const MeshOptions& options) {
    std::vector<std::string> arguments{"size=" + exact(options.size),
                                       "order=" + std::to_string(options.order),
                                       "curvature=" + exact(options.curvature),
                                       std::string("fragment=") + (options.fragment ? "on" : "off")};
    for (const auto& [group, size] : options.refinements)
        arguments.push_back("refine=" + group + ":" + exact(size));
    return arguments;
}

std::string ending_of(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    std::string ending(dot == std::string_view::npos ? std::string_view{} : name.substr(dot));
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending;
}

// The last lines of a kept mesh, a comment to whoever else reads it.
constexpr std::string_view comment_start = "$Comments\nkestralum-mesher ", comment_end = "$EndComments\n";

class CadImport {
public:
    CadImport(const Part& part, MeshContext& context, PartMesh& mesh, std::string_view text, std::string name)
        : part_(part), context_(context), mesh_(mesh), file_(std::move(name)) {
        arguments_ = mesher_arguments(part.mesh_options);
        std::uint64_t hash = hash_of(text);
        for (const std::string& argument : arguments_) hash = hash_of(argument + "\n", hash);
        hash = hash_of(ending_of(file_), hash);
        hash_ = formatted("%016lx", hash);
        kept_ = kept_mesh_name(part, context.model_file_name);
    }

    bool import() {
        std::string text, ignored;
        if (!paths::read_text(kept_, text, ignored) || !is_kept(text)) {
            if (!divide(text)) return false;
        } else {
            mesh_.lines += "kept mesh:" + kept_ + "\n";
        }
        take_notices(text);
        if (!read_msh_text(text, kept_, part_.unit_factor, mesh_, context_.remarks, context_.progress))
            return false;
        if (const std::int64_t straightened = straighten_folded(mesh_, context_.progress); straightened > 0)
            notice(formatted(
                "%ld of its %ld tetrahedra were squeezed at a curved face, their mid-side nodes are moved "
                "towards straight edges: a smaller size or curvature= avoids that",
                straightened, mesh_.element_num()));
        return !context_.progress.cancelled();
    }

private:
    std::string place() const { return "part \"" + part_.name + "\": file \"" + file_ + "\""; }
    bool fail(const std::string& why) {
        context_.remarks.errors.push_back(place() + why);
        return false;
    }
    void notice(const std::string& text) {
        context_.remarks.notices.push_back("part \"" + part_.name + "\": " + text);
    }
    bool is_kept(std::string_view text) const {
        const std::size_t comment = text.rfind(comment_start);
        return comment != std::string_view::npos && text.ends_with(comment_end) &&
               text.substr(comment + comment_start.size()).starts_with(hash_ + "\n");
    }
    // What the mesher told when it made the mesh.
    void take_notices(std::string_view text) {
        std::string_view comment = text.substr(text.rfind(comment_start));
        for (std::size_t line; (line = comment.find('\n')) != std::string_view::npos;
             comment = comment.substr(line + 1))
            if (constexpr std::string_view word = "notice "; comment.starts_with(word))
                notice(std::string(comment.substr(word.size(), line - word.size())));
    }

    // Has the file meshed into `text` and the kept file.
    bool divide(std::string& text) {
        const std::string program = find_mesher();
        if (program.empty())
            return fail(": " + std::string(mesher_name) +
                        ", which divides CAD files, is not beside the program: it is built where the Gmsh "
                        "library is installed");
        const std::string fresh = fresh_name();
        const bool good = run_mesher(program, fresh) && read_fresh(fresh, text);
        std::error_code ignored;
        if (good)
            keep(fresh, text);
        else
            std::filesystem::remove(fresh, ignored);
        return good;
    }
    // Beside the model, or in the system's folder where that one cannot be written to.
    std::string fresh_name() const {
        const std::filesystem::path kept = paths::to_platform(kept_);
        std::filesystem::path folder = kept.has_parent_path() ? kept.parent_path() : ".";
        std::error_code ignored;
        if (::access(folder.c_str(), W_OK) != 0) folder = std::filesystem::temp_directory_path(ignored);
        return (folder / (kept.stem().string() + "." + std::to_string(::getpid()) + ".msh")).string();
    }
    bool run_mesher(const std::string& program, const std::string& output) {
        std::vector<std::string> arguments = arguments_;
        arguments.push_back("file=" + paths::to_platform(file_));
        arguments.push_back("output=" + output);
        arguments.push_back("most_elements=" + std::to_string(context_.left.elements));
        context_.progress.set_stage("mesh");
        std::string error, last_error;
        const ChildEnd end = run_child(
            program, arguments, silence_limit,
            [&](std::string_view line) { take_line(line, error, last_error); }, context_.progress);
        if (end.cancelled) return false;
        if (!error.empty()) return fail(": " + error);
        if (!end.reason.empty())
            return fail(": the mesher " + end.reason +
                        (last_error.empty() ? "" : "; it said: " + last_error) +
                        ": another size= or curvature= may help, else the file wants mending");
        return true;
    }
    void take_line(std::string_view line, std::string& error, std::string& last_error) {
        constexpr std::string_view of_error = "error ", of_notice = "notice ",
                                   library_error = "Error   : ", percent = "Info    : [";
        if (line.starts_with(of_error)) {
            error = line.substr(of_error.size());
        } else if (line.starts_with(of_notice)) {
            comment_ += std::string(line) + "\n";
        } else if (line.starts_with(library_error)) {
            last_error = line.substr(library_error.size());
        } else if (line.starts_with(percent)) {
            int share = 0;
            const auto digits =
                line.substr(std::min(line.find_first_not_of(' ', percent.size()), line.size()));
            std::from_chars(digits.data(), digits.data() + digits.size(), share);
            context_.progress.set_count(share, 100);
        }
    }
    bool read_fresh(const std::string& fresh, std::string& text) {
        std::string why;
        if (!paths::read_text(fresh, text, why))
            return fail(": its mesh \"" + fresh + "\" cannot be read: " + why);
        text += std::string(comment_start) + hash_ + "\n" + comment_ + std::string(comment_end);
        return true;
    }
    // A mesh that cannot be kept is made anew the next time.
    void keep(const std::string& fresh, std::string_view text) {
        std::error_code fault;
        bool good = false;
        if (const paths::File file = paths::open(fresh, "wb"))
            good = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
                   std::fflush(file.get()) == 0;
        if (good) std::filesystem::rename(fresh, paths::to_platform(kept_), fault);
        if (good && !fault) {
            mesh_.lines += "mesh kept:" + kept_ + "\n";
            return;
        }
        std::filesystem::remove(fresh, fault);
        notice("its mesh cannot be kept as " + kept_);
    }

    const Part& part_;
    MeshContext& context_;
    PartMesh& mesh_;
    const std::string file_;
    std::vector<std::string> arguments_;
    std::string hash_, kept_;
    std::string comment_;  // the mesher's notices, a line each
};

}  // namespace

std::string kept_mesh_name(const Part& part, std::string_view model_file_name) {
    std::string stem = paths::base_name(model_file_name);
    if (const std::size_t dot = stem.rfind('.'); dot != std::string::npos && dot > 0) stem.resize(dot);
    stem += "_" + part.name;
    std::ranges::replace_if(
        stem, [](unsigned char c) { return !std::isalnum(c) && c < 128; }, '_');
    return paths::directory_of(model_file_name) + stem + "_cad.msh";
}

bool import_cad(const Part& part, MeshContext& context, PartMesh& mesh) {
    return import_mesh_file(
        part, context, mesh, part.type_name.c_str(), [&](std::string_view text, const std::string& name) {
            const std::string ending = ending_of(name);
            if (part.type == Shape::step && std::ranges::find(cad_endings, ending) == cad_endings.end()) {
                context.remarks.errors.push_back(
                    "part \"" + part.name + "\": file \"" + name +
                    "\": .step, .stp, .iges, .igs or .brep expected as its ending");
                return false;
            }
            if (ending != ".stl" && !ending.starts_with(".br") && part.unit_factor != 1e-3)
                context.remarks.notices.push_back(
                    "part \"" + part.name +
                    "\": lengths of STEP and IGES files arrive in millimetres, whatever "
                    "unit the file has: unit=mm expected");
            return CadImport(part, context, mesh, text, name).import();
        });
}

}  // namespace kestralum
