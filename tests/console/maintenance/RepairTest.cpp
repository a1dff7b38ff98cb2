#include "tests/console/maintenance/RepairTest.h"

#include <QAbstractButton>
#include <QApplication>

#include "console/maintenance/frmRepairDB.h"
#include "tests/support/Console.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

Form RepairTest::repairForm() const {
    return Form{window().find<maintenance::frmRepairDB>(u"frmRepairDB"_s)};
}

void RepairTest::afterFirstRow(std::function<void()> body) {
    QTimer::singleShot(0, qApp, std::move(body));
}

void RepairTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    archive_ = std::make_unique<Archive>(*database_);
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>();
    window_->show();
}

void RepairTest::cleanup() {
    window_.reset();
    archive_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

QMessageBox* standingBox() {
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (auto* box = qobject_cast<QMessageBox*>(window); box != nullptr && box->isVisible())
            return box;
    }
    return nullptr;
}

RepairUser::RepairUser(std::function<QMessageBox::StandardButton(const QString& text)> onBox,
                       std::function<void()> onTurn) {
    connect(this, &QTimer::timeout, this, [onBox = std::move(onBox), onTurn = std::move(onTurn)] {
        if (auto* box = standingBox())
            box->button(onBox(box->text()))->click();
        else
            onTurn();
    });
    start(0);
}

}  // namespace tessaly::test
