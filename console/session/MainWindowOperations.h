#pragma once

#include <QString>

namespace tessaly {

/// What the pages and dialogs of the subsystems need of the main window. TessalyManager implements it;
/// nothing below the application includes TessalyManager itself. All on the user-interface thread.
class MainWindowOperations {
  public:
    virtual ~MainWindowOperations() = default;

    // Each refills one list or page from the database and reports its own failure in a message box.
    virtual void LoadNodes() = 0;
    virtual void LoadFTPNodes() = 0;
    virtual void LoadPortNodes(const QString& port) = 0;
    virtual void LoadPorts() = 0;
    virtual void LoadDicomPrinters() = 0;
    virtual void LoadUsers() = 0;
    virtual void LoadSiteData() = 0;

    /// The port selected in the list of listening ports. Throws std::runtime_error when none is.
    [[nodiscard]] virtual QString selectedPort() const = 0;
    /// Preset of both path boxes of the image path relocation.
    virtual void setImageRoot(const QString& root) = 0;

    // The server, for what needs it out of the way.
    /// Ends the server process that the console controls and waits until it is gone; nothing when there is
    /// none. Throws std::runtime_error when it does not answer or does not end.
    virtual void TerminateServer() = 0;
    /// Lets go of the server, running or not.
    virtual void DropServer() = 0;
    /// Suspends or resumes the look at the server that is taken once a second.
    virtual void setConnectionTimerEnabled(bool enabled) = 0;
    /// Takes that look now; re-creates the server when there is none. Never throws.
    virtual void RefreshServerState() = 0;
};

}  // namespace tessaly
