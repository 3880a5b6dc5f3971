#include "app/orders/orders.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "app/orders/study.h"

namespace kestralum {

namespace {

struct Entry {
    std::string_view name;
    bool (*study)(Study& study);
};
constexpr std::array<Entry, 4> entries{{{"static", study_static},
                                        {"eigen", study_eigen},
                                        {"nonlinear", study_nonlinear},
                                        {"explicit", study_explicit}}};

}  // namespace

bool reaches_theory(const OrdersRow& row) {
    if (row.error.empty()) return false;
    if (row.expected == 0) return std::ranges::all_of(row.error, [](double e) { return e < rounding_error; });
    return !row.order.empty() && row.order.back() >= order_share * row.expected;
}

bool has_orders(const std::string& name) {
    return std::ranges::any_of(entries, [&](const Entry& entry) { return entry.name.starts_with(name); });
}

bool find_orders(const OrdersOptions& options, const Settings& settings, Progress& progress,
                 std::vector<OrdersRow>& rows) {
    if (!has_orders(options.only)) {
        progress.error("orders: no analysis has a name that begins with '%s'", options.only.c_str());
        return false;
    }
    Study study{options, settings, progress, rows};
    study.settings.n_threads = 1;
    for (const Entry& entry : entries) {
        if (!entry.name.starts_with(options.only)) continue;
        progress.set_stage(entry.name);
        if (!entry.study(study)) return false;
    }
    return true;
}

void print_orders_head(Progress& progress) {
    progress.summary("%-10s %-14s %-16s %-7s %-25s %-33s %-18s %s\n", "analysis", "element", "formulation",
                     "mesh", "quantity", "errors", "orders", "theory");
}

void print_orders_totals(const std::vector<OrdersRow>& rows, Progress& progress) {
    const auto below = rows.size() - std::ranges::count_if(rows, reaches_theory);
    progress.summary("%zu row%s, %zu below theory\n", rows.size(), rows.size() == 1 ? "" : "s", below);
}

}  // namespace kestralum
