#include "results/text_output.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

namespace kestralum {

namespace {

constexpr int largest_power = 27;  // 5^27 is the last below 2^63

constexpr auto powers_of_five = [] {
    std::array<std::uint64_t, largest_power + 1> out{1};
    for (int k = 1; k <= largest_power; ++k) out[k] = 5 * out[k - 1];
    return out;
}();

// The whole part of a quotient and how its rest stands to one half: -1 below, 0 equal, 1 above.
struct Quotient {
    std::uint64_t whole;
    int rest;
};

// (number · 2^-shift), `more`: something positive, below the last bit, has been cut off before.
template <typename Number>
Quotient shifted(Number number, int shift, bool more) {
    const Number half = Number{1} << (shift - 1), low = number & ((half << 1) - 1);
    const int rest = low > half || (low == half && more) ? 1 : low == half ? 0 : -1;
    return {static_cast<std::uint64_t>(number >> shift), rest};
}

// value · 10^power of a normal value = mantissa · 2^exponent, exact in integers of 128 bits.
Quotient scaled(std::uint64_t mantissa, int exponent, int power) {
    if (power < 0) {
        const std::uint64_t five = powers_of_five[-power];
        return shifted(mantissa / five, -power - exponent, mantissa % five != 0);
    }
    __extension__ using Wide = unsigned __int128;
    return shifted(Wide{mantissa} * powers_of_five[power], -power - exponent, false);
}

// The seven digits that "%e" shows of a positive value, and its decimal exponent. False outside 1e-20 … 1e15.
bool seven_digits(double value, std::uint64_t& digits, int& decimal) {
    if (!(value >= 1e-20 && value < 1e15)) return false;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int binary = static_cast<int>(bits >> 52) - 1023;
    const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
    decimal = (binary * 78913) >> 18;  // log10(2) · 2^18: of the power of two below, at most one too small
    Quotient found = scaled(mantissa, binary - 52, 6 - decimal);
    if (found.whole >= 10000000) found = scaled(mantissa, binary - 52, 6 - ++decimal);
    digits = found.whole;
    if ((found.rest > 0 || (found.rest == 0 && digits % 2 == 1)) && ++digits == 10000000) {
        digits = 1000000;
        ++decimal;
    }
    return true;
}

// 10^power = mantissa · 2^exponent but for less than a unit of the 64 bits' last place.
struct PowerOfTen {
    std::uint64_t mantissa;
    int exponent;
};
constexpr int least_power = -303, most_power = 330;  // 6 less the exponents of normal numbers

// By tens up and down from 1, in 128 bits: each step is off by less than 2^-122.
constexpr auto powers_of_ten = [] {
    __extension__ using Wide = unsigned __int128;
    std::array<PowerOfTen, most_power - least_power + 1> out{};
    for (const bool up : {true, false}) {
        Wide mantissa = Wide{1} << 127;
        int exponent = -127;
        for (int power = 0; up ? power <= most_power : power >= least_power; power += up ? 1 : -1) {
            out[power - least_power] = {static_cast<std::uint64_t>(mantissa >> 64), exponent + 64};
            if (up) {
                mantissa = (mantissa >> 4) * 10;
                exponent += 4;
            } else {
                mantissa /= 10;
            }
            for (; !(mantissa >> 127); --exponent) mantissa <<= 1;
        }
    }
    return out;
}();

// The same as seven_digits() for every normal value whose digits 64 bits of the power of ten settle: all but
// those within 2^-38 of a tie or of a whole number.
bool seven_digits_of_any(double value, std::uint64_t& digits, int& decimal) {
    __extension__ using Wide = unsigned __int128;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int biased = static_cast<int>(bits >> 52), binary = biased - 1023;
    if (biased == 0 || biased == 2047) return false;
    const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
    decimal = static_cast<int>((std::int64_t{binary} * 78913) >> 18);
    for (int tries = 0; tries < 2; ++tries, ++decimal) {
        const PowerOfTen& ten = powers_of_ten[6 - decimal - least_power];
        const Wide product = Wide{mantissa} * ten.mantissa;
        const int shift = -(binary - 52 + ten.exponent);
        const Wide one = Wide{1} << shift, rest = product & (one - 1), half = one >> 1,
                   error = Wide{mantissa} << 1;
        digits = static_cast<std::uint64_t>(product >> shift);
        if (rest < error || rest + error > one || (rest + error > half && rest < half + error)) return false;
        if (digits >= 10000000) continue;
        if (rest > half && ++digits == 10000000) {
            digits = 1000000;
            ++decimal;
        }
        return true;
    }
    return false;
}

}  // namespace

void append_e(std::string& text, double value) {
    if (value == 0 && !std::signbit(value)) {
        text.append("0.000000e+00", 12);
        return;
    }
    std::uint64_t seven;
    int exponent;
    const double size = std::abs(value);
    if (seven_digits(size, seven, exponent) || seven_digits_of_any(size, seven, exponent)) {
        char out[] = "-0.000000e+000";
        for (char* at = out + 8; at > out + 2; seven /= 10) *at-- = static_cast<char>('0' + seven % 10);
        out[1] = static_cast<char>('0' + seven);
        if (exponent < 0) out[10] = '-';
        exponent = std::abs(exponent);
        char* at = out + 11;
        if (exponent >= 100) *at++ = static_cast<char>('0' + exponent / 100);
        *at++ = static_cast<char>('0' + exponent / 10 % 10);
        *at++ = static_cast<char>('0' + exponent % 10);
        text.append(std::signbit(value) ? out : out + 1, at);
        return;
    }
    char digits[32];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::scientific, 6).ptr;
    text.append(digits, end);
}

