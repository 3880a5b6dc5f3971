#include "app/window/film_plan.h"

#include <algorithm>
#include <filesystem>

#include "model/format.h"
#include "model/token_reader.h"
#include "view/display_state.h"

namespace kestralum {

std::optional<FilmFormat> film_format(std::string_view file_name) {
    std::string name(file_name.substr(file_name.find_last_of('/') + 1));
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    for (const FilmFormatEntry& entry : film_formats) {
        const std::string_view ending = entry.ending;
        if (name.size() > ending.size() && name.ends_with(ending)) return entry.format;
    }
    return std::nullopt;
}

std::optional<FilmRange> read_film_range(std::string_view text) {
    FilmRange range;
    std::int32_t* const places[] = {&range.from, &range.to, &range.step};
    std::size_t from = 0, read = 0;
    while (from <= text.size()) {
        const std::size_t colon = std::min(text.find(':', from), text.size());
        const auto value = parse_int32(std::string(text.substr(from, colon - from)));
        if (!value || *value < 1 || read == 3) return std::nullopt;
        *places[read++] = *value;
        from = colon + 1;
    }
    if (read < 2 || range.from > range.to) return std::nullopt;
    return range;
}

std::vector<FilmFrame> film_frames(AnalysisType ana_type, std::int32_t mode_num, const FilmRange& range) {
    std::vector<FilmFrame> out;
    for (std::int64_t frame = range.from; frame <= std::min(range.to, mode_num); frame += range.step)
        for (int phase = 0; phase < (has_shapes(ana_type) ? view::phase_count : 1); ++phase)
            out.push_back({static_cast<std::int32_t>(frame), phase});
    return out;
}

int usual_fps(AnalysisType ana_type) {
    return ana_type == AnalysisType::linear_static ? 1 : 20;
}

std::string series_name(const std::string& file_name, std::size_t number) {
    const std::size_t dot = file_name.rfind('.');
    return file_name.substr(0, dot) + formatted("_%04zu", number) + file_name.substr(dot);
}

std::string older_pictures(const std::string& file_name, std::size_t count) {
    std::size_t last = count;
    std::error_code unknown;
    while (std::filesystem::exists(series_name(file_name, last + 1), unknown)) ++last;
    if (last == count) return {};
    return formatted("%s to %s are of an earlier film", series_name(file_name, count + 1).c_str(),
                     series_name(file_name, last).c_str());
}

std::vector<std::string> film_coder_arguments(FilmFormat format, int width, int height, int fps,
                                              const std::string& file_name) {
    std::vector<std::string> out{
        "-hide_banner", "-loglevel",         "error", "-y",          "-f",
        "rawvideo",     "-pixel_format",     "bgr0",  "-video_size", formatted("%dx%d", width, height),
        "-framerate",   std::to_string(fps), "-i",    "pipe:0"};
    const auto add = [&](std::initializer_list<const char*> more) {
        out.insert(out.end(), more.begin(), more.end());
    };
    // each picture has colours of its own, so that none waits in memory for the last one
    if (format == FilmFormat::gif)
        add({"-filter_complex",
             "split[a][b];[a]palettegen=stats_mode=single[p];[b][p]paletteuse=new=1:dither=bayer:bayer_scale="
             "4",
             "-loop", "0", "-f", "gif"});
    else
        add({"-vf", "pad=ceil(iw/2)*2:ceil(ih/2)*2", "-pix_fmt", "yuv420p"});
    if (format == FilmFormat::webm)
        add({"-c:v", "libvpx-vp9", "-crf", "24", "-b:v", "0", "-deadline", "good", "-cpu-used", "5", "-f",
             "webm"});
    if (format == FilmFormat::mp4)
        add({"-c:v", "libx264", "-crf", "18", "-movflags", "+faststart", "-f", "mp4"});
    out.push_back(file_name);
    return out;
}

}  // namespace kestralum
