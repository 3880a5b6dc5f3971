#include "view/color_scale.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace kestralum::view {

namespace {

constexpr Color no_value{0.5f, 0.5f, 0.5f, 1}, below_range{0.3f, 0.3f, 0.3f, 1},
    above_range{0.85f, 0.45f, 0.95f, 1};

// Even stops of a palette, 0 … 255.
using Stops = std::array<std::array<double, 3>, 9>;
constexpr Stops viridis{{{68, 1, 84},
                         {71, 45, 123},
                         {59, 82, 139},
                         {44, 114, 142},
                         {33, 145, 140},
                         {40, 174, 128},
                         {94, 201, 98},
                         {173, 220, 48},
                         {253, 231, 37}}};
constexpr Stops cool_warm{{{59, 76, 192},
                           {98, 130, 234},
                           {141, 176, 254},
                           {184, 208, 249},
                           {221, 221, 221},
                           {245, 196, 173},
                           {244, 154, 123},
                           {222, 96, 77},
                           {180, 4, 38}}};

Vec3 between_stops(const Stops& stops, double share) {
    const double at = share * static_cast<double>(stops.size() - 1);
    const auto first = std::min(static_cast<std::size_t>(at), stops.size() - 2);
    const double part = at - static_cast<double>(first);
    Vec3 color;
    for (std::size_t c = 0; c < 3; ++c)
        color[c] = ((1 - part) * stops[first][c] + part * stops[first + 1][c]) / 255;
    return color;
}

// At full brightness: one component is 1.
Vec3 rainbow(double v) {
    const double d = 2 * std::abs(0.5 - v);
    const double red = v > 0.5 ? d : 0, green = 1 - d, blue = v < 0.5 ? d : 0;
    const double m = std::max({red, green, blue});
    return {red / m, green / m, blue / m};
}

Color with_alpha(Color color, double alpha) {
    color[3] = static_cast<float>(alpha);
    return color;
}

}  // namespace

Color scale_color(const ColorScale& scale, double share, double alpha) {
    if (std::isnan(share)) return with_alpha(no_value, alpha);
    if (scale.mark_outside && (share < 0 || share > 1))
        return with_alpha(share < 0 ? below_range : above_range, alpha);
    double v = std::clamp(share, 0.0, 1.0);
    // the first and the last band have the colours of the ends
    if (scale.bands > 1) v = std::min(std::floor(v * scale.bands), scale.bands - 1.0) / (scale.bands - 1);
    const Vec3 color = scale.palette == Palette::perceptual  ? between_stops(viridis, v)
                       : scale.palette == Palette::diverging ? between_stops(cool_warm, v)
                                                             : rainbow(v);
    const auto [red, green, blue] = to_float(color);
    return {red, green, blue, static_cast<float>(alpha)};
}

double share_of(double value, double low, double high) {
    if (std::isnan(value)) return value;
    // halves: the width of a range of huge values must not overflow
    const double width = 0.5 * high - 0.5 * low;
    if (!(width > 0)) return 0;
    return (0.5 * value - 0.5 * low) / width;
}

std::vector<std::array<std::uint8_t, 4>> scale_texels(const ColorScale& scale) {
    std::vector<std::array<std::uint8_t, 4>> texels(3 * texels_per_range);
    for (std::int32_t k = 0; k < std::ssize(texels); ++k) {
        const Color color = scale_color(scale, (k + 0.5) / texels_per_range - 1, 1);
        for (std::size_t c = 0; c < 4; ++c)
            texels[k][c] = static_cast<std::uint8_t>(std::lround(255 * std::clamp(color[c], 0.0f, 1.0f)));
    }
    return texels;
}

std::vector<double> round_values(double low, double high, int about) {
    const double width = high - low;
    if (!(width > 0) || !std::isfinite(width)) return {low};
    const double rough = width / std::max(about, 1), power = std::pow(10.0, std::floor(std::log10(rough)));
    double step = 10 * power;
    for (const double s : {5.0, 2.5, 2.0, 1.0})
        if (s * power >= rough * (1 - 1e-9)) step = s * power;
    std::vector<double> values;
    const double first = std::ceil(low / step - 1e-9), last = std::floor(high / step + 1e-9);
    for (double k = first; k <= last && values.size() < 100; ++k) values.push_back(k * step + 0.0);
    return values.empty() ? std::vector<double>{low} : values;
}

ShownUnit shown_unit(const char* unit, const DisplayUnits& units) {
    constexpr double stress_factors[] = {1, 1e-3, 1e-6};
    const std::string_view own = unit;
    const auto stress = static_cast<std::size_t>(units.stress);
    if (own == "Pa") return {stress_unit_names[stress], stress_factors[stress]};
    const bool of_length = own == "m" || own == "m/s" || own == "m/s^2";
    if (of_length && units.length == LengthUnit::millimetre) return {"m" + std::string(own), 1e3};
    return {std::string(own), 1};
}

}  // namespace kestralum::view
