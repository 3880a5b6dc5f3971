#include "mesh/import_text.h"

#include <new>

#include "model/paths.h"

namespace kestralum {

std::string mesh_file_path(const Part& part) {
    return part.size_text[0].starts_with(part.parent_name) ? part.size_text[0] : part.parent_name;
}

namespace {

bool is_absolute(std::string_view path) {
    return path.starts_with('/') || path.starts_with('\\');
}

// The places of a part's file, the working directory first, then beside the model file.
std::vector<std::string> mesh_file_places(const Part& part, std::string_view model_file_name) {
    const std::string name = mesh_file_path(part), folder = paths::directory_of(model_file_name);
    if (name.empty()) return {};
    std::vector<std::string> places{name};
    if (!folder.empty() && !is_absolute(name)) places.push_back(folder + name);
    return places;
}

// `name` is the path that was read. False: `error` is a whole line.
bool read_mesh_file(const Part& part, std::string_view model_file_name, std::string& name, std::string& text,
                    std::string& error) {
    std::string why = "no path given";
    const std::vector<std::string> places = mesh_file_places(part, model_file_name);
    for (const std::string& place : places) {
        std::string reason;
        name = place;
        if (paths::read_text(place, text, reason)) return true;
        if (place == places.front()) why = reason;
    }
    if (places.size() > 1) why += ", nor beside the model file";
    name = mesh_file_path(part);
    error = "part \"" + part.name + "\": file \"" + name + "\" cannot be read: " + why;
    return false;
}

}  // namespace

std::string found_mesh_file(const Part& part, std::string_view model_file_name) {
    if (part.parent_name == "NONE") return {};
    for (const std::string& place : mesh_file_places(part, model_file_name))
        if (paths::open(place, "rb")) return place;
    return {};
}

bool import_mesh_file(const Part& part, MeshContext& context, PartMesh& mesh, const char* word,
                      const ReadMesh& read) {
    std::string name, text, error;
    mesh.lines = std::string(word) + ":";
    const auto open = [&] {
        if (read_mesh_file(part, context.model_file_name, name, text, error)) return true;
        context.remarks.errors.push_back(error);
        return false;
    };
    if (!read_or_clear(mesh_file_path(part), mesh, context.remarks, open)) {
        mesh.lines += "FILE OPEN ERROR\n";
        return false;
    }
    mesh.lines += "FILE OPEN !!\n";
    const bool good = read_or_clear(name, mesh, context.remarks, [&] { return read(text, name); });
    mesh.lines += "FILE CLOSE !!\n";
    return good && take_from_budget(part, {mesh.element_num(), mesh.node_num()}, context);
}

bool read_or_clear(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                   const std::function<bool()>& read) {
    try {
        if (read()) return true;
    } catch (const std::bad_alloc&) {
        remarks.errors.push_back("file " + std::string(file_name) + ": not enough memory to read it");
    }
    mesh.connectivity = {};
    mesh.coordinates = {};
    mesh.groups = {};
    return false;
}

std::string foreign_format(std::string_view text, std::string_view own_word, std::string_view expected) {
    struct Packer {
        std::string_view begins, name;
    };
    static constexpr Packer packers[] = {{"\x1f\x8b", "gzip"},
                                         {"PK\x03\x04", "zip"},
                                         {"BZh", "bzip2"},
                                         {"\xfd"
                                          "7zXZ",
                                          "xz"}};
    for (const auto& [begins, name] : packers)
        if (text.starts_with(begins)) return "is compressed (" + std::string(name) + "): unpack it first";

    struct Format {
        std::string_view first_word, name;
    };
    static constexpr Format formats[] = {{"$MeshFormat", "a Gmsh mesh ($MeshFormat)"},
                                         {"mesh3d", "a Netgen volume mesh (mesh3d)"},
                                         {"solid", "an STL surface (solid)"},
                                         {"*Heading", "an Abaqus input (*Heading)"},
                                         {"*NODE", "an Abaqus input (*NODE)"}};
    const std::string_view word = TokenReader(text).next();
    for (const auto& [first_word, name] : formats)
        if (word == first_word && word != own_word)
            return "is " + std::string(name) + ": " + std::string(expected) + " is expected";
    if (text.starts_with("# vtk DataFile")) return "is a VTK file: " + std::string(expected) + " is expected";
    return {};
}

std::string token_error(std::string_view file_name, const TokenReader& reader, std::string_view expected) {
    std::string text = "file " + std::string(file_name) + ", token " + std::to_string(reader.token_number());
    if (reader.last().empty())
        return text + ": the file ends where " + std::string(expected) + " is expected";
    return text + " \"" + truncate_text(reader.last(), name_text_width) + "\": " + std::string(expected) +
           " expected";
}

}  // namespace kestralum
