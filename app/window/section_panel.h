// What the section planes of the picture carry in the frame shown.
#pragma once

#include <QWidget>
#include <memory>
#include <vector>

#include "app/section_rows.h"
#include "app/window/number_table.h"
#include "app/window/shown_model.h"

class QLabel;
class QPushButton;
class QTableWidget;
class QTimer;

namespace kestralum {

class SectionPanel : public QWidget {
    Q_OBJECT

public:
    explicit SectionPanel(ShownModel& shown, QWidget* parent = nullptr);

    const NumberTable& table() const { return rows_; }

public slots:
    // The picture may be another one: the forces follow when it has come to rest.
    void follow();
    void copy();

signals:
    void refused(const QString& why);

protected:
    void showEvent(QShowEvent* event) override;

private:
    // What the numbers are of.
    struct Key {
        std::weak_ptr<const Run> run;
        std::int32_t frame = 0;
        view::LengthUnit length = view::LengthUnit::metre;
        std::vector<view::ShownSection> sections;
        bool same(const Key& other) const;
    };
    Key key() const;
    void update_all();
    void add_rows(const view::ShownSection& section, const QString& name, QStringList& notes);
    QString nothing() const;

    ShownModel& shown_;
    Key known_, wanted_;
    NumberTable rows_;
    QTableWidget* table_;
    QLabel* note_;
    QPushButton *copy_, *save_;
    QTimer* rest_;
};

}  // namespace kestralum
