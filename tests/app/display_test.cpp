// The dock Display, further contours, sections under the mouse and comparisons, by what the picture shows.
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QSlider>
#include <QSpinBox>
#include <QToolButton>
#include <set>

#include "app/window/display_panel.h"
#include "app/window_fixture.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;
using view::ViewFlag;

namespace {

class Display : public Window {
protected:
    void SetUp() override {
        Window::SetUp();
        open(block_text);
        // u = 0 but for x along z; Mises 1e6 x/0.4, plastic strain 0, largest principal stress below
        set_results([](const double* x) { return Vec3{1e6 * x[0] / 0.4, 0, 0}; });
        state().deformation = view::Deformation::fixed;
        state().deformation_factor = 0;
        action("Display")->trigger();
        show_only({ViewFlag::fem}, view::ViewDirection::minus_y);
        picture();
    }
    template <typename Widget>
    Widget* find(const char* name) {
        auto* widget = window->findChild<Widget*>(name);
        EXPECT_TRUE(widget) << name;
        return widget;
    }
    void type(const char* name, const QString& text) {
        auto* edit = find<QLineEdit>(name);
        edit->setText(text);
        edit->setModified(true);
        emit edit->editingFinished();
    }
    QPoint place_on_screen(const Vec3& place) {
        const auto at = view::project(camera(), shown().box(), place).value_or(Vec3{});
        return {int(at[0]), int(at[1])};
    }
    QColor seen_at(const Vec3& place) { return picture().pixelColor(place_on_screen(place)); }
    bool empty_at(const Vec3& place) { return seen_at(place) == QColor(230, 230, 230); }
};

TEST_F(Display, FurtherQuantitiesStandBehindTheMenusOwn) {
    const QList<QAction*> entries = find<QToolButton>("Contour")->menu()->actions();
    ASSERT_GE(entries.size(), 20);
    for (std::size_t k = 0; k < view::quantities.size(); ++k)
        EXPECT_EQ(entries[int(k)]->text(), view::quantities[k].menu_text);
    trigger("Tresca stress");
    EXPECT_EQ(state().further, 110);
    EXPECT_FALSE(action("&Mises Stress")->isChecked());
    EXPECT_TRUE(action("Tresca stress")->isChecked());
    trigger("Plastic Strain");
    EXPECT_EQ(state().shown_contour(), view::plastic_strain_row);
    trigger("Plastic Strain");
    EXPECT_EQ(state().further, 110) << "it comes back";
    trigger("Tresca stress");
    EXPECT_EQ(state().shown_contour(), -1) << "chosen again, none";
    trigger("&Mises Stress");
    EXPECT_EQ(state().shown_contour(), 4);
}

TEST_F(Display, RangesBandsAndUnitsReachThePicture) {
    EXPECT_GT(seen_at({0.39, 0, 0.1}).red(), 240);
    find<QComboBox>("display_range")->setCurrentIndex(2);
    EXPECT_EQ(state().scale.high, 1e6) << "begins with what is shown";
    find<QComboBox>("display_stress")->setCurrentIndex(2);
    EXPECT_EQ(find<QLineEdit>("display_high")->text(), "1");
    type("display_high", "2");
    EXPECT_EQ(state().scale.high, 2e6);
    const QColor half = seen_at({0.399, 0, 0.1});
    EXPECT_TRUE(half.green() > 240 && half.red() < 40 && half.blue() < 40) << "the middle of the range";
    type("display_high", "-1");
    EXPECT_EQ(state().scale.high, 2e6);
    EXPECT_EQ(status(), "A range wants two numbers, the first below the second");
    type("display_high", "0.5");
    window->findChild<QAbstractButton*>("display_outside")->click();
    EXPECT_EQ(seen_at({0.3, 0, 0.1}), QColor(217, 115, 242));
    find<QComboBox>("display_range")->setCurrentIndex(0);
    find<QSpinBox>("display_bands")->setValue(6);
    std::set<QRgb> colors;
    const QImage image = picture();
    for (double x = 0.01; x < 0.4; x += 0.01) colors.insert(image.pixel(place_on_screen({x, 0, 0.1})));
    EXPECT_EQ(colors.size(), 6u);
    action("&Disp. x")->trigger();
    EXPECT_EQ(state().scale.range, view::RangeKind::automatic);
    trigger("All Frames");
    EXPECT_EQ(find<QComboBox>("display_range")->currentIndex(), 1);
}

TEST_F(Display, SectionsAreCutMovedAndClosed) {
    find<QToolButton>("display_section_x")->click();
    ASSERT_EQ(state().sections.size(), 1u);
    EXPECT_TRUE(empty_at({0.3, 0, 0.1}) && !empty_at({0.1, 0, 0.1}));
    QTest::mousePress(window->view(), Qt::LeftButton, Qt::ControlModifier, place_on_screen({0.2, 0.1, 0.1}));
    const QPoint to = place_on_screen({0.3, 0.1, 0.1});  // as deep as the plane's point
    QMouseEvent drag(QEvent::MouseMove, QPointF(to), window->view()->mapToGlobal(to), Qt::LeftButton,
                     Qt::LeftButton, Qt::ControlModifier);
    QApplication::sendEvent(window->view(), &drag);
    QTest::mouseRelease(window->view(), Qt::LeftButton, Qt::ControlModifier, to);
    EXPECT_NEAR(state().sections[0].point[0], 0.3, 0.01);
    EXPECT_FALSE(empty_at({0.28, 0, 0.1}));
    find<QToolButton>("display_section_flip")->click();
    EXPECT_TRUE(empty_at({0.1, 0, 0.1}) && !empty_at({0.35, 0, 0.1}));
    type("display_section_position", "-0.1");
    EXPECT_FALSE(empty_at({0.15, 0, 0.1}));
    window->view()->look_from(view::ViewDirection::minus_x);  // onto the closing face
    const QColor face = seen_at({0.1, 0.03, 0.04});           // a quarter of the range: cyan
    EXPECT_TRUE(face.green() > 240 && face.blue() > 240 && face.red() < 20);
    find<QListWidget>("display_sections")->item(0)->setCheckState(Qt::Unchecked);
    picture();
    EXPECT_FALSE(shown_picture().trimmed());
    find<QToolButton>("display_section_remove")->click();
    EXPECT_TRUE(state().sections.empty());
    find<QToolButton>("display_section_nodes")->click();
    EXPECT_EQ(status(), "Pick three nodes that lie on no line first");
}

TEST_F(Display, ThresholdsAndSurfacesGoWithTheirQuantity) {
    type("display_below", "5e5");
    EXPECT_TRUE(empty_at({0.1, 0, 0.1}) && !empty_at({0.3, 0, 0.1}));
    type("display_below", "x");
    EXPECT_EQ(status(), "A threshold is a number");
    EXPECT_EQ(state().threshold.below, 5e5) << "stays";
    type("display_above", "4e5");
    type("display_below", "5e5");
    EXPECT_EQ(status(), "Hide below wants less than hide above");
    type("display_above", "");
    find<QSpinBox>("display_iso_count")->setValue(4);
    EXPECT_EQ(state().iso_values, (std::vector<double>{125000, 375000, 625000, 875000}));
    action("&Disp. x")->trigger();
    EXPECT_TRUE(state().iso_values.empty() && !state().threshold.on());
    EXPECT_FALSE(empty_at({0.1, 0, 0.1}));
}

TEST_F(Display, AClickOnTheLargestValueGoesThere) {
    state().flags[static_cast<std::size_t>(ViewFlag::contour_bar)] = true;
    window->view()->fit_view();
    picture();
    const double before = camera().shift[0];
    std::optional<QPoint> at;
    for (int y = 0; y < 60 && !at; ++y)
        if (shown().drawing.mark_at(shown().tables(), state(), camera(),
                                    view::gl::GlutText(window->view()->height()),
                                    window->view()->width() - 60, y))
            at = QPoint(window->view()->width() - 60, y);
    ASSERT_TRUE(at);
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, *at);
    EXPECT_NE(camera().shift[0], before);
    const std::int32_t node = shown().drawing.picked_node();
    ASSERT_GE(node, 1);
    EXPECT_NEAR(mesh().node(node - 1)[0], 0.4, 1e-12);
    const Vec3 seen = *view::project(camera(), shown().box(), place_of(mesh(), node - 1));
    EXPECT_NEAR(seen[0], 0.5 * camera().width, 1);
}

