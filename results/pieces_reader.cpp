#include "results/pieces_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "model/format.h"
#include "model/paths.h"
#include "model/symmetric3.h"
#include "model/token_reader.h"
#include "model/xml_text.h"
#include "results/vtu_grid.h"

namespace kestralum {

namespace {

// What stands between the quotes of an attribute of an element; empty where there is none.
std::string_view attribute(std::string_view element, std::string_view name) {
    const std::string wanted = " " + std::string(name) + "=\"";
    const std::size_t at = element.find(wanted);
    if (at == std::string_view::npos) return {};
    const std::string_view rest = element.substr(at + wanted.size());
    return rest.substr(0, rest.find('"'));
}

// The elements of a name in a text of XML, "<NAME ...>", as far as they end.
std::vector<std::string_view> elements_named(std::string_view text, std::string_view name) {
    std::vector<std::string_view> out;
    const std::string head = "<" + std::string(name) + " ";
    for (std::size_t at = text.find(head), end; at != std::string_view::npos; at = text.find(head, end)) {
        end = text.find('>', at);
        if (end == std::string_view::npos) break;
        out.push_back(text.substr(at, end - at));
    }
    return out;
}

template <typename T>
std::optional<T> number_of(std::string_view text) {
    T value{};
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// One piece: its arrays by name, as the file has them.
class PieceFile {
public:
    // Why it is none; empty if it is one.
    std::string open(const std::string& name, std::string_view log_folder) {
        std::string error;
        if (!paths::read_text(name, text_, error, log_folder)) return error;
        const std::string_view all = text_;
        constexpr std::string_view mark = "<AppendedData encoding=\"raw\">\n_";
        const std::size_t head = all.find(mark);
        if (head == std::string_view::npos) return "expected raw appended data";
        data_ = all.substr(head + mark.size());
        const std::string_view xml = all.substr(0, head);
        const auto pieces = elements_named(xml, "Piece");
        if (pieces.size() != 1) return "expected one piece";
        const auto points = number_of<std::int64_t>(attribute(pieces[0], "NumberOfPoints")),
                   cells = number_of<std::int64_t>(attribute(pieces[0], "NumberOfCells"));
        constexpr std::int64_t most = 1'000'000'000;
        if (!points || !cells || *points < 0 || *cells < 0 || *points > most || *cells > most)
            return "expected numbers of points and cells";
        points_ = *points;
        cells_ = *cells;
        for (const std::string_view element : elements_named(xml, "DataArray")) {
            const auto offset = number_of<std::uint64_t>(attribute(element, "offset"));
            if (!offset || attribute(element, "Name").empty()) return "expected the offset of an array";
            arrays_.push_back(
                {std::string(attribute(element, "Name")), std::string(attribute(element, "type")), *offset});
        }
        return {};
    }

    std::int64_t points() const { return points_; }
    std::int64_t cells() const { return cells_; }
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const Array& array : arrays_) out.push_back(array.name);
        return out;
    }
    // `count` values of an array; none where the file has no such array of that type and size.
    template <typename T>
    std::optional<std::vector<T>> read(std::string_view name, std::string_view type,
                                       std::int64_t count) const {
        const auto array = std::ranges::find_if(
            arrays_, [&](const Array& one) { return one.name == name && one.type == type; });
        std::uint64_t bytes = 0;
        const std::uint64_t wanted = static_cast<std::uint64_t>(count) * sizeof(T);
        if (array == arrays_.end() || array->offset > data_.size() ||
            data_.size() - array->offset < sizeof bytes)
            return std::nullopt;
        std::memcpy(&bytes, data_.data() + array->offset, sizeof bytes);
        if (bytes != wanted || data_.size() - array->offset - sizeof bytes < bytes) return std::nullopt;
        std::vector<T> out(count);
        if (count > 0) std::memcpy(out.data(), data_.data() + array->offset + sizeof bytes, bytes);
        return out;
    }

private:
    struct Array {
        std::string name, type;
        std::uint64_t offset;
    };
    std::string text_;
    std::string_view data_;
    std::int64_t points_ = 0, cells_ = 0;
    std::vector<Array> arrays_;
};

constexpr std::string_view displacement = "displacement";
constexpr std::string_view list_ending = ".pvtu", series_ending = ".pvd";

// What a field's name says of its frame behind "displacement": nothing, "_CASE", "_mode001_84.3Hz" or
// "_mode001_factor2.5".
void name_frame(std::string_view suffix, Frame& frame, AnalysisType& type) {
    frame.name = suffix.starts_with('_') ? suffix.substr(1) : suffix;
    constexpr std::string_view mode = "mode", factor = "factor", unit = "Hz";
    std::string_view rest = frame.name;
    if (!rest.starts_with(mode)) return;
    rest.remove_prefix(mode.size());
    const std::size_t at = rest.find('_');
    if (at == std::string_view::npos || !number_of<std::uint64_t>(rest.substr(0, at))) return;
    std::string_view value = rest.substr(at + 1);
    const bool is_factor = value.starts_with(factor), is_frequency = value.ends_with(unit);
    if (is_factor == is_frequency) return;
    if (is_factor)
        value.remove_prefix(factor.size());
    else
        value.remove_suffix(unit.size());
    const std::optional<double> number = parse_double(value);
    if (!number || !std::isfinite(*number)) return;
    frame.n_freq = *number;
    frame.name.clear();
    type = is_factor ? AnalysisType::buckling : AnalysisType::eigen;
}

// What a list of pieces says of its frame; of shapes and static runs nothing.
struct FrameTag {
    std::optional<AnalysisType> type;
    double value = 0;  // load factor or time, s
};

class PiecesReader {
public:
    explicit PiecesReader(StoredRun& stored) : run_(stored.run), model_(stored.model) {}

