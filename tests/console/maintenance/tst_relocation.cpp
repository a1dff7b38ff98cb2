#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "db/Error.h"
#include "maintenance/Relocation.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Console.h"
#include "tests/support/PassProgress.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

const QString Invalid = u"Not valid paths!"_s;

Box question(const QString& from, QMessageBox::StandardButton answer) {
    return {
        .text = u"This action will modify ALL images path with RootDir = %1 , do you want to continue?"_s.arg(
            from),
        .icon = QMessageBox::Critical,
        .title = u"Change image path "_s,
        .buttons = QMessageBox::Yes | QMessageBox::No,
        .answer = answer};
}

/// Counts the paint events of a widget while the wait cursor is up.
class PaintCounter : public QObject {
  public:
    explicit PaintCounter(QWidget& widget) { widget.installEventFilter(this); }

    int whileWaiting = 0;

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint && QApplication::overrideCursor() != nullptr)
            ++whileWaiting;
        return QObject::eventFilter(watched, event);
    }
};

}  // namespace

class RelocationTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();

    void theFrameHasItsControls();
    void aPortPresetsBothPaths();
    void browsing();
    void thePathsMustExist_data();
    void thePathsMustExist();
    void aPathIsRewritten_data();
    void aPathIsRewritten();
    void noIsNo();
    void everyMatchingStudyIsRewritten();
    void aFailureEndsTheConsole();
    void whatStandsBeforeAFailureStaysRewritten();
    void aClosedConnectionEndsTheConsole();
    void theWindowRepaintsUnderAWaitCursor();
    void theServerMayWriteMeanwhile();

  private:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] QString folder(const QString& name) const { return database_->folder() + u'/' + name; }
    void setPaths(const QString& from, const QString& to) const;
    void addStudy(const QString& uid, const QString& path) const {
        database_->run(u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES (?, 1, ?)"_s,
                       {uid, path});
    }
    static constexpr int Many = 5000;
    void addManyStudies(const QString& root) const {
        database_->run(
            u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<%1) INSERT INTO Study "
            "(StudyInstanceUID, IDPatient, StudyPath) SELECT i, 1, ?||'\\'||i FROM n"_s.arg(Many),
            {root});
    }
    /// Studies below the new root.
    [[nodiscard]] int relocated() const {
        return database_->value(u"SELECT count(*) FROM Study WHERE StudyPath LIKE '%/New\\%' ESCAPE '!'"_s)
            .toInt();
    }
    [[nodiscard]] QString pathOf(const QString& uid) const {
        return database_->value(u"SELECT StudyPath FROM Study WHERE StudyInstanceUID=?"_s, {uid});
    }

    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

void RelocationTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    for (const QString& name : {u"Old"_s, u"New"_s})
        QDir{}.mkpath(folder(name));
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>();
    window_->show();
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(3);
}

void RelocationTest::cleanup() {
    window_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

/// The boxes cannot be typed into; the value stands in for what the folder picker or a port gave them.
void RelocationTest::setPaths(const QString& from, const QString& to) const {
    window().find<QLineEdit>(u"txtPathIni"_s).setText(from);
    window().find<QLineEdit>(u"txtPathFin"_s).setText(to);
}

void RelocationTest::theFrameHasItsControls() {
    const Form frame{window().find(u"frmDatabase"_s)};
    QCOMPARE(frame.window().property("title").toString(), u"Database"_s);
    QCOMPARE(frame.labels(), (QStringList{u"Image path"_s, u"From"_s, u"To"_s}));
    for (const auto& name : {u"txtPathIni"_s, u"txtPathFin"_s}) {
        frame.type(name, u"typed"_s);
        QCOMPARE(frame.text(name), QString{});
    }
    QCOMPARE(frame.text(u"cmdPathIni"_s), u"..."_s);
    QCOMPARE(frame.text(u"cmdPathFin"_s), u"..."_s);
    QCOMPARE(frame.text(u"cmdChangePath"_s), u"Change"_s);
}

void RelocationTest::aPortPresetsBothPaths() {
    window_->setImageRoot(u"D:\\Archive\\"_s);
    QCOMPARE(window().text(u"txtPathIni"_s), u"D:\\Archive\\"_s);
    QCOMPARE(window().text(u"txtPathFin"_s), u"D:\\Archive\\"_s);
}

void RelocationTest::browsing() {
    const auto pick = [this](const QString& button, const QString& name) {
        BoxScript script;
        script.drive(u"QFileDialog"_s, [&](Form form) {
            auto& dialog = static_cast<QFileDialog&>(form.window());
            QCOMPARE(dialog.windowTitle(), u"Images dir"_s);
            QVERIFY(dialog.isModal());
            if (name.isEmpty()) {
                dialog.reject();
                return;
            }
            dialog.setDirectory(folder(name));
            dialog.selectFile(folder(name));
            dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Open)->click();
        });
        window().click(button);
        QVERIFY(script.isDone());
    };
    pick(u"cmdPathIni"_s, u"Old"_s);
    pick(u"cmdPathFin"_s, u"New"_s);
    QCOMPARE(window().text(u"txtPathIni"_s), folder(u"Old"_s));
    QCOMPARE(window().text(u"txtPathFin"_s), folder(u"New"_s));
    pick(u"cmdPathIni"_s, {});
    pick(u"cmdPathFin"_s, {});
    QCOMPARE(window().text(u"txtPathIni"_s), folder(u"Old"_s));
    QCOMPARE(window().text(u"txtPathFin"_s), folder(u"New"_s));
}

