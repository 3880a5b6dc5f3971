// What is in the framebuffer: colours, faces, the mouse on it, and what a repaint sends to the card.
#include <QOpenGLFramebufferObject>
#include <QOpenGLPaintDevice>
#include <QSpinBox>

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
                const view::ValueRange& range = *shown_picture().range();
                expected[p % 3] +=
                    int(85 * view::scale_color({}, view::share_of(value, range.low.value, range.high.value),
                                               1)[p % 3]);
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

// ---- looks of parts, highlight, light

// Of every box the three sides differ by at least 15 % from one to the next.
TEST_F(Picture, SidesDifferInTheIsometricView) {
    for (const Vec3& from : {Vec3{}, Vec3{-0.5, -0.5, -0.5}, Vec3{3, -7, 1}, Vec3{-9, -9, -9}})
        for (const Vec3& size : {Vec3{1, 1, 1}, Vec3{2, 1, 0.5}, Vec3{0.4, 1, 1.5}}) {
            show(hexa_box({{2, 2, 2}, size, [&](double* x) {
                               for (std::size_t c = 0; c < 3; ++c) x[c] += from[c];
                           }}));
            state().part_looks = {{true, 1, view::Color{0.7f, 0.7f, 0.7f, 1}}};
            shown().reset_light();
            show_only({ViewFlag::fem}, view::ViewDirection::isometric);
            const QImage drawn = picture();
            std::vector<double> brightness;
            for (std::size_t side = 0; side < 3; ++side) {
                Vec3 at = shown().box().centre();
                at[side] += 0.5 * size[side];
                brightness.push_back(seen_at(drawn, at).lightness());
            }
            std::ranges::sort(brightness);
            EXPECT_GT(brightness[0], 35);
            for (std::size_t k = 0; k < 2; ++k)
                EXPECT_LT(brightness[k], 0.85 * brightness[k + 1]) << from[0] << " size " << size[0];
        }
}

class PartLooks : public Picture {
protected:
    // A thin blue part (1) in front of a red one, seen against x.
    void SetUp() override {
        Picture::SetUp();
        Model model = placeholder_model();
        model.mesh = hexa_box({{2, 1, 1}, {1, 1, 1}, [](double* x) { x[0] = x[0] == 0.5 ? 0.9 : x[0]; }});
        model.mesh.p_ele_part_id = {0, 1};
        model.parts = model.parts_o = std::vector<Part>(2);
        for (int p : {0, 1}) model.parts[p].name = p ? "FRONT" : "BACK";
        model.parts[0].color = {1, 0, 0};
        model.parts[1].color = {0, 0, 1};
        shown().show(std::make_shared<const Model>(std::move(model)), nullptr);
        show_only({ViewFlag::fem}, view::ViewDirection::x);
    }
    QColor middle() { return seen_at(picture(), {1, 0.5, 0.5}); }
};

TEST_F(PartLooks, HideTintAndFade) {
    const QColor opaque = middle();
    EXPECT_GT(opaque.blue(), 100);
    EXPECT_LT(opaque.red(), 40);
    state().part_looks = {{}, {true, 0.5, {}}};
    EXPECT_GT(middle().red(), 50) << "what is behind does not show";
    EXPECT_GT(middle().blue(), 50);
    state().part_looks = {};
    state().transparency = 0.5;  // without a contour too: the bright background shows
    EXPECT_GT(middle().green(), 40);
    state().transparency = 1;
    state().part_looks = {{}, {true, 1, view::Color{0, 1, 0, 1}}};
    EXPECT_GT(middle().green(), 100);
    EXPECT_TRUE(contains(shown().pick(pixel_of({1, 0, 0})[0], pixel_of({1, 0, 0})[1]), "Element:2"));
    state().part_looks[1].visible = false;
    EXPECT_GT(middle().red(), 100);
    EXPECT_TRUE(contains(shown().pick(pixel_of({0.9, 0, 0})[0], pixel_of({0.9, 0, 0})[1]), "Element:1"));
    window->view()->look_from(view::ViewDirection::y);  // what is left fills the view
    EXPECT_NEAR(pixel_of({0.9, 1, 0.5})[0] + pixel_of({0, 1, 0.5})[0], camera().width, 2);
}