    // Why it is none; empty if it is one.
    std::string add(const PieceFile& piece) {
        if (is_empty(piece)) {
            close_piece();
            return {};
        }
        const auto node = piece.read<std::int32_t>("node", "Int32", piece.points());
        const auto places = piece.read<double>("Points", "Float64", 3 * piece.points());
        if (!node || !places) return "expected numbers and places of the nodes";
        if (std::ranges::any_of(*node, [](std::int32_t n) { return n < 1; }))
            return "expected node numbers from 1";
        if (std::ranges::any_of(*places, [](double x) { return !std::isfinite(x); }))
            return "expected finite coordinates";
        constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
        if (node_.size() + node->size() > most) return "expected fewer than 2^31 nodes in all pieces";
        if (std::string why = add_cells(piece); !why.empty()) return why;
        node_.insert(node_.end(), node->begin(), node->end());
        places_.insert(places_.end(), places->begin(), places->end());
        close_piece();
        return add_fields(piece);
    }

    // The frames of the pieces so far. Why they are not whole; empty if they are.
    std::string finish(const FrameTag& tag) {
        Mesh& mesh = run_.mesh;
        if (mesh.connectivity.empty()) return "expected an element";
        if (tag.type && !is_one_frame()) return one_frame;
        constexpr std::int64_t spare = 10'000;  // parts without an element
        if (parts_ > std::ssize(mesh.p_ele_part_id) + spare) return "expected parts that have elements";
        if (std::string why = number_nodes(); !why.empty()) return why;
        update_node_normals(mesh);
        for (std::int32_t p = 0; p < parts_; ++p) {
            Part& part = model_.parts.emplace_back();
            part.id = p;
            part.name = formatted("part_%d", p + 1);
            part.color = {0.6, 0.7, 0.8};
            part.material_name = "NONE";
            part.material_id = -1;
        }
        model_.parts_o = model_.parts;
        model_.mesh = mesh;
        run_.ana_type = tag.type.value_or(type_);
        take_frames(tag);
        return {};
    }

