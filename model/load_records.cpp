#include "model/load_records.h"

#include <cmath>

#include "model/format.h"

namespace kestralum {

std::string wrong_value(const std::string& record, const FieldExpression& field, const double* x, double time,
                        double least) {
    const double value = field.at(x, time);
    if (std::isfinite(value) && value >= least) return {};
    std::string text = record + ": '" + field.text + formatted("' is %g at ", value);
    if (x) text += formatted("(%g, %g, %g) m, ", x[0], x[1], x[2]);
    return text + formatted("time %g", time);
}

}  // namespace kestralum
