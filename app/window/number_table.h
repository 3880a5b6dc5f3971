// Rows of texts and numbers: shown with few digits, copied and saved with all.
#pragma once

#include <QString>
#include <QStringList>
#include <variant>
#include <vector>

class QTableWidget;
class QWidget;

namespace kestralum {

struct NumberTable {
    using Cell = std::variant<QString, double>;  // a number that is none is an empty field
    QStringList headings;
    std::vector<std::vector<Cell>> rows;
};

// A table for rows that are chosen whole and not altered.
QTableWidget* new_number_table(const QString& name);

// Into the widget; what is chosen there stays.
void show_table(const NumberTable& table, QTableWidget& widget);

// Headings and rows, a line each, fields with tabs or commas between them.
QString tabbed_text(const NumberTable& table);
std::string csv_text(const NumberTable& table);

// Asks for a file and writes the text; why that did not succeed, empty: it did, or none was named.
QString save_csv_text(QWidget* parent, const QString& title, const QString& name, const std::string& text);

}  // namespace kestralum
