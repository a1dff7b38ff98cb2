#include "tests/tessalyd/services/commitment/ReportReceiver.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/dcmnet/scp.h>
#include <dcmtk/oflog/oflog.h>

#include <thread>

namespace tessaly::test {

namespace {

std::string text(DcmItem& item, const DcmTagKey& tag) {
    OFString value;
    item.findAndGetOFString(tag, value);
    return value;
}

}  // namespace

class ReportReceiver::Acceptor final : public DcmSCP {
  public:
    Acceptor(const QString& port, int status) : status_(status) {
        // A report is six of the toolkit's lines: hundreds of them would hide what a test says.
        OFLog::getLogger("dcmtk.dcmnet").setLogLevel(OFLogger::ERROR_LOG_LEVEL);
        OFList<OFString> syntaxes;
        syntaxes.emplace_back(UID_LittleEndianImplicitTransferSyntax);
        syntaxes.emplace_back(UID_LittleEndianExplicitTransferSyntax);
        addPresentationContext(UID_StorageCommitmentPushModelSOPClass, syntaxes, ASC_SC_ROLE_SCU);
        setPort(static_cast<Uint16>(port.toUInt()));
        setAETitle("CT");
        setConnectionBlockingMode(DUL_NOBLOCK);
        setConnectionTimeout(1);
        setDIMSEBlockingMode(DIMSE_NONBLOCKING);
        setDIMSETimeout(30);
        openListenPort();
        thread_ = std::thread{[this] { acceptAssociations(); }};
    }
    ~Acceptor() override {
        ended_ = true;
        thread_.join();
    }

    std::atomic<int> status_;
    mutable std::mutex mutex_;
    std::vector<Report> reports_;

  protected:
    OFBool stopAfterConnectionTimeout() override { return ended_; }
    OFBool stopAfterCurrentAssociation() override { return ended_; }

    OFCondition handleIncomingCommand(T_DIMSE_Message* message,
                                      const DcmPresentationContextInfo& info) override {
        if (message->CommandField != DIMSE_N_EVENT_REPORT_RQ)
            return DcmSCP::handleIncomingCommand(message, info);
        DcmDataset* received = nullptr;
        Uint16 eventType = 0;
        proposed_ = info.proposedSCRole == DUL_SC_ROLE_SCP;
        const OFCondition result = handleEVENTREPORTRequest(message->msg.NEventReportRQ,
                                                            info.presentationContextID, received, eventType);
        const std::unique_ptr<DcmDataset> owned{received};
        return result;
    }

    Uint16 checkEVENTREPORTRequest(T_DIMSE_N_EventReportRQ& request, DcmDataset* data) override {
        Report report;
        report.eventType = request.EventTypeID;
        report.calling = getPeerAETitle();
        report.transactionUid = text(*data, DCM_TransactionUID);
        report.retrieveAeTitle = text(*data, DCM_RetrieveAETitle);
        report.roleWasProposed = proposed_;
        DcmSequenceOfItems* sequence = nullptr;
        if (data->findAndGetSequence(DCM_ReferencedSOPSequence, sequence).good()) {
            report.hasCommitted = true;
            for (unsigned long i = 0; i < sequence->card(); ++i)
                report.committed.push_back(text(*sequence->getItem(i), DCM_ReferencedSOPInstanceUID));
        }
        if (data->findAndGetSequence(DCM_FailedSOPSequence, sequence).good()) {
            report.hasFailed = true;
            for (unsigned long i = 0; i < sequence->card(); ++i) {
                Uint16 reason = 0;
                sequence->getItem(i)->findAndGetUint16(DCM_FailureReason, reason);
                report.failed[text(*sequence->getItem(i), DCM_ReferencedSOPInstanceUID)] = reason;
            }
        }
        const std::lock_guard lock{mutex_};
        reports_.push_back(std::move(report));
        return static_cast<Uint16>(status_.load());
    }

  private:
    std::atomic<bool> ended_ = false;
    bool proposed_ = false;
    std::thread thread_;
};

ReportReceiver::ReportReceiver(const QString& port, int status)
    : port_(port), acceptor_(std::make_unique<Acceptor>(port, status)) {}

ReportReceiver::~ReportReceiver() = default;

void ReportReceiver::setStatus(int status) {
    acceptor_->status_ = status;
}

std::vector<Report> ReportReceiver::reports() const {
    const std::lock_guard lock{acceptor_->mutex_};
    return acceptor_->reports_;
}

}  // namespace tessaly::test
