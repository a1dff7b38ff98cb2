// The part of PrintService that answers for film sessions and film boxes.

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>

#include "tessalyd/association/Association.h"
#include "tessalyd/forwarding/films/NewUid.h"
#include "tessalyd/forwarding/films/PrintClasses.h"
#include "tessalyd/services/print/PrintService.h"
#include "tessalyd/services/print/PrintStatus.h"

namespace tessaly::tessalyd::print {

namespace {

using films::Settings;
using films::SettingsOf;

bool isColour(const Request& request) {
    return request.context->sopClass == UID_BasicColorPrintManagementMetaSOPClass;
}

template <class Known>
auto& instanceIn(Known& known, const Request& request, const char* comment) {
    const auto found = known.find(request.command.sopInstanceUid());
    if (found == known.end())
        throw RequestFailure{NoSuchInstance, comment};
    return found->second;
}

/// The warning with which a request is answered.
std::uint16_t statusOf(const films::SentSettings& sent, bool hasOtherUnusable = false) {
    if (sent.hasUnusable || hasOtherUnusable)
        return AttributeOutOfRange;
    return sent.hasUnusableDensity ? DensityOutOfRange : Success;
}

void merge(const Settings& sent, Settings& held) {
    for (const auto& [tag, value] : sent)
        held.insert_or_assign(tag, value);
}

void refer(DcmItem& target, const DcmTagKey& sequence, const char* sopClass,
           const std::vector<std::string>& instances) {
    for (std::size_t i = 0; i < instances.size(); ++i) {
        DcmItem* item = nullptr;
        if (target.findOrCreateSequenceItem(sequence, item, static_cast<long>(i)).bad())
            return;
        item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
        item->putAndInsertString(DCM_ReferencedSOPInstanceUID, instances[i].c_str());
    }
}

std::vector<std::string> newUids(std::size_t count, const std::string& baseUid) {
    std::vector<std::string> uids(count);
    std::generate(uids.begin(), uids.end(), [&baseUid] { return films::newUid(baseUid); });
    return uids;
}

std::unique_ptr<DcmDataset> dataSetOf(const Settings& settings) {
    auto dataSet = std::make_unique<DcmDataset>();
    films::put(settings, *dataSet);
    return dataSet;
}

}  // namespace

PrintService::Answer PrintService::createSession(const Request& request, Association& association) {
    const films::AttributeSet attributes = receive(request, association);
    requirePrinter(association);
    if (state_.sessions.size() >= PrintState::MostSessions)
        throw RequestFailure{ResourceLimitation, "There are too many film sessions"};
    const std::string uid = nameOf(request);
    const films::SentSettings sent = sentSettings(SettingsOf::Session, attributes, state_.printer);
    state_.sessions.emplace(uid,
                            PrintState::Session{.isColour = isColour(request), .settings = sent.settings});
    return {.status = statusOf(sent),
            .instance = uid,
            .dataSet = dataSetOf(settingsForResponse(SettingsOf::Session, sent.settings, state_.printer))};
}

PrintService::Answer PrintService::setSession(const Request& request, Association& association) {
    const films::AttributeSet attributes = receive(request, association);
    auto& session = instanceIn(state_.sessions, request, "There is no such film session");
    const films::SentSettings sent = sentSettings(SettingsOf::Session, attributes, state_.printer);
    merge(sent.settings, session.settings);
    return {.status = statusOf(sent),
            .dataSet = dataSetOf(settingsForResponse(SettingsOf::Session, session.settings, state_.printer))};
}

PrintService::Answer PrintService::deleteSession(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    const std::vector<std::string> films =
        instanceIn(state_.sessions, request, "There is no such film session").films;
    for (const std::string& film : films)
        removeFilm(film);
    state_.sessions.erase(request.command.sopInstanceUid());
    return {};
}

PrintService::Answer PrintService::createFilm(const Request& request, Association& association) {
    const films::AttributeSet attributes = receive(request, association);
    const auto format = attributes.text(DCM_ImageDisplayFormat);
    if (!format || format->empty())
        throw RequestFailure{MissingAttribute, "Image Display Format is missing", {DCM_ImageDisplayFormat}};
    const auto parsed = films::DisplayFormat::parse(*format);
    if (!parsed)
        throw RequestFailure{
            InvalidAttributeValue, "This Image Display Format is not supported", {DCM_ImageDisplayFormat}};
    const std::string sessionUid =
        attributes.textInItem(DCM_ReferencedFilmSessionSequence, DCM_ReferencedSOPInstanceUID);
    if (sessionUid.empty())
        throw RequestFailure{MissingAttribute,
                             "Referenced Film Session Sequence is missing",
                             {DCM_ReferencedFilmSessionSequence}};
    const auto session = state_.sessions.find(sessionUid);
    if (session == state_.sessions.end() || session->second.isColour != isColour(request))
        throw RequestFailure{InvalidAttributeValue,
                             "There is no film session that the film box refers to",
                             {DCM_ReferencedFilmSessionSequence}};
    if (state_.films.size() >= PrintState::MostFilms)
        throw RequestFailure{ResourceLimitation, "There are too many film boxes"};
    const std::string uid = nameOf(request);
    const films::SentSettings sent = sentSettings(SettingsOf::Film, attributes, state_.printer);
    bool isLutUnusable = false;
    PrintState::FilmBox box{.session = sessionUid,
                            .isColour = session->second.isColour,
                            .film = {.displayFormat = *format,
                                     .settings = sent.settings,
                                     .lut = lutFor(attributes, isLutUnusable)},
                            .format = *parsed,
                            .imageBoxes = newUids(parsed->boxes(), state_.baseUid)};
    const auto contexts = association.contexts();
    const bool hasAnnotation = std::any_of(contexts.begin(), contexts.end(), [](const AcceptedContext& one) {
        return one.sopClass == UID_BasicAnnotationBoxSOPClass;
    });
    if (hasAnnotation && sent.settings.contains(DCM_AnnotationDisplayFormatID))
        box.annotationBoxes = newUids(PrintState::AnnotationBoxes, state_.baseUid);
    for (unsigned i = 0; i < box.imageBoxes.size(); ++i)
        state_.imageBoxes.emplace(box.imageBoxes[i], PrintState::Box{.film = uid, .position = i + 1});
    for (unsigned i = 0; i < box.annotationBoxes.size(); ++i)
        state_.annotationBoxes.emplace(box.annotationBoxes[i],
                                       PrintState::Box{.film = uid, .position = i + 1});
    session->second.films.push_back(uid);
    const auto& made = state_.films.emplace(uid, std::move(box)).first->second;
    return {.status = statusOf(sent, isLutUnusable), .instance = uid, .dataSet = filmAnswer(uid, made)};
}

std::unique_ptr<DcmDataset> PrintService::filmAnswer(const std::string& /*uid*/,
                                                     const PrintState::FilmBox& box) const {
    auto dataSet = dataSetOf(settingsForResponse(SettingsOf::Film, box.film.settings, state_.printer));
    dataSet->putAndInsertString(DCM_ImageDisplayFormat, box.film.displayFormat.c_str());
    refer(*dataSet, DCM_ReferencedFilmSessionSequence, UID_BasicFilmSessionSOPClass, {box.session});
    refer(*dataSet, DCM_ReferencedImageBoxSequence,
          box.isColour ? UID_BasicColorImageBoxSOPClass : UID_BasicGrayscaleImageBoxSOPClass, box.imageBoxes);
    refer(*dataSet, DCM_ReferencedBasicAnnotationBoxSequence, UID_BasicAnnotationBoxSOPClass,
          box.annotationBoxes);
    if (!box.film.lut.empty())
        refer(*dataSet, DCM_ReferencedPresentationLUTSequence, UID_PresentationLUTSOPClass, {box.film.lut});
    return dataSet;
}

/// The LUT that is referred to; empty if none is, or one that there is not.
std::string PrintService::lutFor(const films::AttributeSet& sent, bool& isUnusable) const {
    std::string uid = sent.textInItem(DCM_ReferencedPresentationLUTSequence, DCM_ReferencedSOPInstanceUID);
    isUnusable = !uid.empty() && !state_.luts.contains(uid);
    return isUnusable ? std::string{} : uid;
}

PrintService::Answer PrintService::setFilm(const Request& request, Association& association) {
    const films::AttributeSet attributes = receive(request, association);
    auto& box = instanceIn(state_.films, request, "There is no such film box");
    films::SentSettings sent = sentSettings(SettingsOf::Film, attributes, state_.printer);
    // What the film is divided into stays.
    for (const DcmTagKey& tag : {DCM_AnnotationDisplayFormatID, DCM_FilmOrientation, DCM_FilmSizeID})
        sent.settings.erase(tag);
    bool isLutUnusable = false;
    const std::string lut = lutFor(attributes, isLutUnusable);
    merge(sent.settings, box.film.settings);
    if (!lut.empty())
        box.film.lut = lut;
    return {.status = statusOf(sent, isLutUnusable),
            .dataSet = filmAnswer(request.command.sopInstanceUid(), box)};
}

PrintService::Answer PrintService::deleteFilm(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    static_cast<void>(instanceIn(state_.films, request, "There is no such film box"));
    removeFilm(request.command.sopInstanceUid());
    return {};
}

void PrintService::removeFilm(const std::string& uid) {
    const auto found = state_.films.find(uid);
    if (found == state_.films.end())
        return;
    const PrintState::FilmBox& box = found->second;
    for (const auto& [position, image] : box.film.images)
        spool_.remove(image.file);
    for (const std::string& image : box.imageBoxes)
        state_.imageBoxes.erase(image);
    for (const std::string& annotation : box.annotationBoxes)
        state_.annotationBoxes.erase(annotation);
    if (const auto session = state_.sessions.find(box.session); session != state_.sessions.end())
        std::erase(session->second.films, uid);
    state_.films.erase(found);
}

PrintService::Answer PrintService::printSession(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    const auto& session = instanceIn(state_.sessions, request, "There is no such film session");
    if (request.command.number(DCM_ActionTypeID) != films::PrintAction)
        throw RequestFailure{NoSuchAction, "A film session has no such action"};
    if (session.films.empty())
        throw RequestFailure{SessionHasNoFilm, "The film session has no film box"};
    return print(session.films, session, true, association);
}

PrintService::Answer PrintService::printFilm(const Request& request, Association& association) {
    static_cast<void>(receive(request, association));
    const auto& box = instanceIn(state_.films, request, "There is no such film box");
    if (request.command.number(DCM_ActionTypeID) != films::PrintAction)
        throw RequestFailure{NoSuchAction, "A film box has no such action"};
    return print({request.command.sopInstanceUid()}, state_.sessions.at(box.session), false, association);
}

films::PrintOrder PrintService::orderFor(const std::vector<std::string>& films,
                                         const PrintState::Session& session,
                                         const Association& association) const {
    films::PrintOrder order{.callingAeTitle = association.port().aeTitle,
                            .originator = association.names().callingAeTitle,
                            .baseUid = state_.baseUid,
                            .isColour = session.isColour,
                            .session = session.settings};
    const auto addLut = [&](const std::string& uid) {
        if (const auto lut = state_.luts.find(uid); lut != state_.luts.end())
            order.luts.insert(*lut);
    };
    for (const std::string& uid : films) {
        const films::Film& film = state_.films.at(uid).film;
        if (film.images.empty())
            continue;
        order.films.push_back(film);
        addLut(film.lut);
        for (const auto& [position, image] : film.images)
            addLut(image.lut);
    }
    return order;
}

PrintService::Answer PrintService::print(const std::vector<std::string>& films,
                                         const PrintState::Session& session, bool isSession,
                                         Association& association) {
    const films::PrintOrder order = orderFor(films, session, association);
    if (order.films.empty())
        return {.status = static_cast<std::uint16_t>(isSession ? SessionIsEmpty : FilmIsEmpty)};
    std::string job;
    try {
        job = jobs_.add(order, state_.printer, spool_, association.stop());
    } catch (const std::exception& fault) {
        association.log(PeerLog::Event::Failure, std::string{"films are not taken: "} + fault.what());
        throw RequestFailure{static_cast<std::uint16_t>(isSession ? SessionQueueFull : FilmQueueFull),
                             "The film cannot be put into the queue"};
    }
    films_ += order.films.size();
    jobs_.watch(job, state_.printer.name);
    const auto contexts = association.contexts();
    if (std::none_of(contexts.begin(), contexts.end(),
                     [](const AcceptedContext& one) { return one.sopClass == UID_PrintJobSOPClass; }))
        return {};
    auto dataSet = std::make_unique<DcmDataset>();
    refer(*dataSet, films::ReferencedPrintJobSequence, UID_PrintJobSOPClass, {job});
    return {.dataSet = std::move(dataSet)};
}

}  // namespace tessaly::tessalyd::print
