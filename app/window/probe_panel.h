// Nodes that are followed: their values as a table, the distance of two of them, and values along lines, sets
// and frames as curves. The nodes are those of the display state, which the picture marks.
#pragma once

#include <QColor>
#include <QWidget>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "app/probes.h"
#include "app/window/number_table.h"
#include "app/window/shown_model.h"

class QCheckBox;
class QComboBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTableWidget;
class QTimer;
class QToolButton;
class QVBoxLayout;

namespace kestralum {

class CurveView;

class ProbePanel : public QWidget {
    Q_OBJECT

public:
    explicit ProbePanel(ShownModel& shown, QWidget* parent = nullptr);

    // What the table tells, in the units shown.
    NumberTable table();
    // What the chart draws; no columns where it draws nothing.
    const History& plotted() const { return plotted_; }

public slots:
    // Another model or run: probes stay at their places where its mesh has nodes there.
    void refresh();
    // The picture may be another one: the numbers follow soon.
    void follow();
    // That was clicked, from 1; 0 none.
    void pick_node(int node);
    void stop_adding();  // by clicks
    void copy();

signals:
    void changed();  // the picture has other marks, or looks elsewhere
    void told(const QString& line);
    void refused(const QString& why);
    void frame_chosen(int frame);  // from 1

protected:
    void showEvent(QShowEvent* event) override;

private:
    void make_layout();
    QHBoxLayout* make_buttons();
    QHBoxLayout* make_plot_fields();
    void add(std::int32_t node);
    void add_typed();
    void remove(std::vector<int> rows);  // ascending
    void take_nodes();
    std::vector<int> chosen_rows() const;
    std::optional<std::pair<int, int>> pair() const;
    void update_all();
    void show_distance();
    void list_sets();
    void plot();
    void draw(bool split);
    QString nothing_to_plot() const;
    History made_plot();
    const std::vector<LinePoint>& line(const Vec3& from, const Vec3& to);
    std::vector<double> values_of(const Mesh& nodes, const Frame& at_nodes);
    ToldQuantity told_quantity() const;
    double value(int row) const;  // of the quantity, in its own unit; not a number where there is none
    const view::Picture& picture() const { return shown_.drawing.picture(); }
    void look_at_mesh();

    ShownModel& shown_;
    view::DisplayState& state_;
    struct Kept {
        std::int32_t node = 0, element = -1;  // 0-based
        Vec3 place{};                         // m, at rest
    };
    std::vector<Kept> kept_;  // state_.probes, and where they are
    struct Key {
        std::uint64_t colors = 0, places = 0;
        std::int32_t frame = 0, frames = 0, contour = -1;
        view::DisplayUnits units{};
        std::vector<std::int32_t> probes;
        bool operator==(const Key&) const = default;
    };
    Key key() const;
    Key known_;                // what the numbers are of
    bool stale_ = true;        // not brought up to date since the panel was hidden
    History plotted_, drawn_;  // with places, and in pieces for the chart
    std::string drawn_axis_;
    // of the mesh shown, once they are wanted
    std::weak_ptr<const void> found_of_;
    std::optional<Locator> locator_;
    std::vector<LinePoint> line_;
    std::vector<std::int32_t> materials_;

    QTableWidget* table_;
    CurveView* chart_;
    QLabel *distance_, *empty_, *pointed_;
    QCheckBox* clicks_;
    QLineEdit* node_;
    QComboBox *kind_, *set_, *over_;
    QSpinBox* points_;
    QToolButton *remove_, *clear_, *copy_, *save_, *save_plot_;
    QTimer* soon_;
};

}  // namespace kestralum
