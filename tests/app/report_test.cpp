// The report: what stands in it, and that it stands for itself.
#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QStandardPaths>
#include <QXmlStreamReader>

#include "app/svg_chart.h"
#include "app/window/condition_words.h"
#include "app/window/report_page.h"
#include "app/window_fixture.h"
#include "model/format.h"

using namespace kestralum;
using namespace kestralum::testing;
using view::Vec3;

namespace {

// The page as a reader of XML takes it: texts by element, attributes by name; a fault of its form fails.
struct ReadPage {
    explicit ReadPage(const std::string& html) {
        QXmlStreamReader xml(QString::fromStdString(html));
        while (!xml.atEnd()) {
            xml.readNext();
            if (xml.isStartElement()) {
                elements.insert(xml.name().toString().toStdString());
                for (const auto& a : xml.attributes())
                    attributes.emplace(a.name().toString().toStdString(), a.value().toString());
            }
            if (xml.isCharacters()) text += xml.text().toString().toStdString() + "\n";
        }
        EXPECT_FALSE(xml.hasError()) << xml.errorString().toStdString() << ", line " << xml.lineNumber();
    }
    std::multiset<std::string> elements;
    std::multimap<std::string, QString> attributes;
    std::string text;
};

const std::string odd_text =
    replaced(replaced(block_text, "BLOCK orange", "<b>&\"x\" orange"), "PULL", "<i>");

TEST_F(Window, SavesAReportThatStandsForItself) {
    ASSERT_TRUE(open(odd_text));
    run("&Static");
    const auto state_before = state();
    const view::Camera camera_before = camera();
    answer_next<QDialog>([this](QDialog* dialog) {
        dialog->findChild<QCheckBox*>("report sides")->setChecked(true);
        dialog->findChild<QListWidget*>("report quantities")->item(1)->setCheckState(Qt::Checked);
        answer_next<QFileDialog>([this](QFileDialog* files) {
            files->findChild<QLineEdit*>("fileNameEdit")
                ->setText(QString::fromStdString(folder.file("page.html")));
            QMetaObject::invokeMethod(files, "accept");
        });
        dialog->accept();
    });
    run("Save &Report...");
    expect_answered();
    EXPECT_TRUE(contains(messages(), "page.html was written")) << messages();
    EXPECT_EQ(state(), state_before);
    EXPECT_EQ(camera(), camera_before);
    const ReadPage page(read_file(folder.file("page.html")));
    EXPECT_EQ(page.elements.count("script") + page.elements.count("link") + page.elements.count("b"), 0u);
    EXPECT_EQ(page.attributes.count("src"), 6u);  // model, view, three sides, one quantity
    for (auto [at, end] = page.attributes.equal_range("src"); at != end; ++at) {
        ASSERT_TRUE(at->second.startsWith("data:image/png;base64,"));
        const auto png = QByteArray::fromBase64(at->second.section(',', 1).toLatin1());
        EXPECT_EQ(QImage::fromData(png, "PNG").size(), QSize(1000, 700));
    }
    EXPECT_EQ(page.attributes.count("href"), 0u);
    // 7800 kg/m³ of 0.4 × 0.2 × 0.2 m; what check and summary print
    for (const char* word :
         {"<b>&\"x\"\n", "124.8\n", "model.txt", "KESTRALUM ver3.01", "holds x, y and z on the nodes within",
          "1000 N along x in all on the nodes within", "total mass             1.248000e+02 kg",
          "applied loads          1.000000e+03", "Displacement x", "from above"})
        EXPECT_TRUE(contains(page.text, word)) << word;
    std::vector<QString> pictures;
    for (auto [at, end] = page.attributes.equal_range("src"); at != end; ++at) pictures.push_back(at->second);
    for (std::size_t k = 1; k < pictures.size(); ++k) EXPECT_NE(pictures[k], pictures[k - 1]);
}

// The manual of `verify` has a picture of each problem, drawn on this display and on one in memory.
TEST(Report, OfVerificationHasPictures) {
    const TempFolder folder;
    std::filesystem::create_directory(folder.path() / "setting");
    folder.write("setting/setting.txt", settings_text());
    folder.write("bar.txt", bar_text);
    folder.write("cases.txt",
                 "case pulled title Pulled & clamped % model bar.txt % run static %\n"
                 "check tip displacement x at L 0 0 near 2.5e-6 rel 1e-6 %\n"
                 "case swings model bar.txt % picture --frame 1 % run eigen-lanczos %\n"
                 "check f frequency 1 above 0 %\n"
                 "case odd like swings family Odd % picture --nothing % check %\nEND\n");
    for (const bool display : {true, false}) {
        if (!display && QStandardPaths::findExecutable("Xvfb").isEmpty()) {
            std::puts("Xvfb is missing: pictures without a display are not tried");
            continue;
        }
        QProcess process;
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        if (!display) variables.remove("DISPLAY");
        process.setProcessEnvironment(variables);
        process.setWorkingDirectory(QString::fromStdString(folder.path().string()));
        process.start(KESTRALUM_BINARY_DIR "/kestralum-batch",
                      {"verify", "cases.txt", "--report", "page.html"});
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        const ReadPage page(read_file(folder.file("page.html")));
        const std::string said = process.readAllStandardOutput().toStdString();
        EXPECT_EQ(page.attributes.count("src"), 2u) << said;
        EXPECT_TRUE(contains(said, "\nnote: Odd: the window program has drawn no picture: ")) << said;
        EXPECT_TRUE(contains(page.text, "2 swings\n") && contains(page.text, "3 Odd\n")) << page.text;
        for (auto [at, end] = page.attributes.equal_range("src"); at != end; ++at) {
            const auto png = QByteArray::fromBase64(at->second.section(',', 1).toLatin1());
            EXPECT_EQ(QImage::fromData(png, "PNG").size(), QSize(480, 360));
        }
        EXPECT_TRUE(contains(page.text, "Pulled & clamped"));
        EXPECT_FALSE(std::filesystem::exists(folder.path() / "log/verify_pictures"));
        std::filesystem::remove(folder.path() / "page.html");
    }
}

// A straight line runs from the lower left to the upper right corner of its axes; unknown values leave gaps.
TEST(Report, DrawsCurvesWhereTheirValuesAre) {
    History history;
    history.axis = "Time";
    history.axis_unit = "s";
    HistoryColumn line{"a < b", "J", {}, {}}, gap = line;
    for (int k = 0; k <= 10; ++k) {
        history.x.push_back(0.1 * k);
        line.values.push_back(5 + 2.0 * k);
        gap.values.push_back(std::numeric_limits<double>::quiet_NaN());
    }
    history.columns = {line, gap};
    const std::size_t first[] = {0}, second[] = {1};
    const std::string svg = svg_chart(history, first);
    const ReadPage drawn(svg);
    const QStringList points = drawn.attributes.find("points")->second.split(' ', Qt::SkipEmptyParts);
    ASSERT_GE(points.size(), 11);
    EXPECT_EQ(points.front(), "80.0,256.0");
    EXPECT_EQ(points.back(), "700.0,16.0");
    for (const QString& point : points) {
        const double x = point.section(',', 0, 0).toDouble(), y = point.section(',', 1).toDouble();
        EXPECT_NEAR((256 - y) / 240, (x - 80) / 620, 1e-3);
    }
    EXPECT_TRUE(contains(drawn.text, "a < b") && contains(drawn.text, "Time [s]"));
    EXPECT_EQ(svg_chart(history, second), "");
}

TEST_F(Window, TellsEveryConditionInWords) {
    ASSERT_TRUE(open(QString(KESTRALUM_SOURCE_DIR "/data/bracket_cases.txt")));
    std::map<std::string, std::string> words;
    for (const ConditionWords& one : condition_words(model())) words[one.name] = one.kind + ": " + one.words;
    EXPECT_EQ(words["FLOOR"], "Support: holds z on set FOOT");
    EXPECT_EQ(words["DRIVE"], "Support: moves z by -0.02*mm m on set HEAD, load case settlement");
    EXPECT_EQ(words["BED"], "Support: springs along the normals, 2e10 N/m³ on set UNDER");
    EXPECT_EQ(words["PULL"], "Load: force of (200, 0, -200) N on set TIP");
    EXPECT_EQ(words["ALL"], "Combination: base+1.5*crane+settlement");
    EXPECT_EQ(words.size(),
              model().boundary_conditions.size() + model().loads.size() + model().ties.size() + 1);
}

}  // namespace
