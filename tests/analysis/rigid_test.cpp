// Rigid elements, forces and combines in static and eigen analyses: against hand-made matrices and beam
// theory.
#include <gtest/gtest.h>

#include <jama/jama_eig.h>

#include <cmath>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"
#include "conditions/rigid_bodies.h"
#include "support/analysis_run.h"
#include "support/finite_problem.h"
#include "system/model_check.h"

namespace kestralum {
namespace {

using testing::analysis_settings;
using RigidAnalysis = testing::AnalysisTest;

// Two blocks, 0.1 m apart, each all rigid, with six springs between reference points that lie off the
// centres.
const char* const two_blocks =
    "material_info\nM 1000 200e9 0.3\n%\nmode_num 12 %\npart_info\n"
    "A blue M RECT 0.4 0.3 0.2 0 0 0 2 1 1 0 0 0 0 0 0 0 0 0\n"
    "B red M RECT 0.2 0.3 0.5 0 0 0 1 2 2 0 0 0 0.5 0.05 -0.1 0 0 0\n%\n"
    "rigid_element\nA area 0.35 0.1 0.05 0 0.4 0 0.3 0 0.2\nB area 0.55 0.2 0.3 0.5 0.7 0.05 0.35 -0.1 "
    "0.4\n%\n"
    "rigid_combine\nS A B 3e6 2e6 5e6 4e4 6e4 3e4\n%\n";

using Matrix = TNT::Array2D<double>;

// Mass of a homogeneous block about a reference point: m [1, -[c]; [c], I].
void add_block(Matrix& M, int at, double density, const Vec3& size, const Vec3& centre) {
    const double m = density * size[0] * size[1] * size[2];
    const double cross[3][3] = {
        {0, -centre[2], centre[1]}, {centre[2], 0, -centre[0]}, {-centre[1], centre[0], 0}};
    for (int i = 0; i < 3; ++i) {
        M[at + i][at + i] = m;
        for (int j = 0; j < 3; ++j) {
            M[at + i][at + 3 + j] = -m * cross[i][j];
            M[at + 3 + i][at + j] = m * cross[i][j];
            double inertia = 0;
            for (std::size_t c = 0; c < 3; ++c)
                if (i == j && int(c) != i) inertia += m * size[c] * size[c] / 12;
            for (int k = 0; k < 3; ++k) inertia -= m * cross[i][k] * cross[k][j];
            M[at + 3 + i][at + 3 + j] = inertia;
        }
    }
}

// Springs at the middle: w = (u₂ - θ₂ × d/2) - (u₁ + θ₁ × d/2), φ = θ₂ - θ₁.
Matrix spring_matrix(const Vec3& d, const std::array<double, 6>& k) {
    const double x[3][3] = {
        {0, -d[2] / 2, d[1] / 2}, {d[2] / 2, 0, -d[0] / 2}, {-d[1] / 2, d[0] / 2, 0}};  // [d/2]
    double G[6][12] = {};
    for (int i = 0; i < 3; ++i) {
        G[i][i] = -1, G[i][6 + i] = 1;
        G[3 + i][3 + i] = -1, G[3 + i][9 + i] = 1;
        for (int j = 0; j < 3; ++j) G[i][3 + j] = G[i][9 + j] = x[i][j];  // -θ × d/2 = [d/2] θ
    }
    Matrix K(12, 12, 0.0);
    for (int i = 0; i < 12; ++i)
        for (int j = 0; j < 12; ++j)
            for (int c = 0; c < 6; ++c) K[i][j] += k[static_cast<std::size_t>(c)] * G[c][i] * G[c][j];
    return K;
}

// Eigenvalues of K x = λ M x, ascending, through the inverse root of M.
std::vector<double> eigenvalues(const Matrix& K, const Matrix& M) {
    const int n = K.dim1();
    JAMA::Eigenvalue<double> mass(M);
    TNT::Array1D<double> m, values;
    Matrix V;
    mass.getRealEigenvalues(m);
    mass.getV(V);
    Matrix C(n, n, 0.0);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            for (int a = 0; a < n; ++a)
                for (int b = 0; b < n; ++b) C[i][j] += V[a][i] * K[a][b] * V[b][j];
            C[i][j] /= std::sqrt(m[i] * m[j]);
        }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j) C[i][j] = C[j][i] = 0.5 * (C[i][j] + C[j][i]);
    JAMA::Eigenvalue<double> all(C);
    all.getRealEigenvalues(values);
    std::vector<double> out;
    for (int i = 0; i < n; ++i) out.push_back(values[i]);
    std::sort(out.begin(), out.end());
    return out;
}

