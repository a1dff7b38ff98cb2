#include <QTest>

#include "dicom/data/NameFolding.h"

using namespace Qt::StringLiterals;
using namespace tessaly::dicom;

/// How names are compared: what is folded alike is alike.
class NameFoldingTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void namesFold_data();
    void namesFold();
    void namesHaveGroups_data();
    void namesHaveGroups();
};

void NameFoldingTest::namesFold_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("result");
    const auto row = [](const QString& name, const QString& result) {
        QTest::newRow(qPrintable(name)) << name << result;
    };
    row(u""_s, u""_s);
    row(u"DOE^John"_s, u"doe^john"_s);
    row(u"É"_s, u"e"_s);
    row(u"é"_s, u"e"_s);
    row(u"e\u0301"_s, u"e"_s);  // the accent by itself
    row(u"MÜLLER"_s, u"muller"_s);
    row(u"Straße"_s, u"strasse"_s);
    row(u"STRASSE"_s, u"strasse"_s);
    row(u"Ångström"_s, u"angstrom"_s);
    row(u"Łódź"_s, u"lodz"_s);
    row(u"Søren Ærø"_s, u"soren aero"_s);
    row(u"Çelik İpek Işık"_s, u"celik ipek isik"_s);
    row(u"Nguyễn"_s, u"nguyen"_s);
    row(u"ΑΛΈΞΗΣ"_s, u"αλεξησ"_s);
    row(u"αλέξης"_s, u"αλεξησ"_s);  // the s at a word's end
    row(u"ЙОСИФ"_s, u"йосиф"_s);    // a letter of its own
    row(u"Пётр"_s, u"петр"_s);
    row(u"山田"_s, u"山田"_s);
    row(u"がか"_s, u"がか"_s);  // other sounds
    row(u"홍길동"_s, u"홍길동"_s);
    row(u"%_[]'/\\*?"_s, u"%_[]'/\\*?"_s);
    row(u"＊？＾＝"_s, u"＊？＾＝"_s);  // are no wildcards and no delimiters
}

void NameFoldingTest::namesFold() {
    QFETCH(const QString, name);
    QFETCH(const QString, result);
    QCOMPARE(QString::fromStdString(folded(name.toStdString())), result);
    QCOMPARE(QString::fromStdString(folded(result.toStdString())), result);
}

void NameFoldingTest::namesHaveGroups_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("groups");
    const auto row = [](const QString& name, const QStringList& groups) {
        QTest::newRow(qPrintable(name)) << name << groups;
    };
    row(u""_s, {u""_s, u""_s, u""_s});
    row(u"Doe^John"_s, {u"doe^john"_s, u""_s, u""_s});
    row(u"Doe^John^^"_s, {u"doe^john"_s, u""_s, u""_s});
    row(u" Doe ^ John ^^Dr "_s, {u"doe^john^^dr"_s, u""_s, u""_s});
    row(u"^^^^"_s, {u""_s, u""_s, u""_s});
    row(u"=="_s, {u""_s, u""_s, u""_s});
    row(u"Yamada^Tarou=山田^太郎=やまだ^たろう"_s, {u"yamada^tarou"_s, u"山田^太郎"_s, u"やまだ^たろう"_s});
    row(u"Wang^XiaoDong=王^小東="_s, {u"wang^xiaodong"_s, u"王^小東"_s, u""_s});
    row(QString(200, u'ß') + u'=' + QString(400, u'é'), {QString(324, u's'), QString(324, u'e'), u""_s});
    row(u"=山田^太郎^^"_s, {u""_s, u"山田^太郎"_s, u""_s});
}

void NameFoldingTest::namesHaveGroups() {
    QFETCH(const QString, name);
    QFETCH(const QStringList, groups);
    QStringList found;
    for (const std::string& group : foldedGroups(name.toStdString()))
        found += QString::fromStdString(group);
    QCOMPARE(found, groups);
}

QTEST_APPLESS_MAIN(NameFoldingTest)
#include "tst_namefolding.moc"
