// kestralum as a process: snapshots, and what it says where it cannot run.
#include <QImage>
#include <QImageReader>
#include <QProcess>
#include <QStandardPaths>

#include "app/window_fixture.h"

using namespace kestralum::testing;

namespace {

struct Program : ::testing::Test {
    TempFolder folder;

    void SetUp() override {
        std::filesystem::create_directory(folder.path() / "setting");
        folder.write("setting/setting.txt", settings_text());
        folder.write("bar.txt", bar_text);
    }
    // `without`: variables taken out of the environment; `with`: NAME=VALUE put into it.
    Ended run(const QStringList& arguments, const QStringList& without = {},
              const QStringList& with = {}) const {
        QProcess process;
        QStringList variables = QProcess::systemEnvironment();
        for (const QString& name : without)
            variables.removeIf([&](const QString& v) { return v.startsWith(name + "="); });
        process.setEnvironment(variables + with);
        process.setWorkingDirectory(QString::fromStdString(folder.path().string()));
        process.start(KESTRALUM_BINARY_DIR "/kestralum", arguments);
        if (!process.waitForFinished(60000)) process.kill();
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                process.readAllStandardOutput().toStdString(), process.readAllStandardError().toStdString()};
    }
    QImage image(const char* name) const { return QImage(QString::fromStdString(folder.file(name))); }
};

int colours(const QImage& image) {
    std::set<QRgb> seen;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) seen.insert(image.pixel(x, y));
    return static_cast<int>(seen.size());
}

TEST_F(Program, DrawsSnapshots) {
    const Ended parts = run({"bar.txt", "--snapshot", "parts.png"});
    ASSERT_EQ(parts.status, 0) << parts.err;
    EXPECT_EQ(image("parts.png").size(), QSize(800, 600));
    EXPECT_GT(colours(image("parts.png")), 20);
    auto shown = [&](const QStringList& what) {
        const QStringList bare{
            "bar.txt", "--snapshot", "a.png",
            "--view",  "z",          "--size",
            "400x300", "--hide",     "wire,node,contour-bar,text,force,bc,axes,fem-infomation"};
        const Ended ended = run(bare + what);
        EXPECT_EQ(ended.status, 0) << ended.err;
        return image("a.png");
    };
    const int left = 400 * 12 / 100, right = 400 * 88 / 100;
    const QImage stress = shown({"--analysis", "static", "--contour", "1"});
    EXPECT_EQ(stress.size(), QSize(400, 300));
    // the displacement runs from blue at the clamp to red at the pulled end
    const QColor low = stress.pixelColor(left, 150), high = stress.pixelColor(right, 150);
    EXPECT_TRUE(low.blue() > 200 && low.red() < 50) << low.name().toStdString();
    EXPECT_TRUE(high.red() > 200 && high.blue() < 50) << high.name().toStdString();
    // the result file shows the same, and has a report without a summary
    EXPECT_EQ(run({"bar.txt", "--result", "log/result_bar.txt", "--report", "a.html"}).status, 0);
    EXPECT_TRUE(contains(read_file(folder.file("a.html")), "holds no summary"));
    EXPECT_EQ(shown({"--result", "log/result_bar.txt", "--contour", "1"}), stress);
}

