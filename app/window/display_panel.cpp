#include "app/window/display_panel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QSignalBlocker>
#include <QSlider>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "app/window/widgets.h"
#include "model/token_reader.h"
#include "view/aim.h"
#include "view/legend.h"

namespace kestralum {

namespace {

constexpr int slider_steps = 1000;

template <typename Names>
QComboBox* combo(const char* name, const Names& names, const char* tip) {
    auto* box = named(name, new QComboBox);
    for (const char* text : names) box->addItem(text);
    box->setToolTip(tip);
    box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    box->setMinimumContentsLength(9);
    return box;
}

std::optional<double> number_in(const QLineEdit* edit) {
    const auto value = parse_double(edit->text().trimmed().toStdString());
    return value && std::isfinite(*value) ? value : std::nullopt;
}

// Red letters where a text is refused.
void mark(QLineEdit* edit, bool good) {
    edit->setStyleSheet(good ? QString() : QString("color: #b00000"));
}

QString axis_text(const view::ShownSection& section, double length_factor, const char* unit) {
    const double position = length_factor * dot(section.normal, section.point);
    for (std::size_t c = 0; c < 3; ++c)
        if (std::abs(std::abs(section.normal[c]) - 1) < 1e-12)
            return QString("%1 %2 %3 %4")
                .arg(QChar("xyz"[c]))
                .arg(section.normal[c] > 0 ? "<" : ">")
                .arg(section.normal[c] * position, 0, 'g', 6)
                .arg(unit);
    const auto& n = section.normal;
    return QString("(%1 %2 %3) < %4 %5")
        .arg(n[0], 0, 'g', 3)
        .arg(n[1], 0, 'g', 3)
        .arg(n[2], 0, 'g', 3)
        .arg(position, 0, 'g', 6)
        .arg(unit);
}

}  // namespace

DisplayPanel::DisplayPanel(ShownModel& shown, QWidget* parent)
    : QWidget(parent), shown_(shown), state_(shown.state) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(2, 2, 2, 2);
    make_colors(column);
    make_deformation(column);
    make_sections(column);
    make_values(column);
    make_look(column);
    column->addStretch();
    contour_ = state_.shown_contour();
    show_state();
}

QFormLayout* DisplayPanel::add_group(QVBoxLayout* column, const char* title) {
    auto* group = new QGroupBox(title);
    auto* form = new QFormLayout(group);
    form->setContentsMargins(6, 4, 6, 4);
    form->setVerticalSpacing(3);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    column->addWidget(group);
    return form;
}

QCheckBox* DisplayPanel::add_switch(QFormLayout* form, const char* name, const char* text, const char* tip,
                                    bool& place) {
    auto* box = named(name, new QCheckBox(text));
    box->setToolTip(tip);
    form->addRow(box);
    connect(box, &QCheckBox::toggled, this, [this, &place](bool on) {
        place = on;
        if (!showing_) emit changed();
    });
    switches_.emplace_back(box, &place);
    return box;
}

// A field that is left as it was keeps the digits that it does not show.
void DisplayPanel::when_typed(QLineEdit* edit, std::function<void()> take) {
    connect(edit, &QLineEdit::editingFinished, this, [this, edit, take = std::move(take)] {
        if (showing_ || !edit->isModified()) return;
        edit->setModified(false);
        take();
    });
}

QLineEdit* DisplayPanel::add_value(QFormLayout* form, const char* name, const char* label, const char* tip) {
    auto* edit = named(name, new QLineEdit);
    edit->setMinimumWidth(70);
    edit->setToolTip(tip);
    form->addRow(label, edit);
    return edit;
}

