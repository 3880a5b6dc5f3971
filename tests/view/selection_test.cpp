// What a click selects, and that the record copied from it selects the same.
#include "view/selection.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "model/token_reader.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;
using namespace kestralum::view;

namespace {

struct SelectionOn : ::testing::TestWithParam<ElementKind> {
    Mesh mesh = box_mesh({{3, 2, 4}, {0.3, 0.1, 0.2}}, GetParam());
    Surface surface = build_surface(mesh, Faces::free);
    std::vector<ElementFace> free = free_faces(mesh);
    SmoothPatches patches{mesh, free};
    std::vector<SetDefinition> definitions;

    // Looks at a place of a side from outside; `drawn` are the places that are seen.
    std::optional<SelectedFaces> click(const Vec3& at, std::size_t axis, double sign,
                                       std::span<const double> drawn = {}) {
        Ray ray{at, {}};
        ray.origin[axis] += sign;
        ray.direction[axis] = -sign;
        const auto pick = pick_node(ray, surface, drawn.empty() ? mesh.coordinates : drawn);
        return pick ? select_faces(mesh, definitions, surface, *pick,
                                   [this]() -> SmoothPatches& { return patches; })
                    : std::nullopt;
    }
    // What the reader of a model file makes of a record "patch X Y Z ANGLE".
    const MeshSet& define_patch(const std::string& record) {
        SetDefinition set{.name = "PATCH", .kind = SetKind::patch};
        TokenReader tokens(record);
        EXPECT_EQ(tokens.next(), "patch");
        for (std::size_t k = 0; k < 4; ++k) set.numbers[k] = tokens.next_double().value();
        Remarks remarks;
        EXPECT_TRUE(define_sets({&set, 1}, {}, mesh, remarks, Collected()));
        return mesh.sets.back();
    }
};

// In the middle of faces, on their edges, on nodes and a hair beside the box's edges; also on a shape that is
// drawn larger and elsewhere.
TEST_P(SelectionOn, PatchRecordsSelectWhatWasHighlighted) {
    std::vector<double> drawn = mesh.coordinates;
    for (double& x : drawn) x = 2 * x + 1;
    const Vec3 size{0.3, 0.1, 0.2};
    for (const std::size_t side : {0, 1, 2, 3, 4, 5})
        for (const double u : {1e-9, 0.25, 1.0 / 3, 0.5, 1 - 1e-9})
            for (const double v : {1e-9, 0.4, 0.5, 1 - 1e-9}) {
                const std::size_t axis = side / 2, other = (axis + 1) % 3, third = (axis + 2) % 3;
                Vec3 at{};
                at[axis] = side % 2 ? size[axis] : 0;
                at[other] = u * size[other];
                at[third] = v * size[third];
                const double sign = side % 2 ? 1 : -1;
                const auto selected = click(at, axis, sign);
                ASSERT_TRUE(selected);
                EXPECT_NEAR(measure_set(mesh, selected->set).area, size[other] * size[third], 1e-12);
                EXPECT_EQ(click(plus(times(2, at), {1, 1, 1}), axis, sign, drawn)->set.faces,
                          selected->set.faces);
                const MeshSet& patch = define_patch(selected->record);
                EXPECT_EQ(patch.faces, selected->set.faces) << selected->record;
                EXPECT_EQ(patch.nodes, selected->set.nodes);
                mesh.sets.clear();
            }
    EXPECT_FALSE(click({0.31, 0.05, 0.2}, 2, 1)) << "beside the box";
}

TEST_P(SelectionOn, TakesTheSmallestGroupAndUnitesWhatIsAdded) {
    MeshSet top = click({0.1, 0.05, 0.2}, 2, 1)->set, both = click({0.3, 0.05, 0.1}, 0, 1)->set;
    both.faces.insert(both.faces.end(), top.faces.begin(), top.faces.end());
    std::ranges::sort(both.faces);
    both.name = "P.BOTH";
    top.name = "P.TOP";
    mesh.sets = {both, top};
    FaceSelection selection;
    for (int twice = 0; twice < 2; ++twice) selection.add(click({0.1, 0.05, 0.2}, 2, 1).value());
    const std::string count = std::to_string(top.faces.size()) + " faces, ";
    EXPECT_EQ(selection.text(mesh),
              (std::vector<std::string>{"Selected: P.TOP",
                                        "0.03 m^2, " + count + std::to_string(top.nodes.size()) + " nodes",
                                        "(0, 0, 0.2) to (0.3, 0.1, 0.2) m", "also in P.BOTH"}));
    EXPECT_EQ(selection.triangles(mesh).size(),
              3u * face_table(GetParam()).triangles_per_face * top.faces.size());
    selection.add(click({0.1, 0.05, 0}, 2, -1).value());
    EXPECT_EQ(selection.text(mesh)[0], "Selected: P.TOP + patch");
    std::vector<std::string> given{"face_2"};
    definitions = {{.name = "face_3"}};
    const std::string records = selection.records(definitions, given);
    for (const char* line : {"  face_1  group  P.TOP\n  face_4  patch  ", "  face_5  union  face_1,face_4\n"})
        EXPECT_TRUE(contains(records, line)) << records;
    definitions.push_back({.name = "P.TOP"});
    EXPECT_EQ(click({0.1, 0.05, 0.2}, 2, 1)->record, "union  P.TOP") << "a set of the model file";
}

INSTANTIATE_TEST_SUITE_P(AllKinds, SelectionOn, ::testing::ValuesIn(every_kind));

}  // namespace
