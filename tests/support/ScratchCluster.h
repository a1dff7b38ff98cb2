#pragma once

#include <sys/types.h>
#include <QString>
#include <QTemporaryDir>
#include <optional>

namespace tessaly::test {

/// A PostgreSQL cluster of this process's own in a temporary folder, reached by a Unix socket in it and by
/// nothing else; started by the first use and gone with the process, however that ends. Nothing of it is ever
/// flushed to disk.
class ScratchCluster {
  public:
    static ScratchCluster& instance();
    /// For measurements, before the first use: the cluster lies on the disk and flushes what it has promised
    /// to keep, with the memory that a fresh installation has.
    static void keepPromises();
    ~ScratchCluster();
    ScratchCluster(const ScratchCluster&) = delete;
    ScratchCluster& operator=(const ScratchCluster&) = delete;

    /// Owns the databases that the tests make; no superuser, no password.
    inline static const QString Owner = QStringLiteral("tessaly");
    /// May connect with the password "right" alone.
    inline static const QString Locked = QStringLiteral("locked");

    /// The folder of the socket: the server's address for libpq and ODBC.
    [[nodiscard]] QString address() const { return folder_.path(); }
    /// A connection string for libpq.
    [[nodiscard]] QByteArray connection(const QString& database, const QString& role = Owner) const;

    /// A new database of the owner's; `seeded`: with the tables. Gives its name.
    [[nodiscard]] QString makeDatabase(bool seeded);
    void dropDatabase(const QString& name) const;
    /// Runs a statement that is for the superuser alone.
    void administer(const QString& statement, const QString& database = QStringLiteral("template1")) const;

    /// Ends every session at once, as a restart of the machine would, and what they did not commit.
    void stop();
    void start();
    void restart();

    /// Starts anew, and writing fails where a file would grow beyond so many bytes; nothing: no limit.
    void limitFiles(std::optional<long> bytes);
    /// Gives a table without rows to a device that is full, whatever is written; ends every session.
    void fillDiskOf(const QString& database, const QString& table);

  private:
    ScratchCluster();

    QTemporaryDir folder_;
    pid_t server_ = 0;
    int databases_ = 0;
    std::optional<long> fileLimit_;
};

}  // namespace tessaly::test
