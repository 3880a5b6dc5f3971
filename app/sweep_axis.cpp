// The axes of a sweep: their text, and what cannot be swept.
#include <charconv>
#include <cmath>
#include <set>

#include "app/sweep.h"
#include "input/calculator.h"
#include "model/format.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

std::optional<double> finite_number(std::string_view text) {
    const auto value = parse_double(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

// The parts of `text` between `separator`.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t at; (at = text.find(separator)) != std::string_view::npos; text.remove_prefix(at + 1))
        parts.push_back(text.substr(0, at));
    parts.push_back(text);
    return parts;
}

// Inner values are rounded to 14 digits: 0.01:0.05:5 holds 0.02 and not 0.020000000000000004.
double between(double from, double to, std::int64_t k, std::int64_t count) {
    const double share = static_cast<double>(k) / static_cast<double>(count - 1);
    return finite_number(formatted("%.14g", (1 - share) * from + share * to)).value_or(from);
}

std::string read_range(std::string_view name, std::span<const std::string_view> parts,
                       std::vector<double>& values) {
    const std::string of = "--sweep " + std::string(name) + ": ";
    if (parts.size() != 3) return of + "a range is FROM:TO:COUNT";
    const auto from = finite_number(parts[0]), to = finite_number(parts[1]);
    if (!from || !to) return of + "'" + std::string(parts[from ? 1 : 0]) + "' is not a number";
    const auto count = parse_int64(parts[2]);
    if (!count) return of + "'" + std::string(parts[2]) + "' is not a whole number";
    if (*count < 1) return of + "a range has at least one value, not " + std::string(parts[2]);
    if (*count > std::int64_t{most_sweep_runs})
        return of + formatted("%lld values are more than the %zu runs that a sweep may have",
                              static_cast<long long>(*count), most_sweep_runs);
    for (std::int64_t k = 0; k < *count; ++k)
        values.push_back(k == 0 ? *from : k + 1 == *count ? *to : between(*from, *to, k, *count));
    return {};
}

std::string read_list(std::string_view name, std::string_view text, std::vector<double>& values) {
    for (const std::string_view part : split(text, ',')) {
        const auto value = finite_number(part);
        if (!value) return "--sweep " + std::string(name) + ": '" + std::string(part) + "' is not a number";
        values.push_back(*value);
    }
    return {};
}

}  // namespace

std::string sweep_number(double value) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

std::string read_sweep_axis(std::string_view text, SweepAxis& axis) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0 || equals + 1 == text.size())
        return "--sweep wants NAME=FROM:TO:COUNT or NAME=V1,V2,..., not '" + std::string(text) + "'";
    axis = {std::string(text.substr(0, equals)), {}};
    if (!is_parameter_name(axis.name)) return "--sweep: no parameter can have the name '" + axis.name + "'";
    const std::string_view values = text.substr(equals + 1);
    if (values.find(':') != std::string_view::npos)
        return read_range(axis.name, split(values, ':'), axis.values);
    return read_list(axis.name, values, axis.values);
}

std::string refused_axes(std::span<const SweepAxis> axes, std::span<const ParameterOverride> overrides) {
    if (axes.size() > 2) return "--sweep: at most two parameters are swept at a time";
    std::size_t runs = 1;
    for (std::size_t a = 0; a < axes.size(); ++a) {
        const std::string of = "--sweep " + axes[a].name + ": ";
        if (a > 0 && axes[a].name == axes[0].name) return of + "the parameter stands twice";
        for (const ParameterOverride& set : overrides)
            if (set.name == axes[a].name) return of + "--set gives the parameter a value already";
        if (axes[a].values.empty()) return of + "there is no value";
        std::set<double> seen;
        for (const double value : axes[a].values)
            if (!seen.insert(value).second) return of + "the value " + sweep_number(value) + " stands twice";
        runs *= axes[a].values.size();
    }
    if (runs > most_sweep_runs)
        return formatted("--sweep: %zu runs are more than the %zu that a sweep may have", runs,
                         most_sweep_runs);
    return {};
}

}  // namespace kestralum
