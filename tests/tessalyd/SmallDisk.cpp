#include "tests/tessalyd/SmallDisk.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <QFile>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace tessaly::test {

namespace {

void writeFile(const char* name, const char* text) {
    const int file = ::open(name, O_WRONLY | O_CLOEXEC);
    if (file < 0 || ::write(file, text, std::strlen(text)) < 0)
        ::_exit(EXIT_FAILURE);
    ::close(file);
}

}  // namespace

void giveSmallDisk(QProcess& process, const QString& folder, int kilobytes) {
    process.setChildProcessModifier([path = folder.toLocal8Bit(), kilobytes] {
        // Whoever is not root is that of a namespace of its own.
        const uid_t user = ::geteuid();
        const gid_t group = ::getegid();
        if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) < 0)
            ::_exit(EXIT_FAILURE);
        std::array<char, 64> text{};
        if (user != 0) {
            writeFile("/proc/self/setgroups", "deny");
            std::snprintf(text.data(), text.size(), "%u %u 1", user, user);
            writeFile("/proc/self/uid_map", text.data());
            std::snprintf(text.data(), text.size(), "%u %u 1", group, group);
            writeFile("/proc/self/gid_map", text.data());
        }
        std::snprintf(text.data(), text.size(), "size=%dk,mode=0700", kilobytes);
        if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0 ||
            ::mount("small", path.constData(), "tmpfs", 0, text.data()) < 0)
            ::_exit(EXIT_FAILURE);
    });
}

QString fillDisk(const QProcess& process, const QString& folder) {
    QFile file{u"/proc/%1/root%2/filling"_s.arg(process.processId()).arg(folder)};
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw std::runtime_error{"the small disk cannot be filled"};
    const QByteArray block(4096, 'x');
    while (file.write(block) == block.size()) {
    }
    return file.fileName();
}

}  // namespace tessaly::test
