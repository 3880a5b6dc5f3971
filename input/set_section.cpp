// Named sets of nodes and faces.
#include <algorithm>
#include <cmath>

#include "input/calculator.h"
#include "input/record_fields.h"
#include "input/section_readers.h"
#include "model/format.h"
#include "model/progress.h"

namespace kestralum {

namespace {

constexpr std::string_view tolerance_option = "tol=";

// Tokens behind name and kind.
std::size_t token_count(SetKind kind) {
    switch (kind) {
        case SetKind::box:
            return 6;
        case SetKind::plane:
            return 2;
        case SetKind::sphere:
        case SetKind::normal:
        case SetKind::patch:
            return 4;
        case SetKind::cylinder:
            return 5;
        case SetKind::where:
        case SetKind::part:
        case SetKind::group:
        case SetKind::union_of:
        case SetKind::intersection:
        case SetKind::difference:
            return 1;
    }
    return 1;
}

std::vector<std::string> split_names(const Token& token, InputRemarks& remarks) {
    std::vector<std::string> names;
    std::string_view rest = token.text;
    for (bool more = true; more;) {
        const std::size_t comma = rest.find(',');
        more = comma != std::string_view::npos;
        names.emplace_back(rest.substr(0, comma));
        if (names.back().empty()) remarks.expected(token, "names of sets, a comma between them: A,B");
        rest = more ? rest.substr(comma + 1) : std::string_view{};
    }
    return names;
}

class SetReader {
public:
    SetReader(const Model& model, InputRemarks& remarks)
        : model_(model), fields_(model.parameters, remarks), remarks_(remarks) {}

    // Reads the record at the front of `tokens` and takes it off; false where the rest cannot be read.
    bool read(std::span<const Token>& tokens, SetDefinition& set) {
        set.name = fields_.name(tokens[0], name_text_width);
        set.place = place_of(tokens[0]);
        if (set.name.find(',') != std::string::npos) remarks_.expected(tokens[0], "a name without a comma");
        const auto words = set_kind_words();
        const auto word = tokens.size() > 1 ? std::ranges::find(words, tokens[1].text) : words.end();
        if (word == words.end()) {
            std::string all;
            for (const std::string_view w : words) all += (all.empty() ? "" : ", ") + std::string(w);
            remarks_.expected(
                tokens.size() > 1 ? tokens[1] : tokens[0],
                "a kind of set behind its name (" + all + "); the section cannot be read further");
            return false;
        }
        set.kind = static_cast<SetKind>(word - words.begin());
        const std::size_t count = token_count(set.kind);
        if (tokens.size() < 2 + count) {
            remarks_.expected(
                tokens.back(),
                formatted("%zu tokens behind the set's kind, %zu", count, tokens.size() - 2) + " are there,");
            return false;
        }
        read_definition(tokens.subspan(2, count), set);
        tokens = tokens.subspan(2 + count);
        for (; !tokens.empty() && tokens[0].text.starts_with(tolerance_option); tokens = tokens.subspan(1)) {
            const auto value = fields_.evaluate(tokens[0], tokens[0].text.substr(tolerance_option.size()));
            if (value && *value < 0) remarks_.expected(tokens[0], "tol=LENGTH of at least 0 m");
            set.tolerance = value.value_or(0);
        }
        return true;
    }

private:
    void read_definition(std::span<const Token> t, SetDefinition& set) {
        auto& v = set.numbers;
        switch (set.kind) {
            case SetKind::box:
                v = fields_.numbers<6>(t);
                return notice_empty_box(t[0], v, -1, remarks_);
            case SetKind::plane:
                set.axis = fields_.word(t[0], axis_words, "an axis");
                v[0] = fields_.number(t[1]);
                return;
            case SetKind::cylinder:
                set.axis = fields_.word(t[0], axis_words, "an axis");
                t = t.subspan(1);
                [[fallthrough]];
            case SetKind::sphere:
                read_place(t, v);
                v[3] = fields_.number_where(
                    t[3], [](double r) { return r > 0; }, "a radius above 0 m");
                return;
            case SetKind::normal:
            case SetKind::patch:
                read_place(t, v);
                v[3] = fields_.number_where(
                    t[3], [](double a) { return a >= 0 && a <= 180; }, "an angle of 0 to 180 degrees");
                if (set.kind == SetKind::normal && v[0] == 0 && v[1] == 0 && v[2] == 0)
                    remarks_.expected(t[0], "a direction that is not zero");
                return;
            case SetKind::where:
                return read_expression(t[0], set);
            case SetKind::part:
            case SetKind::group:
                set.operands = {std::string(t[0].text)};
                return;
            case SetKind::union_of:
            case SetKind::intersection:
            case SetKind::difference:
                set.operands = split_names(t[0], remarks_);
        }
    }
    void read_place(std::span<const Token> t, std::array<double, 6>& v) {
        for (std::size_t c = 0; c < 3; ++c) v[c] = fields_.number(t[c]);
    }
    void read_expression(const Token& token, SetDefinition& set) {
        static constexpr std::string_view variables[] = {"x", "y", "z", "time"};
        const Expression expression(token.text, variables, model_.parameters);
        if (!expression.ok())
            remarks_.expected(token, "an expression over x, y, z and the parameters defined so far (" +
                                         expression.error() + ")");
        set.where = [expression](const double* x) {
            return expression.at(std::array{x[0], x[1], x[2], 0.0});
        };
    }

    const Model& model_;
    RecordFields fields_;
    InputRemarks& remarks_;
};

}  // namespace

void read_set_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    std::vector<SetDefinition> sets;
    RecordNames names("records that name this set take the earlier one", remarks);
    SetReader reader(model, remarks);
    std::span<const Token> tokens = section.tokens;
    while (!tokens.empty() && !progress.cancelled()) {
        const Token first = tokens[0];
        if (!reader.read(tokens, sets.emplace_back())) break;
        names.add(first, sets.back().name);
    }
    progress.print("set_num=%zu\n", sets.size());
    for (std::size_t k = 0; k < sets.size(); ++k)
        progress.print("%zu:%s, %s[%d]\n", k, sets[k].name.c_str(),
                       std::string(set_kind_words()[static_cast<std::size_t>(sets[k].kind)]).c_str(),
                       static_cast<int>(sets[k].kind));
    model.sets = std::move(sets);
}

}  // namespace kestralum
