#include "large/piece_files.h"

#include <algorithm>

namespace kestralum {

CountedPiece counted_piece(const Job& job, const Piece& piece) {
    CountedPiece out;
    std::vector<std::int32_t> number(piece.nodes.size(), -1);
    for (std::int32_t e = 0; e < piece.mesh.element_num(); ++e)
        for (const std::int32_t node : piece.mesh.element(e))
            if (piece.counted[e]) number[node_index(node)] = 0;
    for (std::size_t n = 0; n < number.size(); ++n)
        if (number[n] == 0) {
            number[n] = static_cast<std::int32_t>(out.nodes.size()) + 1;
            out.nodes.push_back(static_cast<std::int32_t>(n));
            out.node.push_back(piece.nodes[n] + 1);
        }
    Mesh& mesh = out.run.mesh;
    mesh.element_type = piece.mesh.element_type;
    for (const std::int32_t n : out.nodes)
        mesh.coordinates.insert(mesh.coordinates.end(), piece.mesh.node(n), piece.mesh.node(n) + 3);
    for (std::int32_t e = 0; e < piece.mesh.element_num(); ++e) {
        if (!piece.counted[e]) continue;
        for (const std::int32_t node : piece.mesh.element(e))
            mesh.connectivity.push_back(number[node_index(node)]);
        mesh.p_ele_part_id.push_back(piece.mesh.p_ele_part_id[e]);
    }
    out.run.ana_type = job.run.ana_type;
    out.run.origin = job.run.origin;
    return out;
}

Frame& CountedPiece::add_frame(std::span<const double> u, std::span<const double> nodal) {
    const auto frame = std::make_shared<Frame>(run.mesh.dof_num());
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        std::copy_n(&u[3 * nodes[n]], 3, &frame->mode_vec[3 * n]);
        for (std::size_t g = 0; g < stress_groups; ++g)
            std::copy_n(&nodal[g * u.size() + 3 * nodes[n]], 3,
                        &frame->node_stress[g * frame->mode_vec.size() + 3 * n]);
    }
    run.results.push_back(frame);
    return *frame;
}

bool write_pieces(const Team& team, Job& job, const CountedPiece& own) {
    const VtuPiece of{job.model, own.run, own.node};
    HeldFile file;
    const auto told = [&](const std::string& fault) { return fault.empty() || job.fail_to_write(fault); };
    return team.stage(job, [&] { return told(hold_vtu_piece(of, team.rank(), job.progress, file)); }) &&
           team.conclude(job, [&] { return told(file.take_name()); }) && team.conclude(job, [&] {
               return !team.first() || told(write_pvtu(of, team.size(), job.progress));
           });
}

PieceFrames::PieceFrames(const Team& team, Job& job, const Piece& piece)
    : team_(team),
      job_(job),
      own_(counted_piece(job, piece)),
      files_({job.model, own_.run, own_.node}, team.rank()) {}

std::string PieceFrames::add(double value, std::span<const double> u, std::span<const double> nodal,
                             std::span<const std::int32_t> removed) {
    const SilentProgress whole;  // a frame is written whole, whatever is asked meanwhile
    HeldFile file;
    Frame& frame = own_.add_frame(u, nodal);
    frame.n_freq = value;
    frame.removed.assign(removed.begin(), removed.end());
    std::string trouble = team_.first_text(files_.hold(frame, whole, file));
    own_.run.results.clear();
    if (trouble.empty()) trouble = team_.first_text(file.take_name());
    if (trouble.empty())
        trouble = team_.first_text(team_.first() ? files_.write_lists(team_.size(), whole) : std::string());
    if (trouble.empty()) ++job_.report().listed_frames;
    return trouble;
}

}  // namespace kestralum
