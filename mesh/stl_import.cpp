#include "mesh/stl_import.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "mesh/import_text.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::size_t most_facets = std::numeric_limits<std::int32_t>::max() / 3 - 1;

// Keywords in either case: some writers use capitals.
bool is_word(std::string_view token, std::string_view word) {
    return token.size() == word.size() &&
           std::equal(token.begin(), token.end(), word.begin(),
                      [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; });
}

// A header of 80 bytes, the number of facets and 50 bytes for each.
bool is_binary(std::string_view text) {
    constexpr std::size_t header = 80;
    std::uint32_t facets = 0;
    if (text.size() < header + sizeof facets) return false;
    std::memcpy(&facets, text.data() + header, sizeof facets);
    return text.size() == header + sizeof facets + 50 * std::size_t{facets};
}

class StlReader {
public:
    StlReader(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
              Remarks& remarks, const Progress& progress)
        : text_(text),
          reader_(text),
          file_name_(file_name),
          unit_factor_(unit_factor),
          mesh_(mesh),
          remarks_(remarks),
          progress_(progress) {}

    bool read() {
        if (!read_header()) return false;
        for (;;) {
            const std::string_view token = reader_.next();
            if (token.empty()) {
                remarks_.notices.push_back("file " + std::string(file_name_) +
                                           ": ends without \"endsolid\", the facets read are taken");
                return true;
            }
            if (progress_.cancelled()) return false;
            if (is_word(token, "endsolid")) break;
            if (!is_word(token, "facet")) return fail("\"facet\" or \"endsolid\"");
            if (!read_facet()) return false;
        }
        notice_rest();
        return true;
    }

private:
    // "solid" and the name, which ends where the first facet or the end of the solid begins.
    bool read_header() {
        if (!is_word(reader_.next(), "solid")) return fail("\"solid\" of an ASCII STL file");
        for (;;) {
            const TokenReader before = reader_;
            const std::string_view token = reader_.next();
            if (token.empty()) return fail("\"facet\" or \"endsolid\"");
            if (is_word(token, "endsolid") ||
                (is_word(token, "facet") && is_word(reader_.peek(), "normal"))) {
                reader_ = before;
                return true;
            }
        }
    }
    bool read_facet() {
        if (mesh_.coordinates.size() / 9 >= most_facets) return fail("fewer facets");
        if (!expect("normal")) return false;
        for (int k = 0; k < 3; ++k)  // the normal follows from the vertices; some writers leave nan here
            if (!reader_.next_double()) return fail("a number of the facet's normal");
        if (!expect("outer") || !expect("loop")) return false;
        const auto n = static_cast<std::int32_t>(mesh_.coordinates.size() / 3 + 1);
        double vertices[9];
        for (int v = 0; v < 3; ++v) {
            if (!expect("vertex")) return false;
            for (int k = 0; k < 3; ++k) {
                const auto value = reader_.next_double();
                if (!value || !std::isfinite(*value)) return fail("a coordinate");
                vertices[3 * v + k] = *value * unit_factor_;
            }
        }
        if (!expect("endloop") || !expect("endfacet")) return false;
        mesh_.coordinates.insert(mesh_.coordinates.end(), vertices, vertices + 9);
        mesh_.connectivity.insert(mesh_.connectivity.end(), {n, n + 1, n + 2, n, n, n, n, n});
        return true;
    }
    void notice_rest() {
        for (std::string_view token = reader_.next(); !token.empty(); token = reader_.next())
            if (is_word(token, "facet")) {
                remarks_.notices.push_back("file " + std::string(file_name_) +
                                           ": only its first solid is read, more facets follow");
                return;
            }
    }
    bool expect(const char* word) {
        return is_word(reader_.next(), word) || fail("\"" + std::string(word) + "\"");
    }
    bool fail(const std::string& expected) {
        const std::string kind = is_binary(text_) ? "is a binary STL file: an ASCII one is expected"
                                                  : foreign_format(text_, "solid", "an ASCII STL file");
        remarks_.errors.push_back(kind.empty() ? token_error(file_name_, reader_, expected)
                                               : "file " + std::string(file_name_) + " " + kind);
        mesh_.coordinates.clear();
        mesh_.connectivity.clear();
        return false;
    }

    std::string_view text_;
    TokenReader reader_;
    std::string_view file_name_;
    double unit_factor_;
    PartMesh& mesh_;
    Remarks& remarks_;
    const Progress& progress_;
};

}  // namespace

bool read_stl_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress) {
    mesh.kind = ElementKind::hexahedron;
    mesh.surface = true;
    return StlReader(text, file_name, unit_factor, mesh, remarks, progress).read();
}

bool import_stl(const Part& part, MeshContext& context, PartMesh& mesh) {
    std::string name, text, error;
    mesh.lines = "STL:";
    if (!read_mesh_file(part, context.model_file_name, name, text, error)) {
        mesh.lines += "FILE OPEN ERROR\n";
        context.remarks.errors.push_back(error);
        return false;
    }
    mesh.lines += "FILE OPEN !!\n";
    const bool good = read_stl_text(text, name, part.unit_factor, mesh, context.remarks, context.progress);
    mesh.lines += formatted("Nelem1=%ld\n", mesh.element_num()) + formatted("Nnode1=%ld\n", mesh.node_num()) +
                  "FILE CLOSE !!\n";
    return good && take_from_budget(part, {mesh.element_num(), mesh.node_num()}, context);
}

}  // namespace kestralum
