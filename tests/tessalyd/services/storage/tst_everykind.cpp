#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <algorithm>
#include <set>

#include "dicom/data/StorageClasses.h"
#include "dicom/data/TransferSyntaxes.h"
#include "tests/support/Eventually.h"
#include "tests/tessalyd/services/retrieve/RetrieveTest.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using tessaly::dicom::storageClasses;
using tessaly::dicom::TransferSyntax;
using tessaly::dicom::transferSyntaxes;

namespace {

constexpr const char* Explicit = UID_LittleEndianExplicitTransferSyntax;

/// Makers' own, as the standard has no such root.
const std::vector<std::string> Makers{"1.2.826.0.1.9.1.1", "1.3.99.46.11.0.0.12.1"};

std::vector<std::string> allClasses() {
    std::vector<std::string> classes{Makers};
    for (const auto& one : storageClasses())
        classes.emplace_back(one.uid);
    return classes;
}

}  // namespace

/// Every row of both tables: what can be proposed is taken, and comes back as it came.
class EveryKindTest : public RetrieveTest {
    Q_OBJECT

  private Q_SLOTS:
    void everySyntaxIsTakenAndGivenOut();
    void everyClassIsTakenAndGivenOut();
    void everyClassOfTheToolkitIsKnown();
    void whatHasNoPatientIsRefused();
    void whatTheStandardUsesForSomethingElseIsRefused();
    void aMakersClassIsNamedOnce();
    void aMoveTakesEverySyntaxAlong();

  private:
    /// Stores an object in every syntax of the table.
    [[nodiscard]] QMap<QString, QByteArray> storeEverySyntax() const;
    [[nodiscard]] static std::string instanceOf(std::size_t number) {
        return Study + std::string{".1."} + std::to_string(number + 1);
    }
    static const inline std::vector<AskedKey> TheStudy{{DCM_StudyInstanceUID, Study}};
};

QMap<QString, QByteArray> EveryKindTest::storeEverySyntax() const {
    const auto table = transferSyntaxes();
    std::vector<RequestorAssociation::Context> contexts;
    for (const auto& row : table)
        contexts.push_back({UID_CTImageStorage, {row.uid}});
    RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", contexts};
    QMap<QString, QByteArray> sent;
    for (std::size_t i = 0; i < table.size(); ++i) {
        const int index = static_cast<int>(i);
        if (sender.accepted(index) != table[i].uid)
            throw std::runtime_error{std::string{table[i].name} + " is not accepted"};
        const QByteArray bytes = dataSetIn(TransferSyntax{table[i]}, {.instance = instanceOf(i)});
        const RequestorAssociation::Answer answer = sender.storeBytes(
            index, UID_CTImageStorage, instanceOf(i), {bytes.data(), static_cast<std::size_t>(bytes.size())});
        if (!answer.arrived || answer.status != 0)
            throw std::runtime_error{std::string{table[i].name} + " is not stored: " + answer.comment};
        sent[QString::fromStdString(instanceOf(i))] = bytes;
    }
    sender.release();
    return sent;
}

void EveryKindTest::everySyntaxIsTakenAndGivenOut() {
    launchWith();
    const auto sent = storeEverySyntax();
    QCOMPARE(sent.size(), static_cast<qsizetype>(transferSyntaxes().size()));
    QVERIFY(storedDataSets() == sent);
    std::vector<RequestorAssociation::Context> contexts;
    for (const auto& row : transferSyntaxes())
        contexts.push_back(Retriever::receiving(row.uid));
    Retriever viewer{daemon_->port(), contexts};
    viewer.ask(Retriever::GetStudyRoot, "STUDY", TheStudy);
    const Retrieved got = viewer.collect();
    QCOMPARE(got.status, STATUS_Success);
    QCOMPARE(got.counters.completed, static_cast<int>(transferSyntaxes().size()));
    QVERIFY(got.objects == sent);
    for (std::size_t i = 0; i < contexts.size(); ++i)
        QCOMPARE(got.contexts[QString::fromStdString(instanceOf(i))],
                 Retriever::FirstToReceive + 2 * static_cast<int>(i));
}

void EveryKindTest::everyClassIsTakenAndGivenOut() {
    launchWith();
    const std::vector<std::string> classes = allClasses();
    constexpr std::size_t Most = 100;  // in one association
    for (std::size_t first = 0; first < classes.size(); first += Most) {
        const std::size_t count = std::min(Most, classes.size() - first);
        std::vector<RequestorAssociation::Context> toSend;
        std::vector<RequestorAssociation::Context> toReceive;
        for (std::size_t i = 0; i < count; ++i) {
            toSend.push_back({classes[first + i], {Explicit}});
            toReceive.push_back({classes[first + i], {Explicit}, ASC_SC_ROLE_SCP});
        }
        RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", toSend};
        QMap<QString, QByteArray> sent;
        const std::string study = std::string{Study} + '.' + std::to_string(first);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string& sopClass = classes[first + i];
            const std::string instance = instanceOf(first + i);
            QVERIFY2(sender.accepted(static_cast<int>(i)) == Explicit, sopClass.c_str());
            const QByteArray bytes = dataSetIn(
                TransferSyntax{std::string_view{Explicit}},
                {.study = study, .series = study + ".1", .instance = instance, .sopClass = sopClass});
            const auto answer = sender.storeBytes(static_cast<int>(i), sopClass, instance,
                                                  {bytes.data(), static_cast<std::size_t>(bytes.size())});
            QVERIFY2(answer.arrived && answer.status == 0, sopClass.c_str());
            sent[QString::fromStdString(instance)] = bytes;
        }
        sender.release();
        Retriever viewer{daemon_->port(), toReceive};
        viewer.ask(Retriever::GetStudyRoot, "STUDY", {{DCM_StudyInstanceUID, study}});
        const Retrieved got = viewer.collect();
        QCOMPARE(got.status, STATUS_Success);
        QVERIFY(got.objects == sent);
    }
}

