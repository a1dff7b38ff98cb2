#include <QFile>
#include <QTest>
#include <set>

#include "tests/support/Eventually.h"
#include "tests/tessalyd/DaemonTest.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;

/// Many objects from many clients at once, and the server's death among them.
class LoadTest : public DaemonTest {
    Q_OBJECT

  private Q_SLOTS:
    void initTestCase();
    void everyObjectOfEightClientsArrives();
    void aKilledServerHasNoRowWithoutAFile();

  private:
    static constexpr int Clients = 8;
    static constexpr int ObjectsEach = 125;
    static constexpr qsizetype Objects = qsizetype{Clients} * ObjectsEach;

    [[nodiscard]] QString folder(int client) const { return objects_.filePath(QString::number(client)); }
    [[nodiscard]] QString sent(const QString& instance) const {
        const QStringList parts = instance.split(u'.');
        return folder(parts.at(3).toInt()) + u'/' + parts.last() + u".dcm"_s;
    }
    std::vector<std::unique_ptr<QProcess>> startClients();
    void compareImagesWithFiles();

    QTemporaryDir objects_;
};

void LoadTest::initTestCase() {
    for (int client = 0; client < Clients; ++client) {
        QDir{}.mkpath(folder(client));
        const std::string root = std::string{"1.2.3."} + std::to_string(client);
        for (int i = 0; i < ObjectsEach; ++i) {
            // Two clients share a patient, and each client's objects are of two series.
            writeObject({.patientId = std::string{"P"} + std::to_string(client / 2),
                         .study = root,
                         .series = root + "." + std::to_string(i % 2),
                         .instance = root + ".9." + std::to_string(i),
                         .seed = client * ObjectsEach + i},
                        folder(client) + u"/%1.dcm"_s.arg(i));
        }
    }
}

std::vector<std::unique_ptr<QProcess>> LoadTest::startClients() {
    std::vector<std::unique_ptr<QProcess>> clients;
    for (int client = 0; client < Clients; ++client) {
        clients.push_back(std::make_unique<QProcess>());
        clients.back()->start(u"storescu"_s, {u"-aet"_s, u"CLIENT%1"_s.arg(client), u"+sd"_s, u"localhost"_s,
                                              daemon_->port(), folder(client)});
    }
    return clients;
}

/// Every row has its file, which is what was sent, and every file has its row.
void LoadTest::compareImagesWithFiles() {
    const auto images = daemon_->images();
    QStringList files;
    for (const Daemon::Image& image : images) {
        files << image.file;
        QVERIFY2(QFile::exists(image.file), qPrintable(image.file));
        QVERIFY2(dataSetOf(image.file) == dataSetOf(sent(image.instance)), qPrintable(image.instance));
    }
    files.sort();
    QCOMPARE(files.size(), daemon_->database.value(u"SELECT COUNT(*) FROM Image"_s).toInt());
    QCOMPARE(daemon_->files(), files);
}

void LoadTest::everyObjectOfEightClientsArrives() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->launch();
    for (const auto& client : startClients()) {
        QVERIFY(client->waitForFinished(PatienceMs));
        QCOMPARE(client->exitCode(), 0);
    }
    QCOMPARE(daemon_->images().size(), Objects);
    compareImagesWithFiles();
    QCOMPARE(daemon_->database.rows(u"SELECT (SELECT COUNT(*) FROM Patient), (SELECT COUNT(*) FROM Study), "
                                    "(SELECT COUNT(*) FROM Series)"_s),
             (QList<QStringList>{{u"4"_s, u"8"_s, u"16"_s}}));
    EVENTUALLY_COMPARE(daemon_->ends.size(), Clients);
    QCOMPARE(daemon_->connections.size(), Clients);
    std::set<QString> callers;
    for (const Daemon::Event& event : daemon_->connections)
        callers.insert(event.calling);
    QCOMPARE(callers.size(), std::size_t{Clients});
}

void LoadTest::aKilledServerHasNoRowWithoutAFile() {
    daemon_ = std::make_unique<Daemon>();
    daemon_->launch();
    const auto clients = startClients();
    EVENTUALLY(daemon_->database.value(u"SELECT COUNT(*) FROM Image"_s).toInt() > Objects / 4);
    daemon_->kill();
    for (const auto& client : clients)
        QVERIFY(client->waitForFinished(PatienceMs));
    QVERIFY(daemon_->images().size() < Objects);
    // A file of its own that it left half written, besides those that the kill may have left.
    const QString left = QFileInfo{daemon_->images().first().file}.path() + u"/.tessalyd-1-1.part"_s;
    QFile part{left};
    QVERIFY(part.open(QIODevice::WriteOnly));
    QVERIFY(part.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime));
    part.close();

    daemon_->launch();
    for (const Daemon::Image& image : daemon_->images())
        QVERIFY2(QFile::exists(image.file), qPrintable(image.file));
    EVENTUALLY(!QFile::exists(left));
    // The clients send again what they have; what had come through already is replaced.
    for (const auto& client : startClients()) {
        QVERIFY(client->waitForFinished(PatienceMs));
        QCOMPARE(client->exitCode(), 0);
    }
    QCOMPARE(daemon_->images().size(), Objects);
    compareImagesWithFiles();
}

QTEST_GUILESS_MAIN(LoadTest)
#include "tst_load.moc"
