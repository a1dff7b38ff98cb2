#pragma once

#include <spawn.h>
#include <sys/resource.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Measure.h"

namespace tessaly::bench {

/// Runs the tool; its time and its own peak of memory.
inline Result runTool(std::vector<std::string> words) {
    std::string program = TESSALY_DB;
    std::vector<char*> arguments{program.data()};
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawn(&child, TESSALY_DB, nullptr, nullptr, arguments.data(), environ) != 0)
        throw std::runtime_error("the tool cannot be started");
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || status != 0)
        throw std::runtime_error("the tool failed");
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const auto seconds = [](const timeval& part) {
        return static_cast<double>(part.tv_sec) + static_cast<double>(part.tv_usec) / 1e6;
    };
    return {.seconds = time.count(),
            .processor = seconds(usage.ru_utime) + seconds(usage.ru_stime),
            .megabytes = static_cast<double>(usage.ru_maxrss) / 1024};
}

}  // namespace tessaly::bench
