#include "large/large_run.h"

#include <array>

#include "analysis/analysis_table.h"
#include "large/large_eigen.h"
#include "large/large_explicit.h"
#include "large/large_nonlinear.h"
#include "large/large_static.h"

namespace kestralum {

namespace {

struct LargeEntry {
    const char* word;
    void (*analyse)(const Team& team, Job& job, bool pieces);
};

constexpr std::array<LargeEntry, 5> entries{{
    {"static", analyse_static_large},
    {"eigen-lanczos", analyse_eigen_large},
    {"eigen-subspace", analyse_eigen_large},
    {"explicit", analyse_explicit_large},
    {"nonlinear", analyse_nonlinear_large},
}};

const LargeEntry* find_entry(const std::string& word) {
    for (const LargeEntry& entry : entries)
        if (word == entry.word) return &entry;
    return nullptr;
}

}  // namespace

bool is_large_analysis(const std::string& word) {
    return find_entry(word) != nullptr;
}

std::string large_analyses() {
    std::string out;
    for (const LargeEntry& entry : entries) out += (out.empty() ? "" : ", ") + std::string(entry.word);
    return out;
}

Run analyse_large(const Team& team, const std::string& word, const Model& model, const Settings& settings,
                  const LargeOptions& options, Progress& progress) {
    Run run;
    const LargeEntry& entry = *find_entry(word);
    begin_run(run, model, settings, options.run, find_analysis(word)->type, entry.word);
    Job job{model, settings, options.run, progress, run};
    entry.analyse(team, job, options.pieces);
    return run;
}

}  // namespace kestralum
