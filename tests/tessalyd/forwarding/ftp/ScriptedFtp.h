#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tessaly::test {

/// An FTP server of the test's own on the loopback, which keeps its files in memory and errs as it is told
/// to. Serves any number of connections at a time.
class ScriptedFtp {
  public:
    ScriptedFtp();
    ~ScriptedFtp();
    ScriptedFtp(const ScriptedFtp&) = delete;
    ScriptedFtp& operator=(const ScriptedFtp&) = delete;

    [[nodiscard]] QString port() const { return QString::number(port_); }
    [[nodiscard]] QString host() const { return QStringLiteral("127.0.0.1:") + port(); }

    inline static const std::string User = "scanner";
    inline static const std::string Password = "s3cret word";

    /// What is done with a command instead of what is usual: a reply, or one of these two.
    inline static const std::string Silence = "silence";
    inline static const std::string Close = "close";
    using Script =
        std::function<std::optional<std::string>(const std::string& verb, const std::string& argument)>;
    /// Asked for each command, in the connection's thread.
    void setScript(Script script);
    /// The same for what follows a file's data; the argument is the file's path.
    void setAfterStore(Script script);
    /// So many bytes of a file are taken, then the data connection is closed and this reply given.
    void setFull(std::size_t bytes, const std::string& reply);
    /// Once a file has been renamed, the next command of its connection finds that closed.
    void setClosesWhenIdle(bool closes) { closesWhenIdle_ = closes; }

    /// Paths, from the root, which is the folder of the login, and contents.
    [[nodiscard]] std::map<std::string, QByteArray> files() const;
    [[nodiscard]] QStringList names() const;
    void putFile(const std::string& path, const QByteArray& content);
    /// Verbs of all connections, in their order.
    [[nodiscard]] QStringList commands() const;
    [[nodiscard]] int count(const QString& verb) const { return static_cast<int>(commands().count(verb)); }
    [[nodiscard]] int connections() const { return connections_; }

  private:
    struct Session;
    void accept();
    void serve(int socket);
    [[nodiscard]] bool obey(Session& session, const std::string& verb, const std::string& argument);
    [[nodiscard]] bool store(Session& session, const std::string& path);
    [[nodiscard]] std::string replyTo(Session& session, const std::string& verb, const std::string& argument);
    [[nodiscard]] std::string rename(Session& session, const std::string& path);
    [[nodiscard]] std::string openData(Session& session, bool extended);

    int listener_;
    int port_ = 0;
    mutable std::mutex mutex_;
    Script script_;
    Script afterStore_;
    std::optional<std::size_t> room_;
    std::string fullReply_;
    std::map<std::string, QByteArray> files_;
    std::set<std::string> folders_{"/"};
    QStringList commands_;
    std::set<int> sockets_;
    std::vector<std::thread> sessions_;
    std::atomic<int> connections_ = 0;
    std::atomic<bool> closesWhenIdle_ = false;
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

}  // namespace tessaly::test
