#include "model/paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace kestralum::paths {

namespace {

std::string with_slashes(std::string_view stored) {
    std::string name(stored);
    for (char& c : name)
        if (c == '\\') c = '/';
    return name;
}

}  // namespace

std::string to_platform(std::string_view stored, std::string_view log_folder) {
    std::string name = with_slashes(stored);
    if (!stored.starts_with("log\\")) return name;
    std::string folder = with_slashes(log_folder);
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder + name.substr(3);
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

File open(std::string_view stored, const char* mode, std::string_view log_folder) {
    const std::string name = to_platform(stored, log_folder);
    std::error_code ignored;
    if (std::filesystem::is_directory(name, ignored)) {
        errno = EISDIR;
        return nullptr;
    }
    return File(std::fopen(name.c_str(), mode));
}

bool read_text(std::string_view stored, std::string& text, std::string& error, std::string_view log_folder) {
    text.clear();
    File file = open(stored, "rb", log_folder);
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
