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
    const fs::path installed =
        fs::read_symlink("/proc/self/exe", fault).parent_path().parent_path() / "share/kestralum" / name;
    return !fault && fs::is_regular_file(installed, none) ? installed.string() : name;
}

}  // namespace kestralum
