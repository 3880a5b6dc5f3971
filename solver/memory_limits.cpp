#include "solver/memory_limits.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>

#include "model/token_reader.h"

namespace kestralum {

namespace {

namespace fs = std::filesystem;

constexpr double no_limit = std::numeric_limits<double>::infinity();

// "MemTotal:  24681472 kB"
double physical_bytes(const fs::path& root) {
    std::ifstream file(root / "proc/meminfo");
    for (std::string word; file >> word;)
        if (word == "MemTotal:" && file >> word) {
            if (const auto kilobytes = parse_int64(word)) return 1024.0 * static_cast<double>(*kilobytes);
            break;
        }
    return no_limit;
}

// A file with one number; version 2 writes "max" where there is no limit, version 1 a number near 2⁶³.
double limit_in(const fs::path& name) {
    std::ifstream file(name);
    std::string word;
    if (!(file >> word)) return no_limit;
    const auto bytes = parse_int64(word);
    return bytes && *bytes > 0 ? static_cast<double>(*bytes) : no_limit;
}

// The smallest limit of `group` below `mount` and of the groups above it. A container often sees its own
// group as the mount itself, while `group` is its path on the host: what is not there limits nothing.
double smallest_limit(const fs::path& mount, std::string_view group, const char* file) {
    double bytes = limit_in(mount / file);
    fs::path at = fs::path(group).relative_path();
    for (; !at.empty(); at = at.parent_path()) bytes = std::min(bytes, limit_in(mount / at / file));
    return bytes;
}

// Lines "number:controllers:/group": no controllers in version 2, "memory" among them in version 1.
double group_bytes(const fs::path& root) {
    const fs::path mount = root / "sys/fs/cgroup";
    double bytes = no_limit;
    std::ifstream file(root / "proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        const std::size_t first = line.find(':'), second = line.find(':', first + 1);
        if (first == line.npos || second == line.npos) continue;
        const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
        const std::string_view group = std::string_view(line).substr(second + 1);
        if (controllers == ",,")
            bytes = std::min(bytes, smallest_limit(mount, group, "memory.max"));
        else if (controllers.find(",memory,") != controllers.npos)
            bytes = std::min(bytes, smallest_limit(mount / "memory", group, "memory.limit_in_bytes"));
    }
    return bytes;
}

}  // namespace

double machine_megabytes(const std::string& root) {
    return std::min(physical_bytes(root), group_bytes(root)) / 1e6;
}

}  // namespace kestralum
