// Sums of load cases.
#include <algorithm>
#include <cmath>

#include "input/calculator.h"
#include "input/record_fields.h"
#include "input/section_readers.h"
#include "model/load_cases.h"
#include "model/progress.h"

namespace kestralum {

void read_load_combination(const FileSection& section, Model& model, UnresolvedCombinations& unresolved,
                           InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto records = records_of(section, 2, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("load_combination_num=%zu\n", records.size());
    unresolved = {true, {}, model.parameters};
    std::vector<LoadCombination> combinations;
    RecordNames names("both combinations are made", remarks);
    for (const auto& record : records) {
        if (progress.cancelled()) return;
        LoadCombination& combination = combinations.emplace_back();
        combination.name = fields.name(record[0], name_text_width);
        combination.text = record[1].text;
        names.add(record[0], combination.name);
        unresolved.expression.push_back(record[1]);
        progress.print("%zu:%s, ", combinations.size() - 1, combination.name.c_str());
        progress.write(combination.text + "\n");
    }
    model.combinations = std::move(combinations);
}

namespace {

constexpr std::size_t cases_listed = 10;  // in an error

// The factors of the cases in the expression; why it has none where it is not linear.
std::string find_factors(const Expression& expression, std::vector<double>& factors) {
    std::vector<double> values(factors.size(), 0.0);
    if (expression.at(values) != 0) return "a part of it is in no load case";
    for (std::size_t k = 0; k < factors.size(); ++k) {
        values[k] = 1;
        factors[k] = expression.at(values);
        values[k] = 0;
    }
    for (const double scale : {1.0, -1.0, 1e-3, 1e3, -1e3}) {
        double sum = 0, size = 0;
        for (std::size_t k = 0; k < factors.size(); ++k) {
            values[k] = scale * (1 + 0.37 * static_cast<double>(k + 1)) * (k % 3 == 1 ? -1 : 1);
            sum += factors[k] * values[k];
            size += std::abs(factors[k] * values[k]);
        }
        if (!std::isfinite(sum)) return "a factor is not finite";
        if (!(std::abs(expression.at(values) - sum) <= 1e-9 * size)) return "it is not linear";
    }
    return {};
}

}  // namespace

void resolve_combinations(const UnresolvedCombinations& unresolved, Model& model, InputRemarks& remarks) {
    const std::vector<std::string> cases = case_names(model);
    if (!unresolved.given) {
        for (const LoadCombination& combination : model.combinations)
            for (const auto& [name, factor] : combination.terms)
                if (std::ranges::find(cases, name) == cases.end())
                    remarks.error("load combination " + combination.name + ": no load case " + name +
                                  " at the end of the file");
        return;
    }
    const std::vector<std::string_view> words(cases.begin(), cases.end());
    std::string all;
    for (std::size_t c = 0; c < std::min(cases.size(), cases_listed); ++c)
        all += (c > 0 ? ", " : "") + cases[c];
    if (cases.size() > cases_listed) all += ", ...";
    for (std::size_t k = 0; k < unresolved.expression.size(); ++k) {
        LoadCombination& combination = model.combinations[k];
        const Expression expression(combination.text, words, unresolved.parameters);
        std::vector<double> factors(cases.size(), 0.0);
        std::string wrong = expression.ok() ? find_factors(expression, factors) : expression.error();
        for (std::size_t c = 0; c < cases.size() && wrong.empty(); ++c)
            if (uses_name(combination.text, cases[c])) combination.terms.emplace_back(cases[c], factors[c]);
        if (wrong.empty() && combination.terms.empty()) wrong = "it names no load case";
        if (!wrong.empty())
            remarks.expected(unresolved.expression[k],
                             "a sum of load cases (" + all + ") times factors (" + wrong + ")");
    }
}

}  // namespace kestralum
