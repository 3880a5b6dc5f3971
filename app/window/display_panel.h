// How results are shown: colours, deformation, sections, thresholds, look. Fields of the display state; what
// is typed holds at once.
#pragma once

#include <QWidget>
#include <array>
#include <functional>
#include <map>

#include "app/window/shown_model.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QSlider;
class QSpinBox;
class QToolButton;
class QVBoxLayout;

namespace kestralum {

class DisplayPanel : public QWidget {
    Q_OBJECT

public:
    explicit DisplayPanel(ShownModel& shown, QWidget* parent = nullptr);

public slots:
    // Another model or run stands there: sections that do not meet it go.
    void refresh();
    // Another quantity colours it: its thresholds and surfaces go, its fixed range comes back.
    void contour_changed();
    // The state was changed elsewhere: the fields follow.
    void show_state();

signals:
    void changed();        // the picture is another one
    void range_changed();  // by the panel: the toggle of all frames follows
    void refused(const QString& why);
    void extreme_asked(bool largest);  // go there

private:
    QFormLayout* add_group(QVBoxLayout* column, const char* title);
    void make_colors(QVBoxLayout* column);
    void make_deformation(QVBoxLayout* column);
    void make_sections(QVBoxLayout* column);
    void make_values(QVBoxLayout* column);
    void make_look(QVBoxLayout* column);
    QCheckBox* add_switch(QFormLayout* form, const char* name, const char* text, const char* tip,
                          bool& place);
    QLineEdit* add_value(QFormLayout* form, const char* name, const char* label, const char* tip);
    void when_typed(QLineEdit* edit, std::function<void()> take);
    void take_range(int row);
    void take_fixed_range();
    void take_deformation();
    void take_values();
    void spread_iso_values(int count);
    void add_section(const view::ShownSection& section);
    void add_section_through_picks();
    void choose_section(int row);
    void move_section(double position);
    void show_sections();
    void show_active_section();
    view::ShownSection* active();
    double value_factor() const;  // shown unit over the quantity's own
    double length_factor() const;
    QString number(double value) const;

    ShownModel& shown_;
    view::DisplayState& state_;
    std::int32_t contour_ = -1;                            // the quantity that the fields are of
    std::map<std::int32_t, std::array<double, 2>> fixed_;  // ranges by quantity, in its own unit
    bool showing_ = false;                                 // fields are written by the panel

    QComboBox *range_ = nullptr, *palette_ = nullptr, *stress_ = nullptr, *length_ = nullptr,
              *deformation_ = nullptr, *shading_ = nullptr, *glyphs_ = nullptr;
    QSpinBox *bands_ = nullptr, *iso_count_ = nullptr;
    QDoubleSpinBox* glyph_scale_ = nullptr;
    QLineEdit *low_ = nullptr, *high_ = nullptr, *factor_ = nullptr, *position_ = nullptr, *below_ = nullptr,
              *above_ = nullptr, *iso_ = nullptr;
    QListWidget* list_ = nullptr;
    QSlider* slider_ = nullptr;
    QToolButton *flip_ = nullptr, *remove_ = nullptr;
    std::vector<std::pair<QCheckBox*, bool*>> switches_;
};

}  // namespace kestralum
