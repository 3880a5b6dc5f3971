// What the user chooses of a picture or a film before it is saved.
#pragma once

#include <QDialog>
#include <QSize>
#include <optional>

#include "app/window/film.h"
#include "app/window/render_image.h"
#include "app/window/report_pictures.h"

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace kestralum {

// The view whose picture is saved.
struct PictureOf {
    QSize size;           // pixels
    double ratio = 1;     // of its letters and lines
    bool fitted = false;  // the model stands in it as a fit left it
};

// Rows of a form: size, background, caption.
class ImageChoice {
public:
    ImageChoice(QFormLayout& form, const PictureOf& view);
    // None where the size is not understood.
    std::optional<ImageOptions> options() const;

private:
    const PictureOf view_;
    QComboBox* size_;
    QLineEdit* other_;
    QCheckBox *white_, *caption_;
};

// The dialogs return what was chosen; nothing when cancelled or where a size was not understood, which is
// said.
std::optional<ImageOptions> ask_for_picture(QWidget* parent, const PictureOf& view);

struct FilmChoice {
    FilmFormat format = FilmFormat::gif;
    FilmRange range;
    int fps = 20;
    bool all_frames_range = true;  // colours mean the same in all of it
    ImageOptions image;
};
// Of a run with `mode_num` frames, of which `frame` is shown.
std::optional<FilmChoice> ask_for_film(QWidget* parent, const PictureOf& view, AnalysisType ana_type,
                                       int mode_num, int frame);

// `results`: there are some, and quantities to choose from.
std::optional<ReportChoice> ask_for_report(QWidget* parent, bool results);

}  // namespace kestralum
