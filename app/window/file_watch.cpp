#include "app/window/file_watch.h"

#include <QFileInfo>

namespace kestralum {

namespace {

constexpr int settling = 200;  // ms without a change: editors write in pieces, or put another file in place

}  // namespace

FileWatch::FileWatch(QObject* parent) : QObject(parent) {
    settle_.setSingleShot(true);
    settle_.setInterval(settling);
    const auto changed = [this] { settle_.start(); };
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, changed);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, changed);
    connect(&settle_, &QTimer::timeout, this, &FileWatch::look);
}

FileWatch::Stamp FileWatch::stamp_of(const QString& file) {
    const QFileInfo info(file);
    return info.exists() ? Stamp{info.lastModified(), info.size()} : Stamp{};
}

QMap<QString, FileWatch::Stamp> FileWatch::stamps() const {
    QMap<QString, Stamp> out;
    for (const QString& file : files_) out[file] = stamp_of(file);
    return out;
}

void FileWatch::watch(const QStringList& files, const QDateTime& read_since) {
    files_ = files;
    const QStringList old = watcher_.files() + watcher_.directories();
    if (!old.isEmpty()) watcher_.removePaths(old);
    // the folders too: an editor may put a new file in place of the old
    QStringList paths;
    for (const QString& file : files)
        for (const QString& path : {file, QFileInfo(file).absolutePath()})
            if (QFileInfo::exists(path) && !paths.contains(path)) paths << path;
    if (!paths.isEmpty()) watcher_.addPaths(paths);
    taken_ = last_ = stamps();
    for (Stamp& stamp : taken_)
        if (stamp.size >= 0 && stamp.time > read_since) {
            stamp = {};
            settle_.start();
        }
}

void FileWatch::set_on(bool on) {
    on_ = on;
    if (on) settle_.start();
}

void FileWatch::look() {
    const auto now = stamps();
    const bool still = now == last_;
    last_ = now;
    if (!still) return settle_.start();
    if (!on_ || now == taken_) return;
    // a file that is gone or empty for now is on its way
    if (files_.isEmpty() || now[files_.front()].size <= 0) return;
    taken_ = now;
    for (const QString& file : files_)
        if (QFileInfo::exists(file) && !watcher_.files().contains(file)) watcher_.addPath(file);
    emit saved();
}

}  // namespace kestralum
