#include <sqlite3.h>

#include <QFile>
#include <stdexcept>

#include "tests/support/ScratchEngine.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

QString readFile(const QString& path) {
    QFile file{path};
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("cannot read " + path.toStdString());
    return QString::fromUtf8(file.readAll());
}

class SqliteEngine : public ScratchEngine {
  public:
    SqliteEngine(QString file, bool seeded) : file_(std::move(file)) {
        open();
        runScript(u"PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF"_s);
        if (seeded)
            runScript(readFile(QStringLiteral(TESSALY_SCHEMA "/sqlite.sql")));
    }
    ~SqliteEngine() override { sqlite3_close(handle_); }
    SqliteEngine(const SqliteEngine&) = delete;
    SqliteEngine& operator=(const SqliteEngine&) = delete;

    [[nodiscard]] QString dataSource() const override {
        return u"Driver=SQLite3\nDatabase=%1\nStepAPI=1\nJournalMode=WAL\nSyncPragma=NORMAL\nTimeout=5000\n"
               "NoCreat=1\n"_s.arg(file_);
    }

    [[nodiscard]] QList<QStringList> rows(const QString& sql, const QVariantList& values) override {
        if (handle_ == nullptr)
            open();
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(handle_, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
            fail(sql);
        for (int i = 0; i < static_cast<int>(values.size()); ++i)
            bind(statement, i + 1, values.at(i));
        QList<QStringList> found;
        int result = SQLITE_ROW;
        while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
            QStringList row;
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
                row << (text == nullptr ? QString{}
                                        : QString::fromUtf8(text, sqlite3_column_bytes(statement, i)));
            }
            found << row;
        }
        sqlite3_finalize(statement);
        if (result != SQLITE_DONE)
            fail(sql);
        return found;
    }

    void release() override {
        sqlite3_close(handle_);
        handle_ = nullptr;
    }

    void failOn(const QString& table, const QString& operation, const QString& message,
                const QString& condition) override {
        (void)rows(u"CREATE TRIGGER fail_%1_%2 BEFORE %2 ON %1 %3 BEGIN SELECT RAISE(ABORT, '%4'); END"_s.arg(
                       table, operation, condition.isEmpty() ? QString{} : u"WHEN "_s + condition, message),
                   {});
    }
    void allow(const QString& table, const QString& operation) override {
        (void)rows(u"DROP TRIGGER fail_%1_%2"_s.arg(table, operation), {});
    }

    void beginAlone(const QString& /*table*/) override { (void)rows(u"BEGIN IMMEDIATE"_s, {}); }

    void onUpdate(const QString& table, const QString& condition, const QString& statement) override {
        (void)rows(u"CREATE TRIGGER updated_%1 AFTER UPDATE ON %1 WHEN %2 BEGIN %3; END"_s.arg(
                       table, condition, statement),
                   {});
    }

    [[nodiscard]] QString definition(const QString& sql) override { return sql; }
    [[nodiscard]] QString noTable(const QString& table) const override {
        return u"no such table: "_s + table;
    }
    [[nodiscard]] QString noColumn(const QString& column) const override {
        return u"no such column: "_s + column;
    }
    [[nodiscard]] QString twice(const QString& table, const QString& column) const override {
        return u"UNIQUE constraint failed: %1.%2"_s.arg(table, column);
    }

    [[nodiscard]] QString typeOf(const QString& column) const override { return u"typeof(%1)"_s.arg(column); }

    [[nodiscard]] QString textOf(const QByteArray& bytes) const override {
        return u"CAST(x'%1' AS TEXT)"_s.arg(QString::fromLatin1(bytes.toHex()));
    }
    [[nodiscard]] QString hexOf(const QString& column) const override { return u"hex(%1)"_s.arg(column); }

  private:
    void open() {
        if (sqlite3_open(file_.toUtf8().constData(), &handle_) != SQLITE_OK)
            fail(file_);
        sqlite3_busy_timeout(handle_, 5000);
    }
    void runScript(const QString& sql) {
        if (sqlite3_exec(handle_, sql.toUtf8().constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(sql);
    }
    static void bind(sqlite3_stmt* statement, int position, const QVariant& value) {
        if (value.isNull())
            sqlite3_bind_null(statement, position);
        else if (value.typeId() == QMetaType::QString)
            sqlite3_bind_text(statement, position, value.toString().toUtf8().constData(), -1,
                              SQLITE_TRANSIENT);
        else
            sqlite3_bind_int64(statement, position, value.toLongLong());
    }
    [[noreturn]] void fail(const QString& sql) {
        throw std::runtime_error((sql + u": "_s + QString::fromUtf8(sqlite3_errmsg(handle_))).toStdString());
    }

    QString file_;
    sqlite3* handle_ = nullptr;
};

}  // namespace

std::unique_ptr<ScratchEngine> makeSqlite(const QString& file, bool seeded) {
    return std::make_unique<SqliteEngine>(file, seeded);
}

}  // namespace tessaly::test
