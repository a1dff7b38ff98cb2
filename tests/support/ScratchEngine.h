#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>

namespace tessaly::test {

/// A scratch database's engine: one empty or seeded database, reached past ODBC.
class ScratchEngine {
  public:
    /// TESSALY_TEST_ENGINE says which: "postgresql", or SQLite without it. `file` is the database's place
    /// where the engine keeps it in a file.
    static std::unique_ptr<ScratchEngine> make(const QString& file, bool seeded);
    virtual ~ScratchEngine() = default;

    /// The lines of its section in odbc.ini.
    [[nodiscard]] virtual QString dataSource() const = 0;
    /// Runs one statement with `?` for its values; rows as texts, NULL a null QString.
    [[nodiscard]] virtual QList<QStringList> rows(const QString& sql, const QVariantList& values) = 0;
    /// Closes what rows() opened.
    virtual void release() = 0;

    virtual void failOn(const QString& table, const QString& operation, const QString& message,
                        const QString& condition) = 0;
    virtual void allow(const QString& table, const QString& operation) = 0;

    virtual void beginAlone(const QString& table) = 0;

    virtual void onUpdate(const QString& table, const QString& condition, const QString& statement) = 0;

    /// See ScratchDatabase.
    [[nodiscard]] virtual QString definition(const QString& sql) = 0;
    [[nodiscard]] virtual QString noTable(const QString& table) const = 0;
    [[nodiscard]] virtual QString noColumn(const QString& column) const = 0;
    [[nodiscard]] virtual QString twice(const QString& table, const QString& column) const = 0;
    [[nodiscard]] virtual QString typeOf(const QString& column) const = 0;
    [[nodiscard]] virtual QString textOf(const QByteArray& bytes) const = 0;
    [[nodiscard]] virtual QString hexOf(const QString& column) const = 0;
};

/// For ScratchEngine::make().
std::unique_ptr<ScratchEngine> makeSqlite(const QString& file, bool seeded);
std::unique_ptr<ScratchEngine> makePostgresql(bool seeded);

}  // namespace tessaly::test
