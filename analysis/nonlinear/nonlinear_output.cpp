#include "analysis/nonlinear/nonlinear_output.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "elements/element_type.h"
#include "model/format.h"
#include "model/selection.h"
#include "results/displacement_file.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

// The elements with the largest Mises stress at one of their points, in ascending number.
std::vector<std::int32_t> hardest_elements(const std::vector<double>& mises, std::int32_t elements,
                                           std::size_t points) {
    constexpr std::size_t most = 100;
    std::vector<std::int32_t> order(elements);
    std::iota(order.begin(), order.end(), 0);
    const auto value = [&](std::int32_t e) {
        const auto first = mises.begin() + std::ptrdiff_t(e * points);
        return *std::max_element(first, first + std::ptrdiff_t(points));
    };
    if (order.size() > most) {
        std::nth_element(order.begin(), order.begin() + most, order.end(),
                         [&](std::int32_t a, std::int32_t b) {
                             const double x = value(a), y = value(b);
                             return x != y ? x > y : a < b;
                         });
        order.resize(most);
    }
    std::sort(order.begin(), order.end());
    return order;
}

bool write(const std::string& name, Job& job, const std::function<void(TextOutput&)>& fill) {
    const std::string trouble = write_whole(name, job.options.log_folder, fill, job.progress);
    return trouble.empty() || job.fail_to_write(trouble);
}

bool write_integ_stress(const NonlinearHistory& history, Job& job) {
    const std::size_t points = element_type(job.mesh().element_type).points;
    return write("log\\integ_stress.txt", job, [&](TextOutput& file) {
        std::string line;
        for (std::int32_t e : hardest_elements(history.mises.back(), job.mesh().element_num(), points))
            for (std::size_t p = 0; p < points; ++p) {
                line.clear();
                for (const auto& mises : history.mises)
                    FormatLine(line, "[%d][%d]:%e ")
                        << e + 1 << static_cast<std::int32_t>(p) << mises[e * points + p];
                file.write(line += '\n');
            }
    });
}

bool write_Q(const NonlinearHistory& history, Job& job) {
    return write("log\\Q.txt", job, [&](TextOutput& file) {
        std::string line;
        for (std::size_t k = 0; k < history.Q.front().size(); ++k) {
            line.clear();
            for (const auto& Q : history.Q) {
                append_e(line, Q[k]);
                line += ' ';
            }
            file.write(line += '\n');
        }
    });
}

// What the columns of the history say of every increment; the probes' displacements follow.
constexpr const char* increment_columns[] = {
    "load_factor", "iterations",     "E/F", "converged", "largest_displacement[m]", "plastic_volume_share",
    "work[J]",     "negative_pivots"};
constexpr std::array count_columns{1, 3, 7};  // whole numbers

bool write_history(const HistoryRows& history, Job& job) {
    std::string text;
    for (std::size_t c = 0; c < history.columns.size(); ++c) text += (c ? "," : "") + history.columns[c];
    text += '\n';
    for (std::size_t k = 0; k < history.values.size(); ++k) {
        const int c = static_cast<int>(k % history.columns.size());
        if (c > 0) text += ',';
        if (std::ranges::find(count_columns, c) != count_columns.end())
            append_d(text, static_cast<std::int64_t>(history.values[k]));
        else
            append_e(text, history.values[k]);
        if (c + 1 == std::ssize(history.columns)) text += '\n';
    }
    return write(nonlinear_history_file_name(job.model.model_file_name), job,
                 [&](TextOutput& file) { file.write(text); });
}

}  // namespace

void NonlinearHistory::begin(Job& job, const NodeElements& node_elements) {
    for (const auto& place : job.options.probes)
        probes.push_back(nearest_node(job.mesh(), node_elements, place));
    std::vector<std::string>& columns = job.run.history.columns;
    columns.assign(std::begin(increment_columns), std::end(increment_columns));
    for (std::int32_t node : probes)
        for (const char* axis : {"x", "y", "z"})
            columns.push_back(formatted("u%s_node%d[m]", axis, node + 1));
}

void NonlinearHistory::add(Job& job, const IncrementReport& increment, std::span<const double> internal,
                           const NewtonBody& body) {
    std::vector<double> stresses = body.mises();
    if (!body.keeps()) return;
    Q.emplace_back(internal.begin(), internal.end());
    if (!stresses.empty()) mises.push_back(std::move(stresses));
    std::vector<double>& row = job.run.history.values;
    row.insert(row.end(),
               {increment.factor, static_cast<double>(increment.iterations), increment.ratio,
                increment.converged ? 1.0 : 0.0, increment.largest_displacement, increment.plastic_share,
                increment.work, static_cast<double>(increment.negative_pivots)});
    for (std::int32_t node : probes)
        for (std::size_t c = 0; c < 3; ++c) row.push_back(body.u[3 * node + c]);
}

bool NonlinearHistory::write(Job& job) const {
    const bool stress = mises.empty() || write_integ_stress(*this, job);
    const bool forces = write_Q(*this, job);
    return write_history(job.run.history, job) && stress && forces;
}

}  // namespace kestralum
