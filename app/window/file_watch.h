// Tells when files that a picture was made from have been saved anew, once they are whole.
#pragma once

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QTimer>

namespace kestralum {

class FileWatch : public QObject {
    Q_OBJECT

public:
    explicit FileWatch(QObject* parent = nullptr);

    // The files to look at from now on, the first above all; one that does not exist counts once it is there,
    // and one that was written after `read_since` has been saved since it was read.
    void watch(const QStringList& files, const QDateTime& read_since);
    void set_on(bool on);

signals:
    void saved();  // some have changed, and none has within the last moments

private:
    struct Stamp {
        QDateTime time;
        qint64 size = -1;  // -1: there is no such file
        bool operator==(const Stamp&) const = default;
    };
    static Stamp stamp_of(const QString& file);
    QMap<QString, Stamp> stamps() const;
    void look();

    QStringList files_;
    QMap<QString, Stamp> taken_, last_;  // as they were watched; as they were at the last look
    QFileSystemWatcher watcher_;
    QTimer settle_;
    bool on_ = true;
};

}  // namespace kestralum
