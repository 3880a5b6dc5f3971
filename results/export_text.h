// What the writers of other programs' formats share: names that they take, numbers with all their digits.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "results/export_file.h"
#include "results/text_output.h"

namespace kestralum {

// Names as a format allows them, each once; what is changed gets a notice.
class ExportNames {
public:
    enum class Rule {
        deck,  // letters, digits, "_" and "-", not a digit first, at most 80, small and capital letters alike
        quoted  // all but control characters and quotes, at most 127
    };
    ExportNames(Rule rule, std::vector<std::string>& notices) : rule_(rule), notices_(notices) {}

    // `what`: "set", "part", for the notice.
    std::string take(const char* what, const std::string& name);
    // Without a notice: a name of the writer's own.
    std::string take_own(const std::string& name);

private:
    std::string legal(const std::string& name) const;
    std::string once(const std::string& name);

    const Rule rule_;
    std::vector<std::string>& notices_;
    std::set<std::string> taken_;  // in capitals where these count alike
};

// The shortest digits that give the value back.
void append_exact(std::string& text, double value);

// The same within the twenty characters that CalculiX reads of a field: numbers that need more, of sixteen
// digits and an exponent, lose one to three of their last digits.
void append_field(std::string& text, double value);

// The nodes of solid elements, 0-based, ascending.
std::vector<std::int32_t> solid_nodes(const Mesh& mesh);

// Runs `write`, which returns what went wrong, unless the work was stopped before; that or the trouble goes
// into the job's remarks. Whether the file was written.
bool put_export(const ExportJob& job, const std::function<std::string()>& write);
// The same with write_whole().
bool write_export(const ExportJob& job, const std::function<void(TextOutput&)>& fill);

}  // namespace kestralum
