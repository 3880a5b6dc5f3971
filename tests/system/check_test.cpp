// What is said of a model before it is analysed.
#include <gtest/gtest.h>

#include "model/vector3.h"
#include "support/box_mesh.h"
#include "support/text_checks.h"
#include "system/model_check.h"

namespace kestralum {
namespace {

// Two boxes side by side, x from 0 to 1 and from 1 to 2, of so many cells each way, joined where nodes
// coincide.
Model two_boxes(int left, int right) {
    Model model = placeholder_model();
    model.source = ModelSource::model_file;
    model.parts.resize(2);
    model.parts[0].name = "LEFT";
    model.parts[1].name = "RIGHT";
    Mesh a = testing::hexa_box({{left, left, left}, {1, 1, 1}});
    const Mesh b = testing::hexa_box({{right, right, right}, {1, 1, 1}, [](double* x) { x[0] += 1; }});
    for (const std::int32_t n : b.connectivity) {
        const Vec3 x = triple(b.coordinates, n - 1);
        std::int32_t number = 1;  // of the node at that place, or of one that is added
        while (number <= a.node_num() && triple(a.coordinates, number - 1) != x) ++number;
        if (number > a.node_num()) a.coordinates.insert(a.coordinates.end(), x.begin(), x.end());
        a.connectivity.push_back(number);
    }
    a.p_ele_part_id.insert(a.p_ele_part_id.end(), b.p_ele_part_id.size(), 1);
    update_extent(a);
    model.mesh = a;
    return model;
}

TEST(ModelCheck, NamesPartsThatTouchWithoutBeingJoined) {
    SilentProgress silent;
    Settings settings;
    settings.memory_size = settings.free_hd_size = 1000;
    settings.div_memory_size = 1;
    settings.ordering_type = "LX";
    EXPECT_TRUE(check_model(two_boxes(2, 2), settings, silent).unjoined.empty());
    const ModelCheck unlike = check_model(two_boxes(2, 3), settings, silent);
    ASSERT_EQ(unlike.unjoined.size(), 1u);
    EXPECT_EQ(unlike.bodies.size(), 1u) << "connected at the four corners";
    EXPECT_EQ(unlike.hanging_nodes, 0);
    EXPECT_EQ(unlike.unjoined[0].joined, 4);
    EXPECT_EQ(unlike.unjoined[0].nodes, (std::array<std::int64_t, 2>{9 - 4, 16 - 4}));
    EXPECT_TRUE(testing::contains(unlike.remarks.notices, "parts LEFT and RIGHT touch without being joined"));
}

}  // namespace
}  // namespace kestralum
