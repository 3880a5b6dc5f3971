// The mass per pair of nodes against the whole matrix, where directions have different free nodes.
#include "analysis/eigen/mass_factor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/assembled.h"
#include "support/box_mesh.h"
#include "support/collected.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

// The lower end is held in x, the corner's edges in y, one node in z; or the end in all.
struct Reduced {
    SparseKM km;
    std::vector<std::int32_t> free_dofs;
    Reduced(const Mesh& mesh, bool partly) {
        const Material steel{.name = "S", .density = 7850, .young = 2e11, .poisson = 0.3};
        SilentProgress silent;
        km = testing::assemble(mesh, steel, build_elasticity(std::span(&steel, 1), silent));
        std::vector<std::int32_t> map;
        for (std::int32_t dof = 0; dof < km.rows(); ++dof) {
            const double* x = mesh.node(dof / 3);
            const bool at[] = {x[2] == 0, x[2] == 0 && x[1] == 0, dof < 3};
            const bool fixed = partly ? at[dof % 3] : x[2] == 0;
            map.push_back(fixed ? -1 : static_cast<std::int32_t>(free_dofs.size()));
            if (!fixed) free_dofs.push_back(dof);
        }
        keep_rows(map, km);
    }
};

TEST(MassFactor, IsThatOfTheWholeMatrix) {
    for (const bool partly : {true, false})
        for (const auto kind : {ElementKind::hexahedron, ElementKind::tetrahedron10}) {
            const auto [km, free_dofs] =
                Reduced(testing::box_mesh({{3, 2, 7}, {0.3, 0.2, 0.7}}, kind), partly);
            const Profile profile = make_profile(km);
            NodeMass mass(km, free_dofs);
            const std::size_t n = free_dofs.size();
            std::vector<double> x(6 * n), y(6 * n), Mx(n);
            for (std::size_t i = 0; i < x.size(); ++i) x[i] = std::sin(1.0 + 0.37 * static_cast<double>(i));
            mass.multiply(x, y, km.rows(), 6, 2);
            for (std::size_t c = 0; c < 6; ++c) {
                multiply(km, km.M_value, std::span(x).subspan(c * n, n), Mx);
                for (std::size_t i = 0; i < n; ++i) ASSERT_NEAR(y[c * n + i], Mx[i], 1e-13) << i;
            }
            const std::int32_t half = km.rows() / 2;
            for (const std::vector<std::int32_t>& rows : {std::vector{0, km.rows()}, {0, half, km.rows()}}) {
                Divisions divisions{{}, rows};
                for (std::int32_t r : rows) divisions.div_profile.push_back(profile.sky_start[r]);
                testing::TempFolder folder;
                std::filesystem::create_directories(folder.path() / "log");
                const FactorOptions options{
                    .threads = 2, .log_folder = folder.path() / "log", .file_stem = mass_stem};
                testing::Collected whole_said, said;
                const auto files = [&] {
                    std::string bytes;
                    for (int b = 0; b < divisions.count(); ++b)
                        bytes +=
                            testing::read_file(folder.path() / "log" /
                                               (mass_stem + std::string("_") + std::to_string(b) + ".txt"));
                    std::vector<double> values(bytes.size() / 8);
                    std::memcpy(values.data(), bytes.data(), bytes.size());
                    return values;
                };
                SkylineFactor whole(profile, divisions, options);
                ASSERT_EQ(whole.factor_ww(km, km.M_value, whole_said), FactorStatus::ok);
                const std::vector<double> expected = files();
                MassFactor W(mass, profile, divisions, options);
                ASSERT_EQ(W.factor(said), FactorStatus::ok) << W.error();
                const std::vector<double> written = files();
                ASSERT_EQ(written.size(), expected.size());
                for (std::size_t k = 0; k < written.size(); ++k)
                    ASSERT_NEAR(written[k], expected[k], 1e-13) << k;
                EXPECT_EQ(said.lines, whole_said.lines);
                std::vector<double> a(x.begin(), x.begin() + std::ptrdiff_t(n)), b = a;
                ASSERT_TRUE(whole.solve_wt(a) && W.solve_wt(b));
                for (std::size_t i = 0; i < n; ++i) ASSERT_NEAR(a[i], b[i], 1e-11 * std::abs(a[i]) + 1e-12);
            }
        }
}

}  // namespace
}  // namespace kestralum
