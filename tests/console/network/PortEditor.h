#pragma once

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QTest>

#include "console/app/TessalyManager.h"
#include "tests/support/EditorTest.h"

// The page of the ports and its dialog DicomPort, as tests drive them.

namespace tessaly::test {

/// Answers the folder dialog that the browse button opens; an empty folder is Cancel.
inline void expectFolder(BoxScript& script, const QString& folder) {
    script.drive(QStringLiteral("QFileDialog"), [folder](Form form) {
        auto& dialog = static_cast<QFileDialog&>(form.window());
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Images dir"));
        if (folder.isEmpty())
            return dialog.reject();
        dialog.selectFile(folder);
        form.find<QDialogButtonBox>(QStringLiteral("buttonBox")).buttons().first()->click();
    });
}

/// What every port must have; the browse button opens a folder dialog.
inline void fillPort(const Form& form, const QString& port, const QString& title) {
    form.type(QStringLiteral("txtPort"), port);
    form.type(QStringLiteral("txtAETitle"), title);
    form.click(QStringLiteral("cmdRootDir"));
}

/// Modifies the port 104, which vanished while the list showed it: that is told, and Confirm inserts it.
inline void modifyVanishedPort(const Form& window, const QString& root, const QString& port,
                               const QString& title) {
    BoxScript script;
    script.expect(critical(QStringLiteral("Port 104 not found")));
    script.drive(QStringLiteral("DicomPort"), [&](Form form) {
        for (const auto& name : {QStringLiteral("txtPort"), QStringLiteral("txtAETitle"),
                                 QStringLiteral("txtRoot"), QStringLiteral("txtMaxConnections")})
            QCOMPARE(form.text(name), QString{});
        fillPort(form, port, title);
        form.type(QStringLiteral("txtMaxConnections"), QStringLiteral("5"));
        form.click(QStringLiteral("cmdOk"));
    });
    expectFolder(script, root);
    window.click(QStringLiteral("cmdEditPort"));
    QVERIFY(script.isDone());
}

inline const QString Ports = QStringLiteral(
    "SELECT Port, AETitle, MaxConnections, Root, CheckCallingAE, CheckCalledAE, "
    "SaveCompressed FROM Port ORDER BY Port");
inline const QString PortRemoteNodes =
    QStringLiteral("SELECT Port, Name FROM PortRemoteNodes ORDER BY Port, Name");
inline const QString Nodes =
    QStringLiteral("SELECT Name, AETitle, LocalAETitle, Port FROM DicomNodes ORDER BY Name");

/// With two ports, of which the first checks its callers, three nodes, and who is accepted where.
class PortEditorTest : public EditorTest {
  protected:
    PortEditorTest()
        : EditorTest(Page::LocalServer, {.list = QStringLiteral("lstPorts"),
                                         .dialog = QStringLiteral("DicomPort"),
                                         .add = QStringLiteral("cmdAddPort"),
                                         .modify = QStringLiteral("cmdEditPort"),
                                         .remove = QStringLiteral("cmdDelPort"),
                                         .table = QStringLiteral("Port"),
                                         .keyColumn = QStringLiteral("Port"),
                                         .keyBox = QStringLiteral("txtPort"),
                                         .load = &TessalyManager::LoadPorts}) {}
    void seed() const override {
        database().run(QStringLiteral("DELETE FROM Port"));
        database().run(QStringLiteral("INSERT INTO Port VALUES ('104', 'STORESCP', 10, '/one', 1, 1, 1)"));
        database().run(QStringLiteral("INSERT INTO Port VALUES ('11112', 'OTHER', 20, '/two', 0, 0, 0)"));
        // The first is this server itself, the second is not, the third has its port and another title.
        for (const QVariantList& node : {QVariantList{QStringLiteral("self"), QStringLiteral("STORESCP"),
                                                      QStringLiteral("OTHER"), QStringLiteral("104")},
                                         QVariantList{QStringLiteral("remote"), QStringLiteral("REMOTE"),
                                                      QStringLiteral("STORESCP"), QStringLiteral("104")},
                                         QVariantList{QStringLiteral("twin"), QStringLiteral("STORESCP"),
                                                      QStringLiteral("STORESCP"), QStringLiteral("4242")}}) {
            database().run(
                QStringLiteral("INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Port) VALUES (?,?,?,?)"),
                node);
        }
        database().run(
            QStringLiteral("INSERT INTO PortRemoteNodes VALUES ('104', 'remote'), ('104', 'self'), "
                           "('11112', 'remote')"));
    }

    /// Modifies the selected port by `change` and Confirm.
    void modifyPort(const std::function<void(Form)>& change) const {
        BoxScript script;
        script.drive(QStringLiteral("DicomPort"), [&](Form form) {
            change(form);
            form.click(QStringLiteral("cmdOk"));
            if (form.window().isVisible())
                form.click(QStringLiteral("cmdCancel"));
        });
        window().click(QStringLiteral("cmdEditPort"));
        QVERIFY(script.isDone());
    }
    void addPort(const QString& port, const QString& title, const Values& more = {}) const {
        BoxScript script;
        script.drive(QStringLiteral("DicomPort"), [&](Form form) {
            fillPort(form, port, title);
            fill(form, more);
            form.click(QStringLiteral("cmdOk"));
        });
        expectFolder(script, database().imageRoot());
        window().click(QStringLiteral("cmdAddPort"));
        QVERIFY(script.isDone());
    }
    [[nodiscard]] QString portsAndNodes() const {
        QString all;
        for (const QString& table : {Ports, Nodes, PortRemoteNodes}) {
            for (const QStringList& row : database().rows(table))
                all += row.join(u'|') + u'\n';
        }
        return all;
    }
};

}  // namespace tessaly::test
