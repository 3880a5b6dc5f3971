// One case of a verification folder: its model analysed, its checks measured and judged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/verify_cases.h"
#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "model/settings.h"

namespace kestralum {

// `shown` and `weak` are not judged; weak: of a formulation that its case says to be bad.
enum class Verdict { met, missed, shown, weak };

struct CheckOutcome {
    const VerifyCheck* check = nullptr;
    double got = 0, target = 0, upper = 0;  // upper: of an interval
    double tolerance = 0;
    Verdict verdict = Verdict::missed;
    std::string fault;  // why it has no value; empty: it has

    // (got - target)/|target|, of a value near a target other than 0; otherwise not a number.
    double error() const;
};

struct CaseOutcome {
    const VerifyCase* is = nullptr;
    std::vector<CheckOutcome> checks;
    std::string fault;               // why it was not computed: all its checks are missed
    std::vector<std::string> notes;  // what the reading of its model had to say
    std::string elements;            // "enhanced hexahedra"
    std::int64_t element_num = 0, dof_num = 0;
    double seconds = 0;  // of reading and analysis
};

// "enhanced hexahedra"
std::string elements_of(const Model& model, const Run& run);

// As the console and the page tell them; empty where there is none.
std::string target_text(const CheckOutcome& outcome);
std::string error_text(const CheckOutcome& outcome);
std::string tolerance_text(const CheckOutcome& outcome);
const char* word_of(Verdict verdict);

// Runs cases; keeps what their checks have given for those behind them.
class VerifyRunner {
public:
    VerifyRunner(const Settings& settings, std::string log_folder)
        : settings_(settings), log_folder_(std::move(log_folder)) {}

    struct Known {
        std::vector<Parameter> values, errors;  // by CASE__CHECK; errors of those that have one
    };

    // Incomplete where `progress` was cancelled meanwhile.
    CaseOutcome run(const VerifyCase& one, Progress& progress);

private:
    const Settings& settings_;
    std::string log_folder_;
    Known known_;
};

}  // namespace kestralum
