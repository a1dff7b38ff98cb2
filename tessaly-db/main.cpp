#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <string>

#include "db/Error.h"
#include "tessaly-db/Backup.h"
#include "tessaly-db/Check.h"
#include "tessaly-db/Compact.h"
#include "tessaly-db/CopyCommand.h"
#include "tessaly-db/Create.h"
#include "tessaly-db/DataSource.h"
#include "tessaly-db/InterruptGuard.h"
#include "tessaly-db/Jobs.h"
#include "tessaly-db/Password.h"
#include "tessaly-db/Target.h"
#include "tessaly-db/Text.h"
#include "tessaly-db/UpgradeCommand.h"
#include "tessaly-db/Users.h"

namespace {

using namespace tessaly;

struct Options {
    std::string dsn = "DicomFDB";
    std::string user = "admin";
    std::string root;
    std::string file;
    std::string job;
    bool random = false;
    bool quiet = false;
    bool refill = false;
    tool::CopyOptions copy;
};

/// A random password is told this once and stands nowhere in clear.
void tell(const std::string& user, const tool::Password& password) {
    if (!password.random)
        return;
    std::cout << "Password of " << user << ": " << password.text << std::endl;
    if (!std::cout)
        throw std::runtime_error("The password of " + user +
                                 " is set but could not be printed: set another one with set-password");
}

int create(const Options& options) {
    tool::requireUserName(options.user);
    tool::Target::requireFree(options.dsn);  // before anybody is asked for a password
    const auto password = tool::newPassword(options.user, options.random);
    tool::createDatabase({.dsn = options.dsn,
                          .administrator = options.user,
                          .password = password.text,
                          .imageRoot = options.root});
    tell(options.user, password);
    return 0;
}

/// Adds a user or changes one, as `change` does; `exists` is what must hold of the name before.
int changeUser(const Options& options, bool exists,
               void (*change)(const db::Connection&, const std::string&, const std::string&)) {
    tool::requireDataSource(options.dsn);
    db::Connection connection;
    tool::connect(connection, options.dsn);
    if (tool::hasUser(connection, options.user) != exists)
        throw std::runtime_error((exists ? "There is no user " : "There is a user already: ") + options.user);
    const auto password = tool::newPassword(options.user, options.random);
    change(connection, options.user, password.text);
    tell(options.user, password);
    return 0;
}

int addAdmin(const Options& options) {
    tool::requireUserName(options.user);
    return changeUser(options, false, tool::addAdministrator);
}

int setPassword(const Options& options) {
    return changeUser(options, true, tool::setPassword);
}

int check(const Options& options) {
    const auto faults = tool::findFaults(options.dsn);
    for (const auto& fault : faults)
        std::cout << tool::printable(tool::oneLine(fault)) << '\n';
    if (faults.empty())
        std::cout << options.dsn << ": ok\n";
    return faults.empty() ? 0 : 1;
}

int upgrade(const Options& options) {
    return tool::upgrade({.dsn = options.dsn, .quiet = options.quiet, .refill = options.refill});
}

int compact(const Options& options) {
    tool::compact(options.dsn);
    return 0;
}

int copy(const Options& options) {
    return tool::copy(options.copy);
}

int backup(const Options& options) {
    if (tool::keepsFile(options.dsn)) {
        tool::backUp(options.dsn, options.file);
        return 0;
    }
    const std::string command = tool::backupCommand(options.dsn, options.file);
    if (command.empty())
        throw std::runtime_error("No backup was made: it is not known how this engine makes one");
    std::cout << command << std::endl;
    throw std::runtime_error("No backup was made: the server's own program makes it, by the line printed");
}

int listJobs(const Options& options) {
    tool::listJobs(options.dsn, std::cout);
    return 0;
}

int retryJobs(const Options& options) {
    tool::retryJobs(options.dsn, options.job);
    return 0;
}

int dropJob(const Options& options) {
    tool::dropJob(options.dsn, options.job);
    return 0;
}

void addCopy(CLI::App& command, tool::CopyOptions& options) {
    command.add_option("--from", options.from, "ODBC data source that is read")->required();
    command.add_option("--to", options.to, "ODBC data source that is written; its database is new or empty")
        ->required();
    command.add_option("--map", options.maps, "OLD=NEW: a new root for the paths of images; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_flag("--dry-run", options.dryRun, "Write nothing, and list what would not fit");
    command.add_option("--limit", options.limit, "Rows that a dry run lists at most")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--quiet", options.quiet, "Show no progress and no table of what was copied");
}

int run(int argc, char** argv) {
    Options options;
    int (*command)(const Options&) = nullptr;
    CLI::App app{"Makes, checks, upgrades and moves the configuration database of a data source.",
                 "tessaly-db"};
    app.fallthrough()->require_subcommand(1);
    app.add_option("--dsn", options.dsn, "ODBC data source")->capture_default_str();

    const auto add = [&](const char* name, const char* what, int (*function)(const Options&)) {
        auto* sub = app.add_subcommand(name, what);
        sub->callback([&command, function] { command = function; });
        return sub;
    };
    auto* const creating = add("create", "Make the database with one administrator", create);
    creating->add_option("--admin", options.user, "The administrator's name")->capture_default_str();
    creating->add_option("--root", options.root,
                         "Folder for images; default: images beside the database's file");
    auto* const adding = add("add-admin", "Add a user with all rights", addAdmin);
    auto* const setting = add("set-password", "Give a user a new password", setPassword);
    for (auto* const sub : {adding, setting})
        sub->add_option("name", options.user, "The user's name")->required();
    for (auto* const sub : {creating, adding, setting})
        sub->add_flag("--random", options.random, "Make a password and print it, instead of asking");
    add("check", "List what is missing or wrong", check);
    auto* const upgrading = add("upgrade", "Make the tables what these programs work with", upgrade);
    upgrading->add_flag("--quiet", options.quiet, "Say nothing but what was done to the tables");
    upgrading->add_flag(
        "--refill", options.refill,
        "Read the files again of all objects whose rows lack what they could not give before");
    add("compact", "Give the space of deleted rows back", compact);
    auto* const backing = add("backup", "Copy the database into a new file", backup);
    backing->add_option("file", options.file, "The file; it must not be there yet")->required();
    // The callback of the command itself comes behind that of what is below it.
    auto* const jobs = app.add_subcommand("jobs", "List the server's jobs, a line each, or change one");
    const auto addJobs = [&](const char* name, const char* what, int (*function)(const Options&)) {
        auto* sub = jobs->add_subcommand(name, what);
        sub->callback([&command, function] { command = function; });
        return sub;
    };
    jobs->require_subcommand(0, 1)->callback([&command] {
        if (command == nullptr)
            command = listJobs;
    });
    addJobs("retry", "Have a job tried at once", retryJobs)
        ->add_option("number", options.job, "The job's number, or all")
        ->required();
    addJobs("drop", "Remove a job for good", dropJob)
        ->add_option("number", options.job, "The job's number")
        ->required();
    addCopy(*add("copy", "Copy one data source's database into the empty one of another", copy),
            options.copy);

    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        return "tessaly-db: " + tool::printable(tool::oneLine(error.what())) + '\n';
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& end) {  // or the help that was asked for
        return app.exit(end);
    }
    return command(options);
}

}  // namespace

int main(int argc, char** argv) {
    umask(S_IRWXG | S_IRWXO);  // what is made here holds passwords and patients' names
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow any more fails its write
    try {
        return run(argc, argv);
    } catch (const db::Stopped&) {
        std::cerr << "tessaly-db: " << tool::InterruptGuard::Message << '\n';
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "tessaly-db: " << tool::printable(tool::oneLine(error.what())) << '\n';
        return 1;
    }
}