    // A further frame on the mesh that stands: its pieces in the order of the first ones, without the cells
    // of elements that have been taken out since. Why it is none; empty if it is one.
    std::string add_later(const PieceFile& piece) {
        const std::size_t p = later_++;
        if (p + 1 >= first_node_.size()) return "expected no more pieces than those of the first frame";
        const auto nodes = std::span(node_).subspan(first_node_[p], first_node_[p + 1] - first_node_[p]);
        if (is_empty(piece) && nodes.empty()) return {};
        const auto node = piece.read<std::int32_t>("node", "Int32", piece.points());
        if (!node || !std::ranges::equal(*node, nodes))
            return "expected the nodes of the first frame's piece";
        if (std::string why = find_removed(piece, p); !why.empty()) return why;
        return add_fields(piece);
    }
    std::string finish_later(const FrameTag& tag) {
        if (std::exchange(later_, 0) + 1 != first_node_.size())
            return "expected the pieces of the first frame";
        if (!is_one_frame()) return one_frame;
        if (tag.type != run_.ana_type) return "expected the analysis of the first frame";
        frames_.front()->removed = std::move(removed_);
        run_.erodes = run_.erodes || !frames_.front()->removed.empty();
        removed_.clear();
        take_frames(tag);
        return {};
    }

private:
    // Such a piece has no values either.
    static bool is_empty(const PieceFile& piece) { return piece.points() == 0 && piece.cells() == 0; }
    void close_piece() {
        first_node_.push_back(node_.size());
        first_element_.push_back(static_cast<std::int32_t>(run_.mesh.p_ele_part_id.size()));
    }

    static constexpr const char* one_frame = "expected the fields of one frame";
    bool is_one_frame() const { return suffixes_.size() == 1 && suffixes_.front().empty(); }

    void take_frames(const FrameTag& tag) {
        spread();
        if (tag.type) frames_.front()->n_freq = tag.value;
        run_.results.insert(run_.results.end(), frames_.begin(), frames_.end());
        frames_.clear();
        suffixes_.clear();
        values_.clear();
    }

    // The elements of the first frame's piece that have no cell.
    std::string find_removed(const PieceFile& piece, std::size_t p) {
        const Mesh& mesh = run_.mesh;
        const std::int64_t width = mesh.node_per_element();
        const auto connectivity = piece.read<std::int64_t>("connectivity", "Int64", width * piece.cells());
        if (!connectivity) return "expected the nodes of the cells";
        const auto order = vtk_node_order(mesh.element_type);
        std::int64_t cell = 0;
        for (std::int32_t e = first_element_[p]; e < first_element_[p + 1]; ++e) {
            const auto nodes = mesh.element(e);
            const auto is_node = [&](std::int64_t k) {
                const std::int64_t n = (*connectivity)[width * cell + k];
                return n >= 0 && n < piece.points() &&
                       here_[first_node_[p] + static_cast<std::size_t>(n)] + 1 == nodes[order[k]];
            };
            bool here = cell < piece.cells();
            for (std::int64_t k = 0; here && k < width; ++k) here = is_node(k);
            if (here)
                ++cell;
            else
                removed_.push_back(e);
        }
        return cell == piece.cells() ? "" : "expected cells of the first frame's piece in their order";
    }

    // The nodes in the order of the pieces' numbers, which may have gaps: a node on no element is in no
    // piece. Why they are not those of one mesh; empty if they are.
    std::string number_nodes() {
        Mesh& mesh = run_.mesh;
        std::vector<std::int32_t> numbers = node_;
        std::ranges::sort(numbers);
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        mesh.coordinates.resize(3 * numbers.size());
        here_.resize(node_.size());
        for (std::size_t k = 0; k < node_.size(); ++k) {
            here_[k] =
                static_cast<std::int32_t>(std::ranges::lower_bound(numbers, node_[k]) - numbers.begin());
            std::copy_n(&places_[3 * k], 3, &mesh.coordinates[3 * std::size_t(here_[k])]);
        }
        for (std::int32_t& node : mesh.connectivity) node = here_[node_index(node)] + 1;
        update_extent(mesh);
        if (!std::isfinite(mesh.max_length)) return "expected places in a finite box";
        const double apart = 1e-9 * mesh.max_length;
        for (std::size_t d = 0; d < places_.size(); ++d)
            if (std::abs(places_[d] - mesh.node(here_[d / 3])[d % 3]) > apart)
                return formatted("its pieces are not of one run: node %d stands at two places", node_[d / 3]);
        places_ = {};
        return {};
    }

