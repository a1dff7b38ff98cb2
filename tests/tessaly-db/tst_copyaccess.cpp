#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/tessaly-db/ToolTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;

namespace {

// A file as that program writes it: of an example in Debian's fp-units-db, cut down to the pages of one table,
// which got the name Users and eight rows of ours. Its names are in the code page 1252.
constexpr const char* AccessFile = TESSALY_ACCESS_FILE;
constexpr qint64 OverlongRow = 0x1380b;  // the flags of the row that the tables have no room for
constexpr char Deleted = 0x40;

/// From an Access file, through a driver that only reads.
class TestCopyAccess : public ToolTest {
    Q_OBJECT
  private slots:
    void copiesWhatThereIs();
    void saysWhatDoesNotFit();
    void aFileThatIsNone();

  private:
    [[nodiscard]] QString accessFile() const { return path(u"access/Old archive.mdb"_s); }
    /// Makes the file and the data source.
    void writeAccessFile(const QByteArray& bytes) const;
    /// Of the file and what lies beside it.
    [[nodiscard]] QStringList fingerprint() const;
    [[nodiscard]] static Outcome copy(const QStringList& more = {}) {
        return run(QStringList{u"copy"_s, u"--from"_s, u"Access"_s, u"--to"_s, DataSource} + more);
    }
};

QByteArray original() {
    QFile file(QString::fromUtf8(AccessFile));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray{};
}

}  // namespace

void TestCopyAccess::writeAccessFile(const QByteArray& bytes) const {
    QVERIFY(QDir().mkpath(path(u"access"_s)));
    QFile file(accessFile());
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
    file.close();
    addDataSource(u"Access"_s, u"Driver=MDBTools\nDatabase="_s + accessFile());
}

QStringList TestCopyAccess::fingerprint() const {
    QFile file(accessFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QDir(path(u"access"_s)).entryList(QDir::Files | QDir::Hidden) +
           QStringList{QString::fromLatin1(
               QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex())};
}

void TestCopyAccess::copiesWhatThereIs() {
    QByteArray bytes = original();
    QVERIFY(bytes.size() > OverlongRow);
    bytes[OverlongRow] = static_cast<char>(bytes[OverlongRow] | Deleted);
    writeAccessFile(bytes);
    const auto before = fingerprint();
    QCOMPARE(before.size(), 2);

    const auto copied = copy();
    QCOMPARE(copied.err, QString());
    QCOMPARE(copied.status, 0);
    const auto lines = tableLines(copied.out);
    QVERIFY2(lines.filter(u"Users 7 7 "_s).size() == 1, qPrintable(copied.out));
    QVERIFY2(lines.contains(u"Users: the source has no column UserPwd"_s), qPrintable(copied.out));
    QVERIFY2(lines.contains(u"Users: the source's column id is left out"_s), qPrintable(copied.out));
    QVERIFY2(lines.contains(u"The source has no table Image"_s), qPrintable(copied.out));

    QStringList users = column("SELECT UserName FROM Users");
    QStringList expected{u"Zoë Brøndby-Münz"_s, u"D'Arcy \"the\" Doc"_s, u"radiologist one"_s, u"radiology two"_s,
                         u"night shift."_s,     u"Weekend Team"_s,       u"reader only"_s};
    users.sort();
    expected.sort();
    QCOMPARE(users, expected);
    QCOMPARE(column("SELECT Signature FROM Users WHERE UserName='D''Arcy \"the\" Doc'"),
             QStringList{u"100%; {a}=b; [x] \\ y"_s});
    QCOMPARE(column("SELECT Signature FROM Users WHERE UserName='Zoë Brøndby-Münz'"),
             QStringList{u"Röntgen, €, Ægir St."_s});
    QCOMPARE(column("SELECT UserName FROM Users WHERE UserPwd IS NULL AND DcmAdmin=0").size(), 7);
    QCOMPARE(fingerprint(), before);
}

void TestCopyAccess::saysWhatDoesNotFit() {
    writeAccessFile(original());
    const auto before = fingerprint();
    const bool fits = !test::ScratchDatabase::isPostgresql();  // the file engine has no bounds
    const auto dry = copy({u"--dry-run"_s});
    QCOMPARE(dry.err, QString());
    QCOMPARE(dry.status, fits ? 0 : 1);
    QCOMPARE(dry.out.startsWith(
                 u"Users Archive Maintenance: UserName is too long: 19 of 16 characters\n"_s),
             !fits);
    QVERIFY(!hasTables());

    const auto copied = copy();
    QCOMPARE(copied.status, fits ? 0 : 1);
    QCOMPARE(hasTables(), fits);
    QVERIFY2(fits || (isOneLine(copied.err) && copied.out.isEmpty()), qPrintable(copied.err + copied.out));
    QCOMPARE(fingerprint(), before);
}

void TestCopyAccess::aFileThatIsNone() {
    writeAccessFile(QByteArray(8192, 'x'));
    for (const QStringList& more : {QStringList{}, QStringList{u"--dry-run"_s}}) {
        const auto refused = copy(more);
        QCOMPARE(refused.status, 1);
        QCOMPARE(refused.out, QString());
        // The driver writes a line of its own first, and gives none to the tool.
        const auto lines = refused.err.split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(!lines.isEmpty() && lines.last().startsWith(u"tessaly-db: "_s), qPrintable(refused.err));
    }
    QVERIFY(!hasTables());
}

QTEST_GUILESS_MAIN(TestCopyAccess)
#include "tst_copyaccess.moc"
