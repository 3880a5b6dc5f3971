#include "app/window/section_panel.h"

#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "app/window/widgets.h"

namespace kestralum {

namespace {

template <typename T>
bool same_owner(const std::weak_ptr<T>& a, const std::weak_ptr<T>& b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

ToldLength told_length(const view::DisplayUnits& units) {
    const view::ShownUnit unit = view::shown_unit("m", units);
    return {unit.text, unit.factor};
}

}  // namespace

SectionPanel::SectionPanel(ShownModel& shown_model, QWidget* parent)
    : QWidget(parent),
      shown_(shown_model),
      table_(new_number_table("section_rows")),
      note_(named("section_note", new QLabel)),
      copy_(named("section_copy", new QPushButton("Copy"))),
      save_(named("section_save", new QPushButton("Save CSV..."))),
      rest_(new QTimer(this)) {
    setObjectName("section_panel");
    table_->setToolTip(
        "Force and moment that the side which the normal points to exerts on the other one: tension is "
        "positive along the normal. Loads and held act on the side that is cut off, which is the one shown; "
        "moments are about the centre of the cut");
    copies_with_key(table_, [this] { copy(); });
    note_->setWordWrap(true);
    note_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    copy_->setToolTip("The table as text onto the clipboard");
    save_->setToolTip("The table with all digits");
    constexpr int rest = 200;  // ms without a change: a plane that is dragged is not waited for
    rest_->setSingleShot(true);
    rest_->setInterval(rest);
    connect(rest_, &QTimer::timeout, this, &SectionPanel::update_all);
    connect(copy_, &QPushButton::clicked, this, &SectionPanel::copy);
    connect(save_, &QPushButton::clicked, this, [this] {
        const QString why = save_csv_text(this, "Save the section forces", "sections", csv_text(rows_));
        if (!why.isEmpty()) emit refused(why);
    });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(note_, 1);
    buttons->addWidget(copy_);
    buttons->addWidget(save_);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    column->addWidget(table_, 1);
    column->addLayout(buttons);
}

bool SectionPanel::Key::same(const Key& other) const {
    return same_owner(run, other.run) && frame == other.frame && length == other.length &&
           sections == other.sections;
}

SectionPanel::Key SectionPanel::key() const {
    return {shown_.store.run, shown_.state.frame, shown_.state.units.length, shown_.state.sections};
}

void SectionPanel::follow() {
    if (!isVisible()) return;
    Key now = key();
    if (now.same(known_)) return rest_->stop();
    if (rest_->isActive() && now.same(wanted_)) return;
    wanted_ = std::move(now);
    rest_->start();
}

void SectionPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    update_all();
}

// Why there are no numbers; empty: there are.
QString SectionPanel::nothing() const {
    if (shown_.mode_num() == 0) return "No result yet: run an analysis or open a result file";
    if (has_shapes(shown_.ana_type()))
        return "Modes and buckling shapes have any size: the forces of their sections mean nothing";
    if (shown_.state.sections.empty()) return "No sections yet: Window, Display, Sections adds planes";
    return {};
}

void SectionPanel::update_all() {
    if (!isVisible()) return;
    known_ = key();
    rows_ = {};
    QStringList notes;
    if (const QString why = nothing(); !why.isEmpty()) {
        notes << why;
    } else {
        rows_.headings << "Plane"
                       << "Place"
                       << "What";
        for (const std::string& heading : section_headings(told_length(shown_.state.units)))
            rows_.headings << shown(heading);
        for (std::size_t k = 0; k < known_.sections.size(); ++k)
            add_rows(known_.sections[k], "S" + QString::number(k + 1), notes);
    }
    show_table(rows_, *table_);
    table_->setVisible(!rows_.rows.empty());
    note_->setText(notes.join('\n'));
    copy_->setEnabled(!rows_.rows.empty());
    save_->setEnabled(!rows_.rows.empty());
}

void SectionPanel::add_rows(const view::ShownSection& section, const QString& name, QStringList& notes) {
    const Run& run = *shown_.store.run;
    const SectionPlane plane{"", section.point, section.normal};
    const ToldLength length = told_length(shown_.state.units);
    const QString place = shown(plane_text(plane, length)) + (section.on ? "" : " (off)");
    const auto told = frame_section(*shown_.store.model, run, std::size_t(shown_.state.frame) - 1, plane);
    if (!told) {
        notes << name + ": this frame has no stresses";
        return;
    }
    if (!(told->sum.area > 0)) {
        notes << name + ": the plane " + place + " cuts no element";
        return;
    }
    if (!told->exact && !notes.contains("Carried is " + shown(why_from_stresses(run))))
        notes << "Carried is " + shown(why_from_stresses(run));
    for (const SectionRow& row : section_rows(*shown_.store.model, run, *told, section.normal, length)) {
        auto& cells = rows_.rows.emplace_back();
        cells = {name, place, shown(row.what) + (told->exact ? "" : " (nodal stresses)")};
        for (const double value : row.values) cells.emplace_back(value);
    }
}

void SectionPanel::copy() {
    if (!rows_.rows.empty()) QApplication::clipboard()->setText(tabbed_text(rows_));
}

}  // namespace kestralum
