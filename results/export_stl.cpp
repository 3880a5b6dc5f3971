#include <bit>
#include <cstring>

#include "model/format.h"
#include "model/free_faces.h"
#include "results/export_text.h"

namespace kestralum {

namespace {

// The file's numbers are little-endian whatever the machine.
void append_32(std::string& text, std::uint32_t bits) {
    for (int byte = 0; byte < 4; ++byte) text += static_cast<char>(bits >> 8 * byte & 0xff);
}

void append_place(std::string& text, const Vec3& x) {
    for (const double value : x) append_32(text, std::bit_cast<std::uint32_t>(static_cast<float>(value)));
}

// Normal, three corners, two bytes without a meaning.
void append_triangle(std::string& text, const Vec3& a, const Vec3& b, const Vec3& c) {
    append_place(text, unit(cross(minus(b, a), minus(c, a)), {0, 0, 0}));
    append_place(text, a);
    append_place(text, b);
    append_place(text, c);
    text.append(2, '\0');
}

}  // namespace

bool export_stl(const ExportJob& job) {
    const Mesh& mesh = job.model.mesh;
    const std::vector<ElementFace> faces = free_faces(mesh, &job.progress);
    const auto fill = [&](TextOutput& file) {
        const std::size_t per_face = face_table(mesh.element_type).triangles_per_face;
        std::string head = formatted("KESTRALUM %s, metres", program_version);
        head.resize(80, ' ');
        append_32(head, static_cast<std::uint32_t>(per_face * faces.size()));
        file.write(head);
        file.write_rows(static_cast<std::int64_t>(faces.size()), job.threads,
                        [&](std::int64_t f, std::string& text) {
                            const auto element = mesh.element(faces[f].element);
                            const auto local = outward_triangles(mesh.element_type, faces[f].face);
                            const auto corner = [&](std::size_t k) {
                                return place_of(mesh, node_index(element[local[k]]));
                            };
                            for (std::size_t k = 0; k + 2 < local.size(); k += 3)
                                append_triangle(text, corner(k), corner(k + 1), corner(k + 2));
                        });
    };
    if (!mesh.surface_part_id.empty()) job.remarks.notices.push_back("facets of STL parts are left out");
    return write_export(job, fill);
}

}  // namespace kestralum
