#include "input/calculator.h"

#if defined(__GNUC__) && !defined(__clang__)
// Under the sanitizers g++ 12 takes the empty match of a Spirit parser for an uninitialized one.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <algorithm>
#include <array>
#include <boost/spirit/include/classic_core.hpp>
#include <charconv>
#include <cmath>
#include <functional>
#include <vector>

#include "model/token_reader.h"

namespace kestralum {

namespace {

namespace spirit = boost::spirit::classic;

using Step = Expression::Step;

// What the semantic actions work on; cleared before each parse.
struct Calculation {
    // a name whose "(" may still come, and the height of the value stack below its arguments
    struct Name {
        std::string_view text;
        std::size_t height;
    };
    std::span<const Parameter> parameters;
    std::span<const std::string_view> variables;
    std::vector<Step> steps;
    std::size_t height = 0, most = 0;  // of the values that the steps leave, so far
    std::vector<Name> names;
    const char* reached = nullptr;  // end of the last number or name
    std::string error;              // the first one

    void push(Step step) {
        steps.push_back(step);
        most = std::max(most, ++height);
    }
    void fail(std::string text) {
        if (error.empty()) error = std::move(text);
    }
};

struct Function {
    std::string_view name;
    std::size_t arguments;
    double (*apply)(const double* argument);
};

double sgn(const double* a) {
    if (a[0] > 0) return 1;
    return a[0] < 0 ? -1 : a[0];
}

double switch_by_sign(const double* a) {
    if (a[0] > 0) return a[1];
    if (a[0] == 0) return a[2];
    return a[0] < 0 ? a[3] : 0;
}

constexpr Function functions[] = {
    {"sin", 1, [](const double* a) { return std::sin(a[0]); }},
    {"cos", 1, [](const double* a) { return std::cos(a[0]); }},
    {"asin", 1, [](const double* a) { return std::asin(a[0]); }},
    {"acos", 1, [](const double* a) { return std::acos(a[0]); }},
    {"sgn", 1, sgn},
    {"SWITCH", 4, switch_by_sign},
};

struct PushNumber {
    Calculation* c;
    void operator()(const char* first, const char* last) const {
        double value = 0;
        if (std::from_chars(first, last, value).ec != std::errc{})
            c->fail("number " + std::string(first, last) + " out of range");
        c->push({Step::Kind::number, value});
        c->reached = last;
    }
};

struct PushName {
    Calculation* c;
    void operator()(const char* first, const char* last) const {
        c->names.push_back({std::string_view(first, last), c->height});
        c->reached = last;
    }
};

struct Resolve {
    Calculation* c;
    void operator()(const char*, const char*) const {
        const std::string_view name = c->names.back().text;
        c->names.pop_back();
        for (std::size_t k = 0; k < c->variables.size(); ++k)
            if (c->variables[k] == name) return c->push({Step::Kind::variable, 0, k});
        for (const Parameter& parameter : c->parameters)
            if (parameter.name == name && name != "time")
                return c->push({Step::Kind::number, parameter.value});
        c->push({Step::Kind::number});
        c->fail("unknown name '" + std::string(name) + "'");
    }
};

struct Call {
    Calculation* c;
    void operator()(const char*, const char*) const {
        const Calculation::Name name = c->names.back();
        c->names.pop_back();
        const std::size_t given = c->height - name.height;
        const Function* found = nullptr;
        for (const Function& function : functions)
            if (function.name == name.text) found = &function;
        if (!found)
            c->fail("unknown function '" + std::string(name.text) + "'");
        else if (found->arguments != given)
            c->fail(std::string(name.text) + "() takes " + std::to_string(found->arguments) + ", not " +
                    std::to_string(given) + " arguments");
        c->height = name.height;
        c->push({Step::Kind::function, 0, given, nullptr, found ? found->apply : nullptr});
    }
};

struct Binary {
    Calculation* c;
    double (*operation)(double, double);
    void operator()(const char*, const char*) const {
        c->steps.push_back({Step::Kind::binary, 0, 0, operation});
        --c->height;
    }
};

struct Negate {
    Calculation* c;
    void operator()(const char*, const char*) const { c->steps.push_back({Step::Kind::negate}); }
};

template <typename Operation>
double apply(double a, double b) {
    return Operation{}(a, b);
}

// The rules and what their actions work on; one for each thread, since a rule holds the addresses of both.
// Every alternative is chosen by its first character, so that no action fires for a text that is
// then read another way.
struct Grammar {
    using Scanner = spirit::phrase_scanner_t;
    Calculation c;
    spirit::rule<Scanner> expression, term, factor, power, operand, call;
    spirit::rule<spirit::lexeme_scanner<Scanner>::type> number, name;

