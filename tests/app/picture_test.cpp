// What is in the framebuffer: colours, faces, the mouse on it, and what a repaint sends to the card.
#include <QOpenGLFramebufferObject>
#include <QOpenGLPaintDevice>

#include "app/window/painter_texts.h"
#include "app/window_fixture.h"
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
        model_store() = placeholder_model();
        model_store().mesh = std::move(mesh);
        Part part;
        part.name = "BOX";
        part.color = {1, 0.5, 0};
        model_store().parts = model_store().parts_o = {part};
        window->view()->shown().model_changed();
    }
    Vec3 pixel_of(const Vec3& place) {
        const auto at = view::project(camera(), window->view()->shown().box(), place);
        return at ? *at : Vec3{-1, -1, 0};
    }
    // What is drawn where a place of the model shows, `aside` pixels to the right.
    QColor seen_at(const QImage& image, const Vec3& place, int aside = 0) {
        const Vec3 at = pixel_of(place);
        return image.pixelColor(int(at[0]) + aside, int(at[1]));
    }
    // Repaints of the screen until one has happened.
    void repaint() {
        bool painted = false;
        const auto link = QObject::connect(window->view(), &GLWidget::painted, [&] { painted = true; });
        window->view()->update();
        ASSERT_TRUE(QTest::qWaitFor([&] { return painted; }));
        QObject::disconnect(link);
    }
};

constexpr std::array background{230, 230, 230};

int farthest(const QColor& a, const std::array<int, 3>& b) {
    return std::max({std::abs(a.red() - b[0]), std::abs(a.green() - b[1]), std::abs(a.blue() - b[2])});
}

TEST_F(Picture, ShowsTheColourOfEachValueAtItsNode) {
    show(hexa_box({{4, 2, 1}, {4, 2, 1}}));
    set_results([](const double* x) { return Vec3{1e-9 * (x[0] - 1), 0, 0}; });
    state().auto_scale = false;
    state().contour = 1;
    show_only({ViewFlag::fem}, view::ViewDirection::z);
    const QImage image = picture();
    const std::pair<double, std::array<int, 3>> known[] = {
        {0, {0, 0, 255}}, {1, {0, 255, 255}}, {2, {0, 255, 0}}, {3, {255, 255, 0}}, {4, {255, 0, 0}}};
    for (const auto& [x, color] : known) {
        // a node of the middle row; on the rim one pixel inside
        const QColor seen = seen_at(image, {x, 1, 1}, x == 0 ? 1 : x == 4 ? -1 : 0);
        EXPECT_LE(farthest(seen, color), 6) << "v = " << x / 4 << ": " << seen.name().toStdString();
    }
    EXPECT_EQ(farthest(image.pixelColor(2, image.height() / 2), background), 0) << "beside the model";
    // no value is grey; a constant field is blue
    set_results([](const double*) { return Vec3{}; });
    EXPECT_EQ(farthest(seen_at(picture(), {2, 1, 1}), {0, 0, 255}), 0);
}

TEST_F(Picture, LitFacesHaveThePartsColour) {
    show(hexa_box({{1, 1, 1}, {1, 1, 1}}));
    show_only({ViewFlag::fem}, view::ViewDirection::isometric);
    const QImage image = picture();
    for (const Vec3& face : {Vec3{1, 0.5, 0.5}, {0.5, 1, 0.5}, {0.5, 0.5, 1}}) {
        const QColor seen = seen_at(image, face);
        EXPECT_GT(seen.red(), 100) << "a side that faces light and viewer is dark";
        EXPECT_NEAR(seen.green(), seen.red() * 0.5, 40);
        EXPECT_LT(seen.blue(), 60);
    }
    // the light on one side makes that side the brightest
    state().light = {10, 0.5, 0.5};
    const QImage lit = picture();
    EXPECT_GT(seen_at(lit, {1, 0.5, 0.5}).red(), seen_at(lit, {0.5, 1, 0.5}).red() + 20);
}

