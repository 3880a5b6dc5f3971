// Milliseconds of what a user does with a large result: a model opened, turned, given another contour, cut by
// a section that is dragged, a node picked; the forces of a section, 101 points of a line. 1280 x 860 pixels.
// Usage: bench_interaction [CELLS]...   along an edge of a box; hexahedra, and tetrahedra six to a cell of a
// box with as many elements; 40 100 unless given.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "analysis/frame_section.h"
#include "app/window/shown_model.h"
#include "fields/locate.h"
#include "offscreen.h"
#include "support/box_mesh.h"

using namespace kestralum;

namespace {

constexpr int width = 1280, height = 860;

double milliseconds(const std::function<void()>& work) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    work();
    glFinish();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(int times, const std::function<void(int)>& work) {
    std::vector<double> all;
    for (int k = 0; k < times; ++k) all.push_back(milliseconds([&] { work(k); }));
    std::nth_element(all.begin(), all.begin() + times / 2, all.end());
    return all[times / 2];
}

class NoTexts : public view::gl::TextPainter {
    void draw(double, double, const std::string&, view::gl::TextSize, const view::Color&) override {}
    double width(const std::string&, view::gl::TextSize) const override { return 80; }
};

// A bent bar of smooth stresses.
std::shared_ptr<const Run> run_on(Mesh mesh) {
    auto run = std::make_shared<Run>();
    run->ana_type = AnalysisType::linear_static;
    Frame frame(mesh.dof_num());
    const std::size_t dofs = mesh.dof_num();
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const double* x = mesh.node(n);
        frame.mode_vec[3 * n + 2] = 0.01 * x[0] * x[0];
        for (std::size_t g = 0; g < stress_groups; ++g)
            for (std::size_t c = 0; c < 3; ++c)
                frame.node_stress[g * dofs + 3 * n + c] =
                    1e6 * std::sin(3 * x[0] + double(g)) * x[(c + 1) % 3];
    }
    run->mesh = std::move(mesh);
    run->results.push_back(std::make_shared<const Frame>(std::move(frame)));
    return run;
}

void measure(const char* name, ElementKind kind, int cells) {
    Mesh mesh = testing::box_mesh({{cells, cells, cells}, {1, 1, 1}}, kind);
    mesh.size_info = {0, 0, 0, 1, 1, 1};
    mesh.max_length = 1;
    mesh.p_ele_part_id.assign(mesh.element_num(), 0);
    auto model = std::make_shared<Model>();
    model->parts.resize(1);
    const std::int32_t elements = mesh.element_num();
    const auto run = run_on(std::move(mesh));
    ShownModel shown;
    NoTexts texts;
    view::resize(shown.camera, width, height);
    view::look_from(shown.camera, view::ViewDirection::isometric);
    const double open = milliseconds([&] {
        shown.show(model, run);
        shown.reset_light();
        shown.fit(texts);
        shown.draw(texts);
    });
    const auto turn = [&] {
        shown.camera.turn = view::product(view::rotation({0, 1, 0}, 0.01), shown.camera.turn);
        shown.draw(texts);
    };
    const double turned = median(9, [&](int) { turn(); });
    const double contour = median(7, [&](int k) {
        shown.state.contour = 5 + k;
        shown.draw(texts);
    });
    const double first_pick = milliseconds([&] { shown.pick(width / 2.0, height / 2.0); });
    const double pick = median(9, [&](int k) { shown.pick(width / 2.0 + 4 * k, height / 2.0); });
    shown.draw(texts);
    std::printf("%s %9d %10.1f %8.1f %8.1f %10.1f %8.1f", name, elements, open, turned, contour, first_pick,
                pick);
    shown.state.sections = {{{0.5, 0, 0}, {1, 0, 0}, true}};
    shown.draw(texts);
    const double section = median(9, [&](int k) {
        shown.state.sections[0].point[0] = 0.3 + 0.043 * k;
        shown.draw(texts);
    });
    const double cut_turned = median(9, [&](int) { turn(); });
    std::printf(" %10.1f %10.1f", section, cut_turned);
    const double forces = median(5, [&](int k) {
        (void)frame_section(*model, *run, 0, {"", {0.3 + 0.083 * k, 0, 0}, {1, 0, 0}});
    });
    std::optional<Locator> locator;
    const double first_line = milliseconds([&] {
        locator.emplace(run->mesh);
        (void)line_points(*locator, {0.01, 0.02, 0.03}, {0.98, 0.97, 0.99}, 101);
    });
    const double line = median(9, [&](int) {
        (void)line_points(*locator, {0.03, 0.02, 0.9}, {0.98, 0.5, 0.1}, 101);
    });
    std::printf(" %8.1f %10.1f %8.1f", forces, first_line, line);
    std::printf("\n");
    std::fflush(stdout);
    shown.drawing.release(true);
}

}  // namespace

int main(int argc, char** argv) {
    testing::use_view_format();
    QGuiApplication application(argc, argv);
    const testing::Offscreen target(width, height);
    if (!target.ready()) return 1;
    std::printf("ms at %d x %d, %s\n", width, height,
                reinterpret_cast<const char*>(glGetString(GL_RENDERER)));
    std::printf(
        "            elements       open     turn  contour first pick     pick    section cut turned   "
        "forces first line     line\n");
    std::vector<int> sizes;
    for (int k = 1; k < argc; ++k) sizes.push_back(std::atoi(argv[k]));
    if (sizes.empty()) sizes = {40, 100};
    for (const int cells : sizes) {
        const int n = std::clamp(cells, 1, 128);
        measure("hexahedron  ", ElementKind::hexahedron, n);
        measure("tetrahedron4", ElementKind::tetrahedron4, std::max(1, int(std::lround(n / std::cbrt(6.0)))));
    }
    return 0;
}
