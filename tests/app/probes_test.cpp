// The docks Probes and Section Forces: their numbers against a bar under tension.
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

}  // namespace
