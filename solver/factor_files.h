// The division files of a factor: raw doubles in machine byte order, row after row of the profile.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "solver/direct_stream.h"
#include "solver/profile.h"

namespace kestralum {

// Stems of the division files' names: L of [K] and W of [M].
inline constexpr const char* stiffness_stem = "Ltemp";
inline constexpr const char* mass_stem = "Wtemp";
// Of the one file of a multifrontal factor that does not fit in memory, "log\Stemp_0.txt".
inline constexpr const char* fronts_stem = "Stemp";

// Files "log\<stem>_%d.txt", one per division. Rows may be written in any order and from several
// threads; a failed operation is remembered and told by error().
class FactorFiles {
public:
    // Borrows both; they must outlive the object.
    // A division of `direct_bytes` or more is written past the page cache, for a factor that stays in
    // memory and is not read from its file.
    FactorFiles(std::string_view log_folder, std::string_view stem, const Profile& profile,
                const Divisions& divisions,
                std::int64_t direct_bytes = std::numeric_limits<std::int64_t>::max());
    ~FactorFiles();
    FactorFiles(const FactorFiles&) = delete;
    FactorFiles& operator=(const FactorFiles&) = delete;

    // Closes what is open, forgets failures and removes the stem's files of an earlier factor that this one
    // will not write: to be called before the first row is written.
    void remove_old();

    // Writes or reads the profile entries of rows [first, last): row i from or to rows[i - first],
    // height[i] doubles each.
    // Rows of a division written past the page cache are written by one thread, which calls flush() at the
    // end; rows that follow one another are gathered to large writes.
    bool write_rows(std::int32_t first, std::int32_t last, const double* const* rows);
    bool flush();
    bool read_rows(std::int32_t first, std::int32_t last, double* const* rows);

    // Closes a division that is complete; all of them.
    void close(std::int32_t division);
    void close_all();

    // The lines of a spilled division, when row i is the first that cannot reach back into it; at the end
    // (i = n) for what is left.
    void print_spill(std::int32_t division, std::int32_t i, Progress& progress) const;

    std::string stored_name(std::int32_t division) const;
    bool failed() const { return failed_.load(std::memory_order_relaxed); }
    std::string error() const;

private:
    int descriptor(std::int32_t division, bool writing);
    bool set_size(int file, std::int32_t division) const;
    bool write_direct(int direct, std::int32_t division, std::int32_t first, std::int32_t last,
                      const double* const* rows);
    bool transfer(std::int32_t first, std::int32_t last, const double* const* rows, bool writing);
    void fail(std::int32_t division, const char* what);

    std::string log_folder_, stem_;
    const Profile& profile_;
    const Divisions& divisions_;
    mutable std::mutex lock_;
    std::int64_t direct_bytes_;
    std::vector<int> open_;               // descriptor per division, -1 = closed
    std::optional<DirectStream> stream_;  // of the division that is being written past the page cache
    std::int32_t stream_division_ = 0;
    std::vector<int> direct_;  // of the same file, past the page cache, -1 = none
    std::atomic<bool> failed_{false};
    std::string error_;
};

// The division files of every factor, of this run or an earlier one, that lie in a log folder: names as the
// platform opens them, in order; megabytes: 10⁶ bytes, all together. A folder that is not there holds none.
struct FactorFileList {
    std::vector<std::string> names;
    double megabytes = 0;
};
FactorFileList list_factor_files(std::string_view log_folder);
// Removes them, or those of one stem; the list tells what was removed. One that cannot be removed stays,
// unlisted.
FactorFileList remove_factor_files(std::string_view log_folder, std::string_view stem = {});

}  // namespace kestralum
