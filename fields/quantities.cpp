#include "fields/quantities.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "elements/elasticity.h"
#include "elements/plasticity.h"
#include "model/symmetric3.h"

namespace kestralum {

namespace {

constexpr double no_number = std::numeric_limits<double>::quiet_NaN();

// xx yy zz xy yz zx of node n.
std::array<double, 6> stress_at(const Frame& frame, std::size_t n) {
    const double *direct = frame.node_stress.data() + 3 * n, *shear = direct + frame.mode_vec.size();
    return {direct[0], direct[1], direct[2], shear[0], shear[1], shear[2]};
}

Principal principal_of(const std::array<double, 6>& stress) {
    double values[3], vectors[9];
    symmetric_eigen3(stress.data(), values, vectors);
    std::array<int, 3> order{0, 1, 2};
    std::ranges::stable_sort(order, [&](int a, int b) { return values[a] > values[b]; });
    Principal out;
    for (std::size_t k = 0; k < 3; ++k) {
        out.value[k] = values[order[k]];
        const double* v = vectors + 3 * order[k];
        std::size_t largest = 0;
        for (std::size_t c = 1; c < 3; ++c)
            if (std::abs(v[c]) > std::abs(v[largest])) largest = c;
        out.direction[k] = times(v[largest] < 0 ? -1 : 1, {v[0], v[1], v[2]});
    }
    return out;
}

double mean_of(const std::array<double, 6>& s) {
    return (s[0] + s[1] + s[2]) / 3;
}

// (1 + ν)/2E σ:σ - ν/2E (tr σ)²
double energy_of(const std::array<double, 6>& s, const Material& m) {
    double square = 0;
    for (std::size_t c = 0; c < 3; ++c) square += s[c] * s[c] + 2 * s[3 + c] * s[3 + c];
    const double trace = 3 * mean_of(s);
    return ((1 + m.poisson) * square - m.poisson * trace * trace) / (2 * m.young);
}

double yield_stress_of(const Material& m) {
    return m.hardening_table.empty() ? m.yield_stress : m.hardening_table.front()[1];
}

}  // namespace

const FieldQuantityRow* field_quantity_at(std::int32_t index) {
    const auto at = std::ranges::find_if(field_quantities, [index](const FieldQuantityRow& row) {
        return static_cast<std::int32_t>(row.quantity) == index;
    });
    return at == std::end(field_quantities) ? nullptr : at;
}

std::vector<std::int32_t> node_materials(const Model& model, const Mesh& mesh) {
    std::vector<std::int32_t> part(mesh.node_num(), std::numeric_limits<std::int32_t>::max());
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        for (const std::int32_t n : mesh.element(e))
            part[node_index(n)] = std::min(part[node_index(n)], mesh.p_ele_part_id[e]);
    for (std::int32_t& p : part) {
        const bool known = p < std::ssize(model.parts);
        p = known ? model.parts[p].material_id : -1;
        if (p >= std::ssize(model.materials)) p = -1;
    }
    return part;
}

FieldValues::FieldValues(const Model& model, std::span<const std::int32_t> material, const Frame& frame)
    : model_(model), material_(material), frame_(frame) {}

void FieldValues::find_principal() const {
    const std::size_t dofs = frame_.mode_vec.size(), nodes = dofs / 3;
    if (!principal_.empty() || frame_.node_stress.size() != std::size_t(stress_groups) * dofs) return;
    principal_.reserve(nodes);
    for (std::size_t n = 0; n < nodes; ++n) principal_.push_back(principal_of(stress_at(frame_, n)));
}

double FieldValues::scalar(FieldQuantity quantity, std::size_t node) const {
    const std::array<double, 6> s = stress_at(frame_, node);
    const std::array<double, 3>& principal = principal_[node].value;
    const Material* material = material_[node] < 0 ? nullptr : &model_.materials[material_[node]];
    switch (quantity) {
        case FieldQuantity::plastic_strain:
            return frame_.node_stress[4 * frame_.mode_vec.size() + 3 * node + 1];
        case FieldQuantity::principal_1:
            return principal[0];
        case FieldQuantity::principal_2:
            return principal[1];
        case FieldQuantity::principal_3:
            return principal[2];
        case FieldQuantity::tresca:
            return principal[0] - principal[2];
        case FieldQuantity::pressure:
            return -mean_of(s);
        case FieldQuantity::triaxiality: {
            const double q = mises(s.data());
            return q > 0 ? mean_of(s) / q : no_number;
        }
        case FieldQuantity::strain_energy_density:
            return material ? energy_of(s, *material) : no_number;
        case FieldQuantity::safety_factor: {
            const double q = mises(s.data());
            if (!material || !has_yield_stress(*material)) return no_number;
            return q > 0 ? yield_stress_of(*material) / q : std::numeric_limits<double>::infinity();
        }
        default:
            return no_number;
    }
}

std::vector<double> FieldValues::of(const FieldQuantityRow& row) const {
    std::vector<double> out;
    if (3 * material_.size() != frame_.mode_vec.size()) return out;
    if (row.quantity == FieldQuantity::reaction) return frame_.reaction;
    if (row.quantity == FieldQuantity::velocity || row.quantity == FieldQuantity::acceleration) {
        const std::vector<float>& of =
            row.quantity == FieldQuantity::velocity ? frame_.velocity : frame_.acceleration;
        return {of.begin(), of.end()};
    }
    find_principal();
    if (principal_.empty()) return out;
    if (row.quantity == FieldQuantity::error) {
        for (const double error : frame_.error) out.push_back(100 * error);
        return out;
    }
    out.reserve(principal_.size() * row.components);
    for (std::size_t n = 0; n < principal_.size(); ++n) {
        if (row.components == 1) {
            out.push_back(scalar(row.quantity, n));
            continue;
        }
        const auto k =
            static_cast<std::size_t>(row.quantity) - static_cast<std::size_t>(FieldQuantity::direction_1);
        const Vec3& direction = principal_[n].direction[k];
        out.insert(out.end(), direction.begin(), direction.end());
    }
    return out;
}

}  // namespace kestralum