void RelocationTest::thePathsMustExist_data() {
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::newRow("both empty") << QString{} << QString{};
    QTest::newRow("from empty") << QString{} << u"New"_s;
    QTest::newRow("to empty") << u"Old"_s << QString{};
    QTest::newRow("from missing") << u"Gone"_s << u"New"_s;
    QTest::newRow("to missing") << u"Old"_s << u"Gone"_s;
    QTest::newRow("from is a file") << u"DicomDB.mdb"_s << u"New"_s;
    QTest::newRow("to is a file") << u"Old"_s << u"DicomDB.mdb"_s;
}

void RelocationTest::thePathsMustExist() {
    QFETCH(QString, from);
    QFETCH(QString, to);
    addStudy(u"1"_s, folder(u"Old"_s) + u"\\1"_s);
    setPaths(from.isEmpty() ? from : folder(from), to.isEmpty() ? to : folder(to));
    BoxScript script;
    script.expect(plain(Invalid));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QCOMPARE(pathOf(u"1"_s), folder(u"Old"_s) + u"\\1"_s);
}

void RelocationTest::aPathIsRewritten_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("expected");  // empty: left alone
    QTest::newRow("another case") << u"d:\\archive\\2006\\1.2.3"_s << u"D:\\Archive"_s << u"E:\\Images"_s
                                  << u"E:\\Images\\2006\\1.2.3"_s;
    QTest::newRow("the rest keeps its case") << u"/a/MiXed"_s << u"/A"_s << u"/b"_s << u"/b/MiXed"_s;
    QTest::newRow("the seam is not repaired")
        << u"D:\\Archive\\2006"_s << u"D:\\Archive\\"_s << u"E:\\Images"_s << u"E:\\Images2006"_s;
    QTest::newRow("nor a doubled separator")
        << u"D:\\Archive\\2006"_s << u"D:\\Archive"_s << u"E:\\Images\\"_s << u"E:\\Images\\\\2006"_s;
    QTest::newRow("a part of a name matches")
        << u"D:\\Archive\\x"_s << u"D:\\Arch"_s << u"E:\\Images"_s << u"E:\\Imagesive\\x"_s;
    QTest::newRow("only the first occurrence") << u"/a/a/a"_s << u"/a"_s << u"/b"_s << u"/b/a/a"_s;
    QTest::newRow("the whole path") << u"/a"_s << u"/a"_s << u"/b"_s << u"/b"_s;
    QTest::newRow("not at the beginning") << u"/x/a"_s << u"/a"_s << u"/b"_s << QString{};
    QTest::newRow("shorter than the root") << u"/a"_s << u"/a/b"_s << u"/b"_s << QString{};
    QTest::newRow("empty") << QString{} << u"/a"_s << u"/b"_s << QString{};
    QTest::newRow("accents") << u"/RÖNTGEN/É"_s << u"/röntgen"_s << u"/b"_s << u"/b/É"_s;
    QTest::newRow("sharp s is itself") << u"/Straße/1"_s << u"/straße"_s << u"/b"_s << u"/b/1"_s;
    QTest::newRow("sharp s is not SS") << u"/STRASSE/1"_s << u"/straße"_s << u"/b"_s << QString{};
    QTest::newRow("SS is not sharp s") << u"/straße/1"_s << u"/STRASSE"_s << u"/b"_s << QString{};
    QTest::newRow("a ligature is itself") << u"/ﬁlm/1"_s << u"/ﬁlm"_s << u"/b"_s << u"/b/1"_s;
    QTest::newRow("a ligature is not its letters") << u"/FILM/1"_s << u"/ﬁlm"_s << u"/b"_s << QString{};
    QTest::newRow("dotless i is I in upper case") << u"/KIZ/1"_s << u"/kız"_s << u"/b"_s << u"/b/1"_s;
    QTest::newRow("dotted capital I is not i") << u"/KİZ/1"_s << u"/kiz"_s << u"/b"_s << QString{};
    QTest::newRow("long s is S in upper case") << u"/Maſs/1"_s << u"/MASS"_s << u"/b"_s << u"/b/1"_s;
    QTest::newRow("beyond the first plane") << u"/𐐨/𐐨"_s << u"/𐐀"_s << u"/b"_s << u"/b/𐐨"_s;
    QTest::newRow("a root that ends in one") << u"/🩻/1"_s << u"/🩻"_s << u"/🏥"_s << u"/🏥/1"_s;
}

