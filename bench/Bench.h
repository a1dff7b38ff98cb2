#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace tessaly {

/// What every bench's main does with its measurements: says what went wrong, if anything did. Returns the
/// exit status.
template <typename Measure>
[[nodiscard]] int runBench(const Measure& measure) {
    try {
        measure();
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}

}  // namespace tessaly
