#include <dcmtk/dcmdata/dcdeftag.h>

#include <QTest>

#include "dicom/data/NameFolding.h"
#include "tessalyd/search/KeyMatch.h"
#include "tests/tessalyd/TagNumber.h"

using namespace Qt::StringLiterals;
using namespace tessaly::dicom;
using namespace tessaly::tessalyd;
using namespace tessaly::test;

/// What matches what, a line a case.
class KeyMatchTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void valuesMatch_data();
    void valuesMatch();
    void whatMatchesIsNotNarrowedOut_data() { valuesMatch_data(); }
    void whatMatchesIsNotNarrowedOut();
    void aDateAndATimeMatchAsOne_data();
    void aDateAndATimeMatchAsOne();
    void patternsMatch_data();
    void patternsMatch();
    void aPatternOfManyStarsIsDecidedAtOnce();
    void aLongListOfCodesIsNotComparedWithEachRow();
    void prefixesHaveAnEnd_data();
    void prefixesHaveAnEnd();

  private:
    void texts();
    void names();
    void dates();
    void times();
    void uidsAndNumbers();
    static void rows(const char* what, const DcmTagKey& tag, const char* asked, const QStringList& found,
                     const QStringList& notFound);
};

void KeyMatchTest::rows(const char* what, const DcmTagKey& tag, const char* asked, const QStringList& found,
                        const QStringList& notFound) {
    const auto key = tagNumber(tag);
    const auto add = [&](const QString& stored, bool matches) {
        QTest::addRow("%s: '%s' %s '%s'", what, asked, matches ? "finds" : "does not find",
                      qPrintable(stored))
            << key << QString::fromUtf8(asked) << stored << matches;
    };
    for (const QString& stored : found)
        add(stored, true);
    for (const QString& stored : notFound)
        add(stored, false);
}

void KeyMatchTest::valuesMatch_data() {
    QTest::addColumn<quint32>("tag");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("matches");
    texts();
    names();
    dates();
    times();
    uidsAndNumbers();
}

void KeyMatchTest::texts() {
    const auto text = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("text", DCM_StudyDescription, asked, found, notFound);
    };
    text("", {u""_s, u"Thorax"_s}, {});
    text("  ", {u""_s, u"Thorax"_s}, {});
    text("*", {u""_s, u"Thorax"_s}, {});
    text("**", {u""_s, u"Thorax"_s}, {});
    text("?", {u"A"_s, u"É"_s, u"山"_s}, {u""_s, u"AB"_s});
    text("Thorax", {u"Thorax"_s, u" Thorax "_s}, {u"THORAX"_s, u"Thorax2"_s, u""_s});
    text(" Thorax ", {u"Thorax"_s}, {u"T"_s});
    text("Th*", {u"Thorax"_s, u"Th"_s}, {u"TH"_s, u"aTh"_s});
    text("*rax", {u"Thorax"_s, u"rax"_s}, {u"raxx"_s});
    text("T?orax", {u"Thorax"_s}, {u"Torax"_s, u"Thhorax"_s});
    text("T*o*x", {u"Thorax"_s, u"Tooxx"_s}, {u"Thora"_s});
    text("CT-MR", {u"CT-MR"_s}, {u"CTXMR"_s, u"DT"_s});  // no range
    text("100%", {u"100%"_s}, {u"1000"_s, u"100"_s});
    text("100%*", {u"100%"_s, u"100% x"_s}, {u"1000"_s});
    text("a_c*", {u"a_c"_s}, {u"abc"_s});
    text("[ab]*", {u"[ab]c"_s}, {u"a"_s, u"b"_s});
    text("O'Neil*", {u"O'Neil"_s, u"O'Neill"_s}, {u"ONeil"_s});
    text("a/b", {u"a/b"_s}, {u"a"_s, u"b"_s});
    text("a\\b", {u"a\\b"_s}, {u"a"_s, u"b"_s});
    text("a\\b*", {u"a\\bc"_s}, {u"a"_s, u"bc"_s});
    text("\xc3\x89*", {u"École"_s}, {u"école"_s, u"Ecole"_s});

    const auto code = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("code", DCM_Modality, asked, found, notFound);
    };
    code("CT", {u"CT"_s, u"CT "_s}, {u"ct"_s, u"MR"_s, u""_s});
    code("CT\\MR", {u"CT"_s, u"MR"_s}, {u"SR"_s});
    code("C?", {u"CT"_s, u"CR"_s}, {u"C"_s, u"MR"_s});
    code("CT\\*", {u"SR"_s, u""_s}, {});
}

