#pragma once

#include <QObject>
#include <memory>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

/// What the tests of the server share: one server, which each test starts as it wants and which ends with it.
class DaemonTest : public QObject {
    Q_OBJECT

  protected:
    void launch(const QList<PortRow>& ports = {PortRow{}}, const QStringList& arguments = {});
    /// Sends one object over an association of its own.
    [[nodiscard]] RequestorAssociation::Answer store(const ObjectSpec& spec, int port = 0) const;
    /// A path beside the server's database, for what the test makes.
    [[nodiscard]] QString scratch(const QString& name) const {
        return daemon_->database.folder() + u'/' + name;
    }

    std::unique_ptr<Daemon> daemon_;

  private Q_SLOTS:
    void cleanup() { daemon_.reset(); }
};

}  // namespace tessaly::test
