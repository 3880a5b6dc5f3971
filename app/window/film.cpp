#include "app/window/film.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace kestralum {

namespace {

FilmFormat format_of(const QString& file_name) {
    return film_format(file_name.toStdString()).value_or(FilmFormat::png_series);
}

QString coder_program() {
    return QStandardPaths::findExecutable("ffmpeg");
}

// Up to eight of the frames, the first and the last among them.
std::vector<std::int32_t> fitted_frames(const std::vector<FilmFrame>& frames) {
    constexpr std::size_t most = 8;
    std::vector<std::int32_t> out;
    const std::size_t steps = std::min(most, frames.size());
    for (std::size_t k = 0; k < steps; ++k) {
        const std::size_t at = steps > 1 ? k * (frames.size() - 1) / (steps - 1) : 0;
        if (out.empty() || out.back() != frames[at].frame) out.push_back(frames[at].frame);
    }
    return out;
}

}  // namespace

QString film_hindrance(const QString& file_name) {
    if (!film_format(file_name.toStdString()))
        return QString("%1: the ending of a film is .gif, .webm, .mp4 or .png").arg(file_name);
    if (format_of(file_name) != FilmFormat::png_series && coder_program().isEmpty())
        return QString(
                   "%1 wants the program ffmpeg, which is not installed; PNG pictures are written without it")
            .arg(file_name);
    return {};
}

FilmMaker::FilmMaker(const ShownModel& shown, Film film, QObject* parent)
    : QObject(parent), film_(std::move(film)) {
    shown_.store.settings = shown.store.settings;
    shown_.show(shown.store.model, shown.store.run);
    shown_.state = shown.state;
    shown_.compare_like(shown);
    shown_.state.animation_running = false;
    shown_.camera = shown.camera;
}

FilmMaker::~FilmMaker() {
    over_ = true;
    if (coder_) {
        coder_->disconnect(this);
        coder_->kill();
        coder_->waitForFinished(2000);
    }
    if (context_.isValid() && context_.makeCurrent(&surface_)) {
        shown_.release_drawings(true);
        context_.doneCurrent();
    }
}

QString FilmMaker::temporary(std::size_t number) const {
    const QString name = "film." + QFileInfo(film_.file_name).suffix();
    const std::string file = folder_->filePath(name).toStdString();
    return QString::fromStdString(number > 0 ? series_name(file, number) : file);
}

QString FilmMaker::prepare() {
    if (const QString missing = film_hindrance(film_.file_name); !missing.isEmpty()) return missing;
    if (film_.frames.empty()) return "there is no frame to draw";
    surface_.setFormat(context_.format());
    surface_.create();
    if (!context_.create() || !context_.makeCurrent(&surface_)) return "there is no OpenGL to draw with";
    if (film_.image.fit) fit_to_frames(shown_, film_.image, fitted_frames(film_.frames));
    context_.doneCurrent();
    const QDir beside = QFileInfo(film_.file_name).absoluteDir();
    folder_ = std::make_unique<QTemporaryDir>(beside.filePath(".kestralum-film-XXXXXX"));
    if (!folder_->isValid())
        return QString("%1 cannot be written: %2").arg(film_.file_name, folder_->errorString());
    return format_of(film_.file_name) == FilmFormat::png_series ? QString() : start_coder();
}

QString FilmMaker::start_coder() {
    coder_ = std::make_unique<QProcess>();
    QStringList arguments;
    const QSize& size = film_.image.size;
    for (const std::string& argument :
         film_coder_arguments(format_of(film_.file_name), size.width(), size.height(), film_.fps,
                              "file:" + temporary().toStdString()))
        arguments << QString::fromStdString(argument);
    connect(coder_.get(), &QProcess::finished, this, &FilmMaker::coder_ended);
    connect(coder_.get(), &QProcess::bytesWritten, this, &FilmMaker::schedule);
    coder_->setStandardOutputFile(QProcess::nullDevice());
    coder_->start(coder_program(), arguments);
    constexpr int patience = 10000;  // ms
    if (coder_->waitForStarted(patience)) return {};
    return "ffmpeg cannot be started: " + coder_->errorString();
}

