#include "app/program_path.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace kestralum {

std::string program_on_path(const std::string& name) {
    const char* const folders = std::getenv("PATH");
    std::istringstream list(folders ? folders : "");
    for (std::string folder; std::getline(list, folder, ':');)
        if (const std::string file = folder + "/" + name; ::access(file.c_str(), X_OK) == 0) return file;
    return {};
}

std::string program_beside(const std::string& name) {
    std::error_code fault;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", fault).parent_path() / name;
    return !fault && ::access(program.c_str(), X_OK) == 0 ? program.string() : std::string();
}

std::string shared_file(const std::string& name) {
    namespace fs = std::filesystem;
    std::error_code fault, none;
    if (fs::exists(name, none)) return name;
    const fs::path beside = fs::read_symlink("/proc/self/exe", fault).parent_path(),
                   above = beside.parent_path();
    if (fault) return name;
    for (const fs::path& folder : {beside, above, above / "share/kestralum"})
        if (fs::is_regular_file(folder / name, none)) return folder / name;
    return name;
}

}  // namespace kestralum
