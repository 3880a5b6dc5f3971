#include "mesh/vol_import.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "mesh/import_text.h"
#include "mesh/tetra_order.h"
#include "mesh/vol_groups.h"
#include "model/format.h"

namespace kestralum {

namespace {

// File position of each node of the program's order: the files' tetrahedra are left-handed, so
// the second and third corner change places and the mid-side nodes follow.
constexpr std::array<std::size_t, 4> order4{0, 2, 1, 3};
constexpr std::array<std::size_t, 10> order10{0, 2, 1, 3, 5, 7, 4, 6, 9, 8};

class VolReader {
public:
    VolReader(std::string_view text, std::string_view file_name, double unit_factor, const Progress& progress)
        : text_(text),
          file_name_(file_name),
          unit_factor_(unit_factor),
          progress_(&progress),
          reader_(text) {}

    bool read(PartMesh& mesh, Remarks& remarks) {
        // A walk that gets lost is no proof against the file: it may only be of another layout.
        if (!walk()) {
            if (stopped()) return false;
            *this = VolReader(text_, file_name_, unit_factor_, *progress_);
            comment_lines_ = true;
            reader_ = TokenReader(text_, true);
            if (!read_sections()) {
                const std::string kind = foreign_format(text_, "mesh3d", "a Netgen .vol file");
                if (!kind.empty()) error_ = "file " + std::string(file_name_) + " " + kind;
                if (!stopped()) remarks.errors.push_back(error_);
                return false;
            }
        }
        print_counts(mesh.lines);
        mesh.kind = nodes_per_ == 10  ? ElementKind::tetrahedron10
                    : nodes_per_ == 4 ? ElementKind::tetrahedron4
                                      : ElementKind::hexahedron;
        mesh.connectivity = std::move(connectivity_);
        mesh.coordinates = std::move(coordinates_);
        if (!check_tetra_order(file_name_, mesh, remarks, *progress_)) return false;
        find_groups(mesh, remarks);
        return !stopped();
    }

private:
    bool stopped() const { return progress_->cancelled(); }
    // Bytes before the next token, after the one given last.
    std::size_t offset() const {
        return static_cast<std::size_t>(reader_.last().data() + reader_.last().size() - text_.data());
    }
    void find_groups(PartMesh& mesh, Remarks& remarks) const {
        if (mesh.connectivity.empty()) return;
        VolText file{text_,
                     comment_lines_,
                     {elements_read_, points_read_},
                     domains_,
                     static_cast<std::int32_t>(mesh.node_num())};
        std::sort(file.read.begin(), file.read.end());
        mesh.groups =
            make_part_groups(find_vol_groups(file, *progress_), mesh, file_name_, remarks.notices, progress_);
    }

    // The layout that Netgen writes for one kind of geometry, by token counts alone.
    bool walk() {
        if (reader_.next() != "mesh3d" || reader_.next() != "dimension" || !reader_.skip(1)) return false;
        if (reader_.next() != "geomtype" || !reader_.skip(10)) return false;
        if (!reader_.next().starts_with("surfaceelements") || !walk_surface()) return false;
        if (!reader_.skip(7) || reader_.next() != "volumeelements" || !read_elements()) return false;
        if (!reader_.skip(13) || !reader_.next().starts_with("edgesegments")) return false;
        const auto segments = reader_.next_int32();
        if (!segments || *segments < 0 || !reader_.skip(12 * std::int64_t{*segments})) return false;
        if (!reader_.skip(4) || reader_.next() != "points") return false;
        return read_points() && check_node_numbers();
    }
    bool walk_surface() {
        const auto count = reader_.next_int32();
        if (!count || *count < 0) return false;
        surface_num_ = *count;
        for (std::int32_t s = 0; s < surface_num_; ++s) {
            if (stopped()) return false;
            const auto k = reader_.next_int32();
            if (!k || *k < 0 || !reader_.skip(3)) return false;
            const auto m = reader_.next_int32();
            if (!m || *m < 0 || !reader_.skip(std::min(*k, 2) * std::int64_t{*m})) return false;
        }
        return true;
    }

    bool read_sections() {
        bool have_elements = false, have_points = false;
        while (!(have_elements && have_points)) {
            const std::string_view word = reader_.next();
            if (stopped()) return false;
            if (word.empty() || word == "endmesh")
                return fail(have_elements ? "section \"points\"" : "section \"volumeelements\"");
            if (word.starts_with("surfaceelements")) {
                if (!read_count("the number of surface elements", 6, surface_num_)) return false;
            } else if (word == "volumeelements" && !have_elements) {
                if (!read_elements()) return false;
                have_elements = true;
            } else if (word == "points" && !have_points) {
                if (!read_points()) return false;
                have_points = true;
            } else if (word == "materials" || word == "bcnames" || word == "cd2names" || word == "cd3names") {
                if (!skip_names()) return false;
            }
        }
        return check_node_numbers();
    }
    // Number and name per record: a name may be any word.
    bool skip_names() {
        std::int32_t count = 0;
        if (!read_count("the number of names", 2, count)) return false;
        return reader_.skip(2 * std::int64_t{count}) || fail("a number and a name");
    }

