#include <QTest>
#include <functional>
#include <future>
#include <latch>
#include <stdexcept>
#include <vector>

#include "tessalyd/services/Conversions.h"

using namespace std::chrono_literals;
using namespace tessaly;
using namespace tessaly::tessalyd;

namespace {

/// An object that decoding does what the test says to.
class Scripted final : public dicom::OutgoingObject {
  public:
    using Decode = std::function<void()>;
    explicit Scripted(Decode decode = {}) : decode_(std::move(decode)) {}

    [[nodiscard]] const dicom::ObjectKind& kind() const noexcept override { return kind_; }
    [[nodiscard]] const std::string& sopInstanceUid() const noexcept override { return uid_; }
    [[nodiscard]] std::size_t size() const noexcept override { return 0; }
    void read(std::span<char> /*target*/) override {}
    [[nodiscard]] std::unique_ptr<OutgoingObject> in(const std::string& syntax) override {
        decode_();
        auto converted = std::make_unique<Scripted>();
        converted->kind_.transferSyntax = syntax;
        return converted;
    }

  private:
    Decode decode_;
    dicom::ObjectKind kind_;
    std::string uid_;
};

}  // namespace

/// Objects that are converted while somebody may lose interest.
class ConversionsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsMadeComes();
    void whatFailsComesThrough();
    void whoGivesUpDoesNotWait();
    void whatTheQuestionThrowsComesThrough();
    void noMoreThanSomeGoOnForNobody();

  private:
    static std::shared_ptr<Scripted> object(Scripted::Decode decode) {
        return std::make_shared<Scripted>(std::move(decode));
    }
};

void ConversionsTest::whatIsMadeComes() {
    Conversions conversions;
    const auto converted = conversions.convert(object([] {}), "1.2", [] { return false; });
    QVERIFY(converted);
    QCOMPARE(converted->kind().transferSyntax, "1.2");
}

void ConversionsTest::whatFailsComesThrough() {
    Conversions conversions;
    const auto faulty = object([] { throw std::out_of_range{"faulty"}; });
    QVERIFY_THROWS_EXCEPTION(std::out_of_range,
                             (void)conversions.convert(faulty, "1.2", [] { return false; }));
}

void ConversionsTest::whoGivesUpDoesNotWait() {
    std::latch goOn{1};
    Conversions conversions;
    QVERIFY(!conversions.convert(object([&goOn] { goOn.wait(); }), "1.2", [] { return true; }));
    goOn.count_down();  // or its end would be waited for in vain
}

void ConversionsTest::whatTheQuestionThrowsComesThrough() {
    std::latch goOn{1};
    Conversions conversions;
    const auto endless = object([&goOn] { goOn.wait(); });
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, (void)conversions.convert(endless, "1.2", []() -> bool {
        throw std::out_of_range{"gone"};
    }));
    goOn.count_down();
}

void ConversionsTest::noMoreThanSomeGoOnForNobody() {
    std::latch goOn{1};
    Conversions conversions;
    const auto leaveOne = [&] {
        (void)conversions.convert(object([&goOn] { goOn.wait(); }), "1.2", [] { return true; });
    };
    for (std::size_t i = 0; i < Conversions::MostLeft; ++i)
        leaveOne();
    auto oneMore = std::async(std::launch::async, leaveOne);
    QCOMPARE(oneMore.wait_for(500ms), std::future_status::timeout);
    goOn.count_down();
    oneMore.get();
}

QTEST_APPLESS_MAIN(ConversionsTest)
#include "tst_conversions.moc"
