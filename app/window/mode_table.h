// The modes of an eigen or buckling run as a table: a row chosen asks for that frame.
#pragma once

#include <QWidget>
#include <functional>

#include "model/run.h"

class QLabel;
class QPushButton;
class QTableWidget;

namespace kestralum {

class ModeTable : public QWidget {
    Q_OBJECT

public:
    // `run` gives the run that is shown, null where there is none.
    explicit ModeTable(std::function<const Run*()> run, QWidget* parent = nullptr);

    // Heading and rows, fields divided by tabs.
    QString text() const;

public slots:
    void refresh();              // another run
    void show_frame(int frame);  // which is drawn, from 1
    void copy();                 // text() onto the clipboard

signals:
    void frame_chosen(int frame);

private:
    void fill(const Run& run);
    void fill_masses(const Run& run);

    const std::function<const Run*()> run_;
    QLabel* note_;
    QTableWidget* table_;
    QPushButton* copy_;
};

}  // namespace kestralum
