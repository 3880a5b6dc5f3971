#include "input/file_parameters.h"

#include "input/model_sections.h"
#include "model/paths.h"

namespace kestralum {

std::vector<FileParameter> file_parameters(const std::string& model_file_name, std::string& error,
                                           const Progress& progress) {
    std::string text, reason;
    error.clear();
    if (paths::read_text(model_file_name, text, reason)) return text_parameters(text, progress);
    error = model_file_name + ": " + reason;
    return {};
}

std::vector<FileParameter> text_parameters(std::string_view text, const Progress& progress) {
    std::vector<FileParameter> parameters;
    for (const FileSection& section : split_sections(text, progress).sections) {
        if (section.keyword != Keyword::parameter) continue;
        parameters.clear();
        for (std::size_t k = 0; k + 1 < section.tokens.size(); k += 2)
            parameters.push_back(
                {std::string(section.tokens[k].text), std::string(section.tokens[k + 1].text)});
    }
    return parameters;
}

}  // namespace kestralum
