// Values as bytes and back: what frames files and checkpoints are made of. Little-endian, numbers one after
// the other without gaps, a vector or a text behind its length (64 bits). A class joins by a member `template
// <class Archive> void serialize(Archive& archive)` that hands its values to archive(a, b, …); the same
// member writes and reads.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestralum {

static_assert(std::endian::native == std::endian::little, "the files are little-endian");

inline constexpr std::uint64_t checksum_start = 0xcbf29ce484222325;

// FNV-1a (Fowler, Noll and Vo) over words of eight bytes, the last one filled up with zeros; goes on from
// `sum`.
std::uint64_t checksum(std::string_view bytes, std::uint64_t sum = checksum_start);

template <typename T>
concept PlainNumber = std::is_arithmetic_v<T> || std::is_enum_v<T>;

class ByteWriter {
public:
    template <typename... T>
    void operator()(const T&... values) {
        (put(values), ...);
    }
    const std::string& bytes() const { return bytes_; }
    std::string take() { return std::move(bytes_); }

private:
    void append(const void* from, std::size_t count) { bytes_.append(static_cast<const char*>(from), count); }
    void put_size(std::size_t size) { put(static_cast<std::uint64_t>(size)); }
    template <PlainNumber T>
    void put(const T& value) {
        append(&value, sizeof value);
    }
    void put(const std::string& text) {
        put_size(text.size());
        bytes_ += text;
    }
    template <typename T, std::size_t n>
    void put(const std::array<T, n>& values) {
        for (const T& value : values) put(value);
    }
    template <typename T, typename Allocator>
    void put(const std::vector<T, Allocator>& values) {
        put_size(values.size());
        if constexpr (PlainNumber<T>)
            append(values.data(), values.size() * sizeof(T));
        else
            for (const T& value : values) put(value);
    }
    // Written only: the object is not changed.
    template <typename T>
    requires requires(T& value, ByteWriter& writer) { value.serialize(writer); }
    void put(const T& value) { const_cast<T&>(value).serialize(*this); }

    std::string bytes_;
};

// Reads what a ByteWriter wrote, in the same order. Where the bytes end too early ok() turns false and values
// stay as they were.
class ByteReader {
public:
    explicit ByteReader(std::string_view bytes) : rest_(bytes) {}
    template <typename... T>
    void operator()(T&... values) {
        (get(values), ...);
    }
    bool ok() const { return ok_; }
    bool at_end() const { return ok_ && rest_.empty(); }

private:
    // The next `count` bytes; null where they are not there.
    const char* next(std::uint64_t count) {
        ok_ = ok_ && count <= rest_.size();
        if (!ok_) return nullptr;
        const char* from = rest_.data();
        rest_.remove_prefix(count);
        return from;
    }
    std::size_t size(std::size_t least_bytes_each) {
        std::uint64_t count = 0;
        get(count);
        ok_ = ok_ && count <= rest_.size() / least_bytes_each;
        return ok_ ? count : 0;
    }
    template <PlainNumber T>
    void get(T& value) {
        if (const char* from = next(sizeof value)) std::memcpy(&value, from, sizeof value);
    }
    void get(std::string& text) {
        const std::size_t count = size(1);
        if (const char* from = next(count)) text.assign(from, count);
    }
    template <typename T, std::size_t n>
    void get(std::array<T, n>& values) {
        for (T& value : values) get(value);
    }
    template <typename T, typename Allocator>
    void get(std::vector<T, Allocator>& values) {
        if constexpr (PlainNumber<T>) {
            const std::size_t count = size(sizeof(T));
            const char* from = next(count * sizeof(T));
            if (!from) return;
            values.resize(count);
            if (count > 0) std::memcpy(values.data(), from, count * sizeof(T));
        } else {
            const std::size_t count = size(1);
            if (ok_) values.resize(count);
            for (std::size_t k = 0; k < count && ok_; ++k) get(values[k]);
        }
    }
    template <typename T>
    requires requires(T& value, ByteReader& reader) { value.serialize(reader); }
    void get(T& value) { value.serialize(*this); }

    std::string_view rest_;
    bool ok_ = true;
};

}  // namespace kestralum
