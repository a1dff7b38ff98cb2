#pragma once

#include <QObject>
#include <memory>

#include "console/app/TessalyManager.h"
#include "tests/console/server/ScriptedServer.h"
#include "tests/support/Form.h"
#include "tests/support/ScratchDatabase.h"

namespace tessaly::test {

/// A main window with servers that follow a script. The timer stands still unless a test lets it run.
class ServerWindowTest : public QObject {
    Q_OBJECT

  protected:
    [[nodiscard]] Form window() const { return Form{*window_}; }
    [[nodiscard]] bool isEnabled(const QString& name) const { return window().find(name).isEnabled(); }

    ServerScript script_;
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;

  private Q_SLOTS:
    void init();
    void cleanup();
};

}  // namespace tessaly::test
