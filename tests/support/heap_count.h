// What the process holds of the heap: malloc and its kin are replaced by ones that count, in the test
// programs that link heap_count.cpp.
#pragma once

#include <atomic>
#include <cstdint>

namespace kestralum::testing {

// A sanitizer brings a heap of its own: nothing is counted beside it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTRALUM_COUNTS_HEAP 0
#elif defined(__has_feature)
#define KESTRALUM_COUNTS_HEAP !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define KESTRALUM_COUNTS_HEAP 1
#endif

struct HeapCount {
    std::atomic<std::int64_t> news{0};  // calls of `new`
    std::atomic<std::int64_t> live{0};  // bytes of the blocks that are held
    std::atomic<std::int64_t> peak{0};  // the most that `live` has been
};
extern constinit HeapCount heap;

}  // namespace kestralum::testing
