#include "view/display_state.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace kestralum::view {

std::int32_t clamp_frame(std::int32_t frame, std::int32_t mode_num) {
    return std::min(std::max(frame, 1), std::max(mode_num, 0));
}

namespace {

// Whole frames of one tick; the rest is kept for the next.
std::int32_t frames_of_tick(DisplayState& state) {
    const double due = state.part_of_frame + std::clamp(state.speed, speeds.front(), speeds.back());
    const double whole = std::floor(due);
    state.part_of_frame = due - whole;
    return static_cast<std::int32_t>(whole);
}

void advance_steps(DisplayState& state, std::int32_t mode_num) {
    const std::int32_t on = frames_of_tick(state);
    if (state.animation_repeats && mode_num > 1) {
        // the last frame is shown before the first follows
        if (state.frame >= mode_num && on > 0)
            state.frame = 1;
        else
            state.frame = std::min(state.frame + on, mode_num);
        return;
    }
    state.frame = std::min(std::max(state.frame, 0) + on, mode_num);
    if (state.frame >= mode_num) state.animation_running = false;
}

}  // namespace

void advance(DisplayState& state, AnalysisType ana_type, std::int32_t mode_num, bool tick) {
    switch (ana_type) {
        case AnalysisType::eigen:
        case AnalysisType::buckling:
            if (!state.mode_swings)
                state.phase = 0;
            else if (tick)
                state.phase = (state.phase + frames_of_tick(state)) % phase_count;
            break;
        case AnalysisType::linear_static:
            state.animation_running = false;  // its frames are load cases
            break;
        default:
            if (state.animation_running) advance_steps(state, mode_num);
            if (state.animation_running) break;
            state.animation_repeats = false;
            state.part_of_frame = 0;
    }
    state.frame = clamp_frame(state.frame, mode_num);
}

void play(DisplayState& state, std::int32_t mode_num, bool repeats) {
    if (state.frame >= mode_num) state.frame = 1;
    state.animation_running = true;
    state.animation_repeats = repeats;
    state.part_of_frame = 0;
}

bool animates(const DisplayState& state, AnalysisType ana_type, std::int32_t mode_num) {
    if (!has_shapes(ana_type)) return state.animation_running;  // the last tick ends it
    return state.mode_swings && state.result_ready && state.frame >= 1 && mode_num >= 1 &&
           state.mode_scale != 0;
}

std::int32_t chosen_contour(std::span<const bool> checked, std::int32_t current) {
    std::int32_t chosen = -1;
    for (std::int32_t k = 0; k < std::ssize(checked); ++k)
        if (checked[k] && k != current) chosen = k;
    return chosen;
}

std::optional<std::array<int, 2>> pixmap_size(std::string_view text) {
    constexpr int largest_side = 16384;  // what OpenGL implementations allow
    const char* at = text.data();
    const char* const end = at + text.size();
    auto side = [&](int& value) {
        if (at == end || *at < '0' || *at > '9') return false;
        const auto [after, failure] = std::from_chars(at, end, value);
        at = after;
        return failure == std::errc() && value >= 1 && value <= largest_side;
    };
    auto skip_blanks = [&] {
        while (at != end && *at == ' ') ++at;
    };
    std::array<int, 2> size{};
    if (!side(size[0])) return std::nullopt;
    skip_blanks();
    if (at == end || *at++ != 'x') return std::nullopt;
    skip_blanks();
    if (!side(size[1]) || at != end) return std::nullopt;
    return size;
}

}  // namespace kestralum::view
