#pragma once

#include "console/app/TessalyManager.h"
#include "tests/support/EditorTest.h"

// The page of the DICOM nodes and its dialog, as tests drive them.

namespace tessaly::test {

/// What every node must have; its port has a default.
inline Values node(const QString& name) {
    return {{QStringLiteral("txtName"), name},
            {QStringLiteral("txtHost"), QStringLiteral("host")},
            {QStringLiteral("txtAETitle"), QStringLiteral("TITLE")}};
}

/// With the nodes 'pacs' and 'CT', of which two ports accept the second.
class NodeEditorTest : public EditorTest {
  protected:
    NodeEditorTest()
        : EditorTest(Page::Nodes, {.list = QStringLiteral("lstNodes"),
                                   .dialog = QStringLiteral("DicomNode"),
                                   .add = QStringLiteral("cmdAddNode"),
                                   .modify = QStringLiteral("cmdModifyNode"),
                                   .remove = QStringLiteral("cmdDelNode"),
                                   .table = QStringLiteral("DicomNodes"),
                                   .keyColumn = QStringLiteral("Name"),
                                   .keyBox = QStringLiteral("txtName"),
                                   .question = QStringLiteral("Are you sure you want to delete %1?"),
                                   .load = &TessalyManager::LoadNodes}) {}
    void seed() const override {
        database().run(QStringLiteral("INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/img', 1, 0, 1)"));
        database().run(QStringLiteral(
            "INSERT INTO DicomNodes VALUES ('pacs', 'PACS_AE', 'TESSALY', 'p.example', '4242', 1, 0, 0)"));
        database().run(QStringLiteral(
            "INSERT INTO DicomNodes VALUES ('CT', 'CT_AE', 'STORESCP', 'c.example', '104', 0, 1, 1)"));
        for (const auto& port : {QStringLiteral("104"), QStringLiteral("11112")})
            database().run(QStringLiteral("INSERT INTO PortRemoteNodes VALUES (?, 'CT')"), {port});
    }
};

}  // namespace tessaly::test
