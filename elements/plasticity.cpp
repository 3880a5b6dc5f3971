#include "elements/plasticity.h"

#include <cmath>
#include <limits>

#include "model/format.h"

namespace kestralum {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

// Straight between the pairs of a table, level behind its last.
std::vector<HardeningSegment> curve_of(const Material& record) {
    std::vector<HardeningSegment> curve;
    const auto& table = record.hardening_table;
    for (std::size_t k = 0; k < table.size(); ++k) {
        const bool last = k + 1 == table.size();
        const double end = last ? infinity : table[k + 1][0];
        const double slope = last ? 0 : (table[k + 1][1] - table[k][1]) / (end - table[k][0]);
        curve.push_back({table[k][0], end, table[k][1], slope});
    }
    if (curve.empty()) curve.push_back({0, infinity, record.yield_stress, record.hardening});
    return curve;
}

}  // namespace

bool has_yield_stress(const Material& record) {
    return record.yield_stress > 0 || !record.hardening_table.empty();
}

std::string wrong_plastic_constant(const Material& record) {
    const std::string material = "material " + record.name + ": ";
    if (!(record.kinematic >= 0) || !std::isfinite(record.kinematic))
        return material + formatted("kinematic=%g: the kinematic hardening modulus must not be negative",
                                    record.kinematic);
    if (record.yield_stress > 0 && record.hardening < 0)
        return material + formatted("Sd=%g: the hardening modulus must not be negative", record.hardening);
    const auto& table = record.hardening_table;
    for (std::size_t k = 0; k < table.size(); ++k) {
        const auto& [strain, stress] = table[k];
        const bool rises = k == 0 ? strain == 0 : strain > table[k - 1][0];
        if (!rises || !(stress > 0) || !std::isfinite(strain) || !std::isfinite(stress))
            return material + formatted(
                                  "table: the pair %g:%g: plastic strains rise from 0, stresses are "
                                  "above 0 Pa",
                                  strain, stress);
    }
    const PlasticMaterial m = j2_material(record, true);
    const double steepest = -0.999 * (3 * m.shear + m.kinematic);
    for (const HardeningSegment& segment : m.curve)
        if (!(segment.slope > steepest))
            return material + formatted(
                                  "table: behind the plastic strain %g the yield stress falls faster "
                                  "than the material unloads",
                                  segment.start);
    return {};
}

PlasticMaterial j2_material(const Material& record, bool may_yield) {
    PlasticMaterial m;
    m.shear = record.young / (2.0 * (1.0 + record.poisson));
    m.bulk = record.young / (3.0 * (1.0 - 2.0 * record.poisson));
    m.yield = infinity;
    m.curve = {{0, infinity, infinity, 0}};
    if (!may_yield || !has_yield_stress(record)) return m;
    m.curve = curve_of(record);
    m.yield = m.curve.front().stress;
    m.hardening = m.curve.front().slope;
    m.kinematic = record.kinematic;
    return m;
}

}  // namespace kestralum
