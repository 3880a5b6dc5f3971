#include "system/solver_choice.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"
#include "solver/memory_limits.h"
#include "solver/multifrontal.h"

namespace kestralum {

namespace {

// Multiplications and additions of a skyline that is taken without a look at anything else: half a second.
constexpr double cheap_work = 1.2e10;
// Multiplications and additions a second on two cores, inside panels and fronts; seconds an entry of L to
// fill and write it; seconds an entry of K for the order and the fronts' rows.
constexpr double skyline_rate = 2.7e10, front_rate = 6.5e10;
constexpr double skyline_entry = 1.2e-8, front_entry = 5e-9, ordering_entry = 7e-8;
// Seconds an entry of K for the levels and some thirty iterations.
constexpr double iterative_entry = 1.2e-7;

// Of the profile itself; and in panels, which are dense where rows of different length stand in them.
double work_of(const Profile& profile) {
    double work = 0;
    for (const std::int32_t h : profile.height) work += 0.5 * h * h;
    return work;
}

double work_in_panels(const Profile& profile) {
    const PanelGrid grid = make_panel_grid(profile);
    double work = 0;
    for (std::int32_t I = 0; I < grid.panels(); ++I) {
        const double width = grid.width(I) - 0.5 * grid.rows(I);
        work += 0.5 * grid.rows(I) * width * width;
    }
    return work;
}

// Panels leave out what lies before most of their rows: the work is between the two.
SolverCost skyline_cost(const Profile& profile) {
    return {std::sqrt(work_of(profile) * work_in_panels(profile)) / skyline_rate +
                skyline_entry * static_cast<double>(profile.Ls_num),
            panel_megabytes(profile)};
}

SolverCost sparse_cost(const FrontTree& tree, const SparseKM& km) {
    return {tree.work / front_rate + front_entry * static_cast<double>(tree.entries) +
                ordering_entry * static_cast<double>(km.entries()),
            front_megabytes(tree)};
}

// Thirty iterations; levels that hold as many entries again as K.
SolverCost iterative_cost(const SparseKM& km) {
    const double entries = static_cast<double>(km.entries());
    return {iterative_entry * entries, 9e-6 * entries};
}

std::string cost_text(const char* name, const SolverCost& cost) {
    return cost.megabytes < 1000 ? formatted("%s %.2g s %.0f MB", name, cost.seconds, cost.megabytes)
                                 : formatted("%s %.2g s %.1f GB", name, cost.seconds, cost.megabytes / 1000);
}

}  // namespace

std::string SolverChoice::text() const {
    if (!sparse && !iterative) return {};
    std::string out = cost_text("skyline", skyline);
    if (sparse) out += ", " + cost_text("sparse", *sparse);
    if (iterative) out += ", " + cost_text("iterative", *iterative);
    constexpr const char* names[] = {"skyline", "sparse", "iterative"};
    return out + ": " + names[static_cast<int>(kind)];
}

bool takes_skyline(const Settings& settings, const Profile& profile) {
    return settings.solver == "skyline" || (settings.solver == "auto" && work_of(profile) < cheap_work);
}

SolverChoice choose_solver(const Settings& settings, const SparseKM& km, const Profile& profile) {
    SolverChoice choice;
    if (takes_skyline(settings, profile)) return choice;
    choice.skyline = skyline_cost(profile);
    if (settings.solver == "iterative") {
        choice.iterative = iterative_cost(km);
        choice.kind = SolverKind::iterative;
        return choice;
    }
    choice.tree = analyse_pattern(km);
    choice.sparse = sparse_cost(*choice.tree, km);
    if (settings.solver != "auto" || choice.sparse->seconds < choice.skyline.seconds)
        choice.kind = SolverKind::sparse;
    const double smaller = std::min(choice.sparse->megabytes, choice.skyline.megabytes);
    if (settings.solver == "auto" && smaller > largest_factor) {
        choice.iterative = iterative_cost(km);
        choice.kind = SolverKind::iterative;
        choice.tree.reset();
    }
    return choice;
}

bool keeps_fronts(const FrontTree& tree, const Settings& settings, double other_megabytes,
                  std::int64_t entries) {
    constexpr double matrices = 20e-6;  // an entry: column, K and a second table of values
    const double megabytes = front_megabytes(tree) + other_megabytes;
    return megabytes <= settings.memory_size &&
           megabytes + matrices * static_cast<double>(entries) <= machine_megabytes();
}

}  // namespace kestralum
