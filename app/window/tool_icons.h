// The icons of the tool bars, drawn here so that they follow the colours of the desktop.
#pragma once

#include <QIcon>
#include <QWidget>

namespace kestralum {

enum class ToolIcon {
    check,
    statics,
    eigen,
    nonlinear,
    explicit_run,
    fit,
    x,
    y,
    z,
    iso,
    rotate,
    contour,
    plastic,
    all_frames,
    auto_scale,
};

// In the colours of the widget's text and highlight.
QIcon tool_icon(ToolIcon icon, const QWidget& widget);

}  // namespace kestralum
