// Settings as Python gives them: the labels and values of a settings file.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/settings.h"

namespace kestralum::python {

class SettingsText {
public:
    // The values that the program is shipped with.
    SettingsText();
    // Those of a settings file; what is wrong with it, one line, empty if nothing.
    std::string read(const std::string& file_name);
    // Another value of a label; why it is refused, one line, empty if it is not.
    std::string set(std::string_view label, const std::string& value);

    // As the reader of settings files understands them. Asks OpenMP for a team.
    Settings settings() const;

    const std::vector<std::pair<std::string, std::string>>& values() const { return values_; }

private:
    std::string text() const;
    std::vector<std::pair<std::string, std::string>> values_;  // label and value, in the order of a file
};

}  // namespace kestralum::python
