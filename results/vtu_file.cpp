#include "results/vtu_file.h"

#include <cstdio>
#include <span>
#include <utility>
#include <vector>

#include "model/format.h"
#include "model/paths.h"
#include "model/xml_text.h"
#include "results/text_output.h"
#include "results/vtu_grid.h"

namespace kestralum {

namespace {

// Six components per node from two groups of three of a frame's stresses.
std::vector<double> six_components(const Frame& frame, int first_group) {
    const std::size_t dofs = frame.mode_vec.size();
    const double* group = frame.node_stress.data() + first_group * dofs;
    std::vector<double> out(2 * dofs);
    for (std::size_t n = 0; n < dofs / 3; ++n)
        for (std::size_t c = 0; c < 3; ++c) {
            out[6 * n + c] = group[3 * n + c];
            out[6 * n + 3 + c] = group[dofs + 3 * n + c];
        }
    return out;
}

// One component per node of the last group: 0 Mises stress, 1 equivalent plastic strain.
std::vector<double> scalar(const Frame& frame, int component) {
    const std::size_t dofs = frame.mode_vec.size();
    std::vector<double> out(dofs / 3);
    for (std::size_t n = 0; n < out.size(); ++n) out[n] = frame.node_stress[4 * dofs + 3 * n + component];
    return out;
}

// The fields of one frame; `suffix` distinguishes it from the others.
void add_frame(const Frame& frame, const std::string& suffix, const PointFields& more,
               std::vector<VtuArray>& arrays) {
    const auto add = [&](const char* name, int components, std::span<const double> values) {
        arrays.push_back(make_vtu_array<double>("Float64", (name + suffix).c_str(), components, values));
    };
    add("displacement", 3, frame.mode_vec);
    add("stress", 6, six_components(frame, 0));
    add("strain", 6, six_components(frame, 2));
    add("mises", 1, scalar(frame, 0));
    if (!more) return;
    for (const PointField& field : more(frame)) add(field.name.c_str(), field.components, field.values);
}

// A static analysis has its result in frame 1, with load cases one in every frame; an eigen or buckling
// analysis has a shape in every frame. A piece without nodes has the arrays of the others.
std::vector<VtuArray> point_arrays(const Run& run, const PointFields& more) {
    std::vector<VtuArray> arrays;
    if (run.results.empty() || (run.results.front()->mode_vec.empty() && run.mesh.node_num() > 0))
        return arrays;
    if (!has_shapes(run.ana_type)) {
        const bool cases = run.results.size() > 1 && !run.results.front()->name.empty();
        if (!cases) add_frame(*run.results.front(), "", more, arrays);
        for (std::size_t k = 0; cases && k < run.results.size(); ++k)
            add_frame(*run.results[k], "_" + run.results[k]->name, more, arrays);
        return arrays;
    }
    const char* const name =
        run.ana_type == AnalysisType::eigen ? "_mode%03zu_%.6gHz" : "_mode%03zu_factor%.6g";
    for (std::size_t k = 0; k < run.results.size(); ++k)
        add_frame(*run.results[k], formatted(name, k + 1, run.results[k]->n_freq), more, arrays);
    return arrays;
}

// "log\\NAME" + ending.
std::string file_name_of(std::string_view model_file_name, const std::string& ending) {
    const std::string base = paths::base_name(model_file_name);
    return "log\\" + base.substr(0, base.rfind('.')) + ending;
}

// Whether a file was written; prints what went wrong.
bool told(const std::string& trouble, Progress& progress) {
    if (!trouble.empty()) progress.error("%s", trouble.c_str());
    return trouble.empty();
}

}  // namespace

std::string vtu_file_name(std::string_view model_file_name) {
    return file_name_of(model_file_name, ".vtu");
}

bool write_vtu(const Model& model, const Run& run, Progress& progress, const PointFields& more) {
    VtuGrid grid = make_vtu_grid(model, run.mesh);
    grid.point_data = point_arrays(run, more);
    return told(
        write_vtu_grid(grid, vtu_file_name(model.model_file_name), run.origin.options.log_folder, progress),
        progress);
}

std::string vtu_piece_name(std::string_view model_file_name, int piece) {
    return file_name_of(model_file_name, formatted("_p%04d.vtu", piece));
}

std::string pvtu_file_name(std::string_view model_file_name) {
    return file_name_of(model_file_name, ".pvtu");
}

namespace {

VtuGrid grid_of(const VtuPiece& of) {
    VtuGrid grid = make_vtu_grid(of.model, of.run.mesh);
    grid.point_data = point_arrays(of.run, {});
    grid.point_data.push_back(make_vtu_array<std::int32_t>("Int32", "node", 1, of.node));
    return grid;
}

}  // namespace

std::string hold_vtu_piece(const VtuPiece& of, int piece, const Progress& progress, HeldFile& file) {
    return hold_vtu_grid(grid_of(of), vtu_piece_name(of.model.model_file_name, piece),
                         of.run.origin.options.log_folder, progress, file);
}

namespace {

// The arrays of a section as the list of pieces names them.
std::string listed(const char* section, std::span<const VtuArray> arrays) {
    std::string out = formatted("<P%s>\n", section);
    for (const VtuArray& array : arrays) {
        constexpr std::string_view element = "<DataArray", format = " format=";
        const std::size_t from = array.header.find(element) + element.size();
        out += "<PDataArray" + array.header.substr(from, array.header.find(format) - from) + "/>\n";
    }
    return out + formatted("</P%s>\n", section);
}

// What a list of pieces is made of; attributes: further ones of the grid, behind a blank.
struct PieceList {
    std::string target, attributes;
    const VtuGrid& grid;
    std::vector<std::string> pieces;  // stored names
};

std::string write_piece_list(const PieceList& list, std::string_view log_folder, const Progress& progress) {
    const auto fill = [&](TextOutput& file) {
        file.write(
            "<?xml version=\"1.0\"?>\n<VTKFile type=\"PUnstructuredGrid\" version=\"1.0\" "
            "byte_order=\"LittleEndian\" header_type=\"UInt64\">\n<PUnstructuredGrid GhostLevel=\"0\"");
        file.write(list.attributes + ">\n");
        file.write(listed("PointData", list.grid.point_data));
        file.write(listed("CellData", list.grid.cell_data));
        file.write(listed("Points", list.grid.coordinates));
        for (const std::string& piece : list.pieces)
            file.write(formatted("<Piece Source=\"%s\"/>\n", xml_escaped(paths::base_name(piece)).c_str()));
        file.write("</PUnstructuredGrid>\n</VTKFile>\n");
    };
    return write_whole(list.target, log_folder, fill, progress);
}

}  // namespace

std::string write_pvtu(const VtuPiece& of, int pieces, const Progress& progress) {
    const VtuGrid grid = grid_of(of);
    const std::string& model = of.model.model_file_name;
    PieceList list{pvtu_file_name(model), "", grid, {}};
    for (int piece = 0; piece < pieces; ++piece) list.pieces.push_back(vtu_piece_name(model, piece));
    return write_piece_list(list, of.run.origin.options.log_folder, progress);
}

std::string pvd_file_name(std::string_view model_file_name) {
    return file_name_of(model_file_name, ".pvd");
}

VtuFrames::VtuFrames(const Model& model, const Run& run, PointFields more)
    : model_(model), run_(run), grid_(make_vtu_grid(model, run.mesh)), more_(std::move(more)) {}

namespace {

// The fields of a frame of a history.
void add_step(const Frame& frame, const PointFields& more, std::vector<VtuArray>& arrays) {
    add_frame(frame, "", more, arrays);
    arrays.push_back(make_vtu_array<double>("Float64", "plastic_strain", 1, scalar(frame, 1)));
}

std::string listed_frame(double value, const std::string& stored) {
    return formatted("<DataSet timestep=\"%.9e\" part=\"0\" file=\"%s\"/>\n", value,
                     xml_escaped(paths::base_name(stored)).c_str());
}

std::string frame_piece_name(const VtuPiece& of, std::size_t frame, int piece) {
    return file_name_of(of.model.model_file_name, formatted("_%06zu_p%04d.vtu", frame, piece));
}

std::string write_frame_list(const Model& model, const Run& run, const std::string& list,
                             const Progress& progress) {
    const auto fill = [&](TextOutput& file) {
        file.write("<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n");
        file.write(list);
        file.write("</Collection>\n</VTKFile>\n");
    };
    return write_whole(pvd_file_name(model.model_file_name), run.origin.options.log_folder, fill, progress);
}

}  // namespace

std::string VtuFrames::add(const Frame& frame, const Progress& progress) {
    const std::string target = file_name_of(model_.model_file_name, formatted("_%06zu.vtu", ++frames_));
    if (frame.removed != removed_) {
        removed_ = frame.removed;
        grid_ = make_vtu_grid(model_, run_.mesh, removed_);
    }
    std::vector<VtuArray>& arrays = grid_.point_data;
    arrays.clear();
    add_step(frame, more_, arrays);
    const std::string trouble = write_vtu_grid(grid_, target, run_.origin.options.log_folder, progress);
    list_ += listed_frame(frame.n_freq, target);
    return trouble;
}

std::string VtuFrames::write_list(const Progress& progress) const {
    return write_frame_list(model_, run_, list_, progress);
}

VtuPieceFrames::VtuPieceFrames(const VtuPiece& of, int piece)
    : of_(of), piece_(piece), grid_(make_vtu_grid(of.model, of.run.mesh)) {}

std::string VtuPieceFrames::hold(const Frame& frame, const Progress& progress, HeldFile& file) {
    ++frames_;
    value_ = frame.n_freq;
    if (frame.removed != removed_) {
        removed_ = frame.removed;
        grid_ = make_vtu_grid(of_.model, of_.run.mesh, removed_);
    }
    std::vector<VtuArray>& arrays = grid_.point_data;
    arrays.clear();
    add_step(frame, {}, arrays);
    arrays.push_back(make_vtu_array<std::int32_t>("Int32", "node", 1, of_.node));
    return hold_vtu_grid(grid_, frame_piece_name(of_, frames_, piece_), of_.run.origin.options.log_folder,
                         progress, file);
}

std::string VtuPieceFrames::write_lists(int pieces, const Progress& progress) {
    const char* const analysis =
        of_.run.ana_type == AnalysisType::nonlinear_static ? "nonlinear" : "explicit";
    PieceList list{file_name_of(of_.model.model_file_name, formatted("_%06zu.pvtu", frames_)),
                   formatted(" analysis=\"%s\" value=\"%.17g\"", analysis, value_),
                   grid_,
                   {}};
    for (int piece = 0; piece < pieces; ++piece) list.pieces.push_back(frame_piece_name(of_, frames_, piece));
    const std::string& folder = of_.run.origin.options.log_folder;
    if (frames_ == 1)  // that of an earlier run names these files
        std::remove(paths::to_platform(pvd_file_name(of_.model.model_file_name), folder).c_str());
    std::string trouble = write_piece_list(list, folder, progress);
    if (!trouble.empty()) return trouble;
    list_ += listed_frame(value_, list.target);
    return write_frame_list(of_.model, of_.run, list_, progress);
}

bool write_vtu_frames(const Model& model, const Run& run, Progress& progress, const PointFields& more) {
    const bool was_cancelled = progress.cancelled();
    const std::string& folder = run.origin.options.log_folder;
    // Each file sees a cancel while it is written; here is the place between two.
    const auto goes_on = [&](const std::string& target) {
        if (was_cancelled || !progress.cancelled()) return true;
        progress.error("%s cannot be written: stopped on request",
                       paths::to_platform(target, folder).c_str());
        return false;
    };
    VtuFrames frames(model, run, more);
    for (std::size_t k = 0; k < run.results.size(); ++k)
        if (!goes_on(file_name_of(model.model_file_name, formatted("_%06zu.vtu", k + 1))) ||
            !told(frames.add(*run.results[k], progress), progress))
            return false;
    return goes_on(pvd_file_name(model.model_file_name)) && told(frames.write_list(progress), progress);
}

}  // namespace kestralum
