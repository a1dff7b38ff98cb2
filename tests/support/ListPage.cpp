#include "tests/support/ListPage.h"

#include <QTest>

namespace tessaly::test {

void checkKeys(QWidget& window, const ListPage& page) {
    const Form form{window};
    auto& list = form.find<QAbstractItemView>(page.list);
    const auto shows = [&page](const QString& key) {
        return [&page, key](Form dialog) {
            QCOMPARE(dialog.text(page.keyBox), key);
            QTest::keyClick(&dialog.window(), Qt::Key_Escape);
        };
    };
    BoxScript script;
    script.expect(page.question);
    QTest::keyClick(&list, Qt::Key_Delete);
    QVERIFY(script.isDone());

    script.drive(page.dialog, shows(form.rows(page.list).at(0).front()));
    QTest::keyClick(&list, Qt::Key_Return);
    QVERIFY(script.isDone());

    const QPoint second = list.visualRect(list.model()->index(1, 0)).center();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, second);
    script.drive(page.dialog, shows(form.rows(page.list).at(1).front()));
    QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, second);
    QVERIFY(script.isDone());

    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    script.drive(page.dialog, shows({}));
    QTest::keyClick(&window, Qt::Key_A, Qt::AltModifier);
    QTRY_VERIFY(script.isDone());  // the button stays down for a moment
}

}  // namespace tessaly::test
