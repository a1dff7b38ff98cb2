#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <limits>
#include <stdexcept>
#include <vector>

#include "dicom/data/ObjectFile.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly::dicom;
using namespace tessaly::test;

/// Objects on the disk, whole and not.
class ObjectFileTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aFileSaysWhatItIs();
    void aFileThatIsShortenedMeanwhileCannotBeRead();
    void whatIsNoFileOfOursIsRefused_data();
    void whatIsNoFileOfOursIsRefused();

  private:
    QString file(const QString& name) const { return folder_.filePath(name); }

    QTemporaryDir folder_;
};

void ObjectFileTest::aFileSaysWhatItIs() {
    const QString path = writeObject({.instance = "1.2.5"}, file(u"one.dcm"_s), EXS_RLELossless);
    ObjectFile object{path.toStdString()};
    QCOMPARE(object.kind().sopClass, std::string{UID_CTImageStorage});
    QCOMPARE(object.kind().transferSyntax, std::string{UID_RLELosslessTransferSyntax});
    QCOMPARE(object.sopInstanceUid(), std::string{"1.2.5"});
    const QByteArray all = dataSetOf(path);
    QCOMPARE(object.size(), static_cast<std::size_t>(all.size()));
    QByteArray read(all.size(), '\0');
    const std::span target{read.data(), static_cast<std::size_t>(read.size())};
    object.read(target.first(10));
    object.read(target.subspan(10));
    QCOMPARE(read, all);
    QVERIFY(!object.in(UID_LittleEndianExplicitTransferSyntax));
}

void ObjectFileTest::aFileThatIsShortenedMeanwhileCannotBeRead() {
    const QString path = writeObject({.side = 500}, file(u"one.dcm"_s));  // 0.5 MB
    ObjectFile object{path.toStdString()};
    QVERIFY(QFile::resize(path, QFile{path}.size() - 2));
    std::vector<char> all(object.size());
    QVERIFY_EXCEPTION_THROWN(object.read(all), std::runtime_error);
}

void ObjectFileTest::whatIsNoFileOfOursIsRefused_data() {
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<qsizetype>("spoilt");
    constexpr qsizetype Nothing = -1;
    constexpr qsizetype Whole = std::numeric_limits<qsizetype>::max();
    QTest::newRow("missing") << Nothing << Nothing;
    QTest::newRow("empty") << qsizetype{0} << Nothing;
    QTest::newRow("a preamble") << qsizetype{128} << Nothing;
    QTest::newRow("the group length") << qsizetype{144} << Nothing;
    QTest::newRow("half a meta header") << qsizetype{200} << Nothing;
    QTest::newRow("no prefix") << Whole << qsizetype{128};
    QTest::newRow("another length of the group") << Whole << qsizetype{142};
    QTest::newRow("another length of an element") << Whole << qsizetype{144 + 8 + 4 + 3};
}

void ObjectFileTest::whatIsNoFileOfOursIsRefused() {
    QFETCH(const qsizetype, size);
    QFETCH(const qsizetype, spoilt);
    QFile made{writeObject({}, file(u"good.dcm"_s))};
    QVERIFY(made.open(QIODevice::ReadOnly));
    QByteArray bytes = made.readAll().left(std::max(size, qsizetype{0}));
    if (spoilt >= 0)
        bytes[spoilt] = '\x7f';
    const QString path = file(u"bad.dcm"_s);
    QFile::remove(path);
    if (size >= 0) {
        QFile bad{path};
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write(bytes);
    }
    QVERIFY_EXCEPTION_THROWN(ObjectFile{path.toStdString()}, std::runtime_error);
}

QTEST_GUILESS_MAIN(ObjectFileTest)
#include "tst_objectfile.moc"