// The picture from buffers against the same faces drawn one vertex after the other.
TEST_F(Picture, IsThatOfEveryElementsFaces) {
    const Mesh meshes[] = {hexa_box({{3, 2, 4}, {1, 1, 2}, [](double* x) { x[0] += 0.2 * x[2] * x[1]; }}),
                           tetra_box({{2, 2, 1}, {1, 1, 1}}, ElementKind::tetrahedron4),
                           tetra_box({{2, 1, 2}, {1, 1, 1}}, ElementKind::tetrahedron10)};
    for (const Mesh& mesh : meshes)
        for (const int contour : {1, 17})
            for (const double alpha : {1.0, 0.4}) {
                show(mesh);
                set_results([](const double* x) { return Vec3{0.1 * x[0] * x[1], 0, 0.05 * x[2]}; });
                state().contour = contour;
                state().transparency = alpha;
                show_only({ViewFlag::fem}, view::ViewDirection::isometric);
                const QImage drawn = picture();
                window->view()->makeCurrent();
                const ShownModel& shown = window->view()->shown();
                const view::Scene box = shown.box();
                std::vector<double> places;
                shown.drawing.picture().place(shown.tables(), 0, places);
                glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
                glMatrixMode(GL_PROJECTION);
                glLoadMatrixd(view::projection(camera(), box).data());
                glMatrixMode(GL_MODELVIEW);
                glLoadMatrixd(view::model_view(camera(), box).data());
                const bool lit = contour == 17;
                if (lit) glEnable(GL_LIGHTING);
                view::gl::set_material({1, 0.5f, 0, 1});
                if (alpha < 1 && !lit) glDepthMask(GL_FALSE);
                draw_every_face(shown.drawing.picture(), shown.tables(), alpha, places);
                glDepthMask(GL_TRUE);
                glDisable(GL_LIGHTING);
                QImage naive(drawn.size(), QImage::Format_RGBA8888);
                glReadPixels(0, 0, drawn.width(), drawn.height(), GL_RGBA, GL_UNSIGNED_BYTE, naive.bits());
                naive = naive.mirrored();
                window->view()->doneCurrent();
                int different = 0, covered = 0;
                for (int y = 0; y < drawn.height(); ++y)
                    for (int x = 0; x < drawn.width(); ++x) {
                        const QColor a = drawn.pixelColor(x, y), b = naive.pixelColor(x, y);
                        covered += farthest(b, background) > 2;
                        different += farthest(a, {b.red(), b.green(), b.blue()}) > 12;
                    }
                EXPECT_GT(covered, drawn.width() * drawn.height() / 10);
                // quadrilaterals split along either diagonal colour a few pixels differently
                EXPECT_LT(different, covered / 25) << "contour " << contour << " alpha " << alpha << " kind "
                                                   << static_cast<int>(mesh.element_type);
            }
}

TEST_F(Picture, RepaintsSendOnlyWhatHasChanged) {
    show(hexa_box({{6, 6, 6}, {1, 1, 1}}));
    set_results([](const double* x) { return Vec3{x[0] * x[1], 0, 0}; }, AnalysisType::eigen);
    repaint();
    auto sent_by = [&](const std::function<void()>& change) {
        const std::int64_t before = view::gl::bytes_sent();
        change();
        picture();
        return view::gl::bytes_sent() - before;
    };
    auto swing = [&] {
        for (int phase = 0; phase < view::phase_count; ++phase) {
            state().phase = phase;
            camera().shift[0] += 0.01;
            picture();
        }
    };
    EXPECT_GT(view::gl::bytes_sent(), 0);
    swing();
    EXPECT_EQ(sent_by(swing), 0) << "phase and camera send geometry again";
    EXPECT_GT(sent_by([&] { state().contour = 1; }), 0);
    EXPECT_GT(sent_by([&] { state().mode_scale = 2; }), 0);
    state().light[0] = 3;
    EXPECT_EQ(sent_by([&] { trigger("&Wire"); }), 0);
}

TEST_F(Picture, ModesSwing) {
    show(hexa_box({{2, 2, 2}, {1, 1, 1}}));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::eigen);
    std::set<int> phases;
    QObject::connect(window->view(), &GLWidget::painted, [&] { phases.insert(state().phase); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return phases.size() >= 5; }));
    // at its ends a free end is a fifth of the model apart from its place, to either side
    show_only({ViewFlag::fem}, view::ViewDirection::z);
    for (const auto& [phase, end] : {std::pair{0, 1.2}, {10, 0.8}}) {
        state().phase = phase;
        const QImage image = picture();
        EXPECT_GT(farthest(seen_at(image, {end, 0.5, 1}, -4), background), 20) << phase;
        EXPECT_LT(farthest(seen_at(image, {end, 0.5, 1}, 4), background), 5) << phase;
    }
}

