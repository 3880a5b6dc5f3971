// A program run beside this one, its lines taken as they come.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "model/progress.h"

namespace kestralum {

// How it went. `reason` is "" where the program ended with status 0, else a text for an error line: "cannot
// be started: …", "ended with status 3", "was ended by signal 11 (Segmentation fault)", "has said nothing for
// 600 s".
struct ChildEnd {
    bool cancelled = false;  // `progress` asked to stop
    std::string reason;
};

// Runs `program` with `arguments`; take_line gets each line of its standard output and standard error,
// without the newline, a longer one than 4096 bytes in pieces. The program is ended where `progress` asks to
// stop, seen within a tenth of a second, and after `silence_limit` seconds without output: asked to, and
// killed where it has not gone within a second. It is killed with this one. It may take nine tenths of the
// machine's memory.
ChildEnd run_child(const std::string& program, std::span<const std::string> arguments, double silence_limit,
                   const std::function<void(std::string_view line)>& take_line, const Progress& progress);

}  // namespace kestralum
