#include "app/window/display_options.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "app/section_table.h"
#include "fields/quantities.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

using Text = const std::string&;

std::optional<double> finite_number(const std::string& text) {
    const auto value = parse_double(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

// "LOW:HIGH", each a number; empty where `open`.
bool read_pair(const std::string& text, bool open, std::optional<double>& low, std::optional<double>& high) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    const std::string first = text.substr(0, colon), second = text.substr(colon + 1);
    low = finite_number(first);
    high = finite_number(second);
    if (!low && !(open && first.empty())) return false;
    if (!high && !(open && second.empty())) return false;
    if (!low && !high) return false;
    return !low || !high || *low < *high;
}

// Row of a list of words; nothing for another word.
template <typename Words>
std::optional<std::size_t> row_of(const Words& words, const std::string& text) {
    for (std::size_t k = 0; k < words.size(); ++k)
        if (text == words[k]) return k;
    return std::nullopt;
}

std::string take_section(Text text, view::DisplayState& display) {
    SectionPlane plane;
    if (const std::string refused = read_section_plane(text, plane); !refused.empty()) return refused;
    display.sections.push_back({plane.point, plane.normal, true});
    return {};
}

std::string take_range(Text text, view::DisplayState& display) {
    using enum view::RangeKind;
    view::ColorScale& scale = display.scale;
    constexpr std::array words{"auto", "all", "fixed", "symmetric"};
    const auto row = row_of(words, text);
    std::optional<double> low, high;
    if (row && static_cast<view::RangeKind>(*row) != fixed) {
        scale.range = static_cast<view::RangeKind>(*row);
    } else if (read_pair(text, false, low, high)) {
        scale.range = fixed;
        scale.low = *low;
        scale.high = *high;
    } else {
        return "--range wants auto, all, symmetric or LOW:HIGH with LOW below HIGH, not '" + text + "'";
    }
    return {};
}

std::string take_palette(Text text, view::DisplayState& display) {
    const auto row = row_of(view::palette_names, text);
    if (!row) return "--palette wants rainbow, perceptual or diverging, not '" + text + "'";
    display.scale.palette = static_cast<view::Palette>(*row);
    return {};
}

std::string take_bands(Text text, view::DisplayState& display) {
    const auto bands = parse_int32(text);
    if (!bands || (*bands != 0 && (*bands < view::least_bands || *bands > view::most_bands)))
        return "--bands wants an integer from 6 to 32, or 0 for smooth colours, not '" + text + "'";
    display.scale.bands = *bands;
    return {};
}

std::string take_units(Text text, view::DisplayState& display) {
    return each_word(text, [&display](Text word) -> std::string {
        const auto stress = row_of(view::stress_unit_names, word),
                   length = row_of(view::length_unit_names, word);
        if (!stress && !length) return "--units wants Pa, kPa, MPa, m or mm, not '" + word + "'";
        if (stress) display.units.stress = static_cast<view::StressUnit>(*stress);
        if (length) display.units.length = static_cast<view::LengthUnit>(*length);
        return {};
    });
}

std::string take_threshold(Text text, view::DisplayState& display) {
    if (read_pair(text, true, display.threshold.below, display.threshold.above)) return {};
    return "--threshold wants LOW:HIGH, LOW: or :HIGH, not '" + text + "'";
}

std::string take_iso(Text text, view::DisplayState& display) {
    return each_word(text, [&](Text word) -> std::string {
        const auto value = finite_number(word);
        if (!value) return "--iso wants values separated by commas, not '" + text + "'";
        display.iso_values.push_back(*value);
        return {};
    });
}

std::string take_deformation(Text text, view::DisplayState& display) {
    using enum view::Deformation;
    if (text == "auto" || text == "true") {
        display.deformation = text == "auto" ? automatic : fixed;
        display.deformation_factor = 1;
        return {};
    }
    const auto factor = finite_number(text);
    if (!factor || *factor < 0)
        return "--deformation wants auto, true or a factor of at least 0, not '" + text + "'";
    display.deformation = fixed;
    display.deformation_factor = *factor;
    return {};
}

std::string take_look(Text text, view::DisplayState& display) {
    view::Look& look = display.look;
    const std::pair<std::string, bool*> switches[] = {
        {"silhouettes", &look.silhouettes},      {"occlusion", &look.occlusion},
        {"undeformed", &look.undeformed},        {"marks", &look.marks},
        {"elements", &look.element_values},      {"round-ticks", &display.scale.round_ticks},
        {"outside", &display.scale.mark_outside}};
    return each_word(text, [&](Text word) -> std::string {
        const auto found = std::ranges::find(switches, word, [](const auto& s) { return s.first; });
        if (found != std::end(switches))
            *found->second = true;
        else if (word == "smooth")
            look.shading = view::Shading::smooth;
        else if (word == "shaded")
            look.shading = view::Shading::contour;
        else
            return "--look: '" + word + "' is none of its words";
        return {};
    });
}

std::string take_glyphs(Text text, view::DisplayState& display) {
    constexpr std::array words{"none", "displacement", "principal", "reaction", "velocity", "acceleration"};
    const auto row = row_of(words, text);
    if (!row)
        return "--glyphs wants displacement, principal, reaction, velocity or acceleration, not '" + text +
               "'";
    display.glyphs = static_cast<view::Glyphs>(*row);
    return {};
}

}  // namespace

