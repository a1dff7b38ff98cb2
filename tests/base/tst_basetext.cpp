#include <QTest>

#include "base/TcpPort.h"
#include "base/Text.h"

using namespace tessaly::base;

/// Texts as tables and peers have them.
class BaseTextTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void blanksAroundAreTakenAway();
    void aPortIsANumber();
};

void BaseTextTest::blanksAroundAreTakenAway() {
    static_assert(trimmed("  two words ") == "two words");
    QCOMPARE(trimmed(""), std::string_view{});
    QCOMPARE(trimmed("   "), std::string_view{});
    QCOMPARE(trimmed("\ta "), std::string_view{"\ta"});
    QCOMPARE(trimmed("\ta \n", " \t\n"), std::string_view{"a"});
    QCOMPARE(trimmed({"1.2\0", 4}, {" \0", 2}), std::string_view{"1.2"});
}

void BaseTextTest::aPortIsANumber() {
    QCOMPARE(tcpPort("1"), std::optional<std::uint16_t>{1});
    QCOMPARE(tcpPort("0104"), std::optional<std::uint16_t>{104});
    QCOMPARE(tcpPort("65535"), std::optional<std::uint16_t>{65535});
    for (const char* const text : {"", "0", "-1", "+104", " 104", "104 ", "104x", "65536", "99999999999"})
        QVERIFY2(!tcpPort(text), text);
}

QTEST_GUILESS_MAIN(BaseTextTest)
#include "tst_basetext.moc"
