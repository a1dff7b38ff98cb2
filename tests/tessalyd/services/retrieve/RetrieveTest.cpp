#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>

#include <QDir>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

void RetrieveTest::launchWith(const QList<Node>& nodes, int dumpLevel, const Node& viewer) {
    daemon_ = std::make_unique<Daemon>();
    const auto add = [this](const Node& node) {
        daemon_->database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, "
            "Query) VALUES (?, ?, ?, ?, ?, ?, ?)"_s,
            {node.aeTitle, node.aeTitle, node.localAeTitle, node.host, node.port, node.store ? -1 : 0,
             node.query ? -1 : 0});
    };
    add(viewer);
    for (const Node& node : nodes)
        add(node);
    if (dumpLevel != 0)
        daemon_->database.run(u"UPDATE DicomServer SET DumpLevel=?"_s, {dumpLevel});
    daemon_->launch();
}

QStringList RetrieveTest::storeStudy(int count, int side) {
    RequestorAssociation sender{daemon_->port()};
    QStringList uids;
    for (int i = 1; i <= count; ++i) {
        const std::string series = std::string{Study} + (i % 2 == 0 ? ".2" : ".1");
        const ObjectSpec spec{.study = Study,
                              .series = series,
                              .instance = series + '.' + std::to_string(i),
                              .side = side,
                              .seed = i};
        if (sender.store(*makeObject(spec)).status != 0)
            throw std::runtime_error{"an object was not stored"};
        uids << QString::fromStdString(spec.instance);
    }
    sender.release();
    uids.sort();
    return uids;
}

void RetrieveTest::storeFile(const QString& file, const QString& option) {
    const Outcome sent = run(u"storescu"_s, {option, u"localhost"_s, daemon_->port(), file});
    if (sent.exitCode != 0)
        throw std::runtime_error{sent.output.toStdString()};
}

QString RetrieveTest::fileOf(const QString& instance) const {
    for (const Daemon::Image& image : daemon_->images()) {
        if (image.instance == instance)
            return image.file;
    }
    return {};
}

QMap<QString, QByteArray> RetrieveTest::storedDataSets() const {
    QMap<QString, QByteArray> sets;
    for (const Daemon::Image& image : daemon_->images())
        sets[image.instance] = dataSetOf(image.file);
    return sets;
}

QMap<QString, QByteArray> RetrieveTest::dataSetsIn(const QString& folder) {
    QMap<QString, QByteArray> sets;
    for (const QFileInfo& file : QDir{folder}.entryInfoList(QDir::Files)) {
        DcmMetaInfo meta;
        OFString uid;
        if (meta.loadFile(qPrintable(file.filePath())).bad() ||
            meta.findAndGetOFString(DCM_MediaStorageSOPInstanceUID, uid).bad())
            throw std::runtime_error{"no DICOM file: " + file.filePath().toStdString()};
        sets[QString::fromUtf8(uid.c_str())] = dataSetOf(file.filePath());
    }
    return sets;
}

QMap<QString, QByteArray> RetrieveTest::dataSetsOf(const OtherArchive& archive, const QString& folder) {
    QDir{}.mkpath(folder);
    const QByteArrayList ids = archive.ask(u"instances"_s).split('"');
    for (qsizetype i = 1; i < ids.size(); i += 2) {
        QFile file{u"%1/%2"_s.arg(folder).arg(i)};
        if (!file.open(QIODevice::WriteOnly))
            throw std::runtime_error{"cannot write what the other archive has"};
        file.write(archive.ask(u"instances/%1/file"_s.arg(QLatin1StringView{ids[i]})));
    }
    return dataSetsIn(folder);
}

}  // namespace tessaly::test
