#pragma once

#include <QMap>
#include <QTest>

#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/services/print/PrintStation.h"
#include "tests/tessalyd/services/print/ScriptedPrinter.h"

namespace tessaly::test {

/// What the tests of printing share: a server that the node STATION may print on, and a printer of the table.
class PrintTest : public DaemonTest {
    Q_OBJECT

  protected:
    using Columns = QMap<QString, QVariant>;
    /// `port` of the printer's; it is the default one. The columns are further ones of its row.
    void launchWith(const QString& printerPort, const Columns& columns = {},
                    const QStringList& arguments = {});
    void addPrinter(const QString& name, const QString& port, const Columns& columns) const;
    [[nodiscard]] PrintStation station() const { return PrintStation{daemon_->port()}; }

    /// Makes a session and a film of one box; gives the box.
    [[nodiscard]] static std::string prepare(PrintStation& peer);

    struct JobRow {
        int state = -1;
        QString progress;
        QString error;
        bool operator==(const JobRow&) const = default;
    };
    [[nodiscard]] QList<JobRow> jobs() const;
    [[nodiscard]] bool areAll(int state, int count) const;
    /// What lies in the spool.
    [[nodiscard]] QStringList spooled() const;
    /// Adds so many jobs for the printer "Film", none of them due before tomorrow.
    void fillQueue(int count) const;
    /// As tessaly-db jobs retry does.
    void retryJobs() const;
};

}  // namespace tessaly::test
