// kestralum: the program with its window.
#include <QApplication>
#include <QIcon>
#include <QMessageBox>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <clocale>
#include <cstdlib>
#include <span>

#include "app/run_process.h"
#include "app/window/main_window.h"
#include "app/window/snapshot.h"
#include "app/window/window_options.h"
#include "model/progress.h"

namespace {

using namespace kestralum;

enum ExitStatus { exit_no_display = 1, exit_usage = 2 };

bool given(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value;
}

// Qt ends the process with a core file where it finds no display; this says so before.
bool display_missing() {
    if (given("QT_QPA_PLATFORM") && std::string_view(std::getenv("QT_QPA_PLATFORM")).substr(0, 3) != "xcb")
        return false;
    if (given("WAYLAND_DISPLAY") && !given("QT_QPA_PLATFORM")) return false;
    return !given("DISPLAY") || !view::gl::glut_available();
}

enum class Renderer { none, software, hardware };

// Makes a context to see whether there is one, and whether the processor does the drawing.
Renderer find_renderer() {
    const QString platform = QGuiApplication::platformName();
    if (platform == "offscreen" || platform.startsWith("minimal") || platform == "vnc" ||
        platform == "linuxfb")
        return Renderer::none;  // a window with an OpenGL view ends these with a fault
    QOffscreenSurface surface;
    surface.create();
    QOpenGLContext context;
    if (!context.create() || !context.makeCurrent(&surface) || context.isOpenGLES()) return Renderer::none;
    const auto* name = reinterpret_cast<const char*>(context.functions()->glGetString(GL_RENDERER));
    const QString text = QString::fromLatin1(name ? name : "").toLower();
    const bool software = text.contains("llvmpipe") || text.contains("softpipe") || text.contains("swrast");
    context.doneCurrent();
    return software ? Renderer::software : Renderer::hardware;
}

// The fixed-function pipeline, smooth edges where the card draws them at no cost.
void choose_format(Renderer renderer) {
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setSamples(renderer == Renderer::hardware ? 4 : 0);
    QSurfaceFormat::setDefaultFormat(format);
}

int open_window(const WindowOptions& options) {
    MainWindow window(options.log_folder, options.quiet);
    if (!options.model_file.empty()) window.open_at_start(QString::fromStdString(options.model_file));
    window.show();
    return QApplication::exec();
}

}  // namespace

int main(int argc, char** argv) {
    const WindowOptions options = parse_window_options(std::span(argv, argc).subspan(argc > 0 ? 1 : 0));
    ConsoleProgress progress;
    if (!options.error.empty()) {
        progress.error("kestralum: %s (see kestralum --help)", options.error.c_str());
        return exit_usage;
    }
    if (options.help) {
        progress.summary("%s", window_usage().c_str());
        return 0;
    }
    if (options.version) {
        progress.summary("KESTRALUM %s\n", program_version);
        return 0;
    }
    use_best_kernels(argv);
    if (display_missing()) {
        progress.error(
            "kestralum: there is no display to open a window on; kestralum-batch runs without one");
        return exit_no_display;
    }
    QSurfaceFormat format;
    format.setRenderableType(QSurfaceFormat::OpenGL);
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    QSurfaceFormat::setDefaultFormat(format);
    int qt_argc = 1;  // the options are the program's own
    QApplication application(qt_argc, argv);
    QGuiApplication::setDesktopFileName("kestralum");
    QApplication::setWindowIcon(QIcon::fromTheme("kestralum"));  // of the installed program
    std::setlocale(LC_NUMERIC, "C");                             // Qt took the user's; numbers have a point
    const Renderer renderer = find_renderer();
    if (renderer == Renderer::none) {
        progress.error("kestralum: OpenGL cannot be used on this display (platform %s)",
                       QGuiApplication::platformName().toStdString().c_str());
        if (!options.draws() && QGuiApplication::platformName() == "xcb")
            QMessageBox::critical(nullptr, "KESTRALUM", "OpenGL cannot be used on this display.");
        return exit_no_display;
    }
    choose_format(renderer);
    if (!options.draws()) return open_window(options);
    ConsoleProgress of_stages(options.quiet);
    return make_snapshot(options, of_stages);
}
