#include "app/window/dialogs.h"

#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>
#include "app/window/render_image.h"

#include "view/display_state.h"

namespace kestralum {

QString first_folder() {
    return QDir("data").exists() ? QDir("data").absolutePath() : QDir::currentPath();
}

QString ask_for_new_file(QWidget* parent, const QString& title, const QString& name, const QString& ending) {
    QString chosen =
        QFileDialog::getSaveFileName(parent, title, name + ending, QString("*%1;;All Files (*)").arg(ending));
    if (chosen.isEmpty() || !QFileInfo(chosen).suffix().isEmpty()) return chosen;
    chosen += ending;  // the dialog asked about a name without it
    enum Answer { replace, leave };
    if (QFileInfo::exists(chosen) && ask(parent, chosen + " is there already.", "Replace it?",
                                         {"Replace", "Leave it"}, leave, leave) == leave)
        return {};
    return chosen;
}

QSettings kept_settings() {
    return QSettings(QSettings::IniFormat, QSettings::UserScope, "kestralum", "window");
}

QString ask_for_file(QWidget* parent, const char* filter, QString& folder) {
    const QString name = QFileDialog::getOpenFileName(parent, "Open file", folder, filter);
    if (!name.isEmpty()) folder = QFileInfo(name).absolutePath();
    return name;
}

std::optional<QSize> ask_for_size(QWidget* parent, const QSize& current) {
    bool taken = false;
    const QString text =
        QInputDialog::getText(parent, "Grabber", "Enter pixmap size:", QLineEdit::Normal,
                              QString("%1 x %2").arg(current.width()).arg(current.height()), &taken);
    if (!taken) return std::nullopt;
    const auto size = view::pixmap_size(text.toStdString());
    if (!size) {
        show_errors(parent, "No size of a pixmap: " + text, {"Write width x height, such as 640 x 480."});
        return std::nullopt;
    }
    return QSize((*size)[0], (*size)[1]);
}

namespace {

void set_texts(QMessageBox& box, const QString& headline, const QString& text) {
    box.setText(headline);
    box.setInformativeText(text);
    // as it stands: both labels would take a text for marked up that looks like it
    for (QLabel* label : box.findChildren<QLabel*>()) label->setTextFormat(Qt::PlainText);
}

void show_lines(QWidget* parent, QMessageBox::Icon icon, const QString& headline, const QStringList& lines) {
    constexpr qsizetype most = 12;
    QStringList shown = lines.mid(0, most);
    if (lines.size() > most) shown << QString("and %1 more, on the console").arg(lines.size() - most);
    QMessageBox box(icon, "KESTRALUM", "", QMessageBox::Ok, parent);
    set_texts(box, headline, shown.join("\n"));
    box.exec();
}

}  // namespace

void show_errors(QWidget* parent, const QString& headline, const QStringList& errors) {
    show_lines(parent, QMessageBox::Warning, headline, errors);
}

int ask(QWidget* parent, const QString& headline, const QString& text, const QStringList& answers, int preset,
        int closed) {
    QMessageBox box(QMessageBox::Question, "KESTRALUM", "", QMessageBox::NoButton, parent);
    set_texts(box, headline, text);
    QList<QPushButton*> buttons;
    for (const QString& answer : answers) buttons << box.addButton(answer, QMessageBox::ActionRole);
    box.setDefaultButton(buttons[preset]);
    box.setEscapeButton(buttons[closed]);
    box.exec();
    for (int k = 0; k < buttons.size(); ++k)
        if (box.clickedButton() == buttons[k]) return k;
    return closed;
}

PixmapWindow::PixmapWindow(const QPixmap& pixmap, QWidget* parent)
    : QWidget(parent, Qt::Window), pixmap_(pixmap) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QString("KESTRALUM - pixmap %1 x %2").arg(pixmap.width()).arg(pixmap.height()));
    auto* label = new QLabel;
    label->setPixmap(pixmap);
    auto* scroll = new QScrollArea;
    scroll->setWidget(label);
    auto* button = new QPushButton("&Save...");
    connect(button, &QPushButton::clicked, this, &PixmapWindow::save);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(scroll);
    layout->addWidget(button, 0, Qt::AlignLeft);
    resize(std::min(pixmap.width() + 40, 1000), std::min(pixmap.height() + 80, 760));
}

void PixmapWindow::save() {
    const QString name = ask_for_new_file(this, "Save pixmap", "picture", ".png");
    if (name.isEmpty()) return;
    const QString fault = save_image(pixmap_.toImage(), name);
    if (!fault.isEmpty()) show_errors(this, "The pixmap was not saved", {fault});
}

}  // namespace kestralum