void append_d(std::string& text, std::int64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    text.append(digits, end);
}

void FormatLine::copy_text() {
    const char* stop = std::strchr(rest_, '%');
    const char* const end = stop ? stop : rest_ + std::strlen(rest_);
    text_.append(rest_, end);
    rest_ = end;
}

void FormatLine::take(char kind) {
    assert(rest_[0] == '%' && rest_[1] == kind);
    (void)kind;
    rest_ += 2;
}

FormatLine& FormatLine::operator<<(std::int32_t value) {
    take('d');
    append_d(text_, value);
    copy_text();
    return *this;
}

FormatLine& FormatLine::operator<<(double value) {
    take('e');
    append_e(text_, value);
    copy_text();
    return *this;
}

FormatLine& FormatLine::operator<<(std::string_view value) {
    take('s');
    text_.append(value);
    copy_text();
    return *this;
}

TextOutput::TextOutput(paths::File file, const Progress& progress)
    : file_(std::move(file)), progress_(progress), was_cancelled_(progress.cancelled()) {
    if (!file_) error_ = std::strerror(errno);
}

TextOutput::TextOutput(const std::string& path, const Progress& progress)
    : TextOutput(paths::open(path, "wb"), progress) {}

bool TextOutput::goes_on() {
    if (error_.empty() && stopped()) error_ = "stopped on request";
    return error_.empty();
}

void TextOutput::write(std::string_view text) {
    constexpr std::size_t piece = 1 << 22;  // bytes between two looks at a cancel
    while (!text.empty() && goes_on()) {
        const std::string_view now = text.substr(0, piece);
        if (std::fwrite(now.data(), 1, now.size(), file_.get()) != now.size()) error_ = std::strerror(errno);
        text.remove_prefix(now.size());
    }
}

void TextOutput::write_rows(std::int64_t rows, int threads,
                            const std::function<void(std::int64_t, std::string&)>& row) {
    // blocks of rows, formatted in parallel and written in their order while others are formatted
    constexpr std::int64_t block_rows = 256;
    const std::int64_t blocks = (rows + block_rows - 1) / block_rows;
    const int team = static_cast<int>(std::min<std::int64_t>(std::max(threads, 1), blocks));
#pragma omp parallel num_threads(team) if (team > 1)
    {
        std::string text;
#pragma omp for ordered schedule(static, 1)
        for (std::int64_t b = 0; b < blocks; ++b) {
            text.clear();
            const std::int64_t end = std::min(rows, (b + 1) * block_rows);
            for (std::int64_t r = b * block_rows; r < end && !stopped(); ++r) row(r, text);
#pragma omp ordered
            write(text);
        }
    }
}

bool TextOutput::finish() {
    if (file_ && (std::fflush(file_.get()) != 0 || std::ferror(file_.get())) && error_.empty())
        error_ = std::strerror(errno);
    if (file_ && std::fclose(file_.release()) != 0 && error_.empty()) error_ = std::strerror(errno);
    return error_.empty();
}

std::string write_whole(std::string_view target, std::string_view log_folder,
                        const std::function<void(TextOutput&)>& fill, const Progress& progress) {
    HeldFile file;
    std::string trouble = file.write(target, log_folder, fill, progress);
    return trouble.empty() ? file.take_name() : trouble;
}

std::string HeldFile::write(std::string_view target, std::string_view log_folder,
                            const std::function<void(TextOutput&)>& fill, const Progress& progress) {
    path_ = paths::to_platform(target, log_folder);
    held_ = path_ + ".part";
    TextOutput file(held_, progress);
    if (file.is_open()) fill(file);
    if (file.is_open() && file.finish()) return {};
    drop();
    return path_ + " cannot be written: " + file.error();
}

std::string HeldFile::take_name() {
    if (std::rename(held_.c_str(), path_.c_str()) == 0) {
        held_.clear();
        return {};
    }
    const std::string reason = std::strerror(errno);
    drop();
    return path_ + " cannot be written: " + reason;
}

void HeldFile::drop() {
    if (!held_.empty()) std::remove(held_.c_str());
    held_.clear();
}

}  // namespace kestralum