void DisplayPanel::make_colors(QVBoxLayout* column) {
    QFormLayout* form = add_group(column, "Colours");
    form->addRow("Range", range_ = combo("display_range", view::range_names, "What the colours reach over"));
    low_ = add_value(form, "display_low", "from", "Low end of a fixed range");
    high_ = add_value(form, "display_high", "to", "High end of a fixed range");
    connect(range_, &QComboBox::currentIndexChanged, this, &DisplayPanel::take_range);
    for (QLineEdit* edit : {low_, high_}) when_typed(edit, [this] { take_fixed_range(); });
    bands_ = named("display_bands", new QSpinBox);
    bands_->setRange(view::least_bands - 1, view::most_bands);
    bands_->setSpecialValueText("smooth");
    form->addRow("Bands", bands_);
    connect(bands_, &QSpinBox::valueChanged, this, [this](int count) {
        state_.scale.bands = count < view::least_bands ? 0 : count;
        if (!showing_) emit changed();
    });
    form->addRow("Palette", palette_ = combo("display_palette", view::palette_names,
                                             "diverging: for signed quantities, with a symmetric range"));
    connect(palette_, &QComboBox::currentIndexChanged, this, [this](int row) {
        state_.scale.palette = static_cast<view::Palette>(row);
        if (!showing_) emit changed();
    });
    form->addRow("Stress in", stress_ = combo("display_stress", view::stress_unit_names, "Unit of stresses"));
    form->addRow("Length in", length_ = combo("display_length", view::length_unit_names,
                                              "Unit of displacements and places"));
    const auto take_units = [this] {
        if (showing_) return;  // one of the two fields may not have followed yet
        state_.units = {static_cast<view::StressUnit>(stress_->currentIndex()),
                        static_cast<view::LengthUnit>(length_->currentIndex())};
        show_state();
        emit changed();
    };
    for (QComboBox* box : {stress_, length_}) connect(box, &QComboBox::currentIndexChanged, this, take_units);
    add_switch(form, "display_round", "Round values", "At the bar, in place of even shares of the range",
               state_.scale.round_ticks);
    add_switch(form, "display_outside", "Mark outside",
               "Values beyond a fixed range in grey and violet, not in the colours of its ends",
               state_.scale.mark_outside);
    add_switch(form, "display_elements", "Element values",
               "As they are in each element, not averaged at the nodes", state_.look.element_values);
    add_switch(form, "display_marks", "Mark extremes", "The largest and the smallest value, in the model",
               state_.look.marks);
    auto* row = new QHBoxLayout;
    for (const bool largest : {true, false}) {
        auto* button = named(largest ? "display_go_max" : "display_go_min", new QToolButton);
        button->setText(largest ? "Go to max" : "Go to min");
        row->addWidget(button);
        connect(button, &QToolButton::clicked, this, [this, largest] { emit extreme_asked(largest); });
    }
    row->addStretch();
    form->addRow(row);
}

void DisplayPanel::make_deformation(QVBoxLayout* column) {
    QFormLayout* form = add_group(column, "Deformation");
    constexpr std::array<const char*, 4> names{"usual", "automatic", "true scale", "factor"};
    form->addRow("Drawn",
                 deformation_ = combo("display_deformation", names,
                                      "usual: modes a fifth of the model, static by Auto Scale, steps as "
                                      "they are; automatic: a tenth of the model where it is small"));
    factor_ = add_value(form, "display_factor", "Factor", "0 or more");
    connect(deformation_, &QComboBox::currentIndexChanged, this, [this] {
        if (!showing_) take_deformation();
    });
    when_typed(factor_, [this] { take_deformation(); });
    add_switch(form, "display_undeformed", "Undeformed outline", "Edges of the body at rest",
               state_.look.undeformed);
}

void DisplayPanel::make_sections(QVBoxLayout* column) {
    QFormLayout* form = add_group(column, "Sections");
    list_ = named("display_sections", new QListWidget);
    list_->setMaximumHeight(80);
    list_->setToolTip("What is kept of each plane; Ctrl and the left button in the view move the chosen one");
    form->addRow(list_);
    auto* row = new QHBoxLayout;
    const auto add = [&](const char* name, const char* text, const char* tip, auto action) {
        auto* button = named(name, new QToolButton);
        button->setText(text);
        button->setToolTip(tip);
        row->addWidget(button);
        connect(button, &QToolButton::clicked, this, action);
        return button;
    };
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::string letter(1, "xyz"[axis]);
        add(("display_section_" + letter).c_str(), ("+" + letter).c_str(), "A plane through the middle",
            [this, axis] {
                view::ShownSection section{shown_.box().centre(), {0, 0, 0}, true};
                section.normal[axis] = 1;
                add_section(section);
            });
    }
    add("display_section_nodes", "+3", "Through the last three nodes that were picked",
        [this] { add_section_through_picks(); });
    flip_ = add("display_section_flip", "Flip", "Keep the other side", [this] {
        if (view::ShownSection* section = active()) section->normal = times(-1, section->normal);
        show_sections();
        emit changed();
    });
    remove_ = add("display_section_remove", "Remove", "Take the plane away", [this] {
        if (active()) state_.sections.erase(state_.sections.begin() + state_.active_section);
        state_.active_section =
            std::min(state_.active_section, static_cast<std::int32_t>(state_.sections.size()) - 1);
        show_sections();
        emit changed();
    });
    row->addStretch();
    form->addRow(row);
    slider_ = named("display_section_slider", new QSlider(Qt::Horizontal));
    slider_->setRange(0, slider_steps);
    form->addRow(slider_);
    position_ = add_value(form, "display_section_position", "At", "Along the normal, from the origin");
    connect(list_, &QListWidget::currentRowChanged, this, &DisplayPanel::choose_section);
    connect(list_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        if (showing_) return;
        state_.sections[list_->row(item)].on = item->checkState() == Qt::Checked;
        emit changed();
    });
    connect(slider_, &QSlider::valueChanged, this, [this](int step) {
        if (showing_ || !active()) return;
        const auto [low, high] = view::reach_along(shown_.box(), active()->normal);
        move_section(low + (high - low) * step / slider_steps);
    });
    when_typed(position_, [this] {
        if (!active()) return;
        const auto value = number_in(position_);
        mark(position_, value.has_value());
        if (value) move_section(*value / length_factor());
    });
}

