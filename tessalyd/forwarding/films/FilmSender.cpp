#include "tessalyd/forwarding/films/FilmSender.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/TcpPort.h"
#include "tessalyd/forwarding/films/BoxFit.h"
#include "tessalyd/forwarding/films/NewUid.h"

namespace tessaly::tessalyd::films {

namespace {

using dicom::CommandField;
using Kind = jobs::Outcome::Kind;

constexpr const char* GrayscaleMeta = UID_BasicGrayscalePrintManagementMetaSOPClass;
constexpr const char* ColorMeta = UID_BasicColorPrintManagementMetaSOPClass;

dicom::PeerAddress addressOf(const PrintOrder& order, const PrinterRow& printer) {
    const auto port = base::tcpPort(printer.port);
    if (!port || printer.host.empty())
        throw PrintFault{Kind::Retry, "the printer has no host or no TCP port"};
    return {.host = printer.host,
            .port = *port,
            .callingAeTitle = order.callingAeTitle,
            .calledAeTitle = printer.aeTitle};
}

void refer(DcmItem& target, const DcmTagKey& sequence, const char* sopClass, const std::string& instance) {
    DcmItem* item = nullptr;
    if (target.findOrCreateSequenceItem(sequence, item).bad())
        return;
    item->putAndInsertString(DCM_ReferencedSOPClassUID, sopClass);
    item->putAndInsertString(DCM_ReferencedSOPInstanceUID, instance.c_str());
}

bool usesLut(const PrintOrder& order) {
    return std::any_of(order.films.begin(), order.films.end(), [](const Film& film) {
        return !film.lut.empty() || std::any_of(film.images.begin(), film.images.end(),
                                                [](const auto& image) { return !image.second.lut.empty(); });
    });
}

bool isAnnotated(const PrintOrder& order) {
    return std::any_of(order.films.begin(), order.films.end(),
                       [](const Film& film) { return !film.annotations.empty(); });
}

template <class Instance>
std::vector<Instance> referredTo(const AttributeSet& attributes, const DcmTagKey& sequence) {
    std::vector<Instance> found;
    if (const auto* const items = attributes.items(sequence))
        for (const AttributeSet& item : *items)
            found.push_back({.sopClass = item.text(DCM_ReferencedSOPClassUID).value_or(""),
                             .uid = item.text(DCM_ReferencedSOPInstanceUID).value_or("")});
    return found;
}

/// What the item says of an image, in front of its pixels.
void describe(const ImageLayout& source, const TargetLayout& target, DcmItem& item) {
    constexpr Uint16 Eight = 8;
    const bool isShort = target.bytesPerSample() == 2;
    const Uint16 stored = isShort ? 12 : Eight;
    const bool isInverse = source.isInverse && !target.isRendered && source.samples == 1;
    item.putAndInsertUint16(DCM_SamplesPerPixel, target.isColour ? 3 : 1);
    item.putAndInsertString(DCM_PhotometricInterpretation, target.isColour ? "RGB"
                                                           : isInverse     ? "MONOCHROME1"
                                                                           : "MONOCHROME2");
    if (target.isColour)
        item.putAndInsertUint16(DCM_PlanarConfiguration, 1);
    item.putAndInsertUint16(DCM_Rows, static_cast<Uint16>(target.rows));
    item.putAndInsertUint16(DCM_Columns, static_cast<Uint16>(target.columns));
    if (!source.aspectRatio.empty())
        item.putAndInsertString(DCM_PixelAspectRatio, source.aspectRatio.c_str());
    item.putAndInsertUint16(DCM_BitsAllocated, isShort ? 16 : Eight);
    item.putAndInsertUint16(DCM_BitsStored, stored);
    item.putAndInsertUint16(DCM_HighBit, static_cast<Uint16>(stored - 1));
    item.putAndInsertUint16(DCM_PixelRepresentation, 0);
}

}  // namespace

FilmSender::FilmSender(const PrintOrder& order, const PrinterRow& printer, Environment environment)
    : order_(order),
      printer_(printer),
      environment_(std::move(environment)),
      isColour_(order.isColour && !printer.forcesGrayscale),
      link_(addressOf(order, printer), classes(), environment_.answer, environment_.stop,
            [this](const PrinterLink::Event& event) { noteEvent(event); }) {
    chooseMeta();
    askStatus();
    beginSession();
}

std::vector<std::string> FilmSender::classes() const {
    std::vector<std::string> all;
    if (isColour_)
        all.emplace_back(ColorMeta);
    all.emplace_back(GrayscaleMeta);
    if (usesLut(order_))
        all.emplace_back(UID_PresentationLUTSOPClass);
    if (isAnnotated(order_))
        all.emplace_back(UID_BasicAnnotationBoxSOPClass);
    all.emplace_back(UID_PrintJobSOPClass);
    return all;
}

void FilmSender::chooseMeta() {
    if (isColour_) {
        meta_ = link_.contextOf(ColorMeta);
        if (meta_ == nullptr)
            environment_.log("it does not print colour: the films are printed in gray");
        isColour_ = meta_ != nullptr;
    }
    if (!isColour_)
        meta_ = link_.contextOf(GrayscaleMeta);
    if (meta_ == nullptr)
        throw PrintFault{Kind::GiveUp, "the printer takes no films"};
}

void FilmSender::askStatus() {
    const Reply reply = link_.exchange({.context = meta_,
                                        .field = CommandField::NGet,
                                        .sopClass = UID_PrinterSOPClass,
                                        .instance = UID_PrinterSOPInstance});
    const Verdict verdict = verdictOf(reply.status);
    const std::string info = reply.attributes.text(DCM_PrinterStatusInfo).value_or("");
    const std::string status = reply.attributes.text(DCM_PrinterStatus).value_or("");
    if (verdict != Verdict::Success && verdict != Verdict::Warning)
        environment_.log("how it is, it answers with " + hexadecimal(reply.status));
    else if (status == "FAILURE")
        throw PrintFault{Kind::Retry, "the printer says FAILURE: " + info};
    else if (status == "WARNING")
        environment_.log("it says WARNING: " + info);
}

void FilmSender::beginSession() {
    const Settings settings = settingsThatHold(SettingsOf::Session, order_.session, printer_);
    const std::string uid = newUid(order_.baseUid);
    const Reply reply = withRetry("the film session", [&](bool isBare) {
        DcmDataset attributes;
        if (!isBare)
            put(settings, attributes);
        return link_.exchange({.context = meta_,
                               .field = CommandField::NCreate,
                               .sopClass = UID_BasicFilmSessionSOPClass,
                               .instance = uid},
                              isBare ? nullptr : &attributes);
    });
    session_ = reply.instance.empty() ? uid : reply.instance;
}

void FilmSender::prepare(std::size_t film) {
    requireNoFailure();
    const Film& current = order_.films.at(film);
    name_ = "film " + std::to_string(film + 1);
    createFilm(current);
    const unsigned last = current.images.empty() ? 0 : current.images.rbegin()->first;
    if (boxes_.size() < last)
        throw PrintFault{Kind::GiveUp, name_ + ": the printer has " + std::to_string(boxes_.size()) +
                                           " image boxes for it, " + std::to_string(last) + " are needed"};
    for (const auto& [position, image] : current.images)
        setImage(current, position, image);
    annotate(current);
}

DcmDataset FilmSender::filmAttributes(const Film& film, bool isBare) {
    DcmDataset attributes;
    attributes.putAndInsertString(DCM_ImageDisplayFormat, film.displayFormat.c_str());
    refer(attributes, DCM_ReferencedFilmSessionSequence, UID_BasicFilmSessionSOPClass, session_);
    // What the pixels mean is no wish that could be left out.
    const std::string lut = isColour_ ? std::string{} : lutAtPrinter(film.lut);
    if (!lut.empty())
        refer(attributes, DCM_ReferencedPresentationLUTSequence, UID_PresentationLUTSOPClass, lut);
    if (isBare)
        return attributes;
    Settings settings = settingsThatHold(SettingsOf::Film, film.settings, printer_);
    if (lut.empty()) {
        settings.erase(DCM_Illumination);
        settings.erase(DCM_ReflectedAmbientLight);
    }
    if (link_.contextOf(UID_BasicAnnotationBoxSOPClass) == nullptr)
        settings.erase(DCM_AnnotationDisplayFormatID);
    put(settings, attributes);
    return attributes;
}

void FilmSender::createFilm(const Film& film) {
    const std::string uid = newUid(order_.baseUid);
    const auto create = [&](DcmDataset& attributes) {
        return link_.exchange({.context = meta_,
                               .field = CommandField::NCreate,
                               .sopClass = UID_BasicFilmBoxSOPClass,
                               .instance = uid},
                              &attributes);
    };
    const Reply reply = withRetry(name_, [&](bool isBare) {
        DcmDataset attributes = filmAttributes(film, isBare);
        Reply answer = create(attributes);
        if (verdictOf(answer.status) != Verdict::Unacceptable ||
            !attributes.tagExists(DCM_AnnotationDisplayFormatID))
            return answer;
        // Which formats there are is the printer's own: this is the attribute that is most likely refused.
        environment_.log(name_ + " was answered with " + hexadecimal(answer.status) +
                         ": once more without boxes for annotations");
        attributes.findAndDeleteElement(DCM_AnnotationDisplayFormatID);
        return create(attributes);
    });
    film_ = reply.instance.empty() ? uid : reply.instance;
    boxes_ = referredTo<Instance>(reply.attributes, DCM_ReferencedImageBoxSequence);
    annotationBoxes_ = referredTo<Instance>(reply.attributes, DCM_ReferencedBasicAnnotationBoxSequence);
}

const std::string& FilmSender::lutOf(const Film& film, const FilmImage& image) const {
    return image.lut.empty() ? film.lut : image.lut;
}

TargetLayout FilmSender::targetOf(const Film& film, unsigned position, const FilmImage& image) const {
    const PixelSize size = sizeInBox(image.layout, position, DisplayFormat::parse(film.displayFormat).value(),
                                     settingsThatHold(SettingsOf::Film, film.settings, printer_), printer_);
    return {.rows = size.rows, .columns = size.columns, .isColour = isColour_, .bits = printer_.bits};
}

void FilmSender::setImage(const Film& film, unsigned position, const FilmImage& image) {
    const std::string what = name_ + ", image " + std::to_string(position);
    static_cast<void>(
        withRetry(what, [&](bool isBare) { return trySetImage(film, position, image, isBare); }));
}

FilmSender::Reply FilmSender::trySetImage(const Film& film, unsigned position, const FilmImage& image,
                                          bool isBare) {
    TargetLayout target = targetOf(film, position, image);
    Settings settings = settingsThatHold(SettingsOf::Image, image.settings, printer_);
    DcmDataset behind;
    LookupTable table;
    if (const auto lut = order_.luts.find(lutOf(film, image)); lut != order_.luts.end() && !isColour_) {
        const std::string uid = lutAtPrinter(lut->first);
        if (uid.empty() && !lut->second.table.values.empty()) {
            table = lut->second.table;
            target.isRendered = true;
            target.isReversed = settings[DCM_Polarity] == "REVERSE";
            target.lookUp = &table;
            settings[DCM_Polarity] = "NORMAL";
        } else if (!uid.empty() && !image.lut.empty()) {
            refer(behind, DCM_ReferencedPresentationLUTSequence, UID_PresentationLUTSOPClass, uid);
        }
    }
    DcmDataset before;
    before.putAndInsertUint16(DCM_ImageBoxPosition, static_cast<Uint16>(position));
    if (!isBare)
        put(settings, before);
    else if (target.isReversed || settings[DCM_Polarity] == "REVERSE")
        before.putAndInsertString(DCM_Polarity, settings[DCM_Polarity].c_str());
    DcmDataset item;
    describe(image.layout, target, item);
    const base::FileDescriptor file{
        ::open((environment_.folder / image.file).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    if (!file.isOpen() && errno == ENOENT)
        throw PrintFault{Kind::GiveUp, name_ + ": the spool does not have its images any more"};
    if (!file.isOpen())
        throw std::system_error{errno, std::generic_category(), "a film in the spool cannot be opened"};
    const Instance& box = boxes_.at(position - 1);
    return link_.exchangeImage(
        {.context = meta_,
         .field = CommandField::NSet,
         .sopClass = isColour_ ? UID_BasicColorImageBoxSOPClass : UID_BasicGrayscaleImageBoxSOPClass,
         .instance = box.uid},
        {.before = before,
         .sequence = isColour_ ? DCM_BasicColorImageSequence : DCM_BasicGrayscaleImageSequence,
         .item = item,
         .pixelBytes = target.bytes(),
         .behind = behind},
        [&](const std::function<void(std::span<const char>)>& take) {
            convertPixels(file.get(), image.layout, target, take);
        });
}

void FilmSender::annotate(const Film& film) {
    if (film.annotations.empty())
        return;
    const auto* const context = link_.contextOf(UID_BasicAnnotationBoxSOPClass);
    std::size_t dropped = 0;
    for (const auto& [position, annotation] : film.annotations) {
        if (context == nullptr || position > annotationBoxes_.size()) {
            ++dropped;
            continue;
        }
        DcmDataset attributes;
        if (!annotation.characterSet.empty())
            attributes.putAndInsertString(DCM_SpecificCharacterSet, annotation.characterSet.c_str());
        attributes.putAndInsertUint16(DCM_AnnotationPosition, static_cast<Uint16>(position));
        attributes.putAndInsertString(DCM_TextString, annotation.text.c_str());
        const Reply reply = link_.exchange({.context = context,
                                            .field = CommandField::NSet,
                                            .sopClass = UID_BasicAnnotationBoxSOPClass,
                                            .instance = annotationBoxes_[position - 1].uid},
                                           &attributes);
        require(reply, name_ + ", annotation " + std::to_string(position));
    }
    if (dropped > 0)
        environment_.log(name_ + ": " + std::to_string(dropped) +
                         " annotations are left out, it has no boxes for them");
}

std::string FilmSender::lutAtPrinter(const std::string& key) {
    const auto found = order_.luts.find(key);
    if (found == order_.luts.end() || link_.contextOf(UID_PresentationLUTSOPClass) == nullptr)
        return {};
    const auto [entry, isNew] = luts_.try_emplace(key);
    if (isNew)
        entry->second = createLut(found->second);
    return entry->second;
}

std::string FilmSender::createLut(const PresentationLut& lut) {
    DcmDataset attributes;
    if (lut.table.values.empty()) {
        attributes.putAndInsertString(DCM_PresentationLUTShape, lut.shape.c_str());
    } else {
        const LookupTable table = lut.table.forBits(pixelBits());
        const auto count = static_cast<Uint16>(table.values.size());  // 65,536 is written as 0
        const std::array<Uint16, 3> descriptor{count, 0, static_cast<Uint16>(table.bits)};
        DcmItem* item = nullptr;
        if (attributes.findOrCreateSequenceItem(DCM_PresentationLUTSequence, item).bad())
            return {};
        item->putAndInsertUint16Array(DcmTag{DCM_LUTDescriptor, EVR_US}, descriptor.data(),
                                      descriptor.size());
        if (!lut.explanation.empty())
            item->putAndInsertString(DCM_LUTExplanation, lut.explanation.c_str());
        item->putAndInsertUint16Array(DcmTag{DCM_LUTData, EVR_US}, table.values.data(), table.values.size());
    }
    const std::string uid = newUid(order_.baseUid);
    const Reply reply = link_.exchange({.context = link_.contextOf(UID_PresentationLUTSOPClass),
                                        .field = CommandField::NCreate,
                                        .sopClass = UID_PresentationLUTSOPClass,
                                        .instance = uid},
                                       &attributes);
    const Verdict verdict = verdictOf(reply.status);
    if (verdict == Verdict::Busy)
        require(reply, "a Presentation LUT");
    if (verdict == Verdict::Unacceptable || verdict == Verdict::Failure) {
        environment_.log("a Presentation LUT was answered with " + hexadecimal(reply.status) +
                         ": it is applied to the pixels");
        return {};
    }
    return reply.instance.empty() ? uid : reply.instance;
}

}  // namespace tessaly::tessalyd::films
