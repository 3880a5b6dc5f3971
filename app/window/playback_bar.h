// The bar below the picture: the frame that is drawn, and the buttons that move through the others.
#pragma once

#include <QWidget>
#include <functional>

#include "model/run.h"
#include "view/display_state.h"

class QComboBox;
class QLabel;
class QSlider;
class QToolButton;

namespace kestralum {

class PlaybackBar : public QWidget {
    Q_OBJECT

public:
    // `state` outlives the bar; `run` gives the run that is shown, null where there is none.
    PlaybackBar(view::DisplayState& state, std::function<const Run*()> run, QWidget* parent = nullptr);

public slots:
    // Brings the bar up to date with the state and the run: after each picture that is drawn.
    void refresh();

    // Runs the animation, or lets a mode swing; stops it, which leaves a mode at its peak.
    void play_or_pause();

signals:
    void frame_chosen(int frame);  // from 1

private:
    QToolButton* add_button(const char* name, int icon, const char* tip, std::function<void()> action);
    void choose(int frame);
    bool runs() const;

    view::DisplayState& state_;
    const std::function<const Run*()> run_;
    QToolButton *first_, *back_, *play_, *forward_, *last_, *repeat_;
    QSlider* slider_;
    QLabel* place_;
    QComboBox* speed_;
    struct Shown {
        const Run* run = nullptr;
        int frames = -1, frame = -1;
        bool runs = false;
        double speed = 0;
        bool operator==(const Shown&) const = default;
    } shown_;
};

// Where a frame stands: "0.0012 s", "load factor 0.5", "123.4 Hz", "load case WIND"; "" for none.
QString frame_place(const Run& run, int frame);

}  // namespace kestralum
