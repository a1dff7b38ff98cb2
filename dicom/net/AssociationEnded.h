#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/ofstd/ofcond.h>

#include <stdexcept>

namespace tessaly::dicom {

/// The association is over, or has to be aborted: the reason says which.
class AssociationEnded : public std::runtime_error {
  public:
    explicit AssociationEnded(const OFCondition& reason)
        : std::runtime_error(reason.text()), reason_(reason) {}

    [[nodiscard]] const OFCondition& reason() const noexcept { return reason_; }

  private:
    OFCondition reason_;
};

/// Throws AssociationEnded unless the result of a call of the toolkit is good.
inline void require(const OFCondition& result) {
    if (result.bad())
        throw AssociationEnded{result};
}

}  // namespace tessaly::dicom
