// The entry Verify of the Help menu: the command runs beside the window, and its page stands in the log
// folder.
#include <QDir>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>

#include "app/window/verification.h"
#include "app/window_fixture.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// The cases are looked for in the current folder first.
struct CurrentFolder {
    explicit CurrentFolder(const QString& folder) { QDir::setCurrent(folder); }
    ~CurrentFolder() { QDir::setCurrent(former); }
    const QString former = QDir::currentPath();
};

class VerifyEntry : public Window {
protected:
    void SetUp() override {
        Window::SetUp();
        for (const char* name : {"verify", "setting"})
            std::filesystem::create_directory(folder.path() / name);
        folder.write("setting/setting.txt", settings_text());
        folder.write("verify/bar.txt", bar_text);
        folder.write(
            "verify/cases.txt",
            "case good model bar.txt % run static % check tip displacement x at L 0 0 near 2.5e-6 rel "
            "1e-6 %\ncase bad like good check tip displacement x at L 0 0 near 3e-6 rel 1e-6 %\n"
            "case slow like good run static long % check %\nEND\n");
    }
    bool under_way() { return window->findChild<Verification*>() != nullptr; }
    std::filesystem::path page() { return folder.path() / "log/verification.html"; }
};

TEST_F(VerifyEntry, MakesThePageAndTellsWhatIsMissed) {
    QStringList help;
    for (const QAction* entry : window->menuBar()->actions()) {
        if (entry->text() != "&Help") continue;
        for (const QAction* one : entry->menu()->actions()) help << one->text();
    }
    EXPECT_EQ(help, QStringList({"&About", "About &Qt", "&Verify..."}));
    const CurrentFolder here(QString::fromStdString(folder.path().string()));
    std::string told;
    answer_boxes(told, {"Quick", "Close"});
    trigger("&Verify...");
    ASSERT_TRUE(under_way());
    QSignalSpy progressed(window->findChild<Verification*>(), &Verification::progressed);
    wait_for([&] { return !under_way(); });
    expect_answered();
    EXPECT_TRUE(contains(told, "2 cases: 1 checks met, 1 missed, 0 shown\n")) << told;
    EXPECT_TRUE(contains(messages(), "bad tip 3e-06 2.5e-06 -16.67 % MISSED")) << messages();
    EXPECT_TRUE(contains(messages(), "log/verification.html was written")) << messages();
    const std::string html = read_file(page());
    EXPECT_TRUE(contains(html, "<td>bad</td>") && contains(html, "1 long cases")) << html;
    ASSERT_GE(progressed.count(), 3);
    EXPECT_EQ(progressed.back()[0].toInt(), 2);
    EXPECT_EQ(progressed.back()[1].toInt(), 2);
}

TEST_F(VerifyEntry, IsStopped) {
    const CurrentFolder here(KESTRALUM_SOURCE_DIR);  // all of the shipped cases
    std::string told;
    answer_boxes(told, {"All"});
    trigger("&Verify...");
    auto* progress = window->findChild<QProgressDialog*>();
    ASSERT_TRUE(progress);
    wait_for([&] { return progress->value() > 0; });
    EXPECT_GT(progress->maximum(), 300);
    progress->findChild<QPushButton*>()->click();
    wait_for([&] { return !under_way(); });
    expect_answered();
    EXPECT_EQ(status(), "The verification was stopped");
    EXPECT_FALSE(std::filesystem::exists(page()));
    answer_boxes(told, {"Cancel"});
    trigger("&Verify...");
    EXPECT_FALSE(under_way());
}

TEST_F(VerifyEntry, SaysWhyThereIsNoPage) {
    folder.write("verify/cases.txt", "case good what");
    const CurrentFolder here(QString::fromStdString(folder.path().string()));
    std::string told;
    answer_boxes(told, {"All", ""});
    trigger("&Verify...");
    wait_for([&] { return !under_way(); });
    expect_answered();
    EXPECT_TRUE(contains(told, "The verification was not completed\n") && contains(told, "token 3")) << told;
}

}  // namespace