    // Its nodes come behind those of the pieces before.
    std::string add_cells(const PieceFile& piece) {
        const auto types = piece.read<std::uint8_t>("types", "UInt8", piece.cells());
        const auto part = piece.read<std::int32_t>("part", "Int32", piece.cells());
        if (!types || !part) return "expected types and parts of the cells";
        if (types->empty()) return {};
        const std::uint8_t type = types->front();
        const ElementKind kind = type == 12   ? ElementKind::hexahedron
                                 : type == 24 ? ElementKind::tetrahedron10
                                              : ElementKind::tetrahedron4;
        if ((type != 12 && type != 24 && type != 10) || std::ranges::count(*types, type) != piece.cells() ||
            (!run_.mesh.connectivity.empty() && kind != run_.mesh.element_type))
            return "expected cells of one type, 10, 12 or 24";
        run_.mesh.element_type = kind;
        const std::int64_t width = nodes_per_element(kind);
        const auto connectivity = piece.read<std::int64_t>("connectivity", "Int64", width * piece.cells());
        if (!connectivity) return "expected the nodes of the cells";
        const auto order = vtk_node_order(kind);
        std::vector<std::int32_t>& to = run_.mesh.connectivity;
        for (std::int64_t c = 0; c < piece.cells(); ++c) {
            const std::size_t first = to.size();
            to.resize(first + width);
            for (std::int64_t k = 0; k < width; ++k) {
                const std::int64_t n = (*connectivity)[width * c + k];
                if (n < 0 || n >= piece.points()) return "expected nodes of the piece in its cells";
                to[first + order[k]] = static_cast<std::int32_t>(std::int64_t(node_.size()) + n + 1);
            }
            const std::int32_t p = (*part)[c];
            if (p < 0 || p > 1'000'000) return "expected part numbers";
            run_.mesh.p_ele_part_id.push_back(p);
            parts_ = std::max(parts_, p + 1);
        }
        return {};
    }

    // The frames are those of the first piece, in its order.
    std::string add_fields(const PieceFile& piece) {
        std::vector<std::string> suffixes;
        for (const std::string& name : piece.names())
            if (name.starts_with(displacement)) suffixes.push_back(name.substr(displacement.size()));
        if (frames_.empty())
            for (const std::string& suffix : suffixes) {
                suffixes_.push_back(suffix);
                name_frame(suffix, *frames_.emplace_back(std::make_shared<Frame>()), type_);
                values_.emplace_back();
            }
        if (suffixes != suffixes_ || suffixes.empty()) return "expected the fields of the other pieces";
        for (std::size_t f = 0; f < frames_.size(); ++f) {
            auto u = piece.read<double>("displacement" + suffixes[f], "Float64", 3 * piece.points()),
                 stress = piece.read<double>("stress" + suffixes[f], "Float64", 6 * piece.points()),
                 strain = piece.read<double>("strain" + suffixes[f], "Float64", 6 * piece.points()),
                 mises = piece.read<double>("mises" + suffixes[f], "Float64", piece.points());
            if (!u || !stress || !strain || !mises)
                return "expected displacement, stress, strain and mises of each frame";
            const std::string yielded = "plastic_strain" + suffixes[f];
            const bool has_plastic = std::ranges::count(piece.names(), yielded) > 0;
            auto plastic = piece.read<double>(yielded, "Float64", piece.points());
            if (plastic.has_value() != has_plastic || has_plastic != has_plastic_.value_or(has_plastic))
                return "expected plastic_strain as in the other pieces";
            has_plastic_ = has_plastic;
            if (!plastic) plastic.emplace(piece.points(), 0.0);
            values_[f].push_back({std::move(*u), std::move(*stress), std::move(*strain), std::move(*mises),
                                  std::move(*plastic)});
        }
        return {};
    }

