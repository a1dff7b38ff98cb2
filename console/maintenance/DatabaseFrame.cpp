#include "console/maintenance/DatabaseFrame.h"

#include <QApplication>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "archive/StoredPath.h"
#include "console/maintenance/RepaintProgress.h"
#include "console/session/Globals.h"
#include "console/ui/ConsoleEnd.h"
#include "console/ui/FolderPicker.h"
#include "console/ui/Guard.h"
#include "maintenance/Relocation.h"

namespace tessaly::maintenance {

using namespace Qt::StringLiterals;

namespace {

bool isFolder(const QString& path) {
    return !path.isEmpty() &&
           QFileInfo{QString::fromStdString(archive::localPath(path.toStdString()))}.isDir();
}

class WaitCursor {
  public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

}  // namespace

DatabaseFrame::DatabaseFrame(QWidget* parent) : QGroupBox(u"Database"_s, parent) {
    setObjectName(u"frmDatabase"_s);
    auto* grid = new QGridLayout(this);
    grid->addWidget(new QLabel(u"Image path"_s, this), 0, 0, 1, 3);
    txtPathIni_ = addPath(u"From"_s, u"txtPathIni"_s, u"cmdPathIni"_s);
    txtPathFin_ = addPath(u"To"_s, u"txtPathFin"_s, u"cmdPathFin"_s);
    auto* change = new QPushButton(u"Change"_s, this);
    change->setObjectName(u"cmdChangePath"_s);
    grid->addWidget(change, 1, 3, 2, 1);
    connect(change, &QPushButton::clicked, this, ui::handler([this] { cmdChangePath_Click(); }));
}

QLineEdit* DatabaseFrame::addPath(const QString& label, const QString& boxName, const QString& buttonName) {
    auto* grid = static_cast<QGridLayout*>(layout());
    const int row = grid->rowCount();
    grid->addWidget(new QLabel(label, this), row, 0);
    auto* box = new QLineEdit(this);
    box->setObjectName(boxName);
    box->setReadOnly(true);
    grid->addWidget(box, row, 1);
    auto* button = new QPushButton(u"..."_s, this);
    button->setObjectName(buttonName);
    grid->addWidget(button, row, 2);
    connect(button, &QPushButton::clicked, this, ui::handler([this, box] { browse(box); }));
    return box;
}

void DatabaseFrame::setImageRoot(const QString& root) {
    txtPathIni_->setText(root);
    txtPathFin_->setText(root);
}

void DatabaseFrame::browse(QLineEdit* box) {
    ui::guarded(window(), ui::BoxStyle::Plain, [this, box] {
        if (const auto folder = ui::browseForFolder(window(), u"Images dir"_s, box->text()))
            box->setText(*folder);
    });
}

void DatabaseFrame::cmdChangePath_Click() {
    const QString from = txtPathIni_->text();
    const QString to = txtPathFin_->text();
    if (!isFolder(from) || !isFolder(to)) {
        ui::messageBox(window(), u"Not valid paths!"_s);
        return;
    }
    if (ui::messageBox(window(),
                       u"This action will modify ALL images path with RootDir = "_s + from +
                           u" , do you want to continue?"_s,
                       ui::BoxStyle::CriticalYesNo, u"Change image path "_s) != ui::Answer::Yes)
        return;
    {
        const WaitCursor cursor;
        RepaintProgress progress;
        Relocation{from, to}.run(Globals::DbConnection(), progress);
    }
    if (!ui::isConsoleEnding())
        ui::messageBox(window(), u"Done"_s);
}

}  // namespace tessaly::maintenance