void DisplayPanel::make_values(QVBoxLayout* column) {
    QFormLayout* form = add_group(column, "Values");
    below_ = add_value(form, "display_below", "Hide below", "What is less is not drawn; empty: all is");
    above_ = add_value(form, "display_above", "Hide above", "What is more is not drawn; empty: all is");
    iso_count_ = named("display_iso_count", new QSpinBox);
    iso_count_->setRange(0, 20);
    iso_count_->setToolTip("Surfaces of one value each, evenly over the range");
    form->addRow("Surfaces", iso_count_);
    iso_ =
        add_value(form, "display_iso", "at", "Values, separated by blanks; the body is shown as an outline");
    for (QLineEdit* edit : {below_, above_, iso_}) when_typed(edit, [this] { take_values(); });
    connect(iso_count_, &QSpinBox::valueChanged, this, [this](int count) {
        if (!showing_) spread_iso_values(count);
    });
}

void DisplayPanel::make_look(QVBoxLayout* column) {
    QFormLayout* form = add_group(column, "Look");
    constexpr std::array<const char*, 3> shadings{"flat", "smooth", "smooth, contours too"};
    form->addRow("Light", shading_ = combo("display_shading", shadings, "How faces are lit"));
    connect(shading_, &QComboBox::currentIndexChanged, this, [this](int row) {
        state_.look.shading = static_cast<view::Shading>(row);
        if (!showing_) emit changed();
    });
    add_switch(form, "display_silhouettes", "Silhouettes", "Dark rims", state_.look.silhouettes);
    add_switch(form, "display_occlusion", "Shadows in corners", "Hollows are darker", state_.look.occlusion);
    constexpr std::array<const char*, 6> signs{"none",     "displacement", "principal stresses",
                                               "reaction", "velocity",     "acceleration"};
    form->addRow("Arrows", glyphs_ = combo("display_glyphs", signs, "Signs at the nodes"));
    connect(glyphs_, &QComboBox::currentIndexChanged, this, [this](int row) {
        state_.glyphs = static_cast<view::Glyphs>(row);
        if (!showing_) emit changed();
    });
    glyph_scale_ = named("display_glyph_scale", new QDoubleSpinBox);
    glyph_scale_->setRange(0.1, 20);
    glyph_scale_->setSingleStep(0.1);
    form->addRow("times", glyph_scale_);
    connect(glyph_scale_, &QDoubleSpinBox::valueChanged, this, [this](double scale) {
        state_.glyph_scale = scale;
        if (!showing_) emit changed();
    });
}

// ---- from the fields into the state

double DisplayPanel::value_factor() const {
    return view::told_unit(state_.shown_contour(), shown_.ana_type(), state_.units).factor;
}

double DisplayPanel::length_factor() const {
    return view::shown_unit("m", state_.units).factor;
}

QString DisplayPanel::number(double value) const {
    return QString::number(value, 'g', 6);
}

