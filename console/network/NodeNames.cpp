#include "console/network/NodeNames.h"

#include "console/session/Globals.h"
#include "console/ui/MessageBox.h"
#include "console/ui/Text.h"
#include "db/Query.h"

namespace tessaly::network {

using namespace Qt::StringLiterals;

bool nameIsFree(QWidget* parent, const QString& name, NameSpace other) {
    const bool dicom = other == NameSpace::DicomNodes;
    db::Query query{Globals::DbConnection(), dicom ? "SELECT Name From DicomNodes WHERE Name=?"
                                                   : "SELECT Name From FTPNodes WHERE Name=?"};
    if (!query.bind(1, ui::varchar(name)).open().next())
        return true;
    ui::messageBox(parent, u"Node name '"_s + name + u"' is already defined in "_s +
                               (dicom ? u"Dicom Nodes"_s : u"FTP Nodes"_s));
    return false;
}

}  // namespace tessaly::network
