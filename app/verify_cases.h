// The cases of a verification folder: which model is run how, and what is expected of the result. The file's
// form is described in verify/README.md.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "input/model_reader.h"
#include "model/element_kind.h"
#include "model/remarks.h"

namespace kestralum {

enum class Measured {
    displacement,
    stress,
    frequency,
    load_factor,
    reaction,
    energy,
    radius,
    formula,
    error_ratio
};
enum class Place { at, set_mean, set_max, set_min };
enum class Expectation { near, below, above, between, shown };
enum class OverFrames { one, least, largest };

// Numbers are expressions over the model's parameters and the checks before this one.
struct VerifyCheck {
    std::string name;
    Measured measured = Measured::displacement;
    // x y z magnitude, xx yy zz xy yz zx mises; of a reaction x y z; of a radius its axis; of an error ratio
    // the name of the check, here and in the other case
    std::string component;
    Place place = Place::at;
    std::string set_name;              // of a place or radius; the support of a reaction
    std::array<std::string, 3> where;  // at: x y z; radius: a point of the axis
    std::string number;                // of a mode; a formula; of an error ratio CASE__CHECK
    Expectation expectation = Expectation::shown;
    bool is_shown = false;              // what is expected is told and not judged
    std::array<std::string, 2> bounds;  // target; between: both
    std::string tolerance;
    bool relative = true;
    std::string case_name;  // frame of this load case or combination
    OverFrames frames = OverFrames::one;
    bool plotted = false;  // its error belongs into the convergence plot of the family
};

struct VerifyCase {
    std::string name, title, source, model_file, analysis;
    std::string family;   // the problem, of which this is one way to compute it; empty: the title
    std::string weak;     // why the formulation is known to be bad here; empty: it is not
    std::string picture;  // options of kestralum for the family's picture
    bool is_long = false;
    std::vector<ParameterOverride> overrides;
    std::optional<HexahedronForm> hexahedra;
    bool prestress = false;
    std::string load_case;
    std::vector<VerifyCheck> checks;
};

// All cases of a file, models beside it. Errors name token and expectation; a file with an error gives no
// case.
std::vector<VerifyCase> read_verify_cases(const std::string& file_name, Remarks& remarks);

}  // namespace kestralum
