#include "results/pieces_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "model/format.h"
#include "model/paths.h"
#include "model/symmetric3.h"
#include "model/token_reader.h"
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

// The elements of a name in a text of XML, "<NAME ...>".
std::vector<std::string_view> elements_named(std::string_view text, std::string_view name) {
    std::vector<std::string_view> out;
    const std::string head = "<" + std::string(name) + " ";
    for (std::size_t at = text.find(head); at != std::string_view::npos; at = text.find(head, at + 1))
        out.push_back(text.substr(at, text.find('>', at) - at));
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
    const std::size_t at = suffix.starts_with("_mode") ? suffix.find('_', 1) : std::string_view::npos;
    if (at == std::string_view::npos) {
        frame.name = suffix.starts_with('_') ? suffix.substr(1) : suffix;
        return;
    }
    std::string_view value = suffix.substr(at + 1);
    type = value.starts_with("factor") ? AnalysisType::buckling : AnalysisType::eigen;
    if (value.starts_with("factor")) value.remove_prefix(6);
    if (value.ends_with("Hz")) value.remove_suffix(2);
    frame.n_freq = parse_double(value).value_or(0);
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
        const auto node = piece.read<std::int32_t>("node", "Int32", piece.points());
        const auto places = piece.read<double>("Points", "Float64", 3 * piece.points());
        if (!node || !places) return "expected numbers and places of the nodes";
        constexpr std::int64_t most_gaps =
            64;  // times as many nodes as are here: numbers are those of one mesh
        for (const std::int32_t n : *node)
            if (n < 1 || n > most_gaps * (piece.points() + std::int64_t(known_.size()) + 1'000'000))
                return "expected node numbers from 1";
        if (std::ranges::any_of(*places, [](double x) { return !std::isfinite(x); }))
            return "expected finite coordinates";
        for (std::size_t k = 0; k < node->size(); ++k) place_node((*node)[k] - 1, &(*places)[3 * k]);
        nodes_.push_back(*node);
        if (std::string why = add_cells(piece, *node); !why.empty()) return why;
        return add_fields(piece, *node);
    }

    // The frames of the pieces so far. Why they are not whole; empty if they are.
    std::string finish(const FrameTag& tag) {
        Mesh& mesh = run_.mesh;
        if (mesh.connectivity.empty()) return "expected an element";
        if (tag.type && !is_one_frame()) return one_frame;
        leave_out_unknown();
        mesh.node_n_dir.assign(mesh.coordinates.size(), 0.0);
        update_extent(mesh);
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
        const std::size_t p = values_.empty() ? 0 : values_.front().size();
        if (p == nodes_.size() || piece.read<std::int32_t>("node", "Int32", piece.points()) != nodes_[p])
            return "expected the nodes of the first frame's piece";
        if (std::string why = find_removed(piece, p); !why.empty()) return why;
        return add_fields(piece, nodes_[p]);
    }
    std::string finish_later(const FrameTag& tag) {
        if (values_.empty() || values_.front().size() != nodes_.size())
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
                       number_[nodes_[p][n] - 1] == static_cast<std::int32_t>(node_index(nodes[order[k]]));
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

    // Nodes on no element are in no piece: the others get the numbers without gaps, in the same order.
    void leave_out_unknown() {
        Mesh& mesh = run_.mesh;
        number_.assign(known_.size(), -1);
        std::int32_t count = 0;
        for (std::size_t n = 0; n < known_.size(); ++n) {
            if (!known_[n]) continue;
            std::copy_n(&mesh.coordinates[3 * n], 3, &mesh.coordinates[3 * std::size_t(count)]);
            number_[n] = count++;
        }
        mesh.coordinates.resize(3 * std::size_t(count));
        for (std::int32_t& node : mesh.connectivity) node = number_[node - 1] + 1;
    }

    void place_node(std::int32_t n, const double* x) {
        Mesh& mesh = run_.mesh;
        if (std::size_t(n) >= known_.size()) {
            known_.resize(n + 1, 0);
            mesh.coordinates.resize(3 * known_.size(), 0.0);
        }
        known_[n] = 1;
        std::copy_n(x, 3, &mesh.coordinates[3 * std::size_t(n)]);
    }

    std::string add_cells(const PieceFile& piece, const std::vector<std::int32_t>& node) {
        const auto types = piece.read<std::uint8_t>("types", "UInt8", piece.cells());
        const auto part = piece.read<std::int32_t>("part", "Int32", piece.cells());
        if (!types || !part) return "expected types and parts of the cells";
        first_element_.push_back(first_element_.back() + static_cast<std::int32_t>(piece.cells()));
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
                to[first + order[k]] = node[n];
            }
            const std::int32_t p = (*part)[c];
            if (p < 0 || p > 1'000'000) return "expected part numbers";
            run_.mesh.p_ele_part_id.push_back(p);
            parts_ = std::max(parts_, p + 1);
        }
        return {};
    }

    // The frames are those of the first piece, in its order.
    std::string add_fields(const PieceFile& piece, const std::vector<std::int32_t>& node) {
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
            const auto u = piece.read<double>("displacement" + suffixes[f], "Float64", 3 * piece.points()),
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
            values_[f].push_back({node, std::move(*u), std::move(*stress), std::move(*strain),
                                  std::move(*mises), std::move(*plastic)});
        }
        return {};
    }

    struct NodeValues {
        std::vector<std::int32_t> node;
        std::vector<double> u, stress, strain, mises, plastic;
    };

    // The fields on the nodes of the mesh.
    void spread() {
        const std::size_t dofs = run_.mesh.dof_num();
        for (std::size_t f = 0; f < frames_.size(); ++f) {
            Frame& frame = *frames_[f];
            frame.mode_vec.assign(dofs, 0.0);
            frame.node_stress.assign(stress_groups * dofs, 0.0);
            for (const NodeValues& from : values_[f])
                for (std::size_t k = 0; k < from.node.size(); ++k) {
                    const std::size_t d = 3 * std::size_t(number_[from.node[k] - 1]);
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
            values_[f].clear();
        }
    }

    Run& run_;
    Model& model_;
    std::vector<char> known_;           // per node, as the pieces number them
    std::vector<std::int32_t> number_;  // of these: in the mesh, -1: in no piece
    std::int32_t parts_ = 0;
    AnalysisType type_ = AnalysisType::linear_static;
    std::vector<std::string> suffixes_;
    std::optional<bool> has_plastic_;  // the pieces tell the plastic strain; not known before the first
    std::vector<std::shared_ptr<Frame>> frames_;
    std::vector<std::vector<NodeValues>> values_;  // per frame, piece by piece
    // of the first frame's pieces
    std::vector<std::vector<std::int32_t>> nodes_;  // as the file numbers them, from 1
    std::vector<std::int32_t> first_element_{0};    // and the number of elements
    std::vector<std::int32_t> removed_;             // in the frame under way
};

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
        if (grids.empty() || pieces.empty())
            return refuse(name, "expected a list of pieces of an unstructured grid");
        if (std::string why = read_tag(grids.front(), tag); !why.empty()) return refuse(name, why);
        for (const std::string_view piece : pieces) {
            const std::string file = beside(name, attribute(piece, "Source"));
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
        if (list.find("<Collection>") == std::string::npos || frames.empty())
            return refuse(name, "expected a list of frames");
        for (std::size_t k = 0; k < frames.size(); ++k) {
            const std::string file = beside(name, attribute(frames[k], "file"));
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
