#include "app/window/picture_dialogs.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/dialogs.h"
#include "app/window/widgets.h"
#include "view/contour.h"
#include "view/display_state.h"

namespace kestralum {

ImageChoice::ImageChoice(QFormLayout& form, const PictureOf& view)
    : view_(view),
      size_(named("picture size", new QComboBox)),
      other_(named("other size", new QLineEdit)),
      white_(named("white background", new QCheckBox("White background"))),
      caption_(named("caption", new QCheckBox("Caption below the picture"))) {
    const auto add = [&](const QString& text, const QSize& size) {
        size_->addItem(QString("%1, %2 x %3").arg(text).arg(size.width()).arg(size.height()), size);
    };
    add("As the view", view.size);
    add("Full HD", {1920, 1080});
    add("4K", {3840, 2160});
    size_->addItem("Other", QSize());
    other_->setText(QString("%1 x %2").arg(view.size.width()).arg(view.size.height()));
    other_->setEnabled(false);
    QObject::connect(size_, &QComboBox::currentIndexChanged, other_, [size = size_, other = other_] {
        other->setEnabled(!size->currentData().toSize().isValid());
    });
    caption_->setChecked(true);
    form.addRow("Size:", size_);
    form.addRow("Width x height:", other_);
    form.addRow("", white_);
    form.addRow("", caption_);
}

// Letters grow with the picture: it shows what the view shows.
std::optional<ImageOptions> ImageChoice::options() const {
    ImageOptions out;
    out.size = size_->currentData().toSize();
    if (!out.size.isValid()) {
        const auto sides = view::pixmap_size(other_->text().toStdString());
        if (!sides) return std::nullopt;
        out.size = QSize((*sides)[0], (*sides)[1]);
    }
    const double larger =
        std::min(1.0 * out.size.width() / view_.size.width(), 1.0 * out.size.height() / view_.size.height());
    out.ratio = view_.ratio * std::max(1.0, larger);
    out.fit = view_.fitted;
    out.whole_width = true;
    out.white = white_->isChecked();
    out.caption = caption_->isChecked();
    return out;
}

namespace {

// A form with OK and Cancel below.
struct FormDialog {
    FormDialog(QWidget* parent, const char* title) : dialog(parent), form(new QFormLayout) {
        dialog.setWindowTitle(title);
        column = new QVBoxLayout(&dialog);
        column->addLayout(form);
    }
    bool exec() {
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
        QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
        QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
        column->addWidget(buttons);
        return dialog.exec() == QDialog::Accepted;
    }
    QDialog dialog;
    QFormLayout* form;
    QVBoxLayout* column;
};

void refuse_size(QWidget* parent) {
    show_errors(parent, "No size of a picture", {"Write width x height, such as 1200 x 800."});
}

QSpinBox* spin_box(const char* name, int low, int high, int value) {
    auto* box = named(name, new QSpinBox);
    box->setRange(low, high);
    box->setValue(value);
    return box;
}

const char* frames_word(AnalysisType type) {
    return has_shapes(type) ? "Modes" : type == AnalysisType::linear_static ? "Load cases" : "Steps";
}

}  // namespace

std::optional<ImageOptions> ask_for_picture(QWidget* parent, const PictureOf& view) {
    FormDialog asked(parent, "Save Picture");
    const ImageChoice image(*asked.form, view);
    if (!asked.exec()) return std::nullopt;
    const auto options = image.options();
    if (!options) refuse_size(parent);
    return options;
}

std::optional<FilmChoice> ask_for_film(QWidget* parent, const PictureOf& view, AnalysisType ana_type,
                                       int mode_num, int frame) {
    FormDialog asked(parent, "Save Animation");
    auto* format = named("film format", new QComboBox);
    for (const FilmFormatEntry& entry : film_formats) {
        const bool there = film_hindrance(QString("film") + entry.ending).isEmpty();
        format->addItem(there ? entry.name : QString("%1 (wants ffmpeg)").arg(entry.name),
                        static_cast<int>(entry.format));
        if (there && format->currentData().toInt() != static_cast<int>(entry.format) &&
            format->currentText().contains('('))
            format->setCurrentIndex(format->count() - 1);
    }
    const bool shapes = has_shapes(ana_type);
    QSpinBox *from = spin_box("first frame", 1, mode_num, shapes ? std::clamp(frame, 1, mode_num) : 1),
             *to = spin_box("last frame", 1, mode_num, shapes ? from->value() : mode_num),
             *step = spin_box("frame step", 1, mode_num, 1),
             *fps = spin_box("frames a second", least_fps, most_fps, usual_fps(ana_type));
    auto* same = named("one range", new QCheckBox("The same colours for all frames"));
    same->setChecked(!shapes);
    auto* length = named("film length", new QLabel);
    asked.form->addRow("Format:", format);
    asked.form->addRow(QString("%1 from:").arg(frames_word(ana_type)), from);
    asked.form->addRow("to:", to);
    asked.form->addRow("every:", step);
    asked.form->addRow("Frames a second:", fps);
    asked.form->addRow("", length);
    asked.form->addRow("", same);
    const ImageChoice image(*asked.form, view);
    const auto chosen = [&] {
        return FilmRange{from->value(), std::max(from->value(), to->value()), step->value()};
    };
    const auto tell_length = [&] {
        const auto count = film_frames(ana_type, mode_num, chosen()).size();
        length->setText(QString("%1 pictures, %2 s")
                            .arg(count)
                            .arg(static_cast<double>(count) / fps->value(), 0, 'g', 3));
    };
    for (QSpinBox* box : {from, to, step, fps})
        QObject::connect(box, &QSpinBox::valueChanged, &asked.dialog, tell_length);
    tell_length();
    if (!asked.exec()) return std::nullopt;
    const auto options = image.options();
    if (!options) {
        refuse_size(parent);
        return std::nullopt;
    }
    return FilmChoice{static_cast<FilmFormat>(format->currentData().toInt()), chosen(), fps->value(),
                      same->isChecked(), *options};
}

std::optional<ReportChoice> ask_for_report(QWidget* parent, bool results) {
    FormDialog asked(parent, "Save Report");
    const auto box = [&](const char* name, const char* text, bool on) {
        auto* out = named(name, new QCheckBox(text));
        out->setChecked(on);
        asked.form->addRow("", out);
        return out;
    };
    const QCheckBox *model = box("report model", "The model with its supports and loads", true),
                    *current = box("report view", "The view as it is", true),
                    *sides = box("report sides", "From the front, the right and above", false);
    auto* list = named("report quantities", new QListWidget);
    for (std::int32_t row = 0; row < std::ssize(view::quantities); ++row) {
        if (view::quantities[row].source == view::Source::none) continue;
        auto* item = new QListWidgetItem(view::quantities[row].text, list);
        item->setData(Qt::UserRole, row);
        item->setCheckState(Qt::Unchecked);
    }
    list->setEnabled(results);
    asked.form->addRow("Contours too:", list);
    if (!asked.exec()) return std::nullopt;
    ReportChoice out{model->isChecked(), current->isChecked(), sides->isChecked(), {}};
    for (int k = 0; results && k < list->count(); ++k)
        if (list->item(k)->checkState() == Qt::Checked)
            out.quantities.push_back(list->item(k)->data(Qt::UserRole).toInt());
    return out;
}

}  // namespace kestralum
