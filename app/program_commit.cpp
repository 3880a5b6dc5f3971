#include "app/program_commit.h"

#include "commit_text.h"  // made by scripts/commit.cmake

namespace kestralum {

const char* const program_commit = KESTRALUM_COMMIT;

}  // namespace kestralum
