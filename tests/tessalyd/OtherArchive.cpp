#include "tests/tessalyd/OtherArchive.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>
#include <memory>
#include <stdexcept>

#include "tests/support/UnusedPort.h"
#include "tests/tessalyd/Daemon.h"

using namespace Qt::StringLiterals;

namespace tessaly::test {

OtherArchive::OtherArchive(const QString& folder, const QString& aeTitle, const QString& serverPort,
                           const QString& dicomPort, const QStringList& syntaxes)
    : port_(unusedPort()) {
    QDir{}.mkpath(folder);
    QFile config{folder + u"/configuration.json"_s};
    if (!config.open(QIODevice::WriteOnly))
        throw std::runtime_error("no configuration for Orthanc");
    config.write(
        uR"({"Name": "peer", "StorageDirectory": "%1", "IndexDirectory": "%1", "HttpPort": %2,
             "DicomServerEnabled": %5, "DicomPort": %6, "RemoteAccessAllowed": false, "DicomAet": "%3",
             "DicomModalities": {"tessaly": ["TESSALY", "127.0.0.1", %4]}, "Plugins": []%7})"_s
            .arg(folder, port_, aeTitle, serverPort, dicomPort.isEmpty() ? u"false"_s : u"true"_s,
                 dicomPort.isEmpty() ? u"4242"_s : dicomPort,
                 syntaxes.isEmpty()
                     ? QString{}
                     : uR"(, "AcceptedTransferSyntaxes": ["%1"])"_s.arg(syntaxes.join(uR"(", ")"_s)))
            .toUtf8());
    config.close();
    process_.start(u"/usr/sbin/Orthanc"_s, {config.fileName()});
    if (!QTest::qWaitFor([this] { return !ask(u"system"_s).isEmpty(); }, PatienceMs))
        throw std::runtime_error("Orthanc does not start");
}

OtherArchive::~OtherArchive() {
    process_.terminate();
    if (!process_.waitForFinished(PatienceMs))
        QTest::qFail("Orthanc does not end", __FILE__, __LINE__);
}

QByteArray OtherArchive::ask(const QString& path, const QByteArray& body) const {
    QNetworkAccessManager network;
    QNetworkRequest request{QUrl{u"http://127.0.0.1:%1/%2"_s.arg(port_, path)}};
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/octet-stream"_s);
    const std::unique_ptr<QNetworkReply> reply{body.isEmpty() ? network.get(request)
                                                              : network.post(request, body)};
    const bool done = QTest::qWaitFor([&reply] { return reply->isFinished(); }, PatienceMs);
    return done && reply->error() == QNetworkReply::NoError ? reply->readAll() : QByteArray{};
}

}  // namespace tessaly::test
