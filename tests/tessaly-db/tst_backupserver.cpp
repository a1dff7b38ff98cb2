#include <QFile>
#include <QProcess>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;

namespace {

/// A server's own program makes its backups; the tool knows its command line.
class TestBackupServer : public ToolTest {
    Q_OBJECT
  private slots:
    void saysALineThatMakesABackup();
};

Outcome runLine(const QString& line) {
    QProcess shell;
    shell.start(u"sh"_s, {u"-c"_s, line});
    shell.waitForFinished();
    return {.status = shell.exitCode(),
            .out = QString::fromUtf8(shell.readAllStandardOutput()),
            .err = QString::fromUtf8(shell.readAllStandardError())};
}

}  // namespace

void TestBackupServer::saysALineThatMakesABackup() {
    create();
    scratch().setDataSource(scratch().dataSource({u"Password=hush"_s}));
    const QString backup = path(u"it's one.dump"_s);
    const auto said = run({u"backup"_s, backup});
    QVERIFY2(isOneLine(said.out) && said.out.startsWith(u"pg_dump "_s), qPrintable(said.out));
    QVERIFY(!said.out.contains(u"hush"_s));
    QVERIFY2(isOneLine(said.err) && said.err.contains(u"No backup was made"_s), qPrintable(said.err));
    QCOMPARE(said.status, 1);
    QVERIFY(!QFile::exists(backup));

    const auto made = runLine(said.out);
    QCOMPARE(made.err, QString());
    QCOMPARE(made.status, 0);
    const auto restored = runLine(u"pg_restore --file=- \"%1\""_s.arg(backup));
    QVERIFY2(restored.out.contains(u"CREATE TABLE public.users"_s), qPrintable(restored.err));
    QVERIFY(restored.out.contains(column("SELECT UserPwd FROM Users").first()));
}

QTEST_GUILESS_MAIN(TestBackupServer)
#include "tst_backupserver.moc"
