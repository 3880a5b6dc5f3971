// File names are stored and printed with backslashes, as the files name them; here they become
// names the platform opens.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace kestralum::paths {

// A stored name as the platform opens it: either separator is taken. A name that begins with "log\",
// as the program's own files do, lies in `log_folder`; "log/…" is a folder like others.
std::string to_platform(std::string_view stored, std::string_view log_folder = "log");

// Position of the last separator of either kind, -1 if none; and what follows it.
int last_separator(std::string_view stored);
std::string base_name(std::string_view stored);

// The directory part up to and including its separator; "" if none.
std::string directory_of(std::string_view stored);

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// fopen on the platform name; null when it cannot be opened or is a directory.
File open(std::string_view stored, const char* mode, std::string_view log_folder = "log");

// The whole file as text; false when it cannot be opened or read (reason in `error`: a short
// text such as "No such file or directory").
bool read_text(std::string_view stored, std::string& text, std::string& error,
               std::string_view log_folder = "log");

}  // namespace kestralum::paths
