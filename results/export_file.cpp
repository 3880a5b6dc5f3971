#include "results/export_file.h"

#include <cctype>

#include "model/paths.h"

namespace kestralum {

std::optional<ExportFormat> export_format(std::string_view file_name) {
    const std::string name = paths::base_name(file_name);
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return {};
    std::string ending = name.substr(dot + 1);
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ending == "inp") return ExportFormat::inp;
    if (ending == "msh") return ExportFormat::msh;
    if (ending == "vtu") return ExportFormat::vtu;
    if (ending == "stl") return ExportFormat::stl;
    return {};
}

bool export_file(ExportFormat format, const ExportJob& job) {
    switch (format) {
        case ExportFormat::inp:
            return export_inp(job);
        case ExportFormat::msh:
            return export_msh(job);
        case ExportFormat::vtu:
            return export_vtu(job);
        case ExportFormat::stl:
            break;
    }
    return export_stl(job);
}

}  // namespace kestralum
