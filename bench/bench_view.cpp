// Milliseconds per repaint of a swinging box of hexahedra, 800 x 600 pixels: every element's faces vertex
// by vertex, the outside from arrays in memory, and what the view does, from buffers on the card.
// Usage: bench_view [CELLS]...   along an edge; 20 40 80 unless given. Needs an X display.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "immediate_scene.h"
#include "offscreen.h"
#include "support/box_mesh.h"
#include "view/gl/scene_drawing.h"

using namespace kestralum;
using namespace kestralum::view;

namespace {

constexpr int width = 800, height = 600;

// Median over repaints that fill about a second; the camera turns a little each time.
double milliseconds(const std::function<void(int)>& repaint) {
    using Clock = std::chrono::steady_clock;
    auto once = [&](int k) {
        const auto start = Clock::now();
        repaint(k);
        glFinish();
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    };
    for (int k = 0; k < phase_count; ++k) once(k);  // buffers are filled
    std::vector<double> times;
    double sum = 0;
    for (int k = 0; (sum < 1000 || times.size() < 5) && times.size() < 200; ++k) {
        times.push_back(once(k));
        sum += times.back();
    }
    std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
    return times[times.size() / 2];
}

class NoTexts : public gl::TextPainter {
    void draw(double, double, const std::string&, gl::TextSize, const Color&) override {}
    double width(const std::string&, gl::TextSize) const override { return 80; }
};

class Box {
public:
    explicit Box(int cells) {
        run_.mesh = testing::hexa_box({{cells, cells, cells}, {1, 1, 1}});
        Frame frame(run_.mesh.dof_num());
        for (std::int32_t n = 0; n < run_.mesh.node_num(); ++n)
            frame.mode_vec[3 * n] = run_.mesh.node(n)[2] * run_.mesh.node(n)[2];
        run_.results.push_back(std::make_shared<const Frame>(std::move(frame)));
        state_.result_ready = true;
        state_.contour = 0;
        state_.flags.fill(false);
        state_.flags[static_cast<std::size_t>(ViewFlag::fem)] = true;
        state_.light = {1, 1, 1};
        resize(camera_, width, height);
        look_from(camera_, ViewDirection::isometric);
        fit_points(camera_, tables().box(), run_.mesh.coordinates);
    }
    ~Box() { drawing_.release(true); }

    SceneTables tables() const {
        return {.model = model_, .run = &run_, .force_node = {}, .fixed_nodes = {}};
    }

    void measure() {
        const double buffers = milliseconds([&](int k) {
            turn();
            draw(k % phase_count);
        });
        const double camera_only = milliseconds([&](int) {
            turn();
            draw(0);
        });
        const double immediate = milliseconds([&](int k) {
            begin(k);
            testing::draw_every_face(drawing_.picture(), tables(), 1, places_);
        });
        const double arrays = milliseconds([&](int k) {
            begin(k);
            draw_arrays();
        });
        state_.contour = 17;
        const double lit = milliseconds([&](int k) {
            turn();
            draw(k % phase_count);
        });
        state_.contour = 0;
        state_.flags = start_flags();
        const double layers = milliseconds([&](int k) {
            turn();
            draw(k % phase_count);
        });
        std::printf("%8d %10lld %12.2f %12.2f %12.2f %12.2f %12.2f %12.2f %8.0f\n", run_.mesh.element_num(),
                    static_cast<long long>(drawing_.picture().outside().triangle_num()), immediate, arrays,
                    buffers, camera_only, lit, layers, 1000 / layers);
        std::fflush(stdout);
    }

private:
    void turn() { camera_.turn = product(rotation({0, 1, 0}, 0.01), camera_.turn); }
    void draw(int phase) {
        state_.phase = phase;
        NoTexts texts;
        drawing_.draw(tables(), state_, camera_, texts);
    }
    // State, matrices and places as the view sets them, nothing drawn.
    void begin(int k) {
        turn();
        drawing_.picture().place(tables(), k % phase_count, places_);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glMatrixMode(GL_PROJECTION);
        glLoadMatrixd(projection(camera_, tables().box()).data());
        glMatrixMode(GL_MODELVIEW);
        glLoadMatrixd(model_view(camera_, tables().box()).data());
    }
    // The outside, its vertices gathered anew and sent with every repaint.
    void draw_arrays() {
        const Surface& outside = drawing_.picture().outside();
        std::vector<gl::ColorVertex> vertices;
        vertices.reserve(outside.triangles.size());
        const auto& picture = drawing_.picture();
        for (const std::int32_t n : outside.triangles)
            vertices.push_back(gl::color_vertex(
                triple(places_, n), scale_color({},
                                                share_of(picture.values()[n], picture.range()->low.value,
                                                         picture.range()->high.value),
                                                1)));
        glEnableClientState(GL_VERTEX_ARRAY);
        glEnableClientState(GL_COLOR_ARRAY);
        glVertexPointer(3, GL_FLOAT, sizeof(gl::ColorVertex), vertices.data()->place.data());
        glColorPointer(4, GL_UNSIGNED_BYTE, sizeof(gl::ColorVertex), vertices.data()->color.data());
        glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(vertices.size()));
        glDisableClientState(GL_COLOR_ARRAY);
        glDisableClientState(GL_VERTEX_ARRAY);
    }

    Model model_;
    Run run_;
    DisplayState state_;
    Camera camera_;
    gl::SceneDrawing drawing_;
    std::vector<double> places_;
};

}  // namespace

int main(int argc, char** argv) {
    testing::use_view_format();
    QGuiApplication application(argc, argv);
    const testing::Offscreen target(width, height);
    if (!target.ready()) return 1;
    std::printf("ms per repaint at %d x %d, %s\n", width, height,
                reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    std::printf("%8s %10s %12s %12s %12s %12s %12s %12s %8s\n", "elements", "triangles", "immediate",
                "arrays", "buffers", "camera only", "lit parts", "all layers", "fps");
    std::vector<int> sizes;
    for (int k = 1; k < argc; ++k) sizes.push_back(std::atoi(argv[k]));
    if (sizes.empty()) sizes = {20, 40, 80};
    for (const int cells : sizes) Box(std::clamp(cells, 1, 128)).measure();
    return 0;
}
