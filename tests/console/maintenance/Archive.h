#pragma once

#include <QString>

#include "tests/support/ScratchDatabase.h"

namespace tessaly::test {

/// Rows of the archive in a scratch database, and their files below its image root.
class Archive {
  public:
    explicit Archive(const ScratchDatabase& database) : database_(database) {}

    void addPatient(int id) const;
    /// Study `uid` in the folder of the same name below the image root.
    void addStudy(const QString& uid, int patient) const;
    void addSeries(const QString& uid, const QString& study) const;
    /// The row alone; the file is named like the image.
    void addImage(const QString& uid, const QString& series) const;
    /// The file of an image, with every folder above it.
    void addFile(const QString& study, const QString& series, const QString& image) const;

    /// One patient with that many studies of two series of two images, all of whose files are there.
    void addWholePatient(int id, int studies) const;

    /// Keys of all rows, table by table: what a pass has left.
    [[nodiscard]] QStringList keys() const;

  private:
    const ScratchDatabase& database_;
};

}  // namespace tessaly::test
