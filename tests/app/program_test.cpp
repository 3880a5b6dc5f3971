// kestralum as a process: snapshots, and what it says where it cannot run.
#include <QImage>
#include <QProcess>

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
    // the result file shows the same
    EXPECT_EQ(shown({"--result", "log/result_bar.txt", "--contour", "1"}), stress);
}

TEST_F(Program, EndsWhereFilesAreMissing) {
    const std::tuple<QStringList, int, const char*> missing[] = {
        {{"missing.txt", "--snapshot", "a.png"}, 2, "missing.txt"},
        {{"bar.txt", "--snapshot", "a.png", "--result", "missing"}, 2, "missing"},
        {{"bar.txt", "--snapshot", "nowhere/a.png"}, 1, "nowhere/a.png"}};
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
    EXPECT_EQ(run({"--version"}, display).out, "KESTRALUM ver3.01\n");
}

}  // namespace
