// What is in the framebuffer: colours, faces, the mouse on it, and what a repaint sends to the card.
#include <QOpenGLFramebufferObject>
#include <QOpenGLPaintDevice>

#include "app/window/painter_texts.h"
#include "app/window_fixture.h"
#include "model/format.h"
#include "model/selection.h"
#include "support/box_mesh.h"
#include "view/gl/buffers.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;
using view::ViewFlag;

namespace {

class Picture : public Window {
protected:
    void show(Mesh mesh) {
        Model model = placeholder_model();
        model.mesh = std::move(mesh);
        Part part;
        part.name = "BOX";
        part.color = {1, 0.5, 0};
        model.parts = model.parts_o = {part};
        shown().show(std::make_shared<const Model>(std::move(model)), nullptr);
    }
    Vec3 pixel_of(const Vec3& place) {
        return view::project(camera(), shown().box(), place).value_or(Vec3{});
    }
    QPoint place_on_screen(const Vec3& place) { return {int(pixel_of(place)[0]), int(pixel_of(place)[1])}; }
    QColor seen_at(const QImage& image, const Vec3& place) {
        return image.pixelColor(place_on_screen(place));
    }
};

int farthest(const QColor& a, const std::array<int, 3>& b) {
    return std::max({std::abs(a.red() - b[0]), std::abs(a.green() - b[1]), std::abs(a.blue() - b[2])});
}

// The middle of every triangle that faces the viewer has the mean colour of its corners; where there are no
// values, that of all triangles turned the same way, the brighter the more they face the light, far off on x.
TEST_F(Picture, TrianglesHaveTheColoursOfTheirValuesOrOfTheirSide) {
    for (int k = 0; k < 6; ++k) {
        show(box_mesh({{3, 2, 4}, {1, 1, 2}}, every_kind[k / 2]));
        set_results([](const double* x) { return Vec3{0.1 * x[0] * x[1], 0, 0.05 * x[2]}; });
        const bool lit = k % 2;
        state().contour = lit ? 17 : 1;
        state().auto_scale = false;
        state().mode_scale = lit ? 0 : 1;
        state().light = {1000, 0, 0};
        show_only({ViewFlag::fem}, view::ViewDirection::isometric);
        const QImage drawn = picture();
        const view::Surface& faces = shown_picture().faces();
        std::vector<double> places;
        shown_picture().place(shown().tables(), 0, places);
        std::map<long, QColor> of_side;
        int seen = 0;
        for (std::int64_t t = 0; t < faces.triangle_num(); ++t) {
            const std::int32_t* n = &faces.triangles[3 * t];
            const Vec3 a = triple(places, n[0]), b = triple(places, n[1]), c = triple(places, n[2]),
                       normal = view::unit(cross(minus(b, a), minus(c, a)));
            if (dot(normal, {1, 1, 1}) < 0.5) continue;  // seen from behind or hardly at all
            const QColor got = seen_at(drawn, times(1.0 / 3, plus(a, plus(b, c)))),
                         side = of_side.emplace(std::lround(normal[1] + 2 * normal[2]), got).first->second;
            std::array expected{side.red(), side.green(), side.blue()};
            if (!lit) expected = {};
            for (int p = 0; p < 9 && !lit; ++p) {
                const double value = shown_picture().values()[n[p / 3]];
                expected[p % 3] += int(
                    85 * view::contour_color(view::normalised(value, *shown_picture().range()), 1)[p % 3]);
            }
            EXPECT_LE(farthest(got, expected), 12) << "mesh " << k / 2 << " triangle " << t;
            ++seen;
        }
        EXPECT_GE(seen, 40);
        EXPECT_TRUE(!lit || of_side[0].green() > of_side[1].green() + 30) << "no light falls on the side";
    }
}

TEST_F(Picture, SwingingModesSendOnlyWhatHasChanged) {
    show(hexa_box({{6, 6, 6}, {1, 1, 1}}));
    set_results([](const double* x) { return Vec3{x[0] * x[1], 0, 0}; }, AnalysisType::eigen);
    std::set<int> phases;
    QObject::connect(window->view(), &GLWidget::painted, [&] { phases.insert(state().phase); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return phases.size() >= 5; })) << "the mode does not swing";
    auto sent_by = [&](const std::function<void()>& change) {
        const std::int64_t before = shown().drawing.bytes_sent();
        change();
        picture();
        return shown().drawing.bytes_sent() - before;
    };
    auto swing = [&] {
        for (state().phase = 0; state().phase + 1 < view::phase_count; ++state().phase) picture();
        camera().shift[0] += 0.01;
    };
    sent_by(swing);
    EXPECT_EQ(sent_by(swing), 0) << "phase and camera send geometry again";
    EXPECT_GT(sent_by([&] { state().contour = 1; }), 0);
    EXPECT_GT(sent_by([&] { state().mode_scale = 2; }), 0);
    state().light[0] = 3;
    EXPECT_EQ(sent_by([&] { trigger("&Wire"); }), 0);
}

TEST_F(Picture, SlowPicturesLeaveTimeToTheWindow) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::eigen);  // swings
    int pictures = 0;
    QObject::connect(window->view(), &GLWidget::painted, [&] {
        ++pictures;
        QTest::qSleep(200);
    });
    QTest::qWait(2000);
    EXPECT_GE(pictures, 2);
    EXPECT_LE(pictures, 7) << "one picture follows the other without a pause";
}

