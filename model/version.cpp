#include "model/version.h"

namespace kestralum {

const char* const program_version = "ver" KESTRALUM_VERSION;

}  // namespace kestralum
