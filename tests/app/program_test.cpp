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
    struct Ended {
        int status = -1;
        std::string out, err;
    };
    Ended run(const QStringList& arguments, const QStringList& environment = {}) const {
        QProcess process;
        QStringList variables = QProcess::systemEnvironment();
        for (const QString& change : environment) {
            const QString name = change.section('=', 0, 0) + "=";
            variables.removeIf([&](const QString& v) { return v.startsWith(name); });
            if (!change.endsWith("=")) variables << change;
        }
        process.setEnvironment(variables);
        process.setWorkingDirectory(QString::fromStdString(folder.path().string()));
        process.start(KESTRALUM_BINARY_DIR "/kestralum", arguments);
        if (!process.waitForFinished(60000)) process.kill();
        Ended ended;
        ended.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        ended.out = process.readAllStandardOutput().toStdString();
        ended.err = process.readAllStandardError().toStdString();
        return ended;
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
    EXPECT_TRUE(contains(parts.out, "KESTRALUM ver3.01\n"));
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
    // an elastic bar has no plastic strain anywhere: the blue of a range without width
    const QImage plastic = shown({"--result", "log/result_bar.txt", "--contour", "plastic"});
    for (const int x : {left, 200, right}) EXPECT_EQ(plastic.pixelColor(x, 150), QColor(0, 0, 255)) << x;
}

TEST_F(Program, RefusesBadUsage) {
    const std::pair<const char*, const char*> bad[] = {
        {"--snapshot", "wants a value"},
        {"--snapshot a.png", "model file"},
        {"bar.txt --contour 3", "--snapshot"},
        {"bar.txt --snapshot a.png --contour 18", "from -1 to 17"},
        {"bar.txt --snapshot a.png --contour plastics", "or plastic"},
        {"bar.txt --snapshot a.png --size 640*480", "640*480"},
        {"bar.txt --snapshot a.png --view w", "iso"},
        {"bar.txt --snapshot a.png --hide wires", "wires"},
        {"bar.txt --snapshot a.png --analysis dynamic", "dynamic"},
        {"bar.txt --snapshot a.png --frame 0", "from 1"},
        {"bar.txt cup.txt", "too many"},
        {"missing.txt --snapshot a.png", "missing.txt"},
        {"bar.txt --snapshot a.png --result missing", "missing"}};
    for (const auto& [arguments, word] : bad) {
        const Ended ended = run(QString(arguments).split(' '));
        EXPECT_EQ(ended.status, 2) << arguments << "\n" << ended.err;
        EXPECT_TRUE(contains(ended.err, word)) << arguments << "\n" << ended.err;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "a.png"));
    const Ended unwritable = run({"bar.txt", "--snapshot", "nowhere/a.png"});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_TRUE(contains(unwritable.err, "nowhere/a.png"));
    std::filesystem::remove(folder.path() / "setting/setting.txt");
    const Ended without = run({"bar.txt", "--snapshot", "a.png"});
    EXPECT_EQ(without.status, 2);
    EXPECT_TRUE(contains(without.out, "SETTING FILE OPEN ERROR\n"));
}

TEST_F(Program, EndsWithAWordWhereThereIsNoDisplayOrNoOpenGL) {
    const QStringList missing[] = {{"DISPLAY=", "WAYLAND_DISPLAY="},
                                   {"DISPLAY=:987", "WAYLAND_DISPLAY="},
                                   {"QT_QPA_PLATFORM=offscreen"},
                                   {"QT_QPA_PLATFORM=minimal"},
                                   {"QT_XCB_GL_INTEGRATION=none"}};
    for (const QStringList& environment : missing) {
        const Ended ended = run({"bar.txt", "--snapshot", "a.png"}, environment);
        EXPECT_EQ(ended.status, 1) << environment.join(' ').toStdString() << ended.err;
        EXPECT_TRUE(contains(ended.err, "display")) << environment.join(' ').toStdString() << ended.err;
    }
    EXPECT_EQ(run({"--help"}, {"DISPLAY="}).status, 0);
    EXPECT_EQ(run({"--version"}, {"DISPLAY="}).out, "KESTRALUM ver3.01\n");
}

}  // namespace
