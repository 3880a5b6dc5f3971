// A report of a model and its run: one HTML file that stands for itself. No Qt here.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "model/settings.h"
#include "system/model_check.h"

namespace kestralum {

struct ReportPicture {
    std::string title;
    std::string png_base64;
};

// What is computed for a report of a model and a run (null: none): the check of a model that was read from a
// model file, and what `check`, the summary of the run and its sections print.
struct ReportTexts {
    std::optional<ModelCheck> check;
    std::string check_text, run_text;
};
// May take as long as a check; sees a cancel.
ReportTexts report_texts(const Model& model, const Run* run, const Settings& settings,
                         const Progress& progress);

struct ReportPage {
    const Model& model;
    const Run* run = nullptr;
    const ReportTexts& texts;
    std::vector<ReportPicture> pictures;
    std::string time;  // when it is made
};

// The whole file: no scripts, nothing from outside; every text of the model as it stands.
std::string report_html(const ReportPage& page);

}  // namespace kestralum
