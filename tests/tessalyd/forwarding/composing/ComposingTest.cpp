#include "tests/tessalyd/forwarding/composing/ComposingTest.h"

#include <dcmtk/dcmdata/dcuid.h>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

using dicom::CommandField;

void ComposingTest::launchFor(const QString& printerPort, const QString& layout, const Columns& columns,
                              const QStringList& arguments) {
    daemon_ = std::make_unique<Daemon>();
    prepareFor(printerPort, layout, columns);
    daemon_->launch(arguments);
}

void ComposingTest::prepareFor(const QString& printerPort, const QString& layout, const Columns& columns) {
    for (const auto& [name, query, print] :
         {std::tuple{u"VIEWER"_s, -1, 1}, {u"READER"_s, -1, 0}, {u"STATION"_s, 0, 1}})
        daemon_->database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query, "
            "Print) VALUES (?, ?, ?, ?, ?, 0, ?, ?)"_s,
            {name, name, u"TESSALY"_s, u"127.0.0.1"_s, u"104"_s, query, print});
    Columns all = columns;
    all.insert(u"Layout"_s, layout);
    addPrinter(u"Film"_s, printerPort, all);
}

void ComposingTest::storeObject(DcmFileFormat& object) const {
    OFString sopClass;
    object.getDataset()->findAndGetOFString(DCM_SOPClassUID, sopClass);
    using Context = RequestorAssociation::Context;
    const std::vector<Context> contexts{
        Context{.abstractSyntax = UID_VerificationSOPClass,
                .transferSyntaxes = {UID_LittleEndianImplicitTransferSyntax}},
        Context{.abstractSyntax = sopClass, .transferSyntaxes = {UID_LittleEndianExplicitTransferSyntax}}};
    RequestorAssociation sender{daemon_->port(), "TESTER", "TESSALY", contexts};
    if (const auto answer = sender.store(object); !answer.arrived || answer.status != 0)
        throw std::runtime_error{"an object was not stored: " + answer.comment};
    sender.release();
}

void ComposingTest::store(const std::vector<Picture>& pictures) const {
    for (const Picture& picture : pictures)
        storeObject(*picture.object());
}

Retrieved ComposingTest::move(const std::string& study, const std::string& destination,
                              const std::string& calling) const {
    Retriever viewer{daemon_->port(), {Retriever::receiving("1.2.840.10008.1.2.1")}, calling};
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", {{DCM_StudyInstanceUID, study}}, destination);
    Retrieved moved = viewer.collect();
    viewer.release();
    return moved;
}

std::vector<ComposingTest::PrintedFilm> ComposingTest::filmsOf(const ScriptedPrinter& printer) {
    std::vector<PrintedFilm> films;
    for (const auto& request : printer.requests()) {
        const bool isColour = request.is(CommandField::NSet, UID_BasicColorImageBoxSOPClass);
        if (request.is(CommandField::NCreate, UID_BasicFilmBoxSOPClass))
            films.push_back({.format = QString::fromStdString(
                                 request.attributes.text(DCM_ImageDisplayFormat).value_or(""))});
        else if (isColour || request.is(CommandField::NSet, UID_BasicGrayscaleImageBoxSOPClass)) {
            films.back().boxes.insert(request.attributes.number(DCM_ImageBoxPosition).value_or(0),
                                      request.pixels);
            films.back().isColour = isColour;
        } else if (request.is(CommandField::NSet, UID_BasicAnnotationBoxSOPClass)) {
            films.back().texts << QString::fromStdString(
                request.attributes.text(DCM_TextString).value_or(""));
        }
    }
    return films;
}

}  // namespace tessaly::test
