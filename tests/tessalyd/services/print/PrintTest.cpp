#include "tests/tessalyd/services/print/PrintTest.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDateTime>

using namespace Qt::StringLiterals;

namespace tessaly::test {

void PrintTest::launchWith(const QString& printerPort, const Columns& columns, const QStringList& arguments) {
    daemon_ = std::make_unique<Daemon>();
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query, Print) VALUES (?, ?, ?, ?, ?, 0, 0, 1)"_s,
        {u"STATION"_s, u"STATION"_s, u"TESSALY"_s, u"127.0.0.1"_s, u"104"_s});
    Columns all = columns;
    all.insert(u"DefaultPrinter"_s, 1);
    addPrinter(u"Film"_s, printerPort, all);
    daemon_->launch(arguments);
}

void PrintTest::addPrinter(const QString& name, const QString& port, const Columns& columns) const {
    QStringList names{u"Name"_s, u"AETitle"_s, u"Host"_s, u"Port"_s};
    QVariantList values{name, u"PRINTER"_s, u"127.0.0.1"_s, port};
    for (auto column = columns.begin(); column != columns.end(); ++column) {
        if (names.contains(column.key())) {
            values[names.indexOf(column.key())] = column.value();
        } else {
            names << column.key();
            values << column.value();
        }
    }
    daemon_->database.run(u"INSERT INTO Printers (%1) VALUES (%2)"_s.arg(
                              names.join(u", "_s), QStringList{names.size(), u"?"_s}.join(u", "_s)),
                          values);
}

std::string PrintTest::prepare(PrintStation& peer) {
    if (peer.createSession().status != 0)
        return {};
    const auto film = peer.createFilm("STANDARD\\1,1");
    const auto boxes = film.references(DCM_ReferencedImageBoxSequence);
    return boxes.size() == 1 ? boxes.front() : std::string{};
}

QList<PrintTest::JobRow> PrintTest::jobs() const {
    QList<JobRow> found;
    for (const QStringList& row : daemon_->database.rows(
             u"SELECT State, Progress, LastError FROM Job WHERE Kind='PRINT' ORDER BY Number"_s))
        found << JobRow{row.at(0).toInt(), row.at(1), row.at(2)};
    return found;
}

bool PrintTest::areAll(int state, int count) const {
    const auto all = jobs();
    return all.size() == count &&
           std::all_of(all.begin(), all.end(), [state](const JobRow& job) { return job.state == state; });
}

QStringList PrintTest::spooled() const {
    QStringList found = daemon_->entries();
    found.removeIf([](const QString& path) { return !path.contains(u"/.spool/"_s); });
    return found;
}

void PrintTest::fillQueue(int count) const {
    const qint64 tomorrow = QDateTime::currentSecsSinceEpoch() + 86'400;
    daemon_->database.run(
        u"INSERT INTO Job (Kind, Target, JobKey, State, NextAttempt, Created, Begun) "
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) "
        "SELECT 'PRINT', 'film', CAST(i AS VARCHAR(10)), 0, %2, 0, 0 FROM n"_s.arg(count)
            .arg(tomorrow));
}

void PrintTest::retryJobs() const {
    daemon_->database.run(
        u"UPDATE Job SET State=0, Attempts=0, NextAttempt=0 WHERE Kind='PRINT' AND State IN (0,3,4)"_s);
}

}  // namespace tessaly::test
