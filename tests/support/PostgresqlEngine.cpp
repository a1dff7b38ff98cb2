#include <libpq-fe.h>

#include <QRegularExpression>
#include <stdexcept>

#include "tests/support/ScratchCluster.h"
#include "tests/support/ScratchEngine.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

/// `?` outside of texts in apostrophes as $1, $2, ...
QString numbered(const QString& sql) {
    QString result;
    bool inText = false;
    int number = 0;
    for (const QChar c : sql) {
        if (c == u'\'')
            inText = !inText;
        if (c == u'?' && !inText)
            result += u'$' + QString::number(++number);
        else
            result += c;
    }
    return result;
}

class PostgresqlEngine : public ScratchEngine {
  public:
    explicit PostgresqlEngine(bool seeded) : database_(ScratchCluster::instance().makeDatabase(seeded)) {}
    ~PostgresqlEngine() override {
        PQfinish(session_);
        ScratchCluster::instance().dropDatabase(database_);
    }
    PostgresqlEngine(const PostgresqlEngine&) = delete;
    PostgresqlEngine& operator=(const PostgresqlEngine&) = delete;

    [[nodiscard]] QString dataSource() const override {
        return u"Driver=PostgreSQL Unicode\nServername=%1\nPort=5432\nDatabase=%2\nUsername=%3\nCommLog=0\n"
               "Debug=0\n"_s.arg(ScratchCluster::instance().address(), database_, ScratchCluster::Owner);
    }

    [[nodiscard]] QList<QStringList> rows(const QString& sql, const QVariantList& values) override {
        if (PQstatus(session_) != CONNECTION_OK)
            open();
        std::vector<QByteArray> texts;
        for (const QVariant& value : values)  // flags are numbers here
            texts.push_back(value.typeId() == QMetaType::Bool ? QByteArray::number(value.toInt())
                                                              : value.toString().toUtf8());
        std::vector<const char*> parameters;
        for (std::size_t i = 0; i < texts.size(); ++i)
            parameters.push_back(values.at(static_cast<int>(i)).isNull() ? nullptr : texts[i].constData());
        const std::unique_ptr<PGresult, decltype(&PQclear)> result{
            PQexecParams(session_, numbered(sql).toUtf8().constData(), static_cast<int>(parameters.size()),
                         nullptr, parameters.data(), nullptr, nullptr, 0),
            PQclear};
        const auto status = PQresultStatus(result.get());
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
            fail(sql);
        QList<QStringList> found;
        for (int i = 0; i < PQntuples(result.get()); ++i) {
            QStringList row;
            for (int j = 0; j < PQnfields(result.get()); ++j)
                row << (PQgetisnull(result.get(), i, j) != 0
                            ? QString{}
                            : QString::fromUtf8(PQgetvalue(result.get(), i, j),
                                                PQgetlength(result.get(), i, j)));
            found << row;
        }
        return found;
    }

    void release() override {
        PQfinish(session_);
        session_ = nullptr;
    }

    void failOn(const QString& table, const QString& operation, const QString& message,
                const QString& condition) override {
        makeFunction(u"fail_%1_%2"_s.arg(table, operation), condition.isEmpty() ? u"true"_s : condition,
                     u"RAISE EXCEPTION '%1'"_s.arg(message), operation == u"DELETE"_s ? u"OLD"_s : u"NEW"_s);
        (void)rows(
            u"CREATE TRIGGER fail_%1_%2 BEFORE %2 ON %1 FOR EACH ROW EXECUTE FUNCTION fail_%1_%2()"_s.arg(
                table, operation),
            {});
    }
    void allow(const QString& table, const QString& operation) override {
        (void)rows(u"DROP FUNCTION fail_%1_%2 CASCADE"_s.arg(table, operation), {});
    }

    void beginAlone(const QString& table) override {
        (void)rows(u"BEGIN"_s, {});
        (void)rows(u"LOCK TABLE %1 IN EXCLUSIVE MODE"_s.arg(table), {});
    }

    void onUpdate(const QString& table, const QString& condition, const QString& statement) override {
        makeFunction(u"updated_"_s + table, condition, statement, u"NULL"_s);
        (void)rows(
            u"CREATE TRIGGER updated_%1 AFTER UPDATE ON %1 FOR EACH ROW EXECUTE FUNCTION updated_%1()"_s.arg(
                table),
            {});
    }

    [[nodiscard]] QString definition(const QString& sql) override {
        if (sql.contains(u"COLLATE NOCASE"_s))
            (void)rows(
                u"CREATE COLLATION IF NOT EXISTS nocase (provider = icu, locale = 'und-u-ks-level2', "
                "deterministic = false)"_s,
                {});
        QString result = sql;
        static const QRegularExpression whole{u"\\bINTEGER\\b"_s};
        static const QRegularExpression flag{u"\\bBIT\\b"_s};
        return result.replace(whole, u"BIGINT"_s).replace(flag, u"SMALLINT"_s);
    }
    [[nodiscard]] QString noTable(const QString& table) const override {
        return u"relation \"%1\" does not exist"_s.arg(table.toLower());
    }
    [[nodiscard]] QString noColumn(const QString& column) const override {
        return u"column \"%1\" does not exist"_s.arg(column.toLower());
    }
    [[nodiscard]] QString twice(const QString& table, const QString& /*column*/) const override {
        return u"duplicate key value violates unique constraint \"%1_pkey\""_s.arg(table.toLower());
    }

    [[nodiscard]] QString typeOf(const QString& column) const override {
        return u"CASE WHEN pg_typeof(%1)::text IN ('bigint', 'integer', 'smallint') THEN 'integer' ELSE 'text' END"_s
            .arg(column);
    }

    [[nodiscard]] QString textOf(const QByteArray& bytes) const override {
        return u"convert_from('\\x%1', 'UTF8')"_s.arg(QString::fromLatin1(bytes.toHex()));
    }
    [[nodiscard]] QString hexOf(const QString& column) const override {
        return u"upper(encode(convert_to(%1, 'UTF8'), 'hex'))"_s.arg(column);
    }

  private:
    /// A trigger's function that runs the statement where the condition holds, and gives the result.
    void makeFunction(const QString& name, const QString& condition, const QString& statement,
                      const QString& result) {
        (void)rows(
            u"CREATE FUNCTION %1() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN IF %2 THEN %3; END IF; "
            "RETURN %4; END $$"_s.arg(name, condition, statement, result),
            {});
    }
    void open() {
        release();
        session_ = PQconnectdb(ScratchCluster::instance().connection(database_).constData());
        if (PQstatus(session_) != CONNECTION_OK)
            fail(u"connecting"_s);
        PQsetNoticeProcessor(
            session_, [](void*, const char*) {}, nullptr);
    }
    [[noreturn]] void fail(const QString& sql) {
        throw std::runtime_error((sql + u": "_s + QString::fromUtf8(PQerrorMessage(session_))).toStdString());
    }

    QString database_;
    PGconn* session_ = nullptr;
};

}  // namespace

std::unique_ptr<ScratchEngine> makePostgresql(bool seeded) {
    return std::make_unique<PostgresqlEngine>(seeded);
}

}  // namespace tessaly::test
