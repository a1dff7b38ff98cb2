#pragma once

#include <QTest>
#include <chrono>
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tessalyd/forwarding/ftp/Uploader.h"
#include "tests/tessalyd/forwarding/ftp/ScriptedFtp.h"

namespace tessaly::test {

/// What the tests of the uploading client share.
class UploaderTest : public QObject {
    Q_OBJECT

  protected:
    using Reply = std::optional<std::string>;

    static tessalyd::ftp::Node nodeOf(const ScriptedFtp& server) {
        return {.name = "BACKUP",
                .host = server.host().toStdString(),
                .user = ScriptedFtp::User,
                .password = ScriptedFtp::Password,
                .destination = "in box",
                .type = "Quib"};
    }
    static void put(tessalyd::ftp::Uploader& uploader, const std::string& name,
                    std::string_view content = "content") {
        tessalyd::ftp::TextSource source{content};
        uploader.put(source, "1.2/1.2.3", name);
    }
    /// The fault that putting a file ends with.
    static tessalyd::ftp::Fault failing(tessalyd::ftp::Uploader& uploader,
                                        std::string_view content = "content") {
        try {
            put(uploader, "a.dcm", content);
        } catch (const tessalyd::ftp::Fault& fault) {
            return fault;
        }
        throw std::logic_error{"the file was put"};
    }
    static tessalyd::ftp::Fault failing(const ScriptedFtp& server) {
        tessalyd::ftp::Uploader uploader{
            nodeOf(server), std::stop_token{}, {.connect = Second, .answer = Second, .idle = Second}};
        return failing(uploader);
    }
    static constexpr std::chrono::seconds Second{1};
    static constexpr const char* Uploaded = "/in box/1.2/1.2.3/a.dcm";

  private Q_SLOTS:
    static void initTestCase() { std::signal(SIGPIPE, SIG_IGN); }
};

}  // namespace tessaly::test
