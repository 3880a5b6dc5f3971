// A history in pieces, as several processes write it, and what is read of it.
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <limits>

#include "dealt_run.h"
#include "full_run.h"
#include "results/vtu_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct PieceSeries : ::testing::TestWithParam<ElementKind> {
    TempFolder folder;
    const std::string log = folder.file("log"), series = "log\\full.pvd";
    StoredRun made;

    // Two pieces of half the elements and one of none. From the second frame on element 0 is out, then also
    // the last one.
    void write(ElementKind kind, AnalysisType type = AnalysisType::explicit_dynamics) {
        made = full_run(folder, kind, 3);
        made.run.ana_type = type;
        const std::int32_t all = made.run.mesh.element_num();
        std::deque<Dealt> ones;
        std::deque<VtuPieceFrames> files;
        const std::int32_t starts[] = {0, all / 2, all, all};
        for (int p = 0; p < 3; ++p) {
            ones.push_back(dealt(made.run, starts[p], starts[p + 1]));
            files.emplace_back(VtuPiece{made.model, ones.back().run, ones.back().node}, p);
        }
        Collected said;
        for (int k = 0; k < 3; ++k) {
            auto frame = std::make_shared<Frame>(*made.run.results[k]);
            if (k > 0) frame->removed = {0};
            if (k > 1) frame->removed.push_back(all - 1);
            made.run.results[k] = frame;
            std::deque<HeldFile> held(3);
            for (int p = 0; p < 3; ++p)
                ASSERT_EQ(files[p].hold(frame_of(*frame, ones[p]), said, held[p]), "");
            ASSERT_FALSE(std::filesystem::exists(name_of(k, "_p0000.vtu"))) << "others are not whole yet";
            for (HeldFile& file : held) ASSERT_EQ(file.take_name(), "");
            ASSERT_EQ(files[0].write_lists(3, said), "");
        }
    }
    std::string name_of(int frame, const std::string& ending) const {
        return folder.file("log/full_00000" + std::to_string(frame + 1) + ending);
    }
    // Groups 1 to 4 and Mises stress and plastic strain of the last; nodes on no element are left out.
    void expect_frame(const Frame& got, const Frame& exact) const {
        const std::size_t dofs = got.mode_vec.size(), all = exact.mode_vec.size();
        EXPECT_EQ(got.n_freq, exact.n_freq);
        ASSERT_EQ(all, dofs + 12);
        for (std::size_t d = 0; d < dofs; ++d) {
            ASSERT_EQ(got.mode_vec[d], exact.mode_vec[d]);
            for (std::size_t g = 0; g < 5; ++g)
                if (g < 4 || d % 3 < 2) {
                    ASSERT_EQ(got.node_stress[g * dofs + d], exact.node_stress[g * all + d]);
                }
        }
    }
    std::optional<StoredRun> read(const std::string& name, std::string& errors) const {
        Collected said;
        auto out = read_result_file(name, log, said);
        errors = said.errors;
        return out;
    }
};

INSTANTIATE_TEST_SUITE_P(Kinds, PieceSeries,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4,
                                           ElementKind::tetrahedron10));

TEST_P(PieceSeries, OfAHistoryAreReadAsItsFrames) {
    write(GetParam());
    std::string errors;
    const auto back = read(series, errors);
    ASSERT_TRUE(back) << errors;
    EXPECT_EQ(back->run.ana_type, AnalysisType::explicit_dynamics);
    EXPECT_TRUE(back->run.erodes);
    EXPECT_EQ(back->run.mesh.connectivity, made.run.mesh.connectivity);
    EXPECT_EQ(back->run.mesh.p_ele_part_id, made.run.mesh.p_ele_part_id);
    ASSERT_EQ(back->run.results.size(), 3u);
    for (std::size_t k = 0; k < 3; ++k) {
        SCOPED_TRACE(k);
        EXPECT_EQ(back->run.results[k]->removed, made.run.results[k]->removed);
        expect_frame(*back->run.results[k], *made.run.results[k]);
    }
    const auto one = read("log\\full_000003.pvtu", errors);
    ASSERT_TRUE(one) << errors;
    EXPECT_EQ(one->run.ana_type, AnalysisType::explicit_dynamics);
    EXPECT_EQ(one->run.mesh.element_num(), made.run.mesh.element_num() - 2);
    ASSERT_EQ(one->run.results.size(), 1u);
    expect_frame(*one->run.results[0], *made.run.results[2]);
}

using PieceSeriesOfHexahedra = PieceSeries;
INSTANTIATE_TEST_SUITE_P(Kinds, PieceSeriesOfHexahedra, ::testing::Values(ElementKind::hexahedron));

