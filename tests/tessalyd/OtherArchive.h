#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace tessaly::test {

/// Orthanc as a peer that does what it is told over HTTP. It knows the server as "tessaly", called TESSALY.
class OtherArchive {
  public:
    /// Keeps its files in `folder`. With a DICOM port it also takes what is sent to it, in the transfer
    /// syntaxes that it is told, or in all that it knows.
    OtherArchive(const QString& folder, const QString& aeTitle, const QString& serverPort,
                 const QString& dicomPort = {}, const QStringList& syntaxes = {});
    ~OtherArchive();
    OtherArchive(const OtherArchive&) = delete;
    OtherArchive& operator=(const OtherArchive&) = delete;

    /// GET, or POST with a body; empty when it fails.
    [[nodiscard]] QByteArray ask(const QString& path, const QByteArray& body = {}) const;

  private:
    QString port_;
    QProcess process_;
};

}  // namespace tessaly::test
