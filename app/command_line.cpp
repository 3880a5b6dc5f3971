#include "app/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>
#include <vector>

namespace kestralum {

namespace {

// Help that begins with the lines of usage, which stand in for the description.
class UsageFormatter : public CLI::Formatter {
public:
    UsageFormatter() {
        column_width(24);
        label("Positionals", "Arguments");
    }
    std::string make_usage(const CLI::App*, std::string) const override { return {}; }
};

}  // namespace

CommandLine::CommandLine(const std::string& usage, CommonOptions& common)
    : app_(std::make_unique<CLI::App>(usage)) {
    app_->formatter(std::make_shared<UsageFormatter>());
    app_->allow_extras();   // refused by parse()
    app_->set_help_flag();  // its own would end the reading at once
    add_flag("-h,--help", "prints this", common.help);
    add_flag("--version", "prints the version", common.version);
}

CommandLine::CommandLine(CommandLine&&) noexcept = default;
CommandLine::~CommandLine() = default;

void CommandLine::add_value(const std::string& name, const std::string& shape, const std::string& description,
                            Take take, const OptionTerms& terms) {
    const auto take_all = [take = std::move(take)](const CLI::results_t& texts) {
        for (const std::string& text : texts)
            if (const std::string refused = take(text); !refused.empty()) throw CLI::ValidationError(refused);
        return true;
    };
    CLI::Option* option = app_->add_option(name, take_all, description)
                              ->option_text(shape)
                              ->expected(1)
                              ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    if (!terms.needs.empty()) option->needs(app_->get_option(terms.needs));
    if (!terms.excludes.empty()) option->excludes(app_->get_option(terms.excludes));
    if (!terms.group.empty()) option->group(terms.group);
}

void CommandLine::add_text(const std::string& name, const std::string& shape, const std::string& description,
                           std::string& place, const OptionTerms& terms) {
    auto take = [&place](const std::string& text) {
        place = text;
        return std::string();
    };
    add_value(name, shape, description, take, terms);
}

void CommandLine::add_words(const std::string& name, const std::string& description,
                            std::vector<std::string>& place) {
    app_->add_option(name, place, description)->option_text("...");
}

void CommandLine::add_flag(const std::string& name, const std::string& description, bool& place) {
    app_->add_flag(name, place, description);
}

void CommandLine::add_footer(const std::string& text) {
    app_->footer(text);
}

std::string CommandLine::parse(std::span<const char* const> arguments) {
    std::size_t positionals =
        app_->get_options([](const CLI::Option* option) { return option->get_positional(); }).size();
    const std::size_t all_positionals = positionals;
    passed_over_empty_ = false;
    std::vector<std::string> words;
    for (std::size_t k = 0; k < arguments.size(); ++k) {
        const std::string word = arguments[k];
        if (word.empty() && positionals > 0) {
            passed_over_empty_ = passed_over_empty_ || positionals < all_positionals;
            continue;
        }
        words.push_back(word);
        if (word.size() < 2 || word[0] != '-') {
            positionals -= positionals > 0;
            continue;
        }
        const CLI::Option* option = app_->get_option_no_throw(word);
        if (!option) return "unknown option " + word;
        if (option->get_expected_max() == 0) continue;
        if (++k == arguments.size()) return word + " wants a value";
        words.push_back(arguments[k]);
    }
    std::reverse(words.begin(), words.end());  // as the parser takes them
    try {
        app_->parse(std::move(words));
    } catch (const CLI::ParseError& refused) {
        // who asks for help need not have the rest together
        const bool together = dynamic_cast<const CLI::RequiresError*>(&refused) ||
                              dynamic_cast<const CLI::ExcludesError*>(&refused);
        if (!together || app_->count("--help") + app_->count("--version") == 0) return refused.what();
    }
    const std::vector<std::string> left = app_->remaining();
    return left.empty() ? std::string() : "'" + left.front() + "' is one argument too many";
}

std::string CommandLine::help_text() const {
    return CLI::detail::find_and_replace(app_->help(), "\n\n\n", "\n\n");  // one blank line between groups
}

}  // namespace kestralum
