#include "console/maintenance/PassEvents.h"

#include <QCoreApplication>
#include <QThread>

namespace tessaly::maintenance {

PassEvents::PassEvents() : level_(thread()->loopLevel()) {
    QCoreApplication::instance()->installEventFilter(this);
}

void PassEvents::handle(const Progress::LetGo& letGo) {
    letGo_ = letGo;
    QCoreApplication::processEvents();
    letGo_ = {};
}

bool PassEvents::eventFilter(QObject* /*watched*/, QEvent* /*event*/) {
    if (letGo_ && thread()->loopLevel() > level_)
        letGo_();
    return false;
}

}  // namespace tessaly::maintenance
