#include "analysis/eigen/mass_factor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <system_error>

namespace kestralum {

MassFactor::MassFactor(const NodeMass& mass, Profile profile, Divisions divisions,
                       const FactorOptions& options)
    : mass_(mass),
      profile_(std::move(profile)),
      divisions_(std::move(divisions)),
      options_(options),
      places_(profile_.rows()),
      files_(options.log_folder, mass_stem, profile_, divisions_,
             divisions_.count() > 1 ? std::numeric_limits<std::int64_t>::max() : options.direct_bytes) {
    options_.diag_num = std::max(options_.diag_num, profile_.max_height);
    for (std::int32_t d = 0; d < 3; ++d) {
        std::vector<std::int32_t> nodes = mass.free_in(d);
        const auto same =
            std::find_if(parts_.begin(), parts_.end(), [&](const Part& part) { return part.nodes == nodes; });
        part_of_[d] = static_cast<std::int32_t>(same - parts_.begin());
        for (std::size_t k = 0; k < nodes.size(); ++k)
            places_[mass.row(nodes[k], d)] = {part_of_[d], static_cast<std::int32_t>(k), d};
        if (same != parts_.end()) continue;
        Part part{std::move(nodes), {}, nullptr};
        part.matrix = mass.among(part.nodes);
        parts_.push_back(std::move(part));
    }
}

MassFactor::~MassFactor() = default;

double MassFactor::megabytes() const {
    double sum = 0;
    for (const Part& part : parts_) sum += panel_megabytes(make_profile(part.matrix), options_.threads);
    return sum;
}

double MassFactor::diagonal(std::int32_t i) const {
    const SparseKM& matrix = parts_[places_[i].part].matrix;
    return matrix.M_value[matrix.diag_pos[places_[i].row]];
}

FactorStatus MassFactor::factor(Progress& progress) {
    progress.print("my_WWsky_HD_Msky\n");
    progress.print("  WW M_sparse\n");
    progress.print("    Ws_num=%lld\n", static_cast<long long>(profile_.Ls_num));
    files_.remove_old();
    SilentProgress silent(progress);  // the lines are those of the rows of [M]
    FactorOptions options{.threads = options_.threads, .write_files = false};
    for (Part& part : parts_) {
        if (part.nodes.empty()) continue;
        Profile profile = make_profile(part.matrix);
        Divisions whole{{0, profile.Ls_num}, {0, profile.rows()}};
        part.W = std::make_unique<SkylineFactor>(std::move(profile), std::move(whole), options);
        const FactorStatus status = part.W->factor_ww(part.matrix, part.matrix.M_value, silent);
        error_ = part.W->error();
        if (status != FactorStatus::ok) return status;
    }
    const std::size_t longest = profile_.max_height;
    expanded_.resize(longest * FactorWriter::most_rows);
    row_.resize(longest);
    const auto rows_of_w = [this](std::int32_t first, std::int32_t last, const double** rows) {
        expand(first, last, rows);
    };
    try {
        writer_ = std::make_unique<FactorWriter>(files_, profile_.rows(), rows_of_w,
                                                 options_.write_behind ? *options_.write_behind : progress);
    } catch (const std::system_error&) {  // no memory for a thread
        error_ = "not enough memory for the factor";
        return FactorStatus::out_of_memory;
    }
    writer_->publish(profile_.rows());
    if (!print_rows(progress)) return FactorStatus::cancelled;
    if (!options_.write_behind)
        if (const FactorStatus status = await_files(); status != FactorStatus::ok) return status;
    progress.print("   WW M_sparse complete\n");
    check_rows(progress);
    return FactorStatus::ok;
}

// False: stopped.
bool MassFactor::print_rows(Progress& progress) const {
    const std::int32_t n = profile_.rows();
    std::int32_t division = 0;
    for (std::int32_t i = 0; i < n; ++i) {
        if (i % 1024 == 0 && progress.cancelled()) return false;
        if (progress.lines_wanted()) progress.print("  %d/%d: Mii=%.3e\r", i, n, diagonal(i));
        if (division + 1 < divisions_.count() && i == divisions_.div_row[division + 1] + options_.diag_num)
            files_.print_spill(division++, i, progress);
        const double v = parts_[places_[i].part].W->D()[places_[i].row];
        if (v < 0.0) print_negative_mass(i, v, diagonal(i), progress);
    }
    while (division < divisions_.count()) files_.print_spill(division++, n, progress);
    return true;
}

// m_ii = Σ w_ij² must have come out.
void MassFactor::check_rows(Progress& progress) {
    std::vector<std::vector<double>> left;  // parts, rows
    std::vector<double> w(profile_.max_height);
    for (const Part& part : parts_) {
        std::vector<double>& of_part = left.emplace_back(part.nodes.size());
        for (std::size_t r = 0; r < of_part.size(); ++r) {
            const auto row = static_cast<std::int32_t>(r);
            part.W->read_row(row, w);
            of_part[r] = part.matrix.M_value[part.matrix.diag_pos[r]];
            for (std::int32_t j = 0; j < part.W->profile().height[r]; ++j) of_part[r] -= w[j] * w[j];
        }
    }
    for (std::int32_t i = 0; i < profile_.rows(); ++i)
        if (std::abs(left[places_[i].part][places_[i].row]) >= w_tolerance) print_unsound_mass(i, progress);
}

void MassFactor::expand(std::int32_t first, std::int32_t last, const double** rows) {
    std::fill(expanded_.begin(), expanded_.end(), 0.0);
    double* to = expanded_.data();
    for (std::int32_t i = first; i < last; ++i, to += profile_.max_height) {
        const Place& place = places_[i];
        const Part& part = parts_[place.part];
        const Profile& profile = part.W->profile();
        part.W->read_row(place.row, row_);
        const std::int32_t from = profile.first_column(place.row), from_column = profile_.first_column(i);
        for (std::int32_t j = from; j <= place.row; ++j)
            to[mass_.row(part.nodes[j], place.direction) - from_column] = row_[j - from];
        rows[i - first] = to;
    }
}

bool MassFactor::solve_wt(std::span<double> x) {
    for (std::int32_t d = 0; d < 3; ++d) {
        const Part& part = parts_[part_of_[d]];
        std::vector<double> y;
        for (const std::int32_t node : part.nodes) y.push_back(x[mass_.row(node, d)]);
        if (y.empty()) continue;
        if (!part.W->solve_wt(y)) {
            error_ = part.W->error();
            return false;
        }
        for (std::size_t k = 0; k < y.size(); ++k) x[mass_.row(part.nodes[k], d)] = y[k];
    }
    return true;
}

FactorStatus MassFactor::await_files() {
    if (!writer_) return FactorStatus::ok;
    const FactorStatus status = writer_->finish();
    writer_.reset();
    if (status == FactorStatus::file_failed) error_ = files_.error();
    if (status == FactorStatus::out_of_memory) error_ = "not enough memory for the factor";
    return status;
}

}  // namespace kestralum
