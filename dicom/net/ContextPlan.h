#pragma once

#include <optional>
#include <vector>

#include "dicom/data/OutgoingObject.h"
#include "dicom/net/PresentationContext.h"

namespace tessaly::dicom {

/// What is proposed to a peer that objects of some kinds are to be sent to: for each SOP class the syntaxes
/// that its objects are stored in, a context each, so that the peer can take every one of them; and beside
/// them little endian, explicit and implicit, in which an object can still be sent that it does not take.
/// An association has room for 128 contexts; a SOP class is not divided between two. What is empty is not
/// proposed: a peer may refuse all of a request for it.
class ContextPlan {
  public:
    explicit ContextPlan(const std::vector<ObjectKind>& kinds);

    [[nodiscard]] std::size_t associations() const noexcept { return associations_.size(); }
    [[nodiscard]] const std::vector<ProposedContext>& contexts(std::size_t association) const {
        return associations_.at(association);
    }
    /// The association that objects of the SOP class go over.
    [[nodiscard]] std::optional<std::size_t> associationOf(const std::string& sopClass) const;

  private:
    std::vector<std::vector<ProposedContext>> associations_;
};

}  // namespace tessaly::dicom