    // Per node of a piece.
    struct NodeValues {
        std::vector<double> u, stress, strain, mises, plastic;
    };

    // The fields on the nodes of the mesh.
    void spread() {
        const std::size_t dofs = run_.mesh.dof_num();
        for (std::size_t f = 0; f < frames_.size(); ++f) {
            Frame& frame = *frames_[f];
            frame.mode_vec.assign(dofs, 0.0);
            frame.node_stress.assign(stress_groups * dofs, 0.0);
            auto here = here_.begin();
            for (const NodeValues& from : values_[f])
                for (std::size_t k = 0; k < from.mises.size(); ++k) {
                    const std::size_t d = 3 * std::size_t(*here++);
                    std::copy_n(&from.u[3 * k], 3, &frame.mode_vec[d]);
                    for (std::size_t g = 0; g < 2; ++g) {
                        std::copy_n(&from.stress[6 * k + 3 * g], 3, &frame.node_stress[g * dofs + d]);
                        std::copy_n(&from.strain[6 * k + 3 * g], 3, &frame.node_stress[(2 + g) * dofs + d]);
                    }
                    frame.node_stress[4 * dofs + d] = from.mises[k];
                    frame.node_stress[4 * dofs + d + 1] = from.plastic[k];
                    double principal[3];
                    symmetric_eigen3(&from.stress[6 * k], principal, nullptr);
                    frame.node_stress[4 * dofs + d + 2] = *std::ranges::max_element(principal);
                }
            values_[f] = {};
        }
    }

    Run& run_;
    Model& model_;
    // per node of all pieces: its number, from 1, its place (× 3) and, at the end, its node in the mesh
    std::vector<std::int32_t> node_;
    std::vector<double> places_;
    std::vector<std::int32_t> here_;
    std::int32_t parts_ = 0;
    AnalysisType type_ = AnalysisType::linear_static;
    std::vector<std::string> suffixes_;
    std::optional<bool> has_plastic_;  // the pieces tell the plastic strain; not known before the first
    std::vector<std::shared_ptr<Frame>> frames_;
    std::vector<std::vector<NodeValues>> values_;  // per frame, piece by piece
    // of the first frame's pieces
    std::vector<std::size_t> first_node_{0};      // in node_, and their number
    std::vector<std::int32_t> first_element_{0};  // and the number of elements
    // of the frame under way
    std::size_t later_ = 0;  // pieces
    std::vector<std::int32_t> removed_;
};

// What a list names lies beside it or below.
bool is_below(std::string_view source) {
    constexpr std::size_t most = 255;  // of a name that a message may hold
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' '; };
    if (source.size() > most || std::ranges::any_of(source, is_control)) return false;
    const std::filesystem::path way = std::filesystem::path(paths::to_platform(source)).lexically_normal();
    return way.has_filename() && way.is_relative() && way != "." && *way.begin() != "..";
}

// What is said of the name where it does not.
std::string not_below(const std::string& what, std::string_view source) {
    std::string shown(source.substr(0, 60));
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < ' ') c = '?';
    return "expected a " + what + " that lies beside it, not '" + shown + "'";
}

// Reads lists and their pieces; the first fault is told and ends it.
class ListReader {
public:
    ListReader(StoredRun& stored, std::string_view log_folder, Progress& progress)
        : reader_(stored), log_folder_(log_folder), progress_(progress) {}

