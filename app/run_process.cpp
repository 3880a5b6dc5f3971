#include "app/run_process.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "model/console.h"
#include "model/paths.h"
#include "solver/panels.h"

namespace kestralum {

LogLock::~LogLock() {
    if (file_ >= 0) ::close(file_);
}

bool LogLock::take() {
    const std::string& directory = paths::log_directory();
    std::error_code reason;
    std::filesystem::create_directories(directory, reason);
    const std::string name = directory + "/.lock";
    file_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file_ < 0) {
        console::error("the folder %s cannot be written: %s", directory.c_str(), std::strerror(errno));
        return false;
    }
    if (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
        console::error("another run is using the folder %s: give this one its own with --log",
                       directory.c_str());
        ::close(file_);
        file_ = -1;
        return false;
    }
    return true;
}

void use_best_kernels(char** argv) {
    const char* kernels = better_blas_kernels();
    if (!kernels || std::getenv("OPENBLAS_CORETYPE") || ::setenv("OPENBLAS_CORETYPE", kernels, 0) != 0)
        return;
    ::execv("/proc/self/exe", argv);
}

std::string slow_kernels_note() {
    const char* kept = std::getenv("OPENBLAS_CORETYPE");
    const char* better = better_blas_kernels();
    if (!kept || !better) return {};
    return console::format(
        "OPENBLAS_CORETYPE=%s of the environment is kept: without it %s would be taken, faster on this "
        "processor",
        kept, better);
}

}  // namespace kestralum
