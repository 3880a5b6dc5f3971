#include "support/heap_count.h"

#include <malloc.h>

#include <cerrno>
#include <cstddef>
#include <new>

namespace kestralum::testing {
constinit HeapCount heap;
}

#if KESTRALUM_COUNTS_HEAP

// The C library's own, by the names under which it keeps them for those who replace them.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

using kestralum::testing::heap;

void* taken(void* block) {
    if (!block) return block;
    const auto bytes = static_cast<std::int64_t>(malloc_usable_size(block));
    const std::int64_t now = heap.live += bytes;
    std::int64_t most = heap.peak;
    while (now > most && !heap.peak.compare_exchange_weak(most, now)) {
    }
    return block;
}

void given_back(void* block) {
    if (block) heap.live -= static_cast<std::int64_t>(malloc_usable_size(block));
}

}  // namespace

extern "C" {
void* malloc(std::size_t bytes) {
    return taken(__libc_malloc(bytes));
}
void* calloc(std::size_t count, std::size_t bytes) {
    return taken(__libc_calloc(count, bytes));
}
void* realloc(void* block, std::size_t bytes) {
    given_back(block);
    return taken(__libc_realloc(block, bytes));
}
void* memalign(std::size_t alignment, std::size_t bytes) {
    return taken(__libc_memalign(alignment, bytes));
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    return memalign(alignment, bytes);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
    *block = memalign(alignment, bytes);
    return *block ? 0 : ENOMEM;
}
void free(void* block) {
    given_back(block);
    __libc_free(block);
}
}

// The threads' runtime and the watch of the resident memory take blocks of their own at any time: what the
// program asks for comes here. The standard library's `delete` frees both.
void* operator new(std::size_t bytes) {
    return operator new(bytes, std::align_val_t(alignof(std::max_align_t)));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    ++heap.news;
    if (void* block = memalign(static_cast<std::size_t>(alignment), bytes)) return block;
    throw std::bad_alloc();
}

#endif
