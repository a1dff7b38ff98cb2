#include "tests/support/BoxScript.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QFileDialog>
#include <QTest>
#include <QTimer>

#include "console/ui/ConsoleEnd.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

Box plain(const QString& text) {
    return {.text = text};
}

Box critical(const QString& text) {
    return {.text = text, .icon = QMessageBox::Critical};
}

Box yesNo(const QString& text, QMessageBox::StandardButton answer) {
    return {.text = text, .buttons = QMessageBox::Yes | QMessageBox::No, .answer = answer};
}

Box okCancel(const QString& text, QMessageBox::StandardButton answer) {
    return {.text = text, .buttons = QMessageBox::Ok | QMessageBox::Cancel, .answer = answer};
}

QString containing(const QString& part) {
    return BoxScript::AnyText + part;
}

void answering(const QList<Box>& boxes, const std::function<void()>& action) {
    BoxScript script;
    for (const Box& box : boxes)
        script.expect(box);
    action();
    QVERIFY(script.isDone());
}

BoxScript::BoxScript() {
    qApp->installEventFilter(this);
}

BoxScript::~BoxScript() {
    qApp->removeEventFilter(this);
    if (next_ < steps_.size() && !failed_) {
        const auto* box = std::get_if<Box>(&steps_[next_]);
        fail(u"did not come: "_s + (box != nullptr ? box->text : std::get<Dialog>(steps_[next_]).name));
    }
}

BoxScript& BoxScript::expect(const Box& box) {
    steps_.emplace_back(box);
    return *this;
}

BoxScript& BoxScript::drive(const QString& dialogName, std::function<void(Form)> body) {
    steps_.emplace_back(Dialog{dialogName, std::move(body)});
    return *this;
}

void BoxScript::fail(const QString& why) {
    failed_ = true;
    QTest::qFail(qPrintable(u"message box or dialog "_s + why), __FILE__, __LINE__);
}

bool BoxScript::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Show && watched->isWidgetType()) {
        auto* window = static_cast<QWidget*>(watched);
        // A box is answered even if it leaves the other windows usable.
        if (window->isWindow() && (window->isModal() || qobject_cast<QMessageBox*>(window) != nullptr)) {
            // Once its own event loop runs, as a user would.
            QTimer::singleShot(0, this, [this, pointer = QPointer{window}] {
                if (pointer)
                    meet(pointer);
            });
        }
    }
    return QObject::eventFilter(watched, event);
}

bool BoxScript::matches(const QString& text, const QString& expected) {
    const qsizetype any = expected.indexOf(AnyText);
    if (any < 0)
        return text == expected;
    return text.startsWith(expected.left(any)) && text.contains(expected.mid(any + AnyText.size()));
}

void BoxScript::meet(QWidget* window) {
    if (auto* box = qobject_cast<QMessageBox*>(window))
        answer(box);
    else
        run(window);
}

void BoxScript::answer(QMessageBox* box) {
    const Box shown{box->text(), box->icon(), box->windowTitle(), box->standardButtons(),
                    QMessageBox::NoButton};
    boxes_.push_back(shown);
    const auto* expected = next_ < steps_.size() ? std::get_if<Box>(&steps_[next_]) : nullptr;
    if (expected == nullptr) {
        fail(u"unexpected: "_s + shown.text);
        box->reject();
        return;
    }
    ++next_;
    const auto wanted = expected->answer;
    if (!matches(shown.text, expected->text))
        fail(u"says \"%1\" instead of \"%2\""_s.arg(shown.text,
                                                    QString{expected->text}.replace(AnyText, u"..."_s)));
    else if (expected->icon != shown.icon)
        fail(u"has icon %1 instead of %2: %3"_s.arg(shown.icon).arg(expected->icon).arg(shown.text));
    else if (expected->title != shown.title)
        fail(u"has title \"%1\" instead of \"%2\": %3"_s.arg(shown.title, expected->title, shown.text));
    else if (expected->buttons != shown.buttons)
        fail(u"has other buttons: "_s + shown.text);
    else if (box->textFormat() != Qt::PlainText)
        fail(u"takes its text as more than plain: "_s + shown.text);
    if (auto* button = box->button(wanted))
        button->click();
    else
        box->reject();
}

void BoxScript::run(QWidget* window) {
    const QString name = qobject_cast<QFileDialog*>(window) ? u"QFileDialog"_s : window->objectName();
    const auto* expected = next_ < steps_.size() ? std::get_if<Dialog>(&steps_[next_]) : nullptr;
    const QPointer<QWidget> pointer{window};
    if (expected == nullptr || expected->name != name) {
        fail(u"unexpected: "_s + name);
    } else {
        const auto body = expected->body;
        ++next_;
        try {
            body(Form{*window});
        } catch (const std::exception& fault) {
            fail(name + u": "_s + QString::fromUtf8(fault.what()));
        }
        // A console that ends closes its dialogs by itself, once the event loops have returned.
        if (pointer && pointer->isVisible() && !ui::isConsoleEnding())
            fail(u"left open: "_s + name);
    }
    if (auto* dialog = qobject_cast<QDialog*>(pointer.data()); dialog != nullptr && dialog->isVisible())
        dialog->reject();
}

}  // namespace tessaly::test
