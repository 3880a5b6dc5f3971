#include "solver/direct_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "solver/panels.h"

namespace kestralum {

namespace {

char* thread_buffer() {
    static_assert(DirectStream::buffer_bytes >= (std::size_t{4} << 20),
                  "large blocks are aligned to pages of 2 MB");
    thread_local const Block buffer = allocate_block(DirectStream::buffer_bytes / sizeof(double));
    return reinterpret_cast<char*>(buffer.get());
}

bool write_all(int file, const char* bytes, std::size_t count, std::int64_t offset) {
    while (count > 0) {
        const ssize_t moved = ::pwrite(file, bytes, count, offset);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) {
            if (moved == 0) errno = EIO;
            return false;
        }
        bytes += moved;
        offset += moved;
        count -= static_cast<std::size_t>(moved);
    }
    return true;
}

}  // namespace

DirectStream::DirectStream(int direct, int buffered, std::int64_t offset)
    : direct_(direct),
      buffered_(buffered),
      start_(offset / std::int64_t{block} * std::int64_t{block}),
      begin_(static_cast<std::size_t>(offset - start_)),
      end_(begin_),
      buffer_(thread_buffer()) {}

bool DirectStream::put(const void* bytes, std::size_t count) {
    if (!buffer_) {
        errno = ENOMEM;
        return false;
    }
    const char* from = static_cast<const char*>(bytes);
    while (count > 0) {
        const std::size_t step = std::min(count, buffer_bytes - end_);
        std::memcpy(buffer_ + end_, from, step);
        end_ += step;
        from += step;
        count -= step;
        if (end_ == buffer_bytes && !flush()) return false;
    }
    return true;
}

// Writes the buffer: the piece of a block before the first whole one, the whole blocks, and the rest.
bool DirectStream::flush() {
    const std::size_t whole_begin = (begin_ + block - 1) / block * block;
    const std::size_t whole_end = std::max(whole_begin, end_ / block * block);
    const auto at = [&](std::size_t position) { return start_ + static_cast<std::int64_t>(position); };
    if (end_ <= whole_begin) {
        if (!write_all(buffered_, buffer_ + begin_, end_ - begin_, at(begin_))) return false;
    } else {
        if (!write_all(buffered_, buffer_ + begin_, whole_begin - begin_, at(begin_))) return false;
        const std::size_t whole = whole_end - whole_begin;
        if (whole > 0 && !write_all(direct_, buffer_ + whole_begin, whole, at(whole_begin)) &&
            (errno != EINVAL || !write_all(buffered_, buffer_ + whole_begin, whole, at(whole_begin))))
            return false;
        if (!write_all(buffered_, buffer_ + whole_end, end_ - whole_end, at(whole_end))) return false;
    }
    start_ = at(end_ / block * block);
    begin_ = end_ % block;
    end_ = begin_;
    return true;
}

bool DirectStream::finish() {
    return end_ == begin_ || flush();
}

}  // namespace kestralum
