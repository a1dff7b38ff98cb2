#include "tests/tessalyd/forwarding/ftp/DeliveryTest.h"

#include <QDir>
#include <stdexcept>

#include "jobs/JobTable.h"
#include "tessalyd/configuration/Configuration.h"

using namespace Qt::StringLiterals;

namespace tessaly::test {

void DeliveryTest::launchFor(const FtpNode& node, const QStringList& arguments, const QList<PortRow>& ports) {
    daemon_ = std::make_unique<Daemon>(ports);
    const Node viewer = theViewer();
    daemon_->database.run(
        u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query) "
        "VALUES (?, ?, 'TESSALY', '127.0.0.1', ?, 0, -1)"_s,
        {viewer.aeTitle, viewer.aeTitle, viewer.port});
    daemon_->database.run(
        u"INSERT INTO FtpNodes (Name, Host, UserName, UserPwd, Destination, NodeType) "
        "VALUES ('Backup', ?, ?, ?, ?, ?)"_s,
        {node.host, node.user, node.password, node.destination, node.type});
    daemon_->launch(arguments);
}

void DeliveryTest::setNode(const QString& column, const QString& value) const {
    daemon_->database.run(u"UPDATE FtpNodes SET %1=?"_s.arg(column), {value});
}

QStringList DeliveryTest::storeFor(const std::string& called, int count, int first) const {
    RequestorAssociation sender{daemon_->port(), "TESTER", called};
    QStringList uids;
    for (int i = first; i < first + count; ++i) {
        const std::string series = std::string{Study} + (i % 2 == 0 ? ".2" : ".1");
        const ObjectSpec spec{
            .study = Study, .series = series, .instance = series + '.' + std::to_string(i), .seed = i};
        if (sender.store(*makeObject(spec)).status != 0)
            throw std::runtime_error{"an object was not stored"};
        uids << QString::fromStdString(spec.instance);
    }
    sender.release();
    return uids;
}

QMap<QString, QByteArray> DeliveryTest::deliveryOf(const QStringList& uids) const {
    QMap<QString, QByteArray> files;
    QMap<QString, std::pair<int, qsizetype>> sums;
    for (const QString& uid : uids) {
        const QString folder = u"in/%1/%2/"_s.arg(QString::fromLatin1(Study), uid.section(u'.', 0, -2));
        QFile file{fileOf(uid)};
        if (!file.open(QIODevice::ReadOnly))
            throw std::runtime_error{"a file of the archive cannot be read"};
        const QByteArray content = file.readAll();
        files.insert(folder + uid + u".dcm"_s, content);
        ++sums[folder].first;
        sums[folder].second += content.size();
    }
    for (auto sum = sums.begin(); sum != sums.end(); ++sum)
        files.insert(sum.key() + u"complete"_s,
                     QByteArray::number(sum->first) + ' ' + QByteArray::number(sum->second) + '\n');
    return files;
}

QMap<QString, QByteArray> DeliveryTest::filesOf(const ScriptedFtp& server) {
    QMap<QString, QByteArray> files;
    for (const auto& [path, content] : server.files())
        files.insert(QString::fromStdString(path.substr(1)), content);
    return files;
}

QStringList DeliveryTest::jobStates() const {
    QStringList states;
    for (const QStringList& row : daemon_->database.rows(u"SELECT State FROM Job ORDER BY Number"_s))
        states << row.first();
    return states;
}

QString DeliveryTest::lastError() const {
    return daemon_->database.value(u"SELECT LastError FROM Job"_s);
}

QStringList DeliveryTest::spooled() const {
    return QDir{daemon_->database.imageRoot() + u"/.spool"_s}.entryList(QDir::AllEntries | QDir::Hidden |
                                                                        QDir::NoDotAndDotDot);
}

void DeliveryTest::endLeases() const {
    daemon_->database.run(u"UPDATE Job SET Lease=Lease-61"_s);
}

void DeliveryTest::retryAll() const {
    db::Connection connection;
    tessalyd::openDatabase(connection);
    jobs::forEach(connection, [&](const jobs::Job& job) { (void)jobs::retry(connection, job.number); });
}

}  // namespace tessaly::test
