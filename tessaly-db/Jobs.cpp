#include "tessaly-db/Jobs.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "base/Number.h"
#include "jobs/JobTable.h"
#include "jobs/Spool.h"
#include "schema/Upgrade.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/Text.h"

namespace tessaly::tool {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t Columns = 8;
using Line = std::array<std::string, Columns>;

std::string localTime(jobs::Time time) {
    const std::time_t seconds = time.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    return text.data();
}

std::string ageText(std::chrono::seconds age) {
    if (age < 1min)
        return std::to_string(std::max<long long>(age.count(), 0)) + " s";
    if (age < 1h)
        return std::to_string(age / 1min) + " min";
    if (age < 48h)
        return std::to_string(age / 1h) + " h";
    return std::to_string(age / 24h) + " d";
}

Line lineOf(const jobs::Job& job, jobs::Time now) {
    const bool hasTime = job.state == jobs::State::Waiting || job.state == jobs::State::Done;
    return {std::to_string(job.number),
            job.kind,
            printable(oneLine(job.target)),
            jobs::nameOf(job.state),
            std::to_string(job.attempts),
            hasTime ? localTime(job.nextAttempt) : "-",
            job.lastError.empty() ? "-" : printable(oneLine(job.lastError)),
            ageText(now - job.created)};
}

void open(db::Connection& connection, const std::string& dsn) {
    requireDataSource(dsn);
    connect(connection, dsn);
    schema::requireUpgraded(connection, {"Job", "JobItem"});
}

long long numberOf(const std::string& text) {
    const auto number = base::wholeNumber(text);
    if (!number)
        throw std::runtime_error("Not a job's number: " + text);
    return *number;
}

}  // namespace

void listJobs(const std::string& dsn, std::ostream& out) {
    db::Connection connection;
    open(connection, dsn);
    const jobs::Time now = jobs::now(connection);
    std::vector<Line> lines;
    jobs::forEach(connection, [&](const jobs::Job& job) { lines.push_back(lineOf(job, now)); });
    std::array<std::size_t, Columns> widths{};
    for (const Line& line : lines)
        for (std::size_t i = 0; i < Columns; ++i)
            widths[i] = std::max(widths[i], lengthOf(line[i]).value_or(line[i].size()));
    for (const Line& line : lines) {
        for (std::size_t i = 0; i + 1 < Columns; ++i)
            out << line[i] << std::string(widths[i] - lengthOf(line[i]).value_or(line[i].size()) + 2, ' ');
        out << line.back() << '\n';
    }
}

void retryJobs(const std::string& dsn, const std::string& which) {
    db::Connection connection;
    open(connection, dsn);
    if (which != "all") {
        if (!jobs::retry(connection, numberOf(which)))
            throw std::runtime_error("There is no job " + which +
                                     " that waits, was given up or is uncertain");
        return;
    }
    // Of an uncertain one somebody has to find out first what became of it.
    std::vector<long long> numbers;
    jobs::forEach(connection, [&numbers](const jobs::Job& job) {
        if (job.state == jobs::State::GivenUp || job.state == jobs::State::Waiting)
            numbers.push_back(job.number);
    });
    for (const long long number : numbers)
        (void)jobs::retry(connection, number);  // what runs by now needs no more
}

void dropJob(const std::string& dsn, const std::string& number) {
    db::Connection connection;
    open(connection, dsn);
    const auto job = jobs::drop(connection, numberOf(number));
    if (!job)
        throw std::runtime_error("There is no job " + number);
    // While it still runs its server reads the spool: what is open stays readable, and it is ended soon.
    if (!job->spool.empty())
        jobs::Spool::remove(job->spool);
}

}  // namespace tessaly::tool
