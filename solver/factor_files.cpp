#include "solver/factor_files.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "model/format.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace fs = std::filesystem;

namespace {

struct DivisionName {
    std::string stem;
    std::int32_t division;
};

// "<stem>_<division>.txt" taken apart; nothing for other names.
std::optional<DivisionName> division_of(std::string_view name) {
    constexpr std::string_view tail = ".txt";
    const std::size_t bar = name.rfind('_');
    if (bar == name.npos || !name.ends_with(tail)) return {};
    const auto division = parse_int32(name.substr(bar + 1, name.size() - bar - 1 - tail.size()));
    if (!division || *division < 0) return {};
    return DivisionName{std::string(name.substr(0, bar)), *division};
}

std::vector<fs::path> files_in(std::string_view log_folder) {
    std::vector<fs::path> out;
    std::error_code ignored;
    for (fs::directory_iterator at(paths::to_platform(log_folder), ignored), end; at != end;
         at.increment(ignored))
        out.push_back(at->path());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

FactorFiles::FactorFiles(std::string_view log_folder, std::string_view stem, const Profile& profile,
                         const Divisions& divisions, std::int64_t direct_bytes)
    : log_folder_(log_folder),
      stem_(stem),
      profile_(profile),
      divisions_(divisions),
      direct_bytes_(direct_bytes),
      open_(divisions.count(), -1),
      direct_(open_) {}

FactorFiles::~FactorFiles() {
    close_all();
}

std::string FactorFiles::stored_name(std::int32_t division) const {
    return formatted("log\\%s_%d.txt", stem_.c_str(), division);
}

void FactorFiles::print_spill(std::int32_t division, std::int32_t i, Progress& progress) const {
    const std::size_t b = division;
    const std::size_t count = divisions_.count();
    const auto& start = divisions_.div_profile;
    const std::int64_t kept = profile_.sky_start[i] - start[b + 1];
    const std::int64_t room = b + 1 < count ? start[std::min(b + 3, count)] - start[b + 1] : 0;
    progress.print("    %s, n=%lld,", stored_name(division).c_str(),
                   static_cast<long long>(start[b + 1] - start[b]));
    progress.print(" n2=%lld,", static_cast<long long>(kept));
    progress.print(" n=%lld\n", static_cast<long long>(room));
}

std::string FactorFiles::error() const {
    std::lock_guard hold(lock_);
    return error_;
}

void FactorFiles::remove_old() {
    close_all();  // open for reading since the last factor
    error_.clear();
    failed_ = false;
    std::vector<fs::path> old;
    for (const fs::path& path : files_in(log_folder_)) {
        const auto name = division_of(path.filename().string());
        if (name && name->stem == stem_ && name->division >= divisions_.count()) old.push_back(path);
    }
    std::error_code ignored;
    for (const fs::path& path : old) fs::remove(path, ignored);
}

void FactorFiles::fail(std::int32_t division, const char* what) {
    const char* reason = std::strerror(errno);
    std::lock_guard hold(lock_);
    if (error_.empty())
        error_ = paths::to_platform(stored_name(division), log_folder_) + ": " + what + ": " + reason;
    failed_ = true;
}

// Brings the file to its division's size (an earlier run's file is written over) and reserves its blocks,
// so that a full disk shows before the work is done. errno on failure.
bool FactorFiles::set_size(int file, std::int32_t division) const {
    const std::size_t b = division;
    const std::int64_t bytes = 8 * (divisions_.div_profile[b + 1] - divisions_.div_profile[b]);
    if (::ftruncate(file, bytes) != 0) return false;
    if (bytes < direct_bytes_) return true;
    return ::fallocate(file, 0, 0, bytes) == 0 || errno == EOPNOTSUPP;
}

int FactorFiles::descriptor(std::int32_t division, bool writing) {
    const std::size_t b = division;
    std::unique_lock hold(lock_);
    if (open_[b] < 0) {
        const std::string name = paths::to_platform(stored_name(division), log_folder_);
        open_[b] = ::open(name.c_str(), (writing ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC, 0666);
        if (writing && open_[b] >= 0 && !set_size(open_[b], division)) {
            const int reason = errno;
            ::close(open_[b]);
            open_[b] = -1;
            errno = reason;
        }
        const std::int64_t bytes = 8 * (divisions_.div_profile[b + 1] - divisions_.div_profile[b]);
        if (writing && open_[b] >= 0 && bytes >= direct_bytes_)
            direct_[b] = ::open(name.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC);
    }
    return open_[b];
}

void FactorFiles::close(std::int32_t division) {
    std::unique_lock hold(lock_);
    int& descriptor = open_[division];
    int& direct = direct_[division];
    if (descriptor < 0) return;
    bool closed = direct < 0 || ::close(direct) == 0;
    closed = ::close(descriptor) == 0 && closed;
    descriptor = direct = -1;
    hold.unlock();
    if (!closed) fail(division, "cannot be closed");
}

void FactorFiles::close_all() {
    for (std::int32_t b = 0; b < divisions_.count(); ++b) close(b);
}

bool FactorFiles::write_direct(int direct, std::int32_t division, std::int32_t first, std::int32_t last,
                               const double* const* rows) {
    const std::size_t b = division;
    const std::int64_t offset = 8 * (profile_.sky_start[first] - divisions_.div_profile[b]);
    if (stream_ && (stream_division_ != division || stream_->position() != offset) && !flush()) return false;
    if (!stream_) stream_.emplace(direct, open_[b], offset);
    stream_division_ = division;
    for (std::int32_t k = first; k < last; ++k)
        if (!stream_->put(rows[k - first], static_cast<std::size_t>(profile_.height[k]) * sizeof(double))) {
            stream_.reset();
            fail(division, "cannot be written");
            return false;
        }
    return true;
}

bool FactorFiles::flush() {
    const bool written = !stream_ || stream_->finish();
    stream_.reset();
    if (!written) fail(stream_division_, "cannot be written");
    return written;
}

// Moves rows division by division, a batch of rows per call of the system.
bool FactorFiles::transfer(std::int32_t first, std::int32_t last, const double* const* rows, bool writing) {
    std::array<iovec, 512> pieces;
    for (std::int32_t i = first; i < last;) {
        const auto after = std::upper_bound(divisions_.div_row.begin(), divisions_.div_row.end() - 1, i);
        const auto division = static_cast<std::int32_t>(after - divisions_.div_row.begin()) - 1;
        const std::int32_t stop =
            std::min({last, divisions_.div_row[division + 1], i + static_cast<std::int32_t>(pieces.size())});
        const int file = descriptor(division, writing);
        if (file < 0) {
            fail(division, "cannot be opened");
            return false;
        }
        const int direct = writing ? direct_[division] : -1;
        if (direct >= 0) {
            if (!write_direct(direct, division, i, stop, rows + (i - first))) return false;
            i = stop;
            continue;
        }
        std::int64_t bytes = 0;
        for (std::int32_t k = i; k < stop; ++k) {
            iovec& piece = pieces[k - i];
            piece.iov_base = const_cast<double*>(rows[k - first]);
            piece.iov_len = static_cast<std::size_t>(profile_.height[k]) * sizeof(double);
            bytes += static_cast<std::int64_t>(piece.iov_len);
        }
        std::int64_t offset = 8 * (profile_.sky_start[i] - divisions_.div_profile[division]);
        iovec* piece = pieces.data();
        int count = stop - i;
        while (bytes > 0) {
            const ssize_t moved =
                writing ? ::pwritev(file, piece, count, offset) : ::preadv(file, piece, count, offset);
            if (moved < 0 && errno == EINTR) continue;
            if (moved <= 0) {
                if (moved == 0) errno = EIO;
                fail(division, writing ? "cannot be written" : "cannot be read");
                return false;
            }
            bytes -= moved;
            offset += moved;
            for (auto left = static_cast<std::size_t>(moved); left > 0;) {  // past what was moved
                const std::size_t step = std::min(left, piece->iov_len);
                piece->iov_base = static_cast<char*>(piece->iov_base) + step;
                piece->iov_len -= step;
                left -= step;
                if (piece->iov_len == 0) {
                    ++piece;
                    --count;
                }
            }
        }
        i = stop;
    }
    return true;
}

bool FactorFiles::write_rows(std::int32_t first, std::int32_t last, const double* const* rows) {
    return transfer(first, last, rows, true);
}

bool FactorFiles::read_rows(std::int32_t first, std::int32_t last, double* const* rows) {
    return transfer(first, last, rows, false);
}

FactorFileList list_factor_files(std::string_view log_folder) {
    FactorFileList list;
    for (const fs::path& path : files_in(log_folder)) {
        std::error_code missing;
        const auto name = division_of(path.filename().string());
        if (!name || (name->stem != stiffness_stem && name->stem != mass_stem && name->stem != fronts_stem))
            continue;
        const auto bytes = fs::file_size(path, missing);
        if (missing) continue;
        list.names.push_back(path.string());
        list.megabytes += static_cast<double>(bytes) / 1e6;
    }
    return list;
}

FactorFileList remove_factor_files(std::string_view log_folder, std::string_view stem) {
    FactorFileList removed;
    for (const std::string& name : list_factor_files(log_folder).names) {
        std::error_code failed;
        if (!fs::path(name).filename().string().starts_with(stem)) continue;
        const auto bytes = fs::file_size(name, failed);
        if (!fs::remove(name, failed) || failed) continue;
        removed.names.push_back(name);
        removed.megabytes += static_cast<double>(bytes) / 1e6;
    }
    return removed;
}

}  // namespace kestralum
