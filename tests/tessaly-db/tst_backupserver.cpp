#include <QFile>
#include <QProcess>
#include <QTest>

#include "tests/support/Eventually.h"
#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;

namespace {

/// A server's own program makes its backups; the tool knows its command line.
class TestBackupServer : public ToolTest {
    Q_OBJECT
  private slots:
    void saysALineThatMakesABackup();
    void theLineIsAsSafeAsTheDataSource();
};

Outcome runLine(const QString& line) {
    QProcess shell;
    shell.start(u"sh"_s, {u"-c"_s, line});
    const bool isOver = shell.waitForFinished(tessaly::test::PatienceMs);
    return {.status = isOver && shell.exitStatus() == QProcess::NormalExit ? shell.exitCode() : -1,
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

void TestBackupServer::theLineIsAsSafeAsTheDataSource() {
    create();
    const QString backup = path(u"one.dump"_s);
    const auto line = [&](const QStringList& words) {
        scratch().setDataSource(scratch().dataSource(words));
        return run({u"backup"_s, backup}).out;
    };
    const QString safe = line({u"SSLmode=verify-full"_s});
    QVERIFY2(safe.startsWith(u"PGSSLMODE=verify-full pg_dump "_s), qPrintable(safe));
    const QString more = line(
        {u"SSLmode=verify-ca"_s,
         u"pqopt=keepalives_idle=30 sslrootcert = '/a b/it\\'s.crt' password=hush sslcert=/c\\ d.crt"_s});
    QVERIFY2(more.startsWith(u"PGSSLMODE=verify-ca PGSSLROOTCERT='/a b/it'\\''s.crt' PGSSLCERT='/c d.crt' "
                             "pg_dump "_s),
             qPrintable(more));
    QVERIFY(!more.contains(u"hush"_s));
    const auto read = runLine(more.section(u" pg_dump "_s, 0, 0) +
                              u" sh -c 'echo \"$PGSSLMODE,$PGSSLROOTCERT,$PGSSLCERT\"'"_s);
    QCOMPARE(read.out, u"verify-ca,/a b/it's.crt,/c d.crt\n"_s);

    const auto made = runLine(safe);  // a socket of the machine's own needs no certificate
    QCOMPARE(made.err, QString());
    QCOMPARE(made.status, 0);
    QVERIFY(QFile::exists(backup));
}

QTEST_GUILESS_MAIN(TestBackupServer)
#include "tst_backupserver.moc"