TEST_F(RigidAnalysis, TwoBlocksOnSpringsHaveTheFrequenciesOfTheirTwelveByTwelveMatrices) {
    Matrix M(12, 12, 0.0);
    add_block(M, 0, 1000, {0.4, 0.3, 0.2}, {0.2 - 0.35, 0.15 - 0.1, 0.1 - 0.05});
    add_block(M, 6, 1000, {0.2, 0.3, 0.5}, {0.6 - 0.55, 0.2 - 0.2, 0.15 - 0.3});
    const std::vector<double> lambda =
        eigenvalues(spring_matrix({0.2, 0.1, 0.25}, {3e6, 2e6, 5e6, 4e4, 6e4, 3e4}), M);
    for (const Analyse method : {analyse_eigen_subspace, analyse_eigen_lanczos}) {
        ASSERT_TRUE(read(std::string(two_blocks) + "END\n"));
        const RunReport report = analyse(method, analysis_settings());
        ASSERT_EQ(report.status, RunStatus::done)
            << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
        ASSERT_EQ(report.modes.size(), 12u);
        for (std::size_t j = 0; j < 6; ++j) EXPECT_TRUE(report.modes[j].zero);
        for (std::size_t j = 6; j < 12; ++j)
            EXPECT_NEAR(report.modes[j].lambda, lambda[j], 1e-8 * lambda[j]) << j;
        double mass = 0;
        for (const ModeReport& mode : report.modes) mass += mode.effective_mass[0];
        EXPECT_NEAR(mass, 54, 1e-6);  // all of it
    }
}

TEST_F(RigidAnalysis, TwoBlocksOnSpringsMoveAsTheirStiffnessSays) {
    const std::string more =
        "boundary_condition\nFIX plane x 0 0 0 0 0 0\n%\nrigid_force\nF B y 700\nG B rz 50\nN B n "
        "1\n%\nEND\n";
    ASSERT_TRUE(read(std::string(two_blocks) + more));
    const RunReport report = analyse(analyse_static, analysis_settings());
    ASSERT_EQ(report.status, RunStatus::bad_input);  // a whole block has no mean outward normal
    ASSERT_TRUE(
        read(std::string(two_blocks) +
             "boundary_condition\nFIX plane x 0 0 0 0 0 0\n%\nrigid_force\nF B y 700\nG B rz 50\n%\nEND\n"));
    const RunReport held = analyse(analyse_static, analysis_settings());
    ASSERT_EQ(held.status, RunStatus::done) << (held.remarks.errors.empty() ? "" : held.remarks.errors[0]);
    // block B alone: K22 q = F by Gauss-Jordan
    const Matrix K = spring_matrix({0.2, 0.1, 0.25}, {3e6, 2e6, 5e6, 4e4, 6e4, 3e4});
    double a[6][7] = {};
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) a[i][j] = K[6 + i][6 + j];
    a[1][6] = 700, a[5][6] = 50;
    for (int p = 0; p < 6; ++p)
        for (int i = 0; i < 6; ++i) {
            if (i == p) continue;
            const double f = a[i][p] / a[p][p];
            for (int j = p; j < 7; ++j) a[i][j] -= f * a[p][j];
        }
    Vec3 u, theta;
    for (std::size_t c = 0; c < 3; ++c) u[c] = a[c][6] / a[c][c], theta[c] = a[3 + c][6] / a[3 + c][3 + c];
    for (const Vec3& x : {Vec3{0.5, 0.05, -0.1}, Vec3{0.7, 0.35, 0.4}, Vec3{0.5, 0.2, 0.15}}) {
        const Vec3 turn = cross(theta, {x[0] - 0.55, x[1] - 0.2, x[2] - 0.3}),
                   got = displacement(x[0], x[1], x[2]);
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(got[c], u[c] + turn[c], 1e-8 * 1e-3);
    }
    EXPECT_NEAR(held.reaction[1], -700, 1e-6);
    EXPECT_NEAR(held.reaction[0], 0, 1e-6);
}

