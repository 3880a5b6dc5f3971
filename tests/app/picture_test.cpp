// What is in the framebuffer: colours, faces, the mouse on it, and what a repaint sends to the card.
#include <QOpenGLFramebufferObject>
#include <QOpenGLPaintDevice>

#include "app/window/painter_texts.h"
#include "app/window_fixture.h"
#include "model/format.h"
#include "model/selection.h"
#include "support/box_mesh.h"
#include "support/immediate_scene.h"
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
    // The faces of the picture, drawn one vertex after the other.
    QImage drawn_face_by_face(bool lit, double alpha) {
        window->view()->makeCurrent();
        std::vector<double> places;
        shown_picture().place(shown().tables(), 0, places);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glMatrixMode(GL_PROJECTION);
        glLoadMatrixd(view::projection(camera(), shown().box()).data());
        glMatrixMode(GL_MODELVIEW);
        glLoadMatrixd(view::model_view(camera(), shown().box()).data());
        if (lit) glEnable(GL_LIGHTING);
        view::gl::set_material({1, 0.5f, 0, 1});
        if (alpha < 1 && !lit) glDepthMask(GL_FALSE);
        draw_every_face(shown_picture(), shown().tables(), alpha, places);
        glDepthMask(GL_TRUE);
        glDisable(GL_LIGHTING);
        QImage image(window->view()->size(), QImage::Format_RGBA8888);
        glReadPixels(0, 0, image.width(), image.height(), GL_RGBA, GL_UNSIGNED_BYTE, image.bits());
        window->view()->doneCurrent();
        return image.mirrored();
    }
};

constexpr std::array background{230, 230, 230};

int farthest(const QColor& a, const std::array<int, 3>& b) {
    return std::max({std::abs(a.red() - b[0]), std::abs(a.green() - b[1]), std::abs(a.blue() - b[2])});
}

TEST_F(Picture, FromBuffersIsThatOfEveryElementsFaces) {
    const Mesh meshes[] = {hexa_box({{3, 2, 4}, {1, 1, 2}, [](double* x) { x[0] += 0.2 * x[2] * x[1]; }}),
                           tetra_box({{2, 2, 1}, {1, 1, 1}}, ElementKind::tetrahedron4),
                           tetra_box({{2, 1, 2}, {1, 1, 1}}, ElementKind::tetrahedron10)};
    for (int k = 0; k < 12; ++k) {
        const bool lit = k % 2;
        show(meshes[k / 4]);
        set_results([](const double* x) { return Vec3{0.1 * x[0] * x[1], 0, 0.05 * x[2]}; });
        state().contour = lit ? 17 : 1;
        state().transparency = k % 4 < 2 ? 1 : 0.4;
        show_only({ViewFlag::fem}, view::ViewDirection::isometric);
        const QImage drawn = picture(), naive = drawn_face_by_face(lit, state().transparency);
        int different = 0, covered = 0;
        for (int y = 0; y < drawn.height(); ++y)
            for (int x = 0; x < drawn.width(); ++x) {
                const QColor a = drawn.pixelColor(x, y), b = naive.pixelColor(x, y);
                covered += farthest(b, background) > 2;
                different += farthest(a, {b.red(), b.green(), b.blue()}) > 12;
            }
        EXPECT_GT(covered, drawn.width() * drawn.height() / 10);
        // quadrilaterals split along either diagonal colour a few pixels differently
        EXPECT_LT(different, covered / 25)
            << "lit " << lit << " opacity " << state().transparency << " mesh " << k / 4;
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

// The members of a rigid element are found in the model, and drawn where the body has gone.
TEST_F(Picture, RigidElementsMoveWithTheBody) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{0, x[0], 0}; }, AnalysisType::eigen);
    // corners and edges of the face lean the normals of their nodes outwards, all sides alike
    EXPECT_NEAR(shown().tables().rigid_holds[0].normal[0], 1, 1e-9);
    show_only({ViewFlag::rigid_element}, view::ViewDirection::z);
    // a fifth of 0.4 m is the largest swing; the picture mirrors at half of the period
    for (const auto& [phase, lift] : {std::pair{0, 0.08}, {10, -0.08}}) {
        state().phase = phase;
        for (const double y : {0.0, 0.1, 0.2}) {
            const QColor c = seen_at(picture(), {0.4, y + lift, 0.2});
            EXPECT_TRUE(c.green() < 100 && c.red() > 80 && c.blue() > 80) << phase << " " << y;
        }
    }
}

TEST_F(Picture, SlowPicturesLeaveTimeToTheWindow) {
    int pictures = 0;
    QObject::connect(window->view(), &GLWidget::painted, [&] {
        ++pictures;
        QTest::qSleep(200);
    });
    QTest::qWait(2000);
    EXPECT_GE(pictures, 2);
    EXPECT_LE(pictures, 7) << "one picture follows the other without a pause";
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
