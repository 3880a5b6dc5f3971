#include "elements/plasticity.h"

#include <limits>

namespace kestralum {

J2Material<double> j2_material(const Material& record, bool may_yield) {
    J2Material<double> m;
    m.shear = record.young / (2.0 * (1.0 + record.poisson));
    m.bulk = record.young / (3.0 * (1.0 - 2.0 * record.poisson));
    const bool yields = may_yield && record.yield_stress > 0;
    m.yield = yields ? record.yield_stress : std::numeric_limits<double>::infinity();
    m.hardening = yields ? record.hardening : 0.0;
    return m;
}

}  // namespace kestralum
