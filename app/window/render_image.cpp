#include "app/window/render_image.h"

#include <QBuffer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageWriter>
#include <QOpenGLFramebufferObject>
#include <QPainter>
#include <algorithm>

#include "app/window/caption.h"
#include "app/window/painter_texts.h"
#include "app/window/saved_file.h"

namespace kestralum {

bool use_glut_text() {
    return QGuiApplication::platformName() == "xcb" && qGuiApp->devicePixelRatio() == 1 &&
           view::gl::glut_available();
}

namespace {

using view::gl::TextSize;

constexpr view::Color grey{0.9f, 0.9f, 0.9f, 1}, white{1, 1, 1, 1}, black{0, 0, 0, 1};

// Letters and lines of an image: as on a screen up to Full HD, larger in proportion beyond.
double ratio_of(const ImageOptions& options) {
    if (options.ratio > 0) return options.ratio;
    return std::max(1.0, std::min(options.size.width() / 1920.0, options.size.height() / 1080.0));
}

// Rows of the caption; a picture that is too low for it has none.
int strip_height(const ImageOptions& options, const std::string& caption, const PainterTexts& texts) {
    const int rows = static_cast<int>(std::lround(1.9 * texts.height(TextSize::small)));
    return caption.empty() || 4 * rows > options.size.height() ? 0 : rows;
}

// The camera of an image as long as the object lives.
class ImageCamera {
public:
    ImageCamera(ShownModel& shown, const ImageOptions& options, int height)
        : camera_(shown.camera), former_(shown.camera) {
        view::resize(camera_, shown.view_width(options.size.width()), height);
        camera_.pixel_ratio = ratio_of(options);
        if (options.whole_width) view::keep_width(camera_, shown.box(), former_.aspect());
    }
    ~ImageCamera() { camera_ = former_; }
    ImageCamera(const ImageCamera&) = delete;
    ImageCamera& operator=(const ImageCamera&) = delete;

private:
    view::Camera& camera_;
    const view::Camera former_;
};

QImage draw_scene(ShownModel& shown, const QSize& size, PainterTexts& texts, const view::Color& background,
                  QString& error) {
    QOpenGLFramebufferObjectFormat format;
    format.setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
    format.setSamples(4);
    QOpenGLFramebufferObject target(size, format);
    if (!target.isValid() || !target.bind()) {
        error = QString("There is no room on the graphics card for %1 x %2 pixels.")
                    .arg(size.width())
                    .arg(size.height());
        return {};
    }
    shown.set_background(background);
    shown.draw(texts);
    shown.set_background(grey);
    target.release();
    return target.toImage().convertToFormat(QImage::Format_RGB32);
}

void draw_caption(const std::string& caption, const ImageOptions& options, int strip, PainterTexts& texts,
                  QPainter& painter) {
    const double ratio = ratio_of(options), beside = 10 * ratio;
    const QRect place(0, options.size.height() - strip, options.size.width(), strip);
    painter.fillRect(place, Qt::white);
    painter.setPen(QPen(QColor(102, 102, 102), ratio));
    painter.drawLine(place.topLeft(), place.topRight());
    texts.draw(beside, options.size.height() - 0.6 * texts.height(TextSize::small),
               texts.cut(caption, TextSize::small, options.size.width() - 2 * beside), TextSize::small,
               black);
}

}  // namespace

QImage render_image(ShownModel& shown, const ImageOptions& options, QString& error) {
    GLint largest[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, largest);
    const QSize& size = options.size;
    if (size.width() > largest[0] || size.height() > largest[1]) {
        error = QString("The graphics card draws at most %1 x %2 pixels.").arg(largest[0]).arg(largest[1]);
        return {};
    }
    PainterTexts texts(ratio_of(options));
    const std::string caption = options.caption ? caption_text(shown) : "";
    const int strip = strip_height(options, caption, texts);
    const ImageCamera camera(shown, options, size.height() - strip);
    if (options.fit) shown.fit(texts);
    const QImage scene =
        draw_scene(shown, {size.width(), size.height() - strip}, texts, options.white ? white : grey, error);
    if (scene.isNull()) return {};
    QImage out = scene;
    if (strip > 0) {
        out = QImage(size, QImage::Format_RGB32);
        QPainter painter(&out);
        painter.drawImage(0, 0, scene);
        draw_caption(caption, options, strip, texts, painter);
    }
    texts.paint(&out);
    return out;
}

void fit_to_frames(ShownModel& shown, const ImageOptions& options, std::span<const std::int32_t> frames) {
    PainterTexts texts(ratio_of(options));
    const std::string caption = options.caption ? caption_text(shown) : "";
    const std::int32_t frame_shown = shown.state.frame;
    std::vector<double> points;
    for (const std::int32_t frame : frames) {
        shown.state.frame = frame;
        shown.drawing.update(shown.tables(), shown.state);
        const auto more = view::gl::extent_points(shown.drawing.picture(), shown.tables(), shown.state);
        points.insert(points.end(), more.begin(), more.end());
    }
    view::Camera fitted;
    {
        const ImageCamera camera(shown, options,
                                 options.size.height() - strip_height(options, caption, texts));
        const auto room = shown.drawing.room(shown.tables(), shown.state, shown.camera, texts);
        view::fit_beside(shown.camera, shown.box(), points, room.margins, room.boxes);
        fitted = shown.camera;
    }
    shown.state.frame = frame_shown;
    shown.camera.shift = fitted.shift;
}

QByteArray coded(const QImage& image, const QByteArray& format, int quality) {
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format.constData(), quality);
    return buffer.data();
}

QString save_image(const QImage& image, const QString& file_name) {
    const QByteArray ending = QFileInfo(file_name).suffix().toLower().toLatin1();
    if (!QImageWriter::supportedImageFormats().contains(ending))
        return QString("%1 cannot be written: its ending has to be .png or .jpg").arg(file_name);
    constexpr int jpeg_quality = 92;
    const QByteArray bytes = coded(image, ending, ending.startsWith("jp") ? jpeg_quality : -1);
    return save_whole(file_name, {bytes.constData(), static_cast<std::size_t>(bytes.size())});
}

}  // namespace kestralum
