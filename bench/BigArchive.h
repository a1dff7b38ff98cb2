#pragma once

#include <string>

namespace tessaly::bench {

/// A generated archive: the tables in `database`, the files below `root`. Every patient has two studies,
/// every study five series, every series a hundred images, which share ten files.
struct BigArchive {
    std::string database;
    std::string root;
    int images;

    static constexpr int ImagesPerSeries = 100;
    static constexpr int FilesPerSeries = 10;
    static constexpr int SeriesPerStudy = 5;
    static constexpr int StudiesPerPatient = 2;

    [[nodiscard]] int series() const { return images / ImagesPerSeries; }
    [[nodiscard]] int studies() const { return series() / SeriesPerStudy; }
    [[nodiscard]] int patients() const { return studies() / StudiesPerPatient; }

    /// The database with its tables, patients and studies.
    void writeStudies() const;
    /// The same with series and images.
    void writeTables() const;
    void writeFiles() const;
    /// Deletes the files of every tenth patient.
    void loseFiles() const;

  private:
    [[nodiscard]] std::string folderOf(int study) const;
};

}  // namespace tessaly::bench
