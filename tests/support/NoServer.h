#pragma once

#include "console/session/ServerOperations.h"

namespace tessaly::test {

/// A server that nothing has to be done about, for a form that needs one out of the way.
class NoServer : public ServerOperations {
  public:
    void TerminateServer() override {}
    void DropServer() override {}
    void setConnectionTimerEnabled(bool /*enabled*/) override {}
    void RefreshServerState() override {}
};

}  // namespace tessaly::test
