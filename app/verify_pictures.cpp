#include "app/verify_pictures.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string_view>
#include <thread>

#include "app/program_path.h"
#include "input/input_remarks.h"
#include "mesh/child_process.h"
#include "model/paths.h"

namespace kestralum {

namespace {

namespace fs = std::filesystem;

constexpr double patience = 120;  // s without a line of the window program

// A screen in memory for as long as the object lives.
class Screen {
public:
    explicit Screen(const std::string& server) {
        server_ = std::thread([this, server] {
            // which writes the number that it has found free, then says nothing
            const std::vector<std::string> arguments{"-displayfd",   "1",         "-screen", "0",
                                                     "1280x1024x24", "-nolisten", "tcp"};
            constexpr double forever = 1e9;
            run_child(
                server, arguments, forever, [this](std::string_view line) { take(line); }, stop_);
            ended_ = true;
        });
    }
    ~Screen() {
        stop_.cancel();
        server_.join();
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // ":7"; empty where none comes up within ten seconds.
    std::string name() const {
        for (int waited = 0; waited < 200 && number_ < 0 && !ended_; ++waited)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return number_ < 0 ? std::string() : ":" + std::to_string(number_);
    }

private:
    void take(std::string_view line) {
        if (line.empty() || line.find_first_not_of("0123456789") != std::string_view::npos) return;
        number_ = std::atoi(std::string(line).c_str());
    }
    std::atomic<int> number_{-1};
    std::atomic<bool> ended_{false};
    SilentProgress stop_;
    std::thread server_;
};

struct Artist {
    std::string program, display;
    fs::path folder;

    std::string draw(const PictureOrder& order, const Progress& progress, std::string& fault_line) const {
        const std::string file = folder / "picture.png";
        std::vector<std::string> words{"LIBGL_ALWAYS_SOFTWARE=1",
                                       "QT_QPA_PLATFORM=xcb",
                                       "DISPLAY=" + display,
                                       program,
                                       paths::to_platform(order.model_file),
                                       "--snapshot",
                                       file,
                                       "--log",
                                       folder,
                                       "--analysis",
                                       order.analysis,
                                       "--quiet"};
        std::istringstream options(
            "--size 480x360 --background white --hide axes,fem-infomation,node,bc,text " + order.options);
        for (std::string word; options >> word;) words.push_back(word);
        std::error_code fault;
        fs::remove(file, fault);
        std::string png, said, reason;
        const ChildEnd end = run_child(
            "/usr/bin/env", words, patience,
            [&](std::string_view line) {
                if (!line.empty()) said = line;
            },
            progress);
        if (!end.cancelled && end.reason.empty() && paths::read_text(file, png, reason)) return png;
        fault_line = !said.empty() ? shown_text(said, 200) : !end.reason.empty() ? end.reason : reason;
        return {};
    }
};

}  // namespace

DrawnPictures draw_pictures(std::span<const PictureOrder> orders, const std::string& log_folder,
                            Progress& progress) {
    DrawnPictures out{std::vector<std::string>(orders.size()), std::vector<std::string>(orders.size()), {}};
    Artist artist{program_beside("kestralum"), {}, fs::path(log_folder) / "verify_pictures"};
    const char* const display = std::getenv("DISPLAY");
    const std::string server = display && *display ? std::string() : program_on_path("Xvfb");
    const auto none = [&](const char* why) {
        out.why_none = why;
        return out;
    };
    if (artist.program.empty()) return none("the window program is not beside this one");
    if (server.empty() && !(display && *display))
        return none("there is no display, and Xvfb is not installed");
    std::unique_ptr<Screen> screen;
    if (!server.empty()) screen = std::make_unique<Screen>(server);
    artist.display = screen ? screen->name() : display;
    if (artist.display.empty()) return none("Xvfb does not start");
    std::error_code fault;
    fs::create_directories(artist.folder, fault);
    progress.set_stage("pictures");
    for (std::size_t k = 0; k < orders.size() && !progress.cancelled(); ++k) {
        out.png[k] = artist.draw(orders[k], progress, out.faults[k]);
        progress.set_count(static_cast<std::int64_t>(k + 1), static_cast<std::int64_t>(orders.size()));
    }
    fs::remove_all(artist.folder, fault);
    return out;
}

}  // namespace kestralum