void EveryKindTest::everyClassOfTheToolkitIsKnown() {
    std::set<std::string> known;
    for (const auto& one : storageClasses())
        QVERIFY2(known.insert(one.uid).second, one.uid);
    QVERIFY(numberOfDcmAllStorageSOPClassUIDs > 100);
    for (int i = 0; i < numberOfDcmAllStorageSOPClassUIDs; ++i)
        QVERIFY2(known.contains(dcmAllStorageSOPClassUIDs[i]), dcmAllStorageSOPClassUIDs[i]);
}

void EveryKindTest::whatHasNoPatientIsRefused() {
    launchWith();
    std::vector<RequestorAssociation::Context> contexts;
    for (const char* sopClass :
         {"1.2.840.10008.5.1.4.38.1", "1.2.840.10008.5.1.4.39.1", "1.2.840.10008.5.1.4.43.1",
          "1.2.840.10008.5.1.4.44.1", "1.2.840.10008.5.1.4.45.1", "1.2.840.10008.5.1.4.1.1.200.1",
          "1.2.840.10008.5.1.4.1.1.200.3", "1.2.840.10008.5.1.4.1.1.200.7", "1.2.840.10008.5.1.4.1.1.201.1"})
        contexts.push_back({sopClass, {Explicit}});
    const RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", contexts};
    QVERIFY(sender.isOpen());
    for (std::size_t i = 0; i < contexts.size(); ++i)
        QVERIFY2(sender.accepted(static_cast<int>(i)).empty(), contexts[i].abstractSyntax.c_str());
}

void EveryKindTest::whatTheStandardUsesForSomethingElseIsRefused() {
    launchWith();
    std::vector<RequestorAssociation::Context> contexts;
    for (const char* sopClass :
         {UID_FINDModalityWorklistInformationModel, UID_ModalityPerformedProcedureStepSOPClass,
          UID_RETIRED_StorageCommitmentPullModelSOPClass, UID_RETIRED_PullPrintRequestSOPClass,
          UID_MediaStorageDirectoryStorage, "1.2.840.10008.1.2.1", "1.2.840.10008.3.1.1.1"})
        contexts.push_back({sopClass, {Explicit}});
    const RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", contexts};
    QVERIFY(sender.isOpen());
    for (std::size_t i = 0; i < contexts.size(); ++i)
        QVERIFY2(sender.accepted(static_cast<int>(i)).empty(), contexts[i].abstractSyntax.c_str());
}

void EveryKindTest::aMakersClassIsNamedOnce() {
    launchWith();
    daemon_->database.run(u"UPDATE DicomServer SET LogLevel=2"_s);
    QVERIFY(daemon_->succeeds(&OrgTessalyServer1Interface::Restart));
    const auto store = [this](const std::string& sopClass, int number) {
        RequestorAssociation sender{daemon_->port(), "MODALITY", "TESSALY", {{sopClass, {Explicit}}}};
        const std::string instance = instanceOf(static_cast<std::size_t>(number));
        const QByteArray bytes = dataSetIn(TransferSyntax{std::string_view{Explicit}},
                                           {.instance = instance, .sopClass = sopClass});
        const auto answer =
            sender.storeBytes(0, sopClass, instance, {bytes.data(), static_cast<std::size_t>(bytes.size())});
        sender.release();
        return answer.arrived && answer.status == 0;
    };
    for (int round = 0; round < 2; ++round) {
        QVERIFY(store(Makers[0], 2 * round));
        QVERIFY(store(UID_CTImageStorage, 2 * round + 1));
    }
    QVERIFY(store(Makers[1], 9));
    for (const std::string& sopClass : Makers)
        QCOMPARE(daemon_->log().count(
                     u"the SOP class %1 is none that is known"_s.arg(QString::fromStdString(sopClass))),
                 1);
    QCOMPARE(daemon_->log().count(u"is none that is known"_s), 2);
}

/// To the server's own port: there all of it is taken.
void EveryKindTest::aMoveTakesEverySyntaxAlong() {
    daemon_ = std::make_unique<Daemon>();
    for (const QStringList& node : {QStringList{u"VIEWER"_s, u"104"_s, u"0"_s, u"-1"_s},
                                    QStringList{u"TESSALY"_s, daemon_->port(), u"-1"_s, u"0"_s}})
        daemon_->database.run(
            u"INSERT INTO DicomNodes (Name, AETitle, LocalAETitle, Host, Port, Store, Query) "
            "VALUES (?, ?, 'TESSALY', '127.0.0.1', ?, ?, ?)"_s,
            {node[0], node[0], node[1], node[2].toInt(), node[3].toInt()});
    daemon_->launch();
    const auto sent = storeEverySyntax();
    Retriever viewer{daemon_->port()};
    viewer.ask(Retriever::MoveStudyRoot, "STUDY", TheStudy, "TESSALY");
    const Retrieved moved = viewer.collect();
    QCOMPARE(moved.status, STATUS_Success);
    QCOMPARE(moved.counters.completed, static_cast<int>(transferSyntaxes().size()));
    EVENTUALLY(daemon_->log().contains(u"%1 objects stored, 0 not stored"_s.arg(transferSyntaxes().size())));
    QVERIFY(storedDataSets() == sent);
}

QTEST_GUILESS_MAIN(EveryKindTest)
#include "tst_everykind.moc"
