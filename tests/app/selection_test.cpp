// Parts opened as they are; faces selected by click and copied as records.
#include <QClipboard>

#include "app/window_fixture.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::string bar_vol = vol_text(box_mesh({{4, 2, 3}, {400, 200, 300}}, ElementKind::tetrahedron10));

TEST_F(Window, SelectsFacesByClickAndCopiesTheirRecords) {
    ASSERT_TRUE(open(bar_vol, "bar.vol"));
    EXPECT_TRUE(contains(status(), "bar.txt was written")) << status();
    const auto click = [&](view::ViewDirection from, Qt::KeyboardModifiers keys) {
        window->view()->look_from(from);
        QTest::mouseClick(window->view(), Qt::LeftButton, keys, window->view()->rect().center());
    };
    const auto area = [&] { return measure_set(mesh(), shown().selection().all()).area; };
    using view::ViewDirection;
    QAction* copy = action("&Copy Selection");
    EXPECT_FALSE(copy->isEnabled());
    click(ViewDirection::z, Qt::NoModifier);
    EXPECT_NEAR(area(), 0.08, 1e-12);
    EXPECT_TRUE(copy->isEnabled());
    EXPECT_TRUE(contains(status(), "Element:")) << status();
    const QImage one = picture();
    click(ViewDirection::x, Qt::ShiftModifier);
    EXPECT_NEAR(area(), 0.08 + 0.06, 1e-12);
    EXPECT_NE(picture(), one);
    QTest::mousePress(window->view(), Qt::LeftButton, {}, {300, 300});
    QTest::mouseMove(window->view(), {310, 330});
    QTest::mouseRelease(window->view(), Qt::LeftButton, {}, {310, 330});
    EXPECT_NEAR(area(), 0.14, 1e-12) << "a drag selects nothing";
    copy->trigger();
    const std::string records = QApplication::clipboard()->text().toStdString();
    const std::vector<ElementFace> faces = shown().selection().all().faces;
    folder.write("bar.txt",
                 replaced(read_file(folder.file("bar.txt")), "set_info\n", "set_info\n" + records));
    run("&Update Model");
    EXPECT_FALSE(copy->isEnabled());
    ASSERT_EQ(mesh().sets.size(), 3u) << records;
    EXPECT_EQ(find_set(mesh(), "face_3")->faces, faces);

    for (const bool by_key : {true, false}) {
        click(ViewDirection::y, Qt::NoModifier);
        const QImage marked = picture();
        EXPECT_NEAR(area(), 0.12, 1e-12);
        if (by_key)
            QTest::keyClick(window.get(), Qt::Key_Escape);
        else
            QTest::mouseClick(window->view(), Qt::LeftButton, {}, {window->view()->width() - 3, 3});
        EXPECT_TRUE(shown().selection().empty());
        EXPECT_FALSE(copy->isEnabled());
        EXPECT_NE(picture(), marked);
    }
    click(ViewDirection::y, Qt::NoModifier);
    copy->trigger();
    EXPECT_TRUE(contains(QApplication::clipboard()->text().toStdString(), "face_4  patch")) << "another name";
}

TEST_F(Window, TellsWhyAPartIsNotOpened) {
    const std::pair<std::string, std::string> wrong[] = {{"two words.vol", "rename the file"},
                                                         {"empty.msh", "empty.msh"}};
    for (const auto& [name, why] : wrong) {
        const std::string told = told_by([&] { EXPECT_FALSE(open("", name)); });
        EXPECT_TRUE(contains(told, why)) << told;
    }
    EXPECT_EQ(model().source, ModelSource::start_up);
}

}  // namespace