void KeyMatchTest::names() {
    const auto name = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("name", DCM_PatientName, asked, found, notFound);
    };
    name("", {u""_s, u"Doe"_s}, {});
    name("*", {u""_s, u"Doe"_s}, {});
    name("^^", {u""_s, u"Doe"_s}, {});
    name("DOE^JOHN", {u"Doe^John"_s, u"DOE^JOHN^^"_s, u"doe ^ john"_s},
         {u"DOE^JOHN^X"_s, u"DOE"_s, u"DOE JOHN"_s});
    name("doe^john^^ ", {u"DOE^JOHN"_s}, {u"DOE"_s});
    name("DOE", {u"Doe"_s, u"Doe^^"_s}, {u"Doe^John"_s});
    name("DOE*", {u"Doe"_s, u"Doe^John"_s, u"Doering"_s}, {u"Do"_s, u"Ado"_s});
    name("DOE^*", {u"Doe"_s, u"Doe^John"_s, u"Doe^^Q"_s}, {u"Doering"_s, u"Doe1"_s});
    name("DOE^J*", {u"Doe^John"_s, u"doe^j"_s}, {u"Doe"_s, u"Doe^Adam"_s});
    name("DOE^^*", {u"Doe"_s, u"Doe^^Q"_s}, {u"Doe^John"_s});
    name("*^JOHN", {u"Doe^John"_s, u"^John"_s}, {u"John"_s});
    name("?OE^*", {u"Doe^John"_s, u"Roe"_s}, {u"OE"_s});
    name("m\xc3\xbcller*", {u"MÜLLER^X"_s, u"Muller^X"_s}, {u"Mueller"_s});
    name("E*", {u"Élodie"_s, u"émile"_s, u"Eva"_s}, {u"Aé"_s});
    name("O'BRIEN^100%_[X]", {u"O'Brien^100%_[x]"_s}, {u"O'Brien^1000_x"_s});
    name("a_*", {u"A_B"_s}, {u"AB"_s});
    name("yamada^tarou", {u"Yamada^Tarou=山田^太郎=やまだ^たろう"_s}, {u"Tanaka=山田"_s});
    name("山田^太郎", {u"Yamada^Tarou=山田^太郎"_s, u"山田^太郎"_s, u"A=B=山田^太郎"_s}, {u"Yamada^Tarou"_s});
    name("山*", {u"Yamada^Tarou=山田^太郎"_s}, {u"Yamada^Tarou"_s, u"川"_s});
    name("=山田^太郎", {u"Yamada^Tarou=山田^太郎"_s}, {u"山田^太郎"_s});
    name("Y*=山*", {u"Yamada^Tarou=山田^太郎"_s}, {u"Yamada=川"_s, u"Tanaka=山田"_s});
    name("*=山*", {u"Yamada^Tarou=山田^太郎"_s}, {u"Yamada=川"_s});
    name("*=*=やまだ*", {u"Y=山=やまだ^た"_s}, {u"Y=山=たなか"_s, u"Y=山"_s});
    name("==", {u""_s, u"Doe"_s}, {});
    name("Doe=", {u"Doe"_s, u"Doe=山"_s}, {u"Roe"_s});
}

