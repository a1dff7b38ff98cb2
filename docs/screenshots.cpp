// Takes the pictures of the manual and the README: every page and dialog, on a database made for it. Usage:
// screenshots FOLDER (docs/take-screenshots calls it).

#include <QApplication>
#include <QDir>
#include <QTabWidget>
#include <QTextStream>
#include <functional>

#include "console/app/TessalyManager.h"
#include "console/app/frmLogin.h"
#include "console/maintenance/frmRepairDB.h"
#include "console/session/Globals.h"
#include "tests/console/server/ScriptedServer.h"
#include "tests/support/BoxScript.h"
#include "tests/support/ScratchDatabase.h"

using namespace Qt::StringLiterals;
using namespace tessaly;
using namespace tessaly::test;

namespace {

void fill(const ScratchDatabase& database) {
    database.run(u"UPDATE Port SET Root='/srv/images', CheckCalledAE=1, CheckCallingAE=1"_s);
    database.run(u"UPDATE SiteData SET Organization='St. Example Hospital', BaseUID='2.25.32917683945'"_s);
    database.run(u"INSERT INTO Port VALUES ('11113', 'TESSALY_RESEARCH', 25, '/srv/research', 0, 0, 0)"_s);
    for (const QVariantList& node : QList<QVariantList>{
             {u"CT1"_s, u"CT_ROOM1"_s, u"TESSALY"_s, u"ct1.radiology.example"_s, u"104"_s, 0, 1, 0},
             {u"MR1"_s, u"MR_ROOM4"_s, u"TESSALY"_s, u"mr1.radiology.example"_s, u"104"_s, 0, 1, 0},
             {u"Reading room"_s, u"VIEWER_A"_s, u"TESSALY"_s, u"10.0.4.17"_s, u"11112"_s, 1, 1, 1},
             {u"Research"_s, u"RESEARCH"_s, u"TESSALY_RESEARCH"_s, u"10.0.9.2"_s, u"4242"_s, 1, 0, 0}})
        database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query, Print) "
            "VALUES (?,?,?,?,?,?,?,?)"_s,
            node);
    database.run(
        u"INSERT INTO PortRemoteNodes VALUES ('11112', 'CT1'), ('11112', 'MR1'),"
        " ('11112', 'Reading room'), ('11113', 'Research')"_s);
    database.run(
        u"INSERT INTO FtpNodes VALUES ('Teaching files', 'ftp.example', 'archive', 'archive',"
        " '/incoming', 'Analyze')"_s);
    database.run(
        u"INSERT INTO Printers (Name, AETitle, Host, Port, Priority, Medium, Destination, Copies, Layout,"
        " FilmSize, Orientation, Resolution, MinDensity, MaxDensity, Border, Polarity, Magnification,"
        " Smoothing, Trim, Force8bit, DefaultPrinter) VALUES ('Dry imager', 'IMAGER', '10.0.4.90', '104',"
        " 'MED', 'BLUE FILM', 'MAGAZINE', 1, 'STANDARD\\2,3', '14INX17IN', 'PORTRAIT', 'STANDARD', 20, 320,"
        " 'BLACK', 'NORMAL', 'CUBIC', 'MEDIUM', 'NO', 12, 1)"_s);
    database.run(
        u"UPDATE Users SET Signature='System administration', DcmUpdate=1, DcmDelete=1, Move=1, Send=1,"
        " Refert=1, Import=1, Backup=1, ROI=1, ModTags=1"_s);
    database.run(
        u"INSERT INTO Users (UserName, UserPwd, Signature, DcmUpdate, Move, Send, Refert) VALUES"
        " ('reader', 'x', 'Dr. A. Reader', 1, 1, 1, 1)"_s);
}

class Album {
  public:
    explicit Album(QString folder) : folder_(std::move(folder)) {}

    void keep(QWidget& window, const QString& name) {
        QApplication::processEvents();
        const QString path = QDir{folder_}.filePath(name + u".png"_s);
        if (!window.grab().save(path)) {
            QTextStream{stderr} << "cannot write " << path << Qt::endl;
            failed_ = true;
        }
    }
    /// The dialog that `open` brings up.
    void keepDialog(const QString& dialog, const QString& name, const std::function<void()>& open) {
        BoxScript script;
        script.drive(dialog, [&](Form form) {
            keep(form.window(), name);
            form.window().close();
        });
        open();
        failed_ = failed_ || !script.isDone();
    }
    [[nodiscard]] bool failed() const { return failed_; }

  private:
    QString folder_;
    bool failed_ = false;
};

struct Picture {
    int page;
    QString button;
    QString dialog;
    QString name;
};

}  // namespace

int main(int argc, char* argv[]) {
    const QApplication application{argc, argv};
    if (argc != 2) {
        QTextStream{stderr} << "usage: screenshots FOLDER" << Qt::endl;
        return 1;
    }
    QApplication::setApplicationName(u"TessalyCfg"_s);
    QApplication::setApplicationVersion(QStringLiteral(TESSALY_VERSION));
    const ScratchDatabase database;
    fill(database);
    database.openConsoleConnection();
    Album album{QString::fromLocal8Bit(argv[1])};

    album.keepDialog(u"frmLogin"_s, u"login"_s, [] {
        frmLogin login;
        Form{login}.type(u"txtUserName"_s, u"admin"_s);
        Form{login}.type(u"txtPassword"_s, u"password"_s);
        login.exec();
    });

    ServerScript server;
    TessalyManager window{server.factory()};
    window.load();
    window.show();
    for (const auto& [calling, total] : {std::pair{u"CT_ROOM1"_s, 1}, {u"CT_ROOM1"_s, 2}, {u"MR_ROOM4"_s, 3}})
        emit server.current->OnConnection(u"11112"_s, calling, u"TESSALY"_s, static_cast<short>(total));
    window.RefreshServerState();  // as its timer does, so that the pictures do not depend on it
    const Form form{window};
    auto& tabs = form.find<QTabWidget>(u"tabNodes"_s);
    const QStringList pages{u"nodes"_s, u"local-server"_s, u"ftp-nodes"_s, u"administration"_s,
                            u"users"_s, u"site"_s,         u"printers"_s};
    for (int i = 0; i < tabs.count(); ++i) {
        tabs.setCurrentIndex(i);
        album.keep(window, u"page-"_s + pages.at(i));
    }
    for (const Picture& picture : QList<Picture>{
             {0, u"cmdModifyNode"_s, u"DicomNode"_s, u"dialog-node"_s},
             {1, u"cmdEditPort"_s, u"DicomPort"_s, u"dialog-port"_s},
             {1, u"cmdAddPortNode"_s, u"PortNodesSelection"_s, u"dialog-port-nodes"_s},
             {2, u"cmdFTPModify"_s, u"FTPNode"_s, u"dialog-ftp-node"_s},
             {4, u"cmdModifyUser"_s, u"frmUser"_s, u"dialog-user"_s},
             {6, u"cmdModifyPrinter"_s, u"frmDcmPrinter"_s, u"dialog-printer"_s},
         }) {
        tabs.setCurrentIndex(picture.page);
        album.keepDialog(picture.dialog, picture.name, [&] { form.click(picture.button); });
    }
    maintenance::frmRepairDB repair{window, &window};
    repair.show();
    album.keep(repair, u"dialog-repair"_s);
    repair.hide();
    album.keepDialog(u"frmAbout"_s, u"dialog-about"_s, [&] { form.trigger(u"mnuHelpAbout"_s); });
    return album.failed() ? 1 : 0;
}