// Frames of a run, sizes and a film's own loop.
TEST_F(Program, WritesFilms) {
    folder.write("bar.txt", replaced(bar_text, "END", "mode_num 2 %\nEND"));
    const QStringList film{"bar.txt", "--analysis", "eigen-lanczos", "--size", "241x180", "--caption", "on"};
    const auto names = [&](const std::string& prefix) {
        std::set<std::string> out;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            if (const std::string name = entry.path().filename().string();
                name.starts_with(prefix) || name.starts_with("."))
                out.insert(name);
        return out;
    };
    const Ended two = run(film + QStringList{"--film", "modes.png", "--frames", "1:2"});
    ASSERT_EQ(two.status, 0) << two.err;
    EXPECT_EQ(names("modes_").size(), 40u);
    EXPECT_EQ(image("modes_0002.png"), image("modes_0020.png")) << "a mode returns the way it came";
    EXPECT_NE(image("modes_0001.png"), image("modes_0021.png")) << "another mode";
    const QStringList result{"--result", "log/result_bar.txt"};
    const QStringList shown = QStringList{"bar.txt", "--size", "241x180"} + result;
    EXPECT_EQ(run(shown + QStringList{"--film", "x.gif", "--frames", "900:901"}).status, 2);
    const Ended nowhere = run(shown + QStringList{"--film", "nowhere/x.png"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(contains(nowhere.err, "nowhere/x.png cannot be written")) << nowhere.err;

    // coders that are not there, fail, are killed, and wait for ever
    const auto coder = [&](const std::string& body) {
        std::filesystem::create_directory(folder.path() / "bin");
        const std::string program = folder.write("bin/ffmpeg", "#!/bin/sh\n" + body);
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        return QStringList{"PATH=" + QString::fromStdString(folder.file("bin")) + ":/usr/bin:/bin"};
    };
    const std::tuple<QStringList, const char*> broken[] = {
        {{"PATH=/nonexistent"}, "wants the program ffmpeg"},
        {coder("cat > /dev/null; echo No space left on device >&2; exit 3"), "No space left on device"}};
    for (const auto& [with, word] : broken) {
        const Ended ended = run(shown + QStringList{"--film", "x.webm"}, {"PATH"}, with);
        EXPECT_EQ(ended.status, 1);
        EXPECT_TRUE(contains(ended.err, word)) << ended.err;
    }
    EXPECT_TRUE(contains(run(shown + QStringList{"--film", "x.gif"}, {"PATH"}, coder("kill -9 $$")).err,
                         "ended from outside"));
    QProcess waiting;
    waiting.setWorkingDirectory(QString::fromStdString(folder.path().string()));
    QStringList variables = QProcess::systemEnvironment();
    variables.removeIf([](const QString& v) { return v.startsWith("PATH="); });
    waiting.setEnvironment(variables + coder("touch begun; exec sleep 60"));
    waiting.start(KESTRALUM_BINARY_DIR "/kestralum", shown + QStringList{"--film", "x.mp4"});
    ASSERT_TRUE(QTest::qWaitFor([&] { return std::filesystem::exists(folder.path() / "begun"); }, 30000));
    waiting.terminate();
    ASSERT_TRUE(waiting.waitForFinished(5000));
    EXPECT_EQ(waiting.exitCode(), 1);
    EXPECT_TRUE(names("x").empty()) << "something was left";

    if (QStandardPaths::findExecutable("ffmpeg").isEmpty()) GTEST_SKIP() << "ffmpeg is missing";
    const Ended gif = run(shown + QStringList{"--film", "swing.gif", "--fps", "25"});
    ASSERT_EQ(gif.status, 0) << gif.err;
    QImageReader reader(QString::fromStdString(folder.file("swing.gif")));
    EXPECT_EQ(reader.imageCount(), 20);
    EXPECT_EQ(reader.loopCount(), -1) << "it ends";
    EXPECT_EQ(reader.read().size(), QSize(241, 180));
    EXPECT_EQ(reader.nextImageDelay(), 40);
    EXPECT_EQ(run(shown + QStringList{"--film", "swing.MP4"}).status, 0);
    EXPECT_EQ(read_file(folder.file("swing.MP4")).substr(4, 4), "ftyp");
}

TEST_F(Program, EndsWhereFilesAreMissing) {
    const std::tuple<QStringList, int, const char*> missing[] = {
        {{"missing.txt", "--snapshot", "a.png"}, 2, "missing.txt"},
        {{"bar.txt", "--snapshot", "a.png", "--result", "missing"}, 2, "missing"},
        {{"bar.txt", "--snapshot", "nowhere/a.png"}, 1, "nowhere/a.png"},
        {{"bar.txt", "--report", "nowhere/a.html"}, 1, "nowhere/a.html"}};
    for (const auto& [arguments, status, word] : missing) {
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, status) << ended.err;
        EXPECT_TRUE(contains(ended.err, word)) << ended.err;
    }
    std::filesystem::remove(folder.path() / "setting/setting.txt");
    const Ended without = run({"bar.txt", "--snapshot", "a.png"});
    EXPECT_EQ(without.status, 2);
    EXPECT_TRUE(contains(without.out, "SETTING FILE OPEN ERROR\n"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "a.png"));
}

TEST_F(Program, EndsWithAWordWhereThereIsNoDisplayOrNoOpenGL) {
    const QStringList display{"DISPLAY", "WAYLAND_DISPLAY"}, platform{"QT_QPA_PLATFORM"};
    const std::pair<QStringList, QStringList> missing[] = {{display, {}},
                                                           {display, {"DISPLAY=:987"}},
                                                           {platform, {"QT_QPA_PLATFORM=offscreen"}},
                                                           {platform, {"QT_QPA_PLATFORM=minimal"}},
                                                           {{}, {"QT_XCB_GL_INTEGRATION=none"}}};
    for (const auto& [without, with] : missing) {
        const Ended ended = run({"bar.txt", "--snapshot", "a.png"}, without, with);
        EXPECT_EQ(ended.status, 1) << with.join(' ').toStdString() << ended.err;
        EXPECT_TRUE(contains(ended.err, "display")) << with.join(' ').toStdString() << ended.err;
    }
    EXPECT_EQ(run({"--version"}, display).out, std::string("KESTRALUM ") + kestralum::program_version + "\n");
}

}  // namespace
