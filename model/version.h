// The program's version. The number stands in CMakeLists.txt alone and is compiled into one file.
#pragma once

namespace kestralum {

extern const char* const program_version;  // "verMAJOR.MINOR", the first line of every result file

}  // namespace kestralum
