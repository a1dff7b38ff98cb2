#pragma once

#include <QFile>
#include <QProcess>
#include <QTest>

#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/OtherArchive.h"
#include "tests/tessalyd/services/retrieve/Retriever.h"

namespace tessaly::test {

/// What the tests of retrievals share: a server that the node VIEWER may query.
class RetrieveTest : public DaemonTest {
    Q_OBJECT

  protected:
    struct Node {
        QString aeTitle;
        QString port;
        bool store = true;
        bool query = false;
        QString localAeTitle = QStringLiteral("TESSALY");
        QString host = QStringLiteral("127.0.0.1");
    };
    /// One that only asks.
    [[nodiscard]] static Node theViewer() {
        return {.aeTitle = QStringLiteral("VIEWER"),
                .port = QStringLiteral("104"),
                .store = false,
                .query = true};
    }
    /// Beside the viewer.
    void launchWith(const QList<Node>& nodes = {}, int dumpLevel = 0, const Node& viewer = theViewer());

    static constexpr const char* Study = "1.2.826.0.1.1";
    /// Stores that many objects of the study, in two series; returns their UIDs, in order.
    QStringList storeStudy(int count, int side = 32);
    /// Stores the file as another product sends it.
    void storeFile(const QString& file, const QString& option = QStringLiteral("-R"));
    /// The native path of an instance's file.
    [[nodiscard]] QString fileOf(const QString& instance) const;
    /// What is stored of each, by UID.
    [[nodiscard]] QMap<QString, QByteArray> storedDataSets() const;
    /// The same of the files in a folder, by what they say themselves.
    [[nodiscard]] static QMap<QString, QByteArray> dataSetsIn(const QString& folder);
    /// The same of what another archive has, by way of a folder that is made.
    [[nodiscard]] static QMap<QString, QByteArray> dataSetsOf(const OtherArchive& archive,
                                                              const QString& folder);
};

}  // namespace tessaly::test
