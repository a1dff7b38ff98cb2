#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <QDir>
#include <QTest>
#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "tessalyd/store/ArchiveIndex.h"
#include "tessalyd/store/ArchiveWriter.h"
#include "tessalyd/store/StoreFailure.h"
#include "tests/support/ScratchDatabase.h"
#include "tests/tessalyd/Objects.h"

using namespace Qt::StringLiterals;
using namespace tessaly::test;
using namespace tessaly::tessalyd;

/// Several stores, of one server or of several, that write the same rows at the same time.
class SharedTablesTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init();
    void cleanup();
    void everyRowIsThereOnce();
    void newPatientsHaveNumbersOfTheirOwn();
    void aNewStudyHasTheFolderOfWhoWasFirst();
    void theSameInstanceIsOneRow();
    void aStudyThatMovesWhileAnObjectComesIsFollowed();
    void changingDescriptionsDoNotStandInEachOthersWay();

  private:
    static constexpr int Servers = 3;
    static constexpr int Stores = 8;  // at a time, of each server

    /// Runs `store` so many times in every thread: (server, thread, turn).
    void storeAtOnce(int times, const std::function<void(ArchiveIndex&, int, int)>& store);
    static ObjectHeader header(const std::string& patient, const std::string& study,
                               const std::string& series, const std::string& instance);
    static void storeOne(ArchiveIndex& index, const ObjectHeader& object, const std::string& root = "/r");
    [[nodiscard]] QStringList counts() const;

    std::unique_ptr<ScratchDatabase> database_;
    std::vector<std::unique_ptr<ArchiveIndex>> servers_;
};

void SharedTablesTest::init() {
    database_ = std::make_unique<ScratchDatabase>();
    for (int i = 0; i < Servers; ++i) {
        servers_.push_back(std::make_unique<ArchiveIndex>());
        servers_.back()->configure(std::chrono::seconds{60}, Stores);
    }
}

void SharedTablesTest::cleanup() {
    servers_.clear();
    database_.reset();
}

ObjectHeader SharedTablesTest::header(const std::string& patient, const std::string& study,
                                      const std::string& series, const std::string& instance) {
    ObjectHeader object;
    object.patientId = patient;
    object.patientName = patient;
    object.studyInstanceUid = study;
    object.seriesInstanceUid = series;
    object.sopInstanceUid = instance;
    return object;
}

void SharedTablesTest::storeOne(ArchiveIndex& index, const ObjectHeader& object, const std::string& root) {
    for (int moves = 0;; ++moves) {
        const auto placement = index.place(object, root);
        try {
            index.record(object, placement->location());
            return;
        } catch (const Displaced&) {
            if (moves == 3)
                throw;
        }
    }
}

void SharedTablesTest::storeAtOnce(int times, const std::function<void(ArchiveIndex&, int, int)>& store) {
    std::atomic<int> failed{0};
    {
        std::vector<std::jthread> threads;
        threads.reserve(std::size_t{Servers} * std::size_t{Stores});
        for (int i = 0; i < Servers * Stores; ++i) {
            threads.emplace_back([&, i] {
                try {
                    for (int turn = 0; turn < times; ++turn)
                        store(*servers_[static_cast<std::size_t>(i % Servers)], i, turn);
                } catch (const StoreFailure& failure) {
                    ++failed;
                    qWarning("%s: %s", failure.what(), failure.detail().c_str());
                }
            });
        }
    }
    QCOMPARE(failed.load(), 0);
}

QStringList SharedTablesTest::counts() const {
    return database_
        ->rows(
            u"SELECT (SELECT COUNT(*) FROM Patient), (SELECT COUNT(*) FROM Study), "
            "(SELECT COUNT(*) FROM Series), (SELECT COUNT(*) FROM Image)"_s)
        .value(0);
}

void SharedTablesTest::everyRowIsThereOnce() {
    constexpr int Turns = 20;
    // All begin the same studies at the same time.
    storeAtOnce(Turns, [](ArchiveIndex& index, int thread, int turn) {
        const std::string study = std::string{"1.2."} + std::to_string(turn);
        storeOne(index, header(std::string{'P'} + std::to_string(turn / 2), study, study + ".1",
                               study + ".1." + std::to_string(thread)));
    });
    QCOMPARE(counts(), (QStringList{u"10"_s, u"20"_s, u"20"_s, u"480"_s}));
    QCOMPARE(database_->value(u"SELECT COUNT(*) FROM Image, Series, Study, Patient "
                              "WHERE Series.SeriesInstanceUID=Image.SeriesInstanceUID "
                              "AND Study.StudyInstanceUID=Series.StudyInstanceUID "
                              "AND Patient.ID=Study.IDPatient"_s),
             u"480"_s);
}

