// Pictures and films in files, and the user's own views.
#include <sys/resource.h>
#include <QComboBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QLineEdit>
#include <QMenu>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QTreeWidget>
#include <csignal>

#include "app/window/dialogs.h"
#include "app/window/saved_views.h"
#include "app/window_fixture.h"
#include "model/format.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

class Saving : public Window {
protected:
    // Answers the dialog of a menu entry: fields by name, then the file; an empty one closes the file dialog.
    void save(const char* entry, const std::map<std::string, std::string>& fields, const std::string& file) {
        begin(entry, fields, file);
        expect_answered();
    }
    void begin(const char* entry, const std::map<std::string, std::string>& fields, const std::string& file) {
        answer_next<QDialog>([this, fields, file](QDialog* dialog) {
            for (const auto& [name, value] : fields) {
                QWidget* field = dialog->findChild<QWidget*>(QString::fromStdString(name));
                ASSERT_TRUE(field) << name;
                const QString text = QString::fromStdString(value);
                if (auto* line = qobject_cast<QLineEdit*>(field)) line->setText(text);
                if (auto* box = qobject_cast<QSpinBox*>(field)) box->setValue(text.toInt());
                if (auto* button = qobject_cast<QAbstractButton*>(field)) button->setChecked(value == "on");
                if (auto* list = qobject_cast<QComboBox*>(field))
                    list->setCurrentIndex(list->findText(text, Qt::MatchStartsWith));
            }
            if (!file.empty())
                answer_next<QFileDialog>([this, file](QFileDialog* files) {
                    files->findChild<QLineEdit*>("fileNameEdit")
                        ->setText(QString::fromStdString(folder.file(file)));
                    QMetaObject::invokeMethod(files, "accept");
                });
            dialog->accept();
        });
        trigger(entry);
    }
    QImage image(const std::string& name) { return QImage(QString::fromStdString(folder.file(name))); }
    // Files that begin so, and folders of films under way.
    std::size_t count(const std::string& prefix) {
        const auto files = std::filesystem::directory_iterator(folder.path());
        return std::ranges::count_if(files, [&](const auto& entry) {
            const std::string name = entry.path().filename().string();
            return name.starts_with(prefix) || name.starts_with(".kestralum");
        });
    }
};

TEST_F(Saving, PicturesOfAnySize) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    const view::Camera before = camera();
    const std::map<std::string, std::string> small{{"picture size", "Other"}, {"other size", "420 x 330"}};
    auto with = [&](const std::string& name, const std::string& value) {
        auto fields = small;
        fields[name] = value;
        return fields;
    };
    save("Save &Picture...", small, "grey.png");
    EXPECT_EQ(image("grey.png").size(), QSize(420, 330));
    EXPECT_EQ(image("grey.png").pixelColor(2, 150), QColor(230, 230, 230));
    EXPECT_EQ(image("grey.png").pixelColor(415, 325), QColor(255, 255, 255)) << "no strip of a caption";
    save("Save &Picture...", with("white background", "on"), "white.png");
    EXPECT_EQ(image("white.png").pixelColor(2, 150), QColor(255, 255, 255));
    save("Save &Picture...", with("caption", "off"), "bare.jpg");
    EXPECT_EQ(image("bare.jpg").pixelColor(415, 325).lightness(), 230);
    save("Save &Picture...", {{"picture size", "Full HD"}}, "large.png");
    EXPECT_EQ(image("large.png").size(), QSize(1920, 1080));
    EXPECT_EQ(camera(), before);
    EXPECT_EQ(told_by([&] { save("Save &Picture...", with("other size", "420*330"), ""); }),
              "No size of a picture\nWrite width x height, such as 1200 x 800.\n");
    EXPECT_TRUE(contains(told_by([&] { save("Save &Picture...", small, "a.xyz"); }), ".png or .jpg"));
    EXPECT_TRUE(contains(told_by([&] { save("Save &Picture...", small, "nowhere/a.png"); }), "nowhere"));
    EXPECT_EQ(count("a."), 0u);
}

