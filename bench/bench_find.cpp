// How fast queries are answered without a network: from an identifier to the data sets of its answers, over
// archives of 2,000 and of 100,000 studies. Each measurement is a process of its own. Prints a table; judges
// nothing.

#include <dcmtk/dcmdata/dctk.h>

#include "bench/Bench.h"
#include "bench/Measure.h"
#include "schema/Schema.h"
#include "tessalyd/services/query/QueryAnswers.h"

namespace {

using namespace tessaly;
using namespace tessaly::bench;
using namespace tessaly::tessalyd;

constexpr int Rounds = 3;
constexpr int SeriesPerStudy = 2;
constexpr int ImagesPerSeries = 3;

/// Ten patients of each family name, one study each.
void fill(const std::string& file, int studies) {
    sqlite3* handle = openPlain(file);
    runPlain(handle, "PRAGMA synchronous=OFF");
    for (const std::string& statement : schema::statements(schema::engine("SQLite").tables))
        runPlain(handle, statement);
    const std::string count = std::to_string(studies);
    const auto numbers = [](const std::string& most) {
        return "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i+1<" + most + ") ";
    };
    runPlain(handle, "BEGIN");
    runPlain(handle, numbers(count) +
                         "INSERT INTO Patient (ID, PatientID, Name, BirthDate, Sex, NameAlphabetic) "
                         "SELECT i+1, 'P'||i, 'FAMILY'||(i/10)||'X^GIVEN'||i, '19700101', 'F', "
                         "'family'||(i/10)||'x^given'||i FROM n");
    runPlain(handle, numbers(count) +
                         "INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath, StudyID, StudyDate, "
                         "StudyTime, AccessionNumber, Description, ReferringPhysicianName) "
                         "SELECT '1.2.826.0.1.3680043.'||i, i+1, '/archive/'||i, 'S'||i, "
                         "strftime('%Y%m%d', '2000-01-01', '+'||(i%7000)||' days'), '101500', 'A'||i, "
                         "'CT THORAX', 'REFERRER^R' FROM n");
    runPlain(handle, numbers(std::to_string(studies * SeriesPerStudy)) +
                         "INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir, Modality, "
                         "SeriesNumber) SELECT '1.2.826.0.1.3680043.'||(i/2)||'.'||(i%2), "
                         "'1.2.826.0.1.3680043.'||(i/2), 's'||i, CASE i%2 WHEN 0 THEN 'CT' ELSE 'SR' END, "
                         "i%2 FROM n");
    runPlain(handle,
             numbers(std::to_string(studies * SeriesPerStudy * ImagesPerSeries)) +
                 "INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile, SOPClassUID, "
                 "TransferSyntaxUID, InstanceNumber, NumberInSeries) "
                 "SELECT '1.2.826.0.1.3680043.'||(i/6)||'.'||(i/3%2)||'.'||(i%3), "
                 "'1.2.826.0.1.3680043.'||(i/6)||'.'||(i/3%2), i||'.dcm', '1.2.840.10008.5.1.4.1.1.2', "
                 "'1.2.840.10008.1.2.1', i%3, i%3 FROM n");
    runPlain(handle, "COMMIT");
    sqlite3_close(handle);
}

/// What a workstation asks for.
DcmDataset identifier(const DcmTagKey& key, const std::string& value) {
    DcmDataset dataset;
    dataset.putAndInsertString(DCM_QueryRetrieveLevel, "STUDY");
    for (const DcmTagKey& tag :
         {DCM_PatientName, DCM_PatientID, DCM_PatientBirthDate, DCM_PatientSex, DCM_StudyInstanceUID,
          DCM_StudyDate, DCM_StudyTime, DCM_AccessionNumber, DCM_StudyID, DCM_StudyDescription,
          DCM_ModalitiesInStudy, DCM_NumberOfStudyRelatedSeries, DCM_NumberOfStudyRelatedInstances})
        dataset.insertEmptyElement(tag);
    dataset.putAndInsertString(key, value.c_str());
    return dataset;
}

/// A number of the archive, all over it.
std::string numbered(const char* before, int i, int studies, const char* behind = "") {
    std::string text{before};
    return text.append(std::to_string(i * 7919LL % studies)).append(behind);
}

struct Session {
    explicit Session(const std::string& file) {
        connection.setConnectString(connectStringOf(file));
        connection.establish();
    }
    std::size_t ask(DcmDataset question) {
        QueryAnswers answers{readQuery(question, InformationModel::StudyRoot, {}), "TESSALY"};
        std::size_t count = 0;
        while (readNext(answers, statements))
            count += answers.answer().isEmpty() ? 0 : 1;
        return count;
    }
    db::Connection connection;
    db::StatementCache statements{connection};
};

struct Work {
    const char* name;
    int requests;
    std::size_t (*run)(const std::string& file, int studies, int requests);
};

std::size_t exactStudies(const std::string& file, int studies, int requests) {
    Session session{file};
    std::size_t answers = 0;
    for (int i = 0; i < requests; ++i)
        answers +=
            session.ask(identifier(DCM_StudyInstanceUID, numbered("1.2.826.0.1.3680043.", i, studies)));
    return answers;
}

std::size_t exactPatients(const std::string& file, int studies, int requests) {
    Session session{file};
    std::size_t answers = 0;
    for (int i = 0; i < requests; ++i)
        answers += session.ask(identifier(DCM_PatientID, numbered("P", i, studies)));
    return answers;
}

std::size_t wildcards(const std::string& file, int studies, int requests) {
    Session session{file};
    std::size_t answers = 0;
    for (int i = 0; i < requests; ++i)
        answers += session.ask(identifier(DCM_PatientName, numbered("FAMILY", i, studies / 10, "X^*")));
    return answers;
}

std::size_t leadingWildcards(const std::string& file, int studies, int requests) {
    Session session{file};
    std::size_t answers = 0;
    for (int i = 0; i < requests; ++i)
        answers += session.ask(identifier(DCM_PatientName, numbered("*N", i, studies)));
    return answers;
}

std::size_t everything(const std::string& file, int, int requests) {
    Session session{file};
    std::size_t answers = 0;
    for (int i = 0; i < requests; ++i)
        answers += session.ask(identifier(DCM_StudyInstanceUID, ""));
    return answers;
}

void measureAll() {
    const TemporaryFolder folder;
    std::printf("%-30s %8s %12s %12s %16s %8s\n", "work", "studies", "requests/s", "answers/s",
                "processor us", "MB");
    for (const int studies : {2000, 100000}) {
        const std::string file = folder.path + "/" + std::to_string(studies) + ".db";
        inChild([&] {
            fill(file, studies);
            return 0;
        });
        const int some = studies == 2000 ? 10 : 2;
        const std::array works{
            Work{"exact study", 10000, exactStudies},
            Work{"exact patient", 10000, exactPatients},
            Work{"beginning of a name, 10 hits", 2000, wildcards},
            Work{"end of a name", some, leadingWildcards},
            Work{"all studies", some, everything},
        };
        for (const Work& work : works) {
            Result best;
            for (int round = 0; round < Rounds; ++round) {
                const Result result =
                    inChild([&] { return measure([&] { return work.run(file, studies, work.requests); }); });
                best = round == 0 ? result : better(best, result);
            }
            std::printf("%-30s %8d %12.1f %12.0f %16.1f %8.1f\n", work.name, studies,
                        work.requests / best.seconds, static_cast<double>(best.proof) / best.seconds,
                        best.processor * 1e6 / work.requests, best.megabytes);
            std::fflush(stdout);
        }
    }
}

}  // namespace

int main() {
    return tessaly::runBench([&] { measureAll(); });
}
