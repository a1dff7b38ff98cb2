#pragma once

#include <dcmtk/dcmdata/dcdeftag.h>

#include <QDir>

#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/association/ScriptedServer.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

namespace tessaly::test {

/// What the tests of moves share: destinations.
class MoveTest : public RetrieveTest {
    Q_OBJECT

  protected:
    static const inline std::vector<AskedKey> TheStudy{{DCM_StudyInstanceUID, Study}};

    /// Another product that takes objects, into a folder of its own, ready when this returns.
    struct Receiver {
        QString port = unusedPort();
        QTemporaryDir folder;
        QProcess process;

        explicit Receiver(const QStringList& options = {});
        ~Receiver();
    };
    /// Takes an object in a scripted destination, as it should be taken.
    static void take(const tessalyd::Request& request, tessalyd::Association& association,
                     DIC_US status = STATUS_Success);

    static Node destination(const QString& port) { return {.aeTitle = QStringLiteral("DEST"), .port = port}; }
    /// Asks for the study to be moved there; returns the message ID.
    DIC_US askForMove(Retriever& viewer) const {
        return viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, "DEST");
    }
};

}  // namespace tessaly::test
