// The pieces of a run on several processes read back: together the run, or one clear line.
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <numeric>

#include "dealt_run.h"
#include "full_run.h"
#include "results/vtu_file.h"
#include "usable_run.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

class Pieces : public ::testing::Test {
protected:
    // Of two frames, in two parts, without the facet that no such run has.
    StoredRun make_whole(ElementKind kind = ElementKind::hexahedron) const {
        StoredRun stored = full_run(folder, kind, 2);
        Mesh& mesh = stored.run.mesh;
        const std::vector<std::int32_t> parts = mesh.p_ele_part_id;
        mesh = box_mesh({{2, 1, 2}, {1, 2.0 / 3, 3}}, kind);
        mesh.p_ele_part_id = parts;
        stored.model.mesh = mesh;
        std::mt19937 random(11);
        std::normal_distribution<double> number(0, 1e5);
        for (std::size_t k = 0; k < 2; ++k) {
            Frame frame(mesh.dof_num());
            frame.name = k ? "wind" : "base";
            for (auto* values : {&frame.mode_vec, &frame.node_stress})
                for (double& v : *values) v = number(random);
            stored.run.results[k] = std::make_shared<const Frame>(std::move(frame));
        }
        return stored;
    }
    void write_piece(const VtuPiece& piece, int number) {
        HeldFile file;
        ASSERT_EQ(hold_vtu_piece(piece, number, said, file), "");
        ASSERT_EQ(file.take_name(), "");
    }
    // Two pieces and their list; the nodes are numbered by `number_of`.
    void write(const StoredRun& whole, const std::function<std::int32_t(std::int32_t)>& number_of = {}) {
        const std::int32_t half = whole.run.mesh.element_num() / 2;
        for (int k = 0; k < 2; ++k) {
            Dealt part = dealt(whole.run, k * half, k ? whole.run.mesh.element_num() : half);
            for (std::int32_t& n : part.node)
                if (number_of) n = number_of(n);
            const VtuPiece piece{whole.model, part.run, part.node};
            write_piece(piece, k);
            if (k == 0) {
                ASSERT_EQ(write_pvtu(piece, 2, said), "");
            }
        }
    }
    std::optional<StoredRun> read() {
        said.clear();
        return read_result_file("log\\full.pvtu", log, said);
    }
    // Reads what cannot be read: the line that tells of the file.
    std::string refused(const std::string& file, const std::string& what) {
        EXPECT_FALSE(read()) << what;
        EXPECT_TRUE(said.errors.starts_with(file + ": ") && lines_of(said.errors).size() == 1 &&
                    said.errors.size() < 250)
            << what << ": " << said.errors;
        return said.errors;
    }
    std::string text_of(const std::string& name) const { return read_file(folder.path() / "log" / name); }
    void put(const std::string& name, const std::string& text) const { folder.write("log/" + name, text); }
    // The bytes of a value of an array in a piece's data in place of those there.
    template <typename T>
    std::string with_value(std::string text, const std::string& array, std::size_t index, T value) const {
        const std::string mark = " offset=\"";
        const std::size_t at = text.find(mark, text.find("Name=\"" + array + "\"")) + mark.size();
        const std::size_t data = text.find("raw\">\n_") + 7 + std::stoul(text.substr(at));
        const auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
        std::copy_n(bytes.begin(), sizeof(T), text.begin() + std::ptrdiff_t(data + 8 + index * sizeof(T)));
        return text;
    }

    TempFolder folder;
    std::string log = folder.file("log");
    Collected said;
};

class PiecesOf : public Pieces, public ::testing::WithParamInterface<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(Kinds, PiecesOf, ::testing::ValuesIn(every_kind));

}  // namespace

