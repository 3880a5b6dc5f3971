#include "solver/block_pattern.h"

namespace kestralum {

ColumnLists list_columns(const BlockPattern& pattern) {
    ColumnLists out;
    out.start.assign(std::size_t(pattern.columns) + 1, 0);
    for (const std::int32_t c : pattern.col) ++out.start[c + 1];
    for (std::int32_t c = 0; c < pattern.columns; ++c) out.start[c + 1] += out.start[c];
    out.row.resize(pattern.col.size());
    out.entry.resize(pattern.col.size());
    std::vector<std::int64_t> next(out.start.begin(), out.start.end() - 1);
    for (std::int32_t i = 0; i < pattern.rows(); ++i)
        for (std::int64_t q = pattern.start[i]; q < pattern.start[i + 1]; ++q) {
            const std::int64_t k = next[pattern.col[q]]++;
            out.row[k] = i;
            out.entry[k] = q;
        }
    return out;
}

}  // namespace kestralum
