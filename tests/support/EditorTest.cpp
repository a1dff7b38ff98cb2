#include "tests/support/EditorTest.h"

#include <QLineEdit>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "console/session/Globals.h"
#include "tests/support/Eventually.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

Values valuesOf(const Fields& fields) {
    Values values;
    for (const Field& field : fields)
        values.append({field.control, field.value});
    return values;
}

EditorTest::EditorTest(Page page, Editor editor) : WindowTest(page), editor_(std::move(editor)) {}

void EditorTest::open(const QString& key) const {
    if (key.isEmpty()) {
        window().click(editor_.add);
    } else {
        window().selectRow(editor_.list, key);
        window().click(editor_.modify);
    }
}

void EditorTest::edit(const QString& key, const QList<Box>& boxes,
                      const std::function<void(Form)>& body) const {
    BoxScript script;
    script.drive(editor_.dialog, body);
    for (const Box& box : boxes)
        script.expect(box);
    open(key);
    QVERIFY(script.isDone());
}

void EditorTest::editAfter(const Box& box, const QString& key, const std::function<void(Form)>& body) const {
    BoxScript script;
    script.expect(box);
    script.drive(editor_.dialog, body);
    open(key);
    QVERIFY(script.isDone());
}

void EditorTest::save(const QString& key, const Values& typed) const {
    edit(key, [&](Form form) {
        fill(form, typed);
        form.click(u"cmdOk"_s);
    });
}

void EditorTest::remove(const QString& key, QMessageBox::StandardButton answer,
                        const QList<Box>& boxes) const {
    answering(QList<Box>{question(key, answer)} + boxes, [this] { window().click(editor_.remove); });
}

Box EditorTest::question(const QString& key, QMessageBox::StandardButton answer) const {
    return okCancel(editor_.question.arg(key), answer);
}

void EditorTest::reload() const {
    (manager().*editor_.load)();
}

QString EditorTest::stored(const QString& key, const QString& column) const {
    return database().value(u"SELECT %1 FROM %2 WHERE %3=?"_s.arg(column, editor_.table, editor_.keyColumn),
                            {key});
}

QList<QStringList> EditorTest::storedRows() const {
    return database().rows(u"SELECT * FROM %1 ORDER BY %2"_s.arg(editor_.table, editor_.keyColumn));
}

QString EditorTest::shown(const Form& form, const QString& control) {
    return control.startsWith(u"chk"_s) ? QString::number(static_cast<int>(form.isChecked(control)))
                                        : form.text(control);
}

void EditorTest::fill(const Form& form, const Values& values) {
    for (const auto& [control, value] : values) {
        if (control.startsWith(u"chk"_s))
            form.check(control, value == u"1"_s);
        else if (control.startsWith(u"cmb"_s))
            form.choose(control, value);
        else if (control.startsWith(u"cmd"_s))
            form.click(control);
        else
            form.type(control, value);
    }
}

void EditorTest::checkShown(const Form& form, const Values& values) {
    for (const auto& [control, value] : values)
        QCOMPARE(control + u": "_s + shown(form, control), control + u": "_s + value);
}

void EditorTest::checkLimits(const Form& form, const QList<std::pair<QString, int>>& limits) {
    for (const auto& [name, limit] : limits) {
        QCOMPARE(form.find<QLineEdit>(name).maxLength(), limit);
        form.type(name, QString{200, u'x'});
        QCOMPARE(form.text(name).size(), limit);
    }
}

void EditorTest::checkTabOrder(const Form& form, const Values& stops) {
    activate(form.window());
    for (qsizetype i = 0; i < stops.size(); ++i) {
        if (i > 0)
            QTest::keyClick(form.window().focusWidget(), Qt::Key_Tab);
        QCOMPARE(form.window().focusWidget()->objectName(), stops.at(i).control);
        QTest::keyClicks(form.window().focusWidget(), stops.at(i).value);
    }
}

void EditorTest::checkList(const QStringList& headers, const QList<QStringList>& rows) const {
    QCOMPARE(window().headers(editor_.list), headers);
    QCOMPARE(listed(), rows);
    QCOMPARE(window().selectedRows(editor_.list), QStringList{rows.front().front()});
}

