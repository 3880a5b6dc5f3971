// The window's tests share one application; it works in the source folder, whose settings it reads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QApplication>
#include <QSettings>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <clocale>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (::chdir(KESTRALUM_SOURCE_DIR) != 0) return 2;
    QSurfaceFormat format;
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    QSurfaceFormat::setDefaultFormat(format);
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);  // the tests answer Qt's own
    QApplication application(argc, argv);
    const QTemporaryDir kept;  // layout and recent files, apart from the user's own
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, kept.path());
    QApplication::setQuitOnLastWindowClosed(false);  // each test closes its own
    std::setlocale(LC_NUMERIC, "C");
    return RUN_ALL_TESTS();
}
