// The compaction's file dialog on a screen.

#include <QFileDialog>
#include <QTest>
#include <QUrl>

#include "console/maintenance/frmRepairDB.h"
#include "tests/support/BoxScript.h"
#include "tests/support/Eventually.h"
#include "tests/support/NoServer.h"
#include "tests/support/RealInput.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

class CompactScreenTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theSideBarShowsTheDatabasesFolderOnADesktopToo() {
        const ScratchDatabase database;
        database.release();
        database.openConsoleConnection();
        NoServer server;
        maintenance::frmRepairDB form{server, nullptr};
        form.show();
        QVERIFY(real::hasKeyboard(form));
        BoxScript script;
        script
            .expect(
                yesNo(u"The Tessaly must now be stopped to compact the Database\rDo you want to proceed?"_s,
                      QMessageBox::Yes))
            .drive(u"QFileDialog"_s, [&](Form dialog) {
                auto& files = static_cast<QFileDialog&>(dialog.window());
                QVERIFY(real::hasKeyboard(files));
                // Offscreen there is no other dialog than the toolkit's; on a desktop there may be.
                QVERIFY(files.testOption(QFileDialog::DontUseNativeDialog));
                QVERIFY(dialog.find(u"sidebar"_s).isVisible());
                QVERIFY(files.sidebarUrls().contains(QUrl::fromLocalFile(database.folder())));
                QCOMPARE(dialog.text(u"fileNameEdit"_s), u"DicomDB.mdb"_s);
                real::press(u"Escape"_s);
                EVENTUALLY(!files.isVisible());
            });
        form.CompactDB();
        QVERIFY(script.isDone());
    }
};

QTEST_MAIN(CompactScreenTest)
#include "tst_compactscreen.moc"