// The nodes inside a rigid block have a share of an area force too: on a symmetric face its middle line is
// loaded.
TEST_F(RigidAnalysis, AnAreaForceOnARigidBlockActsAtTheMiddleOfTheArea) {
    const std::string fix = "boundary_condition\nFIX plane x 0 0 0 0 0 0\n%\n";
    std::vector<double> moved[2];
    int k = 0;
    for (const char* load : {"apply_force\nP area y 700 0.7 0.7 0.05 0.35 -0.1 0.4\n%\nEND\n",
                             "rigid_force\nF B y 700\nX B rx 105\nZ B rz 105\n%\nEND\n"}) {
        ASSERT_TRUE(read(std::string(two_blocks) + fix + load));
        const RunReport report = analyse(analyse_static, analysis_settings());
        ASSERT_EQ(report.status, RunStatus::done)
            << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
        EXPECT_NEAR(report.applied[1], 700, 1e-9);
        moved[k++] = frame().mode_vec;
    }
    for (std::size_t d = 0; d < moved[0].size(); ++d) ASSERT_NEAR(moved[0][d], moved[1][d], 1e-11);
}

TEST_F(RigidAnalysis, TheCheckSeesWhatRigidRecordsHoldTogether) {
    const std::string fix = "boundary_condition\nFIX plane x 0 0 0 0 0 0\n%\n", blocks = two_blocks;
    ASSERT_TRUE(read(blocks + fix + "END\n"));
    const ModelCheck joined = check_model(model, analysis_settings(), said);
    EXPECT_EQ(joined.bodies.size(), 1u);
    EXPECT_TRUE(joined.remarks.notices.empty()) << joined.remarks.notices[0];
    EXPECT_EQ(joined.rigid_members, (std::vector<std::int32_t>{12, 18}));
    EXPECT_EQ(joined.free_dofs, analyse(analyse_static, analysis_settings()).free_dofs)
        << "members have no rows of their own";

    ASSERT_TRUE(read(blocks.substr(0, blocks.find("rigid_combine")) + fix + "END\n"));
    const ModelCheck loose = check_model(model, analysis_settings(), said);
    EXPECT_EQ(loose.bodies.size(), 2u);
    ASSERT_EQ(loose.remarks.notices.size(), 1u);
    EXPECT_EQ(loose.remarks.notices[0], "body 2 (part B): no support holds it");

    ASSERT_TRUE(read(blocks + fix + "END\n"));
    model.rigid_elements[1].region = {9, 10, 9, 10, 9, 10};
    const ModelCheck empty = check_model(model, analysis_settings(), said);
    ASSERT_FALSE(empty.remarks.notices.empty());
    EXPECT_EQ(empty.remarks.notices[0], "rigid element B: no node of its own in its region");
}

// A square cantilever, 0.1 × 0.1 × 2 m, ν = 0; its end face may be rigid, or led by a rigid face through
// stiff springs.
std::string cantilever(const std::string& rigid, int cells = 4, const char* extra_part = "") {
    return formatted(
        "material_info\nM 8000 200e9 0\n%%\nmode_num 4 %%\npart_info\nBEAM blue M RECT 0.1 0.1 2 0 0 0 %d %d "
        "%d 0 0 0 0 0 0 0 0 0\n%s%%\n"
        "boundary_condition\nFIX plane z 0 0 0 0 0 0\n%%\nrigid_element\nEND_FACE area 0.05 0.05 2 0 0.1 0 "
        "0.1 2 2\n%s",
        cells, cells, 50 * cells, extra_part, rigid.c_str());
}

