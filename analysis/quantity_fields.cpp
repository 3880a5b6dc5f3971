#include "analysis/quantity_fields.h"

#include <utility>

#include "fields/quantities.h"

namespace kestralum {

PointFields quantity_fields(const Model& model, const Mesh& mesh) {
    return [&model, material = node_materials(model, mesh)](const Frame& frame) {
        std::vector<PointField> out;
        const FieldValues fields(model, material, frame);
        for (const FieldQuantityRow& row : field_quantities) {
            if (row.quantity == FieldQuantity::plastic_strain) continue;
            std::vector<double> values = fields.of(row);
            if (!values.empty()) out.push_back({row.name, row.components, std::move(values)});
        }
        return out;
    };
}

}  // namespace kestralum
