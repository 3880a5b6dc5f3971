#include "app/window/verification.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QTimer>
#include <utility>

#include "app/program_path.h"

namespace kestralum {

namespace {

QString batch_program() {
    return QCoreApplication::applicationDirPath() + "/kestralum-batch";
}

QString last_line(const QByteArray& text) {
    const QStringList lines = QString::fromUtf8(text).split('\n', Qt::SkipEmptyParts);
    return lines.isEmpty() ? QString() : lines.back().trimmed();
}

}  // namespace

QString verification_cases() {
    const QFileInfo file(QString::fromStdString(shared_file("verify/cases.txt")));
    return file.isFile() ? file.canonicalFilePath() : QString();
}

Verification::Verification(Plan plan, QObject* parent) : QObject(parent), plan_(std::move(plan)) {
    QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
    // a thread that waits leaves its core to the window
    if (!variables.contains("OMP_WAIT_POLICY")) variables.insert("OMP_WAIT_POLICY", "passive");
    process_.setProcessEnvironment(variables);
    connect(&process_, &QProcess::readyReadStandardOutput, this, &Verification::read_lines);
    connect(&process_, &QProcess::finished, this, &Verification::end);
}

Verification::~Verification() {
    process_.disconnect(this);
    if (process_.state() == QProcess::NotRunning) return;
    process_.terminate();  // it ends its own processes
    if (!process_.waitForFinished(3000)) process_.kill();
    process_.waitForFinished(1000);
}

QStringList Verification::arguments() const {
    QStringList words{"verify", plan_.cases_file, "--quiet", "--log", plan_.log_folder + "/verify"};
    if (plan_.quick) words << "--quick";
    return words;
}

// Their names, to tell how far it is; false where the command cannot do that.
bool Verification::list_cases(QString& error) {
    QProcess list;
    list.start(batch_program(), arguments() << "--list");
    constexpr int patience = 10000;  // ms
    const bool ran = list.waitForFinished(patience) && list.exitStatus() == QProcess::NormalExit;
    if (!ran || list.exitCode() != 0) {
        error = last_line(list.readAllStandardError());
        if (error.isEmpty()) error = batch_program() + " cannot be run: " + list.errorString();
        return false;
    }
    for (const QString& line : QString::fromUtf8(list.readAllStandardOutput()).split('\n'))
        if (!line.isEmpty() && !line.startsWith(' ')) cases_.insert(line.section(' ', 0, 0));
    // the last line counts them
    cases_.remove(QString::number(cases_.size() - 1));
    return true;
}

void Verification::start() {
    QTimer::singleShot(0, this, [this] {
        QDir().mkpath(plan_.log_folder + "/verify");
        QString error;
        if (!list_cases(error)) {
            emit ended(false, error);
            return;
        }
        emit progressed(0, static_cast<int>(cases_.size()), "starts");
        process_.start(batch_program(), arguments() << "--report" << plan_.page);
    });
}

void Verification::cancel() {
    cancelled_ = true;
    if (process_.state() != QProcess::NotRunning) process_.terminate();
}

void Verification::read_lines() {
    while (process_.canReadLine()) {
        const QString line = QString::fromUtf8(process_.readLine()).trimmed();
        const QString name = line.section(' ', 0, 0);
        if (line.contains(" MISSED")) missed_ << line.simplified();
        if (line.contains(" checks met, ")) totals_ = line;
        if (cases_.contains(name)) done_.insert(name);
        const int done = static_cast<int>(done_.size()), all = static_cast<int>(cases_.size());
        emit progressed(done, all, totals_.isEmpty() ? name : "pictures");
    }
}

void Verification::end(int status, QProcess::ExitStatus how) {
    read_lines();
    if (cancelled_) return emit ended(true, {});
    // 1 where a check is missed, which the page tells too
    const QString said = last_line(process_.readAllStandardError());
    if (how == QProcess::NormalExit && (status == 0 || (status == 1 && !totals_.isEmpty() && said.isEmpty())))
        return emit ended(false, {});
    emit ended(false, how != QProcess::NormalExit ? QString("kestralum-batch was ended from outside")
                      : said.isEmpty() ? QString("kestralum-batch ended with status %1").arg(status)
                                       : said);
}

}  // namespace kestralum
