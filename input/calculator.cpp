#include "input/calculator.h"

#if defined(__GNUC__) && !defined(__clang__)
// Under the sanitizers g++ 12 takes the empty match of a Spirit parser for an uninitialized one.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <algorithm>
#include <boost/spirit/include/classic_core.hpp>
#include <charconv>
#include <cmath>
#include <functional>
#include <vector>

#include "model/token_reader.h"

namespace kestralum {

namespace {

namespace spirit = boost::spirit::classic;

// What the semantic actions work on; cleared before each parse.
struct Calculation {
    // a name whose "(" may still come, and the height of the value stack below its arguments
    struct Name {
        std::string_view text;
        std::size_t height;
    };
    std::span<const Parameter> parameters;
    double time = 0;
    std::vector<double> values;
    std::vector<Name> names;
    const char* reached = nullptr;  // end of the last number or name
    std::string error;              // the first one

    double pop() {
        if (values.empty()) return 0;
        const double value = values.back();
        values.pop_back();
        return value;
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
        c->values.push_back(value);
        c->reached = last;
    }
};

struct PushName {
    Calculation* c;
    void operator()(const char* first, const char* last) const {
        c->names.push_back({std::string_view(first, last), c->values.size()});
        c->reached = last;
    }
};

struct Resolve {
    Calculation* c;
    void operator()(const char*, const char*) const {
        const std::string_view name = c->names.back().text;
        c->names.pop_back();
        if (name == "time") {
            c->values.push_back(c->time);
            return;
        }
        for (const Parameter& parameter : c->parameters)
            if (parameter.name == name) {
                c->values.push_back(parameter.value);
                return;
            }
        c->values.push_back(0);
        c->fail("unknown name '" + std::string(name) + "'");
    }
};

struct Call {
    Calculation* c;
    void operator()(const char*, const char*) const {
        const Calculation::Name name = c->names.back();
        c->names.pop_back();
        const std::size_t given = c->values.size() - name.height;
        double result = 0;
        const Function* found = nullptr;
        for (const Function& function : functions)
            if (function.name == name.text) found = &function;
        if (!found)
            c->fail("unknown function '" + std::string(name.text) + "'");
        else if (found->arguments != given)
            c->fail(std::string(name.text) + "() takes " + std::to_string(found->arguments) + ", not " +
                    std::to_string(given) + " arguments");
        else
            result = found->apply(c->values.data() + name.height);
        c->values.resize(name.height);
        c->values.push_back(result);
    }
};

struct Binary {
    Calculation* c;
    double (*operation)(double, double);
    void operator()(const char*, const char*) const {
        const double right = c->pop();
        const double left = c->pop();
        c->values.push_back(operation(left, right));
    }
};

struct Negate {
    Calculation* c;
    void operator()(const char*, const char*) const { c->values.push_back(-c->pop()); }
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

CalcResult calc(std::string_view text, std::span<const Parameter> parameters, double time) {
    const std::size_t last = text.find_last_not_of(" \t\r\n\v\f");
    text = text.substr(0, last == std::string_view::npos ? 0 : last + 1);
    if (may_be_plain(text))
        if (const auto number = parse_double(text)) return {*number, {}};
    if (text.size() > longest_expression)
        return {0, "longer than " + std::to_string(longest_expression) + " characters"};

    thread_local Grammar grammar;
    Calculation& c = grammar.c;
    c.parameters = parameters;
    c.time = time;
    c.values.clear();
    c.names.clear();
    c.error.clear();
    c.reached = text.data();
    const char* const end = text.data() + text.size();
    const auto info = spirit::parse(text.data(), end, grammar.expression, spirit::space_p);
    if (!info.full) {
        const std::string_view rest(c.reached, end);
        if (rest.empty()) return {0, text.empty() ? "empty" : "ends too early"};
        return {0, "not understood at '" + shortened(rest) + "'"};
    }
    if (!c.error.empty()) return {0, c.error};
    return {c.pop(), {}};
}

bool names_time(std::string_view text) {
    constexpr std::string_view word = "time";
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
