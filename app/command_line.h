// What the command lines of both programs have in common: a table of options, read by CLI11. Its headers are
// slow to compile and stay in one source file.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kestralum {

// What stands on both command lines.
struct CommonOptions {
    bool help = false, version = false, quiet = false;
    std::string model_file;  // "" = none
    std::string log_folder = "log";
    std::string error;  // bad usage: why
};

// A value with its own reading: it gets the text of each time the option stands on the line and returns why
// it refuses it, empty if it takes it.
using Take = std::function<std::string(const std::string&)>;

// Terms of an option; names as "--snapshot", empty = none.
struct OptionTerms {
    std::string needs, excludes;
    std::string group;  // heading in the help
};

class CommandLine {
public:
    // Lines of usage, which the help begins with; with --help and --version.
    CommandLine(const std::string& usage, CommonOptions& common);
    CommandLine(CommandLine&&) noexcept;
    ~CommandLine();

    // `shape`: the value in the help. A name without dashes is a positional argument.
    void add_value(const std::string& name, const std::string& shape, const std::string& description,
                   Take take, const OptionTerms& terms = {});
    void add_text(const std::string& name, const std::string& shape, const std::string& description,
                  std::string& place, const OptionTerms& terms = {});
    // Any number of positional arguments behind the others.
    void add_words(const std::string& name, const std::string& description, std::vector<std::string>& place);
    void add_flag(const std::string& name, const std::string& description, bool& place);
    void add_footer(const std::string& text);

    // Reads the line; why it is refused, with the word, or empty. An option stands as it is named and its
    // value is the word behind it, whatever that begins with; "--log=DIR" and "-hx" are no options. An empty
    // word where a positional one is wanted counts for none.
    std::string parse(std::span<const char* const> arguments);
    // Whether the last line that was read had an empty word behind its first positional argument.
    bool passed_over_empty() const { return passed_over_empty_; }
    std::string help_text() const;

private:
    std::unique_ptr<CLI::App> app_;
    bool passed_over_empty_ = false;
};

}  // namespace kestralum