void RelocationTest::aPathIsRewritten() {
    QFETCH(QString, path);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QString, expected);
    const auto rewritten = maintenance::relocatedPath(path.toStdString(), from, to);
    QCOMPARE(rewritten.has_value(), !expected.isEmpty());
    QCOMPARE(QString::fromStdString(rewritten.value_or("")), expected);

    // A remainder that is no UTF-8 is kept byte for byte, a root that is none is left alone.
    const std::string broken = "\xff\xfe";
    QCOMPARE(maintenance::relocatedPath(path.toStdString() + broken, from, to).value_or(broken),
             expected.toStdString() + broken);
    QVERIFY(!maintenance::relocatedPath(broken + path.toStdString(), from, to));
}

void RelocationTest::noIsNo() {
    addStudy(u"1"_s, folder(u"Old"_s) + u"\\1"_s);
    setPaths(folder(u"Old"_s), folder(u"New"_s));
    BoxScript script;
    script.expect(question(folder(u"Old"_s), QMessageBox::No));
    window().click(u"cmdChangePath"_s);
    // A root that is written as the studies' paths are is a folder as well.
    const QString stored = database_->folder() + u"\\Old"_s;
    setPaths(stored, stored);
    script.expect(question(stored, QMessageBox::No));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QCOMPARE(pathOf(u"1"_s), folder(u"Old"_s) + u"\\1"_s);
}

void RelocationTest::everyMatchingStudyIsRewritten() {
    const QString old = folder(u"Old"_s);
    addStudy(u"1"_s, old + u"\\2006\\1"_s);
    addStudy(u"2"_s, old.toUpper() + u"\\2"_s);
    addStudy(u"3"_s, u"/elsewhere\\3"_s);
    setPaths(old + u'/', folder(u"New"_s) + u'/');
    // Without a matching row it is done as well.
    {
        BoxScript script;
        script.expect(question(old + u'/', QMessageBox::Yes)).expect(plain(u"Done"_s));
        window().click(u"cmdChangePath"_s);
        QVERIFY(script.isDone());
        QCOMPARE(pathOf(u"1"_s), old + u"\\2006\\1"_s);
    }
    setPaths(old, folder(u"New"_s));
    BoxScript script;
    script.expect(question(old, QMessageBox::Yes)).expect(plain(u"Done"_s));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QCOMPARE(pathOf(u"1"_s), folder(u"New"_s) + u"\\2006\\1"_s);
    QCOMPARE(pathOf(u"2"_s), folder(u"New"_s) + u"\\2"_s);
    QCOMPARE(pathOf(u"3"_s), u"/elsewhere\\3"_s);
    QVERIFY(!Globals::ConfigChanged());
}

