#include "server/LogFileFrame.h"

namespace tessaly::server {

using namespace Qt::StringLiterals;

LogFileFrame::LogFileFrame(QWidget* parent) : QGroupBox(u"Log file"_s, parent) {
    setObjectName(u"Frame1"_s);
}

}  // namespace tessaly::server
