#pragma once

#include <QString>

#include "dicom/net/Verifier.h"

class QWidget;

namespace tessaly::ui {

/// Runs one verification (C-ECHO) beside the user-interface thread, with a Verifier made for it. Until it is
/// done, within about ten seconds whatever the peer does, `dialog` takes no input and cannot be closed by
/// the user, and the pointer is the wait cursor; everything else goes on. An empty calling title stands for
/// the Verifier's own. False for every failure of the peer or of the way to it, and when the console ends or
/// the dialog goes in the middle of it. Throws std::runtime_error with the Verifier's description of a
/// request that it cannot send, for example of a port that is no number.
[[nodiscard]] bool EchoVerify(QWidget* dialog, const QString& host, const QString& port,
                              const QString& callingAeTitle, const QString& calledAeTitle,
                              const dicom::Verifier::Limits& limits = {});

}  // namespace tessaly::ui
