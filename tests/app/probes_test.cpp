// The docks Probes and Section Forces: their numbers against a bar under tension.
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QTableWidget>
#include <QToolButton>
#include <cmath>

#include "app/probes.h"
#include "app/window/probe_panel.h"
#include "app/window/section_panel.h"
#include "app/window_fixture.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

class Probes : public Window {
protected:
    void SetUp() override {
        Window::SetUp();
        open(block_text);
    }
    ProbePanel* probes() { return window->findChild<ProbePanel*>(); }
    void type_node(int number) {
        auto* edit = window->findChild<QLineEdit*>("probe_node");
        edit->setText(QString::number(number));
        emit edit->returnPressed();
    }
    // In place of the block, with nothing of it.
    void open_other(const std::string& text, const std::string& name) {
        told_by([&] { window->open_model(write(name, text)); }, {"Start-up values"});
    }
    int node_near(const Vec3& place) { return node_at(mesh(), place) + 1; }
};

TEST_F(Probes, FollowContourFrameAndAnotherRun) {
    set_results([](const double* x) { return Vec3{1e-3 * x[0], 2e-3 * x[1], 0}; });
    action("Probes")->trigger();
    state().contour = 1;
    picture();
    type_node(node_near({0.4, 0, 0}));
    type_node(node_near({0, 0.2, 0}));
    ASSERT_EQ(state().probes.size(), 2u);
    const auto value = [&](std::size_t row) {
        picture();
        const NumberTable table = probes()->table();
        const auto column = table.headings.indexOf(QRegularExpression("Displacement x.*"));
        EXPECT_GE(column, 0) << table.headings.join('|').toStdString();
        return std::get<double>(table.rows.at(row).at(std::max<qsizetype>(column, 0)));
    };
    EXPECT_DOUBLE_EQ(value(0), 0.4e-3);
    EXPECT_DOUBLE_EQ(value(1), 0);
    state().units.length = view::LengthUnit::millimetre;
    EXPECT_DOUBLE_EQ(value(0), 0.4);
    window->step_to(2);
    EXPECT_EQ(value(0), 0) << "the second frame rests";
    const std::vector<std::int32_t> before = state().probes;
    set_results([](const double*) { return Vec3{}; });
    emit window->content_shown();
    EXPECT_EQ(state().probes, before) << "over another run of the model";
    type_node(100000);
    EXPECT_EQ(state().probes, before);
    EXPECT_NE(status(), "");
}

// Against the linear function itself, with a gap outside the body.
TEST_F(Probes, LinesAndSetsHaveTheValuesOfTheField) {
    std::vector<double> values;
    const auto field = [](const double* x) { return 3 * x[0] - x[1] + 2 * x[2] + 1; };
    for (std::int32_t n = 0; n < mesh().node_num(); ++n) values.push_back(field(mesh().node(n)));
    const Locator locator(mesh());
    const auto points = line_points(locator, {-0.1, 0.03, 0.05}, {0.4, 0.17, 0.15}, 26);
    const History line = along_line(mesh(), points, values, [](std::int32_t) { return false; }, {"f", "", 2});
    ASSERT_EQ(line.columns[0].values.size(), points.size());
    std::size_t outside = 0;
    for (std::size_t k = 0; k < points.size(); ++k) {
        const double value = line.columns[0].values[k];
        EXPECT_EQ(std::isnan(value), points[k].where.element < 0);
        outside += std::isnan(value);
        if (!std::isnan(value)) {
            EXPECT_NEAR(value, 2 * field(points[k].place.data()), 1e-12);
        }
        EXPECT_NEAR(line.x[k], points[k].distance, 1e-12);
    }
    EXPECT_EQ(outside, 5u);
}

