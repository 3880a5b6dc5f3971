// How much memory the process may use.
#pragma once

#include <string>

namespace kestralum {

// Physical memory, or the limit of the control group that the process runs in (its own or one above it,
// version 1 or 2) where that is smaller; millions of bytes. Read from proc/ and sys/fs/cgroup/ below `root`;
// infinity where these tell nothing.
double machine_megabytes(const std::string& root = "/");

}  // namespace kestralum
