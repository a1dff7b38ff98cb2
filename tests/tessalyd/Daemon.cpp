#include "tests/tessalyd/Daemon.h"

#include <QDirIterator>
#include <QFile>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

const QString Service = u"org.tessaly.Server"_s;

QStringList below(const QString& folder, QDir::Filters filters) {
    QStringList found;
    for (QDirIterator entry{folder, filters | QDir::Hidden | QDir::NoDotAndDotDot,
                            QDirIterator::Subdirectories};
         entry.hasNext();)
        found << entry.next();
    found.sort();
    return found;
}

}  // namespace

Outcome run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(PatienceMs))
        return {};
    return {.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            .output = QString::fromLocal8Bit(process.readAll())};
}

Daemon::Daemon(const QList<PortRow>& ports)
    : proxy(Service, u"/org/tessaly/Server"_s, QDBusConnection::sessionBus()), ports_(ports) {
    database.run(u"DELETE FROM Port"_s);
    for (const PortRow& port : ports_) {
        database.run(u"INSERT INTO Port VALUES (?, ?, ?, ?, ?, ?, ?)"_s,
                     {port.port, port.aeTitle, port.maxConnections,
                      port.root.isEmpty() ? database.imageRoot() : port.root, port.checkCalling,
                      port.checkCalled, port.saveCompressed});
    }
    process.setProcessChannelMode(QProcess::MergedChannels);
    using Proxy = OrgTessalyServer1Interface;
    const auto collect = [](QList<Event>& events) {
        return [&events](const QString& port, const QString& calling, const QString& called, int total) {
            events << Event{.port = port, .calling = calling, .called = called, .total = total};
        };
    };
    QObject::connect(&proxy, &Proxy::OnConnection, &proxy, collect(connections));
    QObject::connect(&proxy, &Proxy::OnEndConnection, &proxy, collect(ends));
    QObject::connect(&proxy, &Proxy::OnStart, &proxy, [this] { ++starts; });
    QObject::connect(&proxy, &Proxy::OnStop, &proxy, [this] { ++stops; });
}

Daemon::~Daemon() {
    const bool well = killed_ || (process.state() == QProcess::NotRunning ? endedWell() : terminate());
    if (process.state() != QProcess::NotRunning)
        kill();
    if (!well)
        QTest::qFail("the server did not end well", __FILE__, __LINE__);
    if (QTest::currentTestFailed())
        qInfo().noquote() << "log of the server:\n" << log() << process.readAll();
}

void Daemon::launch(const QStringList& arguments) {
    const int before = starts;
    killed_ = false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_STATE_HOME"_s, stateFolder());
    if (const QString systemBus = u"DBUS_SYSTEM_BUS_ADDRESS"_s; !environment.contains(systemBus))
        environment.insert(systemBus, u"unix:path=/nowhere"_s);  // the machine's is not the test's to change
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"),
                  QStringList{u"--log-file"_s, logFile()} + arguments);
    const auto isUp = [this, before] {
        return starts > before || process.state() == QProcess::NotRunning ||
               log().contains(u"not listening"_s);
    };
    if (!QTest::qWaitFor(isUp, PatienceMs) || process.state() == QProcess::NotRunning)
        throw std::runtime_error{("the server does not start: " + process.readAll()).toStdString()};
}

void Daemon::kill() {
    killed_ = true;
    process.kill();
    process.waitForFinished(PatienceMs);
}

bool Daemon::succeeds(QDBusPendingReply<> (OrgTessalyServer1Interface::*method)()) {
    QDBusPendingReply<> reply = (proxy.*method)();
    reply.waitForFinished();
    return !reply.isError();
}

bool Daemon::terminate() {
    if (!succeeds(&OrgTessalyServer1Interface::Terminate))
        return false;
    const auto ended = [this] { return process.state() == QProcess::NotRunning; };
    return QTest::qWaitFor(ended, PatienceMs) && endedWell();
}

bool Daemon::endedWell() const {
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

Daemon::Status Daemon::status() {
    Status status;
    const QDBusReply<int> state = proxy.GetStatus(status.open, status.ports);
    if (state.isValid())
        status.state = state;
    return status;
}

QString Daemon::log() const {
    QFile file{logFile()};
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString{};
}

QList<Daemon::Image> Daemon::images() const {
    QList<Image> found;
    const auto rows = database.rows(
        u"SELECT Image.SOPInstanceUID, Study.StudyPath, Series.SeriesDir, Image.ImageFile FROM Image, "
        u"Series, Study "
        "WHERE Series.SeriesInstanceUID=Image.SeriesInstanceUID AND "
        "Study.StudyInstanceUID=Series.StudyInstanceUID"_s);
    for (const QStringList& row : rows)
        found << Image{row.at(0), row.mid(1).join(u'\\').replace(u'\\', u'/')};
    return found;
}

QStringList Daemon::files() const {
    return below(database.imageRoot(), QDir::Files);
}

QStringList Daemon::entries() const {
    return below(database.imageRoot(), QDir::AllEntries);
}

int Daemon::archiveRows() const {
    return database
        .value(
            u"SELECT (SELECT COUNT(*) FROM Patient) + (SELECT COUNT(*) FROM Study) + "
            "(SELECT COUNT(*) FROM Series) + (SELECT COUNT(*) FROM Image)"_s)
        .toInt();
}

}  // namespace tessaly::test
