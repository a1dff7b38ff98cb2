#include "tests/console/maintenance/Archive.h"

#include <QDir>
#include <QFile>
#include <stdexcept>

namespace tessaly::test {

using namespace Qt::StringLiterals;

void Archive::addPatient(int id) const {
    database_.run(u"INSERT INTO Patient (ID, PatientID) VALUES (?, ?)"_s, {id, QString::number(id)});
}

void Archive::addStudy(const QString& uid, int patient) const {
    // As the server joins it: the parts of a stored path are joined with backslashes.
    database_.run(u"INSERT INTO Study (StudyInstanceUID, IDPatient, StudyPath) VALUES (?, ?, ?)"_s,
                  {uid, patient, QString{database_.imageRoot() + u'\\' + uid}});
}

void Archive::addSeries(const QString& uid, const QString& study) const {
    database_.run(u"INSERT INTO Series (SeriesInstanceUID, StudyInstanceUID, SeriesDir) VALUES (?, ?, ?)"_s,
                  {uid, study, uid});
}

void Archive::addImage(const QString& uid, const QString& series) const {
    database_.run(u"INSERT INTO Image (SOPInstanceUID, SeriesInstanceUID, ImageFile) VALUES (?, ?, ?)"_s,
                  {uid, series, uid});
}

void Archive::addFile(const QString& study, const QString& series, const QString& image) const {
    const QDir folder{database_.imageRoot() + u'/' + study + u'/' + series};
    folder.mkpath(u"."_s);
    QFile file{folder.filePath(image)};
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("cannot write an image file");
}

void Archive::addWholePatient(int id, int studies) const {
    addPatient(id);
    for (int s = 1; s <= studies; ++s) {
        const QString study = u"%1.%2"_s.arg(id).arg(s);
        addStudy(study, id);
        for (const QString& series : {study + u".1"_s, study + u".2"_s}) {
            addSeries(series, study);
            for (const QString& image : {series + u".1"_s, series + u".2"_s}) {
                addImage(image, series);
                addFile(study, series, image);
            }
        }
    }
}

QStringList Archive::keys() const {
    QStringList found;
    for (const QStringList& row :
         database_.rows(u"SELECT 'image ' || SOPInstanceUID FROM Image UNION ALL "
                        "SELECT 'series ' || SeriesInstanceUID FROM Series UNION ALL "
                        "SELECT 'study ' || StudyInstanceUID FROM Study UNION ALL "
                        "SELECT 'patient ' || ID FROM Patient"_s))
        found << row.first();
    found.sort();
    return found;
}

}  // namespace tessaly::test