TEST_F(RigidAnalysis, ACantileverBendsAndTwistsAsItsRigidEndIsLoaded) {
    const double E = 200e9, G = E / 2, a = 0.1, L = 2, I = a * a * a * a / 12, J = 0.1406 * a * a * a * a;
    const double kappa = 10.0 / 12;  // Cowper (1966)
    const auto end_motion = [&](const char* force) {
        EXPECT_TRUE(read(cantilever(formatted("%%\nrigid_force\nF END_FACE %s\n%%\nEND\n", force))));
        const RunReport report = analyse(analyse_static, analysis_settings());
        EXPECT_EQ(report.status, RunStatus::done);
        EXPECT_LT(report.residual, 1e-8);
        return std::pair(displacement(0, 0, 2), displacement(0.1, 0.1, 2));
    };
    const auto bend = end_motion("rx 1000");
    EXPECT_NEAR((bend.second[2] - bend.first[2]) / a, 1000 * L / (E * I), 0.01 * 1000 * L / (E * I));
    const auto push = end_motion("y 1000");
    const double deflection = 1000 * L * L * L / (3 * E * I) + 1000 * L / (kappa * G * a * a);
    EXPECT_NEAR(push.first[1], deflection, 0.01 * deflection);
    const auto twist = end_motion("rz 1000");
    // long and fine enough that the warping held at both ends and the section's mesh do not show
    std::string shaft = cantilever("%\nrigid_force\nF END_FACE rz 1000\n%\nEND\n", 4);
    for (const auto& [from, to] : {std::pair{"0.1 0.1 2 0 0 0 4 4 200", "0.1 0.1 4 0 0 0 10 10 80"},
                                   std::pair{"0.05 0.05 2 0 0.1 0 0.1 2 2", "0.05 0.05 4 0 0.1 0 0.1 4 4"}})
        shaft.replace(shaft.find(from), std::string(from).size(), to);
    ASSERT_TRUE(read(shaft));
    ASSERT_EQ(analyse(analyse_static, analysis_settings()).status, RunStatus::done);
    const double turn = (displacement(0.1, 0.1, 4)[1] - displacement(0, 0, 4)[1]) / a;
    EXPECT_NEAR(turn, 2 * 1000 * L / (G * J), 0.01 * 2 * 1000 * L / (G * J));
    RecordProperty("theta_over_ML_EI",
                   std::to_string((bend.second[2] - bend.first[2]) / a / (1000 * L / (E * I))));
    RecordProperty("deflection_over_theory", std::to_string(push.first[1] / deflection));
    RecordProperty("twist_over_TL_GJ", std::to_string(turn / (2 * 1000 * L / (G * J))));
    // through stiff springs from a second, small body
    const char* block = "HEAD red M RECT 0.1 0.1 0.05 0 0 0 1 1 1 0 0 0 0 0 2.1 0 0 0\n";
    ASSERT_TRUE(
        read(cantilever("HEAD area 0.05 0.05 2.1 0 0.1 0 0.1 2.1 2.15\n%\nrigid_combine\nS END_FACE HEAD "
                        "1e13 1e13 1e13 1e12 1e12 1e12\n%\n"
                        "rigid_force\nF HEAD rz 1000\nM HEAD rx 1000\n%\nEND\n",
                        4, block)));
    ASSERT_EQ(analyse(analyse_static, analysis_settings()).status, RunStatus::done);
    EXPECT_NEAR(displacement(0.1, 0.1, 2)[1] - displacement(0, 0, 2)[1],
                twist.second[1] - twist.first[1] + bend.second[1] - bend.first[1], 1e-6 * 1e-4);
    EXPECT_NEAR(displacement(0.1, 0.1, 2)[2] - displacement(0, 0, 2)[2], bend.second[2] - bend.first[2],
                1e-6 * 1e-4);
}