TEST_F(PartLooks, HighlightShowsOverEveryColour) {
    set_results([](const double* x) { return Vec3{x[1], 0, 0}; });
    state().mode_scale = 0;
    state().contour = 1;
    const QImage plain = picture();
    const auto changes = [&](const Vec3& at) {
        const QColor now = seen_at(picture(), at), was = seen_at(plain, at);
        return farthest(now, {was.red(), was.green(), was.blue()});
    };
    const auto least = [&] {  // from blue to red
        int out = 255;
        for (const double y : {0.08, 0.3, 0.5, 0.7, 0.92}) out = std::min(out, changes({1, y, 0.55}));
        return out;
    };
    state().highlight.parts = {1, 7};
    EXPECT_GE(least(), 100);
    state().highlight = {};
    EXPECT_EQ(least(), 0);
    state().highlight.faces = {
        *view::face_of_triangle(mesh(), shown_picture().outside(), shown_picture().outside().parts[1].first)};
    window->view()->look_from(view::ViewDirection::isometric);
    const QImage lit = picture();
    state().highlight.faces.clear();
    EXPECT_NE(picture(), lit);
    for (view::Highlight mark :
         {view::Highlight{.nodes = {11, -1, 99}}, view::Highlight{.points = {{1, 1, 1}}}}) {
        state().highlight = mark;
        EXPECT_LT(seen_at(picture(), {1, 1, 1}).green(), 40);
    }
}

// ---- room

// A mode stays in the free part of the view all the way.
TEST_F(Picture, FitLeavesRoomForTheSwing) {
    show(hexa_box({{4, 1, 1}, {4, 1, 1}}));
    set_results([](const double* x) { return Vec3{0, x[0] * x[0], 0}; }, AnalysisType::eigen);
    PainterTexts texts(1);
    for (const auto from : {view::ViewDirection::z, view::ViewDirection::isometric}) {
        view::look_from(camera(), from);
        for (const double scale : {1.0, 4.0}) {
            state().mode_scale = scale;
            EXPECT_TRUE(scale == 1 || shown().leaves_view(texts)) << "fitted at the smaller swing";
            shown().fit(texts);
            EXPECT_FALSE(shown().leaves_view(texts));
            for (state().phase = 0; state().phase < view::phase_count; ++state().phase) {
                std::vector<double> places;
                shown_picture().place(shown().tables(), state().phase, places);
                for (std::size_t n = 0; n < places.size(); n += 3) {
                    const Vec3 at = pixel_of({places[n], places[n + 1], places[n + 2]});
                    EXPECT_TRUE(at[0] > 0 && at[1] > 0 && at[1] < camera().height - 36);
                    EXPECT_LT(at[0], camera().width - 90) << "under the contour bar";
                }
            }
            state().phase = 0;
        }
    }
}

// Notes where texts are drawn.
class NotedTexts : public PainterTexts {
public:
    using PainterTexts::PainterTexts;
    void draw(double x, double y, const std::string& text, Size size, const view::Color& color) override {
        const double h = height(size);
        boxes.push_back({x, y - 0.8 * h, x + width(text, size), y});
        colors[text] = color;
        PainterTexts::draw(x, y, text, size, color);
    }
    std::vector<view::PixelBox> boxes;
    std::map<std::string, view::Color> colors;
};

TEST_F(Picture, LabelsCoverNoText) {
    std::string text = block_text.substr(0, block_text.find("apply_force")) + "apply_force\n";
    for (int k = 0; k < 12; ++k)  // eleven forces on neighbouring nodes, one on the far side
        text += formatted("  F%d node z %d  %g 0.2 0.2 \n", k, k + 1, k ? 0.4 - 0.1 * (k % 3) : 0.0);
    ASSERT_TRUE(open(text + "%\nEND\n"));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    state().flags[int(ViewFlag::part_name)] = true;
    for (const auto from :
         {view::ViewDirection::isometric, view::ViewDirection::z, view::ViewDirection::minus_x}) {
        window->view()->look_from(from);
        window->view()->makeCurrent();
        NotedTexts texts(1);
        shown().draw(texts);
        window->view()->doneCurrent();
        for (std::size_t a = 0; a < texts.boxes.size(); ++a)
            for (std::size_t b = 0; b < a; ++b) EXPECT_FALSE(texts.boxes[a].meets(texts.boxes[b]));
        EXPECT_TRUE(texts.colors.contains("BLOCK"));
        EXPECT_TRUE(texts.colors.contains("3.000e+00[N]"));
    }
}

