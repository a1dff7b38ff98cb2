// Compacts one database and prints the failure, if any: the process that the tests kill, limit and watch.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "db/Connection.h"
#include "maintenance/FileCompaction.h"

namespace {

bool watched = false;
bool spoils = false;

std::string nameOf(const std::filesystem::path& path) {
    return path.filename().string();
}

void say(const std::string& step) {
    if (watched)
        std::cout << step << '\n';
}

/// No file may grow beyond that many bytes: what a full disk is to whoever writes.
void limitFiles(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

/// Root may write everywhere; nobody may not.
bool becomeNobody() {
    constexpr uid_t Nobody = 65534;
    return geteuid() != 0 || (setgid(Nobody) == 0 && setuid(Nobody) == 0);
}

}  // namespace

// What the compaction and the engine's library ask of the disk, in their own order: the program's definitions
// come before the C library's.
extern "C" {

int fsync(int descriptor) {
    say("flush " + nameOf(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor))));
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

int fdatasync(int descriptor) {
    return fsync(descriptor);
}

int unlink(const char* path) noexcept {
    say("remove " + nameOf(path));
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int rename(const char* from, const char* to) noexcept {
    say("rename " + nameOf(from) + " to " + nameOf(to));
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

/// The first thing that is done with the copy once it is written, before anybody looks at it again.
int sync_file_range(int descriptor, off64_t /*offset*/, off64_t length, unsigned /*flags*/) {
    const bool isTheRest = length == 0;
    if (!spoils || !isTheRest)
        return 0;
    const std::string copy = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
    constexpr std::uintmax_t Page = 4096;
    std::fstream file{copy, std::ios::in | std::ios::out | std::ios::binary};
    file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(copy) / 2 / Page * Page));
    file << std::string(2 * Page, '\xa5');
    return 0;
}

}  // extern "C"

/// compact_child DATABASE [limit BYTES | nobody | watch | spoil]; watched, it prints each step that reaches
/// the disk; a spoiler damages the copy as a failing disk would.
int main(int argc, char** argv) {
    const std::string wish = argc > 2 ? argv[2] : "";
    if (wish == "limit")
        limitFiles(std::strtoul(argv[3], nullptr, 10));
    watched = wish == "watch";
    spoils = wish == "spoil";
    if (wish == "nobody" && !becomeNobody())
        return EXIT_FAILURE;
    try {
        tessaly::maintenance::NoProgress progress;
        tessaly::maintenance::FileCompaction{argv[1]}.run(tessaly::db::Connection{}, progress);
        return EXIT_SUCCESS;
    } catch (const std::exception& fault) {
        std::cout << fault.what() << std::flush;
        return EXIT_FAILURE;
    }
}