TEST_F(Picture, IsDrawnOnlyWhenSomethingHasChanged) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    QTest::qWait(300);
    int pictures = 0;
    QObject::connect(window->view(), &GLWidget::painted, [&] { ++pictures; });
    QTest::qWait(1000);
    EXPECT_EQ(pictures, 0) << "nothing has changed";
    const std::function<void()> changes[] = {[&] { trigger("&Wire"); },
                                             [&] { state().contour = 1; },
                                             [&] { camera().shift[0] += 0.01; },
                                             [&] {
                                                 shown().pick(0, 0);
                                                 shown().clear_selection();
                                             },
                                             [&] { trigger("Iso"); },
                                             [&] { state().highlight.parts = {0}; }};
    for (const auto& change : changes) {
        pictures = 0;
        change();
        QTest::qWait(400);
        EXPECT_GE(pictures, 1) << &change - changes;
        EXPECT_LE(pictures, 3) << &change - changes;
    }
}

// Where GLUT has no X display Qt paints the texts, at the same places.
TEST_F(Picture, QtPaintsTheTextsToo) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    state().flags[int(ViewFlag::force)] = false;
    view::resize(camera(), 700, 500);
    std::array<double, 2> dark{};
    for (const bool qt : {false, true}) {
        window->view()->makeCurrent();
        QOpenGLFramebufferObject target(700, 500, QOpenGLFramebufferObject::CombinedDepthStencil);
        target.bind();
        view::gl::GlutText glut_texts(500);
        PainterTexts texts;
        shown().draw(qt ? static_cast<view::gl::TextPainter&>(texts) : glut_texts);
        QOpenGLPaintDevice device(700, 500);
        texts.paint(&device);
        target.release();
        const QImage legend = target.toImage().copy(68, 455, 120, 24);
        for (int k = 0; k < 120 * 24; ++k) dark[qt] += legend.pixelColor(k % 120, k / 120).lightness() < 100;
        window->view()->doneCurrent();
    }
    EXPECT_GT(dark[0], 100);
    EXPECT_NEAR(std::log(dark[1] / dark[0]), 0, std::log(3.0));
}

// ---- mouse and keys

TEST_F(Picture, ClickPicksTheNodeUnderIt) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{1e-3 * x[0], 0, 0}; });
    state().auto_scale = false;
    for (const Vec3& place : {Vec3{0.4, 0.2, 0.2}, Vec3{0.2, 0.1, 0.2}, Vec3{0.4, 0, 0.1}}) {
        const int node = nearest_node(mesh(), elements_of_nodes(mesh()), place);
        const QImage before = picture();
        QTest::mouseClick(window->view(), Qt::LeftButton, {}, place_on_screen(place));
        EXPECT_TRUE(contains(status(), formatted("Node:%d, D.o.f.:%d", node + 1, 3 * node))) << status();
        EXPECT_NE(picture(), before) << "the pick is not marked";
    }
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, QPoint(3, window->view()->height() / 2));
    EXPECT_EQ(status(), "");
}

TEST_F(Picture, MouseAndKeysMoveTheCamera) {
    show(hexa_box({{1, 1, 1}, {2, 1, 1}}));
    GLWidget* view = window->view();
    auto moved_by = [&](Qt::MouseButton button) {
        camera().shift = {0, 0, 0};
        camera().turn = view::identity();
        QTest::mousePress(view, button, {}, QPoint(200, 200));
        // QTest's moves carry no button
        QMouseEvent move(QEvent::MouseMove, QPointF(240, 230), view->mapToGlobal(QPointF(240, 230)),
                         Qt::NoButton, button, {});
        QApplication::sendEvent(view, &move);
        QTest::mouseRelease(view, button, {}, QPoint(240, 230));
        return camera().shift;
    };
    const double right = 40 * 2.0 / 800, up = -30 * 2.0 / 600;
    EXPECT_EQ(moved_by(Qt::LeftButton), (Vec3{right, up, 0}));
    EXPECT_EQ(moved_by(Qt::RightButton), (Vec3{0, 0, up}));
    QTest::keyClick(window.get(), Qt::Key_R);
    EXPECT_EQ(moved_by(Qt::LeftButton), (Vec3{}));
    EXPECT_NE(camera().turn, view::identity());
    QTest::keyClick(window.get(), Qt::Key_T);
    EXPECT_EQ(moved_by(Qt::LeftButton), (Vec3{right, up, 0}));
    // the viewer's side
    auto toward = [&] { return Vec3{camera().turn[2], camera().turn[6], camera().turn[10]}; };
    const Qt::Key keys[] = {Qt::Key_X, Qt::Key_Y, Qt::Key_Z};
    for (int axis = 0; axis < 3; ++axis)
        for (const int side : {1, -1}) {
            QTest::keyClick(window.get(), keys[axis], side > 0 ? Qt::NoModifier : Qt::ShiftModifier);
            EXPECT_EQ(toward()[axis], side);
        }
    trigger("Iso");
    EXPECT_NEAR(toward()[0], std::sqrt(1.0 / 3), 1e-12);
    const Vec3 fitted = camera().shift;
    camera().shift = {5, 5, 5};
    QTest::keyClick(window.get(), Qt::Key_F);
    EXPECT_EQ(camera().shift, fitted);
}

}  // namespace
