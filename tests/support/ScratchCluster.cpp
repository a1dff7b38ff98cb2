#include "tests/support/ScratchCluster.h"

#include <fcntl.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStorageInfo>
#include <QThread>
#include <cerrno>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/support/Eventually.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

bool promisesAreKept = false;

/// The server refuses to be root's.
bool isRoot() {
    return geteuid() == 0;
}

QStringList asOwner() {
    return isRoot() ? QStringList{u"--reuid=nobody"_s, u"--regid=nogroup"_s, u"--clear-groups"_s}
                    : QStringList{};
}

/// Where the cluster's folder goes. Making a database is the copying of 300 files, which a file system in
/// memory does in a tenth of the time. Folders of processes that have crashed are cleared away there.
QString place() {
    const QDir memory{u"/dev/shm"_s};
    constexpr qint64 Room = 512LL << 20;
    const QStorageInfo storage{memory};
    if (promisesAreKept || !QFileInfo{memory.path()}.isWritable() || storage.fileSystemType() != "tmpfs" ||
        storage.bytesAvailable() < Room)
        return QDir::tempPath() + u"/tessaly-cluster-XXXXXX"_s;
    for (const QString& folder : memory.entryList({u"tessaly-cluster-*"_s}, QDir::Dirs)) {
        const pid_t process = folder.section(u'-', 2, 2).toInt();
        if (process > 0 && kill(process, 0) != 0 && errno == ESRCH)
            QDir{memory.filePath(folder)}.removeRecursively();
    }
    return memory.filePath(u"tessaly-cluster-%1-XXXXXX"_s.arg(getpid()));
}

[[noreturn]] void fail(const QString& what) {
    throw std::runtime_error(what.toStdString());
}

}  // namespace

void ScratchCluster::keepPromises() {
    promisesAreKept = true;
}

ScratchCluster& ScratchCluster::instance() {
    static ScratchCluster cluster;
    return cluster;
}

ScratchCluster::ScratchCluster() : folder_(place()) {
    if (isRoot()) {
        const passwd* owner = getpwnam("nobody");
        if (owner == nullptr || chown(folder_.path().toUtf8().constData(), owner->pw_uid, owner->pw_gid) != 0)
            fail(u"the cluster's folder cannot be given away"_s);
    }
    const QStringList unpack{u"tar"_s, u"-C"_s, folder_.path(), u"-xf"_s, u"-"_s};
    QProcess tar;
    tar.setStandardInputFile(QStringLiteral(TESSALY_CLUSTER));
    tar.start(u"setpriv"_s, asOwner() + unpack);
    if (!tar.waitForFinished(PatienceMs) || tar.exitCode() != 0)
        fail(u"the cluster cannot be unpacked: "_s + QString::fromUtf8(tar.readAllStandardError()));
    start();
}

ScratchCluster::~ScratchCluster() {
    stop();
}

QByteArray ScratchCluster::connection(const QString& database, const QString& role) const {
    return u"host='%1' dbname='%2' user='%3'"_s.arg(address(), database, role).toUtf8();
}

void ScratchCluster::start() {
    // The server passes over the signal of a file that grows too much; its system call fails.
    const QStringList limited =
        fileLimit_ ? QStringList{u"prlimit"_s, u"--fsize=%1"_s.arg(*fileLimit_)} : QStringList{};
    // The kernel ends the server when this process ends, even by a crash.
    QStringList words =
        QStringList{u"setpriv"_s, u"--pdeathsig"_s, u"QUIT"_s} + asOwner() + limited +
        QStringList{QStringLiteral(TESSALY_POSTGRES), u"-D"_s, address() + u"/data"_s, u"-k"_s, address()};
    if (promisesAreKept) {
        for (const QString& setting : {u"fsync=on"_s, u"full_page_writes=on"_s, u"shared_buffers=128MB"_s,
                                       u"max_wal_size=1GB"_s, u"max_connections=100"_s, u"autovacuum=on"_s})
            words << u"-c"_s << setting;
    }
    std::vector<QByteArray> texts;
    texts.reserve(static_cast<std::size_t>(words.size()));
    for (const QString& word : words)
        texts.push_back(word.toUtf8());
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (QByteArray& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const QByteArray log = (address() + u"/log"_s).toUtf8();
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, log, O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    const int spawned = posix_spawnp(&server_, "setpriv", &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (spawned != 0)
        fail(u"the cluster cannot be started"_s);

    const QByteArray target = connection(u"template1"_s);
    QElapsedTimer waiting;
    waiting.start();
    while (PQping(target.constData()) != PQPING_OK) {
        if (waitpid(server_, nullptr, WNOHANG) != 0 || waiting.hasExpired(PatienceMs)) {
            QFile text{QString::fromUtf8(log)};
            fail(u"the cluster does not start: "_s +
                 (text.open(QIODevice::ReadOnly) ? QString::fromUtf8(text.readAll()) : QString{}));
        }
        QThread::msleep(5);
    }
}

void ScratchCluster::stop() {
    if (server_ == 0)
        return;
    kill(server_, SIGINT);
    waitpid(server_, nullptr, 0);
    server_ = 0;
}

void ScratchCluster::restart() {
    stop();
    start();
}

void ScratchCluster::administer(const QString& statement, const QString& database) const {
    const std::unique_ptr<PGconn, decltype(&PQfinish)> session{
        PQconnectdb(connection(database, u"postgres"_s).constData()), PQfinish};
    const std::unique_ptr<PGresult, decltype(&PQclear)> result{
        PQexec(session.get(), statement.toUtf8().constData()), PQclear};
    const auto status = PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        fail(statement + u": "_s + QString::fromUtf8(PQerrorMessage(session.get())));
}

void ScratchCluster::limitFiles(std::optional<long> bytes) {
    stop();
    fileLimit_ = bytes;
    start();
}

void ScratchCluster::fillDiskOf(const QString& database, const QString& table) {
    const std::unique_ptr<PGconn, decltype(&PQfinish)> session{PQconnectdb(connection(database).constData()),
                                                               PQfinish};
    const std::unique_ptr<PGresult, decltype(&PQclear)> result{
        PQexec(session.get(), u"SELECT pg_relation_filepath('%1')"_s.arg(table).toUtf8().constData()),
        PQclear};
    const QString file = address() + u"/data/"_s + QString::fromUtf8(PQgetvalue(result.get(), 0, 0));
    stop();
    if (QFileInfo{file}.size() != 0 || !QFile::remove(file) || !QFile::link(u"/dev/full"_s, file))
        fail(table + u" cannot be given to a full device"_s);
    start();
}

QString ScratchCluster::makeDatabase(bool seeded) {
    QString name = u"scratch%1"_s.arg(++databases_);
    // Copying files is quicker than logging them, and there is nothing to be flushed. Nobody is connected to
    // what is copied, which is why the administrator's session is template1's.
    administer(u"CREATE DATABASE %1 OWNER %2 TEMPLATE %3 STRATEGY file_copy"_s.arg(
        name, Owner, seeded ? u"seed"_s : u"template0"_s));
    return name;
}

void ScratchCluster::dropDatabase(const QString& name) const {
    administer(u"DROP DATABASE %1 WITH (FORCE)"_s.arg(name));
}

}  // namespace tessaly::test
