#include "app/python/settings_text.h"

#include <algorithm>
#include <array>

#include "input/settings_reader.h"
#include "model/paths.h"
#include "model/progress.h"
#include "model/token_reader.h"

namespace kestralum::python {

namespace {

// In the order of a settings file: the eleven, and those whose label decides.
constexpr std::array<std::array<const char*, 2>, 13> shipped{{
    {"MEMORY_SIZE", "8000"},
    {"FREE_HD_SIZE", "40000"},
    {"VIEW_FOVY", "45.0"},
    {"VIEW_C_zNear", "0.01"},
    {"VIEW_C_zFar", "100.0"},
    {"ORDERING_TYPE", "LALL"},
    {"C_EIGEN_SHIFT", "0.5"},
    {"DIV_MEMORY_SIZE", "1"},
    {"NL_STATIC", "stop"},
    {"NL_CONV", "1e-6"},
    {"N_THREADS", "MAX"},
    {"SOLVER", "auto"},
    {"SOLVER_TOL", "1e-10"},
}};
constexpr std::size_t by_place = 11;

class FirstNotice : public Progress {
public:
    FirstNotice() : Progress(false) {}
    std::string text;

protected:
    void take(Kind kind, std::string_view line) override {
        if (kind == Kind::notice && text.empty()) text = line.substr(0, line.find('\n'));
    }
};

}  // namespace

SettingsText::SettingsText() {
    for (const auto& [label, value] : shipped) values_.emplace_back(label, value);
}

std::string SettingsText::read(const std::string& file_name) {
    std::string text, reason;
    if (!paths::read_text(file_name, text, reason)) return paths::to_platform(file_name) + ": " + reason;
    FirstNotice notice;
    parse_settings(text, file_name, 1, notice);
    if (!notice.text.empty()) return notice.text;
    TokenReader tokens(text);
    tokens.skip(2);
    for (std::size_t k = 0; k < by_place; ++k) {
        tokens.next();
        values_[k].second = tokens.next();
    }
    for (std::string label(tokens.next()); !label.empty(); label = tokens.next())
        for (std::size_t k = by_place; k < values_.size(); ++k)
            if (label == values_[k].first) values_[k].second = tokens.next();
    return {};
}

std::string SettingsText::set(std::string_view label, const std::string& value) {
    const auto at = std::ranges::find(values_, label, &std::pair<std::string, std::string>::first);
    if (at == values_.end()) {
        std::string labels;
        for (const auto& [name, of_file] : values_) labels += (labels.empty() ? "" : ", ") + name;
        return "settings: no label '" + std::string(label) + "'; there are " + labels;
    }
    const std::string former = std::exchange(at->second, value);
    FirstNotice notice;
    const bool one_word = !value.empty() && value.find_first_of(" \t\r\n") == std::string::npos;
    if (one_word) parse_settings(text(), "settings", 1, notice);
    if (one_word && notice.text.empty()) return {};
    at->second = former;
    return one_word ? notice.text : "settings: " + std::string(label) + "='" + value + "' is not one word";
}

std::string SettingsText::text() const {
    std::string text = "KESTRALUM settings\n";
    for (const auto& [label, value] : values_) text += label + " " + value + "\n";
    return text;
}

Settings SettingsText::settings() const {
    FirstNotice ignored;
    return parse_settings(text(), "settings", count_available_threads(), ignored);
}

}  // namespace kestralum::python
