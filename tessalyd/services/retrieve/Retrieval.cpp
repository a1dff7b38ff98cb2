#include "tessalyd/services/retrieve/Retrieval.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmnet/dimse.h>

#include <string_view>
#include <system_error>

#include "db/Error.h"
#include "tessalyd/services/query/QueryIdentifier.h"
#include "tessalyd/services/query/ReceivedIdentifier.h"

namespace tessaly::tessalyd {

namespace {

constexpr std::uint16_t NoNumberOfMatches = STATUS_MOVE_Refused_OutOfResourcesNumberOfMatches;

InformationModel modelOf(const std::string& sopClass) {
    return sopClass == UID_GETPatientRootQueryRetrieveInformationModel ||
                   sopClass == UID_MOVEPatientRootQueryRetrieveInformationModel
               ? InformationModel::PatientRoot
               : InformationModel::StudyRoot;
}

void send(const Request& request, Association& association, const SubOperations& operations,
          std::uint16_t status, const std::string& comment = {}) {
    std::optional<DcmDataset> failures;
    if (status != STATUS_Pending)
        failures = operations.failures();
    dicom::Command response = operations.response(request.command, status);
    if (!comment.empty())
        response.set(DCM_ErrorComment, comment);
    association.respond(request, response, failures ? &*failures : nullptr);
}

}  // namespace

bool Retrieval::isGet(const char* sopClass) {
    const std::string_view uid{sopClass};
    return uid == UID_GETPatientRootQueryRetrieveInformationModel ||
           uid == UID_GETStudyRootQueryRetrieveInformationModel;
}

bool Retrieval::isMove(const char* sopClass) {
    const std::string_view uid{sopClass};
    return uid == UID_MOVEPatientRootQueryRetrieveInformationModel ||
           uid == UID_MOVEStudyRootQueryRetrieveInformationModel;
}

std::optional<InstanceList> Retrieval::find(const Request& request, Association& association) {
    wasAsked_ = true;
    const auto isCancelled = [&association] { return association.isCancelled(); };
    try {
        const auto identifier = receiveIdentifier(request, association);
        ArchiveQuery query = readRetrieval(*identifier, modelOf(request.context->sopClass));
        const auto lease = shared_.sessions.take(isCancelled);
        if (!lease)
            return std::nullopt;
        std::optional<InstanceList> found{
            std::in_place, lease->statements(), std::move(query),
            SearchLimits{.timeout = settings_->queryTimeout, .stop = isCancelled}};
        if (found->wasStopped())
            return std::nullopt;
        found_ += found->size();
        return found;
    } catch (const RequestFailure& failure) {
        association.log(PeerLog::Event::Fault, std::string{"retrieval not answered: "} + failure.what());
        throw;
    } catch (const SearchTimeout& late) {
        association.log(PeerLog::Event::Failure, late.what());
        throw RequestFailure{NoNumberOfMatches, late.what()};
    } catch (const db::Error& error) {
        association.log(PeerLog::Event::Failure, std::string{"the tables cannot be asked: "} + error.what());
        throw RequestFailure{NoNumberOfMatches, "The database cannot be asked"};
    } catch (const std::system_error& error) {
        association.log(PeerLog::Event::Failure, error.what());
        throw RequestFailure{NoNumberOfMatches, "There is no room for the list of objects"};
    }
}

void Retrieval::answerPending(const Request& request, Association& association,
                              const SubOperations& operations) {
    send(request, association, operations, STATUS_Pending);
}

void Retrieval::answerFinally(const Request& request, Association& association,
                              const SubOperations& operations, bool cancelled) {
    count(operations);
    send(request, association, operations, operations.finalStatus(cancelled));
}

void Retrieval::answerFinally(const Request& request, Association& association,
                              const SubOperations& operations, const std::string& comment) {
    count(operations);
    send(request, association, operations, operations.finalStatus(false), comment);
}

void Retrieval::refuseFinally(const Request& request, Association& association,
                              const SubOperations& operations, std::uint16_t status,
                              const std::string& comment) {
    count(operations);
    send(request, association, operations, status, comment);
}

void Retrieval::count(const SubOperations& operations) {
    sent_ += operations.sent();
    failed_ += operations.failed();
}

std::string Retrieval::summary(const char* name) const {
    if (!wasAsked_)
        return {};
    return std::string{name} + ": " + std::to_string(found_) + " objects found, " + std::to_string(sent_) +
           " sent, " + std::to_string(failed_) + " failed";
}

}  // namespace tessaly::tessalyd
