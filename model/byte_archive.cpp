#include "model/byte_archive.h"

#include <algorithm>

namespace kestralum {

std::uint64_t checksum(std::string_view bytes, std::uint64_t sum) {
    constexpr std::uint64_t prime = 0x100000001b3;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), sizeof(std::uint64_t)))) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data(), std::min(bytes.size(), sizeof word));
        sum = (sum ^ word) * prime;
    }
    return sum ^ (sum >> 32);
}

}  // namespace kestralum
