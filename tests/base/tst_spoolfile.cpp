#include <sys/resource.h>

#include <QTest>
#include <csignal>
#include <list>
#include <string>
#include <system_error>

#include "base/SignalGuard.h"
#include "base/SpoolFile.h"

using tessaly::base::SpoolFile;

namespace {

/// While it lives, a file of this process has no room for more than a page. The signal for it, which would
/// end the process, is passed over.
class SmallFiles {
  public:
    SmallFiles() {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit small{.rlim_cur = 4096, .rlim_max = before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallFiles() { setrlimit(RLIMIT_FSIZE, &before_); }
    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;

  private:
    rlimit before_{};
    tessaly::base::SignalGuard signal_{{SIGXFSZ}, SIG_IGN};
};

}  // namespace

/// Texts that are put aside and read back.
class SpoolFileTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void textsComeBackInTheirOrder_data();
    void textsComeBackInTheirOrder();
    void anEmptyOneHasNone();
    void noRoomIsReported();
};

void SpoolFileTest::textsComeBackInTheirOrder_data() {
    QTest::addColumn<std::size_t>("mostInMemory");
    QTest::newRow("in memory") << (std::size_t{1} << 20U);
    QTest::newRow("partly in the file") << std::size_t{700};
    QTest::newRow("in the file") << std::size_t{0};
}

void SpoolFileTest::textsComeBackInTheirOrder() {
    QFETCH(const std::size_t, mostInMemory);
    SpoolFile spool{mostInMemory};
    std::list<std::string> texts;
    texts.emplace_back();
    texts.emplace_back(1000, 'x');
    texts.emplace_back("with\0zero", 9);
    texts.emplace_back();
    for (int i = 0; i < 100; ++i)
        texts.push_back(std::to_string(i));
    for (const std::string& text : texts)
        spool.add(text);
    for (int round = 0; round < 2; ++round) {
        spool.rewind();
        std::string text;
        for (const std::string& expected : texts) {
            QVERIFY(spool.next(text));
            QCOMPARE(text, expected);
        }
        QVERIFY(!spool.next(text));
    }
}

void SpoolFileTest::anEmptyOneHasNone() {
    SpoolFile spool;
    spool.rewind();
    std::string text;
    QVERIFY(!spool.next(text));
}

void SpoolFileTest::noRoomIsReported() {
    SpoolFile spool{0};
    spool.add("first");
    const SmallFiles small;
    const auto fill = [&spool] {
        for (int i = 0; i < 100; ++i)
            spool.add(std::string(1000, 'x'));
        spool.rewind();
    };
    QVERIFY_EXCEPTION_THROWN(fill(), std::system_error);
}

QTEST_GUILESS_MAIN(SpoolFileTest)
#include "tst_spoolfile.moc"