void DisplayPanel::take_range(int row) {
    if (showing_) return;
    view::ColorScale& scale = state_.scale;
    // a fixed range begins with what is shown
    if (static_cast<view::RangeKind>(row) == view::RangeKind::fixed) {
        shown_.drawing.update(shown_.tables(), state_);
        const auto ends = shown_.drawing.picture().color_ends(scale);
        if (const auto kept = fixed_.find(contour_); kept != fixed_.end())
            std::tie(scale.low, scale.high) = std::pair(kept->second[0], kept->second[1]);
        else if (ends[1] > ends[0])
            std::tie(scale.low, scale.high) = std::pair(ends[0], ends[1]);
    }
    scale.range = static_cast<view::RangeKind>(row);
    show_state();
    emit range_changed();
    emit changed();
}

void DisplayPanel::take_fixed_range() {
    const auto low = number_in(low_), high = number_in(high_);
    const bool good = low && high && *low < *high;
    for (QLineEdit* edit : {low_, high_}) mark(edit, good);
    if (!good) return emit refused("A range wants two numbers, the first below the second");
    state_.scale.low = *low / value_factor();
    state_.scale.high = *high / value_factor();
    fixed_[contour_] = {state_.scale.low, state_.scale.high};
    emit changed();
}

void DisplayPanel::take_deformation() {
    using enum view::Deformation;
    enum Row { row_usual, row_automatic, row_true, row_factor };
    const int row = deformation_->currentIndex();
    factor_->setEnabled(row == row_factor);
    state_.deformation = row == row_usual ? usual : row == row_automatic ? automatic : fixed;
    if (row == row_true) state_.deformation_factor = 1;
    if (row == row_factor) {
        const auto factor = number_in(factor_);
        const bool good = factor && *factor >= 0;
        mark(factor_, good);
        if (!good) return emit refused("A deformation factor is a number of at least 0");
        state_.deformation_factor = *factor;
    }
    emit changed();
}

void DisplayPanel::take_values() {
    QString why;
    const auto limit = [&](QLineEdit* edit) -> std::optional<double> {
        const auto value = number_in(edit);
        const bool good = value || edit->text().trimmed().isEmpty();
        mark(edit, good);
        if (!good) why = "A threshold is a number";
        return value ? std::optional(*value / value_factor()) : std::nullopt;
    };
    const view::Threshold typed{limit(below_), limit(above_)};
    if (typed.below && typed.above && !(*typed.below < *typed.above)) {
        mark(above_, false);
        why = "Hide below wants less than hide above";
    }
    if (why.isEmpty()) state_.threshold = typed;
    std::vector<double> values;
    bool good = true;
    for (const QString& word : iso_->text().split(QRegularExpression("[\\s,;]+"), Qt::SkipEmptyParts)) {
        const auto value = parse_double(word.toStdString());
        good = good && value && std::isfinite(*value);
        if (good) values.push_back(*value / value_factor());
    }
    mark(iso_, good);
    if (good)
        state_.iso_values = values;
    else
        why = "The values of surfaces are numbers separated by blanks";
    if (!why.isEmpty()) emit refused(why);
    emit changed();
}

// At the middles of as many equal shares of the range.
void DisplayPanel::spread_iso_values(int count) {
    shown_.drawing.update(shown_.tables(), state_);
    const auto [low, high] = shown_.drawing.picture().color_ends(state_.scale);
    QStringList words;
    for (int k = 0; k < count; ++k)
        words << number(value_factor() * (low + (high - low) * (k + 0.5) / count));
    iso_->setText(words.join(' '));
    take_values();
}

// ---- sections

view::ShownSection* DisplayPanel::active() {
    const std::int32_t row = state_.active_section;
    return row >= 0 && row < std::ssize(state_.sections) ? &state_.sections[row] : nullptr;
}

void DisplayPanel::add_section(const view::ShownSection& section) {
    state_.sections.push_back(section);
    state_.active_section = static_cast<std::int32_t>(state_.sections.size()) - 1;
    show_sections();
    emit changed();
}

void DisplayPanel::add_section_through_picks() {
    const auto& picks = shown_.recent_picks();
    std::optional<view::ShownSection> section;
    if (picks.size() >= 3) {
        std::array<Vec3, 3> places;
        for (std::size_t k = 0; k < 3; ++k) places[k] = place_of(shown_.mesh(), picks[picks.size() - 3 + k]);
        section = view::section_through(places);
    }
    if (section)
        add_section(*section);
    else
        emit refused("Pick three nodes that lie on no line first");
}

void DisplayPanel::choose_section(int row) {
    if (showing_) return;
    state_.active_section = row;
    show_active_section();
    emit changed();
}

void DisplayPanel::move_section(double position) {
    view::move_to(*active(), position);
    show_sections();
    emit changed();
}