void KeyMatchTest::dates() {
    const auto date = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("date", DCM_StudyDate, asked, found, notFound);
    };
    date("", {u""_s, u"20240131"_s}, {});
    date("*", {u""_s, u"20240131"_s}, {});
    date("20240131", {u"20240131"_s}, {u"20240130"_s, u""_s});
    date("2024.01.31", {u"20240131"_s}, {u"20240130"_s});
    date("20240101-20240131", {u"20240101"_s, u"20240115"_s, u"20240131"_s},
         {u"20231231"_s, u"20240201"_s, u""_s});
    date(" 20240101 - 20240131 ", {u"20240101"_s}, {u"20240201"_s});
    date("20240101-", {u"20240101"_s, u"20991231"_s}, {u"20231231"_s, u""_s});
    date("-20240131", {u"20240131"_s, u"18991231"_s}, {u"20240201"_s, u""_s});
    date("20240201-20240131", {}, {u"20240131"_s, u"20240201"_s, u"20240115"_s});
    date("2024*", {}, {u"20240131"_s, u""_s});
    date("2024013?", {}, {u"20240131"_s});
    date("-", {}, {u"20240131"_s, u""_s});
    date("2024-2025", {}, {u"20240131"_s});
    date("20240101-20240131-20240201", {}, {u"20240131"_s});
}

void KeyMatchTest::times() {
    const auto time = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("time", DCM_StudyTime, asked, found, notFound);
    };
    time("101530", {u"101530"_s, u"101530.5"_s, u"101530.000000"_s, u"10:15:30"_s},
         {u"101531"_s, u"1016"_s, u""_s});
    time("101530.5", {u"101530.5"_s, u"101530.500000"_s, u"101530.59"_s}, {u"101530"_s, u"101530.6"_s});
    time("101530.000000", {u"101530"_s}, {u"101530.1"_s});
    time("1015", {u"1015"_s, u"101500"_s, u"101559.999999"_s}, {u"1016"_s, u"101459"_s});
    time("10", {u"10"_s, u"105959.9"_s}, {u"11"_s, u"095959"_s});
    time("10-11", {u"10"_s, u"100000"_s, u"115959.9"_s}, {u"12"_s, u"0959"_s, u""_s});
    time("1015-", {u"101500"_s, u"2359"_s}, {u"101459.9"_s, u""_s});
    time("-1015", {u"101559.9"_s, u"00"_s}, {u"1016"_s, u""_s});
    time("101530.25-101530.75", {u"101530.25"_s, u"101530.5"_s, u"101530.75"_s},
         {u"101530.249999"_s, u"101530.76"_s});
    time("10:15", {u"101530"_s}, {u"1016"_s});
    time("10*", {}, {u"10"_s, u"1015"_s});
    time("1", {}, {u"10"_s, u"01"_s});
    time("1015.5", {}, {u"101530"_s});
}

void KeyMatchTest::uidsAndNumbers() {
    const auto uid = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("UID", DCM_StudyInstanceUID, asked, found, notFound);
    };
    uid("1.2", {u"1.2"_s}, {u"1.2.3"_s, u"1"_s, u""_s});
    uid("1.2\\1.3", {u"1.2"_s, u"1.3"_s}, {u"1.4"_s});
    uid(R"(1.3\\1.2\1.3\)", {u"1.2"_s, u"1.3"_s}, {u""_s, u"1.4"_s});
    uid("1.*", {}, {u"1.2"_s});
    uid("1.2-1.4", {}, {u"1.3"_s});
    uid("*", {u"1.2"_s, u""_s}, {});

    const auto number = [](const char* asked, const QStringList& found, const QStringList& notFound) {
        rows("number", DCM_InstanceNumber, asked, found, notFound);
    };
    number("", {u""_s, u"1"_s}, {});
    number("1", {u"1"_s, u"01"_s, u" 1 "_s, u"+1"_s}, {u"10"_s, u"-1"_s, u""_s});
    number("-1", {u"-1"_s}, {u"1"_s});
    number("1*", {}, {u"1"_s, u"10"_s});
    number("1-3", {}, {u"2"_s});
    number("99999999999999999999", {}, {u"1"_s, u""_s});

    // A counter never chooses.
    rows("counter", DCM_NumberOfStudyRelatedSeries, "5", {u"5"_s, u"6"_s}, {});
}