TEST_F(Display, AHeldResultIsComparedBesideAndByDifference) {
    trigger("Show &Difference");  // nothing is held
    EXPECT_FALSE(shown().holds_result());
    trigger("&Hold Result");
    set_results([](const double* x) { return Vec3{3e6 * x[0] / 0.4, 0, 0}; });
    emit window->content_shown();
    trigger("Show &Difference");
    picture();
    EXPECT_DOUBLE_EQ(shown_picture().range()->high.value, 2e6);
    trigger("Compare Side &by Side");
    const QImage both = picture();
    EXPECT_EQ(camera().width, window->view()->width() / 2);
    const QPoint place = place_on_screen({0.39, 0, 0.1});
    const QColor held = both.pixelColor(place), now = both.pixelColor(place + QPoint(camera().width, 0));
    EXPECT_GT(now.red(), 240);
    EXPECT_TRUE(held.red() < 40 && held.green() > 200) << "a third of the range that both have";
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, place);
    EXPECT_TRUE(status().starts_with("Held: ")) << status();
    EXPECT_NE(status().find("Mises Stress:1.000e+06"), std::string::npos) << status();
    EXPECT_EQ(shown().drawing.picked_node(), 0);
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, place + QPoint(camera().width, 0));
    EXPECT_NEAR(mesh().node(std::max(shown().drawing.picked_node() - 1, 0))[0], 0.4, 0.01);
    trigger("Compare Side &by Side");
    EXPECT_EQ(camera().width, window->view()->width());
    std::string other = block_text;
    other.replace(other.find("4 2 2"), 5, "5 2 2");
    open(other);
    set_results([](const double*) { return Vec3{}; });
    trigger("Show &Difference");
    EXPECT_EQ(shown().comparison(), Compare::off);
    EXPECT_NE(status().find("another mesh"), std::string::npos) << status();
}

}  // namespace
