#pragma once

#include <QObject>
#include <memory>

#include "tests/support/BoxScript.h"
#include "tests/support/ScratchDatabase.h"

namespace tessaly {
class TessalyManager;
}

namespace tessaly::test {

/// What the tests of the pages share: a main window of its own, its lists loaded, on a database of its own
/// for each test.
class WindowTest : public QObject {
    Q_OBJECT

  protected:
    enum class Page { Nodes, LocalServer, FtpNodes, Administration, Users, Site, Printers };
    explicit WindowTest(Page page);
    ~WindowTest() override;

    /// Fills the tables that the page shows, before the window loads them.
    virtual void seed() const = 0;

    [[nodiscard]] const ScratchDatabase& database() const { return *database_; }
    [[nodiscard]] TessalyManager& manager() const { return *window_; }
    [[nodiscard]] Form window() const;

    /// Makes it the window that has the focus and the shortcuts.
    static void activate(QWidget& window);

    /// Rows "text" with what text boxes and databases are known to spoil, each of at most 16 characters.
    static void addAwkwardTexts();

  private Q_SLOTS:
    void init();
    void cleanup();

  private:
    Page page_;
    std::unique_ptr<ScratchDatabase> database_;
    std::unique_ptr<TessalyManager> window_;
};

}  // namespace tessaly::test
