#include "tests/support/WindowTest.h"
#include "tests/support/Eventually.h"

#include <QApplication>
#include <QTabWidget>
#include <QTest>

#include "console/app/TessalyManager.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

WindowTest::WindowTest(Page page) : page_(page) {}

WindowTest::~WindowTest() = default;

Form WindowTest::window() const {
    return Form{*window_};
}

void WindowTest::activate(QWidget& window) {
    window.activateWindow();
    EVENTUALLY_COMPARE(QApplication::activeWindow(), &window);
}

void WindowTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    seed();
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>();
    window_->LoadNodes();
    window_->LoadPorts();
    window_->LoadFTPNodes();
    window_->LoadUsers();
    window_->LoadDicomPrinters();
    window_->show();
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(static_cast<int>(page_));
}

void WindowTest::cleanup() {
    window_.reset();
    database_.reset();
}

void WindowTest::addAwkwardTexts() {
    QTest::addColumn<QString>("text");
    QTest::newRow("apostrophe") << u"O'Hara's"_s;
    QTest::newRow("statement") << u"';DROP TABLE x--"_s;
    QTest::newRow("percent and marks") << u"100% %1 ?_\"\\&"_s;
    QTest::newRow("umlauts") << u"Größe Äöü ß"_s;
    QTest::newRow("CJK") << u"東京 서울"_s;
    QTest::newRow("four bytes") << u"🩻🏥 x"_s;
    QTest::newRow("blanks at both ends") << u"  two  "_s;
    QTest::newRow("only blanks") << u"   "_s;
    QTest::newRow("markup") << u"<b>a</b> &amp;"_s;
}

}  // namespace tessaly::test
