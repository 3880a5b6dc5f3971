// What every process that runs analyses does for itself.
#pragma once

#include <string>

namespace kestralum {

// One run at a time in a log folder.
class LogLock {
public:
    LogLock() = default;
    ~LogLock();
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

    // Makes the folder and takes its lock, kept until the object ends. False with a line when another
    // run holds it or the folder cannot be used.
    bool take();

private:
    int file_ = -1;
};

// Starts the program again with the matrix kernels that this processor deserves; goes on as it is
// where that is not needed, not possible, or the environment has chosen.
void use_best_kernels(char** argv);

// What to tell the user where the environment has chosen slower kernels; otherwise empty.
std::string slow_kernels_note();

}  // namespace kestralum