// The members of a rigid element, their reference point and its force: found in the model, drawn where the
// body has gone, swinging with a mode, sent only while they show.
TEST_F(Picture, RigidElementsMoveWithTheBody) {
    ASSERT_TRUE(open(replaced(block_text, "END", "rigid_force\n  PUSH HEAD n 5\n%\nEND")));
    set_results([](const double* x) { return Vec3{0, x[0], 0}; }, AnalysisType::eigen);
    const auto holds = window->view()->shown().tables().rigid_holds;
    ASSERT_EQ(holds.size(), 1u);
    ASSERT_EQ(holds[0].nodes.size(), 9u);
    // corners and edges of the face lean the normals of their nodes outwards, all sides alike
    EXPECT_NEAR(holds[0].normal[0], 1, 1e-9);
    for (const std::int32_t n : holds[0].nodes)
        EXPECT_DOUBLE_EQ(view::triple(model_store().mesh.coordinates, n)[0], 0.4);
    show_only({ViewFlag::rigid_element}, view::ViewDirection::z);
    auto count_at = [&](const QImage& image, const Vec3& place, bool (*wanted)(const QColor&)) {
        const Vec3 at = pixel_of(place);
        int found = 0;
        for (int y = -2; y <= 2; ++y)
            for (int x = -2; x <= 2; ++x) found += wanted(image.pixelColor(int(at[0]) + x, int(at[1]) + y));
        return found;
    };
    const auto violet = [](const QColor& c) { return c.green() < 100 && c.red() > 80 && c.blue() > 80; };
    const auto red = [](const QColor& c) { return c.red() > 180 && c.green() < 80 && c.blue() < 80; };
    // a fifth of 0.4 m is the largest swing; the picture mirrors at half of the period
    for (const auto& [phase, lift] : {std::pair{0, 0.08}, {10, -0.08}}) {
        state().phase = phase;
        const QImage image = picture();
        for (const double y : {0.0, 0.1, 0.2}) {
            EXPECT_GT(count_at(image, {0.4, y + lift, 0.2}, violet), 6)
                << "member, phase " << phase << " y " << y;
            EXPECT_EQ(count_at(image, {0.3, y + lift, 0.2}, violet), 0);
        }
        // the members all move alike, and so does their reference point
        EXPECT_GT(count_at(image, {0.497, 0.1 + lift, 0.1}, violet), 2) << "reference point, phase " << phase;
        EXPECT_GT(count_at(image, {0.53, 0.1 + lift, 0.1}, red), 2) << "force, phase " << phase;
    }
    show_only({ViewFlag::fem}, view::ViewDirection::z);
    for (int phase : {0, 10, 3, 4}) {
        state().phase = phase;
        picture();
    }
    const std::int64_t before = view::gl::bytes_sent();
    state().phase = 10;
    picture();
    EXPECT_EQ(view::gl::bytes_sent(), before);
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
    ShownModel& shown = window->view()->shown();
    shown.state.flags[static_cast<std::size_t>(ViewFlag::force)] = false;
    auto dark_in = [](const QImage& image, const QRect& area) {
        int dark = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                dark += image.pixelColor(x, y).lightness() < 100;
        return dark;
    };
    const QSize size(700, 500);
    view::resize(camera(), size.width(), size.height());
    std::array<QImage, 2> images;
    window->view()->makeCurrent();
    for (std::size_t k = 0; k < 2; ++k) {
        QOpenGLFramebufferObject target(size, QOpenGLFramebufferObject::CombinedDepthStencil);
        target.bind();
        if (k == 0) {
            view::gl::GlutText texts(size.height());
            shown.draw(texts);
        } else {
            PainterTexts texts;
            shown.draw(texts);
            QOpenGLPaintDevice device(size);
            texts.paint(&device);
        }
        target.release();
        images[k] = target.toImage();
    }
    window->view()->doneCurrent();
    // legend, mesh counts
    for (const QRect& area : {QRect(68, 455, 120, 24), QRect(8, 8, 150, 80)}) {
        const int glut = dark_in(images[0], area), qt = dark_in(images[1], area);
        EXPECT_GT(glut, 100);
        EXPECT_GT(qt, glut / 3);
        EXPECT_LT(qt, glut * 3);
    }
}

// ---- mouse and keys

TEST_F(Picture, ClickPicksTheNodeUnderIt) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{1e-3 * x[0], 0, 0}; });
    state().auto_scale = false;
    state().contour = 1;
    const Mesh& mesh = model_store().mesh;
    for (const Vec3& place : {Vec3{0.4, 0.2, 0.2}, Vec3{0.2, 0.1, 0.2}, Vec3{0.4, 0, 0.1}}) {
        std::int32_t node = 1;
        while (view::norm(view::minus(view::triple(mesh.coordinates, node - 1), place)) > 1e-9) ++node;
        const Vec3 at = pixel_of(place);
        const QImage before = picture();
        QTest::mouseClick(window->view(), Qt::LeftButton, {}, QPoint(int(at[0]), int(at[1])));
        const std::string picked = console::format("Node:%d, D.o.f.:%d", node, 3 * (node - 1));
        for (const std::string& words : {picked, std::string("Element:"), std::string("Displacement x:")})
            EXPECT_TRUE(contains(status(), words)) << status();
        EXPECT_NE(picture(), before) << "the pick is not marked";
    }
    QTest::mouseClick(window->view(), Qt::LeftButton, {}, QPoint(3, window->view()->height() / 2));
    EXPECT_EQ(status(), "");
}

