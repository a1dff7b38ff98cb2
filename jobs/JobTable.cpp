#include "jobs/JobTable.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <set>
#include <system_error>
#include <utility>

#include "db/Query.h"
#include "db/ResultSet.h"
#include "db/Transaction.h"
#include "db/dialects/Dialect.h"

namespace tessaly::jobs {

namespace {

using db::integer;
using db::varchar;

db::Param text(std::string_view value) {
    return varchar(std::string{value});
}

db::Param number(State state) {
    return integer(static_cast<long long>(state));
}

/// For an expression: an engine asks for the type of a parameter there.
std::string literal(State state) {
    return std::to_string(static_cast<int>(state));
}

db::Param seconds(std::chrono::seconds duration) {
    return integer(duration.count());
}

std::string clock(const db::Connection& connection) {
    return connection.dialect().currentSeconds();
}

/// The clock's expression and the text of a statement around it, whose every @ is replaced by it.
std::string timed(const db::Connection& connection, std::string statement) {
    const std::string now = clock(connection);
    for (std::size_t at = 0; (at = statement.find('@', at)) != std::string::npos; at += now.size())
        statement.replace(at, 1, now);
    return statement;
}

/// Returns whether it changed a row.
bool change(const db::Connection& connection, const std::string& statement, std::vector<db::Param> values) {
    db::Query query{connection, timed(connection, statement)};
    return query.bindAll(std::move(values)).execute() > 0;
}

/// At a character's boundary.
std::string cut(std::string_view value, std::size_t most) {
    std::size_t characters = 0;
    std::size_t at = 0;
    for (; at < value.size(); ++at)
        if ((static_cast<unsigned char>(value[at]) & 0xc0U) != 0x80U && ++characters > most)
            break;
    return std::string{value.substr(0, at)};
}

Time timeOf(db::ResultSet& row, const char* column) {
    return Time{std::chrono::seconds{row.integer(column)}};
}

constexpr const char* Columns =
    "SELECT Number, Kind, Target, JobKey, Subject, Spool, Progress, State, Attempts, NextAttempt, LastError, "
    "Created, Begun FROM Job";

Job jobOf(db::ResultSet& row) {
    return {.number = row.integer("Number"),
            .kind = row.text("Kind"),
            .target = row.text("Target"),
            .key = row.text("JobKey"),
            .subject = row.text("Subject"),
            .spool = row.text("Spool"),
            .progress = row.text("Progress"),
            .state = static_cast<State>(row.integer("State")),
            .attempts = static_cast<int>(row.integer("Attempts")),
            .nextAttempt = timeOf(row, "NextAttempt"),
            .lastError = row.text("LastError"),
            .created = timeOf(row, "Created"),
            .begun = timeOf(row, "Begun")};
}

std::vector<Job> select(const db::Connection& connection, const std::string& condition,
                        std::vector<db::Param> values) {
    db::Query query{connection, timed(connection, std::string{Columns} + condition)};
    query.bindAll(std::move(values));
    std::vector<Job> found;
    for (db::ResultSet rows = query.open(); rows.next();)
        found.push_back(jobOf(rows));
    return found;
}

std::optional<Job> first(std::vector<Job> found) {
    if (found.empty())
        return std::nullopt;
    return std::move(found.front());
}

}  // namespace

bool add(const db::Connection& connection, const NewJob& job) {
    const std::string now = clock(connection);
    const std::string values = "(?,?,?,?,?," + now + "+?," + now + "," + now + ")";
    db::Query query{connection,
                    connection.dialect().insertNew(
                        "Job", "Kind,Target,JobKey,Subject,Spool,NextAttempt,Created,Begun", values)};
    query.bindAll({text(job.kind), text(job.target), text(job.key), text(job.subject), text(job.spool),
                   seconds(job.delay)});
    return query.execute() > 0;
}

bool renew(const db::Connection& connection, const NewJob& job) {
    return change(
        connection,
        "UPDATE Job SET Target=?, Subject=?, Spool=?, Progress=NULL, State=?, Attempts=0, "
        "NextAttempt=@+?, LastError=NULL, Begun=@ WHERE Kind=? AND JobKey=? AND State IN (?,?)",
        {text(job.target), text(job.subject), text(job.spool), number(State::Waiting), seconds(job.delay),
         text(job.kind), text(job.key), number(State::Done), number(State::GivenUp)});
}

std::optional<Job> find(const db::Connection& connection, std::string_view kind, std::string_view key) {
    return first(select(connection, " WHERE Kind=? AND JobKey=?", {text(kind), text(key)}));
}

std::optional<Job> find(const db::Connection& connection, long long number) {
    return first(select(connection, " WHERE Number=?", {integer(number)}));
}

long long countUnfinished(const db::Connection& connection, std::string_view kind, std::string_view target) {
    db::Query query{connection,
                    "SELECT COUNT(*) AS Num FROM Job WHERE State IN (?,?) AND Kind=? AND Target=?"};
    query.bindAll({number(State::Waiting), number(State::Running), text(kind), text(target)});
    db::ResultSet row = query.open();
    return row.next() ? row.integer("Num") : 0;
}

void forEach(const db::Connection& connection, const std::function<void(const Job&)>& visit) {
    for (const Job& job : select(connection, " ORDER BY Number", {}))
        visit(job);
}

Time now(const db::Connection& connection) {
    db::Query query{connection, "SELECT " + clock(connection) + " AS Seconds"};
    db::ResultSet row = query.open();
    if (!row.next())
        throw db::Error{"The database does not say what time it is"};
    return timeOf(row, "Seconds");
}

std::vector<Job> due(const db::Connection& connection, std::size_t most) {
    std::vector<Job> found = select(connection, " WHERE State=? AND Lease<@ ORDER BY NextAttempt, Number",
                                    {number(State::Running)});
    std::set<std::string> busy;
    {
        db::Query lanes{connection, "SELECT Lane FROM Job WHERE State=?"};
        lanes.bind(1, number(State::Running));
        for (db::ResultSet rows = lanes.open(); rows.next();)
            busy.insert(rows.text("Lane"));
    }
    std::vector<std::pair<Time, long long>> waiting;
    {
        // A lane may have thousands of them: its oldest is all that is wanted.
        db::Query query{connection,
                        timed(connection,
                              "SELECT Kind, Target, MIN(Number) AS Oldest, MIN(NextAttempt) AS Since "
                              "FROM Job WHERE State=? AND NextAttempt<=@ GROUP BY Kind, Target")};
        query.bind(1, number(State::Waiting));
        for (db::ResultSet rows = query.open(); rows.next();)
            if (!busy.contains(rows.text("Kind") + '/' + rows.text("Target")))
                waiting.emplace_back(timeOf(rows, "Since"), rows.integer("Oldest"));
    }
    std::sort(waiting.begin(), waiting.end());
    for (const auto& lane : waiting) {
        if (found.size() >= most)
            break;
        if (auto job = find(connection, lane.second))
            found.push_back(std::move(*job));
    }
    found.resize(std::min(found.size(), most));
    return found;
}

bool claim(const db::Connection& connection, long long number, std::string_view owner) {
    try {
        return change(connection,
                      "UPDATE Job SET State=?, Lane=Kind || '/' || Target, Owner=?, Lease=@+? WHERE Number=? "
                      "AND ((State=? AND NextAttempt<=@) OR (State=? AND Lease<@))",
                      {jobs::number(State::Running), text(owner), seconds(LeaseTime), integer(number),
                       jobs::number(State::Waiting), jobs::number(State::Running)});
    } catch (const db::DuplicateKey&) {  // of the lane
        return false;
    }
}

std::optional<Job> claimFailed(const db::Connection& connection, std::string_view kind,
                               std::string_view target, std::string_view owner) {
    try {
        const bool isClaimed = change(
            connection,
            "UPDATE Job SET State=?, Lane=Kind || '/' || Target, Owner=?, Lease=@+? WHERE State=? AND "
            "Number=(SELECT MIN(Number) FROM Job WHERE Kind=? AND Target=? AND State=? AND Attempts>0)",
            {number(State::Running), text(owner), seconds(LeaseTime), number(State::Waiting), text(kind),
             text(target), number(State::Waiting)});
        if (!isClaimed)
            return std::nullopt;
    } catch (const db::DuplicateKey&) {  // of the lane
        return std::nullopt;
    }
    return first(select(connection, " WHERE Owner=? AND State=?", {text(owner), number(State::Running)}));
}

std::string newOwner() {
    std::array<std::uint32_t, 4> words{};
    if (::getrandom(words.data(), sizeof words, 0) != static_cast<ssize_t>(sizeof words))
        throw std::system_error{errno, std::generic_category(), "no random number"};
    std::string name;
    for (const std::uint32_t word : words)
        name.append(name.empty() ? "" : "-").append(std::to_string(word));
    return name;
}

bool extend(const db::Connection& connection, long long number, std::string_view owner) {
    return change(connection, "UPDATE Job SET Lease=@+? WHERE Number=? AND Owner=? AND State=?",
                  {seconds(LeaseTime), integer(number), text(owner), jobs::number(State::Running)});
}

bool noteProgress(const db::Connection& connection, long long number, std::string_view owner,
                  std::string_view progress) {
    return change(connection, "UPDATE Job SET Progress=? WHERE Number=? AND Owner=? AND State=?",
                  {text(progress), integer(number), text(owner), jobs::number(State::Running)});
}

bool finish(const db::Connection& connection, long long number, std::string_view owner,
            const Ending& ending) {
    constexpr std::size_t LongestError = 255;
    std::string state = literal(ending.state);
    std::string next = "@+?";
    if (ending.claimedAt) {
        const std::string isAsClaimed =
            "CASE WHEN NextAttempt=" + std::to_string(ending.claimedAt->time_since_epoch().count()) +
            " THEN ";
        state = isAsClaimed + state + " ELSE " + literal(State::Waiting) + " END";
        next = isAsClaimed + next + " ELSE NextAttempt END";
    }
    return change(connection,
                  "UPDATE Job SET State=" + state + ", Lane=NULL, Owner=NULL, Lease=NULL, NextAttempt=" +
                      next + ", Attempts=?, LastError=?" + (ending.beginsAnew ? ", Begun=@" : "") +
                      " WHERE Number=? AND Owner=? AND State=?",
                  {seconds(ending.delay), integer(ending.attempts),
                   ending.error.empty() ? db::null(db::Type::Varchar) : text(cut(ending.error, LongestError)),
                   integer(number), text(owner), jobs::number(State::Running)});
}

bool retry(const db::Connection& connection, long long number) {
    return change(
        connection,
        "UPDATE Job SET State=?, Attempts=0, NextAttempt=@, Begun=@ WHERE Number=? AND State IN (?,?,?)",
        {jobs::number(State::Waiting), integer(number), jobs::number(State::Waiting),
         jobs::number(State::GivenUp), jobs::number(State::Uncertain)});
}

std::optional<Job> drop(const db::Connection& connection, long long number) {
    db::Transaction transaction{connection};
    // The statement that writes first: it waits for other writers, which one that reads first does not.
    if (!change(connection, "UPDATE Job SET State=State WHERE Number=?", {integer(number)}))
        return std::nullopt;
    auto job = find(connection, number);
    if (!job)
        return std::nullopt;
    db::execute(connection, "DELETE FROM JobItem WHERE Kind=? AND JobKey=?",
                {text(job->kind), text(job->key)});
    db::execute(connection, "DELETE FROM Job WHERE Number=?", {integer(number)});
    transaction.commit();
    return job;
}

void forget(const db::Connection& connection, std::chrono::seconds age) {
    change(connection, "DELETE FROM Job WHERE State=? AND NextAttempt<@-?",
           {number(State::Done), seconds(age)});
}

bool hasSpool(const db::Connection& connection, std::string_view path) {
    db::Query query{connection, "SELECT Number FROM Job WHERE Spool=? AND State<>?"};
    query.bindAll({text(path), number(State::Done)});
    return query.open().next();
}

bool anyUnfinished(const db::Connection& connection) {
    db::Query query{connection, "SELECT MIN(Number) AS Oldest FROM Job WHERE State IN (?,?)"};
    query.bindAll({number(State::Waiting), number(State::Running)});
    db::ResultSet row = query.open();
    return row.next() && !row.isNull("Oldest");
}

std::vector<long long> running(const db::Connection& connection, std::string_view owner) {
    db::Query query{connection, "SELECT Number FROM Job WHERE State=? AND Owner=? ORDER BY Number"};
    query.bindAll({number(State::Running), text(owner)});
    std::vector<long long> found;
    for (db::ResultSet rows = query.open(); rows.next();)
        found.push_back(rows.integer("Number"));
    return found;
}

Troubles troubles(const db::Connection& connection, std::chrono::seconds late) {
    const auto count = [&connection](const char* condition, std::vector<db::Param> values) {
        db::Query query{connection,
                        timed(connection, std::string{"SELECT COUNT(*) AS Num FROM Job WHERE "} + condition)};
        query.bindAll(std::move(values));
        db::ResultSet row = query.open();
        return row.next() ? row.integer("Num") : 0;
    };
    return {.late = count("State IN (?,?) AND Begun<@-?",
                          {number(State::Waiting), number(State::Running), seconds(late)}),
            .givenUp = count("State=?", {number(State::GivenUp)}),
            .uncertain = count("State=?", {number(State::Uncertain)})};
}

void addItem(const db::Connection& connection, std::string_view kind, std::string_view key,
             std::string_view item) {
    change(connection, "INSERT INTO JobItem (Kind, JobKey, Item, Added) VALUES (?,?,?,@)",
           {text(kind), text(key), text(item)});
}

void addItemTo(const db::Connection& connection, const NewJob& job, std::string_view item) {
    // One that waits for longer than any transaction lasts cannot begin before this one is over, and is left
    // alone: those who add do not wait for each other then.
    constexpr int LongestTransaction = 40;
    addItem(connection, job.kind, job.key, item);
    if (add(connection, job))
        return;
    const std::string waits = "State=" + literal(State::Waiting);
    const std::string hasEnded = "State IN (" + literal(State::Done) + "," + literal(State::GivenUp) + ")";
    change(connection,
           "UPDATE Job SET NextAttempt=CASE WHEN " + waits +
               " AND Attempts>0 THEN NextAttempt ELSE @+? END, " + "Attempts=CASE WHEN " + hasEnded +
               " THEN 0 ELSE Attempts END, " + "Begun=CASE WHEN " + hasEnded + " THEN @ ELSE Begun END, " +
               "LastError=CASE WHEN " + hasEnded + " THEN NULL ELSE LastError END, " + "State=CASE WHEN " +
               hasEnded + " THEN " + literal(State::Waiting) +
               " ELSE State END WHERE Kind=? AND JobKey=? AND NOT (" + waits + " AND NextAttempt>@+?)",
           {seconds(job.delay), text(job.kind), text(job.key), integer(LongestTransaction)});
}

std::optional<Time> lastAdded(const db::Connection& connection, std::string_view kind, std::string_view key) {
    db::Query query{connection,
                    "SELECT MAX(Added) AS LastAdded FROM JobItem WHERE Kind=? AND JobKey=? AND Taken=0"};
    query.bindAll({text(kind), text(key)});
    db::ResultSet row = query.open();
    if (!row.next() || row.isNull("LastAdded"))
        return std::nullopt;
    return timeOf(row, "LastAdded");
}

std::vector<Item> takeItems(const db::Connection& connection, std::string_view kind, std::string_view key) {
    change(connection, "UPDATE JobItem SET Taken=1 WHERE Kind=? AND JobKey=? AND Taken=0",
           {text(kind), text(key)});
    db::Query query{connection,
                    "SELECT Item, Added FROM JobItem WHERE Kind=? AND JobKey=? AND Taken=1 ORDER BY Number"};
    query.bindAll({text(kind), text(key)});
    std::vector<Item> found;
    for (db::ResultSet rows = query.open(); rows.next();)
        found.push_back({.item = rows.text("Item"), .added = timeOf(rows, "Added")});
    return found;
}

void removeTaken(const db::Connection& connection, std::string_view kind, std::string_view key) {
    change(connection, "DELETE FROM JobItem WHERE Kind=? AND JobKey=? AND Taken=1", {text(kind), text(key)});
}

}  // namespace tessaly::jobs
