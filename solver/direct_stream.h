// Writing a long run of bytes past the page cache: a factor of gigabytes that is not read again would
// otherwise fill memory with pages that the factorization itself could use.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestralum {

// One run of bytes at `offset` of a file. Whole blocks go through `direct` (opened with O_DIRECT) from an
// aligned buffer of the calling thread, the two ends that share a block with their neighbours through
// `buffered` (the same file). Where the file system refuses a direct write it is repeated through
// `buffered`. Every call returns false when the system does, with errno set. One thread at a time.
class DirectStream {
public:
    DirectStream(int direct, int buffered, std::int64_t offset);
    bool put(const void* bytes, std::size_t count);
    bool finish();
    // Where the next byte goes.
    std::int64_t position() const { return start_ + static_cast<std::int64_t>(end_); }

    static constexpr std::size_t block = 4096;             // bytes: alignment of direct transfers
    static constexpr std::size_t buffer_bytes = 4u << 20;  // of each thread

private:
    bool flush();

    int direct_, buffered_;
    std::int64_t start_;     // file offset of buffer_[0], a multiple of block
    std::size_t begin_ = 0;  // first byte of the buffer that is ours
    std::size_t end_ = 0;    // behind the last one
    char* buffer_ = nullptr;
};

}  // namespace kestralum
