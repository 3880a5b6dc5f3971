#include "app/window/messages.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QProcess>
#include <QStandardPaths>
#include <QStyle>
#include <QTime>
#include <QUrl>
#include <QVBoxLayout>

#include "app/window/widgets.h"
#include "input/record_places.h"

namespace kestralum {

namespace {

constexpr int most_rows = 5000;  // older ones go
enum Role { kind_role = Qt::UserRole, file_role, line_role };

struct KindLook {
    const char* name;
    QStyle::StandardPixmap icon;
};
constexpr std::array<KindLook, 3> looks{{{"Errors", QStyle::SP_MessageBoxCritical},
                                         {"Notes", QStyle::SP_MessageBoxInformation},
                                         {"Summaries", QStyle::SP_FileDialogDetailedView}}};

// Editors that take a line, in the order in which they are looked for.
const QStringList editor_commands{"kate -l %l %f",
                                  "gedit +%l %f",
                                  "gnome-text-editor +%l %f",
                                  "xed +%l %f",
                                  "pluma +%l %f",
                                  "mousepad --line=%l %f",
                                  "geany %f:%l",
                                  "code -g %f:%l",
                                  "codium -g %f:%l",
                                  "emacsclient -n +%l %f",
                                  "gvim +%l %f"};

bool run_editor(const QString& command, const QString& file, std::int64_t line) {
    QStringList words = QProcess::splitCommand(command);
    if (words.isEmpty()) return false;
    for (QString& word : words) word.replace("%l", QString::number(line)).replace("%f", file);
    const QString program = words.takeFirst();
    return QProcess::startDetached(program, words);
}

// "FILE: token 7 …" as "FILE: line 3: token 7 …".
QString with_line_number(const QString& text, const TextPlace& place) {
    if (place.line == 0 || !text.contains(" token ")) return text;
    return QString(text).insert(QString::fromStdString(place.file).size(),
                                QString(": line %1").arg(place.line));
}

}  // namespace

bool open_in_editor(const QString& file, std::int64_t line) {
    const QString whole = QFileInfo(file).absoluteFilePath(), own = qEnvironmentVariable("KESTRALUM_EDITOR");
    line = std::max<std::int64_t>(line, 1);
    if (!own.isEmpty()) return run_editor(own, whole, line);
    for (const QString& command : editor_commands)
        if (!QStandardPaths::findExecutable(command.section(' ', 0, 0)).isEmpty() &&
            run_editor(command, whole, line))
            return true;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(whole));
}

Messages::Messages(QWidget* parent) : QWidget(parent), list_(new QListWidget) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(2, 2, 2, 2);
    auto* row = new QHBoxLayout;
    auto button = [&](const QString& text, const char* tip) {
        auto* b = new QToolButton;
        b->setText(text);
        b->setToolTip(tip);
        b->setAutoRaise(true);
        b->setFocusPolicy(Qt::NoFocus);
        row->addWidget(b);
        return b;
    };
    for (std::size_t k = 0; k < looks.size(); ++k) {
        shown_[k] = button(looks[k].name, "Show or hide these");
        shown_[k]->setObjectName(looks[k].name);
        shown_[k]->setCheckable(true);
        shown_[k]->setChecked(true);
        icons_[k] = style()->standardIcon(looks[k].icon);
        shown_[k]->setIcon(icons_[k]);
        shown_[k]->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        connect(shown_[k], &QToolButton::toggled, this, &Messages::filter);
    }
    row->addStretch();
    connect(button("Copy", "Copy the chosen messages, or all (Ctrl+C)"), &QToolButton::clicked, this,
            &Messages::copy);
    connect(button("Clear", "Forget the messages"), &QToolButton::clicked, this, &Messages::clear);
    column->addLayout(row);
    column->addWidget(list_);
    list_->setObjectName("message list");
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setWordWrap(true);
    list_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));  // summaries are tables
    copies_with_key(list_, [this] { copy(); });
    connect(list_, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { open_place(*item); });
}

QString Messages::add(MessageKind kind, const QString& text) {
    const auto k = static_cast<std::size_t>(kind);
    QString shown = text.trimmed();
    if (shown.isEmpty()) return shown;
    const auto place = place_of_remark(shown.toStdString());
    if (place) shown = with_line_number(shown, *place);
    auto* item = new QListWidgetItem(icons_[k], QTime::currentTime().toString("HH:mm:ss  ") + shown, list_);
    item->setData(kind_role, static_cast<int>(kind));
    if (place) {
        item->setData(file_role, QString::fromStdString(place->file));
        item->setData(line_role, static_cast<qint64>(place->line));
        item->setToolTip("Click twice to open the file there");
    }
    item->setHidden(!shown_[k]->isChecked());
    if (list_->count() > most_rows) delete list_->takeItem(0);
    ++counts_[k];
    shown_[k]->setText(QString("%1 (%2)").arg(looks[k].name).arg(counts_[k]));
    list_->scrollToBottom();
    return shown;
}

QString Messages::text() const {
    QStringList lines;
    for (int r = 0; r < list_->count(); ++r)
        if (!list_->item(r)->isHidden()) lines << list_->item(r)->text();
    return lines.join('\n');
}

void Messages::copy() {
    QStringList lines;
    for (int r = 0; r < list_->count(); ++r)
        if (list_->item(r)->isSelected()) lines << list_->item(r)->text();
    QApplication::clipboard()->setText(lines.isEmpty() ? text() : lines.join('\n'));
}

void Messages::clear() {
    list_->clear();
    counts_ = {};
    for (std::size_t k = 0; k < looks.size(); ++k) shown_[k]->setText(looks[k].name);
}

void Messages::filter() {
    for (int r = 0; r < list_->count(); ++r) {
        QListWidgetItem* item = list_->item(r);
        item->setHidden(!shown_[item->data(kind_role).toUInt()]->isChecked());
    }
}

void Messages::open_place(const QListWidgetItem& item) {
    const QString file = item.data(file_role).toString();
    if (!file.isEmpty() && !open_in_editor(file, item.data(line_role).toLongLong()))
        add(MessageKind::error, "no editor could be started; KESTRALUM_EDITOR may name one");
}

}  // namespace kestralum
