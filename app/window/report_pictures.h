// The pictures of a report, and its file.
#pragma once

#include <QString>
#include <cstdint>
#include <string>
#include <vector>

#include "app/window/report_page.h"
#include "app/window/shown_model.h"

namespace kestralum {

struct ReportChoice {
    bool model = true;                     // with its supports and loads, undeformed
    bool current = true;                   // what is shown, as it is shown
    bool sides = false;                    // the same from the front, the right and above
    std::vector<std::int32_t> quantities;  // rows of the quantity table, seen as the view is
    bool fit = false;                      // the current view is fitted too
};

// Draws with the context that is current; the display state and the camera come back as they were. Where a
// picture cannot be drawn there is none, and `error` says why.
std::vector<ReportPicture> draw_report_pictures(ShownModel& shown, const ReportChoice& choice,
                                                QString& error);

// Makes the page of what is shown and writes it, the whole file or none. Why that was not possible; empty:
// done.
QString write_report(const ShownModel& shown, const ReportTexts& texts, std::vector<ReportPicture> pictures,
                     const QString& file_name);

}  // namespace kestralum