// Numbers without gaps, with small ones, and as far apart as numbers go: the order is what counts.
TEST_P(PiecesOf, ReadBackAreTheRun) {
    const StoredRun whole = make_whole(GetParam());
    const std::int32_t last = whole.run.mesh.node_num();
    const std::function<std::int32_t(std::int32_t)> numbers[] = {
        {},
        [](std::int32_t n) { return 3 * n + 5; },
        [last](std::int32_t n) { return std::numeric_limits<std::int32_t>::max() - 7'000'000 * (last - n); }};
    for (const auto& number_of : numbers) {
        write(whole, number_of);
        const auto back = read();
        ASSERT_TRUE(back) << said.errors;
        EXPECT_EQ(back->run.mesh.element_type, whole.run.mesh.element_type);
        EXPECT_EQ(back->run.mesh.coordinates, whole.run.mesh.coordinates);
        EXPECT_EQ(back->run.mesh.connectivity, whole.run.mesh.connectivity);
        EXPECT_EQ(back->run.mesh.p_ele_part_id, whole.run.mesh.p_ele_part_id);
        EXPECT_EQ(back->model.parts.size(), 2u);
        ASSERT_EQ(back->run.results.size(), 2u);
        for (std::size_t k = 0; k < 2; ++k) {
            const Frame &got = *back->run.results[k], &exact = *whole.run.results[k];
            EXPECT_EQ(got.name, exact.name);
            EXPECT_EQ(got.mode_vec, exact.mode_vec);
            for (std::size_t d = 0; d < 4 * exact.mode_vec.size(); ++d)
                ASSERT_EQ(got.node_stress[d], exact.node_stress[d]) << d;
            for (std::size_t d = 4 * exact.mode_vec.size(); d < exact.node_stress.size(); d += 3)
                ASSERT_EQ(got.node_stress[d], exact.node_stress[d]) << d;
        }
    }
}

// A frame is a mode or a load factor by the whole of its name; a case may be called nearly so.
TEST_F(Pieces, CasesThatAreCalledLikeModesStayCases) {
    StoredRun whole = make_whole();
    const char* const names[] = {"mode_up", "model_factor2"};
    for (std::size_t k = 0; k < 2; ++k) {
        Frame frame = *whole.run.results[k];
        frame.name = names[k];
        whole.run.results[k] = std::make_shared<const Frame>(frame);
    }
    write(whole);
    const auto cases = read();
    ASSERT_TRUE(cases) << said.errors;
    EXPECT_EQ(cases->run.ana_type, AnalysisType::linear_static);
    for (std::size_t k = 0; k < 2; ++k) EXPECT_EQ(cases->run.results[k]->name, names[k]);
    for (const AnalysisType type : {AnalysisType::eigen, AnalysisType::buckling}) {
        whole.run.ana_type = type;
        for (std::size_t k = 0; k < 2; ++k) {
            Frame frame = *whole.run.results[k];
            frame.n_freq = k ? -2.5e-7 : 84.25;
            whole.run.results[k] = std::make_shared<const Frame>(frame);
        }
        write(whole);
        const auto back = read();
        ASSERT_TRUE(back) << said.errors;
        EXPECT_EQ(back->run.ana_type, type);
        EXPECT_EQ(back->run.results[0]->n_freq, 84.25);
        EXPECT_EQ(back->run.results[1]->n_freq, -2.5e-7);
    }
}

// A rank without an element has no nodes.
TEST_F(Pieces, APieceWithoutElementsIsOne) {
    const StoredRun whole = make_whole();
    write(whole);
    Dealt none = dealt(whole.run, 0, 0);
    write_piece({whole.model, none.run, none.node}, 2);
    // ParaView wants the arrays of the list in every piece
    const std::string list = text_of("full.pvtu"), empty = text_of("full_p0002.vtu"), mark = "Name=\"";
    for (std::size_t at = list.find(mark); at != std::string::npos; at = list.find(mark, at + 1)) {
        const std::string name = list.substr(at, list.find('"', at + mark.size()) + 1 - at);
        EXPECT_TRUE(contains(empty, name)) << name;
    }
    for (const char* const place : {"<Piece Source=\"full_p0000", "</PUnstructuredGrid>"}) {
        write(whole);
        put("full.pvtu", replaced(text_of("full.pvtu"), place,
                                  "<Piece Source=\"full_p0002.vtu\"/>\n" + std::string(place)));
        for (const std::string& text : {empty, replaced(empty, "displacement", "removed")}) {
            put("full_p0002.vtu", text);
            const auto back = read();
            ASSERT_TRUE(back) << said.errors;
            EXPECT_EQ(back->run.mesh.connectivity, whole.run.mesh.connectivity);
            EXPECT_EQ(back->run.results.size(), 2u);
        }
    }
}

