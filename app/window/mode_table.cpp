#include "app/window/mode_table.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "app/window/number_table.h"
#include "app/window/widgets.h"

namespace kestralum {

namespace {

constexpr const char* nothing =
    "Run an eigen or buckling analysis, or open its result file: its modes are listed here. A click on one "
    "shows it.";

QString number(double value, int digits) {
    return QString::number(value, 'g', digits);
}

QStringList headings(const Run& run) {
    const bool eigen = run.ana_type == AnalysisType::eigen;
    QStringList out{"No.", eigen ? "Frequency [Hz]" : "Load factor"};
    if (eigen ? run.report.modes.empty() : run.report.buckling.factors.empty()) return out;
    out << "Residual";
    for (const char* axis : {"x", "y", "z"})
        if (eigen) out << QString("Mass %1 [kg]").arg(axis) << QString("%1 [%]").arg(axis);
    return out;
}

// The fields of a row; of a file number and frequency alone.
QStringList fields(const Run& run, std::size_t mode) {
    constexpr int digits = 6, few = 3;
    QStringList out{QString::number(mode + 1), number(run.results[mode]->n_freq, digits)};
    const RunReport& report = run.report;
    if (run.ana_type == AnalysisType::buckling && mode < report.buckling.factors.size())
        out << number(report.buckling.factors[mode].residual, few);
    if (run.ana_type != AnalysisType::eigen || mode >= report.modes.size()) return out;
    out << number(report.modes[mode].residual, few);
    for (const double mass : report.modes[mode].effective_mass) {
        out << number(mass, digits - 2);
        out << (report.total_mass > 0 ? QString::number(100 * mass / report.total_mass, 'f', 1) : QString());
    }
    return out;
}

}  // namespace

ModeTable::ModeTable(std::function<const Run*()> run, QWidget* parent)
    : QWidget(parent),
      run_(std::move(run)),
      note_(new QLabel(nothing)),
      table_(new_number_table("mode_rows")),
      copy_(new QPushButton("Copy Table")) {
    setObjectName("mode_table");
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    copies_with_key(table_, [this] { copy(); });
    note_->setObjectName("mode_note");
    note_->setWordWrap(true);
    copy_->setObjectName("mode_copy");
    copy_->setToolTip("The whole table as text onto the clipboard");
    connect(copy_, &QPushButton::clicked, this, &ModeTable::copy);
    connect(table_, &QTableWidget::currentCellChanged, this, [this](int row, int, int before, int) {
        if (row >= 0 && row != before) emit frame_chosen(row + 1);
    });
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    column->addWidget(table_, 1);
    column->addWidget(note_);
    column->addWidget(copy_, 0, Qt::AlignLeft);
    refresh();
}

void ModeTable::refresh() {
    const QSignalBlocker quiet(table_);
    const Run* run = run_();
    const bool modes = run && has_shapes(run->ana_type) && run->mode_num() > 0;
    table_->clear();
    table_->setRowCount(0);
    table_->setVisible(modes);
    copy_->setVisible(modes);
    note_->setText(nothing);
    if (!modes) return;
    fill(*run);
    fill_masses(*run);
}

void ModeTable::fill(const Run& run) {
    const QStringList heads = headings(run);
    table_->setColumnCount(static_cast<int>(heads.size()));
    table_->setHorizontalHeaderLabels(heads);
    table_->setRowCount(run.mode_num());
    const QColor grey = palette().color(QPalette::Disabled, QPalette::Text);
    for (int row = 0; row < run.mode_num(); ++row) {
        const QStringList texts = fields(run, row);
        const bool rigid = std::size_t(row) < run.report.modes.size() && run.report.modes[row].zero;
        for (int c = 0; c < std::min(texts.size(), heads.size()); ++c) {
            auto* item = new QTableWidgetItem(texts[c]);
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            if (rigid) {
                item->setForeground(grey);
                item->setToolTip("A motion without deformation");
            }
            table_->setItem(row, c, item);
        }
    }
    table_->resizeColumnsToContents();
}

// What the modes hold together of the mass in each direction.
void ModeTable::fill_masses(const Run& run) {
    const RunReport& report = run.report;
    if (run.ana_type != AnalysisType::eigen || report.modes.empty() || report.total_mass <= 0)
        return note_->setText(run.ana_type == AnalysisType::eigen
                                  ? "A result file tells the frequencies alone."
                                  : "At a load factor of 1 the loads are those of the model.");
    QStringList shares;
    for (std::size_t k = 0; k < 3; ++k) {
        double sum = 0;
        for (const ModeReport& mode : report.modes) sum += mode.effective_mass[k];
        shares << QString("%1 %2 %").arg("xyz"[k]).arg(100 * sum / report.total_mass, 0, 'f', 1);
    }
    note_->setText(
        QString("Together they move %1 of %2 kg.").arg(shares.join(", "), number(report.total_mass, 5)));
}

void ModeTable::show_frame(int frame) {
    if (frame < 1 || frame > table_->rowCount()) return;
    const QSignalBlocker quiet(table_);
    if (table_->currentRow() != frame - 1) table_->setCurrentCell(frame - 1, 0);
}

QString ModeTable::text() const {
    QStringList lines;
    const Run* run = run_();
    if (!run || table_->rowCount() == 0) return {};
    lines << headings(*run).join('\t');
    for (int row = 0; row < std::min(table_->rowCount(), run->mode_num()); ++row)
        lines << fields(*run, row).join('\t');
    return lines.join('\n') + '\n';
}

void ModeTable::copy() {
    if (const QString all = text(); !all.isEmpty()) QApplication::clipboard()->setText(all);
}

}  // namespace kestralum
