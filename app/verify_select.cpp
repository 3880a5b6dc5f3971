#include "app/verify_select.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <string_view>
#include <utility>

#include "input/input_remarks.h"

namespace kestralum {

namespace {

// Letters to put in, take out or exchange to come from one word to the other (Levenshtein 1966).
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t corner = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t exchanged = corner + (a[i] != b[j]);
            corner = row[j + 1];
            row[j + 1] = std::min({exchanged, corner + 1, row[j] + 1});
        }
    }
    return row.back();
}

std::string unknown_name(std::span<const VerifyCase> cases, const std::string& word) {
    const std::string told = "no case is named '" + shown_text(word) + "'";
    constexpr std::size_t longest = 100;  // the search is quadratic
    if (word.size() > longest) return told;
    const auto letters = [&](const VerifyCase& one) { return distance(one.name, word); };
    const auto nearest = std::ranges::min_element(cases, {}, letters);
    // farther off it would be any name
    const bool is_near =
        nearest != cases.end() && !word.ends_with('*') && letters(*nearest) <= word.size() / 2;
    return told + (is_near ? "; the nearest name is '" + nearest->name + "'" : "; --list tells the names");
}

bool refers_to(const VerifyCase& one, const std::string& name) {
    const std::string prefix = name + "__";
    const auto has = [&](const std::string& expression) {
        const std::size_t at = expression.find(prefix);
        return at != std::string::npos &&
               (at == 0 ||
                (!std::isalnum(static_cast<unsigned char>(expression[at - 1])) && expression[at - 1] != '_'));
    };
    return std::ranges::any_of(one.checks, [&](const VerifyCheck& check) {
        return has(check.number) || has(check.tolerance) || std::ranges::any_of(check.bounds, has) ||
               std::ranges::any_of(check.where, has);
    });
}

// Adds the cases that a later one of `out` refers to, and what these refer to themselves.
void add_needed(std::span<const VerifyCase> cases, std::vector<SelectedCase>& out) {
    for (auto one = cases.rbegin(); one != cases.rend(); ++one) {
        const auto later =
            std::ranges::partition_point(out, [&](const SelectedCase& other) { return other.is < &*one; });
        if (later != out.end() && later->is == &*one) continue;
        if (std::any_of(later, out.end(),
                        [&](const SelectedCase& other) { return refers_to(*other.is, one->name); }))
            out.insert(later, {&*one, false});
    }
}

}  // namespace

bool is_meant(const std::string& name, const std::string& word) {
    return word.ends_with('*') ? name.starts_with(std::string_view(word).substr(0, word.size() - 1))
                               : name == word;
}

VerifySelection select_cases(std::span<const VerifyCase> cases, const VerifyChoice& choice) {
    VerifySelection out;
    for (const std::string& word : choice.names)
        if (std::ranges::none_of(cases, [&](const VerifyCase& one) { return is_meant(one.name, word); }))
            if (out.error.empty()) out.error = unknown_name(cases, word);
    if (!out.error.empty()) return out;
    for (const VerifyCase& one : cases) {
        const bool named =
            choice.names.empty() || std::ranges::any_of(choice.names, [&](const std::string& word) {
                return is_meant(one.name, word);
            });
        if (!named || !one.name.starts_with(choice.only)) continue;
        if (choice.quick && one.is_long)
            ++out.left_out;
        else
            out.cases.push_back({&one});
    }
    if (out.cases.empty() && out.left_out == 0)
        out.error = "no case has a name that begins with '" + choice.only + "'";
    out.judged = static_cast<int>(out.cases.size());
    add_needed(cases, out.cases);
    return out;
}

}  // namespace kestralum
