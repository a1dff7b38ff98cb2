#include <QTest>

#include "db/UpdatableRow.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;
using db::UpdatableRow;

class UpdatableRowTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        scratch_ = std::make_unique<ScratchDatabase>(ScratchDatabase::Content::Empty);
        scratch_->define(
            u"CREATE TABLE T (K VARCHAR(16) PRIMARY KEY COLLATE NOCASE, N INTEGER, B BIT, "
            "L VARCHAR(64), Foreign_ VARCHAR(8) DEFAULT 'kept', F DOUBLE PRECISION)"_s);
        scratch_->run(u"INSERT INTO T VALUES ('a', 1, NULL, 'text', 'other', NULL)"_s);
        scratch_->run(u"INSERT INTO T VALUES ('b', 2, 1, NULL, NULL, 0.5)"_s);
        connection_ = std::make_unique<db::Connection>();
        connection_->setConnectString("DSN=DicomFDB");
        connection_->establish();
    }
    void cleanup() {
        connection_.reset();
        scratch_.reset();
    }

    void readsTheRowAndItsColumns();
    void aSetWithoutRowsGivesTheColumnsAllTheSame();
    void updateWritesOnlyWhatWasSet();
    void updateFindsTheRowByTheKeyThatWasRead();
    void insertMakesARowThatCanBeUpdated();
    void aDuplicateKeyHasItsNumber();
    void aVanishedRowIsAFault();
    void columnsThatAreNoTextTakeNumbersAlone();
    void anUnknownColumnThrows();

  private:
    [[nodiscard]] UpdatableRow row(const std::string& key) const {
        return {*connection_, "T", "K", "SELECT * FROM T WHERE K='" + key + "'"};
    }
    [[nodiscard]] QStringList stored(const QString& key) const {
        return scratch_->rows(u"SELECT K, N, B, L, Foreign_, F FROM T WHERE K=?"_s, {key}).value(0);
    }

    std::unique_ptr<ScratchDatabase> scratch_;
    std::unique_ptr<db::Connection> connection_;
};

void UpdatableRowTest::readsTheRowAndItsColumns() {
    const UpdatableRow a = row("A");
    QVERIFY(a.exists());
    QCOMPARE(a.value("k"), std::optional<std::string>{"a"});
    QCOMPARE(a.value("N"), std::optional<std::string>{"1"});
    QVERIFY(!a.value("B").has_value());
    QVERIFY(a.isText("K"));
    QVERIFY(a.isText("l"));
    QVERIFY(!a.isText("N"));
    QVERIFY(!a.isText("B"));
}

void UpdatableRowTest::aSetWithoutRowsGivesTheColumnsAllTheSame() {
    UpdatableRow none = row("z");
    QVERIFY(!none.exists());
    QVERIFY(none.isText("L"));
    QVERIFY(!none.isText("B"));
    QVERIFY(!none.value("L").has_value());
    none.set("L", "x");
    QVERIFY_EXCEPTION_THROWN(none.update(), db::Error);
}

void UpdatableRowTest::updateWritesOnlyWhatWasSet() {
    UpdatableRow a = row("a");
    a.update();  // nothing set, nothing written
    scratch_->run(u"UPDATE T SET L='changed meanwhile' WHERE K='a'"_s);
    a.set("N", std::nullopt);
    a.set("B", "-1");
    a.update();
    QCOMPARE(stored(u"a"_s), (QStringList{u"a"_s, {}, u"-1"_s, u"changed meanwhile"_s, u"other"_s, {}}));
    QVERIFY(stored(u"a"_s).at(1).isNull());
    QCOMPARE(stored(u"b"_s).at(1), u"2"_s);
}

void UpdatableRowTest::updateFindsTheRowByTheKeyThatWasRead() {
    UpdatableRow a = row("a");
    a.set("K", "it's Ä 🩻");
    a.set("L", "");
    a.update();
    QCOMPARE(stored(u"it's Ä 🩻"_s).at(3), u""_s);
    QVERIFY(!stored(u"it's Ä 🩻"_s).at(3).isNull());
    a.set("N", "7");  // stands on the row that it wrote
    a.update();
    QCOMPARE(stored(u"it's Ä 🩻"_s).at(1), u"7"_s);
    QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"2"_s);
}

void UpdatableRowTest::insertMakesARowThatCanBeUpdated() {
    UpdatableRow fresh = row("z");
    fresh.set("K", "z");
    fresh.set("F", "2.5");
    fresh.insert();
    QCOMPARE(stored(u"z"_s), (QStringList{u"z"_s, {}, {}, {}, u"kept"_s, u"2.5"_s}));
    fresh.set("N", "12");
    fresh.update();
    QCOMPARE(scratch_->rows(u"SELECT N, %1 FROM T WHERE K='z'"_s.arg(scratch_->typeOf(u"N"_s))),
             (QList<QStringList>{{u"12"_s, u"integer"_s}}));
}

void UpdatableRowTest::aDuplicateKeyHasItsNumber() {
    const auto numberOf = [](auto write) {
        try {
            write();
        } catch (const db::Error& fault) {
            return fault.Number();
        }
        return 0;
    };
    UpdatableRow fresh = row("z");
    fresh.set("K", "B");
    QCOMPARE(numberOf([&] { fresh.insert(); }), db::Error::DuplicateKeyNumber);
    UpdatableRow a = row("a");
    a.set("K", "b");
    QCOMPARE(numberOf([&] { a.update(); }), db::Error::DuplicateKeyNumber);
    // The refused row is still the one that was opened.
    a.set("K", "c");
    a.update();
    QCOMPARE(stored(u"c"_s).at(3), u"text"_s);

    scratch_->failOn(u"T"_s, u"UPDATE"_s);
    a.set("N", "3");
    QVERIFY(numberOf([&] { a.update(); }) != db::Error::DuplicateKeyNumber);
}

void UpdatableRowTest::aVanishedRowIsAFault() {
    UpdatableRow a = row("a");
    scratch_->run(u"DELETE FROM T WHERE K='a'"_s);
    a.set("N", "3");
    QVERIFY_EXCEPTION_THROWN(a.update(), db::Error);
    QCOMPARE(scratch_->value(u"SELECT count(*) FROM T"_s), u"1"_s);
}

void UpdatableRowTest::columnsThatAreNoTextTakeNumbersAlone() {
    UpdatableRow a = row("a");
    for (const char* text : {"", "x", "1x", " ", "nan", "inf", "1,5"})
        QVERIFY_EXCEPTION_THROWN(a.set("N", text), db::Error);
    a.set("F", "-1.5e2");
    a.update();
    QCOMPARE(stored(u"a"_s).at(5).toDouble(), -150.0);
}

void UpdatableRowTest::anUnknownColumnThrows() {
    UpdatableRow a = row("a");
    QVERIFY_EXCEPTION_THROWN(a.set("X", "1"), db::Error);
    QVERIFY_EXCEPTION_THROWN((void)a.value("X"), db::Error);
    QVERIFY_EXCEPTION_THROWN((UpdatableRow{*connection_, "T", "X", "SELECT * FROM T"}), db::Error);
}

QTEST_MAIN(UpdatableRowTest)
#include "tst_updatablerow.moc"