// 1000 N along x: tension, and pressure on the other side's way.
TEST_F(Probes, SectionForcesAreThoseOfTheLoad) {
    action("Section Forces")->trigger();
    run("&Static");
    window->findChild<QToolButton*>("display_section_x")->click();
    state().sections[0].point[0] = 0.23;
    auto* panel = window->findChild<SectionPanel*>();
    const auto force = [&] {
        picture();
        QTest::qWait(400);
        const NumberTable& table = panel->table();
        for (const auto& row : table.rows)
            for (std::size_t c = 0; c + 1 < row.size(); ++c)
                if (std::holds_alternative<QString>(row[c]) && std::get<QString>(row[c]) == "carried")
                    for (std::size_t k = c + 1; k < row.size(); ++k)
                        if (table.headings[qsizetype(k)].startsWith("Fx")) return std::get<double>(row[k]);
        return std::nan("");
    };
    EXPECT_NEAR(force(), 1000, 1e-6) << panel->table().headings.join('|').toStdString();
    window->findChild<QToolButton*>("display_section_flip")->click();
    EXPECT_NEAR(force(), -1000, 1e-6);
}

// A bar that nothing keeps from becoming thinner, pulled by 1 MPa along x, in two load cases: there the
// stress is one everywhere, ux = σx/E and uy = -νσy/E.
const std::string bar_text = R"(
material_info
  STEEL 7800 2e11 0.3
%
part_info
  BAR orange STEEL RECT  0.4 0.2 0.2 0 0 0  4 2 2 0 0 0  0 0 0  0 0 0  %
set_info
  ROOT  plane  x  0
  SIDE  plane  y  0
  FOOT  plane  z  0
  TIP   plane  x  0.4
  EDGE  box    0 0.4  0 0  0 0
%
boundary_condition
  WALL  set  ROOT  fix=normal
  RAIL  set  SIDE  fix=normal
  BED   set  FOOT  fix=normal
%
load_info
  PULL  traction  TIP  1e6 0 0
  MORE  traction  TIP  3e6 0 0  case=more
%
END
)";

TEST_F(Probes, TellTheTheoryOfABarUnderTension) {
    open_other(bar_text, "bar.txt");
    action("Probes")->trigger();
    const auto label = [&](const char* name) { return window->findChild<QLabel*>(name)->text(); };
    EXPECT_TRUE(label("probe_empty").startsWith("No result yet"));
    run("&Static");
    state().contour = 5;
    state().units = {view::StressUnit::megapascal, view::LengthUnit::millimetre};
    const Vec3 corner{0.4, 0.2, 0}, root{};
    for (const Vec3& place : {root, corner}) type_node(node_near(place));
    const auto told = [&](std::size_t row, const QString& heading) {
        const NumberTable table = probes()->table();
        const auto column = table.headings.indexOf(heading);
        EXPECT_GE(column, 0) << table.headings.join('|').toStdString();
        return column < 0 ? 0.0 : std::get<double>(table.rows.at(row).at(column));
    };
    const auto expect_bar = [&](double stress) {
        EXPECT_NEAR(told(1, "Stress x [MPa]"), stress, 1e-9);
        EXPECT_NEAR(told(1, "ux [mm]"), stress * 400 / 2e5, 1e-12);
        EXPECT_NEAR(told(1, "uy [mm]"), -0.3 * stress * 200 / 2e5, 1e-12);
        EXPECT_NEAR(told(0, "u [mm]"), 0, 1e-15);
    };
    expect_bar(1);
    EXPECT_TRUE(label("probe_distance").contains("at rest 447.214 mm (dx 400, dy 200, dz 0)"));
    EXPECT_TRUE(label("probe_distance")
                    .contains("displaced 447.215 mm (dx 400.002, dy 200, dz 0), longer by 0.00165469 mm;"))
        << label("probe_distance").toStdString();

    auto* kind = window->findChild<QComboBox*>("probe_plot");
    const auto plotted = [&](int row) -> const History& {
        kind->setCurrentIndex(row);
        return probes()->plotted();
    };
    ASSERT_EQ(plotted(2).columns.size(), 2u);
    EXPECT_EQ(plotted(2).x, (std::vector{1.0, 2.0})) << "load cases";
    for (const std::size_t frame : {0u, 1u}) {
        EXPECT_NEAR(plotted(2).columns[1].values.at(frame), frame == 0 ? 1 : 3, 1e-9);
    }
    // the displacement is linear along the diagonal, and along the edge
    state().contour = 1;
    window->step_to(2);
    picture();
    const History* line = nullptr;
    wait_for([&] { return (line = &plotted(0))->columns.at(0).name == "Displacement x"; });
    ASSERT_EQ(line->x.size(), 101u);
    for (std::size_t k = 0; k < line->x.size(); ++k)
        EXPECT_NEAR(line->columns[0].values[k], 3 / 2e5 * 400 * double(k) / 100, 1e-12) << k;
    window->findChild<QComboBox*>("probe_set")->setCurrentText("EDGE");
    const History& edge = plotted(1);
    ASSERT_EQ(edge.x.size(), 5u);
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_NEAR(edge.x[k], 100 * double(k), 1e-9);
        EXPECT_NEAR(edge.columns[0].values[k], 3 / 2e5 * edge.x[k], 1e-12);
    }

    run("&Static");  // numbers nodes again; the probes are where they were
    ASSERT_EQ(state().probes.size(), 2u);
    EXPECT_EQ(state().probes[1] + 1, node_near(corner));
    state().contour = 5;
    window->step_to(1);
    expect_bar(1);
}

