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
    EXPECT_TRUE(contains(messages(), "bar.txt was written")) << messages();
    QAction* copy = action("&Copy Selection");
    // clicks on the middle of what is seen from there: the area selected
    const auto area = [&](view::ViewDirection from, Qt::KeyboardModifiers keys) {
        window->view()->look_from(from);
        QTest::mouseClick(window->view(), Qt::LeftButton, keys, window->view()->rect().center());
        EXPECT_TRUE(copy->isEnabled());
        return measure_set(mesh(), shown().selection().all()).area;
    };
    using view::ViewDirection;
    EXPECT_FALSE(copy->isEnabled());
    EXPECT_NEAR(area(ViewDirection::z, Qt::NoModifier), 0.08, 1e-12);
    const QImage one = picture();
    EXPECT_NEAR(area(ViewDirection::x, Qt::ShiftModifier), 0.08 + 0.06, 1e-12);
    EXPECT_NE(picture(), one);
    const std::vector<ElementFace> faces = shown().selection().all().faces;
    QTest::mousePress(window->view(), Qt::LeftButton, {}, {300, 300});
    QTest::mouseMove(window->view(), {310, 330});
    QTest::mouseRelease(window->view(), Qt::LeftButton, {}, {310, 330});
    EXPECT_EQ(shown().selection().all().faces, faces) << "a drag selects nothing";
    copy->trigger();
    const std::string records = QApplication::clipboard()->text().toStdString();
    write("bar.txt", replaced(read_file(folder.file("bar.txt")), "set_info\n", "set_info\n" + records));
    run("&Update Model");
    EXPECT_FALSE(copy->isEnabled());
    ASSERT_EQ(mesh().sets.size(), 3u) << records;
    EXPECT_EQ(find_set(mesh(), "face_3")->faces, faces);
    for (const bool by_key : {true, false}) {
        EXPECT_NEAR(area(ViewDirection::y, Qt::NoModifier), 0.12, 1e-12);
        const QImage marked = picture();
        if (by_key)
            QTest::keyClick(window.get(), Qt::Key_Escape);
        else
            QTest::mouseClick(window->view(), Qt::LeftButton, {}, {window->view()->width() - 3, 3});
        EXPECT_FALSE(copy->isEnabled() || !shown().selection().empty());
        EXPECT_NE(picture(), marked);
    }
}

TEST_F(Window, TellsWhyAPartIsNotOpened) {
    for (const auto& [name, why] :
         {std::pair{"two words.vol", "rename the file"}, {"empty.msh", "empty.msh, line 1"}}) {
        const std::string told = told_by([&, part = name] { EXPECT_FALSE(open("", part)); });
        EXPECT_TRUE(contains(told, why)) << told;
    }
}

}  // namespace