// Thin parts too, from either side; not where another part hides them.
TEST_F(PartLooks, NamesStandWhereThePartsAreSeen) {
    state().flags[int(ViewFlag::part_name)] = true;
    const auto names = [&] {
        window->view()->makeCurrent();
        NotedTexts texts(1);
        shown().draw(texts);
        window->view()->doneCurrent();
        std::string out;
        for (const auto& [text, color] : texts.colors) out += text + " ";
        return out;
    };
    EXPECT_EQ(names(), "FRONT ");
    for (const auto from : {view::ViewDirection::isometric, view::ViewDirection::y, view::ViewDirection::z}) {
        window->view()->look_from(from);
        EXPECT_EQ(names(), "BACK FRONT ");
    }
    window->view()->look_from(view::ViewDirection::minus_x);
    EXPECT_EQ(names(), "BACK ");
    state().part_looks = {{.visible = false}};
    EXPECT_EQ(names(), "FRONT ");
}

// Forces that are hidden, or that a mode leaves behind, are neither made nor sent again.
TEST_F(Picture, ForcesAreSentOnce) {
    ASSERT_TRUE(open(block_text));
    for (const AnalysisType type : {AnalysisType::eigen, AnalysisType::nonlinear_static}) {
        set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, type);
        state().contour = 17;
        std::array<std::int64_t, 2> sent{};
        for (const bool shown_too : {false, true}) {
            state().flags[int(ViewFlag::force)] = shown_too;
            state().frame = 1;
            picture();
            const std::int64_t before = shown().drawing.bytes_sent();
            state().frame = 2;
            picture();
            sent[shown_too] = shown().drawing.bytes_sent() - before;
        }
        EXPECT_EQ(sent[1] == sent[0], type == AnalysisType::eigen);
        EXPECT_GE(sent[1], sent[0]);
    }
}

// Twice as many pixels show the same picture, texts, lines and legend too.
TEST_F(Picture, DenseScreensShowTheSame) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    std::array<QImage, 2> images;
    for (const int ratio : {1, 2}) {
        window->view()->makeCurrent();
        view::resize(camera(), 700 * ratio, 500 * ratio);
        camera().pixel_ratio = ratio;
        QOpenGLFramebufferObject target(camera().width, camera().height,
                                        QOpenGLFramebufferObject::CombinedDepthStencil);
        target.bind();
        PainterTexts texts(ratio);
        shown().fit(texts);
        shown().draw(texts);
        QOpenGLPaintDevice device(target.size());
        texts.paint(&device);
        target.release();
        images[ratio - 1] = target.toImage().convertToFormat(QImage::Format_RGB32);
        window->view()->doneCurrent();
    }
    const QImage half = images[1].scaled(700, 500, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    double difference = 0;
    for (int k = 0; k < 700 * 500; ++k)
        difference += std::abs(half.pixelColor(k % 700, k / 700).lightness() -
                               images[0].pixelColor(k % 700, k / 700).lightness());
    EXPECT_LT(difference / (700 * 500), 2.5);
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

// A bar that is torn apart at its notch while it is drawn: the gap is seen through and picks nothing.
TEST_F(Picture, ElementsThatARunTakesOutAreNotDrawn) {
    const std::string path = KESTRALUM_SOURCE_DIR "/data/explicit_tear";
    folder.write("tear.ana", read_file(path + ".ana"));
    ASSERT_TRUE(open(read_file(path + ".txt"), "tear.txt"));
    window->findChild<QSpinBox*>("interval pause")->setValue(0);
    trigger("&Explicit(Real Time)");
    wait_idle();
    ASSERT_GT(shown().mode_num(), 10);
    EXPECT_EQ(state().frame, shown().mode_num());
    ASSERT_FALSE(shown_run()->results.back()->removed.empty());
    state().contour = 0;
    show_only({ViewFlag::fem, ViewFlag::wire}, view::ViewDirection::z);
    const Vec3 neck{0.065, 0.015, 0.01};
    for (const bool torn : {false, true}) {
        state().frame = torn ? shown().mode_num() : 1;
        const QImage drawn = picture();
        EXPECT_EQ(farthest(seen_at(drawn, neck), {230, 230, 230}) <= 2, torn);
        QTest::mouseClick(window->view(), Qt::LeftButton, {}, place_on_screen(neck));
        EXPECT_EQ(status().empty(), torn) << status();
        const auto& elements = shown_picture().outside().triangle_element;
        EXPECT_EQ(std::ranges::any_of(
                      elements,
                      [&](std::int32_t e) { return model().parts[mesh().p_ele_part_id[e]].name == "NECK"; }),
                  !torn);
    }
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
