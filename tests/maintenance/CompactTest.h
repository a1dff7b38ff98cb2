#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

#include "tests/support/ScratchDatabase.h"

class QFile;
struct sqlite3;
struct stat;

namespace tessaly::test {

/// A compaction of a file without any form: a database of 1,000 images, and twice as much room again in it.
class CompactTest : public QObject {
    Q_OBJECT

  protected:
    CompactTest();
    ~CompactTest() override;

    [[nodiscard]] const ScratchDatabase& database() const { return *database_; }
    [[nodiscard]] QString path() const { return database_->path(); }
    [[nodiscard]] QString temporary() const { return database_->folder() + QStringLiteral("/DicomDB2.mdb"); }
    /// Files beside the database that belong to it or to a compaction.
    [[nodiscard]] QStringList companions() const;
    /// As many images instead of those of init(): enough for the engine to call back while it copies them.
    void fillAnew(int images);
    /// False on a file system without leases: there the engine's locks are all there is.
    [[nodiscard]] bool hasLeases() const;
    /// The database opens, is sound to its last index, and holds these images.
    void checkContent(int images) const;

    static QByteArray contentOf(const QString& path);
    static struct stat statusOf(const QString& path);
    static std::string nativePath(const QString& path) { return path.toStdString(); }

    /// The failure of a compaction in this process, empty when it succeeded.
    static QString compact(
        const QString& path, const std::function<void()>& keepAlive = [] {}, const QString& dataSource = {});
    /// Opens a file, like a newcomer, while the engine works: for compact().
    static std::function<void()> opening(QFile& newcomer);
    /// The failure of a compaction in a process of its own (compact_child.cpp says what it takes).
    static QString compactInChild(const QStringList& arguments);

    /// Another connection to a database, which the test leaves open or breaks off.
    class Other {
      public:
        explicit Other(const QString& path);
        ~Other();
        Other(const Other&) = delete;
        Other& operator=(const Other&) = delete;

        [[nodiscard]] bool run(const char* sql) const;
        /// Leaves the write-ahead log beside the file when the connection is closed, as a killed process
        /// does.
        void leaveLog() const;

      private:
        sqlite3* handle_ = nullptr;
    };

  private Q_SLOTS:
    void init();
    void cleanup() { database_.reset(); }

  private:
    std::unique_ptr<ScratchDatabase> database_;
};

}  // namespace tessaly::test
