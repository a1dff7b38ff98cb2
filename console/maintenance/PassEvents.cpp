#include "console/maintenance/PassEvents.h"

#include <QCoreApplication>
#include <QThread>

#include "maintenance/RowWalk.h"

namespace tessaly::maintenance {

PassEvents::PassEvents(RowWalk& walk) : walk_(walk), level_(thread()->loopLevel()) {
    QCoreApplication::instance()->installEventFilter(this);
}

void PassEvents::handle() {
    QCoreApplication::processEvents();
}

bool PassEvents::eventFilter(QObject* /*watched*/, QEvent* /*event*/) {
    if (thread()->loopLevel() > level_)
        walk_.letGo();
    return false;
}

}  // namespace tessaly::maintenance
