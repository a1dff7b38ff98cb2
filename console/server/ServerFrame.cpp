#include "console/server/ServerFrame.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>

#include "console/ui/ReportList.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

ServerFrame::ServerFrame(QWidget* parent)
    : QGroupBox(u"Server"_s, parent),
      lstStatus_(new ui::ReportList(u"lstStatus"_s,
                                    {{.title = u"Port"_s},
                                     {.title = u"From AE_TITLE"_s},
                                     {.title = u"For AE_TITLE"_s},
                                     {.title = u"Num. Conn."_s}},
                                    this)),
      cmdStart_(addButton(u"cmdStart"_s, u"Start"_s, u"Start server"_s)),
      cmdStop_(addButton(u"cmdStop"_s, u"Suspend"_s, u"Stop the server"_s)),
      cmdRestart_(addButton(u"cmdRestart"_s, u"Restart"_s, u"Restart the server reloading configuration"_s)),
      cmdLoad_(addButton(u"cmdLoad"_s, u"Terminate"_s, u"Terminate server"_s)),
      chkService_(new QCheckBox(u"Run as service"_s, this)) {
    setObjectName(u"frmComands"_s);
    chkService_->setObjectName(u"chkService"_s);
    lstStatus_->setFractions({0.16, 0.3, 0.3, 0.2});
    lstStatus_->header()->setStretchLastSection(true);
    lstStatus_->setSelectionMode(QAbstractItemView::NoSelection);

    auto* row = new QHBoxLayout(this);
    row->addWidget(lstStatus_, 1);
    auto* column = new QVBoxLayout;
    row->addLayout(column);
    for (QWidget* button : {cmdStart_, cmdStop_, cmdRestart_, cmdLoad_})
        column->addWidget(button);
    column->addStretch();
    column->addWidget(chkService_);
}

QPushButton* ServerFrame::addButton(const QString& name, const QString& caption, const QString& toolTip) {
    auto* button = new QPushButton(caption, this);
    button->setObjectName(name);
    button->setToolTip(toolTip);
    button->setAutoDefault(false);
    return button;
}

}  // namespace tessaly::server
