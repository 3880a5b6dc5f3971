#include "app/verify_cases.h"

#include <algorithm>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "analysis/analysis_table.h"
#include "input/calculator.h"
#include "input/input_remarks.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

constexpr std::array<std::string_view, 9> measured_words{"displacement", "stress",   "frequency",
                                                         "load_factor",  "reaction", "energy",
                                                         "radius",       "formula",  "error_ratio"};
constexpr std::array<std::string_view, 4> place_words{"at", "set", "set_max", "set_min"};
constexpr std::array<std::string_view, 5> expectation_words{"near", "below", "above", "between", "shown"};
constexpr std::array<std::string_view, 4> displacement_words{"x", "y", "z", "magnitude"};
constexpr std::array<std::string_view, 7> stress_words{"xx", "yy", "zz", "xy", "yz", "zx", "mises"};
constexpr std::array<std::string_view, 3> axes{"x", "y", "z"};
// Options of the window program that name a file or folder to write: what a page is made of is written
// nowhere else.
constexpr std::array<std::string_view, 4> writing_options{"--snapshot", "--film", "--report", "--log"};

class Reader {
public:
    Reader(std::string_view text, const std::string& folder, InputRemarks& remarks)
        : tokens_(text), folder_(folder), remarks_(remarks) {}

    std::vector<VerifyCase> read() {
        std::vector<VerifyCase> cases;
        for (Token token = next(); !token.text.empty() && remarks_.ok(); token = next()) {
            if (token.text.starts_with('%')) continue;
            if (token.text == "END") break;
            if (token.text != "case") {
                expected(token, "case, a comment or END");
                break;
            }
            VerifyCase one;
            one.name = next_word("the name of the case");
            if (std::ranges::count(cases, one.name, &VerifyCase::name) > 0)
                expected(last_, "a name that no case before has");
            read_case(one, cases);
            cases.push_back(std::move(one));
        }
        if (remarks_.ok() && cases.empty()) remarks_.error("it holds no case");
        return remarks_.ok() ? cases : std::vector<VerifyCase>();
    }

private:
    // The first thing that is wrong is told, what follows from it is not.
    void expected(const Token& token, std::string_view what) {
        if (remarks_.ok()) remarks_.expected(token, what);
    }
    Token next() {
        const std::string_view text = tokens_.next();
        return last_ = {text, tokens_.token_number()};
    }
    std::string next_word(std::string_view what) {
        const Token token = next();
        if (token.text.empty() || token.text.starts_with('%')) expected(token, what);
        return std::string(token.text);
    }
    template <std::size_t N>
    std::size_t word_of(const std::array<std::string_view, N>& words, const char* what) {
        const Token token = next();
        const auto at = std::ranges::find(words, token.text);
        if (at != words.end()) return at - words.begin();
        std::string list;
        for (const std::string_view word : words) list += (list.empty() ? "" : ", ") + std::string(word);
        expected(token, std::string(what) + " (" + list + ")");
        return 0;
    }
    // The words up to "%", with a blank between them.
    std::string text_line() {
        std::string out;
        for (Token token = next(); !token.text.starts_with('%'); token = next()) {
            if (token.text.empty()) {
                expected(token, "%");
                break;
            }
            out += (out.empty() ? "" : " ") + std::string(token.text);
        }
        return out;
    }

    // The same of options of a picture, none of which may write.
    std::string picture_line() {
        std::string out;
        for (Token token = next(); !token.text.starts_with('%'); token = next()) {
            const std::string_view option = token.text.substr(0, token.text.find('='));
            if (token.text.empty() || std::ranges::count(writing_options, option) > 0) {
                expected(token, token.text.empty() ? "%" : "an option that says how the picture looks");
                break;
            }
            out += (out.empty() ? "" : " ") + std::string(token.text);
        }
        return out;
    }

    // All of an earlier case but its name and what is said to be bad about it.
    void take_over(VerifyCase& one, std::span<const VerifyCase> before) {
        const auto other = std::ranges::find(before, next_word("the name of a case"), &VerifyCase::name);
        if (other == before.end()) return expected(last_, "the name of a case before this one");
        std::string name = std::move(one.name);
        one = *other;
        one.name = std::move(name);
        one.weak.clear();
    }

    void read_case(VerifyCase& one, std::span<const VerifyCase> before) {
        for (bool first = true; remarks_.ok(); first = false) {
            const Token key = next();
            if (key.text == "like" && first) {
                take_over(one, before);
            } else if (key.text == "shown") {
                for (VerifyCheck& check : one.checks) check.is_shown = true;
            } else if (key.text == "title") {
                one.title = text_line();
            } else if (key.text == "source") {
                one.source = text_line();
            } else if (key.text == "family") {
                one.family = text_line();
            } else if (key.text == "weak") {
                one.weak = text_line();
                if (one.weak.empty()) expected(last_, "why the formulation is known to be bad");
            } else if (key.text == "picture") {
                one.picture = picture_line();
            } else if (key.text == "model") {
                one.model_file = folder_ + text_line();
            } else if (key.text == "run") {
                read_run(one);
            } else if (key.text == "check") {
                read_checks(one);
                if (one.model_file.empty() || one.analysis.empty())
                    expected(key, "model and run before the checks of a case");
                return;
            } else {
                expected(key, "like, title, source, family, weak, picture, model, run, shown or check");
            }
        }
    }

