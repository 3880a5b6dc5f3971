#include "app/window/number_table.h"

#include <QHeaderView>
#include <QTableWidget>
#include <algorithm>
#include <cmath>

#include "app/window/dialogs.h"
#include "app/window/saved_file.h"
#include "app/window/widgets.h"
#include "results/csv.h"

namespace kestralum {

namespace {

constexpr int few_digits = 6;

QString cell_text(const NumberTable::Cell& cell, int digits) {
    if (const auto* text = std::get_if<QString>(&cell)) return *text;
    const double value = std::get<double>(cell);
    return std::isnan(value) ? QString() : QString::number(value, 'g', digits);
}

}  // namespace

QTableWidget* new_number_table(const QString& name) {
    auto* table = named(name, new QTableWidget);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table->setAlternatingRowColors(true);
    table->verticalHeader()->hide();
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 6);
    return table;
}

void show_table(const NumberTable& table, QTableWidget& widget) {
    const int rows = static_cast<int>(table.rows.size()), columns = static_cast<int>(table.headings.size());
    const bool others = widget.rowCount() != rows || widget.columnCount() != columns;
    widget.setColumnCount(columns);
    widget.setRowCount(rows);
    bool wider = others;
    for (int c = 0; c < columns; ++c)
        if (!widget.horizontalHeaderItem(c) || widget.horizontalHeaderItem(c)->text() != table.headings[c])
            wider = true;
    widget.setHorizontalHeaderLabels(table.headings);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
            const NumberTable::Cell& cell = table.rows[r][c];
            const QString text = cell_text(cell, few_digits);
            QTableWidgetItem* item = widget.item(r, c);
            if (!item) widget.setItem(r, c, item = new QTableWidgetItem);
            const bool number = std::holds_alternative<double>(cell);
            item->setTextAlignment((number ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
            wider = wider || text.size() > item->text().size();
            item->setText(text);
        }
    if (wider) widget.resizeColumnsToContents();
}

QString tabbed_text(const NumberTable& table) {
    QString text = table.headings.join('\t') + '\n';
    for (const auto& row : table.rows) {
        QStringList fields;
        for (const auto& cell : row) fields << cell_text(cell, QLocale::FloatingPointShortest);
        text += fields.join('\t') + '\n';
    }
    return text;
}

std::string csv_text(const NumberTable& table) {
    const auto line = [](const QStringList& fields) {
        std::string out;
        for (qsizetype k = 0; k < fields.size(); ++k)
            out += (k > 0 ? "," : "") + csv_field(fields[k].toStdString());
        return out + '\n';
    };
    std::string text = line(table.headings);
    for (const auto& row : table.rows) {
        QStringList fields;
        for (const auto& cell : row) fields << cell_text(cell, QLocale::FloatingPointShortest);
        text += line(fields);
    }
    return text;
}

QString save_csv_text(QWidget* parent, const QString& title, const QString& name, const std::string& text) {
    const QString file = ask_for_new_file(parent, title, name, ".csv");
    if (file.isEmpty()) return {};
    const QString fault = save_whole(file, text);
    return fault.isEmpty() ? QString() : "Not saved: " + fault;
}

}  // namespace kestralum
