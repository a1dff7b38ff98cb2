#include <QTest>

#include "db/Query.h"
#include "tessalyd/configuration/Configuration.h"
#include "tessalyd/forwarding/ftp/Node.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// Rows of FtpNodes as the server reads them.
class FtpNodeTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void readsHosts_data();
    void readsHosts();
    void splitsFolders_data();
    void splitsFolders();
    void findsANodeWithoutRegardToCase();
    void findsANodeInTheConsolesOwnTable();
};

void FtpNodeTest::readsHosts_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("host");  // empty: none
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("tls");
    QTest::newRow("name") << u"pacs.example"_s << u"pacs.example"_s << 21 << false;
    QTest::newRow("name and port") << u"pacs:2121"_s << u"pacs"_s << 2121 << false;
    QTest::newRow("blanks around") << u"  pacs:2121 "_s << u"pacs"_s << 2121 << false;
    QTest::newRow("version 4") << u"192.0.2.1:21"_s << u"192.0.2.1"_s << 21 << false;
    QTest::newRow("version 6") << u"[2001:db8::1]"_s << u"2001:db8::1"_s << 21 << false;
    QTest::newRow("version 6 and port") << u"[::1]:990"_s << u"::1"_s << 990 << false;
    QTest::newRow("TLS") << u"ftpes://pacs"_s << u"pacs"_s << 21 << true;
    QTest::newRow("TLS and port") << u"ftpes://pacs:2121"_s << u"pacs"_s << 2121 << true;
    QTest::newRow("TLS in capitals") << u"FTPES://pacs"_s << u"pacs"_s << 21 << true;
    QTest::newRow("TLS, version 6 and port") << u"ftpes://[::1]:2121"_s << u"::1"_s << 2121 << true;
    for (const char* wrong :
         {"",          ":21",     "pacs:", "pacs:0", "pacs:65536",  "pacs:21x",    "pacs:-1",    "::1",
          "[::1",      "[::1]21", "[]",    "[pacs]", "[192.0.2.1]", "ftps://pacs", "ftp://pacs", "ftpes://",
          "user@pacs", "pacs/in", "pa cs", "pacs?x", "pacs#x",      "pa\ncs",      "p\303\244cs"})
        QTest::addRow("not %s", qPrintable(QString::fromLatin1(QByteArray{wrong}.toPercentEncoding())))
            << QString::fromUtf8(wrong) << QString{} << 0 << false;
}

void FtpNodeTest::readsHosts() {
    QFETCH(const QString, text);
    QFETCH(const QString, host);
    QFETCH(const int, port);
    QFETCH(const bool, tls);
    const auto address = ftp::parseAddress(text.toStdString());
    QCOMPARE(address.has_value(), !host.isEmpty());
    if (address) {
        QCOMPARE(QString::fromStdString(address->host), host);
        QCOMPARE(int{address->port}, port);
        QCOMPARE(address->tls, tls);
    }
}

void FtpNodeTest::splitsFolders_data() {
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("parts");
    QTest::newRow("that of the login") << u"."_s << QStringList{};
    QTest::newRow("empty") << QString{} << QStringList{};
    QTest::newRow("one") << u"in"_s << QStringList{u"in"_s};
    QTest::newRow("several") << u"./in//box/."_s << QStringList{u"in"_s, u"box"_s};
    QTest::newRow("from the root") << u"/srv/in/"_s << QStringList{u"/"_s, u"srv"_s, u"in"_s};
    QTest::newRow("the root") << u"/"_s << QStringList{u"/"_s};
    QTest::newRow("upwards") << u"../in"_s << QStringList{u".."_s, u"in"_s};
}

void FtpNodeTest::splitsFolders() {
    QFETCH(const QString, folder);
    QStringList parts;
    for (const std::string& part : ftp::partsOf(folder.toStdString()))
        parts << QString::fromStdString(part);
    QTEST(parts, "parts");
}

void FtpNodeTest::findsANodeWithoutRegardToCase() {
    const ScratchDatabase database;
    database.run(
        u"INSERT INTO FtpNodes (Name, Host, UserName, UserPwd, Destination, NodeType) "
        "VALUES ('Backup', ' pacs:2121 ', 'me', ' secret ', 'in', 'Quib')"_s);
    tessaly::db::Connection connection;
    openDatabase(connection);
    const auto node = ftp::findNode(connection, "BACKUP");
    QVERIFY(node);
    QCOMPARE(node->name, std::string{"Backup"});
    QCOMPARE(node->host, std::string{"pacs:2121"});
    QCOMPARE(node->user, std::string{"me"});
    QCOMPARE(node->password, std::string{" secret "});
    QCOMPARE(node->destination, std::string{"in"});
    QCOMPARE(node->type, std::string{"Quib"});
    QCOMPARE(ftp::targetOf(" BackUp "), std::string{"backup"});
    QVERIFY(!ftp::findNode(connection, "backup2"));
    QVERIFY(!ftp::findNode(connection, ""));
}

void FtpNodeTest::findsANodeInTheConsolesOwnTable() {
    const ScratchDatabase database;
    database.run(u"DROP TABLE FtpNodes"_s);
    database.run(
        u"CREATE TABLE FtpNodes (Name VARCHAR(16) NOT NULL PRIMARY KEY, Host VARCHAR(64), "
        "UserName VARCHAR(16), UserPwd VARCHAR(16), Destination VARCHAR(128), NodeType VARCHAR(8))"_s);
    database.run(u"INSERT INTO FtpNodes (Name, Host) VALUES ('Backup', 'pacs')"_s);
    tessaly::db::Connection connection;
    openDatabase(connection);
    const auto node = ftp::findNode(connection, "backup");
    QVERIFY(node);
    QCOMPARE(node->name, std::string{"Backup"});
    QCOMPARE(node->type, std::string{});
}

QTEST_GUILESS_MAIN(FtpNodeTest)
#include "tst_ftpnode.moc"