void SharedTablesTest::newPatientsHaveNumbersOfTheirOwn() {
    constexpr int Turns = 10;
    storeAtOnce(Turns, [](ArchiveIndex& index, int thread, int turn) {
        const std::string number = std::to_string(thread) + '.' + std::to_string(turn);
        storeOne(index, header('P' + number, "1.3." + number, "1.4." + number, "1.5." + number));
    });
    QCOMPARE(database_->value(u"SELECT COUNT(DISTINCT IDPatient) FROM Study"_s), u"240"_s);
    QCOMPARE(counts(), (QStringList{u"240"_s, u"240"_s, u"240"_s, u"240"_s}));
}

void SharedTablesTest::aNewStudyHasTheFolderOfWhoWasFirst() {
    constexpr int Turns = 10;
    storeAtOnce(Turns, [](ArchiveIndex& index, int thread, int turn) {
        const std::string study = std::string{"1.2."} + std::to_string(turn);
        storeOne(index, header("P", study, study + ".1", study + ".1." + std::to_string(thread)),
                 std::string{"/root"} + std::to_string(thread));
    });
    QCOMPARE(counts(), (QStringList{u"1"_s, u"10"_s, u"10"_s, u"240"_s}));
    for (const auto& index : servers_) {  // and all know it
        const auto placement = index->place(header("P", "1.2.0", "1.2.0.1", "1.9"), "/other");
        QCOMPARE(QString::fromStdString(placement->location().studyPath),
                 database_->value(u"SELECT StudyPath FROM Study WHERE StudyInstanceUID='1.2.0'"_s));
    }
}

void SharedTablesTest::theSameInstanceIsOneRow() {
    constexpr int Turns = 20;
    storeAtOnce(Turns, [](ArchiveIndex& index, int, int turn) {
        const std::string number = std::to_string(turn);
        storeOne(index, header("P", "1.2", "1.2.1", "1.2.1." + number));
    });
    QCOMPARE(counts(), (QStringList{u"1"_s, u"1"_s, u"1"_s, u"20"_s}));
}

void SharedTablesTest::aStudyThatMovesWhileAnObjectComesIsFollowed() {
    constexpr int Side = 900;  // so much that the file is begun before all of it is there
    const ObjectSpec spec{.side = Side};
    std::vector<char> bytes(std::size_t{4} << 20U);
    DcmOutputBufferStream made{bytes.data(), static_cast<offile_off_t>(bytes.size())};
    const auto object = makeObject(spec);
    object->getDataset()->transferInit();
    QVERIFY(object->getDataset()->write(made, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr).good());
    const auto size = static_cast<std::size_t>(made.tell());

    const QString moved = database_->folder() + u"/moved/study"_s;
    // With folders: roots that are empty although their studies are known would be taken for not mounted.
    QVERIFY(QDir{}.mkpath(moved) && QDir{database_->imageRoot()}.mkpath(QString::fromStdString(spec.study)));
    ArchiveIndex& index = *servers_[0];
    storeOne(index, header("P1", spec.study, "1.2.9", "1.2.9.1"), database_->imageRoot().toStdString());
    PortConfiguration port;
    port.root = database_->imageRoot().toStdString();
    std::vector<char> buffer;
    tessaly::decoder::Pool decoders{{}};
    {
        ArchiveWriter writer{port,
                             index,
                             {.decoders = decoders, .interest = {.stop = {}}},
                             {.sopClassUid = UID_CTImageStorage,
                              .sopInstanceUid = spec.instance,
                              .syntax = EXS_LittleEndianExplicit,
                              .sender = "TESTER"},
                             buffer};
        const std::size_t most = size - 1000;
        writer.take({bytes.data(), most});
        QCOMPARE(QDir{database_->imageRoot()}.entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 1);
        database_->run(u"UPDATE Study SET StudyPath=?"_s, {moved});
        writer.take({bytes.data() + most, size - most});
        writer.finish();
    }
    const QString file = moved + u"/%1/%2.dcm"_s.arg(QString::fromStdString(spec.series),
                                                     QString::fromStdString(spec.instance));
    QCOMPARE(dataSetOf(file), (QByteArray{bytes.data(), static_cast<qsizetype>(size)}));
    QCOMPARE(QDir{database_->imageRoot()}.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{});
    QCOMPARE(counts(), (QStringList{u"1"_s, u"1"_s, u"2"_s, u"2"_s}));
}

void SharedTablesTest::changingDescriptionsDoNotStandInEachOthersWay() {
    constexpr int Turns = 10;
    storeAtOnce(Turns, [](ArchiveIndex& index, int thread, int turn) {
        const std::string number = std::to_string(thread) + '.' + std::to_string(turn);
        // Objects of two studies, each of its own opinion of patient, study and series.
        const std::string study = std::string{"1.2."} + std::to_string((thread + turn) % 2);
        ObjectHeader object = header("P", study, study + ".1", study + ".1." + number);
        object.patientName = object.studyDescription = object.seriesDescription = number;
        storeOne(index, object);
    });
    QCOMPARE(counts(), (QStringList{u"1"_s, u"2"_s, u"2"_s, u"240"_s}));
}

QTEST_GUILESS_MAIN(SharedTablesTest)
#include "tst_sharedtables.moc"
