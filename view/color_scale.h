// How values become colours: palettes, bands, ranges, ticks of the bar; and the units they are told in.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "view/vector.h"

namespace kestralum::view {

enum class Palette {
    rainbow,     // blue, cyan, green, yellow, red at full brightness
    perceptual,  // viridis (Smith and van der Walt, 2015): lightness grows evenly
    diverging,   // cool to warm (Moreland, 2009): for signed quantities
};
inline constexpr std::array<const char*, 3> palette_names{"rainbow", "perceptual", "diverging"};

enum class RangeKind {
    automatic,   // of the frame shown
    all_frames,  //
    fixed,       // between two values
    symmetric,   // of the frame shown, as far below zero as above
};
inline constexpr std::array<const char*, 4> range_names{"automatic", "all frames", "fixed", "symmetric"};

inline constexpr int least_bands = 6, most_bands = 32;

struct ColorScale {
    Palette palette = Palette::rainbow;
    int bands = 0;  // of one colour each, least_bands … most_bands; 0: smooth
    RangeKind range = RangeKind::automatic;
    double low = 0, high = 1;   // of a fixed range, in the quantity's own unit
    bool round_ticks = false;   // at round values in place of even shares of the range
    bool mark_outside = false;  // values beyond the range in colours of their own, else in those of its ends
    bool operator==(const ColorScale&) const = default;
    // Blended from vertex to vertex, as the rainbow without bands is.
    bool by_vertex() const { return palette == Palette::rainbow && bands == 0 && !mark_outside; }
};

// Colour of a share of the range: 0 at its low end, 1 at its high end. Grey for NaN: no value.
Color scale_color(const ColorScale& scale, double share, double alpha);

// Where values stand in a range: 0 at the low end, 1 at the high end, beyond them outside; 0 in a range
// without width. NaN stays NaN.
double share_of(double value, double low, double high);

// Texels that colour shares from -1 to 2, at even distances: those of the range stand in the middle third.
inline constexpr std::int32_t texels_per_range = 480;  // a multiple of 6, 8, 10, 12, 16, 24 …
std::vector<std::array<std::uint8_t, 4>> scale_texels(const ColorScale& scale);

// Values within low … high at a step of 1, 2, 2.5 or 5 times a power of ten, about `about` of them; the lower
// end alone where the range has no width.
std::vector<double> round_values(double low, double high, int about);

enum class StressUnit { pascal, kilopascal, megapascal };
enum class LengthUnit { metre, millimetre };
struct DisplayUnits {
    StressUnit stress = StressUnit::pascal;
    LengthUnit length = LengthUnit::metre;
    bool operator==(const DisplayUnits&) const = default;
};
inline constexpr std::array<const char*, 3> stress_unit_names{"Pa", "kPa", "MPa"};
inline constexpr std::array<const char*, 2> length_unit_names{"m", "mm"};

struct ShownUnit {
    std::string text;
    double factor = 1;  // on a value in the quantity's own unit
};
// Of a quantity's unit: "Pa", "m", "m/s" and "m/s^2" follow the choice, all others stay.
ShownUnit shown_unit(const char* unit, const DisplayUnits& units);

}  // namespace kestralum::view
