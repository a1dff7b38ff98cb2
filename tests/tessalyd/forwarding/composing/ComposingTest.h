#pragma once

#include <QMap>
#include <vector>

#include "tests/tessalyd/forwarding/composing/Picture.h"
#include "tests/tessalyd/services/print/PrintTest.h"
#include "tests/tessalyd/services/retrieve/Retriever.h"

namespace tessaly::test {

/// What the tests of composed films share: a server that the node VIEWER may query and print on, and a
/// printer "Film".
class ComposingTest : public PrintTest {
    Q_OBJECT

  protected:
    static constexpr const char* Study = "1.2.826.0.1.1";

    void launchFor(const QString& printerPort, const QString& layout, const Columns& columns = {},
                   const QStringList& arguments = {});
    /// The same without the server, which may be made already.
    void prepareFor(const QString& printerPort, const QString& layout, const Columns& columns = {});
    void store(const std::vector<Picture>& pictures) const;
    void storeObject(DcmFileFormat& object) const;
    /// Has studies moved to the printer.
    [[nodiscard]] Retrieved move(const std::string& study = Study, const std::string& destination = "film",
                                 const std::string& calling = "VIEWER") const;

    /// What came to a printer, film by film, box by box.
    struct PrintedFilm {
        QString format;
        QMap<int, QByteArray> boxes;
        QStringList texts;
        bool isColour = false;
    };
    [[nodiscard]] static std::vector<PrintedFilm> filmsOf(const ScriptedPrinter& printer);
};

}  // namespace tessaly::test
