#pragma once

#include <QObject>
#include <QSocketNotifier>

#include "base/FileDescriptor.h"

namespace tessaly::tessalyd {

/// Turns the signals that ask a process to end into a Qt signal. To be made before any other thread: threads
/// take over which signals are held back.
class EndSignals : public QObject {
    Q_OBJECT

  public:
    EndSignals();

  signals:
    void received();

  private:
    base::FileDescriptor descriptor_;
    QSocketNotifier notifier_;
};

}  // namespace tessaly::tessalyd