// What is written is whole or not there, and the system's own reason is told.
TEST_F(Saving, AFullDiskIsToldAndLeavesNothing) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; }, AnalysisType::eigen);
    write("full.png", "former");
    for (const char* name : {"full.png.part", "full.html.part"})
        std::filesystem::create_symlink("/dev/full", folder.path() / name);
    EXPECT_TRUE(contains(told_by([&] { save("Save &Picture...", {}, "full.png"); }, {"&Yes", ""}),
                         "full.png cannot be written: No space left on device"));
    EXPECT_EQ(read_file(folder.file("full.png")), "former");
    EXPECT_TRUE(contains(told_by([&] { begin("Save &Report...", {}, "full.html"); }),
                         "full.html cannot be written: No space left on device"));
    EXPECT_EQ(count("full.html"), 0u);
    const auto former_handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit former{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
    const rlimit little{2000, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &little), 0);
    const std::string told = told_by([&] {
        begin("Save &Animation...", {{"film format", "PNG"}}, "series.png");
        wait_for([&] { return contains(messages(), "series.png"); });
    });
    ::setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, former_handler);
    EXPECT_TRUE(contains(told, "series.png cannot be written: File too large")) << told;
    EXPECT_EQ(count("series"), 0u);
}

// A mode's film has each of the twenty phases once: it returns the way it came, and goes on with its first
// picture. The view shows what it showed before, and answers meanwhile.
TEST_F(Saving, AFilmOfAModeIsOneSwing) {
    ASSERT_TRUE(open(block_text));
    set_results([](const double* x) { return Vec3{0, x[0], 0}; }, AnalysisType::eigen);
    state().mode_swings = false;
    const auto shown_before = state();
    const view::Camera camera_before = camera();
    const std::map<std::string, std::string> fields{
        {"film format", "PNG"}, {"picture size", "Other"}, {"other size", "200x150"}};
    save("Save &Animation...", fields, "swing.png");
    int turns = 0;
    QTimer ticks;
    QObject::connect(&ticks, &QTimer::timeout, [&] { ++turns; });
    ticks.start(0);
    wait_for([&] { return contains(messages(), "swing.png: 20 pictures of 200 x 150, 20 a second"); });
    EXPECT_GE(turns, 10) << "the window stood still";
    EXPECT_EQ(count("swing_"), 20u);
    std::vector<QImage> images;
    for (int k = 1; k <= 20; ++k) images.push_back(image(formatted("swing_%04d.png", k)));
    EXPECT_EQ(images[0].size(), QSize(200, 150));
    for (int k = 1; k < 10; ++k) {
        EXPECT_EQ(images[k], images[20 - k]);
        EXPECT_NE(images[k], images[k - 1]);
    }
    EXPECT_EQ(state(), shown_before);
    EXPECT_EQ(camera(), camera_before);
    EXPECT_TRUE(contains(told_by([&] { save("Save &Animation...", fields, "swing.png"); }, {"Leave them"}),
                         "swing_0001.png is there already"));
    // a longer one that was there: what is left of it is told
    for (const char* name : {"swing_0021.png", "swing_0022.png", "swing_0024.png"}) write(name, "x");
    told_by([&] { save("Save &Animation...", fields, "swing.png"); }, {"Replace"});
    wait_for([&] { return contains(messages(), "are of an earlier film"); });
    EXPECT_TRUE(contains(messages(), "swing_0021.png to " + folder.file("swing_0022.png") + " are of"))
        << messages();
    // stopped: at once, and nothing stays
    save("Save &Animation...", fields, "other.png");
    QProgressDialog* progress = nullptr;
    for (auto* dialog : window->findChildren<QProgressDialog*>()) progress = dialog;
    ASSERT_TRUE(progress);
    QTest::qWait(10);
    progress->findChild<QPushButton*>()->click();
    EXPECT_EQ(count("other"), 0u);
    EXPECT_TRUE(contains(status(), "stopped")) << status();
    window->open_model(write("model.txt", block_text));
    wait_idle();
    trigger("Save &Animation...");  // without a result: a word and no dialog
    EXPECT_TRUE(contains(status(), "no result")) << status();
}

