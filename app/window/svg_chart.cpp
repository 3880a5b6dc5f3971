#include "app/window/svg_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "model/format.h"

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
    return formatted("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">", x, y, anchor) + escaped(words) +
           "</text>\n";
}

template <typename Draw>
void for_ticks(const Range& range, Draw draw) {
    const double step = tick_interval(range);
    for (double k = std::ceil(range.low / step - 1e-9); k <= range.high / step + 1e-9; ++k)
        draw(k * step, formatted("%.6g", std::abs(k) < 0.5 ? 0.0 : k * step));
}

std::string axes(const Range& x, const Range& y, const History& history, const std::string& unit) {
    std::string out;
    for_ticks(x, [&](double value, const std::string& words) {
        const double at = left + plot_width * x.share(value);
        out += line(at, top, at, foot, "#dddddd") + text(at, foot + 15, "middle", words);
    });
    for_ticks(y, [&](double value, const std::string& words) {
        const double at = foot - plot * y.share(value);
        out += line(left, at, left + plot_width, at, "#dddddd") + text(left - 6, at + 4, "end", words);
    });
    out += formatted(
        "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
        "stroke=\"#444444\"/>\n",
        left, top, plot_width, plot);
    out += text(left + plot_width, foot + 31, "end", with_unit(history.axis, history.axis_unit));
    if (!unit.empty()) out += text(left, top - 4, "start", "[" + unit + "]");
    return out;
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

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else
            out += c;
    }
    return out;
}

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
    constexpr double row_height = 17;
    const double height = foot + 40 + row_height * static_cast<double>(columns.size());
    std::string out = formatted(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
        "height=\"%.0f\" font-family=\"sans-serif\" font-size=\"11\">\n",
        width, height, width, height);
    out += axes(x, y, history, history.columns[columns.front()].unit);
    double at = foot + 44;
    for (std::size_t k = 0; k < columns.size(); ++k, at += row_height) {
        const char* color = colors[k % colors.size()];
        const HistoryColumn& column = history.columns[columns[k]];
        out += curve(history, column, x, y, color);
        out += formatted("<rect x=\"%.1f\" y=\"%.1f\" width=\"18\" height=\"4\" fill=\"%s\"/>\n", left,
                         at - 6, color);
        out += text(left + 26, at, "start", column.name);
    }
    return out + "</svg>\n";
}

}  // namespace kestralum