void RelocationTest::aFailureEndsTheConsole() {
    const QString old = folder(u"Old"_s);
    for (const QString& uid : {u"3"_s, u"1"_s, u"2"_s})  // the walk goes by their UIDs
        addStudy(uid, old + u'\\' + uid);
    database_->failOn(u"Study"_s, u"UPDATE"_s, ScratchDatabase::Failure, u"OLD.StudyInstanceUID = '2'"_s);
    setPaths(old, folder(u"New"_s));
    BoxScript script;
    script.expect(question(old, QMessageBox::Yes)).expect(critical(BoxScript::AnyText));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QVERIFY(script.boxes().back().text.contains(ScratchDatabase::Failure));
    QCOMPARE(takeConsoleEnd(), 1);
    QVERIFY(QApplication::overrideCursor() == nullptr);
    QCOMPARE(pathOf(u"1"_s), folder(u"New"_s) + u"\\1"_s);
    QCOMPARE(pathOf(u"2"_s), old + u"\\2"_s);
    QCOMPARE(pathOf(u"3"_s), old + u"\\3"_s);
}

void RelocationTest::whatStandsBeforeAFailureStaysRewritten() {
    const QString old = folder(u"Old"_s);
    addManyStudies(old);
    database_->failOn(u"Study"_s, u"UPDATE"_s, ScratchDatabase::Failure, u"OLD.StudyInstanceUID = '2555'"_s);
    try {
        maintenance::NoProgress progress;
        maintenance::Relocation{old, folder(u"New"_s)}.run(Globals::DbConnection(), progress);
        QFAIL("The failure went by");
    } catch (const db::Error& fault) {
        QVERIFY2(QString::fromStdString(fault.what()).contains(ScratchDatabase::Failure), fault.what());
    }
    const auto count = [&](const QString& which) {
        return database_->value(u"SELECT count(*) FROM Study WHERE StudyInstanceUID "_s + which).toInt();
    };
    QVERIFY(count(u"< '2555'"_s) > 0 && count(u"> '2555'"_s) > 0);
    QCOMPARE(relocated(), count(u"< '2555'"_s));
    QCOMPARE(count(u"< '2555' AND StudyPath LIKE '%/New\%' ESCAPE '!'"_s), relocated());
}

void RelocationTest::aClosedConnectionEndsTheConsole() {
    setPaths(folder(u"Old"_s), folder(u"New"_s));
    Globals::DbConnection().close();
    BoxScript script;
    script.expect(question(folder(u"Old"_s), QMessageBox::Yes)).expect(critical(BoxScript::AnyText));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QCOMPARE(takeConsoleEnd(), 1);
}

void RelocationTest::theWindowRepaintsUnderAWaitCursor() {
    const QString old = folder(u"Old"_s);
    addManyStudies(old);
    setPaths(old, folder(u"New"_s));
    PaintCounter paints{window().find(u"txtPathIni"_s)};
    QTimer timer;  // called whenever events are processed
    QObject::connect(&timer, &QTimer::timeout, window_.get(), [&] {
        if (QApplication::overrideCursor() == nullptr)
            return;
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
        window().find(u"txtPathIni"_s).update();
    });
    timer.start(0);
    BoxScript script;
    script.expect(question(old, QMessageBox::Yes)).expect(plain(u"Done"_s));
    window().click(u"cmdChangePath"_s);
    QVERIFY(script.isDone());
    QVERIFY2(paints.whileWaiting > 0, "no paint event came while the cursor said wait");
    QVERIFY(QApplication::overrideCursor() == nullptr);
    QCOMPARE(relocated(), Many);
}

void RelocationTest::theServerMayWriteMeanwhile() {
    const QString old = folder(u"Old"_s);
    addManyStudies(old);
    int turns = 0;
    PassProgress progress;
    progress.breathing = [&] { addStudy(u"new %1"_s.arg(++turns), u"/elsewhere"_s); };
    maintenance::Relocation{old, folder(u"New"_s)}.run(Globals::DbConnection(), progress);
    QVERIFY(turns > 0);
    QCOMPARE(relocated(), Many);
}

QTEST_MAIN(RelocationTest)
#include "tst_relocation.moc"
