// What a run says, line by line, without what differs from one processor to the next.
#pragma once

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

namespace kestralum::testing {

// Numbers become '#', blanks before one inside the line a single blank. Digits of a name and the 2 of "m^2"
// stay.
inline std::string masked(const std::string& line) {
    static const std::regex number(R"((^|[^A-Za-z0-9_^.])[-+]?\d+(\.\d+)*(e[-+]?\d+)?)"),
        blanks(R"((\S) +(?=#))"), kernels(R"(\([A-Z][A-Z0-9#-]+\)$)");
    const std::string numbers = std::regex_replace(line, number, "$1#");
    return std::regex_replace(std::regex_replace(numbers, blanks, "$1 "), kernels, "(KERNELS)");
}

// The lines masked; those that come again at once are counted. Of a counter, whose lines end in "\r", the
// first and the last as they stand. A block of lines that comes again at once, an iteration for example,
// stands once.
inline std::vector<std::string> console_pattern(const std::string& output) {
    constexpr std::ptrdiff_t longest_block = 60;
    std::vector<std::string> lines;
    auto add = [&](const std::string& line) {
        lines.push_back(line);
        for (std::ptrdiff_t n = 2; n <= longest_block && 2 * n <= std::ssize(lines); ++n)
            if (std::equal(lines.end() - n, lines.end(), lines.end() - 2 * n))
                return lines.resize(lines.size() - n);
    };
    for (std::size_t begin = 0; begin < output.size();) {
        std::string first, last, mask;
        char end = 0;
        int times = 0;
        for (std::size_t stop; begin < output.size(); begin = stop + 1, ++times) {
            stop = std::min(output.find_first_of("\r\n", begin), output.size() - 1);
            const std::string line = output.substr(begin, stop - begin), of_line = masked(line);
            if (times > 0 && (output[stop] != end || of_line != mask)) break;
            if (times == 0) first = line;
            last = line, mask = of_line, end = output[stop];
        }
        if (end == '\r')
            add(times == 1 ? first + "\\r" : first + "\\r ... " + last + "\\r");
        else
            add(times == 1 ? mask : mask + " [" + std::to_string(times) + " times]");
    }
    return lines;
}

}  // namespace kestralum::testing
