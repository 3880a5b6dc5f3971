#include "app/svg_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "app/html_text.h"
#include "model/format.h"
#include "model/xml_text.h"

namespace kestralum {

namespace {

constexpr double width = 720, left = 80, right = 20, top = 16, plot = 240;  // pixels
constexpr double plot_width = width - left - right, foot = top + plot;
constexpr std::array<const char*, 8> colors{"#1f5fa8", "#b3321f", "#2c7a36", "#7a3f96",
                                            "#b07400", "#007c80", "#555555", "#a8497a"};

struct Range {
    double low = std::numeric_limits<double>::infinity(), high = -low;
    void add(double value) {
        if (!std::isfinite(value)) return;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    // Both ends apart though all values are one.
    void widen() {
        if (high - low > 1e-12 * std::max(std::abs(low), std::abs(high))) return;
        const double more = low == 0 ? 1 : 0.1 * std::abs(low);
        low -= more;
        high += more;
    }
    double share(double value) const { return (value - low) / (high - low); }
};

// 1, 2 or 5 times a power of ten, about five of them in the range.
double tick_interval(const Range& range) {
    const double rough = (range.high - range.low) / 5, power = std::pow(10, std::floor(std::log10(rough)));
    for (const double step : {1.0, 2.0, 5.0})
        if (rough <= step * power) return step * power;
    return 10 * power;
}

std::string line(double x1, double y1, double x2, double y2, const char* color) {
    return formatted("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>\n", x1, y1, x2,
                     y2, color);
}

std::string text(double x, double y, const char* anchor, const std::string& words) {
    return formatted("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">", x, y, anchor) + xml_escaped(words) +
           "</text>\n";
}

template <typename Draw>
void for_ticks(const Range& range, Draw draw) {
    const double step = tick_interval(range);
    for (double k = std::ceil(range.low / step - 1e-9); k <= range.high / step + 1e-9; ++k)
        draw(k * step, formatted("%.6g", std::abs(k) < 0.5 ? 0.0 : k * step));
}

std::string tick_x(double at, const std::string& words) {
    return line(at, top, at, foot, "#dddddd") + text(at, foot + 15, "middle", words);
}

std::string tick_y(double at, const std::string& words) {
    return line(left, at, left + plot_width, at, "#dddddd") + text(left - 6, at + 4, "end", words);
}

// The rectangle, what goes to the right and what goes up.
std::string frame(const std::string& x, const std::string& y) {
    return formatted(
               "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
               "stroke=\"#444444\"/>\n",
               left, top, plot_width, plot) +
           text(left + plot_width, foot + 31, "end", x) +
           (y.empty() ? std::string() : text(left, top - 4, "start", y));
}

std::string axes(const Range& x, const Range& y, const History& history, const std::string& unit) {
    std::string out;
    for_ticks(x, [&](double value, const std::string& words) {
        out += tick_x(left + plot_width * x.share(value), words);
    });
    for_ticks(y, [&](double value, const std::string& words) {
        out += tick_y(foot - plot * y.share(value), words);
    });
    return out + frame(with_unit(history.axis, history.axis_unit), unit.empty() ? "" : "[" + unit + "]");
}

// Of the tens that the range spans, and of 2 and 5 between them where it spans few. `range`: of logarithms.
template <typename Draw>
void for_log_ticks(const Range& range, Draw draw) {
    const bool few = range.high - range.low < 2.5;
    for (double power = std::floor(range.low); power <= range.high; ++power)
        for (const double step : {1.0, 2.0, 5.0})
            if (const double at = power + std::log10(step);
                (step == 1 || few) && at >= range.low - 1e-9 && at <= range.high + 1e-9)
                draw(at, formatted("%.6g", step * std::pow(10, power)));
}

std::string legend(double at, const char* color, const std::string& name) {
    return formatted("<rect x=\"%.1f\" y=\"%.1f\" width=\"18\" height=\"4\" fill=\"%s\"/>\n", left, at - 6,
                     color) +
           text(left + 26, at, "start", name);
}

constexpr double row_height = 17;  // of the legend

std::string svg_head(std::size_t curves) {
    const double height = foot + 40 + row_height * static_cast<double>(curves);
    return formatted(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
        "height=\"%.0f\" font-family=\"sans-serif\" font-size=\"11\">\n",
        width, height, width, height);
}

std::string curve(const History& history, const HistoryColumn& column, const Range& x, const Range& y,
                  const char* color) {
    std::string points;
    for (const CurvePoint& p : thinned(history.x, column.values, x.low, x.high, static_cast<int>(plot_width)))
        points += formatted("%.1f,%.1f ", left + plot_width * x.share(p.x), foot - plot * y.share(p.y));
    return formatted("<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"1.5\" points=\"", color) + points +
           "\"/>\n";
}

}  // namespace

std::string svg_chart(const History& history, std::span<const std::size_t> columns) {
    Range x, y;
    std::size_t known = 0;
    for (std::size_t row = 0; row < history.x.size(); ++row) {
        bool any = false;
        for (const std::size_t c : columns) {
            const double value = history.columns[c].values[row];
            y.add(value);
            any = any || std::isfinite(value);
        }
        if (!any || !std::isfinite(history.x[row])) continue;
        x.add(history.x[row]);
        ++known;
    }
    if (known < 2) return {};
    x.widen();
    y.widen();
    std::string out = svg_head(columns.size());
    out += axes(x, y, history, history.columns[columns.front()].unit);
    double at = foot + 44;
    for (std::size_t k = 0; k < columns.size(); ++k, at += row_height) {
        const char* color = colors[k % colors.size()];
        const HistoryColumn& column = history.columns[columns[k]];
        out += curve(history, column, x, y, color);
        out += legend(at, color, column.name);
    }
    return out + "</svg>\n";
}

std::string svg_log_chart(std::span<const LogCurve> curves, const std::string& x, const std::string& y) {
    Range across, up;  // of logarithms
    std::size_t known = 0;
    const auto drawn = [](const std::pair<double, double>& p) { return p.first > 0 && p.second > 0; };
    for (const LogCurve& one : curves)
        for (const auto& p : one.points) {
            if (!drawn(p)) continue;
            across.add(std::log10(p.first));
            up.add(std::log10(p.second));
            ++known;
        }
    if (known < 2) return {};
    for (Range* range : {&across, &up}) {  // points stand clear of the frame, and some numbers beside it
        const double more = std::max(0.1, 0.45 - 0.5 * (range->high - range->low));
        range->low -= more;
        range->high += more;
    }
    std::string out = svg_head(curves.size());
    for_log_ticks(across, [&](double value, const std::string& words) {
        out += tick_x(left + plot_width * across.share(value), words);
    });
    for_log_ticks(up, [&](double value, const std::string& words) {
        out += tick_y(foot - plot * up.share(value), words);
    });
    out += frame(x, y);
    for (std::size_t k = 0; k < curves.size(); ++k) {
        const char* color = colors[k % colors.size()];
        std::string line_points, marks;
        for (const auto& p : curves[k].points) {
            if (!drawn(p)) continue;
            const double px = left + plot_width * across.share(std::log10(p.first)),
                         py = foot - plot * up.share(std::log10(p.second));
            line_points += formatted("%.1f,%.1f ", px, py);
            marks += formatted("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"%s\"/>\n", px, py, color);
        }
        out += formatted("<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"1.5\" points=\"", color) +
               line_points + "\"/>\n" + marks +
               legend(foot + 44 + row_height * static_cast<double>(k), color, curves[k].name);
    }
    return out + "</svg>\n";
}

}  // namespace kestralum
