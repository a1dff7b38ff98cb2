#pragma once

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// What the benches share: work done in a process of its own, and plain C on SQLite to compare with.

namespace tessaly::bench {

inline void requireOk(int result, int expected, sqlite3* handle) {
    if (result != expected)
        throw std::runtime_error(sqlite3_errmsg(handle));
}

inline sqlite3* openPlain(const std::string& file) {
    sqlite3* handle = nullptr;
    requireOk(sqlite3_open(file.c_str(), &handle), SQLITE_OK, handle);
    return handle;
}

inline void runPlain(sqlite3* handle, const std::string& sql) {
    requireOk(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK, handle);
}

inline sqlite3_stmt* prepare(sqlite3* handle, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    requireOk(sqlite3_prepare_v2(handle, sql, -1, &statement, nullptr), SQLITE_OK, handle);
    return statement;
}

inline const char* textOf(sqlite3_stmt* statement, int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
}

/// How db/ reaches a database file without a data source.
inline std::string connectStringOf(const std::string& file) {
    return "Driver=SQLite3;StepAPI=1;JournalMode=WAL;SyncPragma=NORMAL;Timeout=5000;Database=" + file;
}

/// What a child hands back to its parent.
struct Result {
    double seconds = 0;
    double processor = 0;   ///< seconds of processor time: the same on a machine with other work to do
    double megabytes = 0;   ///< the process's peak of memory
    std::size_t proof = 0;  ///< of the work: each way must come to the same
};

/// The kernel's count for this process alone.
inline double peakMegabytes() {
    std::ifstream status{"/proc/self/status"};
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::strtod(line.c_str() + std::strlen("VmHWM:"), nullptr) / 1024;
    throw std::runtime_error("no VmHWM");
}

inline double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Times some work that gives its proof.
template <class Work>
Result measure(Work work) {
    const auto start = std::chrono::steady_clock::now();
    const double processor = processorSeconds();
    const std::size_t proof = work();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    return {.seconds = time.count(),
            .processor = processorSeconds() - processor,
            .megabytes = peakMegabytes(),
            .proof = proof};
}

/// Does the work in a child. It starts from a parent that has allocated next to nothing.
template <class Work>
auto inChild(Work work) -> decltype(work()) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    decltype(work()) result{};
    if (child == 0) {
        try {
            result = work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
        _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    close(ends[1]);
    const bool whole = read(ends[0], &result, sizeof result) == sizeof result;
    close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0 || !whole)
        throw std::runtime_error("a measurement failed");
    return result;
}

/// The faster of two rounds, with the greater memory: what else ran on the machine only ever adds.
inline Result better(const Result& a, const Result& b) {
    return {
        .seconds = std::min(a.seconds, b.seconds),
        .processor = std::min(a.processor, b.processor),
        .megabytes = std::max(a.megabytes, b.megabytes),
        .proof = a.proof == b.proof ? a.proof : throw std::runtime_error("two rounds did different work")};
}

struct TemporaryFolder {
    std::string path = (std::filesystem::temp_directory_path() / "bench.XXXXXX").string();
    TemporaryFolder() {
        if (mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
};

}  // namespace tessaly::bench
