#include "tessalyd/services/print/PrintService.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

#include "archive/StoredPath.h"
#include "db/Error.h"
#include "tessalyd/association/Association.h"
#include "tessalyd/forwarding/films/NewUid.h"
#include "tessalyd/services/print/PrintStatus.h"

namespace tessaly::tessalyd::print {

namespace {

constexpr const char* GrayscaleMeta = UID_BasicGrayscalePrintManagementMetaSOPClass;
constexpr const char* ColorMeta = UID_BasicColorPrintManagementMetaSOPClass;

bool isPrintContext(const char* sopClass) {
    static constexpr std::array<std::string_view, 6> Classes{
        GrayscaleMeta,        ColorMeta,          UID_PresentationLUTSOPClass, UID_BasicAnnotationBoxSOPClass,
        UID_PrintJobSOPClass, UID_PrinterSOPClass};
    return std::find(Classes.begin(), Classes.end(), std::string_view{sopClass}) != Classes.end();
}

/// Whether requests about a class come in a context.
bool belongs(std::string_view sopClass, std::string_view context) {
    if (context != GrayscaleMeta && context != ColorMeta)
        return sopClass == context;
    return sopClass == UID_BasicFilmSessionSOPClass || sopClass == UID_BasicFilmBoxSOPClass ||
           sopClass == UID_PrinterSOPClass ||
           sopClass == (context == ColorMeta ? std::string_view{UID_BasicColorImageBoxSOPClass}
                                             : std::string_view{UID_BasicGrayscaleImageBoxSOPClass});
}

/// In local time, as DICOM writes it.
void putTime(DcmItem& target, std::time_t time, const DcmTagKey& date, const DcmTagKey& clock) {
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%Y%m%d", &local);
    target.putAndInsertString(date, text.data());
    std::strftime(text.data(), text.size(), "%H%M%S", &local);
    target.putAndInsertString(clock, text.data());
}

/// Of the attributes that an N-GET asks for, those that there are. Returns whether one is not.
bool keepWanted(const dicom::Command& command, DcmDataset& dataSet) {
    const std::vector<DcmTagKey> tags = command.tags(DCM_AttributeIdentifierList);
    if (tags.empty())
        return false;
    bool isMissing = false;
    for (const DcmTagKey& tag : tags)
        isMissing = isMissing || !dataSet.tagExists(tag);
    for (unsigned long i = dataSet.card(); i-- > 0;) {
        const DcmTagKey tag = dataSet.getElement(i)->getTag();
        if (std::find(tags.begin(), tags.end(), tag) == tags.end())
            delete dataSet.remove(i);
    }
    return isMissing;
}

std::time_t startTime() {
    static const std::time_t Start = std::time(nullptr);
    return Start;
}

}  // namespace

PrintService::PrintService(ServiceContext& shared, PrinterProbe& probe, const PortConfiguration& port,
                           const AssociationNames& peer)
    : shared_(shared),
      probe_(probe),
      spool_(jobs::Spool{archive::localPath(port.root)}),
      calledAeTitle_(peer.calledAeTitle),
      jobs_(shared) {}

std::span<const SupportedContext> PrintService::contexts() const noexcept {
    static constexpr std::array Supported{
        SupportedContext{.covers = isPrintContext,
                         .requestor = Role::Scu,
                         .preference =
                             [](dicom::TransferSyntax syntax) {
                                 return dicom::isUncompressed(syntax) && syntax.isLittleEndian() ? 1 : 0;
                             },
                         .right = Right::Print}};
    return Supported;
}

std::span<const CommandField> PrintService::commands() const noexcept {
    static constexpr std::array Commands{CommandField::NCreate, CommandField::NSet, CommandField::NGet,
                                         CommandField::NAction, CommandField::NDelete};
    return Commands;
}

PrintService::Operation PrintService::operationFor(const Request& request) {
    using Field = CommandField;
    static constexpr std::array Operations{
        Entry{UID_BasicFilmSessionSOPClass, Field::NCreate, &PrintService::createSession},
        Entry{UID_BasicFilmSessionSOPClass, Field::NSet, &PrintService::setSession},
        Entry{UID_BasicFilmSessionSOPClass, Field::NDelete, &PrintService::deleteSession},
        Entry{UID_BasicFilmSessionSOPClass, Field::NAction, &PrintService::printSession},
        Entry{UID_BasicFilmBoxSOPClass, Field::NCreate, &PrintService::createFilm},
        Entry{UID_BasicFilmBoxSOPClass, Field::NSet, &PrintService::setFilm},
        Entry{UID_BasicFilmBoxSOPClass, Field::NDelete, &PrintService::deleteFilm},
        Entry{UID_BasicFilmBoxSOPClass, Field::NAction, &PrintService::printFilm},
        Entry{UID_BasicGrayscaleImageBoxSOPClass, Field::NSet, &PrintService::setImage},
        Entry{UID_BasicColorImageBoxSOPClass, Field::NSet, &PrintService::setImage},
        Entry{UID_BasicAnnotationBoxSOPClass, Field::NSet, &PrintService::setAnnotation},
        Entry{UID_PresentationLUTSOPClass, Field::NCreate, &PrintService::createLut},
        Entry{UID_PresentationLUTSOPClass, Field::NDelete, &PrintService::deleteLut},
        Entry{UID_PrinterSOPClass, Field::NGet, &PrintService::getPrinter},
        Entry{UID_PrintJobSOPClass, Field::NGet, &PrintService::getJob}};
    const std::string sopClass = request.command.sopClassUid();
    if (!belongs(sopClass, request.context->sopClass))
        throw RequestFailure{NoSuchClass, "The SOP class is none of the presentation context"};
    const auto* const found = std::find_if(Operations.begin(), Operations.end(), [&](const Entry& entry) {
        return sopClass == entry.sopClass && request.command.field() == entry.command;
    });
    if (found == Operations.end())
        throw RequestFailure{UnrecognizedOperation, "The SOP class does not have this operation"};
    return found->operation;
}

void PrintService::answer(const Request& request, Association& association) {
    const Operation operation = operationFor(request);
    const Answer answer = [&] {
        try {
            return (this->*operation)(request, association);
        } catch (const RequestFailure& failure) {
            association.log(PeerLog::Event::Failure,
                            std::string{"a request to print is refused: "} + failure.what());
            throw;
        } catch (const db::Error& fault) {
            association.log(PeerLog::Event::Failure,
                            std::string{"a request to print failed: "} + fault.what());
            throw RequestFailure{ProcessingFailure, "The database does not answer"};
        }
    }();
    auto response = dicom::Command::responseTo(request.command, answer.status);
    if (!answer.instance.empty())
        response.set(DCM_AffectedSOPInstanceUID, answer.instance);
    association.respond(request, response, answer.dataSet.get());
    if (request.command.field() == CommandField::NAction)
        jobs_.report(association);  // that it is pending
}

films::AttributeSet PrintService::receive(const Request& request, Association& association,
                                          PixelFile* pixels) {
    if (!request.command.hasDataSet())
        return {};
    films::AttributeCollector collector{request.context->syntax(), [pixels](std::span<const char> piece) {
                                            if (pixels != nullptr)
                                                pixels->take(piece);
                                        }};
    const bool belong =
        association.receiveDataSet([&collector](std::span<const char> part) { collector.take(part); });
    if (!belong)
        throw RequestFailure{InvalidAttributeValue, "Command and data set do not belong together"};
    if (collector.pixelBytes() > PixelFile::MostBytes)
        throw RequestFailure{NoRoomForImage, "The image has more than 64 MB"};
    if (const auto fault = collector.fault())
        throw RequestFailure{InvalidAttributeValue, *fault};
    return std::move(collector.attributes());
}

/// By the tables as they are when the association first needs one.
void PrintService::requirePrinter(Association& association) {
    if (hasPrinter_)
        return;
    auto session = shared_.sessions.take([&] { return association.stop().stop_requested(); });
    if (!session)
        throw RequestFailure{ProcessingFailure, "The server is being stopped"};
    const auto printers = films::readPrinters(session->connection());
    const films::PrinterRow* const found = films::printerFor(printers, calledAeTitle_);
    if (found == nullptr)
        throw RequestFailure{ProcessingFailure, "No printer has this title, and there is no default one"};
    state_.baseUid = films::readBaseUid(session->connection());
    state_.printer = *found;
    hasPrinter_ = true;
}

std::string PrintService::nameOf(const Request& request) {
    std::string uid = request.command.sopInstanceUid();
    if (state_.knows(uid))
        throw RequestFailure{DuplicateInstance, "There is an instance with this UID already"};
    return uid.empty() ? films::newUid(state_.baseUid) : uid;
}

PrintService::Answer PrintService::getPrinter(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    if (request.command.sopInstanceUid() != UID_PrinterSOPInstance)
        throw RequestFailure{NoSuchInstance, "This is not the instance of the printer"};
    requirePrinter(association);
    const bool isReachable = probe_.isReachable(state_.printer, association.stop());
    auto dataSet = std::make_unique<DcmDataset>();
    dataSet->putAndInsertString(DCM_PrinterStatus, isReachable ? "NORMAL" : "WARNING");
    dataSet->putAndInsertString(DCM_PrinterStatusInfo, isReachable ? "NORMAL" : "UNKNOWN");
    dataSet->putAndInsertString(DCM_PrinterName, state_.printer.name.c_str());
    dataSet->putAndInsertString(DCM_Manufacturer, "Tessaly Configuration");
    dataSet->putAndInsertString(DCM_ManufacturerModelName, "tessalyd");
    dataSet->putAndInsertString(DCM_DeviceSerialNumber, "1");
    dataSet->putAndInsertString(DCM_SoftwareVersions, TESSALY_VERSION);
    putTime(*dataSet, startTime(), DCM_DateOfLastCalibration, DCM_TimeOfLastCalibration);
    const bool isMissing = keepWanted(request.command, *dataSet);
    return {.status = isMissing ? AttributeListError : Success, .dataSet = std::move(dataSet)};
}

PrintService::Answer PrintService::getJob(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    const auto job = jobs_.find(request.command.sopInstanceUid(), association);
    if (!job)
        throw RequestFailure{NoSuchInstance, "There is no such print job"};
    auto dataSet = std::make_unique<DcmDataset>();
    dataSet->putAndInsertString(DCM_ExecutionStatus, PrintJobs::statusOf(job->state));
    dataSet->putAndInsertString(DCM_ExecutionStatusInfo, PrintJobs::infoOf(job->state));
    putTime(*dataSet, std::chrono::system_clock::to_time_t(job->created), DCM_CreationDate, DCM_CreationTime);
    dataSet->putAndInsertString(DCM_PrinterName, job->target.c_str());
    const bool isMissing = keepWanted(request.command, *dataSet);
    return {.status = isMissing ? AttributeListError : Success, .dataSet = std::move(dataSet)};
}

std::string PrintService::summary() const {
    return films_ == 0 ? std::string{} : std::to_string(films_) + " films to be printed";
}

}  // namespace tessaly::tessalyd::print
