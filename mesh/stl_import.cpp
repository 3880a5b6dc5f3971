#include "mesh/stl_import.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "mesh/cad_import.h"
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

// A binary file: a header of 80 bytes, the number of facets, and for each its normal, three vertices and two
// bytes more; numbers are little-endian, those of places 32-bit floating-point.
constexpr std::size_t binary_header = 84, binary_facet = 50;

std::uint32_t little_endian(std::string_view text, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t k = 0; k < 4; ++k)
        value |= std::uint32_t{static_cast<unsigned char>(text[at + k])} << 8 * k;
    return value;
}

std::uint32_t binary_facets(std::string_view text) {
    return little_endian(text, binary_header - 4);
}

// Some begin with "solid" as text does: the length decides.
bool is_binary(std::string_view text) {
    return text.size() >= binary_header &&
           text.size() == binary_header + binary_facet * std::size_t{binary_facets(text)};
}

// What is wrong with a file that is no text and whose length does not fit; "" for text.
std::string binary_fault(std::string_view text) {
    if (text.substr(0, binary_header + binary_facet).find('\0') == std::string_view::npos) return {};
    if (text.size() < binary_header)
        return "is a binary STL file of " + std::to_string(text.size()) +
               " bytes: a header of 84 bytes is expected";
    const std::uint32_t facets = binary_facets(text);
    return "is a binary STL file of " + std::to_string(text.size()) +
           " bytes: " + std::to_string(binary_header + binary_facet * std::size_t{facets}) +
           " are expected for its " + std::to_string(facets) + " facets";
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
        if (is_binary(text_)) return read_binary();
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
        double vertices[9];
        for (int v = 0; v < 3; ++v) {
            if (!expect("vertex")) return false;
            for (int k = 0; k < 3; ++k) {
                const auto value = reader_.next_double();
                if (!value || !std::isfinite(*value * unit_factor_)) return fail("a coordinate");
                vertices[3 * v + k] = *value * unit_factor_;
            }
        }
        if (!expect("endloop") || !expect("endfacet")) return false;
        add_facet(vertices);
        return true;
    }
    bool read_binary() {
        const std::size_t facets = binary_facets(text_);
        if (facets > most_facets)
            return refuse(" has " + std::to_string(facets) + " facets: at most " +
                          std::to_string(most_facets) + " are expected");
        mesh_.coordinates.reserve(9 * facets);
        mesh_.connectivity.reserve(8 * facets);
        for (std::size_t f = 0; f < facets; ++f) {
            if (progress_.cancelled()) return false;
            const std::size_t begin = binary_header + binary_facet * f + 12;  // after the normal
            double vertices[9];
            for (std::size_t k = 0; k < 9; ++k) {
                const double value = unit_factor_ * std::bit_cast<float>(little_endian(text_, begin + 4 * k));
                if (!std::isfinite(value))
                    return refuse(", facet " + std::to_string(f + 1) + ", byte " +
                                  std::to_string(begin + 4 * k) + ": a finite coordinate expected");
                vertices[k] = value;
            }
            add_facet(vertices);
        }
        return true;
    }
    void add_facet(const double* vertices) {
        const auto n = static_cast<std::int32_t>(mesh_.coordinates.size() / 3 + 1);
        mesh_.coordinates.insert(mesh_.coordinates.end(), vertices, vertices + 9);
        mesh_.connectivity.insert(mesh_.connectivity.end(), {n, n + 1, n + 2, n, n, n, n, n});
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
        std::string kind = foreign_format(text_, "solid", "an ASCII STL file");
        if (kind.empty()) kind = binary_fault(text_);
        if (!kind.empty()) return refuse(" " + kind);
        return give_up(token_error(file_name_, reader_, expected));
    }
    bool refuse(const std::string& what) { return give_up("file " + std::string(file_name_) + what); }
    bool give_up(const std::string& error) {
        remarks_.errors.push_back(error);
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
    return read_or_clear(file_name, mesh, remarks, [&] {
        return StlReader(text, file_name, unit_factor, mesh, remarks, progress).read();
    });
}

bool import_stl(const Part& part, MeshContext& context, PartMesh& mesh) {
    if (part.mesh_options.size > 0) return import_cad(part, context, mesh);
    if (part.mesh_options != MeshOptions{})
        context.remarks.notices.push_back(
            "part \"" + part.name +
            "\": without size= an STL part is a surface, its other options for the "
            "mesher are passed over");
    return import_mesh_file(part, context, mesh, "STL", [&](std::string_view text, const std::string& name) {
        const bool good =
            read_stl_text(text, name, part.unit_factor, mesh, context.remarks, context.progress);
        mesh.lines +=
            formatted("Nelem1=%ld\n", mesh.element_num()) + formatted("Nnode1=%ld\n", mesh.node_num());
        return good;
    });
}

}  // namespace kestralum
