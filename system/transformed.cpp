#include "system/transformed.h"

#include <algorithm>
#include <numeric>

namespace kestralum {

namespace {

using Term = ConstraintMap::Term;

// The columns of T: per degree of freedom the rows that it is in.
struct Columns {
    std::vector<std::int64_t> start;
    std::vector<Term> terms;

    std::span<const Term> of(std::int32_t dof) const {
        return {terms.data() + start[dof], terms.data() + start[dof + 1]};
    }
};

Columns columns_of(const ConstraintMap& map, std::int32_t dofs) {
    Columns out;
    out.start.assign(dofs + 1, 0);
    const auto each = [&](auto&& take) {
        for (std::int32_t r = 0; r < dofs; ++r) {
            if (map.plain(r))
                take(r, Term{r, 1});
            else
                for (const Term& term : map.row(r)) take(r, term);
        }
    };
    each([&](std::int32_t, const Term& term) { ++out.start[term.dof + 1]; });
    std::partial_sum(out.start.begin(), out.start.end(), out.start.begin());
    out.terms.resize(out.start.back());
    std::vector<std::int64_t> next(out.start.begin(), out.start.end() - 1);
    each([&](std::int32_t r, const Term& term) { out.terms[next[term.dof]++] = {r, term.factor}; });
    return out;
}

// One row of the product at a time, gathered in a dense row of which only `columns` count.
class RowSum {
public:
    RowSum(const ConstraintMap& map, const Columns& of, const SparseKM& km)
        : map_(map), columns_(of), km_(km), place_(km.rows(), -1) {}

    std::vector<std::int32_t> columns;
    std::vector<double> K, M;

    void compute(std::int32_t row) {
        columns.clear();
        K.clear();
        M.clear();
        for (const auto& [from, factor] : columns_.of(row))
            for (std::int64_t e = km_.row_start[from]; e < km_.row_start[from] + km_.row_count[from]; ++e) {
                const std::int32_t column = km_.col_index[e];
                if (map_.plain(column))
                    add(column, factor, e);
                else
                    for (const auto& [dof, part] : map_.row(column)) add(dof, factor * part, e);
            }
        for (const std::int32_t column : columns) place_[column] = -1;
    }

private:
    void add(std::int32_t column, double factor, std::int64_t e) {
        std::int32_t& at = place_[column];
        if (at < 0) {
            at = static_cast<std::int32_t>(columns.size());
            columns.push_back(column);
            K.push_back(0);
            M.push_back(0);
        }
        K[at] += factor * km_.K_value[e];
        if (!km_.M_value.empty()) M[at] += factor * km_.M_value[e];
    }

    const ConstraintMap& map_;
    const Columns& columns_;
    const SparseKM& km_;
    std::vector<std::int32_t> place_;  // per column: where it stands in `columns`, -1: not there
};

// Consecutive rows of the product.
struct Rows {
    std::vector<std::int32_t> count, columns;
    std::vector<double> K, M;

    void add(RowSum& sum, bool with_mass) {
        order.resize(sum.columns.size());
        std::iota(order.begin(), order.end(), 0);
        std::ranges::sort(order, {}, [&sum](std::int32_t k) { return sum.columns[k]; });
        for (const std::int32_t k : order) {
            columns.push_back(sum.columns[k]);
            K.push_back(sum.K[k]);
            if (with_mass) M.push_back(sum.M[k]);
        }
        count.push_back(static_cast<std::int32_t>(order.size()));
    }

private:
    std::vector<std::int32_t> order;
};

template <typename Value>
void append(const std::vector<Value>& from, std::vector<Value>& to) {
    to.insert(to.end(), from.begin(), from.end());
}

}  // namespace

void transform(const ConstraintMap& map, int threads, SparseKM& km, const Progress& progress) {
    if (map.empty()) return;
    const std::int64_t rows = km.rows();
    const Columns columns = columns_of(map, km.rows());
    std::vector<Rows> parts(threads);
#pragma omp parallel for schedule(static, 1) num_threads(threads)
    for (int t = 0; t < threads; ++t) {
        RowSum sum(map, columns, km);
        for (std::int64_t r = rows * t / threads; r < rows * (t + 1) / threads && !progress.cancelled();
             ++r) {
            sum.compute(static_cast<std::int32_t>(r));
            parts[t].add(sum, !km.M_value.empty());
        }
    }
    SparseKM out;
    for (Rows& part : parts) {
        append(part.count, out.row_count);
        append(part.columns, out.col_index);
        append(part.K, out.K_value);
        append(part.M, out.M_value);
        part = {};
    }
    if (out.rows() < rows) return;  // stopped
    out.row_start.assign(1, 0);
    for (const std::int32_t count : out.row_count) out.row_start.push_back(out.row_start.back() + count);
    km = std::move(out);
    find_diagonals(km);
}

}  // namespace kestralum
