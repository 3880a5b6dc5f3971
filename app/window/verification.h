// The command `verify` as a process beside the window: the problems with a known answer, and the page of
// them.
#pragma once

#include <QObject>
#include <QProcess>
#include <QSet>
#include <QString>
#include <QStringList>

namespace kestralum {

// verify/cases.txt here, beside the program or as it is installed with it; "" where there is none.
QString verification_cases();

class Verification : public QObject {
    Q_OBJECT

public:
    struct Plan {
        QString cases_file;
        QString log_folder;  // in which it has a folder of its own
        QString page;        // to write
        bool quick = true;   // without the long cases
    };
    Verification(Plan plan, QObject* parent);
    ~Verification() override;  // ends the process

    const Plan& plan() const { return plan_; }
    void start();
    void cancel();

    // Known at the end.
    const QString& totals() const { return totals_; }      // "334 cases: 475 checks met, ..."
    const QStringList& missed() const { return missed_; }  // lines of checks, as the command prints them

signals:
    void progressed(int done, int cases, const QString& what);
    // `error`: why there is no page; empty: there is.
    void ended(bool cancelled, const QString& error);

private:
    QStringList arguments() const;
    bool list_cases(QString& error);
    void read_lines();
    void end(int status, QProcess::ExitStatus how);

    const Plan plan_;
    QProcess process_;
    QSet<QString> cases_, done_;
    QString totals_;
    QStringList missed_;
    bool cancelled_ = false;
};

}  // namespace kestralum