TEST_F(RigidAnalysis, AFreeBodyWithRigidFacesKeepsSixZeroModesAndAStifferFirstFrequency) {
    std::string text = cantilever("BASE area 0.05 0.05 0 0 0.1 0 0.1 0 0\n%\nEND\n", 2);
    text.replace(text.find("boundary_condition"),
                 text.find("rigid_element") - text.find("boundary_condition"), "");
    text.replace(text.find("mode_num 4"), 10, "mode_num 9");
    double first[2];
    for (const Analyse method : {analyse_eigen_subspace, analyse_eigen_lanczos}) {
        ASSERT_TRUE(read(text));
        const RunReport report = analyse(method, analysis_settings());
        ASSERT_EQ(report.status, RunStatus::done)
            << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
        EXPECT_EQ(std::count_if(report.modes.begin(), report.modes.end(),
                                [](const ModeReport& m) { return m.zero; }),
                  6);
        EXPECT_EQ(report.modes_found, report.modes_counted);
        first[method == analyse_eigen_lanczos] = report.modes[6].frequency;
    }
    EXPECT_NEAR(first[0], first[1], 1e-7 * first[0]);
    text.erase(text.find("rigid_element"), text.find("%\nEND") + 2 - text.find("rigid_element"));
    ASSERT_TRUE(read(text));
    const RunReport loose = analyse(analyse_eigen_subspace, analysis_settings());
    EXPECT_GE(first[0], (1 - 1e-9) * loose.modes[6].frequency);
    EXPECT_LT(first[0], 1.05 * loose.modes[6].frequency);
}

TEST_F(RigidAnalysis, SupportedMembersLeaveTheMotionsAboutThem) {
    // the end face hinged at one edge: only the rotation about the edge is left
    const auto motions = [&](const std::string& support, const std::string& region) {
        std::string text = cantilever("%\nEND\n", 2);
        text.replace(text.find("FIX plane z 0 0 0 0 0 0"), 23, support);
        text.replace(text.find("0 0.1 0 0.1 2 2"), 15, region);
        EXPECT_TRUE(read(text));
        const NodeElements around = elements_of_nodes(model.mesh);
        std::int32_t fn = model.mesh.dof_num();
        const DofNumbering numbering =
            apply_boundary_conditions(model.boundary_conditions, model.mesh, around, fn, said);
        const RigidSystem rigid =
            build_rigid_system(model.rigid_elements, model.mesh, around, numbering.fixed_nodes);
        EXPECT_EQ(rigid.error, "");
        return rigid;
    };
    const std::string face = "0 0.1 0 0.1 2 2";
    EXPECT_EQ(motions("FIX plane z 0 0 0 0 0 0", face).equations, 6);
    const RigidSystem hinged = motions("FIX volume x 0 0.1 0 0 2 2", face);
    ASSERT_EQ(hinged.equations, 1);
    EXPECT_NEAR(std::abs(hinged.bodies[0].motions[0][3]), 1, 1e-12);
    const RigidSystem corner = motions("FIX volume x 0 0 0 0 2 2", face);
    EXPECT_EQ(corner.equations, 3);
    EXPECT_EQ(corner.bodies[0].pivot, (Vec3{0, 0, 2}));
    EXPECT_EQ(motions("FIX plane z 2 2 2 2 2 2", face).equations, 0);
    const RigidSystem edge = motions("FIX plane z 0 0 0 0 0 0", "0 0 0 0.1 2 2");  // members on a line
    EXPECT_EQ(edge.equations, 5);
    EXPECT_EQ(edge.notices.size(), 1u);
    EXPECT_EQ(motions("FIX plane z 0 0 0 0 0 0", "0 0 0 0 2 2").equations, 3);  // one member
    // and the whole analysis with each of them
    for (const char* support : {"FIX volume x 0 0.1 0 0 2 2", "FIX volume x 0 0 0 0 2 2"}) {
        std::string text = cantilever("%\nrigid_force\nM END_FACE rx 100\n%\nEND\n", 2);
        text.insert(text.find("rigid_element") - 2, std::string(support) + "\n");
        ASSERT_TRUE(read(text));
        const RunReport report = analyse(analyse_static, analysis_settings());
        EXPECT_EQ(report.status, RunStatus::done) << support;
        EXPECT_NE(displacement(0.1, 0.1, 2)[2], 0) << support;
        EXPECT_EQ(displacement(0, 0, 2), (std::array<double, 3>{0, 0, 0})) << support;
        for (double r : report.reaction)
            EXPECT_NEAR(r, 0, 1e-6) << support;  // a moment asks for no net force
    }
}