TEST_F(Pieces, WhatIsCutOrChangedIsTold) {
    write(make_whole());
    const std::string piece = "full_p0001.vtu", good = text_of(piece);
    const std::size_t head = good.find("_", good.find("raw")), end = good.find("\n</AppendedData>");
    std::vector<std::size_t> lengths{head, head + 1, end - 1};
    for (std::size_t length = 0; length < end; length += end / 150) lengths.push_back(length);
    for (const std::size_t length : lengths) {
        put(piece, good.substr(0, length));
        refused("log\\" + piece, "prefix of " + std::to_string(length));
    }
    std::mt19937 random(20261123);
    int whole = 0;
    for (int k = 0; k < 300 && !HasFailure(); ++k) {
        std::string text = good;
        for (int changes = 1 + int(random() % 2); changes > 0; --changes)
            text[random() % (k % 3 ? head : text.size())] = char(random());
        put(piece, text);
        if (const auto stored = read(); stored) {
            ++whole;
            EXPECT_EQ(said.errors, "");
            expect_usable(*stored, "change " + std::to_string(k));
        } else {
            EXPECT_EQ(lines_of(said.errors).size(), 1u) << said.errors;
            EXPECT_LT(said.errors.size(), 250u);
        }
    }
    EXPECT_GT(whole, 20);
    EXPECT_LT(whole, 280);
}