// One line, which begins with the name of the file at fault.
TEST_P(PieceSeriesOfHexahedra, ThatDoNotFitAreToldByName) {
    write(GetParam(), AnalysisType::nonlinear_static);
    std::string errors;
    const auto good = read(series, errors);
    ASSERT_TRUE(good) << errors;
    EXPECT_EQ(good->run.ana_type, AnalysisType::nonlinear_static);
    const auto told = [&](const std::string& file, const std::string& text, const std::string& at,
                          const std::string& what) {
        const std::string path = folder.file("log/" + file), whole = read_file(path);
        text.empty() ? void(std::filesystem::remove(path)) : void(folder.write("log/" + file, text));
        EXPECT_FALSE(read(series, errors)) << file << what;
        EXPECT_TRUE(errors.starts_with("log\\" + at + ": ") && contains(errors, what)) << errors;
        EXPECT_EQ(lines_of(errors).size(), 1u) << errors;
        folder.write("log/" + file, whole);
    };
    const auto of = [&](const std::string& file) { return read_file(folder.file("log/" + file)); };
    const std::string later = "full_000002.pvtu", piece = "full_000002_p0001.vtu", all = of(piece),
                      list = of(later), frames = of("full.pvd");
    told(piece, "", piece, "No such file");
    told(later, "", later, "No such file");
    told("full_000001_p0000.vtu", of("full_000001_p0000.vtu").substr(0, 900), "full_000001_p0000.vtu",
         "expected");
    for (const double share : {0.1, 0.6, 0.95})
        told(piece, all.substr(0, std::size_t(share * static_cast<double>(all.size()))), piece, "expected");
    told(piece, of("full_000002_p0000.vtu"), piece, "expected the nodes of the first frame's piece");
    told(piece, replaced(all, "\"plastic_strain\" NumberOf", "\"plastic_strains\" NumberOf"), piece,
         "expected plastic_strain");
    told(piece, replaced(all, "\"Float64\" Name=\"plastic_strain\"", "\"Float32\" Name=\"plastic_strain\""),
         piece, "expected plastic_strain");
    told(later, replaced(list, "<Piece Source=\"full_000002_p0002.vtu\"/>\n", ""), later,
         "expected the pieces of the first frame");
    for (const auto& [more, at, what] :
         {std::tuple{"full_000002_p0002.vtu", later.c_str(), "expected each piece once"},
          {"full_000001_p0001.vtu", "full_000001_p0001.vtu", "expected no more pieces"}})
        told(later,
             replaced(list, "p0002.vtu\"/>", "p0002.vtu\"/><Piece Source=\"" + std::string(more) + "\"/>"),
             at, what);
    told(later, replaced(list, "nonlinear", "explicit"), later, "expected the analysis of the first frame");
    told(later, replaced(list, "nonlinear", "modal"), later, "nonlinear or explicit");
    told(later, replaced(list, "value=\"", "value=\"nan"), later, "the value of its frame");
    told("full.pvd", replaced(frames, "full_000002.pvtu", "full_000002.vtu"), "full.pvd",
         "expected lists of pieces (.pvtu) as frames, got 'log\\full_000002.vtu'");
    told("full.pvd", replaced(frames, "file=", "field="), "full.pvd", "expected a frame that lies beside it");
    told("full.pvd", "<VTKFile><Collection></Collection></VTKFile>", "full.pvd", "expected a list of frames");
    told("full.pvd", "no list", "full.pvd", "expected a list of frames");
    // cells that the first frame does not have, or in another order
    std::string cells = all;
    const std::string first = of("full_000001_p0001.vtu");
    const std::size_t head = cells.find("\n_") + 2;
    ASSERT_EQ(cells.size(), first.size());
    // the array before the last two, of offsets and types, is the cells' nodes
    const std::int32_t count = made.run.mesh.element_num() / 2;
    const std::size_t end = cells.size() - std::string("\n</AppendedData>\n</VTKFile>\n").size() -
                            (8 + std::size_t(count)) - (8 + 8 * std::size_t(count));
    ASSERT_GT(end - 64 * std::size_t(count), head);
    std::rotate(cells.begin() + std::ptrdiff_t(end - 64), cells.begin() + std::ptrdiff_t(end - 8),
                cells.begin() + std::ptrdiff_t(end));
    told(piece, cells, piece, "expected cells of the first frame's piece");
    EXPECT_TRUE(read(series, errors)) << errors;
}

// A process that cannot write its piece leaves the others' earlier ones.
TEST_P(PieceSeriesOfHexahedra, OfWhichOneIsNotWholeLeaveTheEarlierOnes) {
    write(GetParam());
    const std::string path = name_of(0, "_p0000.vtu"), before = read_file(path);
    Collected said;
    const Dealt one = dealt(made.run, 0, 1);
    VtuPieceFrames files({made.model, one.run, one.node}, 0);
    {
        HeldFile file;
        ASSERT_EQ(files.hold(frame_of(*made.run.results[1], one), said, file), "");
        EXPECT_TRUE(std::filesystem::exists(path + ".part"));
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    EXPECT_EQ(read_file(path), before);
    std::filesystem::create_symlink("/dev/full", path + ".part");
    HeldFile file;
    EXPECT_TRUE(contains(VtuPieceFrames({made.model, one.run, one.node}, 0)
                             .hold(frame_of(*made.run.results[1], one), said, file),
                         "full_000001_p0000.vtu cannot be written: No space left on device"));
    EXPECT_EQ(read_file(path), before);
    // a list of an earlier run does not stay beside pieces of this one
    ASSERT_TRUE(std::filesystem::exists(folder.file("log/full.pvd")));
    VtuPieceFrames again({made.model, one.run, one.node}, 0);
    ASSERT_EQ(again.hold(frame_of(*made.run.results[1], one), said, file), "");
    std::filesystem::create_symlink("/dev/full", name_of(0, ".pvtu.part"));
    EXPECT_TRUE(contains(again.write_lists(1, said), "full_000001.pvtu cannot be written: No space left"));
    EXPECT_FALSE(std::filesystem::exists(folder.file("log/full.pvd")));
}

}  // namespace
