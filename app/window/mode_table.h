// The modes of an eigen or buckling run as a table: a row chosen asks for that frame.
#pragma once

#include <QWidget>
#include <functional>

#include "model/run.h"

class QLabel;
class QPushButton;
class QTableWidget;

namespace kestralum {

// The first mode that deforms the body, from 1; 0 where there are no modes. A file tells frequencies alone:
// there the rigid ones are those that lie before a step to a thousandfold frequency.
int first_elastic_mode(const Run& run);

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

protected:
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    void fill(const Run& run);
    void fill_masses(const Run& run);

    const std::function<const Run*()> run_;
    QLabel* note_;
    QTableWidget* table_;
    QPushButton* copy_;
};

}  // namespace kestralum
