#include "mesh_checks.h"
#include "model/token_reader.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// Numbers, and one name that is known: enough of a calculator for records.
bool evaluate(std::string_view text, double& value, std::string& error) {
    if (text == "t") {
        value = 0.25;
        return true;
    }
    const auto number = parse_double(text);
    if (!number) error = "unknown name in \"" + std::string(text) + "\"";
    value = number.value_or(0);
    return number.has_value();
}

PartRow row(const char* name, const char* shape, std::vector<std::string> sizes,
            std::vector<std::string> divisions) {
    sizes.resize(6, "unread");
    divisions.resize(6, "unread");
    PartRow result{{name, "red", "STEEL", shape}};
    for (const auto& texts : {sizes, divisions, {"1", "2", "3", "10", "20", "30"}})
        result.fields.insert(result.fields.end(), texts.begin(), texts.end());
    return result;
}

const PartRow good = row("p", "RECT", {"1", "1", "1"}, {"1", "1", "1"});

struct Creation {
    std::vector<Part> parts;
    Remarks remarks;
    std::string lines;
};
Creation create(const std::vector<PartRow>& rows) {
    const std::vector<Material> materials{{.id = 0, .name = "STEEL"},
                                          {.id = 1, .name = "ALU"},
                                          {.id = 2, .name = "STEEL"},
                                          {.id = 3, .name = std::string(66, 'm')}};
    Collected collected;
    Creation creation;
    creation.parts = create_PART(rows, materials, evaluate, creation.remarks, collected);
    creation.lines = collected.lines;
    return creation;
}

TEST(CreatePart, ReadsOnlyWhatTheShapeReads) {
    for (const ShapeRow& shape : shape_catalogue()) {
        SCOPED_TRACE(shape.keyword);
        std::vector<std::string> sizes, divisions;
        for (int k = 0; k < shape.size_count(); ++k) sizes.push_back(std::to_string(k + 1));
        for (int k = 0; k < shape.division_count(); ++k) divisions.push_back(std::to_string(k + 7));
        const Creation made = create({row("p", shape.keyword, sizes, divisions)});
        ASSERT_TRUE(made.remarks.ok()) << joined(made.remarks.errors);
        const Part& part = made.parts.at(0);
        EXPECT_EQ(part.type, shape.shape);
        for (int k = 0; k < 6; ++k) {
            EXPECT_EQ(part.size[k], k < shape.size_count() ? k + 1 : 0);
            EXPECT_EQ(part.div[k], k < shape.division_count() ? k + 7 : 0);
        }
        EXPECT_EQ(part.parent_name, shape.import ? "unread" : "NONE");
        EXPECT_EQ(part.size_text[5], "unread");
    }
}

TEST(CreatePart, FindsParentsWhereverTheyStandAndUnits) {
    std::vector<PartRow> rows(5, good);
    const std::pair<const char*, double> units[] = {
        {"M", 1}, {"mm", 0.001}, {"0.01", 0.01}, {"m", 1}, {"MM", 0.001}};
    for (int k = 0; k < 5; ++k) rows[k].unit = units[k].first;
    rows[0].parent = rows[4].parent = "b";
    rows[2].fields[0] = rows[3].fields[0] = "b";
    rows[1].fields[1] = "Red";  // none that is known
    const Creation made = create(rows);
    ASSERT_TRUE(made.remarks.ok());
    for (int k = 0; k < 5; ++k) EXPECT_EQ(made.parts[k].unit_factor, units[k].second);
    EXPECT_EQ(made.parts[0].parent_index, 3) << "the last of one name";
    EXPECT_EQ(made.parts[4].parent_index, 3);
    EXPECT_EQ(made.parts[1].parent_index, -1);
    EXPECT_EQ(made.parts[1].color, (std::array<double, 3>{1, 1, 1}));
}

TEST(CreatePart, NamesPartAndFieldOfEveryErrorAndCutsTexts) {
    // clang-format off
    const std::tuple<int, std::string, const char*> wrong[] = {
        {4, "wide", "part \"p\": size b: unknown name in \"wide\""}, {17, "nan", "origin y"},
        {6, "inf", "part \"p\": size L: \"inf\" is not a finite number"}, {21, "x", "euler angle 3"},
        {11, "1e10", "part \"p\": division dh: \"1e10\" = 1e+10"}, {2, "steel", "material \"steel\" is none"},
        {12, "-2147483648", "division dl: \"-2147483648\""}
    };
    // clang-format on
    for (const auto& [field, text, message] : wrong) {
        PartRow bad = good;
        bad.fields[field] = text;
        const Creation made = create({bad});
        EXPECT_TRUE(made.remarks.errors.size() == 1 && contains(made.remarks.errors, message)) << message;
    }
    for (const char* unit : {"Mm", "0", "-1", "inf"}) {
        PartRow bad = good;
        bad.unit = unit;
        EXPECT_EQ(create({bad}).remarks.errors.size(), 1u) << unit;
    }
    PartRow cut = good, wide = good;
    cut.fields.pop_back();
    EXPECT_TRUE(contains(create({cut}).remarks.errors, "21 fields, 22 expected"));
    wide.fields[0] = std::string(100, 'n');
    wide.fields[2] = std::string(66, 'm');
    wide.fields[9] = std::string(200, 's');
    const Part part = create({wide}).parts.at(0);
    EXPECT_EQ((std::array{part.name.size(), part.size_text[5].size(), part.material_name.size()}),
              (std::array<std::size_t, 3>{63, 127, 63}));
    EXPECT_EQ(part.material_id, 3);
    const PartRow far = row("v", "VOL", {std::string(128, 'p')}, {});
    EXPECT_TRUE(contains(create({far}).remarks.errors, "128 characters"));
}

}  // namespace