TEST_F(Saving, ViewsStayWithTheirModel) {
    ASSERT_TRUE(open(block_text));
    QMenu* views = nullptr;
    for (QMenu* menu : window->findChildren<QMenu*>())
        if (menu->title() == "Vi&ews") views = menu;
    ASSERT_TRUE(views);
    const auto list = [&] { emit views->aboutToShow(); };
    const auto toward = [&] { return Vec3{camera().turn[2], camera().turn[6], camera().turn[10]}; };
    for (const auto& [entry, from] : {std::pair<const char*, Vec3>{"&Front", {0, -1, 0}},
                                      {"&Back", {0, 1, 0}},
                                      {"&Left", {-1, 0, 0}},
                                      {"&Right", {1, 0, 0}},
                                      {"&Top", {0, 0, 1}},
                                      {"Botto&m", {0, 0, -1}}}) {
        trigger(entry);
        EXPECT_EQ(toward(), from) << entry;
    }
    const QImage perspective = picture();
    QTest::keyClick(window.get(), Qt::Key_O);
    EXPECT_TRUE(camera().orthographic && action("&Orthographic")->isChecked());
    EXPECT_NE(picture(), perspective);
    const auto save = [&](const char* name) {
        answer_next<QInputDialog>([name](QInputDialog* dialog) {
            dialog->setTextValue(name);
            dialog->accept();
        });
        trigger("&Save View...");
        expect_answered();
    };
    const view::Camera from_below = camera();
    list();
    save("R&D below");
    QTest::keyClick(window.get(), Qt::Key_O);
    EXPECT_FALSE(camera().orthographic);
    EXPECT_EQ(picture().size(), perspective.size());
    trigger("&Isometric");
    save("all sides");
    for (QAction* entry : views->actions())
        if (entry->text() == "R&&D below") entry->trigger();
    EXPECT_EQ(camera(), from_below);
    EXPECT_TRUE(action("&Orthographic")->isChecked());
    EXPECT_TRUE(contains(told_by([&] { save("all sides"); }, {"Leave it"}), "Replace it?"));
    EXPECT_TRUE(contains(told_by([&] { save("  "); }), "wants a name"));
    const QString file = QString::fromStdString(model().model_file_name);
    ASSERT_EQ(saved_views(file).size(), 2);
    EXPECT_NE(saved_views(file)[1].turn, from_below.turn) << "was left";
    ASSERT_TRUE(open(block_text, "another.txt"));
    list();
    EXPECT_TRUE(saved_views(QString::fromStdString(model().model_file_name)).isEmpty());
    ASSERT_TRUE(open(block_text));
    list();
    EXPECT_EQ(saved_views(file)[0].name, "R&D below");
    // records that another program has written
    QSettings settings = kept_settings();
    settings.beginGroup("views");
    const QString key = settings.childKeys().front();
    settings.setValue(key, settings.value(key).toStringList() << "x"
                                                              << "y\t0\t1\tnan");
    settings.sync();
    EXPECT_EQ(saved_views(file).size(), 2);
    list();
    for (QMenu* menu : window->findChildren<QMenu*>())
        if (menu->title() == "Remo&ve View") {
            menu->actions().front()->trigger();
            EXPECT_EQ(menu->actions().size(), 1);
        }
    EXPECT_EQ(saved_views(file).front().name, "all sides");
}

// Among the texts of the picture while the set is chosen in the tree; it moves with what it names.
TEST_F(Window, AChosenSetHasItsNameInThePicture) {
    ASSERT_TRUE(open(replaced(block_text, "rigid_element", "set_info PULLED plane x 0.4 %\nrigid_element")));
    set_results([](const double* x) { return Vec3{x[0], 0, 0}; });
    state().auto_scale = false;
    auto* tree = window->findChild<QTreeWidget*>();
    const auto rows = tree->findItems("PULLED", Qt::MatchExactly | Qt::MatchRecursive);
    ASSERT_EQ(rows.size(), 1);
    show_only({view::ViewFlag::fem}, view::ViewDirection::x);
    const QImage without = picture();
    tree->setCurrentItem(rows[0]);
    EXPECT_EQ(state().highlight.sets, std::vector<std::string>{"PULLED"});
    const view::Highlight chosen = state().highlight;
    state().highlight.sets.clear();
    const QImage unnamed = picture();
    state().highlight = chosen;
    const QImage named = picture();
    EXPECT_NE(unnamed, without);
    EXPECT_NE(named, unnamed) << "no name";
    tree->clearSelection();
    EXPECT_EQ(picture(), without);
}

}  // namespace
