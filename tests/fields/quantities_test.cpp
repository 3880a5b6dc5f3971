// The quantities of stress tensors that are known, in any position.
#include "fields/quantities.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>

#include "support/box_mesh.h"
#include "support/tensors.h"

namespace kestralum {
namespace {

using namespace testing;

class Quantities : public ::testing::Test {
protected:
    void SetUp() override {
        model.materials.assign(2, {});
        model.materials[0].young = 2e11;
        model.materials[0].poisson = 0.25;
        model.materials[0].yield_stress = 3e8;
        model.materials[1].young = 1e11;
        model.parts.assign(2, {});
        model.parts[1].material_id = 1;
        mesh = hexa_box({{1, 1, 2}, {1, 1, 1}});
        mesh.p_ele_part_id = {1, 0};
        material = node_materials(model, mesh);
    }
    // The frame of one stress at all nodes, turned by R.
    Frame frame_of(const std::array<double, 6>& stress, const Tensor& R) const {
        const Tensor s = turned(R, stress.data());
        Frame frame(mesh.dof_num());
        const std::size_t dofs = mesh.coordinates.size();
        for (std::size_t n = 0; n < dofs / 3; ++n) {
            const double direct[] = {s[0], s[4], s[8]}, shear[] = {s[1], s[5], s[2]};
            std::copy_n(direct, 3, &frame.node_stress[3 * n]);
            std::copy_n(shear, 3, &frame.node_stress[dofs + 3 * n]);
        }
        return frame;
    }
    // At a node of the first material.
    std::vector<double> value(FieldQuantity quantity, const Frame& frame) const {
        const FieldQuantityRow* row = field_quantity_at(static_cast<std::int32_t>(quantity));
        const auto all = FieldValues(model, material, frame).of(*row);
        const std::size_t n = std::ranges::find(material, 0) - material.begin();
        EXPECT_EQ(all.size(), std::size_t(mesh.node_num() * row->components));
        return {all.begin() + std::ptrdiff_t(n * row->components),
                all.begin() + std::ptrdiff_t((n + 1) * row->components)};
    }
    Model model;
    Mesh mesh;
    std::vector<std::int32_t> material;
};

TEST_F(Quantities, OfKnownTensorsAreTheirsInEveryPosition) {
    const Tensor R = rotation(0.7);
    struct Case {
        std::array<double, 6> stress;
        std::array<double, 3> principal;
        double mises, energy;
    };
    const double E = 2e11, nu = 0.25;
    const Case cases[] = {
        {{1e8, 0, 0, 0, 0, 0}, {1e8, 0, 0}, 1e8, 1e16 / (2 * E)},                            // tension
        {{0, 0, 0, 5e7, 0, 0}, {5e7, 0, -5e7}, 5e7 * std::sqrt(3.0), 25e14 * (1 + nu) / E},  // τ²/2G
        {{-2e8, -2e8, -2e8, 0, 0, 0}, {-2e8, -2e8, -2e8}, 0, 3 * 4e16 * (1 - 2 * nu) / (2 * E)},
        {{3e8, 1e8, -2e8, 0, 0, 0},
         {3e8, 1e8, -2e8},
         std::sqrt(19.0) * 1e8,
         ((1 + nu) * 14 - nu * 4) * 1e16 / (2 * E)},
    };
    for (const Case& c : cases)
        for (const Tensor& turn : {rotation(0), R, rotation(2.1)}) {
            const Frame frame = frame_of(c.stress, turn);
            const auto& p = c.principal;
            const double mean = (p[0] + p[1] + p[2]) / 3, near = 1e-7 * 1e8;
            EXPECT_NEAR(value(FieldQuantity::principal_1, frame)[0], p[0], near);
            EXPECT_NEAR(value(FieldQuantity::principal_2, frame)[0], p[1], near);
            EXPECT_NEAR(value(FieldQuantity::principal_3, frame)[0], p[2], near);
            EXPECT_NEAR(value(FieldQuantity::tresca, frame)[0], p[0] - p[2], near);
            EXPECT_NEAR(value(FieldQuantity::pressure, frame)[0], -mean, near);
            EXPECT_NEAR(value(FieldQuantity::strain_energy_density, frame)[0], c.energy, 1e-12 * c.energy);
            if (c.mises > 0) {
                EXPECT_NEAR(value(FieldQuantity::triaxiality, frame)[0], mean / c.mises, 1e-12);
                EXPECT_NEAR(value(FieldQuantity::safety_factor, frame)[0], 3e8 / c.mises, 1e-10);
            }
        }
    // the directions are those that the tensor was turned into
    const Frame frame = frame_of(cases[3].stress, R);
    for (std::size_t k = 0; k < 3; ++k) {
        const auto direction = value(static_cast<FieldQuantity>(105 + k), frame);
        const Vec3 expected{R[k], R[3 + k], R[6 + k]};
        EXPECT_NEAR(std::abs(dot({direction[0], direction[1], direction[2]}, expected)), 1, 1e-12);
        EXPECT_GT(*std::ranges::max_element(direction), 0.5);
    }
}

TEST_F(Quantities, WhatIsNotKnownIsNoNumberOrEmpty) {
    const Frame at_rest = frame_of({}, rotation(0));
    EXPECT_TRUE(std::isnan(value(FieldQuantity::triaxiality, at_rest)[0]));
    EXPECT_EQ(value(FieldQuantity::safety_factor, at_rest)[0], std::numeric_limits<double>::infinity());
    const auto* safety = field_quantity_at(112);
    EXPECT_EQ(std::ranges::count(material, 1), 4) << "the common nodes have the first part's";
    const auto all = FieldValues(model, material, at_rest).of(*safety);
    for (std::size_t n = 0; n < material.size(); ++n) EXPECT_EQ(std::isnan(all[n]), material[n] == 1);
    EXPECT_TRUE(FieldValues(model, material, at_rest).of(*field_quantity_at(101)).empty());
    EXPECT_TRUE(FieldValues(model, material, Frame(3)).of(*safety).empty()) << "of another mesh";
    model.materials[0].yield_stress = 0;
    model.materials[0].hardening_table = {{0, 1e8}, {0.1, 2e8}};
    EXPECT_NEAR(value(FieldQuantity::safety_factor, frame_of({5e7}, rotation(1)))[0], 2, 1e-12);
}

TEST_F(Quantities, HaveEachTheirOwnNumberAndName) {
    std::set<std::string> names;
    for (const FieldQuantityRow& row : field_quantities) {
        const auto index = static_cast<std::int32_t>(row.quantity);
        EXPECT_GE(index, 100);
        EXPECT_EQ(field_quantity_at(index), &row);
        EXPECT_TRUE(names.insert(row.name).second);
    }
    for (const std::int32_t index : {-1, 0, 17, 99, 1000}) EXPECT_EQ(field_quantity_at(index), nullptr);
}

}  // namespace
}  // namespace kestralum