// By the mouse, and what there is to say where there is nothing to do.
TEST_F(Probes, AreClickedAndRefuseWhatIsNone) {
    run("&Static");
    action("Probes")->trigger();
    auto* clicks = window->findChild<QCheckBox*>("probe_clicks");
    picture();
    const std::int32_t node = node_near({0.4, 0.2, 0.2});
    shown().go_to_node(node);
    const auto click = [&] {
        const QPoint middle(window->view()->width() / 2, window->view()->height() / 2);
        QTest::mouseClick(window->view(), Qt::LeftButton, {}, middle);
    };
    click();
    EXPECT_TRUE(state().probes.empty()) << "clicks are not taken unasked";
    EXPECT_FALSE(shown().selection().empty());
    clicks->setChecked(true);
    click();
    EXPECT_EQ(state().probes, std::vector{node - 1});
    EXPECT_TRUE(shown().selection().empty()) << "selected faces hide the colours that are probed";
    click();
    EXPECT_TRUE(state().probes.empty()) << "the second one takes it away";
    for (const char* text : {"0", "46", "-1", "4.5", "x", ""}) {
        auto* edit = window->findChild<QLineEdit*>("probe_node");
        edit->setText(text);
        emit edit->returnPressed();
        EXPECT_EQ(status(), "There is no node '" + std::string(text) + "': the mesh has the nodes 1 to 45");
    }
    EXPECT_TRUE(state().probes.empty());
    type_node(node);
    ASSERT_EQ(state().probes.size(), 1u);
    open_other(bar_text, "bar.txt");
    EXPECT_EQ(state().probes.size(), 1u) << "this mesh has a node there too";
    std::string other = bar_text;
    other.replace(other.find("0.4 0.2 0.2"), 11, "0.4 0.1 0.2");
    ASSERT_TRUE(open(other, "other.txt"));
    EXPECT_TRUE(state().probes.empty());
    EXPECT_NE(messages().find("no nodes where the probes P1 were"), std::string::npos);
    action("Probes")->trigger();  // closed: no click is taken any more
    EXPECT_FALSE(clicks->isChecked());
}

TEST_F(Probes, SectionsSayWhyTheyTellNothing) {
    action("Section Forces")->trigger();
    auto* panel = window->findChild<SectionPanel*>();
    const auto note = [&] {
        picture();
        QTest::qWait(400);
        return window->findChild<QLabel*>("section_note")->text().toStdString();
    };
    EXPECT_EQ(note(), "No result yet: run an analysis or open a result file");
    run("&Static");
    EXPECT_TRUE(note().starts_with("No sections yet"));
    state().sections = {{{0.7, 0, 0}, {1, 0, 0}, true}};
    EXPECT_EQ(note(), "S1: the plane x = 0.7 m, normal +x cuts no element");
    EXPECT_TRUE(panel->table().rows.empty());
    state().sections[0].point[0] = 0.2;
    EXPECT_EQ(note(), "");
    EXPECT_EQ(panel->table().rows.size(), 3u) << "carried, loads, held";
    window->open_results(QString::fromStdString(folder.file("log/result_model.txt")));
    wait_idle();
    EXPECT_TRUE(note().starts_with("Carried is from nodal stresses; loads, held")) << note();
    ASSERT_EQ(panel->table().rows.size(), 1u);
}

}  // namespace