    // The pieces of one list, on the mesh that stands or as the first ones.
    bool read_pieces_list(const std::string& name, bool first) {
        std::string list;
        FrameTag tag;
        if (!open(name, list)) return false;
        const auto grids = elements_named(list, "PUnstructuredGrid"), pieces = elements_named(list, "Piece");
        if (grids.empty() || pieces.empty() || list.find("</PUnstructuredGrid>") == std::string::npos)
            return refuse(name, "expected a list of pieces of an unstructured grid");
        if (std::string why = read_tag(grids.front(), tag); !why.empty()) return refuse(name, why);
        std::set<std::filesystem::path> met;
        for (const std::string_view piece : pieces) {
            const std::string source = xml_unescaped(attribute(piece, "Source"));
            if (!is_below(source)) return refuse(name, not_below("piece", source));
            if (!met.insert(std::filesystem::path(paths::to_platform(source)).lexically_normal()).second)
                return refuse(name, "expected each piece once, not " + source + " again");
            const std::string file = beside(name, source);
            PieceFile one;
            std::string why = one.open(file, log_folder_);
            if (why.empty()) why = first ? reader_.add(one) : reader_.add_later(one);
            if (!why.empty()) return refuse(file, why);
            if (progress_.cancelled()) return refuse(name, "stopped on request");
        }
        const std::string why = first ? reader_.finish(tag) : reader_.finish_later(tag);
        return why.empty() || refuse(name, why);
    }

    // The frames of a history.
    bool read_series(const std::string& name) {
        std::string list;
        if (!open(name, list)) return false;
        const auto frames = elements_named(list, "DataSet");
        if (list.find("<Collection>") == std::string::npos ||
            list.find("</Collection>") == std::string::npos || frames.empty())
            return refuse(name, "expected a list of frames");
        for (std::size_t k = 0; k < frames.size(); ++k) {
            const std::string source = xml_unescaped(attribute(frames[k], "file"));
            if (!is_below(source)) return refuse(name, not_below("frame", source));
            const std::string file = beside(name, source);
            if (!file.ends_with(list_ending))
                return refuse(name, "expected lists of pieces (.pvtu) as frames, got '" + file +
                                        "': a run of one process has a result file");
            if (!read_pieces_list(file, k == 0)) return false;
        }
        return true;
    }

private:
    bool refuse(const std::string& file, const std::string& why) {
        progress_.error("%s: %s", file.c_str(), why.c_str());
        return false;
    }
    bool open(const std::string& name, std::string& text) {
        std::string error;
        return paths::read_text(name, text, error, log_folder_) || refuse(name, error);
    }
    static std::string beside(const std::string& list, std::string_view name) {
        return paths::directory_of(list) + std::string(name);
    }
    static std::string read_tag(std::string_view grid, FrameTag& tag) {
        const std::string_view analysis = attribute(grid, "analysis");
        if (analysis.empty()) return {};
        const auto value = parse_double(attribute(grid, "value"));
        if ((analysis != "nonlinear" && analysis != "explicit") || !value || !std::isfinite(*value))
            return "expected the analysis nonlinear or explicit and the value of its frame";
        tag.type = analysis == "nonlinear" ? AnalysisType::nonlinear_static : AnalysisType::explicit_dynamics;
        tag.value = *value;
        return {};
    }

    PiecesReader reader_;
    const std::string log_folder_;
    Progress& progress_;
};

}  // namespace

bool is_pieces_list(std::string_view file_name) {
    return file_name.ends_with(list_ending) || file_name.ends_with(series_ending);
}

std::optional<StoredRun> read_pieces(std::string_view file_name, std::string_view log_folder,
                                     Progress& progress) {
    const std::string name(file_name);
    StoredRun stored;
    stored.model.model_file_name.clear();
    stored.model.source = ModelSource::displacement_file;
    stored.run.origin.file_name = name;
    ListReader reader(stored, log_folder, progress);
    if (!(name.ends_with(series_ending) ? reader.read_series(name) : reader.read_pieces_list(name, true)))
        return std::nullopt;
    return stored;
}

}  // namespace kestralum
