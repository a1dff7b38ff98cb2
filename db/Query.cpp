#include "db/Query.h"

#include "db/Odbc.h"
#include "db/StatementCanceller.h"

namespace tessaly::db {

namespace {

/// What ODBC reads while a statement runs; lives as long as the run.
struct Bound {
    SQLBIGINT number = 0;
    unsigned char flag = 0;
    SQLLEN length = 0;
};

void bindOne(const detail::Statement& statement, SQLUSMALLINT position, const Param& param, Bound& bound) {
    const auto* text = std::get_if<std::string>(&param.value);
    const auto* number = std::get_if<long long>(&param.value);
    // Without a declared type the value's own decides, as it would in a statement typed by hand.
    const Type type = param.type != Type::Undeclared ? param.type
                      : number != nullptr            ? Type::Integer
                                                     : Type::Varchar;
    const auto sqlType = static_cast<SQLSMALLINT>(type);

    SQLRETURN result = SQL_ERROR;
    if (text != nullptr) {
        bound.length = static_cast<SQLLEN>(text->size());
        const SQLULEN width = text->empty() ? 1 : text->size();
        result = SQLBindParameter(statement.get(), position, SQL_PARAM_INPUT, SQL_C_CHAR, sqlType, width, 0,
                                  detail::odbcText(*text), static_cast<SQLLEN>(text->size()), &bound.length);
    } else if (number != nullptr && type == Type::Bit) {
        bound.flag = *number != 0 ? 1 : 0;
        result = SQLBindParameter(statement.get(), position, SQL_PARAM_INPUT, SQL_C_BIT, sqlType, 1, 0,
                                  &bound.flag, 0, &bound.length);
    } else if (number != nullptr) {
        bound.number = *number;
        result = SQLBindParameter(statement.get(), position, SQL_PARAM_INPUT, SQL_C_SBIGINT, sqlType, 0, 0,
                                  &bound.number, 0, &bound.length);
    } else {
        bound.length = SQL_NULL_DATA;
        result = SQLBindParameter(statement.get(), position, SQL_PARAM_INPUT, SQL_C_CHAR, sqlType, 1, 0,
                                  nullptr, 0, &bound.length);
    }
    statement.check(result);
}

}  // namespace

Query::Query(const Connection& connection, std::string text)
    : sharedSession_(connection.sharedSession()), text_(std::move(text)) {}

Query& Query::bind(int position, Param value) {
    const auto index = static_cast<std::size_t>(position - 1);
    if (position < 1)
        throw Error("Parameters are counted from 1");
    if (params_.size() <= index)
        params_.resize(index + 1);
    params_[index] = std::move(value);
    return *this;
}

Query& Query::bindAll(std::vector<Param> values) {
    params_ = std::move(values);
    return *this;
}

void Query::run() {
    if (statement_ && statement_->walking)
        throw Error("The statement's rows are still being read");
    const auto& session = sharedSession_->current();
    if (session->inTransaction && session->undone)
        throw Error("The transaction has ended: one of its statements was ended before its time");
    if (!statement_ || statement_->session() != session)
        statement_ = std::make_shared<detail::Statement>(session, text_);
    const bool mayBeStale = statement_->hasRun && !session->inTransaction;
    try {
        runOnce();
    } catch (const StalePlan&) {
        statement_ = std::make_shared<detail::Statement>(session, text_);
        if (!mayBeStale)
            throw;
        runOnce();
    } catch (...) {  // what the driver has prepared is not to be trusted any more
        statement_ = std::make_shared<detail::Statement>(session, text_);
        throw;
    }
    statement_->hasRun = true;
}

void Query::requireStorable(const detail::Statement& statement) const {
    for (const Param& param : params_) {
        const auto* text = std::get_if<std::string>(&param.value);
        if (text == nullptr || text->find('\0') == std::string::npos)
            continue;
        statement.session()->failed = true;
        throw Error("A text with the character NUL cannot be stored");
    }
}

void Query::runOnce() {
    detail::Statement& statement = *statement_;
    if (!statement.prepared)
        statement.check(statement.prepare());
    if (statement.timeout != timeout_) {
        statement.timeout = timeout_;
        SQLSetStmtAttr(statement.get(), SQL_ATTR_QUERY_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(timeout_.count())), 0);
    }
    requireStorable(statement);
    std::vector<Bound> bound(params_.size());
    if (params_.size() < statement.boundParams)  // the last run's values are gone
        SQLFreeStmt(statement.get(), SQL_RESET_PARAMS);
    statement.boundParams = params_.size();
    for (std::size_t i = 0; i < params_.size(); ++i)
        bindOne(statement, static_cast<SQLUSMALLINT>(i + 1), params_[i], bound[i]);
    detail::StatementCanceller::beginRun(statement, isUnwanted_ ? isUnwanted_ : sharedSession_->isUnwanted());
    detail::StatementCanceller{statement}.run([&statement] { return SQLExecute(statement.get()); });
}

ResultSet Query::open() {
    run();
    return ResultSet{statement_};
}

long long Query::execute() {
    run();
    SQLLEN changed = 0;
    statement_->check(SQLRowCount(statement_->get(), &changed));
    statement_->fetchAll();
    SQLFreeStmt(statement_->get(), SQL_CLOSE);
    return changed;
}

void execute(const Connection& connection, std::string text, std::initializer_list<Param> values) {
    Query{connection, std::move(text)}.bindAll(values).execute();
}

}  // namespace tessaly::db
