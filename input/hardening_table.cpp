#include "input/hardening_table.h"

namespace kestralum {

namespace {

// Takes the pair at the front off `rest`, up to a comma that is not one between a function's arguments.
std::string_view take_pair(std::string_view& rest, bool& more) {
    int depth = 0;
    std::size_t end = 0;
    for (; end < rest.size() && (rest[end] != ',' || depth > 0); ++end)
        depth += rest[end] == '(' ? 1 : rest[end] == ')' ? -1 : 0;
    const std::string_view pair = rest.substr(0, end);
    more = end < rest.size();
    rest.remove_prefix(more ? end + 1 : end);
    return pair;
}

}  // namespace

std::vector<std::array<double, 2>> read_hardening_table(const RecordOptions& options) {
    const Token* word = options.find("table=");
    if (!word) return {};
    std::vector<std::array<double, 2>> table;
    const char* wrong = nullptr;
    std::string_view rest = options.value("table=");
    for (bool more = true; more && !wrong;) {
        const std::string_view pair = take_pair(rest, more);
        const std::size_t colon = pair.find(':');
        if (colon == std::string_view::npos) {
            wrong = "a pair has no colon";
            break;
        }
        const auto strain = options.fields().evaluate(*word, pair.substr(0, colon)),
                   stress = options.fields().evaluate(*word, pair.substr(colon + 1));
        if (!strain || !stress) return {};
        if (table.empty() && *strain != 0)
            wrong = "the first plastic strain is 0";
        else if (!table.empty() && !(*strain > table.back()[0]))
            wrong = "the plastic strains rise";
        else if (!(*stress > 0))
            wrong = "stresses are above 0 Pa";
        table.push_back({*strain, *stress});
    }
    if (!wrong) return table;
    options.fields().remarks().expected(*word,
                                        std::string("table=STRAIN:STRESS,STRAIN:STRESS,... (") + wrong + ")");
    return {};
}

}  // namespace kestralum
