// A folder of its own for one test, with the log directory inside; removed at the end.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "model/paths.h"

namespace kestralum::testing {

class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestralum_test_XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directory(path_ / "log");
        former_log_ = paths::log_directory();
        paths::set_log_directory((path_ / "log").string());
    }
    ~TempFolder() {
        paths::set_log_directory(former_log_);
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path_ / name, std::ios::binary) << text;
        return file(name);
    }

private:
    std::filesystem::path path_;
    std::string former_log_;
};

inline std::string read_file(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

}  // namespace kestralum::testing