    void read_run(VerifyCase& one) {
        one.overrides.clear();
        one.hexahedra.reset();
        one.load_case.clear();
        one.prestress = one.is_long = false;
        one.analysis = next_word("an analysis");
        if (!find_analysis(one.analysis)) expected(last_, "an analysis");
        for (Token token = next(); remarks_.ok() && !token.text.starts_with('%'); token = next()) {
            const std::size_t equals = token.text.find('=');
            const std::string_view key = token.text.substr(0, equals);
            const std::string value(equals == std::string_view::npos ? "" : token.text.substr(equals + 1));
            const std::size_t second = value.find('=');
            if (key == "hexahedra" && hexahedron_form_of(value))
                one.hexahedra = hexahedron_form_of(value);
            else if (key == "set" && second != std::string::npos)
                one.overrides.push_back({value.substr(0, second), value.substr(second + 1)});
            else if (key == "case" && !value.empty())
                one.load_case = value;
            else if (token.text == "prestress")
                one.prestress = true;
            else if (token.text == "long")
                one.is_long = true;
            else
                expected(token, "set=NAME=EXPRESSION, hexahedra=WORD, case=NAME, prestress, long or %");
        }
    }

    // A record of the name of one that was taken over takes its place.
    void read_checks(VerifyCase& one) {
        const std::size_t taken_over = one.checks.size();
        std::set<std::string> said;
        Token token = next();
        while (remarks_.ok() && !token.text.starts_with('%')) {
            if (token.text.empty()) {
                expected(token, "%");
                return;
            }
            std::size_t at = 0;
            while (at < taken_over && one.checks[at].name != token.text) ++at;
            if (at == taken_over) at = one.checks.size();
            one.checks.resize(std::max(one.checks.size(), at + 1));
            VerifyCheck& check = one.checks[at] = {};
            check.name = token.text;
            if (!is_parameter_name(check.name)) expected(token, "a name that expressions can use");
            if (!said.insert(check.name).second) expected(token, "a name that no check of the case has");
            read_quantity(check);
            read_expectation(check);
            token = read_options(check);
        }
        if (one.checks.empty()) expected(token, "a check");
    }

    void read_place(VerifyCheck& check) {
        check.place = static_cast<Place>(word_of(place_words, "a place"));
        if (check.place != Place::at) {
            check.set_name = next_word("a set");
            return;
        }
        for (std::string& x : check.where) x = next_word("a coordinate");
    }

    void read_quantity(VerifyCheck& check) {
        check.measured = static_cast<Measured>(word_of(measured_words, "a quantity"));
        switch (check.measured) {
            case Measured::displacement:
                check.component = displacement_words[word_of(displacement_words, "a component")];
                return read_place(check);
            case Measured::stress:
                check.component = stress_words[word_of(stress_words, "a component")];
                return read_place(check);
            case Measured::frequency:
            case Measured::load_factor:
                check.number = next_word("the number of a mode");
                return;
            case Measured::reaction:
                check.set_name = next_word("a support");
                check.component = axes[word_of(axes, "an axis")];
                return;
            case Measured::radius:
                check.set_name = next_word("a set");
                check.component = axes[word_of(axes, "an axis")];
                for (std::string& x : check.where) x = next_word("a coordinate");
                return;
            case Measured::formula:
                check.number = next_word("an expression");
                return;
            case Measured::error_ratio:
                check.component = next_word("the name of a check");
                check.number = next_word("the name of a case") + "__" + check.component;
                return;
            case Measured::energy:
                return;
        }
    }

    void read_expectation(VerifyCheck& check) {
        check.expectation = static_cast<Expectation>(word_of(expectation_words, "an expectation"));
        check.bounds[0] = next_word("a value");
        if (check.expectation == Expectation::between) check.bounds[1] = next_word("a second value");
        if (check.expectation != Expectation::near) return;
        check.relative = word_of(std::array<std::string_view, 2>{"rel", "abs"}, "a kind of tolerance") == 0;
        check.tolerance = next_word("a tolerance");
    }

    // Returns the token behind them.
    Token read_options(VerifyCheck& check) {
        for (Token token = next();; token = next()) {
            if (token.text.starts_with("case="))
                check.case_name = token.text.substr(5);
            else if (token.text == "frame=min")
                check.frames = OverFrames::least;
            else if (token.text == "frame=max")
                check.frames = OverFrames::largest;
            else if (token.text == "plot")
                check.plotted = true;
            else
                return token;
        }
    }

    TokenReader tokens_;
    std::string folder_;
    InputRemarks& remarks_;
    Token last_;
};

}  // namespace

std::vector<VerifyCase> read_verify_cases(const std::string& file_name, Remarks& remarks) {
    InputRemarks of_file(file_name, remarks);
    std::string text, reason;
    std::vector<VerifyCase> cases;
    if (paths::read_text(file_name, text, reason))
        cases = Reader(text, paths::directory_of(file_name), of_file).read();
    else
        of_file.error(reason);
    of_file.close();
    return cases;
}

}  // namespace kestralum