void EditorTest::checkStored(const QString& key, const Fields& fields) const {
    for (const Field& field : fields) {
        if (!field.column.isEmpty())
            QCOMPARE(field.column + u": "_s + stored(key, field.column),
                     field.column + u": "_s + field.value);
    }
}

void EditorTest::checkComesBack(const QString& key, const Fields& fields) const {
    Fields kept;
    QString saved = key;
    for (const Field& field : fields) {
        if (!field.column.isEmpty())
            kept << field;
        if (field.control == editor_.keyBox)
            saved = field.value;
    }
    save(key, valuesOf(fields));
    checkStored(saved, kept);
    edit(saved, [&](Form form) {
        checkShown(form, valuesOf(kept));
        form.click(u"cmdOk"_s);
    });
    checkStored(saved, kept);
}

void EditorTest::checkRefusals(const QString& key, const QList<Refusal>& refusals) const {
    const auto before = storedRows();
    QList<Box> boxes;
    for (const Refusal& refusal : refusals)
        boxes << refusal.box;
    const auto refused = [&](Form form) {
        for (const Refusal& refusal : refusals) {
            fill(form, refusal.typed);
            form.click(u"cmdOk"_s);
            QVERIFY(form.window().isVisible());
            checkShown(form, refusal.typed);
        }
        form.click(u"cmdCancel"_s);
    };
    edit(key, boxes, refused);
    QCOMPARE(storedRows(), before);
}

void EditorTest::checkFailedLoad() const {
    answering({plain(containing(database().noTable(editor_.table)))}, [this] { reload(); });
}

void EditorTest::checkDeleteAsks(bool alwaysReloads) const {
    const QString key = listed().front().front();
    const auto size = listed().size();
    const auto addBehind = [this](const QString& name) {
        database().run(u"INSERT INTO %1 (%2) VALUES (?)"_s.arg(editor_.table, editor_.keyColumn), {name});
    };
    addBehind(u"zz"_s);
    remove(key, QMessageBox::Cancel);
    QCOMPARE(listed().size(), alwaysReloads ? size + 1 : size);

    addBehind(u"zzz"_s);
    const auto before = storedRows();
    database().failOn(editor_.table, u"DELETE"_s);
    remove(key, QMessageBox::Ok, {critical(containing(ScratchDatabase::Failure))});
    QCOMPARE(listed().size(), alwaysReloads ? size + 2 : size);
    QCOMPARE(storedRows(), before);

    database().allow(editor_.table, u"DELETE"_s);
    auto others = before;
    others.removeIf([&](const QStringList& row) { return row.front() == key; });
    QCOMPARE(others.size(), before.size() - 1);
    remove(key, QMessageBox::Ok);
    QCOMPARE(storedRows(), others);
    QCOMPARE(listed().size(), size + 1);
    QVERIFY(!Globals::ConfigChanged());
}

void EditorTest::checkKeys(const Box& question) const {
    auto& list = window().find<QAbstractItemView>(editor_.list);
    const auto shows = [this](const QString& key) {
        return [this, key](Form dialog) {
            QCOMPARE(dialog.text(editor_.keyBox), key);
            QTest::keyClick(&dialog.window(), Qt::Key_Escape);
        };
    };
    BoxScript script;
    script.expect(question);
    QTest::keyClick(&list, Qt::Key_Delete);
    QVERIFY(script.isDone());

    script.drive(editor_.dialog, shows(listed().at(0).front()));
    QTest::keyClick(&list, Qt::Key_Return);
    QVERIFY(script.isDone());

    const QPoint second = list.visualRect(list.model()->index(1, 0)).center();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, second);
    script.drive(editor_.dialog, shows(listed().at(1).front()));
    QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, second);
    QVERIFY(script.isDone());

    activate(window().window());
    script.drive(editor_.dialog, shows({}));
    QTest::keyClick(&window().window(), Qt::Key_A, Qt::AltModifier);
    EVENTUALLY(script.isDone());  // the button stays down for a moment
}

void EditorTest::checkKeys() const {
    checkKeys(question(listed().front().front(), QMessageBox::Cancel));
}

}  // namespace tessaly::test