TEST_F(RigidAnalysis, SharedNodesAndEmptyElementsAreTold) {
    ASSERT_TRUE(
        read(cantilever("SIDE area 0 0 0 0 0 0 0.1 1.5 2\n%\nEND\n", 2)));  // shares the edge x = 0, z = 2
    RunReport report = analyse(analyse_static, analysis_settings());
    EXPECT_EQ(report.status, RunStatus::done);
    EXPECT_TRUE(
        std::any_of(report.remarks.notices.begin(), report.remarks.notices.end(),
                    [](const std::string& n) { return n.find("share 3 nodes") != std::string::npos; }));
    ASSERT_TRUE(read(cantilever("TWIN area 0 0 0 0 0.1 0 0.1 1.9 2\n%\nEND\n", 2)));
    report = analyse(analyse_static, analysis_settings());
    EXPECT_EQ(report.status, RunStatus::bad_input);
    EXPECT_NE(report.remarks.errors.at(0).find("END_FACE and TWIN"), std::string::npos);
    ASSERT_TRUE(read(cantilever("VOID area 0 0 0 5 6 5 6 5 6\n%\nEND\n", 2)));
    report = analyse(analyse_static, analysis_settings());
    EXPECT_EQ(report.status, RunStatus::bad_input);
    EXPECT_NE(report.remarks.errors.at(0).find("VOID"), std::string::npos);
    // a body that only a hinge holds
    std::string text = cantilever("%\nrigid_force\nM END_FACE rz 100\n%\nEND\n", 2);
    text.replace(text.find("boundary_condition"),
                 text.find("rigid_element") - text.find("boundary_condition"), "");
    ASSERT_TRUE(read(text));
    report = analyse(analyse_static, analysis_settings());
    EXPECT_EQ(report.status, RunStatus::failed);
    EXPECT_NE(report.remarks.errors.at(0).find("END_FACE"), std::string::npos);
}

// Pure bending: κ = M/EI everywhere, so that M = (π/2) EI/L makes a quarter circle (elastica; strains 1.6 %).
TEST_F(RigidAnalysis, TheNormalIsThatOfTheFaceAndLostForcesAndMechanismsAreNamed) {
    // half of the end face: its nodes' normals lean outwards at the edges, the face's own does not
    std::string text = cantilever("%\nrigid_force\nN END_FACE n 1000\n%\nEND\n", 2);
    text.replace(text.find("0 0.1 0 0.1 2 2"), 15, "0 0.05 0 0.1 2 2");
    ASSERT_TRUE(read(text));
    RunReport report = analyse(analyse_static, analysis_settings());
    ASSERT_EQ(report.status, RunStatus::done);
    EXPECT_NEAR(report.applied[0], 0, 1e-9);
    EXPECT_NEAR(report.applied[2], 1000, 1e-9);
    // a moment about the line that all members lie on
    text = cantilever("%\nrigid_force\nM END_FACE ry 1000\n%\nEND\n", 2);
    text.replace(text.find("0 0.1 0 0.1 2 2"), 15, "0 0 0 0.1 2 2");
    ASSERT_TRUE(read(text));
    report = analyse(analyse_static, analysis_settings());
    EXPECT_TRUE(std::any_of(report.remarks.notices.begin(), report.remarks.notices.end(),
                            [](const std::string& n) { return n.find("is lost") != std::string::npos; }));
    // a reference point far off changes nothing
    text = cantilever("%\nrigid_force\nF END_FACE rx 10\n%\nEND\n", 2);
    ASSERT_TRUE(read(text));
    ASSERT_EQ(analyse(analyse_static, analysis_settings()).status, RunStatus::done);
    const auto near = displacement(0, 0, 2);
    text.replace(text.find("END_FACE area 0.05 0.05 2"), 25, "END_FACE area 5000 -9000 2");
    ASSERT_TRUE(read(text));
    ASSERT_EQ(analyse(analyse_static, analysis_settings()).status, RunStatus::done);
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(displacement(0, 0, 2)[c], near[c], 1e-9 * std::abs(near[1]));
    // nothing holds it: every analysis that needs a support says so
    text = cantilever("%\nrigid_force\nM END_FACE rz 100\n%\nEND\n", 2);
    text.replace(text.find("boundary_condition"),
                 text.find("rigid_element") - text.find("boundary_condition"), "");
    ASSERT_TRUE(read(text));
    Settings settings = analysis_settings();
    settings.nl_conv = 1e-6;
    report = analyse(analyse_nonlinear, settings);
    EXPECT_EQ(report.status, RunStatus::failed);
    EXPECT_NE(report.remarks.errors.at(0).find("the body is free"), std::string::npos);
    settings.nl_conv = 0;
    EXPECT_EQ(analyse(analyse_nonlinear, settings).status, RunStatus::bad_input);
    // one rigid block alone has six zero modes, by both methods
    for (const Analyse method : {analyse_eigen_subspace, analyse_eigen_lanczos}) {
        ASSERT_TRUE(
            read("material_info\nM 1000 200e9 0.3\n%\nmode_num 6 %\npart_info\nA blue M RECT 1 1 1 0 0 0 1 1 "
                 "1 0 0 0 0 0 0 0 0 0\n%\n"
                 "rigid_element\nR area 0 0 0 0 1 0 1 0 1\n%\nEND\n"));
        report = analyse(method, analysis_settings());
        for (const ModeReport& mode : report.modes) EXPECT_LT(mode.frequency, 1e-3);
    }
}

