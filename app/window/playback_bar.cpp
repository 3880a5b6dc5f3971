#include "app/window/playback_bar.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QToolButton>
#include <utility>

namespace kestralum {

QString frame_place(const Run& run, int frame) {
    if (frame < 1 || frame > run.mode_num()) return {};
    const Frame& shown = *run.results[frame - 1];
    const QString number = QString::number(shown.n_freq, 'g', 6);
    switch (run.ana_type) {
        case AnalysisType::explicit_dynamics:
            return number + " s";
        case AnalysisType::eigen:
            return number + " Hz";
        case AnalysisType::linear_static:
            return shown.name.empty() ? QString() : "load case " + QString::fromStdString(shown.name);
        default:
            return "load factor " + number;
    }
}

PlaybackBar::PlaybackBar(view::DisplayState& state, std::function<const Run*()> run, QWidget* parent)
    : QWidget(parent),
      state_(state),
      run_(std::move(run)),
      slider_(new QSlider(Qt::Horizontal)),
      place_(new QLabel),
      speed_(new QComboBox) {
    setObjectName("playback_bar");
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(4, 0, 4, 0);
    row->setSpacing(2);
    const auto add = [&](const char* name, QStyle::StandardPixmap icon, const char* tip,
                         std::function<void()> action) {
        QToolButton* button = add_button(name, icon, tip, std::move(action));
        row->addWidget(button);
        return button;
    };
    first_ = add("playback_first", QStyle::SP_MediaSkipBackward, "First frame", [this] { choose(1); });
    back_ = add("playback_back", QStyle::SP_MediaSeekBackward, "One frame back",
                [this] { choose(state_.frame - 1); });
    play_ = add("playback_play", QStyle::SP_MediaPlay, "", [this] { play_or_pause(); });
    forward_ = add("playback_forward", QStyle::SP_MediaSeekForward, "One frame forward",
                   [this] { choose(state_.frame + 1); });
    last_ = add("playback_last", QStyle::SP_MediaSkipForward, "Last frame",
                [this] { choose(run_() ? run_()->mode_num() : 0); });
    repeat_ = add("playback_repeat", QStyle::SP_BrowserReload, "Go on from the first frame after the last",
                  [this] { state_.animation_repeats = state_.animation_running && repeat_->isChecked(); });
    repeat_->setCheckable(true);

    slider_->setObjectName("playback_slider");
    slider_->setPageStep(10);
    slider_->setToolTip("The frame that is drawn");
    connect(slider_, &QSlider::valueChanged, this, [this](int frame) { choose(frame); });
    row->addWidget(slider_, 1);
    place_->setObjectName("playback_place");
    place_->setMinimumWidth(
        place_->fontMetrics().horizontalAdvance("1000 / 1000   load factor -1.23457e-05"));
    row->addWidget(place_);
    speed_->setObjectName("playback_speed");
    for (const double speed : view::speeds) speed_->addItem(QString::number(speed) + "x", speed);
    speed_->setToolTip("Speed; at 1x there are 20 frames a second, as far as they are drawn so fast");
    connect(speed_, &QComboBox::activated, this, [this] { state_.speed = speed_->currentData().toDouble(); });
    row->addWidget(speed_);

    refresh();
}

QToolButton* PlaybackBar::add_button(const char* name, int icon, const char* tip,
                                     std::function<void()> action) {
    auto* button = new QToolButton;
    button->setObjectName(name);
    button->setIcon(style()->standardIcon(static_cast<QStyle::StandardPixmap>(icon)));
    button->setToolTip(tip);
    button->setAutoRaise(true);
    connect(button, &QToolButton::clicked, this, std::move(action));
    return button;
}

bool PlaybackBar::runs() const {
    const Run* run = run_();
    return run && (has_shapes(run->ana_type) ? state_.mode_swings : state_.animation_running);
}

void PlaybackBar::choose(int frame) {
    emit frame_chosen(view::clamp_frame(frame, run_() ? run_()->mode_num() : 0));
    refresh();
}

void PlaybackBar::play_or_pause() {
    const Run* run = run_();
    if (!run || run->mode_num() == 0) return;
    if (has_shapes(run->ana_type))
        state_.mode_swings = !state_.mode_swings;
    else if (state_.animation_running)
        state_.animation_running = false;
    else if (has_steps(run->ana_type))
        view::play(state_, run->mode_num(), repeat_->isChecked());
    refresh();
}

void PlaybackBar::refresh() {
    const Run* run = run_();
    const int frames = run ? run->mode_num() : 0, frame = view::clamp_frame(state_.frame, frames);
    const bool shapes = run && has_shapes(run->ana_type), steps = run && has_steps(run->ana_type);
    // whatever is set here is drawn anew, and the whole picture put together again
    const Shown now{run, frames, frame, runs(), state_.speed};
    if (std::exchange(shown_, now) == now) return;
    const QSignalBlocker quiet(slider_);
    slider_->setRange(std::min(frames, 1), frames);
    if (!slider_->isSliderDown()) slider_->setValue(frame);
    slider_->setEnabled(frames > 1);
    for (QToolButton* button : {first_, back_}) button->setEnabled(frame > 1);
    for (QToolButton* button : {forward_, last_}) button->setEnabled(frame < frames);
    play_->setEnabled((shapes && frames > 0) || (steps && frames > 1));
    play_->setIcon(style()->standardIcon(runs() ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    play_->setToolTip(!shapes  ? (runs() ? "Stop here" : "Play from here")
                      : runs() ? "Stop the mode at its peak"
                               : "Let the mode swing");
    repeat_->setEnabled(steps && frames > 1);
    speed_->setEnabled(shapes || steps);
    if (const int entry = speed_->findData(state_.speed); entry >= 0 && !speed_->view()->isVisible())
        speed_->setCurrentIndex(entry);
    place_->setText(frames == 0
                        ? QString("no frames")
                        : QString("%1 / %2   %3").arg(frame).arg(frames).arg(frame_place(*run, frame)));
}

}  // namespace kestralum