TEST_F(Picture, MouseModesAndButtons) {
    show(hexa_box({{1, 1, 1}, {2, 1, 1}}));
    console::Capture captured;
    GLWidget* view = window->view();
    auto drag = [&](Qt::MouseButton button) {
        QTest::mousePress(view, button, {}, QPoint(200, 200));
        // QTest's moves carry no button
        QMouseEvent move(QEvent::MouseMove, QPointF(240, 230), view->mapToGlobal(QPointF(240, 230)),
                         Qt::NoButton, button, {});
        QApplication::sendEvent(view, &move);
        QTest::mouseRelease(view, button, {}, QPoint(240, 230));
    };
    auto moved_by = [&](Qt::MouseButton button) {
        camera().shift = {0, 0, 0};
        camera().turn = view::identity();
        drag(button);
        return camera().shift;
    };
    const double right = 40 * 2.0 / 800, up = -30 * 2.0 / 600;
    QTest::keyClick(window.get(), Qt::Key_T);
    EXPECT_TRUE(contains(captured.lines, "keyPressEvent:\n   t\n"));
    EXPECT_EQ(moved_by(Qt::LeftButton), (Vec3{right, up, 0}));
    EXPECT_EQ(moved_by(Qt::RightButton), (Vec3{0, 0, up}));
    EXPECT_EQ(camera().turn, view::identity());
    QTest::keyClick(window.get(), Qt::Key_R);
    EXPECT_TRUE(contains(captured.lines, "keyPressEvent:\n   r\n"));
    EXPECT_EQ(moved_by(Qt::LeftButton), (Vec3{}));
    EXPECT_NE(camera().turn, view::identity());
    EXPECT_EQ(moved_by(Qt::MiddleButton), (Vec3{right, up, 0}));
    camera().shift = {0, 0, 0};
    QWheelEvent wheel(QPointF(100, 100), view->mapToGlobal(QPointF(100, 100)), {}, QPoint(0, 240), {}, {},
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(view, &wheel);
    EXPECT_GT(camera().shift[2], 0);
}

TEST_F(Picture, KeysLookAlongTheAxes) {
    ASSERT_TRUE(open(block_text));
    // the viewer's side
    auto toward = [&] { return Vec3{camera().turn[2], camera().turn[6], camera().turn[10]}; };
    const Vec3 sides[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const Qt::Key keys[] = {Qt::Key_X, Qt::Key_Y, Qt::Key_Z};
    const char* buttons[] = {"X", "Y", "Z"};
    for (std::size_t k = 0; k < 3; ++k) {
        QTest::keyClick(window.get(), keys[k]);
        EXPECT_EQ(toward(), sides[k]);
        QTest::keyClick(window.get(), keys[k], Qt::ShiftModifier);
        EXPECT_EQ(toward(), view::times(-1, sides[k]));
        trigger(buttons[k]);
        EXPECT_EQ(toward(), sides[k]);
    }
    QTest::keyClick(window.get(), Qt::Key_I);
    EXPECT_NEAR(toward()[0], std::sqrt(1.0 / 3), 1e-12);
    trigger("Iso");
    const Vec3 fitted = camera().shift;
    camera().shift = {5, 5, 5};
    QTest::keyClick(window.get(), Qt::Key_F);
    EXPECT_EQ(camera().shift, fitted);
    camera().shift = {5, 5, 5};
    trigger("Fit");
    EXPECT_EQ(camera().shift, fitted);
}

TEST_F(Picture, ToolbarScalesAndRanges) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{1e-6 * x[0], 0, 0}; });
    auto factor = [&] {
        picture();
        return shown_picture().factor();
    };
    EXPECT_NEAR(factor(), 0.1 * 0.4 / 0.4e-6, 1);
    trigger("Auto Scale");
    EXPECT_EQ(factor(), 1);
    window->slotsModeScaleChanged(3);
    EXPECT_EQ(factor(), 3);
    // frame 2 is all zero; negated, the first frame's range reaches below it
    model_store().ana_type = AnalysisType::explicit_dynamics;
    state().frame = 2;
    state().contour = 1;
    picture();
    EXPECT_EQ(shown_picture().range()->high.value, 0);
    trigger("All Frames");
    picture();
    EXPECT_EQ(shown_picture().range()->high.value, 0.4e-6);
}

}  // namespace
