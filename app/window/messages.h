// What the program has said since it was started: errors, notes and summaries, kept with their time.
#pragma once

#include <QIcon>
#include <QListWidget>
#include <QString>
#include <QToolButton>
#include <QWidget>
#include <array>

namespace kestralum {

enum class MessageKind { error, note, summary };

class Messages : public QWidget {
    Q_OBJECT

public:
    explicit Messages(QWidget* parent = nullptr);

    // A message of one or several lines. A line that begins with a file and a token or line number leads
    // there when it is clicked twice; its line number is added. Returns the text as it is kept.
    QString add(MessageKind kind, const QString& text);

    QString text() const;  // of the rows that are shown, a line each

public slots:
    void copy();  // the chosen rows, all where none is chosen, to the clipboard
    void clear();

private:
    void filter();
    void open_place(const QListWidgetItem& item);

    QListWidget* list_;
    std::array<QToolButton*, 3> shown_{};
    std::array<QIcon, 3> icons_;  // of all messages: a style's icon has a hundred kilobytes
    std::array<int, 3> counts_{};
};

// Opens a file in the desktop's editor, at a line where the editor is known to take one. KESTRALUM_EDITOR is
// the command to run in its place: %f stands for the file, %l for the line. False where nothing could be
// started.
bool open_in_editor(const QString& file, std::int64_t line);

}  // namespace kestralum
