#include "tests/support/RealInput.h"

#include <QApplication>
#include <QProcess>
#include <QTest>
#include <stdexcept>

#include "tests/support/Eventually.h"

namespace tessaly::test::real {

using namespace Qt::StringLiterals;

namespace {

void send(const QStringList& input) {
    // Another process, as the keyboard is: nothing of what it sends can go past the window system.
    if (QProcess::execute(u"xdotool"_s, input) != 0)
        throw std::runtime_error("xdotool cannot send " + input.join(u' ').toStdString());
}

}  // namespace

bool hasKeyboard(QWidget& window) {
    return QTest::qWaitForWindowExposed(&window, PatienceMs) &&
           QTest::qWaitFor([&window] { return window.isActiveWindow(); }, PatienceMs);
}

void press(const QString& key) {
    send({u"key"_s, key});
}

void hold(const QString& key) {
    send({u"keydown"_s, key});
}

void release(const QString& key) {
    send({u"keyup"_s, key});
}

void type(const QString& text) {
    send({u"type"_s, u"--"_s, text});
}

void click(const QWidget& widget) {
    const QPoint middle = widget.mapToGlobal(widget.rect().center());
    send({u"mousemove"_s, QString::number(middle.x()), QString::number(middle.y()), u"click"_s, u"1"_s});
}

void hover(const QWidget& widget, const QPoint& place) {
    const QPoint spot = widget.mapToGlobal(place);
    send({u"mousemove"_s, QString::number(spot.x() - 1), QString::number(spot.y()), u"mousemove_relative"_s,
          u"1"_s, u"0"_s});
}

}  // namespace tessaly::test::real
