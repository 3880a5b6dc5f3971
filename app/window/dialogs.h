// The small dialogs of the window.
#pragma once

#include <QPixmap>
#include <QSettings>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <optional>

namespace kestralum {

inline constexpr const char* text_files = "Text Files (*.txt);;All Files (*)";
inline constexpr const char* movie_files = "Text Files (*.mov);;All Files (*)";

// A file to open; "" when cancelled. The dialog opens in `folder`, which becomes that of the file.
QString ask_for_file(QWidget* parent, const char* filter, QString& folder);
QString first_folder();  // the one of the models, or the current one

// A file to write, `name` offered, with that ending ("" when cancelled); one that is there was agreed to be
// replaced.
QString ask_for_new_file(QWidget* parent, const QString& title, const QString& name, const QString& ending);

// What is kept between starts: layout, folder, recent files.
QSettings kept_settings();

// The size of a pixmap, `current` offered; none when cancelled or not understood.
std::optional<QSize> ask_for_size(QWidget* parent, const QSize& current);

// What went wrong, a line each.
void show_errors(QWidget* parent, const QString& headline, const QStringList& errors);
// Which of the answers, from 0: `preset` is that of the Enter key, `closed` what closing the box means.
int ask(QWidget* parent, const QString& headline, const QString& text, const QStringList& answers, int preset,
        int closed);

// A pixmap in a window of its own, with a button that saves it.
class PixmapWindow : public QWidget {
    Q_OBJECT

public:
    PixmapWindow(const QPixmap& pixmap, QWidget* parent);
    const QPixmap& pixmap() const { return pixmap_; }

public slots:
    void save();

private:
    QPixmap pixmap_;
};

}  // namespace kestralum
