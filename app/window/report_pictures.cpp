#include "app/window/report_pictures.h"

#include <QDateTime>
#include <utility>

#include "app/window/render_image.h"
#include "app/window/saved_file.h"
#include "view/legend.h"

namespace kestralum {

namespace {

constexpr QSize picture_size{1000, 700};

// The display as it was, once the object ends.
class KeptDisplay {
public:
    explicit KeptDisplay(ShownModel& shown) : shown_(shown), state_(shown.state), camera_(shown.camera) {}
    ~KeptDisplay() { put_back(); }
    KeptDisplay(const KeptDisplay&) = delete;
    KeptDisplay& operator=(const KeptDisplay&) = delete;
    void put_back() {
        shown_.state = state_;
        shown_.camera = camera_;
    }

private:
    ShownModel& shown_;
    const view::DisplayState state_;
    const view::Camera camera_;
};

// "Mode1___12.34[Hz], Mises Stress", "Mises Stress, step 3/10 …"; "Model" without results.
std::string title_of(const ShownModel& shown) {
    const view::SceneTables tables = shown.tables();
    const std::int32_t contour = shown.state.shown_contour();
    std::string out;
    if (shown.state.result_ready)
        out = view::legend_text(tables.ana_type(), contour, tables.frames(), tables.model.control,
                                shown.state.frame);
    if (out.empty()) return "Model";
    const std::string quantity = view::quantity_text(contour);
    return has_shapes(tables.ana_type()) && !quantity.empty() ? out + ", " + quantity : out;
}

class Painter {
public:
    Painter(ShownModel& shown, QString& error) : shown_(shown), error_(error) {}

    void add(const std::string& title, bool fit) {
        ImageOptions options;
        options.size = picture_size;
        options.fit = fit;
        options.whole_width = true;
        options.white = true;
        const QImage image = render_image(shown_, options, error_);
        if (!image.isNull()) pictures_.push_back({title, coded(image, "png").toBase64().toStdString()});
    }
    std::vector<ReportPicture> pictures() { return std::move(pictures_); }

private:
    ShownModel& shown_;
    QString& error_;
    std::vector<ReportPicture> pictures_;
};

void show_quantity(view::DisplayState& state, std::int32_t row) {
    state.further = row >= view::plastic_strain_row ? row : 0;
    state.contour = state.further > 0 ? -1 : row;
}

}  // namespace

std::vector<ReportPicture> draw_report_pictures(ShownModel& shown, const ReportChoice& choice,
                                                QString& error) {
    KeptDisplay kept(shown);
    Painter painter(shown, error);
    shown.state.phase = 0;  // a mode at its peak
    if (choice.model) {
        shown.state.result_ready = false;
        shown.state.contour = static_cast<std::int32_t>(view::quantities.size()) - 1;
        painter.add("Model with supports and loads", true);
        kept.put_back();
    }
    shown.state.phase = 0;
    if (choice.current) painter.add(title_of(shown), choice.fit);
    if (choice.sides)
        for (const auto& [direction, from] : {std::pair{view::ViewDirection::minus_y, "from the front"},
                                              {view::ViewDirection::x, "from the right"},
                                              {view::ViewDirection::z, "from above"}}) {
            view::look_from(shown.camera, direction);
            painter.add(title_of(shown) + ", " + from, true);
        }
    for (const std::int32_t row : choice.quantities) {
        kept.put_back();
        shown.state.phase = 0;
        show_quantity(shown.state, row);
        painter.add(title_of(shown), choice.fit);
    }
    return painter.pictures();
}

QString write_report(const ShownModel& shown, const ReportTexts& texts, std::vector<ReportPicture> pictures,
                     const QString& file_name) {
    const std::string time = QDateTime::currentDateTime().toString("yyyy-MM-dd HH:mm").toStdString();
    const QByteArray html = QString::fromStdString(report_html({*shown.store.model, shown.store.run.get(),
                                                                texts, std::move(pictures), time}))
                                .toUtf8();
    return save_whole(file_name, {html.constData(), static_cast<std::size_t>(html.size())});
}

}  // namespace kestralum