std::string each_word(const std::string& text, const Take& take) {
    for (std::size_t from = 0; from <= text.size();) {
        const std::size_t comma = std::min(text.find(',', from), text.size());
        if (std::string refused = take(text.substr(from, comma - from)); !refused.empty()) return refused;
        from = comma + 1;
    }
    return {};
}

std::string take_contour(const std::string& text, view::DisplayState& display) {
    display.further = text == "plastic" ? view::plastic_strain_row : text == "error" ? view::error_row : 0;
    if (display.further > 0) return {};
    const auto rows = static_cast<std::int32_t>(view::quantities.size());
    const auto number = parse_int32(text);
    if (number && *number >= -1 && *number < rows) {
        display.contour = *number;
        return {};
    }
    for (const FieldQuantityRow& row : field_quantities) {
        const auto index = static_cast<std::int32_t>(row.quantity);
        if ((text != row.name && number != index) || !view::quantity_at(index)) continue;
        display.further = index;
        return {};
    }
    return "--contour wants an integer from -1 to " + std::to_string(rows - 1) + ", not '" + text +
           "', plastic or error, or the name of a further quantity";
}

void describe_display(const AddOption& add_option, view::DisplayState& display) {
    const auto add = [&](const char* name, const char* shape, const char* description, auto take) {
        add_option(name, shape, description,
                   [&display, take](const std::string& text) { return take(text, display); });
    };
    add("--section", "PLANE",
        "hides what lies beyond x=, y= or z= a coordinate in m, or beyond a point and a normal,\n"
        "\"px py pz nx ny nz\"; repeatable",
        take_section);
    add("--range", "auto|all|symmetric|LOW:HIGH",
        "of the colours: of the frame, of all frames, as far below zero\nas above, or from LOW to HIGH in "
        "Pa, m …",
        take_range);
    add("--palette", "NAME", "rainbow, perceptual or diverging", take_palette);
    add("--bands", "N", "6 ... 32 colours; smooth unless given", take_bands);
    add("--units", "LIST", "Pa, kPa or MPa and m or mm, separated by a comma", take_units);
    add("--threshold", "LOW:HIGH", "hides what is below LOW or above HIGH; one of them may be left out",
        take_threshold);
    add("--iso", "LIST", "surfaces of these values inside the outline, separated by commas", take_iso);
    add("--deformation", "auto|true|F", "how far displacements are drawn", take_deformation);
    add("--look", "LIST",
        "smooth, shaded, silhouettes, occlusion, undeformed, marks, elements,\nround-ticks, outside; "
        "separated by "
        "commas",
        take_look);
    add("--glyphs", "WHAT", "displacement, principal, reaction, velocity or acceleration", take_glyphs);
}

}  // namespace kestralum
