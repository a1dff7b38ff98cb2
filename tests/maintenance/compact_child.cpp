// Compacts one database and prints the failure, if any: the process that the tests kill and limit.

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include "maintenance/Compaction.h"

namespace {

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

/// compact_child DATABASE [limit BYTES | nobody]
int main(int argc, char** argv) {
    const std::string wish = argc > 2 ? argv[2] : "";
    if (wish == "limit")
        limitFiles(std::strtoul(argv[3], nullptr, 10));
    if (wish == "nobody" && !becomeNobody())
        return EXIT_FAILURE;
    try {
        tessaly::maintenance::compactDatabase(argv[1]);
        return EXIT_SUCCESS;
    } catch (const std::exception& fault) {
        std::cout << fault.what() << std::flush;
        return EXIT_FAILURE;
    }
}