    // A count of records of at least `tokens` each.
    bool read_count(const char* what, std::int64_t tokens, std::int32_t& count) {
        const auto value = reader_.next_int32();
        if (!value || *value < 0) return fail(what);
        if (*value * tokens > reader_.most_tokens_left())
            return fail(std::string(what) + ", no more than the file can hold,");
        count = *value;
        return true;
    }
    bool read_elements() {
        elements_read_[0] = offset();
        if (!read_count("the number of volume elements", 6, element_num_)) return false;
        for (std::int32_t e = 0; e < element_num_; ++e) {
            if (stopped()) return false;
            const auto domain = reader_.next_int32();
            if (!domain) return fail("a domain number");
            const auto count = reader_.next_int32();
            if (!count || (*count != 4 && *count != 10))
                return fail("the node count of a tetrahedron, 4 or 10,");
            if (e == 0) {
                nodes_per_ = *count;
                if (std::int64_t{element_num_} * (2 + nodes_per_) > reader_.most_tokens_left() + 2)
                    return fail("a number of volume elements that the file can hold");
                first_element_token_ = reader_.token_number() + 1;
                connectivity_.reserve(std::int64_t{element_num_} * nodes_per_);
                domains_.reserve(element_num_);
            }
            if (*count != nodes_per_)
                return fail("node count " + std::to_string(nodes_per_) + " as in the elements before");
            if (!read_element_nodes()) return false;
            domains_.push_back(*domain);
        }
        elements_read_[1] = offset();
        return true;
    }
    bool read_element_nodes() {
        std::array<std::int32_t, 10> nodes{};
        for (int k = 0; k < nodes_per_; ++k) {
            const auto number = reader_.next_int32();
            if (!number || *number < 1) return fail("a node number");
            nodes[k] = *number;
        }
        if (nodes_per_ == 4)
            for (std::size_t from : order4) connectivity_.push_back(nodes[from]);
        else
            for (std::size_t from : order10) connectivity_.push_back(nodes[from]);
        return true;
    }
    bool read_points() {
        std::int32_t count = 0;
        points_read_[0] = offset();
        if (!read_count("the number of points", 3, count)) return false;
        coordinates_.reserve(3 * count);
        for (std::int64_t k = 0; k < 3 * std::int64_t{count}; ++k) {
            if (k % 3 == 0 && stopped()) return false;
            const auto value = reader_.next_double();
            if (!value || !std::isfinite(*value * unit_factor_)) return fail("a coordinate");
            coordinates_.push_back(*value * unit_factor_);
        }
        points_read_[1] = offset();
        return true;
    }
    // Elements come before the points, so their numbers can be judged only at the end.
    bool check_node_numbers() {
        const auto points = static_cast<std::int32_t>(coordinates_.size() / 3);
        for (std::size_t k = 0; k < connectivity_.size(); ++k)
            if (connectivity_[k] > points) {
                const std::size_t per = nodes_per_;
                const std::size_t from = per == 4 ? order4[k % per] : order10[k % per];
                const auto token =
                    first_element_token_ + static_cast<std::int64_t>(k / per * (per + 2) + from);
                error_ = "file " + std::string(file_name_) + ", token " + std::to_string(token) + " \"" +
                         std::to_string(connectivity_[k]) + "\": a node number up to " +
                         std::to_string(points) + " expected";
                return false;
            }
        return true;
    }
    bool fail(const std::string& expected) {
        error_ = token_error(file_name_, reader_, expected);
        return false;
    }
    void print_counts(std::string& lines) const {
        lines += formatted("  surface element sgi:%d\n", surface_num_);
        lines += formatted("  Nelem:%d\n", element_num_);
        lines += formatted("  element_type:%d\n", nodes_per_ == 10 ? 2 : nodes_per_ == 4 ? 1 : 0);
        lines += formatted("  Nnode:%zu\n", coordinates_.size() / 3);
    }

    std::string_view text_, file_name_;
    double unit_factor_;
    const Progress* progress_;
    TokenReader reader_;
    std::int32_t surface_num_ = 0, element_num_ = 0;
    int nodes_per_ = 0;                     // 0 until an element has been read
    std::int64_t first_element_token_ = 0;  // token of the first element's first node number
    bool comment_lines_ = false;
    std::array<std::size_t, 2> elements_read_{},
        points_read_{};                  // bytes [begin, end) of the sections' records
    std::vector<std::int32_t> domains_;  // of each element
    std::vector<std::int32_t> connectivity_;
    std::vector<double> coordinates_;
    std::string error_;
};

}  // namespace

bool read_vol_text(std::string_view text, std::string_view file_name, double unit_factor, PartMesh& mesh,
                   Remarks& remarks, const Progress& progress) {
    return read_or_clear(file_name, mesh, remarks, [&] {
        return VolReader(text, file_name, unit_factor, progress).read(mesh, remarks);
    });
}

bool import_vol(const Part& part, MeshContext& context, PartMesh& mesh) {
    return import_mesh_file(part, context, mesh, "VOL", [&](std::string_view text, const std::string& name) {
        return read_vol_text(text, name, part.unit_factor, mesh, context.remarks, context.progress);
    });
}

}  // namespace kestralum
