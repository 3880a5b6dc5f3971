// What this program was built from.
#pragma once

namespace kestralum {

// "1a2b3c4d5e", or "1a2b3c4d5e with changes" where files differed from that commit; "" where the sources were
// in no repository.
extern const char* const program_commit;

}  // namespace kestralum