void FilmMaker::start() {
    QTimer::singleShot(0, this, [this] {
        if (over_) return;
        if (const QString error = prepare(); !error.isEmpty()) return end(error);
        begun_ = true;
        schedule();
    });
}

// The window's events come between two pictures.
void FilmMaker::schedule() {
    if (over_ || !begun_ || std::exchange(scheduled_, true)) return;
    QTimer::singleShot(0, this, &FilmMaker::go_on);
}

// One picture, and the next in another turn of the event loop; none while the coder has enough to do.
void FilmMaker::go_on() {
    constexpr qint64 enough = 8 << 20;  // bytes
    scheduled_ = false;
    if (over_ || done_ == count() || (coder_ && coder_->bytesToWrite() > enough)) return;
    if (const QString error = add_picture(); !error.isEmpty()) return end(error);
    ++done_;
    emit progressed(static_cast<int>(done_));
    if (over_) return;
    if (done_ < count()) return schedule();
    if (coder_) return coder_->closeWriteChannel();  // coder_ended() follows
    end(place_files());
}

QString FilmMaker::add_picture() {
    if (!context_.makeCurrent(&surface_)) return "there is no OpenGL to draw with";
    shown_.state.frame = film_.frames[done_].frame;
    shown_.state.phase = film_.frames[done_].phase;
    ImageOptions options = film_.image;
    options.fit = false;  // it was fitted to all of them
    QString error;
    const QImage image = render_image(shown_, options, error);
    context_.doneCurrent();
    if (image.isNull()) return error;
    if (!coder_) return add_to_series(image);
    const auto bytes = static_cast<qint64>(image.sizeInBytes());
    if (coder_->write(reinterpret_cast<const char*>(image.constBits()), bytes) == bytes) return {};
    return "ffmpeg takes no more pictures: " + coder_->errorString();
}

QString FilmMaker::add_to_series(const QImage& image) const {
    const QString file = temporary(done_ + 1);
    return save_image(image, file).replace(file, film_.file_name);
}

void FilmMaker::coder_ended() {
    if (over_) return;
    if (coder_->exitStatus() != QProcess::NormalExit)
        return end(QString("%1 was not written: ffmpeg was ended from outside").arg(film_.file_name));
    const QStringList said =
        QString::fromUtf8(coder_->readAllStandardError()).split('\n', Qt::SkipEmptyParts);
    if (coder_->exitCode() != 0 || done_ < count() || !QFileInfo::exists(temporary()))
        return end(QString("%1 was not written: ffmpeg: %2")
                       .arg(film_.file_name, said.isEmpty()
                                                 ? QString("it ended with status %1").arg(coder_->exitCode())
                                                 : said.back().trimmed()));
    end(place_files());
}

// From the temporary folder to their place, in place of what is there.
QString FilmMaker::place_files() const {
    const std::string name = film_.file_name.toStdString();
    for (std::size_t k = 1; k <= (coder_ ? 1 : count()); ++k) {
        std::error_code error;
        const std::string to = coder_ ? name : series_name(name, k);
        std::filesystem::rename(temporary(coder_ ? 0 : k).toStdString(), to, error);
        if (error)
            return QString("%1 cannot be written: %2")
                .arg(QString::fromStdString(to), QString::fromStdString(error.message()));
    }
    return {};
}

std::string FilmMaker::older_pictures() const {
    return coder_ ? "" : kestralum::older_pictures(film_.file_name.toStdString(), count());
}

void FilmMaker::cancel() {
    end(QString("%1 was not written: it was stopped").arg(film_.file_name));
}

void FilmMaker::end(const QString& error) {
    if (std::exchange(over_, true)) return;
    if (coder_ && coder_->state() != QProcess::NotRunning) coder_->kill();
    folder_.reset();
    emit ended(error);
}

}  // namespace kestralum
