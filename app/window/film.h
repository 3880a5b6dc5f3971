// A film of a run: its pictures one by one, written as a series of PNG files or handed to ffmpeg.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <vector>

#include "app/window/film_plan.h"
#include "app/window/render_image.h"

namespace kestralum {

struct Film {
    QString file_name;  // of a PNG series the name that the numbers are put into
    std::vector<FilmFrame> frames;
    int fps = 20;
    ImageOptions image;
};

// What is missing to write that kind of film; empty: nothing.
QString film_hindrance(const QString& file_name);

// Draws with a context and a copy of the display state of its own: what the window shows meanwhile, another
// model for one, does not matter. Everything happens in the thread of the caller's event loop, a picture for
// each turn of it. The files lie in a temporary folder beside their place until all is written; that folder
// goes with the object.
class FilmMaker : public QObject {
    Q_OBJECT

public:
    // Of the model, run, state and camera that are shown in `shown`.
    FilmMaker(const ShownModel& shown, Film film, QObject* parent = nullptr);
    ~FilmMaker() override;

    void start();
    // Leaves nothing behind. ended() follows at once.
    void cancel();

    std::size_t count() const { return film_.frames.size(); }
    std::string older_pictures() const;  // those of a longer series that was there, for the user; else empty
    const Film& film() const { return film_; }

signals:
    void progressed(int done);  // pictures
    // Once: why there is no film; empty: it stands at its place.
    void ended(const QString& error);

private:
    QString prepare();
    QString start_coder();
    void schedule();
    void go_on();
    QString add_picture();
    QString add_to_series(const QImage& image) const;
    void coder_ended();
    QString place_files() const;
    void end(const QString& error);
    QString temporary(std::size_t number = 0) const;

    Film film_;
    ShownModel shown_;
    QOffscreenSurface surface_;
    QOpenGLContext context_;
    std::unique_ptr<QTemporaryDir> folder_;
    std::unique_ptr<QProcess> coder_;  // null: a PNG series
    std::size_t done_ = 0;
    bool begun_ = false, scheduled_ = false, over_ = false;
};

}  // namespace kestralum
