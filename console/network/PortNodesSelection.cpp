#include "console/network/PortNodesSelection.h"

#include <QVBoxLayout>

#include "console/network/AcceptedNodes.h"
#include "console/network/NodeTitles.h"
#include "console/session/Globals.h"
#include "console/ui/Guard.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

namespace {

constexpr QSize InitialSize{460, 380};

}  // namespace

PortNodesSelection::PortNodesSelection(NetworkLists& lists, QWidget* parent)
    : EditorDialog({.name = u"PortNodesSelection"_s, .caption = u"Nodes selection"_s}, parent),
      lists_(lists),
      lstNodeSelection_(new ui::ReportList(u"lstNodeSelection"_s, nodeColumns(), this)) {
    lstNodeSelection_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    body()->addWidget(lstNodeSelection_);
    connect(lstNodeSelection_, &ui::ReportList::modifyRequested, this,
            ui::handler([this] { cmdOk_Click(); }));
    addButtons();
    resize(InitialSize);
}

void PortNodesSelection::Init(const QString& port) {
    port_ = port;
    if (ui::guarded(parentWidget(), ui::BoxStyle::Plain, [this] { fill(); }))
        showModal();
}

void PortNodesSelection::fill() {
    db::Query query{Globals::DbConnection(),
                    "SELECT DicomNodes.Name, DicomNodes.AETitle FROM DicomNodes "
                    " WHERE DicomNodes.Name NOT IN (SELECT Name from  PortRemoteNodes WHERE Port=?)"
                    " ORDER BY DicomNodes.Name"};
    showNodes(*lstNodeSelection_, readNodes(query.bind(1, ui::varchar(port_))));
}

bool PortNodesSelection::save() {
    // No transaction: the nodes taken before a failure are accepted.
    AcceptedNodes accepted;
    for (const QString& node : lstNodeSelection_->selectedTexts()) {
        accepted.accept(port_, node);
        Globals::setConfigChanged(true);
    }
    return true;
}

void PortNodesSelection::reload() {
    lists_.LoadPortNodes(port_);
}

}  // namespace tessaly::network