void DisplayPanel::show_sections() {
    const bool before = std::exchange(showing_, true);
    while (list_->count() > std::ssize(state_.sections)) delete list_->takeItem(list_->count() - 1);
    while (list_->count() < std::ssize(state_.sections)) list_->addItem(QString());
    const view::ShownUnit unit = view::shown_unit("m", state_.units);
    for (int k = 0; k < list_->count(); ++k) {
        list_->item(k)->setText(axis_text(state_.sections[k], unit.factor, unit.text.c_str()));
        list_->item(k)->setCheckState(state_.sections[k].on ? Qt::Checked : Qt::Unchecked);
    }
    list_->setCurrentRow(state_.active_section);
    show_active_section();
    showing_ = before;
}

void DisplayPanel::show_active_section() {
    const bool before = std::exchange(showing_, true);
    const view::ShownSection* section = active();
    for (QWidget* widget : std::initializer_list<QWidget*>{slider_, position_, flip_, remove_})
        widget->setEnabled(section);
    if (section) {
        const double position = dot(section->normal, section->point);
        const auto [low, high] = view::reach_along(shown_.box(), section->normal);
        slider_->setValue(high > low ? int(std::lround(slider_steps * (position - low) / (high - low))) : 0);
        position_->setText(number(length_factor() * position));
        mark(position_, true);
    } else {
        position_->clear();
    }
    showing_ = before;
}

// ---- from the state into the fields

void DisplayPanel::show_state() {
    const bool before = std::exchange(showing_, true);
    const view::ColorScale& scale = state_.scale;
    range_->setCurrentIndex(static_cast<int>(scale.range));
    const bool fixed = scale.range == view::RangeKind::fixed;
    for (QLineEdit* edit : {low_, high_}) {
        edit->setEnabled(fixed);
        mark(edit, true);
    }
    low_->setText(fixed ? number(value_factor() * scale.low) : QString());
    high_->setText(fixed ? number(value_factor() * scale.high) : QString());
    bands_->setValue(scale.bands == 0 ? view::least_bands - 1 : scale.bands);
    palette_->setCurrentIndex(static_cast<int>(scale.palette));
    stress_->setCurrentIndex(static_cast<int>(state_.units.stress));
    length_->setCurrentIndex(static_cast<int>(state_.units.length));
    const bool is_fixed = state_.deformation == view::Deformation::fixed;
    deformation_->setCurrentIndex(!is_fixed                        ? static_cast<int>(state_.deformation)
                                  : state_.deformation_factor == 1 ? 2
                                                                   : 3);
    factor_->setText(number(state_.deformation_factor));
    factor_->setEnabled(deformation_->currentIndex() == 3);
    const auto limit = [&](const std::optional<double>& value) {
        return value ? number(value_factor() * *value) : QString();
    };
    below_->setText(limit(state_.threshold.below));
    above_->setText(limit(state_.threshold.above));
    QStringList words;
    for (const double value : state_.iso_values) words << number(value_factor() * value);
    iso_->setText(words.join(' '));
    if (state_.iso_values.empty()) iso_count_->setValue(0);
    shading_->setCurrentIndex(static_cast<int>(state_.look.shading));
    glyphs_->setCurrentIndex(static_cast<int>(state_.glyphs));
    glyph_scale_->setValue(state_.glyph_scale);
    for (const auto& [box, place] : switches_) box->setChecked(*place);
    show_sections();
    showing_ = before;
}

void DisplayPanel::refresh() {
    std::erase_if(state_.sections, [&](const view::ShownSection& section) {
        const auto [low, high] = view::reach_along(shown_.box(), section.normal);
        const double position = dot(section.normal, section.point);
        return !(position >= low && position <= high);
    });
    if (!active()) state_.active_section = static_cast<std::int32_t>(state_.sections.size()) - 1;
    show_state();
}

void DisplayPanel::contour_changed() {
    if (state_.shown_contour() == contour_) return;
    contour_ = state_.shown_contour();
    state_.threshold = {};
    state_.iso_values.clear();
    if (state_.scale.range == view::RangeKind::fixed) {
        if (const auto kept = fixed_.find(contour_); kept != fixed_.end())
            std::tie(state_.scale.low, state_.scale.high) = std::pair(kept->second[0], kept->second[1]);
        else
            state_.scale.range = view::RangeKind::automatic;
    }
    show_state();
}

}  // namespace kestralum