TEST_F(Pieces, ValuesThatCannotBeAreTold) {
    const StoredRun stored = make_whole();
    write(stored);
    const std::string piece = "full_p0001.vtu", good = text_of(piece);
    const auto start = std::chrono::steady_clock::now();
    const auto expect = [&](const std::string& text, const std::string& why) {
        put(piece, text);
        EXPECT_TRUE(contains(refused("log\\" + piece, why), why)) << said.errors;
    };
    constexpr double none = std::numeric_limits<double>::quiet_NaN(), most = 1e308;
    expect(with_value(good, "Points", 4, none), "finite coordinates");
    expect(with_value(good, "Points", 35, -std::numeric_limits<double>::infinity()), "finite coordinates");
    for (const std::int32_t n : {0, -1, std::numeric_limits<std::int32_t>::min()})
        expect(with_value(good, "node", 2, n), "node numbers from 1");
    for (const std::int64_t n : {std::int64_t(12), std::int64_t(-1), std::int64_t(1) << 32,
                                 std::numeric_limits<std::int64_t>::min()})
        expect(with_value(good, "connectivity", 3, n), "nodes of the piece");
    for (const std::int32_t p : {-1, std::numeric_limits<std::int32_t>::max()})
        expect(with_value(good, "part", 1, p), "part numbers");
    for (const int type : {0, 5, 10, 24, 255})
        expect(with_value(good, "types", 1, static_cast<std::uint8_t>(type)), "cells of one type");
    // sizes of blocks, whole and beyond what 64 bits count
    for (const std::uint64_t bytes :
         {std::uint64_t(0), std::uint64_t(1) << 32, ~std::uint64_t(0), ~std::uint64_t(7)}) {
        std::string text = good;
        const auto there = std::bit_cast<std::array<char, 8>>(bytes);
        std::copy_n(there.begin(), 8, text.begin() + std::ptrdiff_t(text.find("raw\">\n_") + 7));
        expect(text, "displacement, stress");
    }
    for (const char* const offset : {"99999999999", "18446744073709551608", "18446744073709551615"})
        expect(replaced(good, "offset=\"0\"", std::string("offset=\"") + offset + "\""),
               "displacement, stress");
    for (const char* const offset : {"18446744073709551616", "-1", "1e3", ""})
        expect(replaced(good, "offset=\"0\"", std::string("offset=\"") + offset + "\""), "offset");
    for (const char* const count :
         {"1000000001", "-1", "9223372036854775807", "99999999999999999999", "x", ""})
        expect(replaced(good, "Cells=\"2\"", std::string("Cells=\"") + count + "\""), "points and cells");
    expect(replaced(good, "Cells=\"2\"", "Cells=\"1000000000\""), "types and parts");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));

    // what every piece has on its own, but not together
    const auto of_all = [&](const std::string& text, const std::string& why) {
        put(piece, text);
        EXPECT_TRUE(contains(refused("log\\full.pvtu", why), why)) << said.errors;
    };
    of_all(with_value(with_value(good, "Points", 0, most), "Points", 33, -most), "places");
    of_all(with_value(good, "part", 1, std::int32_t(999'999)), "parts");
    // a node that both have
    const Dealt first = dealt(stored.run, 0, 2), second = dealt(stored.run, 2, 4);
    const auto common = std::ranges::find_first_of(second.node, first.node);
    ASSERT_NE(common, second.node.end());
    const std::size_t at = 3 * std::size_t(common - second.node.begin()) + 1;
    of_all(with_value(good, "Points", at, second.run.mesh.coordinates[at] + 1e-3), "one run");
}

// A list names pieces that lie beside it or below, each once.
TEST_F(Pieces, AListThatLeadsElsewhereIsTold) {
    write(make_whole());
    const std::string good = text_of("full.pvtu"), second = "\"full_p0001.vtu\"";
    std::filesystem::create_directories(folder.path() / "log/sub");
    std::filesystem::copy(folder.path() / "log/full_p0001.vtu", folder.path() / "log/sub/piece.vtu");
    std::filesystem::copy(folder.path() / "log/full_p0001.vtu", folder.path() / "outside.vtu");
    put("full.pvtu", replaced(good, second, "\"sub/piece.vtu\""));
    EXPECT_TRUE(read()) << said.errors;
    for (const std::string& elsewhere :
         {std::string("../outside.vtu"), std::string("..\\outside.vtu"), std::string("sub/../../outside.vtu"),
          folder.file("outside.vtu"), std::string(), std::string("."), std::string(300, 'x') + "/../../a"}) {
        put("full.pvtu", replaced(good, second, '"' + elsewhere + '"'));
        EXPECT_TRUE(contains(refused("log\\full.pvtu", elsewhere), "beside")) << said.errors;
    }
    for (const char* const twice : {"full_p0000.vtu", "./full_p0000.vtu", "sub/../full_p0000.vtu"}) {
        put("full.pvtu", replaced(good, second, '"' + std::string(twice) + '"'));
        EXPECT_TRUE(contains(refused("log\\full.pvtu", twice), "once")) << said.errors;
    }
    // letters that XML writes otherwise, which a file's name may have
    StoredRun named = make_whole();
    named.model.model_file_name = "a & \"b\" <c>.txt";
    write(named);
    EXPECT_TRUE(
        contains(text_of("a & \"b\" <c>.pvtu"), "Source=\"a &amp; &quot;b&quot; &lt;c&gt;_p0001.vtu\""));
    EXPECT_TRUE(read_result_file("log\\a & \"b\" <c>.pvtu", log, said)) << said.errors;
    put("full.pvtu", replaced(good, second, "\"full.pvtu\""));
    EXPECT_TRUE(contains(refused("log\\full.pvtu", "itself"), "appended data")) << said.errors;
    put("full.pvtu", replaced(good, second, "\"sub\""));
    refused("log\\sub", "a folder");
    put("full.pvtu", replaced(good, second, '"' + std::string(5000, 'x') + '"'));
    EXPECT_TRUE(contains(refused("log\\full.pvtu", "a long name"), "xxx")) << said.errors;
    put("full.pvtu", replaced(good, second, "\"a\nb\""));
    refused("log\\full.pvtu", "a line break");
    for (const std::size_t length :
         {std::size_t(0), good.size() / 4, good.find("<Piece") + 3, good.find("</PUnstructuredGrid>")}) {
        put("full.pvtu", good.substr(0, length));
        EXPECT_TRUE(contains(refused("log\\full.pvtu", "prefix"), "list of pieces")) << said.errors;
    }
}
