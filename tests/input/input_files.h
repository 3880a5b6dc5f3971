// Files for the tests of the readers, in a folder of their own that goes with the object.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace kestralum::test {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::random_device seed;
        path_ = std::filesystem::temp_directory_path() / ("kestralum_input_" + std::to_string(seed()));
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string name(const std::string& file) const { return (path_ / file).string(); }
    std::string write(const std::string& file, const std::string& text) const {
        std::ofstream(name(file), std::ios::binary) << text;
        return name(file);
    }

private:
    std::filesystem::path path_;
};

}  // namespace kestralum::test
