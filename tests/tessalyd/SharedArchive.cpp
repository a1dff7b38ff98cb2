#include "tests/tessalyd/SharedArchive.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTest>
#include <chrono>
#include <stdexcept>

#include "tests/tessalyd/Daemon.h"
#include "tests/tessalyd/RequestorAssociation.h"

namespace tessaly::test {

using namespace Qt::StringLiterals;

namespace {

QString readAll(const QString& path) {
    QFile file{path};
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString{};
}

}  // namespace

SharedArchive::SharedArchive(int servers) {
    roots_ = {database.imageRoot(), database.folder() + u"/other"_s};
    QDir{}.mkpath(roots_.back());
    database.run(u"DELETE FROM Port"_s);
    for (const QString& root : roots_) {
        ports_.push_back(unusedPort());
        database.run(u"INSERT INTO Port (Port, AETitle, MaxConnections, Root) VALUES (?, 'TESSALY', 60, ?)"_s,
                     {ports_.back(), root});
    }
    for (int i = 0; i < servers; ++i) {
        servers_.push_back(std::make_unique<Server>());
        servers_.back()->log = database.folder() + u"/server%1.log"_s.arg(i + 1);
    }
}

SharedArchive::~SharedArchive() {
    for (const auto& server : servers_)
        if (server->process.state() != QProcess::NotRunning)
            server->process.terminate();
    for (const auto& server : servers_) {
        const bool ended =
            server->process.state() == QProcess::NotRunning || server->process.waitForFinished(PatienceMs);
        if (!server->killed && (!ended || server->process.exitStatus() != QProcess::NormalExit ||
                                server->process.exitCode() != 0))
            QTest::qFail("a server did not end well", __FILE__, __LINE__);
        if (QTest::currentTestFailed())
            qInfo().noquote() << "log of a server:\n" << readAll(server->log) << server->process.readAll();
    }
}

void SharedArchive::launch(int server, const QStringList& arguments) {
    Server& one = *servers_.at(static_cast<std::size_t>(server));
    QFile::remove(one.log);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, one.bus.address());
    one.process.setProcessEnvironment(environment);
    one.process.setProcessChannelMode(QProcess::MergedChannels);
    one.killed = false;
    one.process.start(
        QStringLiteral(TESSALY_BINARY_DIR "/tessalyd"),
        QStringList{u"--log-file"_s, one.log, u"--listen"_s, u"127.0.0.%1"_s.arg(server + 1)} + arguments);
    const auto listens = [&one] {
        return readAll(one.log).contains(u"listening on 2 of 2 ports"_s) ||
               one.process.state() == QProcess::NotRunning;
    };
    if (!QTest::qWaitFor(listens, PatienceMs) || one.process.state() == QProcess::NotRunning)
        throw std::runtime_error{("a server does not start: " + one.process.readAll()).toStdString()};
}

void SharedArchive::kill(int server) {
    Server& one = *servers_.at(static_cast<std::size_t>(server));
    one.killed = true;
    one.process.kill();
    one.process.waitForFinished(PatienceMs);
}

QString SharedArchive::target(int server, int port) const {
    return u"127.0.0.%1:%2"_s.arg(server + 1).arg(ports_.at(static_cast<std::size_t>(port)));
}

QStringList SharedArchive::files() const {
    QStringList found;
    for (const QString& root : roots_)
        for (QDirIterator entry{root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories};
             entry.hasNext();)
            found << entry.next();
    found.sort();
    return found;
}

QStringList SharedArchive::temporaryFiles() const {
    return files().filter(u"/.tessalyd-"_s);
}

Senders::Senders(const SharedArchive& archive, int senders,
                 const std::function<std::vector<ObjectSpec>(int)>& objects)
    : running_(senders) {
    for (int sender = 0; sender < senders; ++sender) {
        threads_.emplace_back([this, &archive, sender, own = objects(sender)] {
            send(archive, sender, own);
            --running_;
        });
    }
}

Senders::~Senders() {
    givenUp_ = true;
    for (std::thread& thread : threads_)
        thread.join();
}

std::map<int, int> Senders::refusals() const {
    const std::lock_guard lock{mutex_};
    return refusals_;
}

void Senders::send(const SharedArchive& archive, int sender, const std::vector<ObjectSpec>& objects) {
    std::unique_ptr<RequestorAssociation> association;
    int server = sender;
    for (std::size_t next = 0; next < objects.size() && !givenUp_;) {
        if (!association)
            association = std::make_unique<RequestorAssociation>(
                archive.target(server % archive.servers(), sender % 2));
        RequestorAssociation::Answer answer;
        try {
            if (association->isOpen())
                answer = association->store(*makeObject(objects[next]));
        } catch (const std::runtime_error&) {  // the connection broke while it was sent
        }
        if (answer.arrived && answer.status == 0) {
            ++acknowledged_;
            const std::lock_guard lock{mutex_};
            objects_[objects[next].instance] = objects[next];
            ++next;
        } else if (answer.arrived) {
            const std::lock_guard lock{mutex_};
            ++refusals_[answer.status];
        } else {
            association.reset();
            ++server;
        }
        if (!answer.arrived || answer.status != 0)  // as senders do
            std::this_thread::sleep_for(std::chrono::milliseconds{20});
    }
    try {
        if (association && association->isOpen())
            association->release();
    } catch (const std::runtime_error&) {  // its server was killed in this moment: all is stored that it sent
    }
}

void compareWithArchive(const std::map<std::string, ObjectSpec>& objects, const SharedArchive& archive) {
    const auto rows = archive.database.rows(
        u"SELECT Image.SOPInstanceUID, Study.StudyPath, Series.SeriesDir, Image.ImageFile "
        "FROM Image, Series, Study, Patient WHERE Series.SeriesInstanceUID=Image.SeriesInstanceUID "
        "AND Study.StudyInstanceUID=Series.StudyInstanceUID AND Patient.ID=Study.IDPatient"_s);
    QCOMPARE(rows.size(), static_cast<qsizetype>(objects.size()));
    QCOMPARE(archive.database.value(u"SELECT COUNT(*) FROM Image"_s).toInt(),
             static_cast<int>(objects.size()));
    const QTemporaryDir sent;
    const QString copy = sent.filePath(u"sent.dcm"_s);
    QStringList files;
    for (const QStringList& row : rows) {
        const auto object = objects.find(row.at(0).toStdString());
        QVERIFY2(object != objects.end(), qPrintable(row.at(0)));
        files << row.mid(1).join(u'\\').replace(u'\\', u'/');
        QVERIFY2(QFile::exists(files.last()), qPrintable(files.last()));
        QVERIFY2(dataSetOf(files.last()) == dataSetOf(writeObject(object->second, copy)),
                 qPrintable(row.at(0)));
    }
    files.sort();
    QCOMPARE(archive.files(), files);
}

}  // namespace tessaly::test
