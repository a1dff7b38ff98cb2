#include "tests/console/maintenance/CompactFormTest.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <stdexcept>

#include "console/session/Globals.h"
#include "tests/support/Console.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

void Recorder::TerminateServer() {
    record(u"terminate"_s);
    if (refusesToTerminate)
        throw std::runtime_error("the server does not answer");
}

void Recorder::setConnectionTimerEnabled(bool enabled) {
    record(enabled ? u"timer on"_s : u"timer off"_s);
    if (enabled)
        onTimer();
}

void Recorder::record(const QString& call) {
    calls << call + (Globals::DbConnection().isOpen() ? u", open"_s : u", closed"_s);
}

Turns::Turns(maintenance::frmRepairDB& form) {
    QObject::connect(&timer_, &QTimer::timeout, &form, [this, &wait = Form{form}.find(u"lblWait"_s)] {
        if (wait.isVisible())
            ++waiting_;
    });
    timer_.start(0);
}

const QStringList CompactFormTest::Bracket{u"terminate, open"_s, u"timer off, open"_s, u"drop, open"_s,
                                           u"timer on, open"_s, u"refresh, open"_s};

Box CompactFormTest::question(QMessageBox::StandardButton answer) {
    return yesNo(u"The Tessaly must now be stopped to compact the Database\rDo you want to proceed?"_s,
                 answer);
}

std::function<void(Form)> CompactFormTest::choose(const QString& path) {
    return [path](Form dialog) {
        dialog.find<QLineEdit>(u"fileNameEdit"_s).setText(path);
        dialog.find<QDialogButtonBox>(u"buttonBox"_s).button(QDialogButtonBox::Open)->click();
    };
}

void CompactFormTest::sayYes(BoxScript& script) const {
    script.expect(question(QMessageBox::Yes));
    if (!ScratchDatabase::isPostgresql())
        script.drive(u"QFileDialog"_s, choose(database_->path()));
}

qint64 CompactFormTest::size() const {
    return ScratchDatabase::isPostgresql()
               ? database_->value(u"SELECT pg_total_relation_size('series')"_s).toLongLong()
               : QFileInfo{database_->path()}.size();
}

void CompactFormTest::whenWaiting(std::function<void()> body) const {
    auto* turn = new QTimer(form_.get());
    connect(turn, &QTimer::timeout, turn, [this, turn, body = std::move(body)] {
        if (!form().find(u"lblWait"_s).isVisible())
            return;
        turn->stop();
        body();
    });
    turn->start(0);
}

void CompactFormTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    database_->run(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<3000) INSERT INTO Series "
        "(SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, SeriesNumber, Description) "
        "SELECT '1.2.'||i, '1.3', 'S'||i, 'CT', '1', 'a description' FROM n"_s);
    database_->run(u"DELETE FROM Series WHERE SeriesInstanceUID <> '1.2.7'"_s);
    database_->release();
    database_->openConsoleConnection();
    window_ = std::make_unique<Recorder>();
    form_ = std::make_unique<maintenance::frmRepairDB>(*window_, nullptr);
    form_->show();
}

void CompactFormTest::cleanup() {
    form_.reset();
    window_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

}  // namespace tessaly::test