namespace {
const QueryKey& keyOf(quint32 tag) {
    return *findQueryKey(tagOf(tag));
}
}  // namespace

void KeyMatchTest::valuesMatch() {
    QFETCH(const quint32, tag);
    QFETCH(const QString, asked);
    QFETCH(const QString, stored);
    QFETCH(const bool, matches);
    const KeyMatch match{keyOf(tag), asked.toStdString()};
    QCOMPARE(match.matches(stored.toStdString()).has_value(), matches);
    if (match.isUniversal())
        QVERIFY(matches);
}

void KeyMatchTest::whatMatchesIsNotNarrowedOut() {
    QFETCH(const quint32, tag);
    QFETCH(const QString, asked);
    QFETCH(const QString, stored);
    const QueryKey& key = keyOf(tag);
    const KeyMatch match{key, asked.toStdString()};
    const auto found = match.matches(stored.trimmed().toStdString());
    if (!found || match.alternatives().empty())
        return;
    const auto groups = foldedGroups(stored.toStdString());
    const IndexCondition& indexCondition = match.alternatives().at(*found);
    const std::string column = key.matching == Matching::Name
                                   ? groups.at(static_cast<std::size_t>(indexCondition.column))
                                   : stored.trimmed().toStdString();
    const auto& values = indexCondition.values;
    switch (indexCondition.kind) {
        case IndexCondition::Kind::OneOf:
            QVERIFY(std::find(values.begin(), values.end(), column) != values.end());
            break;
        case IndexCondition::Kind::Between:
            QVERIFY(values.at(0) <= column && column <= values.at(1));
            break;
        case IndexCondition::Kind::Prefix:
            QVERIFY(values.at(0) <= column && column < values.at(1));
            break;
        case IndexCondition::Kind::From:
            QVERIFY(values.at(0) <= column);
            break;
        case IndexCondition::Kind::Null:
            QFAIL("no key asks for nothing");
            break;
        case IndexCondition::Kind::Until:
            QVERIFY(column <= values.at(0));
            break;
    }
}

void KeyMatchTest::aDateAndATimeMatchAsOne_data() {
    QTest::addColumn<QString>("dates");
    QTest::addColumn<QString>("times");
    QTest::addColumn<QString>("date");
    QTest::addColumn<QString>("time");
    QTest::addColumn<bool>("matches");
    const auto row = [](const char* dates, const char* times, const char* date, const char* time,
                        bool matches) {
        QTest::addRow("%s %s: %s %s", dates, times, date, time)
            << QString::fromLatin1(dates) << QString::fromLatin1(times) << QString::fromLatin1(date)
            << QString::fromLatin1(time) << matches;
    };
    row("20240101-20240103", "10-11", "20240101", "0959", false);
    row("20240101-20240103", "10-11", "20240101", "10", true);
    row("20240101-20240103", "10-11", "20240102", "03", true);
    row("20240101-20240103", "10-11", "20240102", "", true);
    row("20240101-20240103", "10-11", "20240103", "1159", true);
    row("20240101-20240103", "10-11", "20240103", "12", false);
    row("20240101-", "10-", "20240101", "09", false);
    row("20240101-", "10-", "20250101", "09", true);
    row("-20240103", "-11", "20240103", "12", false);
    row("-20240103", "-11", "20230103", "23", true);
    row("20240101-20240103", "-11", "20240101", "00", true);
    row("20240101-20240103", "-11", "20240103", "12", false);
    row("20240101-20240103", "10-", "20240101", "09", false);
    row("20240101-20240103", "10-", "20240103", "23", true);
    row("20240101-20240103", "10-11", "", "1030", false);
}