TEST(RigidNonlinear, AnEndPlateTurnedByAMomentRollsTheStripIntoAQuarterCircle) {
    const double E = 1e9, L = 1, t = 0.02, I = t * t * t * t / 12, pi = std::acos(-1.0);
    Material material;
    material.young = E;
    testing::FiniteProblem problem(
        testing::box_mesh({{1, 1, 30}, {t, t, L}}, ElementKind::tetrahedron10), material,
        [](const double* x, int) { return x[2] < 1e-12; }, 1e-7);
    RigidElement plate;
    plate.name = "PLATE";
    plate.reference = {t / 2, t / 2, L};
    plate.region = {0, t, 0, t, L, L};
    const RigidSystem rigid =
        build_rigid_system(std::span(&plate, 1), problem.mesh, problem.freedoms.node_elements, {});
    RigidForce moment;
    moment.element = 0;
    moment.direction = RigidDirection::rx;
    moment.value = -pi / 2 * E * I / L;  // lifts the end towards +y
    problem.freedoms.rigid = rigid;
    problem.model.rigid_forces = {moment};
    problem.start({});
    for (int k = 1; k <= 5; ++k) {
        const IncrementReport report = problem.solver->advance(k, 0.2 * k);
        ASSERT_TRUE(report.converged) << k;
        const auto& e = report.ratios;  // quadratic to the end: the moment's own stiffness is in the tangent
        EXPECT_TRUE(e.back() < 1e-3 * e[e.size() - 2] || e[e.size() - 2] < 1e-5)
            << e[e.size() - 2] << ' ' << e.back();
    }
    const RigidState& end = problem.solver->states()[0];
    const Vec3 turn = rotation_vector(end.R);
    EXPECT_NEAR(turn[0], -pi / 2, 0.01 * pi / 2);
    EXPECT_NEAR(turn[1], 0, 1e-3);
    EXPECT_NEAR(end.u[1], 2 * L / pi, 0.01 * L);  // the end lies at (R, R) with R = 2L/π
    EXPECT_NEAR(end.u[2], 2 * L / pi - L, 0.01 * L);
    ::testing::Test::RecordProperty("turn_deg", std::to_string(turn[0] * 180 / pi));
    // members stay as far apart as they were
    double distance2 = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const double d =
            problem.displacement({0, t, L}, c) - problem.displacement({0, 0, L}, c) + (c == 1 ? t : 0);
        distance2 += d * d;
    }
    EXPECT_NEAR(std::sqrt(distance2), t, 1e-13);
}

