#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;

namespace {

/// What an engine alone has that keeps its database in a file.
class TestCheckFile : public ToolTest {
    Q_OBJECT
  private slots:
    void findsNoDatabaseInAFile();
};

}  // namespace

void TestCheckFile::findsNoDatabaseInAFile() {
    const QByteArray content(10'000, 'x');
    QVERIFY(QDir().mkpath(path(u"data"_s)));
    QFile database(file());
    QVERIFY(database.open(QIODevice::WriteOnly));
    database.write(content);
    database.close();
    const auto checked = run({u"check"_s});
    QCOMPARE(checked.status, 1);
    QVERIFY2(isOneLine(checked.out), qPrintable(checked.out));
    QCOMPARE(checked.err, QString());
    for (const QStringList& command : {QStringList{u"add-admin"_s, u"x"_s}, QStringList{u"upgrade"_s}}) {
        const auto refused = run(command);
        QCOMPARE(refused.status, 1);
        QVERIFY2(isOneLine(refused.err), qPrintable(refused.err));
    }
    QVERIFY(database.open(QIODevice::ReadOnly));
    QCOMPARE(database.readAll(), content);
}

QTEST_GUILESS_MAIN(TestCheckFile)
#include "tst_checkfile.moc"
