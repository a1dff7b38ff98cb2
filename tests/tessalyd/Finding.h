#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QStringList>
#include <memory>
#include <span>

#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

constexpr const char* PatientRootFind = UID_FINDPatientRootQueryRetrieveInformationModel;
constexpr const char* StudyRootFind = UID_FINDStudyRootQueryRetrieveInformationModel;

/// One C-FIND over an association of a test, from its request on. The association outlives it.
class Finding {
  public:
    /// Verification and both models of C-FIND; their identifiers in explicit little endian.
    [[nodiscard]] static std::vector<RequestorAssociation::Context> contexts();

    /// Sends the request in the model's context.
    Finding(RequestorAssociation& peer, DcmDataset identifier, const char* sopClass = StudyRootFind);
    /// With an identifier that is whatever the bytes are, or none.
    Finding(RequestorAssociation& peer, std::span<const char> identifier,
            const char* sopClass = StudyRootFind);

    struct Answer {
        int status = -1;  ///< -1: none came
        std::unique_ptr<DcmDataset> found;
        std::string comment;
        DcmTagKey offending{0, 0};

        [[nodiscard]] bool isPending() const { return status == 0xff00 || status == 0xff01; }
        [[nodiscard]] std::string value(const DcmTagKey& tag) const;
    };
    [[nodiscard]] Answer next();
    /// The values of `tag` in all that is still to come, then the last answer's status in hexadecimal digits.
    [[nodiscard]] QStringList rest(const DcmTagKey& tag);
    /// What is still to come: how many, and the last answer.
    struct Rest {
        int pending = 0;
        Answer last;
    };
    [[nodiscard]] Rest rest();

    void cancel();

  private:
    RequestorAssociation& peer_;
    T_ASC_PresentationContextID context_;
    DIC_US messageId_ = 0;
};

/// Sends a query and takes all of it.
[[nodiscard]] Finding::Rest findAll(RequestorAssociation& peer, const DcmDataset& identifier,
                                    const char* sopClass = StudyRootFind);

}  // namespace tessaly::test
