// What the program has said since it was started: errors, notes and summaries, kept with their time.
#pragma once

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
    // there when it is clicked twice; its line number is added.
    void add(MessageKind kind, const QString& text);

    int count(MessageKind kind) const { return counts_[static_cast<std::size_t>(kind)]; }
    QString text() const;  // of the rows that are shown, a line each

signals:
    void counted();  // another message is there

public slots:
    void copy();  // the chosen rows, all where none is chosen, to the clipboard
    void clear();

private:
    void filter();
    void open_place(const QListWidgetItem& item);

    QListWidget* list_;
    std::array<QToolButton*, 3> shown_{};
    std::array<int, 3> counts_{};
};

// "FILE: token 7 …" as "FILE: line 3: token 7 …"; any other text as it is.
QString with_line_number(const QString& text);

// Opens a file in the desktop's editor, at a line where the editor is known to take one. KESTRALUM_EDITOR is
// the command to run in its place: %f stands for the file, %l for the line. False where nothing could be
// started.
bool open_in_editor(const QString& file, std::int64_t line);

}  // namespace kestralum
