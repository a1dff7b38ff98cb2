#include "server/ServerFrame.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

ServerFrame::ServerFrame(QWidget* parent) : QGroupBox(u"Server"_s, parent) {
    setObjectName(u"frmComands"_s);
}

}  // namespace tessaly::server
