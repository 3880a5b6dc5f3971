// What a film shows and how it is coded. No Qt here.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/run.h"

namespace kestralum {

enum class FilmFormat { png_series, gif, webm, mp4 };

struct FilmFormatEntry {
    FilmFormat format;
    const char* ending;
    const char* name;  // for the user
};
inline constexpr std::array<FilmFormatEntry, 4> film_formats{{
    {FilmFormat::gif, ".gif", "GIF"},
    {FilmFormat::webm, ".webm", "WebM"},
    {FilmFormat::mp4, ".mp4", "MP4"},
    {FilmFormat::png_series, ".png", "PNG pictures"},
}};

// By the ending of a file name, in capitals too; none for any other and for a name that is nothing else.
std::optional<FilmFormat> film_format(std::string_view file_name);

// Frames of a run, from 1, both ends included; a `to` beyond the last means the last.
struct FilmRange {
    std::int32_t from = 1, to = 9999, step = 1;
    bool operator==(const FilmRange&) const = default;
};
// "FROM:TO" or "FROM:TO:STEP"; none where that is no range.
std::optional<FilmRange> read_film_range(std::string_view text);

// One picture of a film.
struct FilmFrame {
    std::int32_t frame = 1;
    int phase = 0;  // of a mode's swing
    bool operator==(const FilmFrame&) const = default;
};
// The pictures in their order: each frame of the range; of each mode a whole swing, which goes on with its
// first picture behind its last. Empty where the range begins behind the last frame.
std::vector<FilmFrame> film_frames(AnalysisType ana_type, std::int32_t mode_num, const FilmRange& range);

inline constexpr int least_fps = 1, most_fps = 50;  // a GIF shows no more
// Of modes and steps as many as the window plays; of load cases one a second.
int usual_fps(AnalysisType ana_type);

// "dir/film_0001.png" of "dir/film.png", `number` from 1.
std::string series_name(const std::string& file_name, std::size_t number);

// A line for the user where pictures of an earlier, longer series follow on one of `count`; else empty.
std::string older_pictures(const std::string& file_name, std::size_t count);

// Arguments of ffmpeg that takes frames of width × height pixels of 4 bytes, blue, green, red and one that
// does not count, from its standard input and writes `file_name`. Not for a PNG series. WebM and MP4 have
// sides of an even number of pixels: an odd one gets a row or column more.
std::vector<std::string> film_coder_arguments(FilmFormat format, int width, int height, int fps,
                                              const std::string& file_name);

}  // namespace kestralum