    Grammar() {
        using namespace spirit;
        const auto letter = range_p('a', 'z') | range_p('A', 'Z') | '_';
        const auto digit = range_p('0', '9');
        const auto exponent = (ch_p('e') | 'E') >> !(ch_p('+') | '-') >> +digit;
        number = (+digit >> !('.' >> *digit) | '.' >> +digit) >> !exponent;
        name = letter >> *(letter | digit);
        expression = term >> *(('+' >> term)[Binary{&c, apply<std::plus<>>}] |
                               ('-' >> term)[Binary{&c, apply<std::minus<>>}]);
        term = factor >> *(('*' >> factor)[Binary{&c, apply<std::multiplies<>>}] |
                           ('/' >> factor)[Binary{&c, apply<std::divides<>>}]);
        factor = ('-' >> factor)[Negate{&c}] | '+' >> factor | power;
        power = operand >> !('^' >> factor)[Binary{&c, std::pow}];
        operand = lexeme_d[number][PushNumber{&c}] | '(' >> expression >> ')' |
                  lexeme_d[name][PushName{&c}] >> (call[Call{&c}] | (~eps_p('('))[Resolve{&c}]);
        call = '(' >> expression >> *(',' >> expression) >> ')';
    }
    Grammar(const Grammar&) = delete;
    Grammar& operator=(const Grammar&) = delete;
};

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Sign, digits, point: texts of this beginning may be plain numbers, the common case.
bool may_be_plain(std::string_view text) {
    if (text.size() > 1 && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
    return !text.empty() && (is_digit(text[0]) || text[0] == '.');
}

std::string shortened(std::string_view text) {
    constexpr std::size_t shown = 40;
    return text.size() <= shown ? std::string(text) : std::string(text.substr(0, shown)) + "...";
}

}  // namespace

namespace {

// The value that the steps leave; stack: room for as many values as stand on it at most.
double run(std::span<const Step> steps, std::span<const double> variables, double* stack) {
    double* top = stack;  // behind the topmost value
    for (const Step& step : steps) switch (step.kind) {
            case Step::Kind::number:
                *top++ = step.value;
                break;
            case Step::Kind::variable:
                *top++ = variables[step.index];
                break;
            case Step::Kind::negate:
                top[-1] = -top[-1];
                break;
            case Step::Kind::binary:
                top[-2] = step.binary(top[-2], top[-1]);
                --top;
                break;
            case Step::Kind::function:
                top -= step.index;
                *top = step.function(top);
                ++top;
                break;
        }
    return *stack;
}

// The calculation of `text` in this thread's grammar, which the next one overwrites; error: why there is
// none.
const Calculation& read(std::string_view text, std::span<const std::string_view> variables,
                        std::span<const Parameter> parameters, std::string& error) {
    thread_local Grammar grammar;
    Calculation& c = grammar.c;
    c.parameters = parameters;
    c.variables = variables;
    c.steps.clear();
    c.height = c.most = 0;
    c.names.clear();
    c.error.clear();
    c.reached = text.data();
    const std::size_t last = text.find_last_not_of(" \t\r\n\v\f");
    text = text.substr(0, last == std::string_view::npos ? 0 : last + 1);
    error.clear();
    if (may_be_plain(text))
        if (const auto number = parse_double(text)) {
            c.push({Step::Kind::number, *number});
            return c;
        }
    if (text.size() > longest_expression) {
        error = "longer than " + std::to_string(longest_expression) + " characters";
        return c;
    }
    const char* const end = text.data() + text.size();
    const auto info = spirit::parse(text.data(), end, grammar.expression, spirit::space_p);
    const std::string_view rest(c.reached, end);
    if (info.full)
        error = c.error;
    else if (rest.empty())
        error = text.empty() ? "empty" : "ends too early";
    else
        error = "not understood at '" + shortened(rest) + "'";
    return c;
}

// A stack for steps that leave at most `height` values: seldom many.
class Stack {
public:
    explicit Stack(std::size_t height) {
        if (height > few_.size()) many_.resize(height);
    }
    double* values() { return many_.empty() ? few_.data() : many_.data(); }

private:
    std::array<double, 16> few_;
    std::vector<double> many_;
};

}  // namespace

CalcResult calc(std::string_view text, std::span<const Parameter> parameters, double time) {
    static constexpr std::string_view time_word[] = {"time"};
    CalcResult result;
    const Calculation& c = read(text, time_word, parameters, result.error);
    if (!result.ok()) return result;
    Stack stack(c.most);
    result.value = run(c.steps, std::span(&time, 1), stack.values());
    return result;
}

Expression::Expression(std::string_view text, std::span<const std::string_view> variables,
                       std::span<const Parameter> parameters) {
    const Calculation& c = read(text, variables, parameters, error_);
    if (ok()) {
        steps_ = c.steps;
        height_ = c.most;
    } else {
        steps_ = {{Step::Kind::number}};
    }
}

double Expression::at(std::span<const double> values) const {
    Stack stack(height_);
    return run(steps_, values, stack.values());
}

bool names_time(std::string_view text) {
    return uses_name(text, "time");
}

bool uses_name(std::string_view text, std::string_view word) {
    const auto in_name = [&](std::size_t k) {
        return k < text.size() && (is_letter(text[k]) || is_digit(text[k]));
    };
    for (std::size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1))
        if ((at == 0 || !in_name(at - 1)) && !in_name(at + word.size())) return true;
    return false;
}

bool is_parameter_name(std::string_view text) {
    if (text.empty() || text == "time" || !is_letter(text[0])) return false;
    return std::all_of(text.begin(), text.end(), [](char c) { return is_letter(c) || is_digit(c); });
}

}  // namespace kestralum
