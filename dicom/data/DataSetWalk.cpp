#include "dicom/data/DataSetWalk.h"

#include <algorithm>
#include <array>

#include "dicom/data/ElementWalk.h"

namespace tessaly::dicom {

namespace {

using Reading = ElementWalk::Reading;

/// Goes on to the first element of the data set itself that is `end` or behind it.
class Goal final : public ElementVisitor {
  public:
    explicit Goal(const DcmTagKey& end = DcmTagKey{0xffff, 0xffff}) : end_(end) {}
    [[nodiscard]] bool element(const ElementHead& head) override { return head.depth > 0 || head.tag < end_; }
    void value(std::span<const char> /*piece*/) override {}

  private:
    DcmTagKey end_;
};

}  // namespace

bool exceedsNestingLimit(std::span<const char> dataSet, TransferSyntax syntax, const DcmTagKey& end) {
    constexpr std::array Readings{Reading::ByRepresentation, Reading::ByContent, Reading::Enclosed};
    return std::any_of(Readings.begin(), Readings.end(), [&](Reading reading) {
        Goal goal{end};
        ElementWalk walk{syntax, reading, goal};
        walk.take(dataSet);
        return walk.isTooDeep();
    });
}

struct TruncationCheck::State {
    explicit State(TransferSyntax syntax) : walk(syntax, Reading::Enclosed, goal) {}
    Goal goal;
    ElementWalk walk;
};

TruncationCheck::TruncationCheck(TransferSyntax syntax) {
    if (!syntax.isDeflated())
        state_ = std::make_unique<State>(syntax);
}
TruncationCheck::~TruncationCheck() = default;

void TruncationCheck::take(std::span<const char> bytes) {
    if (state_)
        state_->walk.take(bytes);
}

bool TruncationCheck::isTruncated() const {
    return state_ && !state_->walk.isEnded() && state_->walk.isIncomplete();
}

bool isTruncated(std::span<const char> dataSet, TransferSyntax syntax) {
    TruncationCheck check{syntax};
    check.take(dataSet);
    return check.isTruncated();
}

bool isTruncated(const std::function<char(std::size_t)>& byteAt, std::size_t size, TransferSyntax syntax) {
    if (syntax.isDeflated())
        return false;
    Goal goal;
    ElementWalk walk{syntax, Reading::Enclosed, goal};
    for (std::size_t at = 0; at < size && !walk.isEnded();) {
        if (const auto value = std::min<std::uint64_t>(walk.passable(), size - at); value > 0) {
            walk.pass(value);
            at += static_cast<std::size_t>(value);
            continue;
        }
        const char byte = byteAt(at++);
        walk.take({&byte, 1});
    }
    return !walk.isEnded() && walk.isIncomplete();
}

}  // namespace tessaly::dicom
