#pragma once

// What the benches of storing share: CT images of 33 KB, and senders of another product.

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/tessalyd/Objects.h"

namespace tessaly::bench {

using namespace Qt::StringLiterals;

inline constexpr int Senders = 8;
inline constexpr int Batches = 5;  // beyond the first for the memory alone
inline constexpr int Part = 250;   // objects of one sender in one batch

/// The toolkit turns Nagle's algorithm off where the variable is set: in this process and those it starts.
enum class Tcp { AsItComes, NoDelay };
inline void set(Tcp tcp) {
    if (tcp == Tcp::NoDelay)
        qputenv("TCP_NODELAY", "1");
    else
        qunsetenv("TCP_NODELAY");
}

/// CT images of 33 KB: folders of batches, in them folders of senders.
class Objects {
  public:
    explicit Objects(int batches = Batches) {
        constexpr int Side = 128;
        for (int batch = 0; batch < batches; ++batch) {
            for (int sender = 0; sender < Senders; ++sender) {
                QDir{}.mkpath(folder(batch, sender));
                const std::string study = "1.2.3." + std::to_string(batch) + '.' + std::to_string(sender);
                for (int i = 0; i < Part; ++i) {
                    test::writeObject({.patientId = 'P' + std::to_string(sender),
                                       .study = study,
                                       .series = study + ".1",
                                       .instance = study + ".1." + std::to_string(i),
                                       .side = Side,
                                       .seed = i},
                                      folder(batch, sender) + u"/%1.dcm"_s.arg(i));
                }
            }
        }
    }
    [[nodiscard]] QString folder(int batch) const { return folder_.filePath(QString::number(batch)); }
    [[nodiscard]] QString folder(int batch, int sender) const { return folder(batch) + u"/%1"_s.arg(sender); }

  private:
    QTemporaryDir folder_;
};

inline double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Sends each folder, with all below it, over an association of its own, all at once; returns the seconds.
inline double send(const QString& port, const QStringList& folders) {
    return secondsOf([&] {
        std::vector<std::unique_ptr<QProcess>> senders;
        for (const QString& folder : folders) {
            senders.push_back(std::make_unique<QProcess>());
            senders.back()->start(u"storescu"_s,
                                  {u"-aec"_s, u"ORTHANC"_s, u"+sd"_s, u"+r"_s, u"localhost"_s, port, folder});
        }
        for (const auto& sender : senders) {
            if (!sender->waitForFinished(-1) || sender->exitCode() != 0)
                throw std::runtime_error("a sender failed: " + sender->readAllStandardError().toStdString());
        }
    });
}

/// Whatever was stored stays until the end: while many files are being deleted, and for some seconds after,
/// some file systems take long to make new ones.
template <class Receiver>
Receiver& keep(std::unique_ptr<Receiver> receiver) {
    static std::vector<std::unique_ptr<Receiver>> kept;
    return *kept.emplace_back(std::move(receiver));
}

}  // namespace tessaly::bench
