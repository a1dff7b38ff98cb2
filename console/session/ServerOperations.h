#pragma once

namespace tessaly {

/// The server that the console controls, for what needs it out of the way. On the user-interface thread.
class ServerOperations {
  public:
    virtual ~ServerOperations() = default;

    /// Ends the server process and waits until it is gone; nothing when there is none. Throws
    /// std::runtime_error when it does not answer or does not end.
    virtual void TerminateServer() = 0;
    /// Lets go of the server, running or not.
    virtual void DropServer() = 0;
    /// Suspends or resumes the look at the server that is taken once a second.
    virtual void setConnectionTimerEnabled(bool enabled) = 0;
    /// Takes that look now; re-creates the server when there is none. Never throws.
    virtual void RefreshServerState() = 0;
};

}  // namespace tessaly
