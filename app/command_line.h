// What the command lines of both programs have in common. Slow to compile: for one source file of each.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kestralum {

// Help that begins with the lines of usage, which stand in for the description.
class UsageFormatter : public CLI::Formatter {
public:
    UsageFormatter() {
        column_width(24);
        label("Positionals", "Arguments");
    }
    std::string make_usage(const CLI::App*, std::string) const override { return {}; }
};

// A command line with --help, --version and these lines of usage.
inline void set_up(CLI::App& app, const std::string& usage, bool& help, bool& version) {
    app.description(usage);
    app.formatter(std::make_shared<UsageFormatter>());
    app.allow_extras();   // told by parse_command_line()
    app.set_help_flag();  // its own would end the reading at once
    app.add_flag("-h,--help", help, "prints this");
    app.add_flag("--version", version, "prints the version");
}

inline std::string help_text(const CLI::App& app) {
    return CLI::detail::find_and_replace(app.help(), "\n\n\n", "\n\n");  // one blank line between groups
}

// A value with its own reading: `take` gets the text of each time the option stands on the line and tells why
// it refuses it, empty if it takes it. `shape`: the value in the help.
using Take = std::function<std::string(const std::string&)>;
inline CLI::Option* add_value(CLI::App& app, const std::string& name, const std::string& shape,
                              const std::string& description, Take take) {
    const auto take_all = [take = std::move(take)](const CLI::results_t& texts) {
        for (const std::string& text : texts)
            if (const std::string refused = take(text); !refused.empty()) throw CLI::ValidationError(refused);
        return true;
    };
    return app.add_option(name, take_all, description)
        ->option_text(shape)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}
inline CLI::Option* add_text(CLI::App& app, const std::string& name, const std::string& shape,
                             const std::string& description, std::string& place) {
    return add_value(app, name, shape, description, [&place](const std::string& text) {
        place = text;
        return std::string();
    });
}

// Reads the line; why it is refused, with the word, or empty. An option stands as it is named and its value
// is the word behind it, whatever that begins with; "--log=DIR" and "-hx" are no options. An empty word where
// a positional one is wanted counts for none.
inline std::string parse_command_line(CLI::App& app, std::span<const char* const> arguments) {
    std::size_t positionals =
        app.get_options([](const CLI::Option* option) { return option->get_positional(); }).size();
    std::vector<std::string> words;
    for (std::size_t k = 0; k < arguments.size(); ++k) {
        const std::string word = arguments[k];
        if (word.empty() && positionals > 0) continue;
        words.push_back(word);
        if (word.size() < 2 || word[0] != '-') {
            positionals -= positionals > 0;
            continue;
        }
        const CLI::Option* option = app.get_option_no_throw(word);
        if (!option) return "unknown option " + word;
        if (option->get_expected_max() == 0) continue;
        if (++k == arguments.size()) return word + " wants a value";
        words.push_back(arguments[k]);
    }
    std::reverse(words.begin(), words.end());  // as the parser takes them
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& refused) {
        // who asks for help need not have the rest together
        const bool together = dynamic_cast<const CLI::RequiresError*>(&refused) ||
                              dynamic_cast<const CLI::ExcludesError*>(&refused);
        if (!together || app.count("--help") + app.count("--version") == 0) return refused.what();
    }
    const std::vector<std::string> left = app.remaining();
    return left.empty() ? std::string() : "'" + left.front() + "' is one argument too many";
}

}  // namespace kestralum
