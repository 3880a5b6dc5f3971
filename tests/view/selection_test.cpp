// What a click selects, and that the record copied from it selects the same.
#include "view/selection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

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
                                       std::span<const double> drawn) {
        Ray ray{at, {}};
        ray.origin[axis] += sign;
        ray.direction[axis] = -sign;
        const auto pick = pick_node(ray, surface, drawn);
        return pick ? select_faces(mesh, definitions, surface, *pick, patches) : std::nullopt;
    }
    std::optional<SelectedFaces> click(const Vec3& at, std::size_t axis, double sign) {
        return click(at, axis, sign, mesh.coordinates);
    }
    // Makes the sets of copied records, as the model file's reader hands them over.
    void define(const std::string& records) {
        TokenReader tokens(records);
        std::vector<SetDefinition> read;
        while (!tokens.at_end()) {
            SetDefinition& set = read.emplace_back();
            set.name = tokens.next();
            const auto words = set_kind_words();
            set.kind = static_cast<SetKind>(std::ranges::find(words, tokens.next()) - words.begin());
            if (set.kind == SetKind::patch)
                for (std::size_t k = 0; k < 4; ++k) set.numbers[k] = tokens.next_double().value();
            else
                for (std::string rest(tokens.next()); !rest.empty();) {
                    const std::size_t comma = std::min(rest.find(','), rest.size());
                    set.operands.push_back(rest.substr(0, comma));
                    rest.erase(0, comma + 1);
                }
        }
        Remarks remarks;
        EXPECT_TRUE(define_sets(read, {}, mesh, remarks, Collected())) << records;
        definitions.insert(definitions.end(), read.begin(), read.end());
    }
};

// In the middle of faces, on their edges, on nodes and a hair beside the box's edges; also on a shape that is
// drawn larger and elsewhere.
TEST_P(SelectionOn, PatchRecordsSelectWhatWasHighlighted) {
    std::vector<double> drawn = mesh.coordinates;
    for (double& x : drawn) x = 2 * x + 1;
    const Vec3 size{0.3, 0.1, 0.2};
    std::vector<std::string> given;
    for (std::size_t axis = 0; axis < 3; ++axis)
        for (const double side : {0.0, 1.0})
            for (const double u : {1e-9, 0.25, 1.0 / 3, 0.5, 1 - 1e-9})
                for (const double v : {1e-9, 0.4, 0.5, 1 - 1e-9}) {
                    Vec3 at{};
                    at[axis] = side * size[axis];
                    at[(axis + 1) % 3] = u * size[(axis + 1) % 3];
                    at[(axis + 2) % 3] = v * size[(axis + 2) % 3];
                    const double sign = 2 * side - 1;
                    const auto selected = click(at, axis, sign);
                    ASSERT_TRUE(selected && contains(selected->record, "patch"));
                    EXPECT_NEAR(measure_set(mesh, selected->set).area,
                                size[0] * size[1] * size[2] / size[axis], 1e-12);
                    const auto deformed = click(plus(times(2, at), {1, 1, 1}), axis, sign, drawn);
                    ASSERT_TRUE(deformed);
                    EXPECT_EQ(deformed->set.faces, selected->set.faces);
                    FaceSelection selection;
                    selection.add(*selected);
                    define(selection.records(definitions, given));
                    EXPECT_EQ(mesh.sets.back().faces, selected->set.faces) << selected->record;
                    EXPECT_EQ(mesh.sets.back().nodes, selected->set.nodes);
                    mesh.sets.clear();
                }
    EXPECT_FALSE(click({0.31, 0.05, 0.2}, 2, 1)) << "beside the box";
}

TEST_P(SelectionOn, TakesTheSmallestGroupAndUnitesWhatIsAdded) {
    const MeshSet top = click({0.1, 0.05, 0.2}, 2, 1)->set, right = click({0.3, 0.05, 0.1}, 0, 1)->set;
    MeshSet both = top, body;
    both.faces.insert(both.faces.end(), right.faces.begin(), right.faces.end());
    std::ranges::sort(both.faces);
    body.elements.resize(mesh.element_num());
    std::iota(body.elements.begin(), body.elements.end(), 0);
    mesh.sets = {both, top, body};
    for (std::size_t k = 0; k < 3; ++k) mesh.sets[k].name = std::array{"P.BOTH", "P.TOP", "P.BODY"}[k];
    FaceSelection selection;
    for (int twice = 0; twice < 2; ++twice) selection.add(click({0.1, 0.05, 0.2}, 2, 1).value());
    std::vector<std::string> lines = selection.text(mesh);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "Selected: P.TOP");
    EXPECT_TRUE(contains(lines[1], "0.03 m^2, " + std::to_string(top.faces.size()) + " faces")) << lines[1];
    EXPECT_EQ(lines[2], "(0, 0, 0.2) to (0.3, 0.1, 0.2) m");
    EXPECT_EQ(lines[3], "also in P.BOTH, P.BODY");

    selection.add(click({0.1, 0.05, 0}, 2, -1).value());
    EXPECT_EQ(selection.text(mesh)[0], "Selected: P.TOP + patch");
    std::vector<std::string> given{"face_2"};
    const std::string records = selection.records(std::array{SetDefinition{.name = "face_3"}}, given);
    EXPECT_TRUE(contains(records, "  face_1  group  P.TOP\n")) << records;
    EXPECT_TRUE(contains(records, "  face_4  patch  ")) << records;
    EXPECT_TRUE(contains(records, "  face_5  union  face_1,face_4\n")) << records;
    define(records);
    EXPECT_EQ(mesh.sets.back().faces, selection.all().faces);
    EXPECT_EQ(mesh.sets.back().nodes, selection.all().nodes);
    double area = 0;
    const std::vector<std::int32_t> corners = selection.triangles(mesh);
    for (std::size_t k = 0; k < corners.size(); k += 3) {
        const Vec3 a = place_of(mesh, corners[k]);
        area += 0.5 * norm(cross(minus(place_of(mesh, corners[k + 1]), a),
                                 minus(place_of(mesh, corners[k + 2]), a)));
    }
    EXPECT_NEAR(area, 0.06, 1e-12);
    EXPECT_EQ(click({0.1, 0.05, 0}, 2, -1)->record, "union  face_4") << "a set of the model file";
}

INSTANTIATE_TEST_SUITE_P(AllKinds, SelectionOn, ::testing::ValuesIn(every_kind));

}  // namespace
