#include <QApplication>
#include <QGuiApplication>
#include <QHash>
#include <QPixmap>
#include <QScreen>
#include <QTabWidget>
#include <QTest>
#include <QTextDocument>
#include <QToolTip>
#include <QTreeWidget>
#include <algorithm>
#include <cmath>

#include "tests/support/Eventually.h"
#include "tests/support/RealInput.h"
#include "tests/support/WindowTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

/// The tip that is on the screen; null while there is none.
QWidget* tipWindow() {
    const auto windows = QApplication::topLevelWidgets();
    const auto found = std::find_if(windows.begin(), windows.end(), [](const QWidget* window) {
        return window->isVisible() && window->windowType() == Qt::ToolTip;
    });
    return found == windows.end() ? nullptr : *found;
}

/// What the screen shows where the widget is, whatever covers it.
QImage onScreen(const QWidget& widget) {
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage().copy(widget.geometry());
}

double luminance(QRgb color) {
    const auto linear = [](int channel) {
        const double share = channel / 255.0;
        return share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(qRed(color)) + 0.7152 * linear(qGreen(color)) + 0.0722 * linear(qBlue(color));
}

/// The contrast of the text on its ground, from 1 (all of one colour) to 21: the ground is the most frequent
/// colour inside the frame, the text the one that differs most from it.
double contrast(const QImage& image) {
    constexpr int Frame = 2;
    QHash<QRgb, int> pixels;
    for (int y = Frame; y < image.height() - Frame; ++y) {
        for (int x = Frame; x < image.width() - Frame; ++x)
            ++pixels[image.pixel(x, y)];
    }
    const auto ground = std::max_element(pixels.cbegin(), pixels.cend());
    double most = 1;
    for (const QRgb color : pixels.keys()) {
        const double one = luminance(color);
        const double other = luminance(ground.key());
        most = std::max(most, (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05));
    }
    return most;
}

}  // namespace

/// The tool tips of the lists, as they are on the screen under the pointer.
class ToolTipTest : public WindowTest {
    Q_OBJECT

  public:
    ToolTipTest() : WindowTest(Page::Nodes) {}

  protected:
    void seed() const override {
        const QString host = u"AT&T of a hospital with a long name"_s;
        database().run(u"INSERT INTO DicomNodes (Name, AETitle, Host) VALUES ('a', 'A', ?), ('b', 'B', ?)"_s,
                       {host, u"<b>bold</b> &lt;text&gt; of a long name"_s});
        database().run(
            u"UPDATE Port SET Root='/srv/AT&T/of a hospital with a name that is so long that no "
            "column of the list is wide enough to show the whole of it'"_s);
    }

  private Q_SLOTS:
    void aTipIsReadOnTheScreen_data();
    void aTipIsReadOnTheScreen();
    void textThatLooksLikeMarkupIsShownAsItStands();

  private:
    /// Puts the pointer on a cell and waits for its tip.
    void hover(int page, const QString& list, int row, int column) const;
};

void ToolTipTest::hover(int page, const QString& list, int row, int column) const {
    window().find<QTabWidget>(u"tabNodes"_s).setCurrentIndex(page);
    QVERIFY(real::hasKeyboard(window().window()));
    const auto& view = window().find<QTreeWidget>(list);
    const QRect cell = view.visualRect(view.model()->index(row, column));
    real::hover(*view.viewport(), cell.intersected(view.viewport()->rect()).center());
    EVENTUALLY(tipWindow() != nullptr);
}

void ToolTipTest::aTipIsReadOnTheScreen_data() {
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("list");
    QTest::addColumn<int>("column");
    QTest::newRow("nodes") << 0 << u"lstNodes"_s << 1;
    QTest::newRow("ports") << 1 << u"lstPorts"_s << 4;
}

void ToolTipTest::aTipIsReadOnTheScreen() {
    QFETCH(int, page);
    QFETCH(QString, list);
    QFETCH(int, column);
    hover(page, list, 0, column);
    constexpr double Readable = 4.5;
    EVENTUALLY(contrast(onScreen(*tipWindow())) >= Readable);
    QCOMPARE(QToolTip::text(), window().rows(list).front().at(column));
}

void ToolTipTest::textThatLooksLikeMarkupIsShownAsItStands() {
    hover(0, u"lstNodes"_s, 1, 1);
    QTextDocument shown;
    shown.setHtml(QToolTip::text());
    QCOMPARE(shown.toPlainText(), u"<b>bold</b> &lt;text&gt; of a long name"_s);
}

QTEST_MAIN(ToolTipTest)
#include "tst_tooltip.moc"