void KeyMatchTest::aDateAndATimeMatchAsOne() {
    QFETCH(const QString, dates);
    QFETCH(const QString, times);
    QFETCH(const QString, date);
    QFETCH(const QString, time);
    QFETCH(const bool, matches);
    const auto match = combinedMatch(dates.toStdString(), times.toStdString());
    QVERIFY(match);
    QCOMPARE(match(date.toStdString(), time.toStdString()), matches);
    QVERIFY(!combinedMatch("20240101", "10"));
    QVERIFY(!combinedMatch("20240101-", ""));
    QVERIFY(!combinedMatch("nonsense-", "10-11"));
}

void KeyMatchTest::patternsMatch_data() {
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("matches");
    const auto row = [](const QString& pattern, const QString& text, bool matches) {
        QTest::addRow("%s %s", qPrintable(pattern), qPrintable(text)) << pattern << text << matches;
    };
    row(u""_s, u""_s, true);
    row(u""_s, u"a"_s, false);
    row(u"*"_s, u""_s, true);
    row(u"?"_s, u""_s, false);
    row(u"?*"_s, u""_s, false);
    row(u"*?"_s, u"é"_s, true);
    row(u"??"_s, u"é"_s, false);
    row(u"a*b*c"_s, u"abbbc"_s, true);
    row(u"a*b*c"_s, u"acb"_s, false);
    row(u"*aab"_s, u"aaaab"_s, true);
    row(u"*é?"_s, u"aéb"_s, true);
    row(u"*?é"_s, u"é"_s, false);
}

void KeyMatchTest::patternsMatch() {
    QFETCH(const QString, pattern);
    QFETCH(const QString, text);
    QFETCH(const bool, matches);
    QCOMPARE(matchesPattern(pattern.toStdString(), text.toStdString()), matches);
}

void KeyMatchTest::aPatternOfManyStarsIsDecidedAtOnce() {
    std::string pattern;
    for (int i = 0; i < 200; ++i)
        pattern += "*a";
    QVERIFY(!matchesPattern(pattern + "b",
                            std::string(20000, 'a')));  // not in the age of the universe, otherwise
}

/// Each of them with each row would be thousands of millions of comparisons.
void KeyMatchTest::aLongListOfCodesIsNotComparedWithEachRow() {
    constexpr int Codes = 10'000;
    constexpr int Rows = 500'000;
    std::string list = "MR";
    for (int number = 1; number < Codes; ++number)
        list += (number % 2 == 0 ? "\\C" : "\\*X?") + std::to_string(number);
    for (const DcmTagKey& tag : {DCM_Modality, DCM_ModalitiesInStudy}) {
        const KeyMatch match{*findQueryKey(tag), list};
        for (int row = 0; row < Rows; ++row) {
            if (match.matches("US") || !match.matches("MR") || !match.matches("AXB4711"))
                QFAIL("decided otherwise");
        }
        QVERIFY(match.matches("C4712").has_value());
        QVERIFY(!match.matches("C4711").has_value());
    }
}

void KeyMatchTest::prefixesHaveAnEnd_data() {
    QTest::addColumn<QByteArray>("prefix");
    QTest::addColumn<QByteArray>("behind");
    QTest::newRow("ASCII") << QByteArray{"doe"} << QByteArray{"dof"};
    QTest::newRow("last of ASCII") << QByteArray{"a\x7f"} << QByteArray{"a\xc2\x80"};
    QTest::newRow("accent") << QByteArray{"\xc3\xa9"} << QByteArray{"\xc3\xaa"};
    QTest::newRow("before the surrogates") << QByteArray{"\xed\x9f\xbf"} << QByteArray{"\xee\x80\x80"};
    QTest::newRow("last of all") << QByteArray{"a\xf4\x8f\xbf\xbf"} << QByteArray{"b"};
    QTest::newRow("nothing behind") << QByteArray{"\xf4\x8f\xbf\xbf"} << QByteArray{};
}

void KeyMatchTest::prefixesHaveAnEnd() {
    QFETCH(const QByteArray, prefix);
    QFETCH(const QByteArray, behind);
    QCOMPARE(QByteArray::fromStdString(behindPrefix(prefix.toStdString())), behind);
}

QTEST_APPLESS_MAIN(KeyMatchTest)
#include "tst_keymatch.moc"
