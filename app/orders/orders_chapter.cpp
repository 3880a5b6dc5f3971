#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "app/html_text.h"
#include "app/orders/orders.h"
#include "app/svg_chart.h"
#include "model/format.h"
#include "model/xml_text.h"

namespace kestralum {

namespace {

constexpr const char* words =
    "A displacement that no element has in its shape functions is made the exact answer: the body force "
    "that it needs acts inside a unit cube, its surface is moved by it, and the error of what the "
    "analysis finds is measured on finer and finer meshes. Frequencies are those of the cube between "
    "rollers on all faces. At finite strain the body force is that of Hencky's law; a uniform "
    "deformation is met to rounding. In time the lowest mode of one mesh swings over one period with "
    "smaller and smaller steps. An order is the slope between one size and the next; it is ok where the "
    "last one reaches nine tenths of theory's. Stresses at the nodes are better than theory promises "
    "for linear elements. Enhanced hexahedra that are no parallelepipeds are of first order in time: "
    "their internal strains follow the nodes with a share of a step.";

std::string curve_name(const OrdersRow& row) {
    return row.formulation == "full" && row.element != "hexahedron" ? row.element
                                                                    : row.element + ", " + row.formulation;
}

// Lines of the slopes that theory has, below all curves.
std::vector<LogCurve> slopes(const std::vector<const OrdersRow*>& rows) {
    double least = std::numeric_limits<double>::infinity(), widest = 0, narrowest = least;
    for (const OrdersRow* row : rows)
        for (std::size_t k = 0; k < row->h.size(); ++k) {
            widest = std::max(widest, row->h[k]);
            narrowest = std::min(narrowest, row->h[k]);
            if (row->error[k] > 0) least = std::min(least, row->error[k]);
        }
    std::vector<LogCurve> out;
    for (const OrdersRow* row : rows) {
        const std::string name = formatted("order %.0f", row->expected);
        if (std::ranges::find(out, name, &LogCurve::name) != out.end()) continue;
        const double end = 0.5 * least;
        out.push_back(
            {name, {{widest, end * std::pow(widest / narrowest, row->expected)}, {narrowest, end}}});
    }
    return out;
}

std::string chart(const std::string& title, const std::vector<const OrdersRow*>& rows) {
    std::vector<LogCurve> curves;
    for (const OrdersRow* row : rows) {
        LogCurve& curve = curves.emplace_back(LogCurve{curve_name(*row), {}});
        for (std::size_t k = 0; k < row->h.size(); ++k) curve.points.emplace_back(row->h[k], row->error[k]);
    }
    for (LogCurve& slope : slopes(rows)) curves.push_back(std::move(slope));
    const bool in_time = rows.front()->analysis == "explicit";
    const std::string svg =
        svg_log_chart(curves, in_time ? "time step over the stable one" : "cell size [m]", "relative error");
    if (svg.empty()) return {};
    return "<figure>\n" + svg + "<figcaption>" + xml_escaped(title) + "</figcaption>\n</figure>\n";
}

std::string table(const std::vector<OrdersRow>& rows) {
    HtmlTable out({"Analysis", "Element", "Mesh", "Quantity", "Sizes", "Errors", "Orders", "Theory", ""});
    for (const OrdersRow& row : rows) {
        std::string sizes, errors, orders;
        for (std::size_t k = 0; k < row.h.size(); ++k) {
            sizes += formatted(k ? ", %.3g" : "%.3g", row.h[k]);
            if (row.expected > 0) errors += formatted(k ? ", %.1e" : "%.1e", row.error[k]);
        }
        if (row.expected == 0)  // the digits of rounding are another machine's others
            errors = formatted(reaches_theory(row) ? "< %.0e" : "> %.0e", rounding_error);
        for (std::size_t k = 0; k < row.order.size(); ++k)
            orders += formatted(k ? ", %.2f" : "%.2f", row.order[k]);
        out.add({row.analysis, curve_name(row), row.mesh, row.quantity, sizes, errors, orders,
                 row.expected == 0 ? "exact" : formatted("%.0f", row.expected),
                 reaches_theory(row) ? "ok" : "below"});
    }
    return out.html();
}

}  // namespace

std::string orders_chapter(const std::vector<OrdersRow>& rows) {
    if (rows.empty()) return {};
    std::string out =
        "<h2 id=\"orders\">Observed orders</h2>\n<p>" + xml_escaped(words) + "</p>\n" + table(rows);
    std::vector<std::string> titles;  // in the order of the rows
    std::map<std::string, std::vector<const OrdersRow*>> drawn;
    for (const OrdersRow& row : rows) {
        if (row.expected == 0) continue;
        const std::string title = row.analysis + ", " + row.mesh + " meshes: " + row.quantity;
        if (drawn[title].empty()) titles.push_back(title);
        drawn[title].push_back(&row);
    }
    for (const std::string& title : titles) out += chart(title, drawn[title]);
    return out;
}

}  // namespace kestralum