TEST_F(RigidAnalysis, SmallLoadsOnRigidBodiesGiveTheLinearAnswer) {
    const char* block = "HEAD red M RECT 0.1 0.1 0.05 0 0 0 1 1 1 0 0 0 0 0 2.1 0 0 0\n";
    const std::string text = cantilever(
        "HEAD area 0.05 0.05 2.1 0 0.1 0 0.1 2.1 2.15\n%\nrigid_combine\nS END_FACE HEAD 1e6 2e6 1e6 1e3 1e4 "
        "1e4\n%\n"
        "rigid_force\nF HEAD y 1e-3\nM HEAD rz 1e-4\n%\nEND\n",
        2, block);
    ASSERT_TRUE(read(text));
    model.mode_count = 1;
    Settings settings = analysis_settings();
    settings.nl_conv = 1e-5;
    const RunReport report = analyse(analyse_nonlinear, settings);
    ASSERT_EQ(report.status, RunStatus::done)
        << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
    const kestralum::Run nonlinear = result;
    ASSERT_EQ(analyse(analyse_static, settings).status, RunStatus::done);
    double largest = 0;
    const auto dofs = static_cast<std::size_t>(result.mesh.dof_num());
    for (std::size_t k = 0; k < dofs; ++k) largest = std::max(largest, std::abs(frame().mode_vec[k]));
    for (std::size_t k = 0; k < dofs; ++k)
        ASSERT_NEAR(nonlinear.results[0]->mode_vec[k], frame().mode_vec[k], 1e-6 * largest);
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(report.reaction[c], -report.applied[c], 1e-8);
    EXPECT_NEAR(report.applied[1], 1e-3, 1e-12);
}

TEST(RigidSprings, ResistWithTheGradientOfTheirEnergyAtLargeRotations) {
    RigidSystem system;
    for (int b = 0; b < 2; ++b) {
        RigidBody body;
        body.reference = {0.3 * b, 0.1, -0.2 * b};
        body.pivot = {0.1, 0.2 * b, 0};
        for (std::size_t c = 0; c < 6; ++c) body.motions.add()[c] = 1;
        body.first = 6 * b;
        system.bodies.push_back(body);
    }
    system.equations = 12;
    RigidCombine record;
    record.element = {0, 1};
    record.stiffness = {3, 2, 5, 0.4, 0.6, 0.3};
    std::vector<RigidState> states(2);
    states[0] = {{0.1, 0, -0.3}, rotation_of({0.3, -0.4, 0.2})};
    states[1] = {{0.2, 0.5, 0}, rotation_of({-0.7, 1.1, 0.9})};
    std::vector<double> Q(12, 0.0);
    add_combine_forces(std::span(&record, 1), system, states, Q);
    constexpr double h = 1e-5;
    std::array<Vec6, 2> unused{};
    for (std::size_t k = 0; k < 12; ++k) {
        std::vector<RigidState> moved = states;
        double q[6] = {};
        double energy[2];
        for (int side = 0; side < 2; ++side) {
            q[k % 6] = side == 0 ? h : -h;
            moved[k / 6] = advanced(system.bodies[k / 6], states[k / 6], q);
            energy[side] = combine_forces(record, system, moved, unused);
        }
        EXPECT_NEAR(Q[k], (energy[0] - energy[1]) / (2 * h), 1e-8) << k;
    }
    // a common rigid motion stores nothing
    for (RigidState& s : states) s.R = rotation_of({2.0, 1.0, -1.5});
    for (std::size_t b = 0; b < 2; ++b) {
        const Vec3 turned_pivot = turned(states[b].R, system.bodies[b].pivot);
        for (std::size_t c = 0; c < 3; ++c) states[b].u[c] = turned_pivot[c] - system.bodies[b].pivot[c];
    }
    EXPECT_NEAR(combine_forces(record, system, states, unused), 0, 1e-28);
    for (const Vec3& v : {Vec3{0, 0, 0}, Vec3{1e-9, 0, 2e-9}, Vec3{3.1, 0.2, -0.1}, Vec3{-1, 2, 0.5}}) {
        const Vec3 back = rotation_vector(rotation_of(v));
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(back[c], v[c], 1e-13);
    }
}

}  // namespace
}  // namespace kestralum
