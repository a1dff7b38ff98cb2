#include "maintenance/DatabaseFrame.h"

namespace tessaly::maintenance {

using namespace Qt::StringLiterals;

DatabaseFrame::DatabaseFrame(QWidget* parent) : QGroupBox(u"Database"_s, parent) {
    setObjectName(u"frmDatabase"_s);
}

}  // namespace tessaly::maintenance
