#include "model/paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace kestralum::paths {

namespace {

std::string& log_directory_in_force() {
    static std::string directory = "log";
    return directory;
}

std::string with_slashes(std::string_view stored) {
    std::string name(stored);
    for (char& c : name)
        if (c == '\\') c = '/';
    return name;
}

}  // namespace

std::string to_platform(std::string_view stored) {
    std::string name = with_slashes(stored);
    if (stored.starts_with("log\\")) name = log_directory() + name.substr(3);
    return name;
}

void set_log_directory(std::string_view directory) {
    std::string& in_force = log_directory_in_force();
    in_force = with_slashes(directory);
    while (in_force.size() > 1 && in_force.back() == '/') in_force.pop_back();
}

const std::string& log_directory() {
    return log_directory_in_force();
}

int last_separator(std::string_view stored) {
    const std::size_t at = stored.find_last_of("\\/");
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string base_name(std::string_view stored) {
    return std::string(stored.substr(static_cast<std::size_t>(last_separator(stored) + 1)));
}

std::string directory_of(std::string_view stored) {
    return std::string(stored.substr(0, static_cast<std::size_t>(last_separator(stored) + 1)));
}

File open(std::string_view stored, const char* mode) {
    const std::string name = to_platform(stored);
    std::error_code ignored;
    if (std::filesystem::is_directory(name, ignored)) {
        errno = EISDIR;
        return nullptr;
    }
    return File(std::fopen(name.c_str(), mode));
}

bool read_text(std::string_view stored, std::string& text, std::string& error) {
    text.clear();
    File file = open(stored, "rb");
    if (!file) {
        error = std::strerror(errno);
        return false;
    }
    struct stat what;
    if (::fstat(::fileno(file.get()), &what) == 0 &&
        (S_ISCHR(what.st_mode) || S_ISDIR(what.st_mode))) {  // a device may never end
        error = "not a file";
        return false;
    }
    char block[1 << 16];
    std::size_t count;
    while ((count = std::fread(block, 1, sizeof block, file.get())) > 0) text.append(block, count);
    if (std::ferror(file.get())) {
        error = std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace kestralum::paths
